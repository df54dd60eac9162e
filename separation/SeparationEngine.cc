#include "separation/SeparationEngine.h"

#include <map>
#include <stdexcept>

#include "bf/EngineFactory.h"
#include "geometry/SpeedOfSound.h"

namespace {

BF::BfAlgorithmType algorithmOf(const std::string& method) {
  static const std::map<std::string, BF::BfAlgorithmType> ALGORITHMS = {
      {"DS", BF::BF_ALGORITHM_DS},     {"WDS", BF::BF_ALGORITHM_WDS},
      {"NULL", BF::BF_ALGORITHM_NULL}, {"ILSE", BF::BF_ALGORITHM_ILSE},
      {"LCMV", BF::BF_ALGORITHM_LCMV}, {"GJ", BF::BF_ALGORITHM_GJ},
      {"GICA", BF::BF_ALGORITHM_GICA}, {"ML", BF::BF_ALGORITHM_CML}};
  const auto found = ALGORITHMS.find(method);
  if (found != ALGORITHMS.end()) return found->second;
  throw std::invalid_argument("no matrices of " + method + " follow from positions alone");
}

}  // namespace

std::unique_ptr<BF::BF> engineOf(const std::string& method,
                                 const BF::TransformFunctionDatabase& database, int samplingRate) {
  const int bins = static_cast<int>(database.transferFunctions.size());
  BF::EngineParameters parameters;  // steps do not count, as nothing is learnt
  parameters.regFactor = 0.0;
  std::unique_ptr<BF::BF> engine =
      BF::makeEngine(algorithmOf(method), parameters, bins, samplingRate, BF::SPEED_OF_SOUND);
  engine->setTransformFunctionDatabase(database);
  if (method == "ML") {
    const int M = static_cast<int>(database.micLocations.size());
    engine->noiseCorrelationMatrices.assign(database.transferFunctions.size(), BF::Matrix::I(M));
  }
  return engine;
}
