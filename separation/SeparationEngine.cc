#include "separation/SeparationEngine.h"

#include <stdexcept>

#include "bf/EngineFactory.h"
#include "geometry/SpeedOfSound.h"
#include "separation/Methods.h"

std::unique_ptr<BF::BF> engineOf(const std::string& method,
                                 const BF::TransformFunctionDatabase& database, int samplingRate) {
  const int bins = static_cast<int>(database.transferFunctions.size());
  const BF::BfAlgorithmType algorithm = methodNamed(method).algorithm;
  if (!methodNamed(method).needsDatabase()) {
    throw std::invalid_argument("no matrices of " + method + " follow from positions alone");
  }
  BF::EngineParameters parameters;  // steps do not count, as nothing is learnt
  parameters.regFactor = 0.0;
  std::unique_ptr<BF::BF> engine =
      BF::makeEngine(algorithm, parameters, bins, samplingRate, BF::SPEED_OF_SOUND);
  engine->setTransformFunctionDatabase(database);
  if (method == "ML") {
    const int M = static_cast<int>(database.micLocations.size());
    engine->noiseCorrelationMatrices.assign(database.transferFunctions.size(), BF::Matrix::I(M));
  }
  return engine;
}
