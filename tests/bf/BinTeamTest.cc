#include "bf/BinTeam.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <stdexcept>
#include <vector>

#include "matrix/Exceptions.h"
#include "tests/support/CountedMemory.h"

namespace {

constexpr double MILLISECOND = 1e6;

TEST(BinTeamTest, EachIsDoneOnceByAMemberWithNoOtherAtTheSameTime) {
  BF::BinTeam team;
  for (const int size : {1, 2, 3, 7}) {
    team.setSize(size);
    for (const int count : {0, 1, 8, 9, 257, 1000}) {
      for (const double nanoseconds : {1.0, MILLISECOND}) {
        std::vector<int> done(static_cast<std::size_t>(count));
        std::vector<std::atomic<int>> working(static_cast<std::size_t>(size));
        std::atomic<int> faults = 0;
        team.share(count, nanoseconds, [&](int begin, int end, int member) {
          faults += begin % BF::BinTeam::PART != 0 || working.at(member)++ != 0 ? 1 : 0;
          for (int i = begin; i < end; ++i) ++done.at(i);
          --working.at(member);
        });
        EXPECT_EQ(done, std::vector<int>(done.size(), 1));
        EXPECT_EQ(faults, 0) << size << " " << count;
      }
    }
  }
  EXPECT_THROW(team.setSize(0), BF::InvalidStateException);
}

TEST(BinTeamTest, ThrowsWhatTheWorkThrowsAndAllocatesNothing) {
  BF::BinTeam team;
  team.setSize(2);
  std::vector<double> values(10'000, 1.0);
  const auto work = [&](int begin, int end, int) {
    for (int i = begin; i < end; ++i) values[i] += 1.0 / values[i];
  };
  const auto faulty = [](int begin, int, int) {
    if (begin > 500) throw std::runtime_error("as it should");
  };
  team.share(10'000, MILLISECOND, work);
  EXPECT_THROW(team.share(10'000, MILLISECOND, faulty), std::runtime_error);
  const long before = allocations;
  for (int i = 0; i < 1000; ++i) team.share(10'000, MILLISECOND, work);
  EXPECT_EQ(allocations, before);
  EXPECT_EQ(std::count(values.begin(), values.end(), values[0]), 10'000);
}

}  // namespace
