#pragma once

#include <complex>

namespace Separation {

/// a · b, without the care for infinities that the operator takes.
inline std::complex<double> times(const std::complex<double>& a, const std::complex<double>& b) {
  return {a.real() * b.real() - a.imag() * b.imag(), a.real() * b.imag() + a.imag() * b.real()};
}

/// a · conj(b), likewise.
inline std::complex<double> timesConjugate(const std::complex<double>& a,
                                           const std::complex<double>& b) {
  return {a.real() * b.real() + a.imag() * b.imag(), a.imag() * b.real() - a.real() * b.imag()};
}

}  // namespace Separation
