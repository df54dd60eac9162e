#pragma once

#include <cstddef>
#include <vector>

#include "bf/BF.h"

namespace Separation {

/// Masks of one bin: the share of each separated source in the power of all,
///   m_s = |Y_s|² / Σ_i |Y_i|².
/// rows says which rows of Y count. Says whether there are masks: not without power, nor where a
/// value is not finite.
bool powerShares(const BF::Matrix& Y, const std::vector<std::size_t>& rows, std::size_t k,
                 std::vector<double>& masks);

/// Multiplies every row by its mask, at least by `floor`, as a Wiener filter would.
void applyMasks(double floor, const std::vector<std::size_t>& rows, std::vector<double>& masks,
                BF::Matrix& Y);

}  // namespace Separation
