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

namespace {

/// values: (m, r, k) at (m · R + r) · K + k.
BF::TransformFunctionDatabase databaseFrom(std::vector<BF::SourceLocation> sources,
                                           const std::vector<SofaPosition>& microphones,
                                           const std::vector<std::complex<float>>& values,
                                           std::size_t K) {
  BF::TransformFunctionDatabase database;
  const std::size_t S = sources.size();
  const std::size_t M = microphones.size();
  database.sourceLocations = std::move(sources);
  for (const SofaPosition& p : microphones) {
    const BF::SourceLocation place = asSeparated({p[0], p[1], p[2]}, 0, true);
    database.micLocations.emplace_back(place.x, place.y, place.z);
  }
  for (std::size_t k = 0; k < K; ++k) {
    BF::Matrix H(static_cast<int>(M), static_cast<int>(S));
    for (std::size_t s = 0; s < S; ++s) {
      for (std::size_t m = 0; m < M; ++m) {
        H.setElementAt(static_cast<int>(m), static_cast<int>(s),
                       std::complex<double>(values[(s * M + m) * K + k]));
      }
    }
    database.transferFunctions.push_back(std::move(H));
  }
  return database;
}

}  // namespace

BF::TransformFunctionDatabase databaseOf(const SofaFile& file) {
  return databaseFrom(sourcesAsSeparated(file.sourcePositions()), file.receiverPositions(),
                      file.readTransferFunctions(), file.length());
}

BF::TransformFunctionDatabase databaseOf(const SofaTransferFunctions& data) {
  return databaseFrom(sourcesAsSeparated(data.sourcePositions), data.receiverPositions, data.values,
                      data.frequencies);
}
