#pragma once

#include <complex>
#include <cstddef>
#include <optional>
#include <vector>

/// The widest band, in bins, over which the responses towards some positions hardly differ.
struct SingularBand {
  std::size_t first = 0;  ///< bin
  std::size_t last = 0;
  double condition =
      0.0;  ///< the largest within; infinite where the responses depend on each other
};

/// Looks for bins k in which the steering matrix H(k), of a column for each of some positions, is
/// nearly singular: its condition, the largest over the smallest singular value after each column
/// was brought to length 1, is above `limit`. A separation that solves H(k) for the sources raises
/// noise by as much. Returns the widest run of such bins from `begin` on.
///
/// H: responses as SofaFile::readTransferFunctions gives them, (position, microphone, bin) at
/// (position · microphones + microphone) · bins + bin. There must not be more positions than
/// microphones.
std::optional<SingularBand> widestSingularBand(const std::vector<std::complex<float>>& H,
                                               std::size_t microphones, std::size_t bins,
                                               const std::vector<std::size_t>& positions,
                                               std::size_t begin, double limit);
