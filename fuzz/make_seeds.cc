// fuzz-seeds FOLDER: writes inputs to begin with into FOLDER/<target>/.
#include <sndfile.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "NetworkDocument.h"
#include "audio/WavWriter.h"
#include "fileio/SofaAnswer.h"
#include "fileio/SofaWriter.h"

namespace fs = std::filesystem;

namespace {

constexpr int DEPTH = 8000;  // brackets: far deeper than any document that is meant

void write(const fs::path& path, const std::string& text) {
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << text;
}

std::vector<float> sound(int channels) {
  std::vector<float> samples;
  for (int n = 0; n < 200 * channels; ++n)
    samples.push_back(std::sin(0.1F * static_cast<float>(n)));
  return samples;
}

void makeAudio(const fs::path& folder) {
  fs::create_directories(folder);
  for (const auto format :
       {Audio::SampleFormat::Pcm16, Audio::SampleFormat::Pcm24, Audio::SampleFormat::Float}) {
    const auto name = "wav" + std::to_string(static_cast<int>(format));
    Audio::WavWriter writer((folder / name).string(), {16000, 2, format}, true);
    writer.write(sound(2).data(), 200);
    writer.finish();
  }
  const int others[] = {SF_FORMAT_AIFF | SF_FORMAT_PCM_16, SF_FORMAT_AU | SF_FORMAT_DOUBLE,
                        SF_FORMAT_W64 | SF_FORMAT_PCM_32,  SF_FORMAT_RF64 | SF_FORMAT_FLOAT,
                        SF_FORMAT_CAF | SF_FORMAT_ALAC_16, SF_FORMAT_WAV | SF_FORMAT_IMA_ADPCM,
                        SF_FORMAT_FLAC | SF_FORMAT_PCM_16, SF_FORMAT_OGG | SF_FORMAT_VORBIS};
  for (const int format : others) {
    SF_INFO info{0, 16000, 1, format, 0, 0};
    const std::string path = (folder / ("format" + std::to_string(format))).string();
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (!file) continue;  // built without this format
    sf_writef_float(file, sound(1).data(), 200);
    sf_close(file);
  }
}

void makeTracks(const fs::path& folder) {
  const std::string message =
      R"({ "timeStamp": 9, "src": [{ "id": 7, "tag": "", "x": 0.5, "y": -0.1, "z": 0, "activity": 1 },)"
      R"( { "id": 0, "tag": "", "x": 0, "y": 0, "z": 0, "activity": 0 }] })";
  write(folder / "two", "\x05" + message + message);
  write(folder / "lengths", std::string("\xff\0\0\0\x90", 5) + message);
  write(folder / "lines",
        "\x10{\"t\": 1, \"sources\": [{\"id\": 1, \"azimuth\": 3}]}\n{\"sources\": []}");
}

void makeScenes(const fs::path& folder) {
  write(folder / "table", "id,start,end,azimuth,elevation,distance\n1,0,1,30\n1,1,2,40,5,1.5\n");
  write(folder / "turns", "SPEAKER r 1 0.5 2 <NA> <NA> a <NA> <NA>\n");
  write(folder / "still", R"({"sources": [{"id": 0, "azimuth": 30, "elevation": 5, "distance": 2},
      {"id": 1, "position": [1, 0.5, -0.1], "active": [[0, 1.5], [2, 3]]}]})");
  write(folder / "moving", R"({"sources": [{"id": 7, "track": [{"t": 0, "azimuth": 170},
      {"t": 2, "azimuth": -150, "distance": 3}, {"t": 2.5, "position": [0, 1, 0]}]}],
      "noise": [{"id": 2, "azimuth": 1e2}]})");
  write(folder / "deep",
        R"({"sources": )" + std::string(DEPTH, '[') + std::string(DEPTH, ']') + "}");
}

void makeMicrophones(const fs::path& folder) {
  write(folder / "pair", R"({"microphones": [[0.03, 0.03, 0], [-3e-2, 0, 0.5]]})");
  write(folder / "deep",
        R"({"microphones": )" + std::string(DEPTH, '[') + std::string(DEPTH, ']') + "}");
}

void makeNetworks(const fs::path& folder) {
  const FD::NetworkDescription loop = {
      "A",
      "iterator",
      {{"count", "IterCount"},
       {"end", "Constant", {{"VALUE", "object", "<Int 5>"}}},
       {"less", "Smaller"},
       {"pass", "NOP"}},
      {{"count", "OUTPUT", "less", "INPUT1"}, {"end", "VALUE", "less", "INPUT2"}},
      {{"IN", "pass", "INPUT"}},
      {{"OUT", "count", "OUTPUT"}},
      {{"CONDITION", "less", "OUTPUT"}}};
  const FD::NetworkDescription outer = {
      "MAIN",
      "subnet",
      {{"text", "Constant", {{"VALUE", "subnet_param", "ARG1"}}}, {"loop", "A"}},
      {{"text", "VALUE", "loop", "IN"}},
      {},
      {{"OUT", "loop", "OUT"}}};
  write(folder / "loop", FD::NetworkDocument{"seed", {outer, loop}}.toXml());
  std::string deep;
  for (int i = 0; i < DEPTH / 2; ++i) deep += "<Network>";
  write(folder / "deep", "<Document>" + deep);
}

void makeArguments(const fs::path& folder) {
  const char* const texts[] = {"1-4,7",        "0-1.5,4-5.25",  "3",
                               "-2.5e-3",      "true",          "<Vector<float> 1 2 3>",
                               "<String a b>", "<Double 1e300>"};
  for (const char* text : texts) write(folder / std::to_string(*text + text[1]), text);
}

void makeDatabases(const fs::path& folder) {
  SofaTransferFunctions data;
  data.sourcePositions = {{1, 0, 0}, {0, 1, 0}};
  data.receiverPositions = {{0, 0.1, 0}};
  data.samplingRate = 16000;
  data.frequencies = 5;
  data.values.assign(10, {1.0F, 0.5F});
  fs::create_directories(folder);
  writeSofa(folder / "tf", data);
}

void makeAnswers(const fs::path& folder) {
  for (const AnswerState state : {AnswerState::HEAD, AnswerState::RESPONSES}) {
    for (const std::uint64_t isTransferFunctions : {0, 1}) {
      AnswerHead head;
      head.state = state;
      head.isTransferFunctions = isTransferFunctions;
      head.measurements = 3;
      head.receivers = head.referenceMicrophone = 2;
      head.length = 5;
      head.samplingRate = 16000.0;
      head.energyInFrame = 0.5;
      head.textBytes = 4;
      std::string bytes(layoutOf(head).value().size, '\0');
      std::memcpy(bytes.data(), &head, sizeof head);
      write(folder / std::to_string(bytes.size()), bytes);
    }
  }
}

/// For targets that read choices from the bytes. With `odd` of 256 bytes random and the others 0.
void makeChoices(const fs::path& folder, std::size_t size, unsigned odd) {
  std::mt19937 random(1);
  for (int i = 0; i < 100; ++i) {
    std::string bytes(size, '\0');
    for (char& byte : bytes) {
      if (random() % 256 < odd) byte = static_cast<char>(random());
    }
    write(folder / ("choices" + std::to_string(i)), bytes);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fputs("usage: fuzz-seeds FOLDER\n", stderr);
    return 2;
  }
  const fs::path folder = argv[1];
  makeAudio(folder / "audio");
  makeTracks(folder / "tracks");
  makeScenes(folder / "scene");
  makeMicrophones(folder / "microphones");
  makeNetworks(folder / "network");
  makeArguments(folder / "arguments");
  makeDatabases(folder / "database");
  makeAnswers(folder / "answer");
  makeChoices(folder / "network", 100, 256);
  makeChoices(folder / "decompositions", 800, 256);
  makeChoices(folder / "sofa", 400, 16);
}
