#include "separation/BackProjection.h"

#include <fmt/format.h>

#include <cmath>
#include <cstddef>

#include "dsp/DataError.h"

namespace Audio {

BackProjection::BackProjection(int binCount, double forgettingFactor)
    : bins(binCount), alpha(forgettingFactor) {
  if (!(alpha >= 0 && alpha <= 1)) {
    throw DataError(fmt::format("FORGETTING is {}, expected 0 to 1", alpha));
  }
}

void BackProjection::project(int id, const std::complex<float>* reference,
                             const std::complex<float>* spectrum, bool update,
                             std::complex<float>* projected) {
  Averages& average = averages[id];
  average.P.resize(static_cast<std::size_t>(bins));
  average.Q.resize(static_cast<std::size_t>(bins));
  for (std::size_t k = 0; k < average.Q.size(); ++k) {
    std::complex<double>& P = average.P[k];
    double& Q = average.Q[k];
    const std::complex<double> X(reference[k]);
    const std::complex<double> Y(spectrum[k]);
    const std::complex<double> newP = alpha * P + X * std::conj(Y);
    const double newQ = alpha * Q + std::norm(Y);
    if (update && std::isfinite(newP.real()) && std::isfinite(newP.imag()) && std::isfinite(newQ)) {
      P = newP;
      Q = newQ;
    }
    projected[k] = Q > 0 ? std::complex<float>(P / Q * Y) : std::complex<float>(0);
  }
}

}  // namespace Audio
