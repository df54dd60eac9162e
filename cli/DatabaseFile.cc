#include "cli/DatabaseFile.h"

#include <fmt/format.h>

void requireDatabase(const SofaFile& file) {
  if (!file.isTransferFunctions()) {
    throw SofaError(
        fmt::format("{}: holds impulse responses, expected transfer functions (make them with: "
                    "zelk-sss tfdb import)",
                    file.path()));
  }
  if (file.samplingRate() < 1.0) {
    throw SofaError(
        fmt::format("{}: the sampling rate, twice the last of the {} frequencies, is {} Hz, "
                    "expected 1 Hz or more",
                    file.path(), file.length(), file.samplingRate()));
  }
}
