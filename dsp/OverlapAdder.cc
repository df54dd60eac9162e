#include "dsp/OverlapAdder.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>

#include "dsp/DataError.h"

namespace Audio {

namespace {

constexpr double MIN_SHARE = 1e-4;

/// D(r) = Σ_j a(r + j · advance) · w(r + j · advance) for r = 0 … advance − 1, in which a counts
/// from where w begins.
std::vector<double> sumsOfProducts(const FrameWindows& windows, int advance) {
  const std::vector<float>& w = windows.synthesis;
  const float* a = windows.analysis.data() + (windows.analysis.size() - w.size());
  std::vector<double> D(static_cast<std::size_t>(advance));
  for (std::size_t n = 0; n < w.size(); ++n) {
    D[n % D.size()] += static_cast<double>(a[n]) * static_cast<double>(w[n]);
  }
  return D;
}

}  // namespace

FrameSynthesizer::FrameSynthesizer(const FrameLayout& frameLayout, WindowType windowType,
                                   bool halfFrameShift)
    : FrameSynthesizer(frameLayout, equalWindows(windowType, frameLayout.length()),
                       halfFrameShift) {}

FrameSynthesizer::FrameSynthesizer(const FrameLayout& frameLayout, const FrameWindows& windows,
                                   bool halfFrameShift)
    : layout(static_cast<int>(windows.synthesis.size()), frameLayout.advance()),
      negateOddBins(halfFrameShift),
      gains(windows.synthesis),
      fft(frameLayout.length()),
      shifted(static_cast<std::size_t>(frameLayout.bins())),
      samples(windows.analysis.size()),
      given(gains.size()) {
  const std::vector<double> D = sumsOfProducts(windows, layout.advance());
  const auto [least, most] = std::minmax_element(D.begin(), D.end());
  if (*least <= *most * MIN_SHARE) {
    throw DataError(
        fmt::format("frames of LENGTH {} with ADVANCE {} do not overlap enough for this WINDOW: "
                    "some samples would be lost; expected an ADVANCE of at most half of LENGTH",
                    layout.length(), layout.advance()));
  }
  for (std::size_t n = 0; n < gains.size(); ++n) {
    gains[n] = static_cast<float>(gains[n] / D[n % D.size()]);
  }
}

const std::vector<float>& FrameSynthesizer::synthesize(const std::complex<float>* spectrum) {
  for (std::size_t k = 0; k < shifted.size(); ++k) {
    shifted[k] = negateOddBins && k % 2 == 1 ? -spectrum[k] : spectrum[k];
  }
  fft.inverse(shifted.data(), samples.data());
  const float* last = samples.data() + (samples.size() - given.size());
  for (std::size_t n = 0; n < given.size(); ++n) given[n] = last[n] * gains[n];
  return given;
}

OverlapAdder::OverlapAdder(const FrameLayout& frameLayout)
    : layout(frameLayout), sums(static_cast<std::size_t>(frameLayout.length())) {}

void OverlapAdder::add(const float* frameSamples) {
  const auto advance = static_cast<std::ptrdiff_t>(layout.advance());
  std::copy(sums.begin() + advance, sums.end(), sums.begin());
  std::fill(sums.end() - advance, sums.end(), 0.0F);
  if (!frameSamples) return;
  for (std::size_t n = 0; n < sums.size(); ++n) sums[n] += frameSamples[n];
}

}  // namespace Audio
