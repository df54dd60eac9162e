#pragma once

#include <vector>

/// r(τ) = Σ_n x(n) · y(n + τ) for τ = −maxLag … maxLag, at index τ + maxLag; samples beyond the
/// ends count as zeros. Double precision throughout; by FFT in blocks unless maxLag is 0.
std::vector<double> crossCorrelation(const std::vector<double>& x, const std::vector<double>& y,
                                     int maxLag);

/// y(n) = Σ_d h(d) · x(n − d), all x.size() + h.size() − 1 samples of it. h must not be empty.
/// Double precision throughout; by FFT in blocks unless h has one value.
std::vector<double> convolution(const std::vector<double>& x, const std::vector<double>& h);
