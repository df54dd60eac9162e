#include "responses/InverseTransform.h"

#include <fmt/format.h>

#include <algorithm>

#include "dsp/DataError.h"
#include "dsp/RealFft.h"

namespace {

constexpr double MIN_RATIO = 2.0;  // of the last eighth's energy to that of the eighth before

}  // namespace

InverseTransforms inverseTransforms(const std::string& name,
                                    const std::vector<std::complex<float>>& H, std::size_t N,
                                    int referenceMicrophone) {
  if (N < 2) {
    throw DataError(fmt::format("{}: N is {}, expected two frequencies at least", name, N));
  }
  const std::size_t count = H.size() / N;
  InverseTransforms result;
  result.length = 2 * (N - 1);
  result.values.resize(count * result.length);
  Audio::RealFft transform(static_cast<int>(result.length));
  const std::size_t eighth = result.length / 8;
  double last = 0.0;
  double before = 0.0;
  for (std::size_t i = 0; i < count; ++i) {
    float* h = result.values.data() + i * result.length;
    transform.inverse(H.data() + i * N, h);
    for (std::size_t n = result.length - eighth; n < result.length; ++n) {
      last += static_cast<double>(h[n]) * h[n];
      before += static_cast<double>(h[n - eighth]) * h[n - eighth];
    }
  }
  if (referenceMicrophone > 0) {
    result.lead = result.length / 2;
  } else if (last > MIN_RATIO * before) {
    result.lead = eighth;
  }
  for (std::size_t i = 0; i < count; ++i) {
    float* h = result.values.data() + i * result.length;
    std::rotate(h, h + result.length - result.lead, h + result.length);
  }
  return result;
}
