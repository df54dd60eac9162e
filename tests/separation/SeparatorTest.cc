// The separator alone: what it gives however its samples come, against an engine that is driven
// frame by frame, and what becomes of it when memory runs out.

#include "separation/Separator.h"

#include <algorithm>
#include <limits>
#include <map>
#include <new>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "dsp/FrameAnalyzer.h"
#include "dsp/OverlapAdder.h"
#include "gtest/gtest.h"
#include "separation/Level.h"
#include "tests/support/CountedMemory.h"
#include "tests/support/Databases.h"

namespace {

using Separation::Separator;
using Separation::Settings;
using Sources = std::vector<BF::SourceLocation>;
using Signals = std::map<int, std::vector<float>>;

constexpr int POSITIONS = 8;

/// A recording of noise with sources that come, go, move and turn from target to noise. In every
/// other world frames are longer than what becomes sound of them.
struct World {
  explicit World(unsigned seed, int scale = 1) : random(seed) {
    M = random.integer(2, 4);
    length = scale * random.integer(8, 20);
    if (seed % 2 == 1) latency = random.integer(2, length);
    advance =
        latency ? random.integer(1, *latency / 2) : scale * random.integer(1, length / scale / 2);
    database = support::randomDatabase(random, M, POSITIONS, length / 2 + 1);
    responses.positions = database.sourceLocations;
    responses.microphones = static_cast<std::size_t>(M);
    responses.taps = static_cast<std::size_t>(random.integer(1, 2 * length));
    responses.samplingRate = 1000;
    responses.samples.resize(POSITIONS * responses.microphones * responses.taps);
    for (float& h : responses.samples) h = static_cast<float>(random.uniform(-1, 1));
    total = random.integer(0, 12 * length);
    for (int i = 0; i < total * M; ++i)
      samples.push_back(static_cast<float>(random.uniform(-1, 1)));
    std::vector<support::SceneSource> scene;
    for (int from = 0; from < total; from += random.integer(1, 3 * length)) {
      support::changeScene(random, 3, POSITIONS, scene);
      std::map<int, support::SceneSource> byId;
      for (const auto& source : scene) byId.insert({source.id, source});
      std::vector<support::SceneSource> unique;
      for (const auto& [id, source] : byId) unique.push_back(source);
      changes.emplace_back(from, support::locationsOf(unique, database));
    }
  }

  Settings settings(BF::BfAlgorithmType method) const {
    Settings s;
    s.method = method;
    s.samplingRate = 1000;
    s.length = length;
    s.advance = advance;
    s.latency = latency;
    return s;
  }

  support::Generator random;
  int M, length, advance, total;
  std::optional<int> latency;
  BF::TransformFunctionDatabase database;
  Separation::ImpulseResponses responses;
  std::vector<float> samples;
  std::vector<std::pair<int, Sources>> changes;
};

/// Every method, with what else makes a difference.
std::vector<Settings> allSettings(const World& world) {
  std::vector<Settings> all;
  for (const auto method : {BF::BF_ALGORITHM_DS, BF::BF_ALGORITHM_WDS, BF::BF_ALGORITHM_NULL,
                            BF::BF_ALGORITHM_ILSE, BF::BF_ALGORITHM_LCMV, BF::BF_ALGORITHM_GJ,
                            BF::BF_ALGORITHM_GICA, BF::BF_ALGORITHM_CMSNR, BF::BF_ALGORITHM_CML}) {
    all.push_back(world.settings(method));
  }
  all.push_back(world.settings(BF::BF_ALGORITHM_CMSNR));
  all.back().parameters.decompositionAlgorithm = "GSVD";
  all.push_back(world.settings(BF::BF_ALGORITHM_CML));
  all.back().noise.times = {{0.0, 0.05}};
  return all;
}

/// Those that go beyond the engine's methods: several passes, refinement, MVDR.
std::vector<Settings> ownSettings(const World& world) {
  std::vector<Settings> all(5, world.settings(Separation::ALGORITHM_MVDR));
  all[1].method = BF::BF_ALGORITHM_NULL;
  all[1].refinement.running = true;
  all[1].refinement.memory = 0.02;
  all[2].method = BF::BF_ALGORITHM_CMSNR;
  all[2].passes = 2;
  all[2].refinement.passes = 1;
  all[3].method = BF::BF_ALGORITHM_GICA;
  all[3].passes = 2;
  all[3].postMask = 0.1;
  all[4].refinement.passes = 2;
  all[4].postMask = 0.1;
  return all;
}

std::vector<Settings> withOwn(std::vector<Settings> all, const World& world) {
  for (const Settings& settings : ownSettings(world)) all.push_back(settings);
  return all;
}

Separator makeSeparator(const Settings& settings, const World& world) {
  if (settings.method == Separation::ALGORITHM_MVDR) return {settings, world.responses};
  return {settings, world.database};
}

/// Appends an output, which must follow the one before without a gap.
void append(const Separation::Output& output, std::size_t& done, Signals& signals) {
  ASSERT_EQ(output.start, static_cast<std::int64_t>(done));
  for (const auto& [id, samples] : output.signals) {
    ASSERT_EQ(samples.size(), output.count);
    signals[id].resize(done);
    signals[id].insert(signals[id].end(), samples.begin(), samples.end());
  }
  done += output.count;
}

/// Every signal as long as the recording.
Signals whole(Signals signals, const World& world) {
  for (auto& [id, samples] : signals) samples.resize(static_cast<std::size_t>(world.total));
  return signals;
}

/// One pass in one piece, with the lists set in advance.
Signals onePass(Separator& separator, const World& world) {
  for (const auto& [from, sources] : world.changes) separator.setSources(sources, from);
  Signals signals;
  std::size_t done = 0;
  append(separator.push(world.samples.data(), static_cast<std::size_t>(world.total)), done,
         signals);
  append(separator.flush(), done, signals);
  EXPECT_EQ(done, static_cast<std::size_t>(world.total));
  return whole(std::move(signals), world);
}

/// All passes; those before the last give nothing.
Signals atOnce(Separator& separator, const World& world) {
  for (int pass = 1; pass < separator.passes(); ++pass) {
    EXPECT_EQ(onePass(separator, world), Signals());
    separator.startOver();
  }
  return onePass(separator, world);
}

/// What an action returns, in which memory may fail.
template <class Action>
auto armed(Action action) {
  isArmed = true;
  auto result = action();
  isArmed = false;
  return result;
}

/// One pass in pieces of any length, each list set when its first sample is the next one. Calls
/// that memory fails are gone on with.
Signals onePassInPieces(Separator& separator, World& world) {
  Signals signals;
  std::size_t done = 0;
  auto change = world.changes.begin();
  while (separator.samples() < world.total) {
    const auto at = static_cast<int>(separator.samples());
    try {
      if (change != world.changes.end() && change->first == at) {
        armed([&] { return separator.setSources(change->second), 0; });
        ++change;
      }
      const int end = change == world.changes.end() ? world.total : change->first;
      const int count = std::min(end - at, world.random.integer(0, 2 * world.length));
      const float* samples = world.samples.data() + at * world.M;
      append(*armed([&] { return &separator.push(samples, static_cast<std::size_t>(count)); }),
             done, signals);
      EXPECT_GE(static_cast<int>(done), at + count - separator.latency());
    } catch (const std::bad_alloc&) {
      isArmed = false;
    }
  }
  try {
    append(*armed([&] { return &separator.flush(); }), done, signals);
  } catch (const std::bad_alloc&) {
    isArmed = false;
    append(separator.flush(), done, signals);
  }
  EXPECT_EQ(done, static_cast<std::size_t>(world.total));
  return whole(std::move(signals), world);
}

Signals inPieces(Separator& separator, World& world) {
  for (int pass = 1; pass < separator.passes(); ++pass) {
    onePassInPieces(separator, world);
    separator.startOver();
  }
  return onePassInPieces(separator, world);
}

TEST(SeparatorTest, BlocksAndLostMemoryMakeNoDifference) {
  for (unsigned seed = 0; seed < 40; ++seed) {
    World world(seed);
    for (const Settings& settings : withOwn(allSettings(world), world)) {
      SCOPED_TRACE(testing::Message() << "seed " << seed << ", method " << settings.method);
      Separator one = makeSeparator(settings, world);
      const Signals expected = atOnce(one, world);
      for (int trial = 0; trial < 6; ++trial) {
        Separator other = makeSeparator(settings, world);
        untilFailure = trial == 0 ? -1 : world.random.integer(0, 40 << trial);
        EXPECT_EQ(inPieces(other, world), expected);
      }
    }
  }
}

/// What an engine gives that is driven frame by frame, updated with every frame or with every list
/// that differs from the engine's.
Signals driven(const Settings& s, const World& world, bool everyFrame) {
  const Audio::FrameLayout frames(s.length, s.advance);
  const Audio::FrameWindows windows =
      s.latency ? Audio::lowDelayWindows(s.length, *s.latency)
                : Audio::equalWindows(Audio::windowNamed(s.window), s.length);
  Audio::FrameAnalyzer analyzer(world.M, frames, windows.analysis);
  Audio::FrameSynthesizer synthesizer(frames, windows, false);
  const Audio::FrameLayout layout = synthesizer.frames();
  const int K = frames.bins();
  std::map<int, Audio::OverlapAdder> adders;
  Signals signals;
  auto engine = BF::makeEngine(s.method, s.parameters, K, s.samplingRate, 343.0);
  engine->setTransformFunctionDatabase(world.database);
  const Sources* last = nullptr;
  for (int f = 0; f < layout.frameCount(world.total); ++f) {
    const int begin = f * s.advance;
    const int count = std::clamp(world.total - begin, 0, s.advance);
    analyzer.add(world.samples.data() + std::min(begin, world.total) * world.M,
                 static_cast<std::size_t>(count));
    const Sources* list = nullptr;
    for (const auto& [from, sources] : world.changes) {
      const double centre = static_cast<double>(layout.start(f)) + layout.length() / 2.0;
      if (from <= std::max(0.0, centre)) list = &sources;
    }
    BF::Matrix X(world.M, K);
    BF::Matrix Y;
    for (int i = 0; i < world.M * K; ++i) X.data()[i] = analyzer.spectra()[i];
    std::map<int, int> rows;
    if (list && !list->empty()) {
      if (everyFrame || list != last) engine->updateSources(*list);
      engine->executeBeamForming(X, Y);
      engine->adaptSeparationMatrices();
      for (std::size_t j = 0; j < list->size(); ++j) {
        if ((*list)[j].flag) rows[(*list)[j].id] = static_cast<int>(j);
      }
      last = list;
    }
    for (const auto& [id, row] : rows) adders.try_emplace(id, layout);
    for (auto& [id, adder] : adders) {
      std::vector<std::complex<float>> y;
      for (int k = 0; rows.contains(id) && k < K; ++k) {
        y.emplace_back(Y.getElementAt(rows[id], k));
      }
      adder.add(y.empty() ? nullptr : synthesizer.synthesize(y.data()).data());
      signals[id].resize(static_cast<std::size_t>(world.total));
      for (int n = 0; n < s.advance; ++n) {
        const std::int64_t sample = layout.start(f) + n;
        if (sample >= 0 && sample < world.total) signals[id][sample] = adder.sum()[n];
      }
    }
  }
  return signals;
}

TEST(SeparatorTest, GivesWhatTheEnginesGiveOfWhichOnlyGjMindsNeedlessUpdates) {
  int minded = 0;
  for (unsigned seed = 100; seed < 140; ++seed) {
    World world(seed);
    // Lists that repeat the one before are no change.
    const auto last = std::unique(world.changes.begin(), world.changes.end(), [](auto& a, auto& b) {
      return std::equal(a.second.begin(), a.second.end(), b.second.begin(), b.second.end(),
                        [](const auto& s, const auto& t) {
                          return s.id == t.id && s.x == t.x && s.y == t.y && s.flag == t.flag;
                        });
    });
    world.changes.erase(last, world.changes.end());
    for (Settings settings : allSettings(world)) {
      if (settings.method == BF::BF_ALGORITHM_CML) continue;  // has noise, as the nodes give it
      SCOPED_TRACE(testing::Message() << "seed " << seed << ", method " << settings.method);
      settings.project = settings.inactiveAsNoise = false;
      Settings engineSettings = settings;
      Separator separator(settings, world.database);
      const Signals signals = atOnce(separator, world);
      if (settings.method == BF::BF_ALGORITHM_CMSNR) continue;
      EXPECT_EQ(signals, driven(engineSettings, world, false));
      if (settings.method == BF::BF_ALGORITHM_GJ) {
        minded += signals != driven(engineSettings, world, true) ? 1 : 0;
      } else {
        EXPECT_EQ(signals, driven(engineSettings, world, true));
      }
    }
  }
  EXPECT_GT(minded, 10);
}

TEST(SeparatorTest, AFrameWithTheSameSourcesAllocatesNothing) {
  World world(7);
  const Sources sources = support::locationsOf({{1, 2}, {2, 5, false}}, world.database);
  const std::vector<float> block(static_cast<std::size_t>(world.advance * world.M), 0.5F);
  for (Settings settings : withOwn(allSettings(world), world)) {
    if (!settings.noise.times.empty()) settings.noise.times = {{0.0, 1e6}};  // new in every frame
    Separator separator = makeSeparator(settings, world);
    long before = 0;
    for (int frame = 0; frame < 1040; ++frame) {
      if (frame == 40) before = allocations;
      separator.setSources(sources);
      separator.push(block.data(), static_cast<std::size_t>(world.advance));
    }
    EXPECT_EQ(allocations - before, 0) << settings.method;
  }
}

TEST(SeparatorTest, TheLevelOfTheRecordingMakesNoDifference) {
  for (unsigned seed = 200; seed < 220; ++seed) {
    World world(seed);
    for (const auto method : {BF::BF_ALGORITHM_CMSNR, BF::BF_ALGORITHM_CML}) {
      const auto separated = [&](float gain) {
        World scaled = world;
        for (float& sample : scaled.samples) sample *= gain;
        Separator separator(world.settings(method), world.database);
        Signals signals = atOnce(separator, scaled);
        for (auto& [id, samples] : signals) {
          for (float& sample : samples) sample /= gain;
        }
        return signals;
      };
      const auto difference = [](const Signals& a, const Signals& b) {
        double error = 0.0;
        double power = 1e-30;
        for (const auto& [id, samples] : a) {
          for (std::size_t n = 0; n < samples.size(); ++n) {
            error += std::pow(samples[n] - b.at(id)[n], 2);
            power += std::pow(samples[n], 2);
          }
        }
        return error / power;
      };
      const Signals expected = separated(1.0F);
      EXPECT_LT(difference(expected, separated(100.0F)), 1e-6) << seed << " " << method;
      EXPECT_LT(difference(expected, separated(0.01F)), 1e-6) << seed << " " << method;
    }
  }
}

// Pure delays of no samples let an impulse through as it is.
TEST(SeparatorTest, AnImpulseComesOutAsSoonAsTheLatencySays) {
  support::Generator random(5);
  for (int trial = 0; trial < 60; ++trial) {
    Settings s;
    s.method = BF::BF_ALGORITHM_DS;
    s.length = random.integer(4, 600);
    if (trial % 2 == 0) s.latency = random.integer(2, s.length);
    const int S = s.latency.value_or(s.length);
    s.advance = random.integer(1, S / 2);
    SCOPED_TRACE(testing::Message() << s.length << " " << S << " " << s.advance);
    BF::TransformFunctionDatabase database;
    database.micLocations = {{0, 0, 0}};
    database.sourceLocations = {{1, 0, 0, 0, true}};
    database.transferFunctions.assign(static_cast<std::size_t>(s.length / 2 + 1), BF::Matrix::I(1));
    Separator separator(s, database);
    separator.setSources(database.sourceLocations);
    const int at = random.integer(0, 2 * s.length);
    int taken = 0;
    std::int64_t done = 0;
    float greatest = 0.0F;  // of all other samples
    for (; done <= at; ++taken) {
      const float sample = taken == at ? 1.0F : 0.0F;
      const Separation::Output& output = separator.push(&sample, 1);
      for (std::size_t n = 0; n < output.count && !output.signals.empty(); ++n) {
        const float value = output.signals[0].samples[n];
        if (done + static_cast<std::int64_t>(n) == at) {
          EXPECT_NEAR(value, 1.0F, 2e-5F);
        } else {
          greatest = std::max(greatest, std::abs(value));
        }
      }
      done += static_cast<std::int64_t>(output.count);
    }
    EXPECT_LT(greatest, 2e-5F);
    EXPECT_EQ(separator.latency(), S - 1);
    EXPECT_LE(taken - 1 - at, S - 1);
    EXPECT_GE(taken - 1 - at, S - s.advance);
  }
}

TEST(SeparatorTest, OneEnormousFrameDoesNotSetTheLevel) {
  Separation::Level level;
  const std::complex<float> usual(3.0F, 4.0F);
  const std::complex<float> enormous(1e15F, 0.0F);
  for (int n = 0; n < 500; ++n) level.add(n == 200 ? &enormous : &usual, 1);
  EXPECT_NEAR(level.gain(), std::sqrt(Separation::Level::POWER) / 5.0F, 20.0F);
}

TEST(SeparatorTest, ATargetThatIsSilentStaysAsNoise) {
  World world(11);
  const Sources both = support::locationsOf({{1, 2}, {2, 5}}, world.database);
  const Sources one = {both[0]};
  Sources other = {both[0], both[1]};
  other[1].flag = false;
  world.total = 100;
  world.samples.resize(static_cast<std::size_t>(100 * world.M), 0.25F);
  world.changes = {{0, both}, {50, one}};
  Separator implied(world.settings(BF::BF_ALGORITHM_CMSNR), world.M);
  const Signals signals = atOnce(implied, world);
  world.changes = {{0, both}, {50, other}};
  Separator said(world.settings(BF::BF_ALGORITHM_CMSNR), world.M);
  EXPECT_EQ(atOnce(said, world), signals);
}

TEST(SeparatorTest, TwoOnTwoThreadsGiveWhatEachGivesAlone) {
  World world(21);
  world.total = 3000;
  world.samples.resize(static_cast<std::size_t>(world.total * world.M), 0.125F);
  for (std::size_t i = 0; i < world.samples.size(); ++i) {
    world.samples[i] = static_cast<float>(world.random.uniform(-1, 1));
  }
  for (const Settings& settings : withOwn(allSettings(world), world)) {
    Separator alone = makeSeparator(settings, world);
    const Signals expected = atOnce(alone, world);
    Signals results[2];
    std::vector<std::thread> threads;
    for (Signals& result : results) {
      threads.emplace_back([&result, &settings, &world] {
        Separator separator = makeSeparator(settings, world);
        result = atOnce(separator, world);
      });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(results[0], expected) << settings.method;
    EXPECT_EQ(results[1], expected) << settings.method;
  }
}

TEST(SeparatorTest, ThreadsThatShareTheBinsChangeNothing) {
  const World world(28, 600);  // enough bins to be worth it for every method
  for (Settings settings : withOwn(allSettings(world), world)) {
    Separator alone = makeSeparator(settings, world);
    const Signals expected = atOnce(alone, world);
    EXPECT_FALSE(expected.empty());
    for (const int threads : {2, 5}) {
      settings.threads = threads;
      Separator shared = makeSeparator(settings, world);
      EXPECT_EQ(atOnce(shared, world), expected) << settings.method;
    }
  }
}

/// The field that a fault names.
template <class Action>
std::string faultyField(Action action) {
  try {
    action();
  } catch (const Separation::SettingError& error) {
    EXPECT_EQ(error.what(), error.field + " is " + error.actual + ", expected " + error.expected);
    return error.field;
  }
  return "";
}

TEST(SeparatorTest, FaultsNameTheirFieldAndLeaveItUsable) {
  const World world(3);
  const std::vector<std::pair<std::string, void (*)(Settings&)>> faults = {
      {"method", [](Settings& s) { s.method = BF::BF_ALGORITHM_GHDSS; }},
      {"parameters.decompositionAlgorithm",
       [](Settings& s) {
         s.method = BF::BF_ALGORITHM_CMSNR;
         s.parameters.decompositionAlgorithm = "SVD";
       }},
      {"samplingRate", [](Settings& s) { s.samplingRate = 0; }},
      {"length", [](Settings& s) { s.length = 0; }},
      {"advance", [](Settings& s) { s.advance = s.length + 1; }},
      {"advance", [](Settings& s) { s.advance = s.length; }},
      {"window", [](Settings& s) { s.window = "hann"; }},
      {"latency", [](Settings& s) { s.latency = 1; }},
      {"latency", [](Settings& s) { s.latency = s.length + 1; }},
      {"advance", [](Settings& s) { s.latency = s.advance = 6; }},
      {"noise.forgetting", [](Settings& s) { s.noise.forgetting = 1.5; }},
      {"noise.loading", [](Settings& s) { s.noise.loading = std::nan(""); }},
      {"noise.times",
       [](Settings& s) {
         s.noise.times = {{2.0, 1.0}};
       }},
      {"noise.matrices", [](Settings& s) { s.noise.matrices = {BF::Matrix::I(2)}; }},
      {"projectionForgetting", [](Settings& s) { s.projectionForgetting = -0.1; }},
      {"referenceMicrophone", [](Settings& s) { s.referenceMicrophone = 9; }},
      {"mvdrLoading", [](Settings& s) { s.mvdrLoading = 0; }},
      {"mvdrFrames", [](Settings& s) { s.mvdrFrames = 0; }},
      {"passes", [](Settings& s) { s.passes = 0; }},
      {"refinement.memory", [](Settings& s) { s.refinement.memory = std::nan(""); }},
      {"refinement.passes",
       [](Settings& s) {
         s.refinement.passes = 2;
         s.refinement.running = true;
       }},
      {"postMask", [](Settings& s) { s.postMask = 2; }},
      {"threads", [](Settings& s) { s.threads = 0; }},
      {"responses", [](Settings& s) { s.method = Separation::ALGORITHM_MVDR; }},
      {"database.transferFunctions", [](Settings& s) { s.length += 2; }}};
  for (const auto& [field, spoil] : faults) {
    Settings settings = world.settings(BF::BF_ALGORITHM_NULL);
    spoil(settings);
    EXPECT_EQ(faultyField([&] { Separator(settings, world.database); }), field);
  }
  const Settings settings = world.settings(BF::BF_ALGORITHM_NULL);
  EXPECT_EQ(faultyField([&] { Separator(settings, 4); }), "database");
  EXPECT_EQ(faultyField([&] { Separator(settings, BF::TransformFunctionDatabase()); }),
            "microphones");

  Settings mvdr = world.settings(Separation::ALGORITHM_MVDR);
  EXPECT_EQ(faultyField([&] { Separator(settings, world.responses); }), "database");
  mvdr.samplingRate = 2000;
  EXPECT_EQ(faultyField([&] { Separator(mvdr, world.responses); }), "responses.samplingRate");
  Separation::ImpulseResponses responses = world.responses;
  responses.samples.back() = NAN;
  EXPECT_EQ(faultyField([&] { Separator(mvdr, responses); }), "responses.samples");

  Separator separator(settings, world.database);
  const double inf = std::numeric_limits<double>::infinity();
  separator.setSources({{1, 0, 0, 1, true}}, 5);
  EXPECT_EQ(faultyField([&] { separator.setSources({}, 4); }), "from");
  EXPECT_EQ(faultyField([&] { separator.setSources({{inf, 0, 0, 1, true}}, 6); }), "sources[0]");
  EXPECT_EQ(faultyField([&] {
              separator.setSources({{1, 0, 0, 1, true}, {0, 1, 0, 1, true}}, 6);
            }),
            "sources[1].id");
  const std::vector<float> loud(static_cast<std::size_t>(world.M * 100), 2e15F);
  separator.push(loud.data(), 100);
  EXPECT_EQ(separator.replacedValues(), world.M * 100);
  ASSERT_EQ(separator.flush().signals.size(), 1U);
  EXPECT_EQ(separator.samples(), 100);
  EXPECT_THROW(separator.push(loud.data(), 100), std::logic_error);
  EXPECT_THROW(separator.startOver(), std::logic_error);
}

}  // namespace
