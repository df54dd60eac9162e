#include <gmock/gmock.h>

#include <cmath>
#include <limits>

#include "ToolboxLoader.h"
#include "matrix/Exceptions.h"
#include "tests/fileio/SofaFiles.h"
#include "tests/nodes/NodeTesting.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using Complex = std::complex<float>;

constexpr int LENGTH = 16;
constexpr int BINS = LENGTH / 2 + 1;
constexpr int MICS = 4;
constexpr int POSITIONS = 6;

/// The plug-in is loaded as a host loads it, once for all tests.
class PlugIn : public testing::Environment {
 public:
  void SetUp() override {
    const FD::ToolboxReport report = FD::loadToolboxes({ZELK_TOOLBOX});
    ASSERT_FALSE(report.loaded.empty());
    for (const auto& [file, reason] : report.failed) ADD_FAILURE() << file << ": " << reason;
    for (const char* type : {"BeamForming", "ML", "MSNR"}) {
      ASSERT_NE(FD::Node::getFactoryNamed(type), nullptr) << type;
      ASSERT_EQ(FD::Node::XPMDictionary().count(type), 1U) << type;
    }
    const auto& modules = FD::Object::getModuleVersions();
    EXPECT_TRUE(std::any_of(modules.begin(), modules.end(), [](const auto& module) {
      return module.name == "ZELKSSS" && module.extra.empty() && module.version == ZELK_VERSION;
    }));
  }
};
const testing::Environment* const plugIn = testing::AddGlobalTestEnvironment(new PlugIn);

/// A database on disk and what a test needs to know of it.
class SeparationNodes : public testing::Test {
 protected:
  SeparationNodes() { writeSofa(path, data); }

  FD::Source at(int position, int id) const {
    const auto& p = data.sourcePositions[position];
    return {id, static_cast<float>(p[0]), static_cast<float>(p[1]), static_cast<float>(p[2])};
  }

  /// x(m, k) = Σ H_s(m, k) · S_s(k) for spectra S of sources at database positions.
  FD::ObjectRef mixture(const std::vector<std::pair<int, std::vector<Complex>>>& spectra) const {
    auto* frames = new Spectra(MICS, BINS);
    for (int m = 0; m < MICS; ++m) {
      for (int k = 0; k < BINS; ++k) {
        Complex sum = 0;
        for (const auto& [position, S] : spectra) {
          sum += data.values[(position * MICS + m) * BINS + k] * S[k];
        }
        (*frames)(m, k) = sum;
      }
    }
    return FD::ObjectRef(frames);
  }

  static std::vector<Complex> spectrum(unsigned seed) {
    std::mt19937 generator(seed);
    std::normal_distribution<float> gaussian;
    std::vector<Complex> S;
    for (int k = 0; k < BINS; ++k) {
      const float re = gaussian(generator);
      S.emplace_back(re, gaussian(generator));
    }
    return S;
  }

  std::vector<Parameter> parameters(const std::string& method) const {
    return {text("BF_METHOD", method), number("LENGTH", LENGTH), number("SAMPLING_RATE", 16000),
            text("TF_CONJ_FILENAME", path)};
  }

  TemporaryFolder folder;
  std::string path = folder / "db.sofa";
  SofaTransferFunctions data = randomTransferFunctions(POSITIONS, MICS, BINS, 7);
};

/// A node with all its feeds, kept alive together.
struct Bench {
  Bench(const std::string& type, const std::vector<Parameter>& parameters)
      : node(makeNode(type, parameters)) {}

  Bench& feed(const std::string& input, Feed::Function function) {
    feeds.emplace_back(new Feed(std::move(function)));
    node->connectToNode(input, feeds.back().get(), "OUTPUT");
    return *this;
  }
  FD::ObjectRef output(int count) {
    if (!initialized) node->initialize();
    initialized = true;
    return node->getOutput(0, count);
  }

  std::vector<NodePtr> feeds;
  NodePtr node;
  bool initialized = false;
};

float relativeError(const Spectrum& actual, const std::vector<Complex>& expected, bool alternate) {
  float error = 0;
  float size = 0;
  for (int k = 0; k < BINS; ++k) {
    const float sign = alternate && k % 2 == 1 ? -1.0F : 1.0F;
    error += std::norm(actual[k] * sign - expected[k]);
    size += std::norm(expected[k]);
  }
  return std::sqrt(error / size);
}

TEST_F(SeparationNodes, NullSeparatesTwoSources) {
  const auto S0 = spectrum(1);
  const auto S1 = spectrum(2);
  Bench bench("BeamForming", parameters("NULL"));
  bench.feed("INPUT_FRAMES",
             [&](int) {
               return mixture({{1, S0}, {4, S1}});
             })
      .feed("INPUT_SOURCES", [&](int) {
        return sourceList({at(1, 50), at(4, 60)});
      });
  for (int count = 0; count < 3; ++count) {
    const FD::ObjectRef out = bench.output(count);
    EXPECT_LT(relativeError(spectrumOf(out, 50), S0, false), 1e-5F);
    EXPECT_LT(relativeError(spectrumOf(out, 60), S1, false), 1e-5F);
  }
}

TEST_F(SeparationNodes, EveryMethodPassesALoneSourceWithUnitGain) {
  const auto S = spectrum(3);
  for (const char* method : {"DS", "WDS", "NULL", "ILSE", "LCMV", "GJ", "GICA"}) {
    Bench bench("BeamForming", parameters(method));
    bench.feed("INPUT_FRAMES",
               [&](int) {
                 return mixture({{2, S}});
               })
        .feed("INPUT_SOURCES", [&](int) { return sourceList({at(2, 0)}); });
    for (int count = 0; count < 4; ++count) {
      EXPECT_LT(relativeError(spectrumOf(bench.output(count), 0), S, false), 1e-5F) << method;
    }
  }
}

TEST_F(SeparationNodes, NoiseSourcesAreSeparatedAndTheFirstOfEqualIdsWins) {
  const auto S0 = spectrum(1);
  const auto S1 = spectrum(2);
  Bench bench("BeamForming", parameters("NULL"));
  bench.feed("INPUT_FRAMES",
             [&](int) {
               return mixture({{0, S0}, {3, S1}});
             })
      .feed("INPUT_SOURCES",
            [&](int count) {
              return sourceList(count == 0   ? std::vector<FD::Source>{at(0, 7)}
                                : count == 1 ? std::vector<FD::Source>{at(0, 7), at(3, 7)}
                                             : std::vector<FD::Source>{});
            })
      .feed("INPUT_NOISE_SOURCES", [&](int count) {
        return sourceList(count == 0 ? std::vector<FD::Source>{at(3, 9)}
                                     : std::vector<FD::Source>{});
      });
  const FD::ObjectRef first = bench.output(0);
  EXPECT_LT(relativeError(spectrumOf(first, 9), S1, false), 1e-5F);
  const FD::ObjectRef second = bench.output(1);
  EXPECT_EQ(FD::object_cast<SpectrumMap>(second).size(), 1U);
  EXPECT_LT(relativeError(spectrumOf(second, 7), S0, false), 1e-5F);
  EXPECT_TRUE(FD::object_cast<SpectrumMap>(bench.output(2)).empty());
}

TEST_F(SeparationNodes, FaultsOfTheOutputAreReportedOnlyWithDebug) {
  const float NAN_VALUE = std::numeric_limits<float>::quiet_NaN();
  const float LARGE = std::numeric_limits<float>::max();
  const auto run = [&](const std::string& type, bool debug) {
    std::vector<Parameter> settings =
        type == "MSNR"
            ? std::vector<Parameter>{number("LENGTH", LENGTH), number("SAMPLING_RATE", 16000)}
            : parameters("DS");
    settings.push_back(truth("ENABLE_DEBUG", debug));
    Bench bench(type, settings);
    bench
        .feed("INPUT_FRAMES",
              [&](int) {
                auto* frames = new Spectra(MICS, BINS);
                for (int m = 0; m < MICS; ++m) (*frames)(m, 3) = Complex(NAN_VALUE, 0);
                for (int m = 0; m < MICS; ++m) {
                  const Complex h = data.values[m * BINS + 5];
                  (*frames)(m, 5) =
                      type == "MSNR" ? Complex(LARGE, LARGE) : h / std::abs(h) * LARGE;
                }
                return FD::ObjectRef(frames);
              })
        .feed("INPUT_SOURCES", [&](int) { return sourceList({at(0, 0)}); });
    testing::internal::CaptureStdout();
    const FD::ObjectRef out = bench.output(0);
    EXPECT_TRUE(std::isnan(spectrumOf(out, 0)[3].real()));
    return testing::internal::GetCapturedStdout();
  };
  EXPECT_EQ(run("BeamForming", false), "");
  const std::string report = run("BeamForming", true);
  EXPECT_THAT(report, HasSubstr("BeamForming: Output Spectrum data [0 , 3] is NAN. "
                                "Please check the parameters.\n"));
  EXPECT_EQ(run("MSNR", false), "");
  EXPECT_EQ(run("MSNR", true),
            "MSNR: Output Spectrum data [0 , 3] is NAN. Please check the parameters.\n"
            "MSNR: Output Spectrum data [0 , 5] is INF. Please check the parameters.\n");
}

TEST_F(SeparationNodes, BeamFormingNamesWhatIsWrong) {
  struct Case {
    std::vector<Parameter> changes;
    std::string message;
  };
  const std::string missing = folder / "none.sofa";
  const Case cases[] = {
      {{text("BF_METHOD", "ds")}, "Unexpected BeamForming:BF_METHOD is set."},
      {{number("LENGTH", 0)}, "BeamForming:LENGTH is invalid value."},
      {{number("LENGTH", -3), number("SAMPLING_RATE", 0)}, "BeamForming:LENGTH is invalid value."},
      {{number("SAMPLING_RATE", 0)}, "BeamForming:SAMPLING_RATE is invalid value."},
      {{text("TF_CONJ_FILENAME", missing)}, "Failed to open TF data file <" + missing + ">."},
      {{text("BF_METHOD", "GSS")}, "Adapter not implemented."},
      {{text("BF_METHOD", "GHDSS")}, "Adapter not implemented."},
  };
  for (const Case& c : cases) {
    std::vector<Parameter> settings = parameters("DS");
    settings.insert(settings.end(), c.changes.begin(), c.changes.end());
    testing::internal::CaptureStderr();
    EXPECT_THAT(thrownText([&] { makeNode("BeamForming", settings); }),
                AllOf(HasSubstr(c.message), HasSubstr("beamforming.cc")));
    testing::internal::GetCapturedStderr();
  }

  std::vector<Parameter> without = parameters("DS");
  without.pop_back();
  EXPECT_THAT(thrownText([&] { makeNode("BeamForming", without); }),
              HasSubstr("BeamForming:TF_CONJ_FILENAME is not set."));
  for (std::size_t i = 0; i < 3; ++i) {
    std::vector<Parameter> lacking = parameters("DS");
    const std::string name = lacking[i].name;
    lacking.erase(lacking.begin() + static_cast<std::ptrdiff_t>(i));
    EXPECT_THAT(thrownText([&] { makeNode("BeamForming", lacking); }), HasSubstr(name));
  }
  const NodePtr node = makeNode("BeamForming", parameters("DS"));
  EXPECT_THAT(thrownText([&] { node->translateInput("INPUT"); }),
              HasSubstr("INPUT is not supported."));
}

TEST_F(SeparationNodes, AnUnreadableBodyIsToldFromAnUnreadableHeader) {
  SofaTransferFunctions broken = data;
  broken.values[3] = {std::numeric_limits<float>::infinity(), 0.0F};
  writeSofa(path, broken);
  testing::internal::CaptureStderr();
  EXPECT_THAT(thrownText([&] { makeNode("BeamForming", parameters("DS")); }),
              HasSubstr("Failed to read TF data file <" + path + ">."));
  EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("Data.Real"));
}

// The engine's rows tell which step parameters arrived: one frame moves them by the step.
TEST_F(SeparationNodes, StepParametersArrive) {
  const auto S0 = spectrum(1);
  const auto S1 = spectrum(2);
  const auto secondFrame = [&](const std::string& method, std::vector<Parameter> more) {
    std::vector<Parameter> settings = parameters(method);
    settings.insert(settings.end(), more.begin(), more.end());
    Bench bench("BeamForming", settings);
    bench.feed("INPUT_FRAMES",
               [&](int) {
                 return mixture({{1, S0}, {4, S1}});
               })
        .feed("INPUT_SOURCES", [&](int) {
          return sourceList({at(1, 0), at(4, 1)});
        });
    const FD::ObjectRef out = bench.output(1);
    return std::vector<Complex>(spectrumOf(out, 0));
  };
  for (const std::string method : {"LCMV", "GJ"}) {
    const std::string step = method + "_LC_METHOD";
    const std::string size = method + "_LC_MYU";
    const auto byDefault = secondFrame(method, {});
    EXPECT_EQ(secondFrame(method, {text(step, "FIX"), real(size, 0.001F)}), byDefault);
    EXPECT_EQ(secondFrame(method, {text(step, "fix"), real(size, 0.5F)}), byDefault);
    EXPECT_EQ(secondFrame(method, {real(size, 0.5F)}), byDefault);
    const auto larger = secondFrame(method, {text(step, "FIX"), real(size, 0.01F)});
    EXPECT_NE(larger, byDefault);
    EXPECT_NE(secondFrame(method, {text(step, "ADAPTIVE"), real(size, 0.01F)}), larger);
  }

  const auto fixed =
      secondFrame("GICA", {text("GICA_SS_METHOD", "FIX"), real("GICA_SS_MYU", 0.02F)});
  EXPECT_NE(fixed, secondFrame("GICA", {}));
  // The constraint's step has no effect here: W · A has a unit diagonal at the start.
  EXPECT_EQ(secondFrame("GICA", {text("GICA_SS_METHOD", "LC_MYU"), real("GICA_LC_MYU", 0.02F),
                                 real("GICA_SS_MYU", 0.5F)}),
            fixed);
  EXPECT_NE(secondFrame("GICA", {text("GICA_SS_METHOD", "ADAPTIVE"), real("GICA_SS_MYU", 0.02F)}),
            fixed);
  EXPECT_EQ(secondFrame("GICA", {text("GICA_SS_METHOD", "other"), real("GICA_SS_MYU", 0.02F)}),
            secondFrame("GICA", {}));
  EXPECT_NE(secondFrame("GICA", {real("GICA_SS_SCAL", 5.0F)}), secondFrame("GICA", {}));
}

/// Noise correlations for ML: the identity in every bin, K × M·M.
FD::ObjectRef identityNoise(int bins, int columns) {
  auto* noise = new Spectra(bins, columns);
  for (int k = 0; k < bins; ++k) {
    for (int m = 0; m * MICS + m < columns; ++m) (*noise)(k, m * MICS + m) = 1;
  }
  return FD::ObjectRef(noise);
}

TEST_F(SeparationNodes, MlPassesALoneSourceAtUnitNormGain) {
  std::vector<Parameter> settings = parameters("");
  settings.erase(settings.begin());
  settings.push_back(real("REG_FACTOR", 0.01F));
  const auto S = spectrum(4);
  Bench bench("ML", settings);
  bench.feed("INPUT_FRAMES",
             [&](int) {
               return mixture({{2, S}});
             })
      .feed("INPUT_SOURCES", [&](int) { return sourceList({at(2, 5)}); })
      .feed("INPUT_NOISE_CM", [&](int count) {
        return count == 0 ? FD::ObjectRef() : identityNoise(BINS, MICS * MICS);
      });
  const FD::ObjectRef silent = bench.output(0);  // zero noise matrices, zero filters
  for (const Complex& value : spectrumOf(silent, 5)) EXPECT_EQ(value, Complex(0, 0));
  std::vector<Complex> expected;  // the source at the level of its transfer function's norm
  for (int k = 0; k < BINS; ++k) {
    float square = 0;
    for (int m = 0; m < MICS; ++m) square += std::norm(data.values[(2 * MICS + m) * BINS + k]);
    expected.push_back(S[k] * std::sqrt(square));
  }
  EXPECT_LT(relativeError(spectrumOf(bench.output(1), 5), expected, true), 1e-5F);
}

TEST_F(SeparationNodes, MlReportsFaultsOfItsOutputWithDebug) {
  const std::vector<Parameter> settings = {number("LENGTH", LENGTH), number("SAMPLING_RATE", 16000),
                                           text("TF_CONJ_FILENAME", path),
                                           real("REG_FACTOR", 0.01F), truth("ENABLE_DEBUG", true)};
  const auto reported = [&](int bin, bool imaginary, float fault) {
    Bench bench("ML", settings);
    bench
        .feed("INPUT_FRAMES",
              [&](int) {
                auto* frames = new Spectra(MICS, BINS);
                for (int m = 0; m < MICS; ++m) {
                  // In phase with the source, so that the finite values add up beyond the largest.
                  const Complex h = data.values[m * BINS + bin];
                  const Complex turn = imaginary ? Complex(0, 1) : Complex(1, 0);
                  (*frames)(m, bin) =
                      std::isnan(fault) ? turn * fault : turn * h / std::abs(h) * fault;
                }
                return FD::ObjectRef(frames);
              })
        .feed("INPUT_SOURCES", [&](int) { return sourceList({at(0, 0)}); })
        .feed("INPUT_NOISE_CM", [](int) { return identityNoise(BINS, MICS * MICS); });
    testing::internal::CaptureStdout();
    bench.output(1);
    return testing::internal::GetCapturedStdout();
  };
  const float LARGE = std::numeric_limits<float>::max();
  for (const bool imaginary : {false, true}) {
    EXPECT_THAT(reported(3, imaginary, std::numeric_limits<float>::quiet_NaN()),
                testing::EndsWith("ML: Output Spectrum data [0 , 3] is NAN. "
                                  "Please check the parameters.\n"));
    EXPECT_EQ(reported(4, imaginary, LARGE),
              "ML: Output Spectrum data [0 , 4] is INF. Please check the parameters.\n");
  }
}

TEST_F(SeparationNodes, MlNamesWhatIsWrong) {
  const std::vector<Parameter> sound = {number("LENGTH", LENGTH), number("SAMPLING_RATE", 16000),
                                        text("TF_CONJ_FILENAME", path), real("REG_FACTOR", 0.0F)};
  const std::pair<int, const char*> absent[] = {{2, "ML:TF_CONJ_FILENAME is not set."},
                                                {3, "ML:parameter REG_FACTOR is not set."}};
  for (const auto& [index, message] : absent) {
    std::vector<Parameter> settings = sound;
    settings.erase(settings.begin() + index);
    EXPECT_THAT(thrownText([&] { makeNode("ML", settings); }),
                AllOf(HasSubstr(message), HasSubstr("ML.cc")));
  }
  for (const char* name : {"LENGTH", "SAMPLING_RATE"}) {
    std::vector<Parameter> settings = sound;
    settings.push_back(number(name, 0));
    EXPECT_THAT(thrownText([&] { makeNode("ML", settings); }),
                HasSubstr(std::string("ML:") + name + " is invalid value."));
  }

  const auto S = spectrum(4);
  const auto run = [&](Feed::Function noise) {
    Bench bench("ML", sound);
    bench.feed("INPUT_FRAMES",
               [&](int) {
                 return mixture({{2, S}});
               })
        .feed("INPUT_SOURCES", [&](int) { return sourceList({}); });
    if (noise) bench.feed("INPUT_NOISE_CM", noise);
    return thrownText([&] { bench.output(1); });
  };
  testing::internal::CaptureStdout();
  EXPECT_THAT(run({}), HasSubstr("ML needs INPUT_NOISE_CM"));
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "When you use ML, you must input noise correlation matrix to INPUT_NOISE_CM.\n");
  EXPECT_THAT(run([](int) { return identityNoise(BINS, MICS); }),
              HasSubstr("ML:INPUT_NOISE_CM has 9 rows and 4 columns where 9 bins and 4 microphones "
                        "need 9 and 16."));
}

TEST_F(SeparationNodes, MsnrKeepsNoiseStatisticsWhenASourceBecomesATarget) {
  const std::vector<Parameter> settings = {number("LENGTH", LENGTH), number("SAMPLING_RATE", 16000),
                                           real("ALPHA", 0.9F)};
  constexpr int NOISE_FRAMES = 60;
  Bench bench("MSNR", settings);
  // Position 1 is the interferer all the time, position 4 the target in the second half.
  bench
      .feed("INPUT_FRAMES",
            [&](int count) {
              return count < NOISE_FRAMES
                         ? mixture({{1, spectrum(100 + count)}})
                         : mixture({{1, spectrum(100 + count)}, {4, spectrum(500 + count)}});
            })
      .feed("INPUT_SOURCES",
            [&](int count) {
              return sourceList(count < NOISE_FRAMES ? std::vector<FD::Source>{}
                                                     : std::vector<FD::Source>{at(4, 3)});
            })
      .feed("INPUT_NOISE_SOURCES", [&](int count) {
        return sourceList(count < NOISE_FRAMES ? std::vector<FD::Source>{at(4, 3)}
                                               : std::vector<FD::Source>{});
      });
  // The output follows the target up to a scale per bin: correlate over the last frames.
  std::vector<Complex> cross(BINS);
  std::vector<float> outPower(BINS);
  std::vector<float> targetPower(BINS);
  for (int count = 0; count < 160; ++count) {
    const FD::ObjectRef out = bench.output(count);
    ASSERT_EQ(FD::object_cast<SpectrumMap>(out).count(3), 1U);
    if (count < 100) continue;
    const auto S = spectrum(500 + count);
    for (int k = 0; k < BINS; ++k) {
      const Complex y = spectrumOf(out, 3)[k];
      cross[k] += y * std::conj(S[k]);
      outPower[k] += std::norm(y);
      targetPower[k] += std::norm(S[k]);
    }
  }
  float coherence = 0;
  for (int k = 0; k < BINS; ++k) {
    coherence += std::norm(cross[k]) / (outPower[k] * targetPower[k]) / BINS;
  }
  EXPECT_GT(coherence, 0.8F);
}

TEST_F(SeparationNodes, MsnrNamesWhatIsWrong) {
  const auto settings = [](int length, int rate) {
    return std::vector<Parameter>{number("LENGTH", length), number("SAMPLING_RATE", rate)};
  };
  EXPECT_THAT(thrownText([&] { makeNode("MSNR", settings(0, 16000)); }),
              AllOf(HasSubstr("MSNR:LENGTH is invalid value."), HasSubstr("MSNR.cc")));
  EXPECT_THAT(thrownText([&] { makeNode("MSNR", settings(512, -1)); }),
              HasSubstr("MSNR:SAMPLING_RATE is invalid value."));
  std::vector<Parameter> unknown = settings(512, 16000);
  unknown.push_back(text("DECOMPOSITION_ALGORITHM", "SVD"));
  EXPECT_THROW(makeNode("MSNR", unknown), BF::InvalidStateException);
}

}  // namespace
