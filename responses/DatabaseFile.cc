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

SofaTransferFunctions transferFunctionsOf(const SofaFile& file) {
  SofaTransferFunctions data;
  data.sourcePositions = file.sourcePositions();
  data.receiverPositions = file.receiverPositions();
  data.samplingRate = file.samplingRate();
  data.frequencies = file.length();
  data.values = file.readTransferFunctions();
  data.referenceMicrophone = file.referenceMicrophone();
  data.energyInFrame = file.energyInFrame();
  return data;
}

BF::TransformFunctionDatabase databaseOf(const SofaTransferFunctions& data) {
  BF::TransformFunctionDatabase database;
  database.sourceLocations = sourcesAsSeparated(data.sourcePositions);
  for (const BF::Position& p : data.receiverPositions) {
    const BF::SourceLocation place = asSeparated(BF::asLocation(p), 0, true);
    database.micLocations.emplace_back(place.x, place.y, place.z);
  }
  const std::size_t P = data.sourcePositions.size();
  const std::size_t M = data.receiverPositions.size();
  const std::size_t K = data.frequencies;
  for (std::size_t k = 0; k < K; ++k) {
    BF::Matrix H(static_cast<int>(M), static_cast<int>(P));
    for (std::size_t s = 0; s < P; ++s) {
      for (std::size_t m = 0; m < M; ++m) {
        H.setElementAt(static_cast<int>(m), static_cast<int>(s),
                       std::complex<double>(data.values[(s * M + m) * K + k]));
      }
    }
    database.transferFunctions.push_back(std::move(H));
  }
  return database;
}

BF::TransformFunctionDatabase databaseOf(const SofaFile& file) {
  return databaseOf(transferFunctionsOf(file));
}
