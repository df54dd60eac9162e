#include "separation/SteeringCondition.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "matrix/Matrix.h"

namespace {

/// H(k), a row for each microphone, every column divided by its length; columns of zeros stay.
BF::Matrix steeringMatrix(const std::vector<std::complex<float>>& H, std::size_t microphones,
                          std::size_t bins, const std::vector<std::size_t>& positions,
                          std::size_t k) {
  BF::Matrix result(static_cast<int>(microphones), static_cast<int>(positions.size()));
  for (std::size_t n = 0; n < positions.size(); ++n) {
    const auto h = [&](std::size_t m) {
      return std::complex<double>(H[(positions[n] * microphones + m) * bins + k]);
    };
    double power = 0.0;
    for (std::size_t m = 0; m < microphones; ++m) power += std::norm(h(m));
    const double scale = power > 0.0 ? 1.0 / std::sqrt(power) : 0.0;
    for (std::size_t m = 0; m < microphones; ++m) {
      result.setElementAt(static_cast<int>(m), static_cast<int>(n), scale * h(m));
    }
  }
  return result;
}

double condition(const BF::Matrix& H) {
  BF::Matrix U;
  BF::Matrix S;
  BF::Matrix V;
  H.singularValueDecomposition(U, S, V);
  const double smallest = S.getElementAt(H.getColumnCount() - 1, 0).real();
  return smallest > 0.0 ? S.getElementAt(0, 0).real() / smallest
                        : std::numeric_limits<double>::infinity();
}

}  // namespace

std::optional<SingularBand> widestSingularBand(const std::vector<std::complex<float>>& H,
                                               std::size_t microphones, std::size_t bins,
                                               const std::vector<std::size_t>& positions,
                                               std::size_t begin, double limit) {
  std::optional<SingularBand> widest;
  std::optional<SingularBand> run;
  for (std::size_t k = begin; k < bins; ++k) {
    const double here = condition(steeringMatrix(H, microphones, bins, positions, k));
    if (here <= limit) {
      run.reset();
      continue;
    }
    if (!run) run = SingularBand{k, k, here};
    run->last = k;
    run->condition = std::max(run->condition, here);
    if (!widest || run->last - run->first >= widest->last - widest->first) widest = run;
  }
  return widest;
}
