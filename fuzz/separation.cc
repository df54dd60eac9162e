// Networks around the separation nodes, as an editor might save them: built and run over a short
// recording, with parameters, links and scenes that do not always fit.
#include <sndfile.h>

#include <cmath>
#include <numbers>
#include <sstream>
#include <vector>

#include "NetworkDocument.h"
#include "Runner.h"
#include "fuzz/Fuzzing.h"
#include "responses/ArrayGeometry.h"

namespace {

constexpr int RATE = 16000;
constexpr int LENGTH = 64;
constexpr int MICROPHONES = 3;

/// A recording of ten frames.
void writeRecording(const std::string& path) {
  SF_INFO info{};
  info.samplerate = RATE;
  info.channels = MICROPHONES;
  info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
  SNDFILE* const file = sf_open(path.c_str(), SFM_WRITE, &info);
  require(file != nullptr, "the recording can be written");
  std::vector<float> samples;
  for (int n = 0; n < 10 * LENGTH * MICROPHONES; ++n) samples.push_back(std::sin(0.1F * n * n));
  sf_write_float(file, samples.data(), static_cast<sf_count_t>(samples.size()));
  sf_close(file);
}

/// Files that all inputs share, in a folder of this process.
class Folder {
 public:
  Folder()
      : path(std::filesystem::temp_directory_path() / ("fuzz-folder-" + std::to_string(getpid()))) {
    std::filesystem::create_directories(path);
    writeRecording(recording());
    writeSofa(database(), freeFieldResponses(circularArray(MICROPHONES, 0.05),
                                             gridPositions({45.0, {0.0}, {1.0}}), {RATE, LENGTH}));
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  ~Folder() { std::filesystem::remove_all(path); }

  std::string recording() const { return path / "in.wav"; }
  std::string database() const { return path / "array.sofa"; }
  std::string scene() const { return path / "scene.json"; }

 private:
  std::filesystem::path path;
};

class Composer {
 public:
  Composer(FuzzedDataProvider& input, const Folder& files) : choices(input), folder(files) {}

  FD::NetworkDocument document() {
    FD::NetworkDescription main{"MAIN"};
    main.nodes = {{"separation", "LOOP"}};
    main.outputs = {{"OUTPUT", "separation", "OUTPUT"}};
    return {"document", {main, loop()}};
  }

  /// Sources that come and go and move, anywhere.
  std::string sceneText() {
    std::ostringstream text;
    text << R"({"sources": [)";
    const int count = choices.ConsumeIntegralInRange(0, 5);
    for (int i = 0; i < count; ++i) {
      text << (i > 0 ? "," : "") << "{\"id\": " << choices.ConsumeIntegralInRange(0, 7)
           << ", \"track\": [{\"t\": 0, \"azimuth\": " << number()
           << "}, {\"t\": 0.02, \"position\": [" << number() << "," << number() << ",0]}]"
           << (choices.ConsumeBool() ? ", \"active\": [[0.005, 0.02]]" : "") << "}";
    }
    text << "]" << (choices.ConsumeBool() ? R"(, "noise": [{"id": 9, "azimuth": 90}])" : "") << "}";
    return text.str();
  }

 private:
  double number() { return choices.PickValueInArray({0.0, 45.0, -170.0, 1e-3, 1e6, 1e308}); }

  /// As a rule what fits.
  std::string text(const std::string& fitting) {
    if (choices.ConsumeIntegralInRange(0, 15) > 0) return fitting;
    return choices.ConsumeBool() ? choices.ConsumeRandomLengthString(12)
                                 : choices.PickValueInArray({"", "0", "-1", "nan", "1e30", "65"});
  }

  void add(FD::NodeDescription& node, const char* type, const char* name,
           const std::string& fitting) {
    if (choices.ConsumeIntegralInRange(0, 31) == 0) return;  // forgotten
    node.parameters.push_back({name, type, text(fitting)});
  }

  FD::NodeDescription node(const char* name, const char* type) {
    FD::NodeDescription result{name, type};
    add(result, "int", "LENGTH", std::to_string(LENGTH));
    add(result, "int", "ADVANCE", std::to_string(LENGTH / 4));
    add(result, "int", "SAMPLING_RATE", std::to_string(RATE));
    return result;
  }

  FD::NodeDescription separator(const std::string& type) {
    FD::NodeDescription result = node("separator", type.c_str());
    add(result, "string", "TF_CONJ_FILENAME", folder.database());
    add(result, "string", "BF_METHOD",
        choices.PickValueInArray(
            {"DS", "WDS", "NULL", "ILSE", "LCMV", "GJ", "GSS", "GICA", "GHDSS"}));
    add(result, "bool", "ENABLE_DEBUG", "true");
    for (const char* name : {"LCMV_LC_MYU", "GJ_LC_MYU", "GICA_LC_MYU", "GICA_SS_MYU",
                             "GICA_SS_SCAL", "REG_FACTOR", "ALPHA"}) {
      add(result, "float", name, "0.1");
    }
    for (const char* name : {"LCMV_LC_METHOD", "GJ_LC_METHOD", "GICA_LC_METHOD"}) {
      add(result, "string", name, "ADAPTIVE");
    }
    add(result, "string", "DECOMPOSITION_ALGORITHM", choices.ConsumeBool() ? "GEVD" : "GSVD");
    return result;
  }

  FD::NetworkDescription loop() {
    const std::string type = choices.PickValueInArray({"BeamForming", "ML", "MSNR"});
    FD::NetworkDescription result{"LOOP", "iterator"};
    FD::NodeDescription frames = node("frames", "AudioFrames");
    frames.parameters.push_back({"FILENAME", "string", folder.recording()});
    add(frames, "string", "CHANNELS", choices.PickValueInArray({"1-3", "1,2", "3,1,2"}));
    FD::NodeDescription scene = node("scene", "SceneSources");
    scene.parameters.push_back({"FILENAME", "string", folder.scene()});
    FD::NodeDescription noise = node("noise", "NoiseCorrelation");
    noise.parameters.push_back({"MODE", "string", choices.ConsumeBool() ? "RUNNING" : "FILE"});
    noise.parameters.push_back({"FILENAME", "string", folder.recording()});
    add(noise, "string", "CHANNELS", "1-3");
    result.nodes = {frames, scene, noise, separator(type)};
    link(result, {"frames", "OUTPUT", "separator", "INPUT_FRAMES"});
    link(result, {"scene", "SOURCES", "separator", "INPUT_SOURCES"});
    link(result, {"frames", "OUTPUT", "noise", "INPUT"});
    link(result, {"scene", "SOURCES", "noise", "SOURCES"});
    if (type == "ML") {
      link(result, {"noise", "OUTPUT", "separator", "INPUT_NOISE_CM"});
    } else if (choices.ConsumeBool()) {
      link(result, {"scene", "NOISE_SOURCES", "separator", "INPUT_NOISE_SOURCES"});
    }
    result.outputs = {{"OUTPUT", "separator", "OUTPUT"}};
    result.condition = FD::TerminalDescription{"CONDITION", "frames", "NOT_EOF"};
    return result;
  }

  /// Now and then from elsewhere, or not at all.
  void link(FD::NetworkDescription& network, FD::LinkDescription wanted) {
    const int chance = choices.ConsumeIntegralInRange(0, 31);
    if (chance == 0) return;
    if (chance == 1) wanted.output = choices.PickValueInArray({"NOT_EOF", "NOISE_SOURCES"});
    network.links.push_back(wanted);
  }

  FuzzedDataProvider& choices;
  const Folder& folder;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Folder folder;
  FuzzedDataProvider choices(data, size);
  Composer composer(choices, folder);
  const FD::NetworkDocument document = composer.document();
  std::ofstream(folder.scene(), std::ios::trunc) << composer.sceneText();
  std::ostringstream output;
  std::ostringstream errors;
  const int status = FD::runNetwork(document, {}, output, errors, [](int frame) {
    require(frame < 1000, "the recording ends");
    return true;
  });
  require((status == 0) == errors.str().empty(), "a failure has a reason");
  return 0;
}
