#include "separation/SeparationEngine.h"

#include <stdexcept>

#include "bf/CML.h"
#include "bf/Fixed.h"
#include "bf/GJ.h"
#include "bf/GSS.h"
#include "bf/LCMV.h"

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

std::unique_ptr<BF::BF> engineOf(const std::string& method,
                                 const BF::TransformFunctionDatabase& database, int samplingRate) {
  std::unique_ptr<BF::BF> engine = bareEngine(method, database, samplingRate);
  engine->setTransformFunctionDatabase(database);
  return engine;
}
