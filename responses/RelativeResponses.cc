#include "responses/RelativeResponses.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstddef>
#include <vector>

#include "dsp/DataError.h"

namespace {

constexpr double MIN_REFERENCE = 0.1;  // of the mean of all microphones
constexpr double SMOOTHING = 100.0;    // Hz, to each side

/// Values added up to index n of n + 1.
std::vector<double> summedUp(const std::vector<double>& values) {
  std::vector<double> sums = {0.0};
  for (const double value : values) sums.push_back(sums.back() + value);
  return sums;
}

/// One position's responses, of R microphones and N frequencies, `width` of which are 100 Hz.
void divide(std::complex<float>* H, std::size_t R, std::size_t N, std::size_t reference,
            std::size_t width) {
  const std::complex<float>* own = H + reference * N;
  std::vector<double> square(N);  // M(k)²
  std::vector<double> ownSquare(N);
  for (std::size_t k = 0; k < N; ++k) {
    for (std::size_t m = 0; m < R; ++m) square[k] += std::norm(std::complex<double>(H[m * N + k]));
    square[k] /= static_cast<double>(R);
    ownSquare[k] = std::norm(std::complex<double>(own[k]));
  }
  const std::vector<double> all = summedUp(square);
  const std::vector<double> owns = summedUp(ownSquare);
  for (std::size_t k = 0; k < N; ++k) {
    if (square[k] == 0.0) continue;
    const std::size_t from = k - std::min(k, width);
    const std::size_t to = std::min(N, k + width + 1);
    const double ownSum = owns[to] - owns[from];
    const double g = ownSum > 0.0 ? std::sqrt((all[to] - all[from]) / ownSum) : 1.0;
    const double size = std::max(std::sqrt(ownSquare[k]) * g, MIN_REFERENCE * std::sqrt(square[k]));
    const std::complex<double> divisor = std::polar(size, std::arg(std::complex<double>(own[k])));
    for (std::size_t m = 0; m < R; ++m) {
      std::complex<float>& h = H[m * N + k];
      h = std::complex<float>(std::complex<double>(h) / divisor);
    }
  }
}

}  // namespace

void makeRelative(SofaTransferFunctions& data, int reference) {
  const std::size_t R = data.receiverPositions.size();
  const std::size_t N = data.frequencies;
  if (reference < 1 || static_cast<std::size_t>(reference) > R) {
    throw DataError(fmt::format("--reference-mic is {}, expected none or 1 to {}, the microphones",
                                reference, R));
  }
  const double perFrequency =
      0.5 * data.samplingRate / static_cast<double>(std::max<std::size_t>(1, N - 1));
  const auto width = static_cast<std::size_t>(
      perFrequency > 0.0 ? std::min(SMOOTHING / perFrequency, static_cast<double>(N)) : 0.0);
  for (std::size_t m = 0; m < data.sourcePositions.size(); ++m) {
    divide(data.values.data() + m * R * N, R, N, static_cast<std::size_t>(reference) - 1, width);
  }
  data.referenceMicrophone = reference;
}
