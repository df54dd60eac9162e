#include "bf/BinTeam.h"

#include <oneapi/tbb/blocked_range.h>
#include <oneapi/tbb/parallel_for.h>
#include <oneapi/tbb/task_arena.h>

#include <algorithm>

#include "matrix/Exceptions.h"

namespace BF {

struct BinTeam::Arena {
  explicit Arena(int threads) : arena(threads) {}
  tbb::task_arena arena;
};

BinTeam::BinTeam() = default;
BinTeam::~BinTeam() = default;

void BinTeam::setSize(int threads) {
  if (threads < 1) throw InvalidStateException();
  if (threads == members) return;
  arena = threads == 1 ? nullptr : std::make_unique<Arena>(threads);
  members = threads;
}

void BinTeam::shareParts(int count, Call call, const void* work) {
  const tbb::blocked_range<int> parts(0, (count + PART - 1) / PART);
  const auto doParts = [&](const tbb::blocked_range<int>& some) {
    call(*this, work, some.begin() * PART, std::min(some.end() * PART, count),
         tbb::this_task_arena::current_thread_index());
  };
  arena->arena.execute([&] { tbb::parallel_for(parts, doParts); });
}

}  // namespace BF
