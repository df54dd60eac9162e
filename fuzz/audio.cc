// Recordings: any bytes as an audio file, read with the options that the last bytes choose.
#include <algorithm>
#include <cmath>

#include "audio/AudioReader.h"
#include "dsp/DataError.h"
#include "fuzz/Fuzzing.h"

namespace {

constexpr std::size_t BLOCK = 1000;
constexpr std::size_t MAX_SAMPLES = 1 << 16;  // a file of one second can be converted to hours

Audio::AudioReaderOptions chosen(FuzzedDataProvider& choices) {
  Audio::AudioReaderOptions options;
  options.channels = choices.PickValueInArray({"", "1", "2", "1-2", "2,1", "1-4,7", "300"});
  options.samplingRate = choices.PickValueInArray({0, 16000, 44100, 1, 1000000});
  options.resample = !choices.ConsumeBool();
  options.nonFinite = choices.PickValueInArray({Audio::NonFinite::Zero, Audio::NonFinite::Keep});
  options.warn = [](const std::string& text) {
    require(isShowable(text), "warnings are showable");
  };
  return options;
}

void readAll(Audio::AudioReader& reader, bool finite) {
  require(reader.channelCount() > 0 && reader.samplingRate() > 0, "there is sound");
  const auto announced = reader.announcedSamples();
  require(!announced || *announced >= 0, "no negative length is announced");
  std::vector<float> block(BLOCK * static_cast<std::size_t>(reader.channelCount()));
  for (std::size_t all = 0; all < MAX_SAMPLES; all += BLOCK) {
    const std::size_t count = reader.read(block.data(), BLOCK);
    require(count <= BLOCK, "no more samples than asked for");
    const float* begin = block.data();
    const float* end = begin + count * static_cast<std::size_t>(reader.channelCount());
    require(!finite || std::all_of(begin, end, [](float x) { return std::isfinite(x); }),
            "samples are finite");
    if (count < BLOCK) break;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const ScratchFile file;
  FuzzedDataProvider choices(data, size);
  const Audio::AudioReaderOptions options = chosen(choices);
  file.fill(data, choices.remaining_bytes());
  try {
    Audio::AudioReader reader(file.path(), options);
    readAll(reader, options.nonFinite == Audio::NonFinite::Zero);
  } catch (const DataError& error) {
    require(isShowable(error.what()), "messages are showable");
  }
  return 0;
}
