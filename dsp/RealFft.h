#pragma once

#include <complex>
#include <memory>

namespace Audio {

/// Discrete Fourier transform of real signals of one length, even or odd.
///
/// X(k) = Σ x(n) · e^(−j2πkn/length) for k = 0 … length/2. Not to be used on two threads at once.
class RealFft {
 public:
  /// length ≥ 1.
  explicit RealFft(int length);
  ~RealFft();
  RealFft(RealFft&&) noexcept;
  RealFft& operator=(RealFft&&) noexcept;

  /// length samples to length/2 + 1 bins.
  void forward(const float* samples, std::complex<float>* spectrum);

  /// length/2 + 1 bins to length samples, divided by length: undoes forward(). The imaginary parts
  /// of bin 0 and of the bin at half the sampling rate do not count.
  void inverse(const std::complex<float>* spectrum, float* samples);

 private:
  struct Plans;
  std::unique_ptr<Plans> plans;
};

}  // namespace Audio
