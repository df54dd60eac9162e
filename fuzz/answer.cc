// What a reader of transfer-function files hands back when it lies: the input is its whole answer.
#include <cmath>
#include <memory>
#include <vector>

#include "dsp/DataError.h"
#include "fileio/SofaFile.h"
#include "fuzz/Fuzzing.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // Of the alignment that memory files have, and no byte longer than the answer.
  const auto* begin = reinterpret_cast<const std::byte*>(data);
  const auto memory = std::make_shared<std::vector<std::byte>>(begin, begin + size);
  const AnswerBytes bytes = {{memory, memory->data()}, size};
  try {
    const SofaFile file("file", SofaAnswer(bytes, 1 << 20));
    require(file.sourcePositions().size() == file.measurements(), "a position per measurement");
    require(file.receiverPositions().size() == file.receivers(), "a position per receiver");
    require(file.referenceMicrophone() >= 0, "no microphone before the first");
    require(static_cast<std::size_t>(file.referenceMicrophone()) <= file.receivers(), "nor beyond");
    const double share = file.energyInFrame().value_or(1.0);
    require(share >= 0.0 && share <= 1.0, "a part of the energy");
    for (const auto& p : file.sourcePositions()) require(std::isfinite(p[0] + p[2]), "positions");
    for (const std::string& warning : file.warnings()) {
      require(warning.empty() || isShowable(warning), "warnings are showable");
    }
    const std::size_t count = file.measurements() * file.receivers() * file.length();
    if (file.isTransferFunctions()) {
      for (const auto& h : file.readTransferFunctions()) require(std::isfinite(h.imag()), "H");
    } else {
      require(file.readImpulseResponses().size() == count, "the responses are complete");
      require(file.readDelays().size() == file.measurements() * file.receivers(), "delays");
    }
  } catch (const DataError& error) {
    require(*error.what() == 0 || isShowable(error.what()), "messages are showable");
  } catch (const std::logic_error&) {  // a head alone
  }
  return 0;
}
