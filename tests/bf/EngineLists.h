#pragma once

#include <vector>

#include "bf/GJ.h"
#include "bf/LCMV.h"

/// Every list of matrices that an engine's adaptation reads or changes.
inline std::vector<std::vector<BF::Matrix>> listsOf(const BF::BF& engine) {
  std::vector<std::vector<BF::Matrix>> lists{engine.transferFunctions,
                                             engine.separationMatrices,
                                             {engine.inputSpectrum, engine.outputSpectrum}};
  if (const auto* lcmv = dynamic_cast<const BF::LCMV*>(&engine)) {
    lists.insert(lists.end(), {lcmv->quiescentWeights, lcmv->projectionMatrices});
  }
  if (const auto* gj = dynamic_cast<const BF::GJ*>(&engine)) {
    lists.insert(lists.end(), {gj->quiescentWeights, gj->blockingMatrices, gj->adaptiveWeights});
  }
  return lists;
}
