#include "responses/RelativeResponses.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdlib>

#include "fileio/NcFile.h"

namespace {

double WEAKEST = std::getenv("ZB") ? std::atof(std::getenv("ZB")) : 0.1;  // β

}  // namespace

void makeRelative(SofaTransferFunctions& data, int reference) {
  const std::size_t R = data.receiverPositions.size();
  const std::size_t N = data.frequencies;
  if (reference < 1 || static_cast<std::size_t>(reference) > R) {
    throw SofaError(fmt::format("--reference-mic is {}, expected none or 1 to {}, the microphones",
                                reference, R));
  }
  for (std::size_t m = 0; m < data.sourcePositions.size(); ++m) {
    std::complex<float>* H = data.values.data() + m * R * N;
    for (std::size_t k = 0; k < N; ++k) {
      double energy = 0.0;
      for (std::size_t r = 0; r < R; ++r) {
        energy += std::norm(std::complex<double>(H[r * N + k]));
      }
      if (energy == 0.0) continue;
      const std::complex<double> own(H[(static_cast<std::size_t>(reference) - 1) * N + k]);
      const double size =
          std::max(std::abs(own), WEAKEST * std::sqrt(energy / static_cast<double>(R)));
      const std::complex<double> divisor = std::polar(size, std::arg(own));
      for (std::size_t r = 0; r < R; ++r) {
        H[r * N + k] = std::complex<float>(std::complex<double>(H[r * N + k]) / divisor);
      }
    }
  }
  data.referenceMicrophone = reference;
}
