#include "separation/refine/MaskedCovariance.h"

#include "matrix/Matrix.h"

namespace Separation {

void addOuterProduct(double keep, double weight, const std::complex<double>* x, std::size_t stride,
                     std::size_t M, std::complex<double>* R) {
  for (std::size_t i = 0; i < M; ++i) {
    const double re = weight * x[i * stride].real();
    const double im = weight * x[i * stride].imag();
    for (std::size_t j = 0; j < M; ++j, ++R) {
      const std::complex<double>& xj = x[j * stride];
      *R = {keep * R->real() + (re * xj.real() + im * xj.imag()),
            keep * R->imag() + (im * xj.real() - re * xj.imag())};
    }
  }
}

void applyRows(const std::complex<double>* W, const std::vector<std::size_t>& rows,
               const std::complex<double>* x, std::size_t stride, std::size_t M,
               std::complex<double>* y) {
  for (const std::size_t row : rows) {
    y[row * stride] =
        BF::dotProduct(W, 1, x, static_cast<std::ptrdiff_t>(stride), static_cast<int>(M));
    W += M;
  }
}

}  // namespace Separation
