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

/// x = A⁻¹ · b of n values for such an A, which becomes L, and the form bᴴ · A⁻¹ · b. False, and
/// nothing of use, if rounding leaves no inverse. Allocates nothing.
bool solveHermitian(std::size_t n, std::complex<double>* A, const std::complex<double>* b,
                    std::complex<double>* x, double& form);

}  // namespace Separation
