#pragma once

#include <complex>
#include <cstddef>

namespace Separation {

/// The inverse of a Hermitian, positive definite A (M × M, row by row), of which the lower triangle
/// is read and overwritten: A = L · Lᴴ with a lower triangle L, and A⁻¹ = L⁻ᴴ · L⁻¹. Gives ln det A
/// where it is asked for. False, and nothing of use, if rounding leaves no inverse. Allocates
/// nothing.
bool invertHermitian(std::size_t M, std::complex<double>* A, std::complex<double>* inverse,
                     double* logDeterminant = nullptr);

}  // namespace Separation
