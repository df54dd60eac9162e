// The separation nodes: parameters, reports, what a host gives and gets. What they compute is held
// against the separator, to the bit, by tests/cli/SeparateTest.cc.

#include <gmock/gmock.h>

#include <cmath>
#include <limits>
#include <set>

#include "ParameterValue.h"
#include "ToolboxLoader.h"
#include "matrix/Exceptions.h"
#include "tests/fileio/SofaFiles.h"
#include "tests/support/NodeTesting.h"

namespace {

using testing::HasSubstr;
using Complex = std::complex<float>;

constexpr int LENGTH = 16;
constexpr int BINS = LENGTH / 2 + 1;
constexpr int MICS = 4;
constexpr int POSITIONS = 6;

/// The plug-ins are loaded as a host loads them, once for all tests.
class PlugIn : public testing::Environment {
 public:
  void SetUp() override {
    const FD::ToolboxReport report = FD::loadToolboxes({ZELK_TOOLBOX});
    ASSERT_EQ(report.loaded.size(), 2U);
    std::set<std::string> modules;
    for (const auto& [name, extra, version] : FD::Object::getModuleVersions()) {
      modules.insert(name + extra + " " + version);
    }
    EXPECT_EQ(modules, (std::set<std::string>{"ZELKAUDIO " ZELK_VERSION, "ZELKSSS " ZELK_VERSION}));
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
    auto* frames = new SpectrumMatrix(MICS, BINS);
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

  /// What the node needs, for this method or for all of them, and changes or additions to it.
  Parameters parameters(const std::string& type, const Parameters& more,
                        const std::string& method = "DS") const {
    Parameters all = {{"LENGTH", number(LENGTH)}, {"SAMPLING_RATE", number(16000)}};
    if (type != "MSNR") all.emplace_back("TF_CONJ_FILENAME", text(path));
    if (type == "ML") all.emplace_back("REG_FACTOR", real(0.01F));
    if (type == "BeamForming") all.emplace_back("BF_METHOD", text(method));
    all.insert(all.end(), more.begin(), more.end());
    return all;
  }

  TestFolder folder;
  std::string path = folder / "db.sofa";
  SofaTransferFunctions data = randomTransferFunctions(POSITIONS, MICS, BINS, 7);
};

/// A node with all its feeds, kept alive together.
struct Bench {
  Bench(const std::string& type, const Parameters& parameters) : node(makeNode(type, parameters)) {}

  Bench& feed(const std::string& input, Stub::Output function) {
    feeds.emplace_back(new Stub("feed", {{"OUTPUT", std::move(function)}}));
    node->connectToNode(input, feeds.back().get(), "OUTPUT");
    return *this;
  }
  Bench& feed(const std::string& input, const FD::ObjectRef& always) {
    return feed(input, [always](int) { return always; });
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

float relativeError(const SpectrumVector& actual, const std::vector<Complex>& expected) {
  float error = 0;
  float size = 0;
  for (int k = 0; k < BINS; ++k) {
    error += std::norm(actual[k] - expected[k]);
    size += std::norm(expected[k]);
  }
  return std::sqrt(error / size);
}

/// Noise correlations for ML: in every bin the identity, row by row.
FD::ObjectRef whiteNoise(int columns = MICS * MICS) {
  auto* noise = new SpectrumMatrix(BINS, columns);
  for (int k = 0; k < BINS; ++k) {
    for (int i = 0; i < columns; i += MICS + 1) (*noise)(k, i) = 1;
  }
  return FD::ObjectRef(noise);
}

/// What the editor sets in a new node of this type.
Parameters editorDefaults(const std::string& type) {
  Parameters all;
  for (const NodeSpec* spec : declaredNodes()) {
    if (spec->type != type) continue;
    for (const auto& [name, kind, value, text] : spec->parameters) {
      if (value && *value) all.emplace_back(name, FD::parseValue(kind, value));
    }
  }
  EXPECT_FALSE(all.empty());
  return all;
}

TEST_F(SeparationNodes, EveryMethodPassesALoneSourceWithUnitGain) {
  const auto S = spectrum(3);
  for (const char* method : {"DS", "WDS", "NULL", "ILSE", "LCMV", "GJ", "GICA"}) {
    Bench bench("BeamForming", parameters("BeamForming", {}, method));
    bench.feed("INPUT_FRAMES", mixture({{2, S}})).feed("INPUT_SOURCES", sourceList({at(2, 0)}));
    for (int count = 0; count < 4; ++count) {
      EXPECT_LT(relativeError(spectrumOf(bench.output(count), 0), S), 1e-5F) << method;
    }
  }
}

TEST_F(SeparationNodes, NoiseSourcesAreSeparatedAndTheFirstOfEqualIdsWins) {
  const auto S0 = spectrum(1);
  const auto S1 = spectrum(2);
  using Sources = std::vector<FD::Source>;
  const Sources targets[] = {{at(0, 7)}, {at(0, 7), at(3, 7)}, {}};
  const Sources noise[] = {{at(3, 9)}, {}, {}};
  Bench bench("BeamForming", parameters("BeamForming", {}, "NULL"));
  bench.feed("INPUT_FRAMES", mixture({{0, S0}, {3, S1}}))
      .feed("INPUT_SOURCES", [&](int count) { return sourceList(targets[count]); })
      .feed("INPUT_NOISE_SOURCES", [&](int count) { return sourceList(noise[count]); });
  const FD::ObjectRef first = bench.output(0);
  EXPECT_LT(relativeError(spectrumOf(first, 7), S0), 1e-5F);
  EXPECT_LT(relativeError(spectrumOf(first, 9), S1), 1e-5F);
  const FD::ObjectRef second = bench.output(1);
  EXPECT_EQ(FD::object_cast<SpectrumMap>(second).size(), 1U);
  EXPECT_LT(relativeError(spectrumOf(second, 7), S0), 1e-5F);
  EXPECT_TRUE(FD::object_cast<SpectrumMap>(bench.output(2)).empty());
}

TEST_F(SeparationNodes, ANoiseInputLeftOpenBringsNoSources) {
  for (const std::string type : {"BeamForming", "MSNR"}) {
    Bench bench(type, parameters(type, {}));
    bench.feed("INPUT_FRAMES", mixture({})).feed("INPUT_SOURCES", sourceList({at(0, 7)}));
    bench.node->translateInput("INPUT_NOISE_SOURCES");  // as for an input that nothing links to
    EXPECT_EQ(FD::object_cast<SpectrumMap>(bench.output(0)).size(), 1U) << type;
  }
}

// In phase with the source, finite values add up beyond the largest.
TEST_F(SeparationNodes, FaultsOfTheOutputAreReportedWithDebugOnly) {
  for (const std::string type : {"BeamForming", "ML", "MSNR"}) {
    const auto reported = [&](const Complex& fault, bool debug) {
      auto* frames = new SpectrumMatrix(MICS, BINS);
      for (int m = 0; m < MICS; ++m) {
        const Complex h = data.values[m * BINS + 5];
        (*frames)(m, 5) =
            std::isnan(std::abs(fault)) || type == "MSNR" ? fault : fault * h / std::abs(h);
      }
      Bench bench(type, parameters(type, {{"ENABLE_DEBUG", truth(debug)}}));
      bench.feed("INPUT_FRAMES", FD::ObjectRef(frames))
          .feed("INPUT_SOURCES", sourceList({at(0, 0)}));
      if (type == "ML") bench.feed("INPUT_NOISE_CM", whiteNoise());
      testing::internal::CaptureStdout();
      bench.output(type == "ML" ? 1 : 0);
      return testing::internal::GetCapturedStdout();
    };
    const float LARGE = std::numeric_limits<float>::max();
    const float NONE = std::numeric_limits<float>::quiet_NaN();
    const auto line = [&](const std::string& kind) {
      return type + ": Output Spectrum data [0 , 5] is " + kind +
             ". Please check the parameters.\n";
    };
    EXPECT_EQ(reported({LARGE, 0}, true), line("INF"));
    EXPECT_EQ(reported({0, LARGE}, true), line("INF"));
    EXPECT_THAT(reported({NONE, 0}, true), testing::EndsWith(line("NAN")));
    EXPECT_EQ(reported({NONE, 0}, false), "");
  }
}

/// Stands for a parameter that is left out.
Parameter absent(const std::string& name) { return {name, FD::ObjectRef()}; }

TEST_F(SeparationNodes, NameWhatIsWrong) {
  struct Case {
    std::string type;
    Parameters changes;
    std::string message;
  };
  const std::string missing = folder / "none.sofa";
  const std::string damaged = folder / "damaged.sofa";
  SofaTransferFunctions infinite = data;
  infinite.values[3] = {std::numeric_limits<float>::infinity(), 0.0F};
  writeSofa(damaged, infinite);
  const Case cases[] = {
      {"BeamForming", {absent("BF_METHOD")}, "Missing parameter: BF_METHOD"},
      {"BeamForming", {absent("LENGTH")}, "Missing parameter: LENGTH"},
      {"BeamForming", {{"BF_METHOD", text("ds")}}, "Unexpected BeamForming:BF_METHOD is set."},
      {"BeamForming",
       {{"LENGTH", number(-3)}, {"SAMPLING_RATE", number(0)}},
       "BeamForming:LENGTH is invalid value."},
      {"BeamForming",
       {{"SAMPLING_RATE", number(0)}},
       "BeamForming:SAMPLING_RATE is invalid value."},
      {"BeamForming", {absent("TF_CONJ_FILENAME")}, "BeamForming:TF_CONJ_FILENAME is not set."},
      {"BeamForming",
       {{"TF_CONJ_FILENAME", text(missing)}},
       "Failed to open TF data file <" + missing + ">."},
      {"BeamForming",
       {{"TF_CONJ_FILENAME", text(damaged)}},
       "Failed to read TF data file <" + damaged + ">."},
      {"BeamForming", {{"BF_METHOD", text("GSS")}}, "Adapter not implemented."},
      {"BeamForming", {{"BF_METHOD", text("GHDSS")}}, "Adapter not implemented."},
      {"ML", {{"LENGTH", number(0)}}, "ML:LENGTH is invalid value."},
      {"ML", {{"SAMPLING_RATE", number(0)}}, "ML:SAMPLING_RATE is invalid value."},
      {"ML", {absent("TF_CONJ_FILENAME")}, "ML:TF_CONJ_FILENAME is not set."},
      {"ML", {absent("REG_FACTOR")}, "ML:parameter REG_FACTOR is not set."},
      {"ML",
       {{"TF_CONJ_FILENAME", text(missing)}},
       "Failed to open TF data file <" + missing + ">."},
      {"MSNR", {{"LENGTH", number(0)}}, "MSNR:LENGTH is invalid value."},
      {"MSNR", {{"SAMPLING_RATE", number(-1)}}, "MSNR:SAMPLING_RATE is invalid value."},
  };
  for (const auto& [type, changes, message] : cases) {
    const Parameters settings = parameters(type, changes);
    testing::internal::CaptureStderr();
    const std::string thrown = thrownText([&, type = type] { makeNode(type, settings); });
    EXPECT_EQ(testing::internal::GetCapturedStderr().empty(), !message.starts_with("Failed"));
    EXPECT_THAT(thrown, HasSubstr(message));
    if (!message.starts_with("Missing")) {
      EXPECT_THAT(thrown, HasSubstr((type == "BeamForming" ? "beamforming" : type) + ".cc, line "));
    }
  }
  for (const std::string type : {"BeamForming", "ML", "MSNR"}) {
    const NodePtr node = makeNode(type, parameters(type, {}));
    EXPECT_THAT(thrownText([&] { node->translateInput("INPUT"); }),
                HasSubstr("INPUT is not supported."));
  }
}

/// What action writes on standard error, and the class of the C++ exception that it throws.
template <class Action>
std::pair<std::string, std::string> reportOf(Action action) {
  std::string thrown = "nothing";
  testing::internal::CaptureStderr();
  try {
    action();
  } catch (const std::exception& e) {
    thrown = FD::typeName(typeid(e));
  }
  return {testing::internal::GetCapturedStderr(), thrown};
}

TEST_F(SeparationNodes, EngineExceptionsPassWithALineThatSaysWhatDoesNotFit) {
  const std::string expected =
      "; expected the same microphones everywhere and LENGTH/2+1 = 9 bins\n";
  const std::string database = ", the database has 4 microphones and 9 bins";
  const std::string noise = ", INPUT_NOISE_CM has 9 matrices of 3 x 3";
  const std::string wide = "BF::IndexOutOfBoundException: the frame has 4 microphones and 10 bins";
  const std::string narrow =
      "BF::MatrixSizeMismatchException: the frame has 3 microphones and 9 bins";
  const std::string before = ", the last frame before it had 4 microphones";
  const struct {
    const char* type;
    int rows, columns;
    std::string line;
  } cases[] = {
      {"BeamForming", 4, 10, wide + database + expected},
      {"BeamForming", 3, 9, narrow + database + expected},
      {"ML", 3, 9, narrow + database + noise + expected},
      {"MSNR", 4, 10, wide + before + expected},
      {"MSNR", 3, 9, narrow + before + expected},
  };
  for (const auto& [type, rows, columns, line] : cases) {
    const FD::ObjectRef misfit(new SpectrumMatrix(rows, columns));
    Bench bench(type, parameters(type, {}));
    bench.feed("INPUT_FRAMES", [&](int count) { return count == 0 ? mixture({}) : misfit; })
        .feed("INPUT_SOURCES", sourceList({at(0, 7)}));
    if (type == std::string("ML")) bench.feed("INPUT_NOISE_CM", whiteNoise(rows * rows));
    bench.output(0);
    const auto& [report, thrown] = reportOf([&] { bench.output(1); });
    EXPECT_EQ(report, std::string("node 'node' (type ") + type + "), frame 1: " + line);
    EXPECT_EQ(thrown, line.substr(0, line.find(": ")));
  }
  const auto construct = [&](const char* type, const Parameter& parameter) {
    return reportOf([&] { makeNode(type, parameters(type, {parameter})); });
  };
  EXPECT_EQ(construct("MSNR", {"DECOMPOSITION_ALGORITHM", text("SVD")}),
            std::pair(std::string("node 'node' (type MSNR): BF::InvalidStateException: "
                                  "DECOMPOSITION_ALGORITHM is \"SVD\", expected GEVD or GSVD\n"),
                      std::string("BF::InvalidStateException")));
  for (const std::string type : {"BeamForming", "ML"}) {
    EXPECT_EQ(construct(type.c_str(), {"LENGTH", number(32)}).first,
              "node 'node' (type " + type + "): " + path +
                  " has 9 bins, expected LENGTH/2+1 = 17 bins\n");
  }
}

// The second frame tells which steps arrived: the first one has moved the filters by them.
TEST_F(SeparationNodes, StepParametersArrive) {
  const auto secondFrame = [&](const std::string& type, const std::string& method,
                               const Parameters& more) {
    Bench bench(type, parameters(type, more, method));
    bench.feed("INPUT_FRAMES", mixture({{1, spectrum(1)}, {4, spectrum(2)}}))
        .feed("INPUT_SOURCES", sourceList({at(1, 0), at(4, 1)}));
    return std::vector<Complex>(spectrumOf(bench.output(1), 0));
  };
  EXPECT_EQ(secondFrame("MSNR", "", editorDefaults("MSNR")), secondFrame("MSNR", "", {}));
  for (const std::string method : {"LCMV", "GJ", "GICA"}) {
    const std::string step = method == "GICA" ? "GICA_SS_METHOD" : method + "_LC_METHOD";
    const std::string size = method == "GICA" ? "GICA_SS_MYU" : method + "_LC_MYU";
    const auto output = [&](const Parameters& more) {
      return secondFrame("BeamForming", method, more);
    };
    const auto byDefault = output({});
    EXPECT_EQ(output(editorDefaults("BeamForming")), byDefault);
    EXPECT_EQ(output({{step, text("fix")}, {size, real(0.5F)}}), byDefault);
    EXPECT_EQ(output({{size, real(0.5F)}}), byDefault);
    const auto larger = output({{step, text("FIX")}, {size, real(0.02F)}});
    EXPECT_NE(larger, byDefault);
    EXPECT_NE(output({{step, text("ADAPTIVE")}, {size, real(0.02F)}}), larger);
    if (method != "GICA") continue;
    // The constraint's step has no effect here: W · A has a unit diagonal at the start.
    EXPECT_EQ(output({{step, text("LC_MYU")}, {"GICA_LC_MYU", real(0.02F)}, {size, real(0.5F)}}),
              larger);
    EXPECT_NE(output({{"GICA_SS_SCAL", real(5.0F)}}), byDefault);
  }
}

TEST_F(SeparationNodes, MlNeedsANoiseInputOfItsShape) {
  const auto run = [&](const FD::ObjectRef& noise) {
    Bench bench("ML", parameters("ML", {}));
    bench.feed("INPUT_FRAMES", mixture({})).feed("INPUT_SOURCES", sourceList({}));
    if (!noise.isNil()) bench.feed("INPUT_NOISE_CM", noise);
    return thrownText([&] { bench.output(1); });
  };
  testing::internal::CaptureStdout();
  EXPECT_THAT(run(FD::ObjectRef()), HasSubstr("ML needs INPUT_NOISE_CM"));
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "When you use ML, you must input noise correlation matrix to INPUT_NOISE_CM.\n");
  EXPECT_THAT(run(whiteNoise(MICS)),
              HasSubstr("ML:INPUT_NOISE_CM has 9 rows and 4 columns where 9 bins and 4 microphones "
                        "need 9 and 16."));
}

}  // namespace
