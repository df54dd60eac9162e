#pragma once

#include <complex>
#include <cstddef>

#include <vector>

namespace Separation {

/// R ← keep · R + weight · x · xᴴ in one bin: R (M × M) at `R`, x_i at x[i · stride].
void addOuterProduct(double keep, double weight, const std::complex<double>* x, std::size_t stride,
                     std::size_t M, std::complex<double>* R);

/// W (N × M) applied to the observation of one bin: row s of the result goes to y[rows[s] ·
/// stride].
void applyRows(const std::complex<double>* W, const std::vector<std::size_t>& rows,
               const std::complex<double>* x, std::size_t stride, std::size_t M,
               std::complex<double>* y);

}  // namespace Separation
