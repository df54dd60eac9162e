#include "separation/NoiseCorrelation.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "dsp/DataError.h"
#include "matrix/ProcessorClones.h"

namespace Audio {

namespace {

bool allFinite(const std::complex<float>* values, std::size_t count) {
  return std::all_of(values, values + count, [](const std::complex<float>& value) {
    return std::isfinite(value.real()) && std::isfinite(value.imag());
  });
}

/// R ← keep · R + weight · x · xᴴ for a column of M elements with real parts a and imaginary parts
/// b.
ZELK_PROCESSOR_CLONES void addProducts(double keep, double weight, const double* a, const double* b,
                                       int M, std::complex<double>* R) {
  for (int i = 0; i < M; ++i) {
    for (int j = 0; j < M; ++j, ++R) {
      *R = {keep * R->real() + weight * (a[i] * a[j] + b[i] * b[j]),
            keep * R->imag() + weight * (b[i] * a[j] - a[i] * b[j])};
    }
  }
}

}  // namespace

NoiseCorrelation::NoiseCorrelation(int microphoneCount, int binCount, double forgettingFactor)
    : M(microphoneCount), K(binCount), forgetting(forgettingFactor) {
  if (!(forgetting >= 0 && forgetting <= 1)) {
    throw DataError(fmt::format("FORGETTING is {}, expected 0 to 1", forgetting));
  }
  re.resize(static_cast<std::size_t>(M));
  im.resize(re.size());
  R.resize(static_cast<std::size_t>(K) * static_cast<std::size_t>(M) * static_cast<std::size_t>(M));
}

void NoiseCorrelation::add(const std::complex<float>* spectra) {
  if (!allFinite(spectra, static_cast<std::size_t>(M) * static_cast<std::size_t>(K))) return;
  ++n;
  const double w = std::max(1.0 / static_cast<double>(n), 1.0 - forgetting);
  for (std::ptrdiff_t k = 0; k < K; ++k) {
    for (std::ptrdiff_t i = 0; i < M; ++i) {
      re[i] = spectra[i * K + k].real();
      im[i] = spectra[i * K + k].imag();
    }
    addProducts(1.0 - w, w, re.data(), im.data(), M, R.data() + k * M * M);
  }
}

void NoiseCorrelation::write(double loading, bool normalize, std::complex<float>* matrices) const {
  const std::ptrdiff_t size = static_cast<std::ptrdiff_t>(M) * M;
  for (std::ptrdiff_t k = 0; k < K; ++k) {
    const std::complex<double>* bin = R.data() + k * size;
    std::complex<float>* out = matrices + k * size;
    double trace = 0;
    for (std::ptrdiff_t i = 0; i < M; ++i) trace += bin[i * M + i].real();
    const double sigma = trace / M;
    const bool isSilent = !(sigma > 0);

    const double scale = normalize && !isSilent ? 1.0 / sigma : 1.0;
    double diagonal = loading * (normalize ? 1.0 : sigma);
    if (normalize && isSilent) diagonal += 1.0;
    for (std::ptrdiff_t i = 0; i < M; ++i) {
      for (std::ptrdiff_t j = 0; j < M; ++j) {
        const std::complex<double> loaded = bin[i * M + j] * scale + (i == j ? diagonal : 0.0);
        out[i * M + j] = std::complex<float>(loaded);
      }
    }
  }
}

}  // namespace Audio
