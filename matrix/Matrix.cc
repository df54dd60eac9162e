#include "matrix/Matrix.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdarg>
#include <cstring>

#include "matrix/ProcessorClones.h"

namespace BF {

namespace {

std::size_t elementCount(const Matrix& a) {
  return static_cast<std::size_t>(a.getRowCount()) * static_cast<std::size_t>(a.getColumnCount());
}

/// A matrix of a's shape whose element (i, j) is f(a(i, j)).
template <typename Function>
Matrix mapped(const Matrix& a, Function f) {
  Matrix result(a.getRowCount(), a.getColumnCount());
  const std::size_t count = elementCount(a);
  for (std::size_t i = 0; i < count; ++i) result.data()[i] = f(a.data()[i]);
  return result;
}

bool sameShape(const Matrix& a, const Matrix& b) {
  return a.getRowCount() == b.getRowCount() && a.getColumnCount() == b.getColumnCount();
}

/// A matrix of the common shape whose element (i, j) is f(a(i, j), b(i, j)).
template <typename Function>
Matrix combined(const Matrix& a, const Matrix& b, Function f) {
  if (!sameShape(a, b)) throw MatrixSizeMismatchException();
  Matrix result(a.getRowCount(), a.getColumnCount());
  const std::size_t count = elementCount(a);
  for (std::size_t i = 0; i < count; ++i) result.data()[i] = f(a.data()[i], b.data()[i]);
  return result;
}

/// Four complex numbers, real and imaginary parts in turn.
using Four = double __attribute__((vector_size(64)));

/// Σ_k a(k) · b(k, j) for four neighbouring columns j at once, each summed like dotProduct.
ZELK_INLINE void fourColumns(const std::complex<double>* a, int count,
                             const std::complex<double>* b, int columns,
                             std::complex<double>* result) {
  Four sum = {};
  for (int k = 0; k < count; ++k) {
    Four y;
    std::memcpy(&y, b, sizeof y);
    const double re = a[k].real();
    const double im = a[k].imag();
    const Four ims = {-im, im, -im, im, -im, im, -im, im};
    sum += re * y + ims * __builtin_shufflevector(y, y, 1, 0, 3, 2, 5, 4, 7, 6);
    b += columns;
  }
  std::memcpy(static_cast<void*>(result), &sum, sizeof sum);
}

/// A row (1 × count) times b (count × columns, a multiple of four of them).
ZELK_PROCESSOR_CLONES void rowTimesMatrix(const std::complex<double>* a, int count,
                                          const std::complex<double>* b, int columns, int stride,
                                          std::complex<double>* result) {
  for (int j = 0; j < columns; j += 4) fourColumns(a, count, b + j, stride, result + j);
}

/// result := a · b, m × count times count × columns.
void product(const std::complex<double>* a, int m, int count, const std::complex<double>* b,
             int columns, std::complex<double>* result) {
  const int inFours = columns - columns % 4;
  for (int i = 0; i < m; ++i) {
    if (inFours > 0) rowTimesMatrix(a, count, b, inFours, columns, result);
    // The last four once more where columns are left over: each is summed by itself.
    if (inFours > 0 && inFours < columns) {
      rowTimesMatrix(a, count, b + columns - 4, 4, columns, result + columns - 4);
    }
    for (int j = 0; j < columns; ++j) {
      const bool known = inFours > 0 && result[j].real() == result[j].real() &&
                         result[j].imag() == result[j].imag();
      if (!known) result[j] = dotProduct(a, 1, b + j, columns, count);
    }
    a += count;
    result += columns;
  }
}

/// Ends the process when the shapes differ, unless an exception is being handled.
void requireSameShape(const Matrix& a, const Matrix& b) {
  // A bare throw, on purpose: operands of a sum that do not fit are a defect of the engine itself,
  // which must not go on.
  if (a.getRowCount() != b.getRowCount()) throw;
  if (a.getColumnCount() != b.getColumnCount()) throw;
}

}  // namespace

Matrix::Matrix(int rowCount, int columnCount)
    : rows(rowCount),
      columns(columnCount),
      elements(std::make_unique<std::complex<double>[]>(static_cast<std::size_t>(rowCount) *
                                                        static_cast<std::size_t>(columnCount))) {}

Matrix::Matrix(const Matrix& other) : rows(other.rows), columns(other.columns) {
  if (!other.elements) return;
  const std::size_t count = offset(rows, 0);
  elements = std::make_unique<std::complex<double>[]>(count);
  std::copy_n(other.elements.get(), count, elements.get());
}

Matrix& Matrix::operator=(const Matrix& other) {
  if (this == &other) return *this;
  if (sameShape(*this, other)) {
    std::copy_n(other.elements.get(), elementCount(other), elements.get());
  } else {
    Matrix copy(other);
    swap(copy);
  }
  return *this;
}

Matrix Matrix::getColumn(int column) const {
  if (column >= columns) throw IndexOutOfBoundException();
  Matrix result(rows, 1);
  const std::complex<double>* from = elements.get() + column;
  for (int i = 0; i < rows; ++i, from += columns) result.elements[i] = *from;
  return result;
}

void Matrix::setColumn(int column, const Matrix& vector) {
  if (column >= columns) throw IndexOutOfBoundException();
  if (vector.rows != rows) throw MatrixSizeMismatchException();
  if (vector.columns != 1) throw NotVectorException();
  std::complex<double>* to = elements.get() + column;
  for (int i = 0; i < rows; ++i, to += columns) *to = vector.elements[i];
}

Matrix Matrix::getRow(int row) const {
  if (row >= rows) throw IndexOutOfBoundException();
  Matrix result(1, columns);
  std::copy_n(elements.get() + offset(row, 0), columns, result.elements.get());
  return result;
}

void Matrix::setRow(int row, const Matrix& vector) {
  if (row >= rows) throw IndexOutOfBoundException();
  if (vector.columns != columns) throw MatrixSizeMismatchException();
  if (vector.rows != 1) throw NotVectorException();
  std::copy_n(vector.elements.get(), columns, elements.get() + offset(row, 0));
}

Matrix Matrix::getSubmatrix(int firstRow, int firstColumn, int rowCount, int columnCount) const {
  if (firstRow < 0 || firstColumn < 0 || firstRow > rows - rowCount ||
      firstColumn > columns - columnCount) {
    throw IndexOutOfBoundException();
  }
  Matrix result(rowCount, columnCount);
  for (int i = 0; i < rowCount; ++i) {
    for (int j = 0; j < columnCount; ++j) {
      result.setElementAt(i, j, getElementAt(firstRow + i, firstColumn + j));
    }
  }
  return result;
}

void Matrix::setSubmatrix(int firstRow, int firstColumn, const Matrix& block) {
  if (firstRow < 0 || firstColumn < 0 || firstRow > rows - block.rows ||
      firstColumn > columns - block.columns) {
    throw IndexOutOfBoundException();
  }
  for (int i = 0; i < block.rows; ++i) {
    for (int j = 0; j < block.columns; ++j) {
      setElementAt(firstRow + i, firstColumn + j, block.getElementAt(i, j));
    }
  }
}

Matrix Matrix::diagonalElements() const {
  const int n = std::min(rows, columns);
  Matrix result(n, 1);
  for (int i = 0; i < n; ++i) result.setElementAt(i, 0, getElementAt(i, i));
  return result;
}

Matrix Matrix::diagonalMatrix() const {
  if (rows != 1 && columns != 1) throw NotVectorException();
  const bool isColumn = rows != 1;
  const int n = isColumn ? rows : columns;
  Matrix result(n, n);
  for (int i = 0; i < n; ++i) {
    result.setElementAt(i, i, isColumn ? getElementAt(i, 0) : getElementAt(0, i));
  }
  return result;
}

Matrix Matrix::I(int n) {
  Matrix result(n, n);
  for (int i = 0; i < n; ++i) result.setElementAt(i, i, 1.0, 0.0);
  return result;
}

Matrix Matrix::O(int rowCount, int columnCount) { return {rowCount, columnCount}; }

Matrix Matrix::transposed(bool conj) const {
  Matrix result(columns, rows);
  for (int i = 0; i < rows; ++i) {
    for (int j = 0; j < columns; ++j) {
      const std::complex<double>& z = elements[offset(i, j)];
      result.elements[result.offset(j, i)] = conj ? std::conj(z) : z;
    }
  }
  return result;
}

Matrix& Matrix::transpose(bool conj) { return *this = transposed(conj); }

Matrix Matrix::conjugated() const {
  return mapped(*this, [](const std::complex<double>& z) { return std::conj(z); });
}

Matrix& Matrix::conjugate() { return *this = conjugated(); }

Matrix Matrix::multiplied(const Matrix& b) const {
  if (columns != b.rows) throw MatrixSizeMismatchException();
  Matrix result(rows, b.columns);
  product(elements.get(), rows, columns, b.elements.get(), b.columns, result.elements.get());
  return result;
}

Matrix& Matrix::multiply(const Matrix& b) { return *this = multiplied(b); }

Matrix Matrix::elementwiseSqrt() const {
  return mapped(*this, [](const std::complex<double>& z) { return std::sqrt(z); });
}

Matrix Matrix::elementwiseAbs() const {
  return mapped(
      *this, [](const std::complex<double>& z) { return std::complex<double>(std::abs(z), 0.0); });
}

Matrix Matrix::absoluteValues() const { return elementwiseAbs(); }

Matrix Matrix::elementwiseNorm() const {
  return mapped(*this, [](const std::complex<double>& z) {
    const double modulus = std::abs(z);
    return std::complex<double>(modulus * modulus, 0.0);
  });
}

Matrix Matrix::elementwiseDivided(const Matrix& b) const {
  return combined(*this, b, [](const auto& x, const auto& y) { return x / y; });
}

Matrix Matrix::elementwiseMultiplied(const Matrix& b) const {
  return combined(*this, b, [](const auto& x, const auto& y) { return x * y; });
}

Matrix Matrix::elementwiseFMultiplied(const Matrix& b) const {
  return combined(*this, b, [](const auto& x, const auto& y) { return std::conj(x) * y; });
}

std::complex<double> Matrix::getElementSum() const {
  std::complex<double> sum = 0.0;
  for (int i = 0; i < rows; ++i) {
    for (int j = 0; j < columns; ++j) sum += getElementAt(i, j);
  }
  return sum;
}

std::complex<double> Matrix::scalar() const {
  if (rows != 1 || columns != 1) throw NotScalarException();
  return getElementAt(0, 0);
}

std::complex<double> Matrix::norm() const {
  if (rows != 1 && columns != 1) throw NotVectorException();
  std::complex<double> sum = 0.0;
  for (int i = 0; i < rows; ++i) {
    for (int j = 0; j < columns; ++j) sum += std::conj(getElementAt(i, j)) * getElementAt(i, j);
  }
  return sum;
}

std::complex<double> Matrix::frobeniusNorm() const {
  if (rows == 0) return 0.0;
  std::complex<double> sum = 0.0;
  for (int i = 0; i < rows; ++i) {
    for (int j = 0; j < columns; ++j) sum += std::conj(getElementAt(i, j)) * getElementAt(i, j);
  }
  return std::sqrt(sum);
}

std::complex<double> Matrix::getMaximumValue() const {
  std::complex<double> best = 0.0;
  double bestModulus = 0.0;
  for (int i = 0; i < rows; ++i) {
    for (int j = 0; j < columns; ++j) {
      const double modulus = std::abs(getElementAt(i, j));
      if (modulus > bestModulus) {
        best = getElementAt(i, j);
        bestModulus = modulus;
      }
    }
  }
  return best;
}

int Matrix::getMaximumValueIndexInRow(int row) const {
  if (columns == 0) return 0;
  int best = 0;
  double bestModulus = std::abs(getElementAt(row, 0));
  for (int j = 1; j < columns; ++j) {
    const double modulus = std::abs(getElementAt(row, j));
    if (modulus > bestModulus) {
      best = j;
      bestModulus = modulus;
    }
  }
  return best;
}

int Matrix::getMaximumValueIndexInColumn(int column) const {
  if (rows == 0) return 0;
  int best = 0;
  double bestModulus = std::abs(getElementAt(0, column));
  for (int i = 1; i < rows; ++i) {
    const double modulus = std::abs(getElementAt(i, column));
    if (modulus > bestModulus) {
      best = i;
      bestModulus = modulus;
    }
  }
  return best;
}

void Matrix::dump(FILE* stream, const char* format, ...) const {
  va_list arguments;
  va_start(arguments, format);
  // The linter does not see va_start.
  std::vfprintf(stream, format, arguments);  // NOLINT(clang-analyzer-valist.Uninitialized)
  va_end(arguments);

  std::fprintf(stream, ": rows=%u, cols=%u\n", static_cast<unsigned>(rows),
               static_cast<unsigned>(columns));
  std::fprintf(stream, "[ ");
  for (int i = 0; i < rows; ++i) {
    for (int j = 0; j < columns; ++j) {
      const std::complex<double>& z = getElementAt(i, j);
      std::fprintf(stream, "%.6f%+.6fi ", z.real(), z.imag());
    }
    std::fprintf(stream, "\n");
  }
  std::fprintf(stream, "]\n");
}

void Matrix::dump(FILE* stream) const {
  dump(stream, "Matrix: %p", static_cast<const void*>(this));
}

void multiplyInto(const Matrix& a, const Matrix& b, Matrix& result) {
  const int count = a.getColumnCount();
  const int columns = b.getColumnCount();
  if (count != b.getRowCount() || result.getRowCount() != a.getRowCount() ||
      result.getColumnCount() != columns) {
    throw MatrixSizeMismatchException();
  }
  product(a.data(), a.getRowCount(), count, b.data(), columns, result.data());
}

void multiplyAdjointInto(const Matrix& a, const Matrix& b, Matrix& result) {
  const int count = a.getColumnCount();
  if (count != b.getColumnCount() || result.getRowCount() != a.getRowCount() ||
      result.getColumnCount() != b.getRowCount()) {
    throw MatrixSizeMismatchException();
  }
  std::complex<double>* element = result.data();
  for (int i = 0; i < a.getRowCount(); ++i) {
    for (int j = 0; j < b.getRowCount(); ++j) {
      *element++ =
          dotProductWithConjugate(a.data() + static_cast<std::ptrdiff_t>(i) * count,
                                  b.data() + static_cast<std::ptrdiff_t>(j) * count, count);
    }
  }
}

void reshape(Matrix& matrix, int rows, int columns) {
  if (matrix.getRowCount() != rows || matrix.getColumnCount() != columns) {
    matrix = Matrix(rows, columns);
  }
}

bool sameBits(const Matrix& a, const Matrix& b) {
  if (!sameShape(a, b)) return false;
  const std::size_t count = elementCount(a);
  return count == 0 || std::memcmp(a.data(), b.data(), count * sizeof(std::complex<double>)) == 0;
}

void copyRow(const Matrix& a, int from, Matrix& b, int to) {
  if (from >= a.getRowCount() || to >= b.getRowCount()) throw IndexOutOfBoundException();
  const int columns = a.getColumnCount();
  if (columns != b.getColumnCount()) throw MatrixSizeMismatchException();
  std::copy_n(a.data() + static_cast<std::ptrdiff_t>(from) * columns, columns,
              b.data() + static_cast<std::ptrdiff_t>(to) * columns);
}

void copyColumn(const Matrix& a, int from, Matrix& vector) {
  if (from >= a.getColumnCount()) throw IndexOutOfBoundException();
  if (vector.getRowCount() != a.getRowCount() || vector.getColumnCount() != 1) {
    throw MatrixSizeMismatchException();
  }
  const std::complex<double>* element = a.data() + from;
  for (int i = 0; i < a.getRowCount(); ++i, element += a.getColumnCount()) {
    vector.data()[i] = *element;
  }
}

Matrix operator*(const Matrix& a, const Matrix& b) { return a.multiplied(b); }

Matrix operator*(const Matrix& a, const std::complex<double>& s) {
  return mapped(a, [&s](const std::complex<double>& z) { return z * s; });
}

Matrix operator*(const std::complex<double>& s, const Matrix& a) { return a * s; }

Matrix operator+(const Matrix& a, const Matrix& b) {
  requireSameShape(a, b);
  return combined(a, b, [](const auto& x, const auto& y) { return x + y; });
}

Matrix operator-(const Matrix& a, const Matrix& b) {
  requireSameShape(a, b);
  return combined(a, b, [](const auto& x, const auto& y) { return x - y; });
}

}  // namespace BF
