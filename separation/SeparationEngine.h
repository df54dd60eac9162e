#pragma once

#include <memory>
#include <string>

#include "bf/BF.h"

/// The engine of a method with its database, whose matrices after updateSources are those that a
/// separation starts with. The methods that learn have learnt nothing yet; ML's noise is of the
/// same level at every microphone and independent between them. Throws std::invalid_argument for a
/// method whose matrices do not follow from the sources' positions.
std::unique_ptr<BF::BF> engineOf(const std::string& method,
                                 const BF::TransformFunctionDatabase& database, int samplingRate);
