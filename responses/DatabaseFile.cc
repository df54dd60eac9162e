#include "responses/DatabaseFile.h"

#include <fmt/format.h>

#include <complex>
#include <cstddef>
#include <utility>
#include <vector>

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

BF::TransformFunctionDatabase databaseOf(const SofaFile& file) {
  BF::TransformFunctionDatabase database;
  int id = 0;
  // Single precision, as positions reach the separation; the choice of the nearest depends on it.
  for (const SofaFile::Position& p : file.sourcePositions()) {
    database.sourceLocations.emplace_back(static_cast<float>(p[0]), static_cast<float>(p[1]),
                                          static_cast<float>(p[2]), id++, true);
  }
  for (const SofaFile::Position& p : file.receiverPositions()) {
    database.micLocations.emplace_back(static_cast<float>(p[0]), static_cast<float>(p[1]),
                                       static_cast<float>(p[2]));
  }
  const std::vector<std::complex<float>> values = file.readTransferFunctions();
  const std::size_t M = file.receivers();
  const std::size_t K = file.length();
  for (std::size_t k = 0; k < K; ++k) {
    BF::Matrix H(static_cast<int>(M), static_cast<int>(file.measurements()));
    for (std::size_t s = 0; s < file.measurements(); ++s) {
      for (std::size_t m = 0; m < M; ++m) {
        H.setElementAt(static_cast<int>(m), static_cast<int>(s),
                       std::complex<double>(values[(s * M + m) * K + k]));
      }
    }
    database.transferFunctions.push_back(std::move(H));
  }
  return database;
}
