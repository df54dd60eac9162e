#pragma once

#include <atomic>
#include <memory>

namespace BF {

/// Threads that share the bins of a frame, the caller's among them. They are oneTBB's, which starts
/// no more than the machine has processors, and wait without work between two calls. Used by one
/// thread at a time.
class BinTeam {
 public:
  BinTeam();
  ~BinTeam();

  /// From now on this many, at least 1. Throws InvalidStateException for fewer.
  void setSize(int threads);
  int size() const { return members; }  ///< Threads that share.

  /// Calls work(begin, end, member) for parts that make up 0 … count − 1, and returns when all are
  /// done. Parts begin at multiples of PART; calls that run at the same time have different members
  /// (0 … size() − 1), for storage of their own. What work throws is thrown here. nanoseconds:
  /// about what one of the count costs; what costs little is done by the caller at once.
  template <class Work>
  void share(int count, double nanoseconds, const Work& work) {
    if (members == 1 || count <= PART || count * nanoseconds < WORTH_SHARING) {
      if (count > 0) work(0, count, 0);
      return;
    }
    begun.store(1, std::memory_order_release);
    const auto call = [](BinTeam& team, const void* of, int begin, int end, int member) {
      team.begun.load(std::memory_order_acquire);
      (*static_cast<const Work*>(of))(begin, end, member);
      team.ended.fetch_or(1, std::memory_order_release);
    };
    shareParts(count, call, &work);
    ended.load(std::memory_order_acquire);
  }

  /// Enough to fill the lanes of any processor.
  static constexpr int PART = 8;

 private:
  using Call = void (*)(BinTeam& team, const void* work, int begin, int end, int member);
  void shareParts(int count, Call call, const void* work);

  /// In nanoseconds: waking another thread takes some ten thousand.
  static constexpr double WORTH_SHARING = 200e3;

  struct Arena;
  std::unique_ptr<Arena> arena;  // null for one
  int members = 1;
  // What comes before a call and what after, for the thread sanitizer, which cannot see it in
  // oneTBB.
  std::atomic<int> begun = 0;
  std::atomic<int> ended = 0;
};

}  // namespace BF
