#include "responses/DatabaseFile.h"

#include <fmt/format.h>

#include <complex>
#include <cstddef>
#include <utility>
#include <vector>

#include "dsp/DataError.h"
#include "responses/Places.h"

void requireDatabase(const SofaFile& file) {
  if (!file.isTransferFunctions()) {
    throw DataError(
        fmt::format("{}: holds impulse responses, expected transfer functions (make them with: "
                    "zelk-sss tfdb import)",
                    file.path()));
  }
  if (file.samplingRate() < 1.0) {
    throw DataError(
        fmt::format("{}: the sampling rate, twice the last of the {} frequencies, is {} Hz, "
                    "expected 1 Hz or more",
                    file.path(), file.length(), file.samplingRate()));
  }
}

BF::TransformFunctionDatabase databaseOf(const SofaFile& file) {
  BF::TransformFunctionDatabase database;
  database.sourceLocations = sourcesAsSeparated(file);
  for (const SofaFile::Position& p : file.receiverPositions()) {
    const BF::SourceLocation place = asSeparated({p[0], p[1], p[2]}, 0, true);
    database.micLocations.emplace_back(place.x, place.y, place.z);
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
