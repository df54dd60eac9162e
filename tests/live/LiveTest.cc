// The seam between an audio thread and the separation, without a sound server: what the slots play
// is what was separated, at the delay that was promised, or silence that was counted.

#include <future>
#include <numeric>
#include <thread>

#include "gtest/gtest.h"
#include "live/LiveSeparation.h"
#include "tests/support/CountedMemory.h"
#include "tests/support/Databases.h"

namespace {

using Live::SampleExchange;

/// Channels in blocks, as an audio thread has them.
class Sheet {
 public:
  Sheet(std::size_t channels, std::size_t length)
      : samples(channels, std::vector<float>(length)), pointers(channels) {}

  std::vector<float>& operator[](std::size_t channel) { return samples[channel]; }
  float* const* from(std::size_t n) {
    for (std::size_t c = 0; c < samples.size(); ++c) pointers[c] = samples[c].data() + n;
    return pointers.data();
  }

 private:
  std::vector<std::vector<float>> samples;
  std::vector<float*> pointers;
};

TEST(SlotMap, KeepsReturnsAndSharesSlots) {
  struct Step {
    std::vector<int> ids;
    std::vector<int> slots;  // of the ids
    std::size_t changes;
  };
  const int NONE = Live::SlotChange::NO_SLOT;
  Live::SlotMap map(2);
  const std::vector<Step> steps = {
      {{7}, {0}, 1},
      {{9, 7}, {1, 0}, 1},
      {{3, 9, 7}, {NONE, 1, 0}, 1},  // it waits
      {{3, 9, 7}, {NONE, 1, 0}, 0},
      {{3, 9}, {0, 1}, 2},  // and follows
      {{3}, {0}, 1},
      {{}, {}, 1},
      {{9}, {1}, 1},  // its own again
      {{9, 5}, {1, 0}, 1},
      {{0}, {0}, 3},  // both free: the one that is free for longest, which is the first
      {{0, 4, 6}, {0, 1, NONE}, 2},
      {{0, 4}, {0, 1}, 1},
  };
  for (std::size_t i = 0; i < steps.size(); ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(map.update(steps[i].ids).size(), steps[i].changes);
    for (std::size_t j = 0; j < steps[i].ids.size(); ++j) {
      EXPECT_EQ(map.slotOf(steps[i].ids[j]), steps[i].slots[j]);
    }
  }
}

// The separation's part is done here by copying, at times late. Calls of any size, none of which
// allocates.
TEST(SampleExchange, PlaysEverySampleAtItsDelayOrCountsIt) {
  constexpr std::size_t TOTAL = 4000;
  for (unsigned seed = 0; seed < 60; ++seed) {
    SCOPED_TRACE(seed);
    support::Generator random(seed);
    const auto channels = static_cast<std::size_t>(random.integer(1, 3));
    const auto room = static_cast<std::size_t>(random.integer(300, 700));
    auto delay = static_cast<std::size_t>(random.integer(100, 300));
    SampleExchange exchange(channels, channels, room, delay);
    Sheet in(channels, TOTAL);
    Sheet out(channels, TOTAL);
    for (std::size_t c = 0; c < channels; ++c) {
      for (std::size_t n = 0; n < TOTAL; ++n) in[c][n] = static_cast<float>(n + 1 + c * 10000);
    }
    std::vector<float> block(room * channels);
    std::size_t wrong = 0;
    int stalled = 0;
    for (std::size_t n = 0, count = 0; n < TOTAL; n += count) {
      count = std::min<std::size_t>(TOTAL - n, random.integer(1, 100));
      if (random.integer(0, 60) == 0) {
        delay = static_cast<std::size_t>(random.integer(100, 300));
        exchange.setDelay(delay);
      }
      const long before = allocations;
      exchange.exchange(in.from(n), out.from(n), count);
      ASSERT_EQ(allocations, before);
      for (std::size_t c = 0; c < channels; ++c) {
        for (std::size_t i = n; i < n + count; ++i) {
          const float expected = i < delay ? 0.0F : in[c][i - delay];
          if (out[c][i] != expected) ++wrong;
          ASSERT_TRUE(out[c][i] == expected || out[c][i] == 0.0F) << "sample " << i;
        }
      }
      if (random.integer(0, 20) == 0) stalled = seed % 2 == 0 ? 0 : random.integer(1, 30);
      if (stalled-- > 0) continue;
      const std::size_t waiting = exchange.waiting();
      if (waiting == 0) continue;
      ASSERT_TRUE(exchange.take(block.data(), waiting));
      ASSERT_TRUE(exchange.give(block.data(), waiting));
    }
    const Live::ExchangeCounts counts = exchange.counts();
    EXPECT_EQ(counts.samples, TOTAL);
    if (seed % 2 == 0) {
      EXPECT_EQ(counts.lateSamples + counts.lostSamples, 0);
    }
    EXPECT_LE(wrong, channels * (counts.lateSamples + counts.lostSamples + 2 * 300));
    EXPECT_EQ(exchange.microphoneLevels().take(channels - 1), in[channels - 1][TOTAL - 1]);
    EXPECT_EQ(exchange.microphoneLevels().take(channels - 1), 0.0F);
  }
}

/// Two sources before an array, separated live in a thread of its own.
class LiveSource {
 public:
  static constexpr std::size_t SLOTS = 3;

  explicit LiveSource(unsigned seed) : random(seed) {
    settings.length = 2 * random.integer(4, 12);
    settings.advance = random.integer(1, settings.length / 2);
    settings.samplingRate = 1000;
    period = static_cast<std::size_t>(random.integer(1, 40));
    M = static_cast<std::size_t>(random.integer(2, 4));
    database = support::randomDatabase(random, static_cast<int>(M), 8, settings.length / 2 + 1);
    sources = support::locationsOf({{5, 1}, {2, 6}}, database);
  }

  /// What the separator alone gives for the sheet's first samples.
  std::vector<float> separated(Sheet& in, std::size_t total, int id) {
    Separation::Separator separator(settings, database);
    separator.setSources(sources);
    std::vector<float> interleaved;
    for (std::size_t n = 0; n < total; ++n) {
      for (std::size_t m = 0; m < M; ++m) interleaved.push_back(in[m][n]);
    }
    std::vector<float> result;
    for (const bool isEnd : {false, true}) {
      const auto& output = isEnd ? separator.flush() : separator.push(interleaved.data(), total);
      for (const auto& [signalId, samples] : output.signals) {
        if (signalId == id) result.insert(result.end(), samples.begin(), samples.end());
      }
    }
    return result;
  }

  support::Generator random;
  Separation::Settings settings;
  std::size_t period = 1;
  std::size_t M = 0;
  BF::TransformFunctionDatabase database;
  std::vector<BF::SourceLocation> sources;
};

/// How many samples are finished when so many were heard.
int finished(const Separation::Settings& s, int heard) {
  return heard / s.advance * s.advance - (s.length - s.advance);
}

/// How many samples of two slots differ from what was separated, after so many that do not count.
std::size_t differences(LiveSource& world, Sheet& in, Sheet& out, std::size_t total,
                        std::size_t delay, std::size_t from = 0) {
  std::size_t wrong = 0;
  for (std::size_t slot = 0; slot < 2; ++slot) {
    const std::vector<float> expected = world.separated(in, total, world.sources[slot].id);
    for (std::size_t n = std::max(from, delay); n < total; ++n) {
      if (out[slot][n] != expected[n - delay]) ++wrong;
    }
  }
  return wrong;
}

/// Plays the sheet live. Before each call the separation has done all that it can do.
Live::ExchangeCounts playLive(LiveSource& world, Sheet& in, Sheet& out, std::size_t total,
                              std::size_t delay) {
  SampleExchange exchange(world.M, LiveSource::SLOTS, 2 * total, delay);
  Live::LiveSeparation separation(
      {world.settings, world.database}, [&](double) { return world.sources; }, exchange,
      LiveSource::SLOTS, total);
  std::thread thread([&] { separation.run(); });
  for (std::size_t n = 0; n < total; n += world.period) {
    exchange.exchange(in.from(n), out.from(n), world.period);
    const auto heard = static_cast<int>(n + world.period);
    const int left = finished(world.settings, heard) - std::max(0, heard - static_cast<int>(delay));
    while (static_cast<int>(exchange.playable()) < left) std::this_thread::yield();
  }
  exchange.end();
  thread.join();
  EXPECT_EQ(separation.passedOver(), 0);
  const auto first = separation.nextEvent();
  EXPECT_TRUE(first && first->change.id == 5 && first->change.slot == 0 && first->change.begins);
  return exchange.counts();
}

TEST(LiveSeparation, GivesTheSeparatorsSamplesAtTheStatedDelayAndNotEarlier) {
  for (unsigned seed = 0; seed < 25; ++seed) {
    SCOPED_TRACE(seed);
    LiveSource world(seed);
    const auto period = static_cast<int>(world.period);
    const std::size_t total = world.period * (20 + 4 * world.settings.length / period);
    Sheet in(world.M, total);
    Sheet out(LiveSource::SLOTS, total);
    for (std::size_t m = 0; m < world.M; ++m) {
      for (float& x : in[m]) x = static_cast<float>(world.random.uniform(-1, 1));
    }
    const std::size_t delay = Live::LiveSeparation::delay(world.settings, period, 1, period);
    EXPECT_EQ(playLive(world, in, out, total, delay).lateCalls, 0);
    EXPECT_EQ(differences(world, in, out, total, delay), 0);
    if (world.settings.advance < 10) {
      EXPECT_GT(playLive(world, in, out, total, delay - 1).lateCalls, 0);
    }
  }
}

// Calls of one size, then of another: what a call plays is finished by what came `margin` calls
// before.
TEST(LiveSeparation, ItsDelayIsEnoughAfterTheSizeOfCallsChanged) {
  support::Generator random(1);
  for (int round = 0; round < 300; ++round) {
    Separation::Settings s;
    s.length = random.integer(2, 64);
    s.advance = random.integer(1, s.length);
    const int margin = random.integer(1, 3);
    int step = 0;
    std::vector<int> ends = {0};  // of the calls
    for (const int period : {random.integer(1, 80), random.integer(1, 80)}) {
      step = std::gcd(step, period);
      const auto delay = static_cast<int>(Live::LiveSeparation::delay(s, period, margin, step));
      for (int call = 0; call < 200; ++call) {
        ends.push_back(ends.back() + period);
        if (call < margin) continue;
        const int heard = ends[ends.size() - 1 - static_cast<std::size_t>(margin)];
        ASSERT_LE(ends.back() - delay, finished(s, heard));
      }
    }
  }
}

// The separation stands still while much more comes than it has patience for.
TEST(LiveSeparation, PassesOverWhatItsTimeIsOverForAndIsInTimeAgain) {
  LiveSource world(3);
  const std::size_t P = world.period;
  const auto length = static_cast<std::size_t>(world.settings.length);
  const std::size_t stall = 20 * length / P * P;
  const std::size_t total = 3 * stall;
  const std::size_t delay = length + 4 * stall / 3;  // enough for a busy machine
  Sheet in(world.M, total);
  Sheet out(LiveSource::SLOTS, total);
  for (std::size_t m = 0; m < world.M; ++m) {
    for (float& x : in[m]) x = static_cast<float>(world.random.uniform(-1, 1));
  }
  SampleExchange exchange(world.M, LiveSource::SLOTS, 2 * total, delay);
  std::promise<void> gate;
  std::shared_future<void> opened = gate.get_future().share();
  Live::LiveSeparation separation(
      {world.settings, world.database},
      [&](double) {
        opened.wait();
        return world.sources;
      },
      exchange, LiveSource::SLOTS, stall / 2);
  std::thread thread([&] { separation.run(); });
  for (std::size_t n = 0; n < total; n += P) {
    exchange.exchange(in.from(n), out.from(n), P);
    if (n + P == stall) gate.set_value();
    while (n + P >= stall && exchange.waiting() >= stall / 4) std::this_thread::yield();
  }
  exchange.end();
  thread.join();
  EXPECT_GE(separation.passedOver(), static_cast<std::int64_t>(stall / 2 - P));
  EXPECT_EQ(separation.passedOver() % world.settings.advance, 0);
  EXPECT_EQ(exchange.counts().lateSamples, 0);
  EXPECT_EQ(differences(world, in, out, total, delay, delay + stall + length), 0);
  EXPECT_GT(differences(world, in, out, total, delay), stall / 2);
}

}  // namespace
