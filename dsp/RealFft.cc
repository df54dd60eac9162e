#include "dsp/RealFft.h"

#include <kiss_fftr.h>

#include <cstddef>
#include <new>
#include <vector>

namespace Audio {

namespace {

struct PlanDeleter {
  void operator()(void* plan) const { kiss_fft_free(plan); }
};

template <class State>
using Plan = std::unique_ptr<State, PlanDeleter>;

template <class State>
Plan<State> owned(State* plan) {
  if (!plan) throw std::bad_alloc();
  return Plan<State>(plan);
}

const kiss_fft_cpx* libraryType(const std::complex<float>* values) {
  return reinterpret_cast<const kiss_fft_cpx*>(values);
}
kiss_fft_cpx* libraryType(std::complex<float>* values) {
  return reinterpret_cast<kiss_fft_cpx*>(values);
}

}  // namespace

// The library's transform of real signals takes even lengths only; odd ones go through the complex
// transform.
struct RealFft::Plans {
  explicit Plans(int n) : length(n), isEven(n % 2 == 0) {
    if (isEven) {
      realForward = owned(kiss_fftr_alloc(n, 0, nullptr, nullptr));
      realInverse = owned(kiss_fftr_alloc(n, 1, nullptr, nullptr));
    } else {
      complexForward = owned(kiss_fft_alloc(n, 0, nullptr, nullptr));
      complexInverse = owned(kiss_fft_alloc(n, 1, nullptr, nullptr));
      input.resize(static_cast<std::size_t>(n));
      output.resize(static_cast<std::size_t>(n));
    }
  }

  int length;
  bool isEven;
  Plan<kiss_fftr_state> realForward;
  Plan<kiss_fftr_state> realInverse;
  Plan<kiss_fft_state> complexForward;
  Plan<kiss_fft_state> complexInverse;
  std::vector<std::complex<float>> input;
  std::vector<std::complex<float>> output;
};

RealFft::RealFft(int length) : plans(std::make_unique<Plans>(length)) {}
RealFft::~RealFft() = default;
RealFft::RealFft(RealFft&&) noexcept = default;
RealFft& RealFft::operator=(RealFft&&) noexcept = default;

void RealFft::forward(const float* samples, std::complex<float>* spectrum) {
  Plans& p = *plans;
  if (p.isEven) {
    kiss_fftr(p.realForward.get(), samples, libraryType(spectrum));
    return;
  }
  for (int n = 0; n < p.length; ++n) p.input[static_cast<std::size_t>(n)] = samples[n];
  kiss_fft(p.complexForward.get(), libraryType(p.input.data()), libraryType(p.output.data()));
  for (int k = 0; k <= p.length / 2; ++k) spectrum[k] = p.output[static_cast<std::size_t>(k)];
}

void RealFft::inverse(const std::complex<float>* spectrum, float* samples) {
  Plans& p = *plans;
  const float scale = 1.0F / static_cast<float>(p.length);
  if (p.isEven) {
    kiss_fftri(p.realInverse.get(), libraryType(spectrum), samples);
    for (int n = 0; n < p.length; ++n) samples[n] *= scale;
    return;
  }
  p.input[0] = spectrum[0].real();
  for (int k = 1; k <= p.length / 2; ++k) {
    p.input[static_cast<std::size_t>(k)] = spectrum[k];
    p.input[static_cast<std::size_t>(p.length - k)] = std::conj(spectrum[k]);
  }
  kiss_fft(p.complexInverse.get(), libraryType(p.input.data()), libraryType(p.output.data()));
  for (int n = 0; n < p.length; ++n) {
    samples[n] = p.output[static_cast<std::size_t>(n)].real() * scale;
  }
}

}  // namespace Audio
