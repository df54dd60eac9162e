// Microphone positions: any text as a file, and the database of an array that was accepted.
#include <cmath>

#include "dsp/DataError.h"
#include "fuzz/Fuzzing.h"
#include "responses/ArrayGeometry.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const ScratchFile file;
  file.fill(data, size);
  try {
    const Positions microphones = readMicrophones(file.path());
    require(!microphones.empty(), "there is a microphone");
    const Positions sources = gridPositions({90.0, {0.0, 90.0}, {0.5, 2.0}});
    const SofaTransferFunctions database = freeFieldResponses(microphones, sources, {16000, 64});
    require(database.values.size() == microphones.size() * sources.size() * 33,
            "a value for each source, microphone and bin");
    for (const auto& H : database.values) {
      require(std::isfinite(H.real()) && std::isfinite(H.imag()), "responses are finite");
    }
  } catch (const DataError& error) {
    require(isShowable(error.what()), "messages are showable");
  }
  return 0;
}
