#include "cli/pattern/SeparationEngine.h"

#include <complex>
#include <cstddef>
#include <stdexcept>
#include <vector>

#include "bf/CML.h"
#include "bf/Fixed.h"
#include "bf/GJ.h"
#include "bf/GSS.h"
#include "bf/LCMV.h"
#include "cli/Places.h"

namespace {

constexpr double SPEED_OF_SOUND = 343.0;  // m/s

std::unique_ptr<BF::BF> withEqualNoise(std::unique_ptr<BF::CML> engine,
                                       const BF::TransformFunctionDatabase& database) {
  const int M = static_cast<int>(database.micLocations.size());
  engine->noiseCorrelationMatrices.assign(database.transferFunctions.size(), BF::Matrix::I(M));
  return engine;
}

/// Step sizes and regularisation do not count: nothing is learnt, and the noise is the same.
std::unique_ptr<BF::BF> bareEngine(const std::string& method,
                                   const BF::TransformFunctionDatabase& database, int rate) {
  const int bins = static_cast<int>(database.transferFunctions.size());
  const double c = SPEED_OF_SOUND;
  if (method == "DS") return std::make_unique<BF::DS>(bins, rate, c);
  if (method == "WDS") return std::make_unique<BF::WDS>(bins, rate, c);
  if (method == "NULL") return std::make_unique<BF::Null>(bins, rate, c);
  if (method == "ILSE") return std::make_unique<BF::ILSE>(bins, rate, c);
  if (method == "LCMV") return std::make_unique<BF::LCMV>(bins, rate, c, false, 0.0);
  if (method == "GJ") return std::make_unique<BF::GJ>(bins, rate, c, false, 0.0);
  if (method == "GICA") {
    return std::make_unique<BF::GICA>(bins, rate, c, false, 0.0, false, 0.0, 1.0,
                                      static_cast<BF::NlFuncType>(1));
  }
  if (method == "ML") {
    return withEqualNoise(std::make_unique<BF::CML>(bins, rate, c, 0.0), database);
  }
  throw std::invalid_argument("no matrices of " + method + " follow from positions alone");
}

}  // namespace

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

std::unique_ptr<BF::BF> engineOf(const std::string& method,
                                 const BF::TransformFunctionDatabase& database, int samplingRate) {
  std::unique_ptr<BF::BF> engine = bareEngine(method, database, samplingRate);
  engine->setTransformFunctionDatabase(database);
  return engine;
}
