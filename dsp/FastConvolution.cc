#include "dsp/FastConvolution.h"

#include <algorithm>
#include <bit>
#include <complex>
#include <cstddef>
#include <kissfft/kissfft.hh>
#include <numeric>

namespace {

using Spectrum = std::vector<std::complex<double>>;

/// Transforms of one length, a power of 2 that is several times as long as `span`, so that most of
/// a block is new samples.
class BlockTransform {
 public:
  explicit BlockTransform(std::size_t span)
      : length(std::max<std::size_t>(4096, 4 * std::bit_ceil(span))),
        forwardPlan(length, false),
        inversePlan(length, true) {}

  std::size_t size() const { return length; }

  /// Spectrum of the samples of x from `begin` up to `end`, which may lie outside x: zeros there.
  Spectrum of(const std::vector<double>& x, std::ptrdiff_t begin, std::ptrdiff_t end) const {
    Spectrum block(length);
    const std::ptrdiff_t last = std::min(end, static_cast<std::ptrdiff_t>(x.size()));
    for (std::ptrdiff_t n = std::max<std::ptrdiff_t>(begin, 0); n < last; ++n) {
      block[static_cast<std::size_t>(n - begin)] = x[static_cast<std::size_t>(n)];
    }
    Spectrum spectrum(length);
    forwardPlan.transform(block.data(), spectrum.data());
    return spectrum;
  }

  /// The real signal of a spectrum, times the length.
  std::vector<double> inverse(const Spectrum& spectrum) const {
    Spectrum block(length);
    inversePlan.transform(spectrum.data(), block.data());
    std::vector<double> signal(length);
    for (std::size_t n = 0; n < length; ++n) signal[n] = block[n].real();
    return signal;
  }

 private:
  std::size_t length;
  kissfft<double> forwardPlan;
  kissfft<double> inversePlan;
};

}  // namespace

std::vector<double> crossCorrelation(const std::vector<double>& x, const std::vector<double>& y,
                                     int maxLag) {
  // Exact for equal signals, where rounding in a transform would show.
  const auto common = static_cast<std::ptrdiff_t>(std::min(x.size(), y.size()));
  if (maxLag == 0) return {std::inner_product(x.begin(), x.begin() + common, y.begin(), 0.0)};

  // Block by block X*(k) · Y(k), where the block of y reaches maxLag beyond that of x on both
  // sides; index τ + maxLag of the sum's inverse transform is r(τ).
  const std::size_t lags = 2 * static_cast<std::size_t>(maxLag) + 1;
  const BlockTransform transform(lags);
  const auto step = static_cast<std::ptrdiff_t>(transform.size() - lags + 1);
  Spectrum sum(transform.size());
  for (std::ptrdiff_t begin = 0; begin < static_cast<std::ptrdiff_t>(x.size()); begin += step) {
    const Spectrum X = transform.of(x, begin, begin + step);
    const Spectrum Y = transform.of(y, begin - maxLag, begin + step + maxLag);
    for (std::size_t k = 0; k < sum.size(); ++k) sum[k] += std::conj(X[k]) * Y[k];
  }
  std::vector<double> r = transform.inverse(sum);
  r.resize(lags);
  for (double& value : r) value /= static_cast<double>(transform.size());
  return r;
}

std::vector<double> convolution(const std::vector<double>& x, const std::vector<double>& h) {
  std::vector<double> y(x.size() + h.size() - 1);
  if (h.size() == 1) {
    std::transform(x.begin(), x.end(), y.begin(), [&](double value) { return h[0] * value; });
    return y;
  }
  const BlockTransform transform(h.size());
  const std::size_t step = transform.size() - h.size() + 1;
  const Spectrum H = transform.of(h, 0, static_cast<std::ptrdiff_t>(h.size()));
  for (std::size_t begin = 0; begin < x.size(); begin += step) {
    Spectrum X = transform.of(x, static_cast<std::ptrdiff_t>(begin),
                              static_cast<std::ptrdiff_t>(begin + step));
    for (std::size_t k = 0; k < X.size(); ++k) X[k] *= H[k];
    const std::vector<double> block = transform.inverse(X);
    const std::size_t count = std::min(block.size(), y.size() - begin);
    for (std::size_t n = 0; n < count; ++n) {
      y[begin + n] += block[n] / static_cast<double>(transform.size());
    }
  }
  return y;
}
