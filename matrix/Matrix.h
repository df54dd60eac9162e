#pragma once

#include <complex>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <span>
#include <utility>

#include "matrix/Exceptions.h"

namespace BF {

/// Numbers of this modulus or below count as zero throughout the engine.
inline constexpr double SMALL_NUMBER = 1e-10;

/// Dense matrix of double-precision complex numbers: a plain value that owns its elements.
///
/// Storage is row-major: element (r, c) stands at index r × columns + c. A column vector is an
/// n × 1 matrix. Indices are checked against the upper bounds only: a negative index is the
/// caller's error and is not detected. Misuse throws one of the classes of Exceptions.h by value
/// and leaves the matrix as it was.
class Matrix {
 public:
  /// An empty matrix: 0 × 0, no storage.
  Matrix() = default;

  /// rowCount × columnCount zeros.
  Matrix(int rowCount, int columnCount);

  /// A copy with elements of its own.
  Matrix(const Matrix& other);

  /// Takes the elements; other is empty afterwards.
  Matrix(Matrix&& other) noexcept { swap(other); }

  /// Becomes a copy with elements of its own, in the storage that is there when the shapes are
  /// equal.
  Matrix& operator=(const Matrix& other);

  /// Exchanges the elements with other's.
  Matrix& operator=(Matrix&& other) noexcept;
  ~Matrix() = default;

  /// Exchanges shape and elements.
  void swap(Matrix& other) noexcept;

  int getRowCount() const { return rows; }        ///< How many rows.
  int getColumnCount() const { return columns; }  ///< How many columns.

  /// An element. Throws IndexOutOfBoundException when row ≥ rows or column ≥ columns.
  const std::complex<double>& getElementAt(int row, int column) const;

  /// Sets an element. Throws as getElementAt does.
  void setElementAt(int row, int column, const std::complex<double>& value);

  /// The same from real and imaginary part.
  void setElementAt(int row, int column, double real, double imaginary);

  /// The elements, row by row; null when there are none. For loops over many elements.
  const std::complex<double>* data() const { return elements.get(); }

  /// The same, to be written.
  std::complex<double>* data() { return elements.get(); }

  // ---- rows, columns, blocks and diagonals

  /// One row's elements, where they stand: valid while the matrix keeps its storage. Throws
  /// IndexOutOfBoundException.
  std::span<const std::complex<double>> row(int index) const;

  /// The same, to be written.
  std::span<std::complex<double>> row(int index);

  /// Copy of one column (rows × 1). Throws IndexOutOfBoundException.
  Matrix getColumn(int column) const;

  /// Copy of one row (1 × columns). Throws IndexOutOfBoundException.
  Matrix getRow(int row) const;

  /// Replaces one column by a rows × 1 matrix. Throws, in this order: IndexOutOfBoundException;
  /// MatrixSizeMismatchException when the vector's length differs; NotVectorException when it has
  /// more than one column.
  void setColumn(int column, const Matrix& vector);

  /// The same for a row, by a 1 × columns matrix.
  void setRow(int row, const Matrix& vector);

  /// Copy of the rowCount × columnCount block whose first element is (firstRow, firstColumn).
  /// Throws IndexOutOfBoundException unless the block lies inside.
  Matrix getSubmatrix(int firstRow, int firstColumn, int rowCount, int columnCount) const;

  /// Replaces the block whose first element is (firstRow, firstColumn). Throws as getSubmatrix.
  void setSubmatrix(int firstRow, int firstColumn, const Matrix& block);

  /// The diagonal as a min(rows, columns) × 1 column.
  Matrix diagonalElements() const;

  /// The square matrix with this vector's elements on its diagonal and zeros elsewhere.
  /// Throws NotVectorException when neither count is 1.
  Matrix diagonalMatrix() const;

  /// The n × n identity.
  static Matrix I(int n);

  /// rowCount × columnCount zeros.
  static Matrix O(int rowCount, int columnCount);

  // ---- transposition and conjugation

  /// columns × rows; conj = true gives the conjugate transpose, false the plain one.
  Matrix transposed(bool conj) const;

  /// The same in place; returns this matrix.
  Matrix& transpose(bool conj);

  /// Every element conjugated.
  Matrix conjugated() const;

  /// The same in place; returns this matrix.
  Matrix& conjugate();

  // ---- arithmetic

  /// Matrix product this · b, rows × b.columns, each element summed from 0 in index order.
  /// Throws MatrixSizeMismatchException unless columns = b.rows.
  Matrix multiplied(const Matrix& b) const;

  /// This matrix becomes this · b; returns it. Throws as multiplied does.
  Matrix& multiply(const Matrix& b);

  Matrix elementwiseSqrt() const;  ///< Every element's principal square root.
  Matrix elementwiseAbs() const;   ///< Every element's modulus.
  Matrix absoluteValues() const;   ///< The same as elementwiseAbs.
  Matrix elementwiseNorm() const;  ///< Every element's squared modulus.

  /// this / b, element by element. Throws MatrixSizeMismatchException unless the shapes are equal.
  Matrix elementwiseDivided(const Matrix& b) const;

  /// this · b, element by element. Throws as elementwiseDivided does.
  Matrix elementwiseMultiplied(const Matrix& b) const;

  /// conj(this) · b, element by element. Throws as elementwiseDivided does.
  Matrix elementwiseFMultiplied(const Matrix& b) const;

  // ---- reductions

  /// Sum of all elements, row by row.
  std::complex<double> getElementSum() const;

  /// The only element of a 1 × 1 matrix. Throws NotScalarException for any other shape.
  std::complex<double> scalar() const;

  /// The squared Euclidean norm of a row or column vector (no square root), Σ conj(z) · z.
  /// Throws NotVectorException for any other shape.
  std::complex<double> norm() const;

  /// Square root of Σ conj(z) · z over all elements; 0 for a matrix with no rows.
  std::complex<double> frobeniusNorm() const;

  /// The element of largest modulus, the first of equals; 0 for a matrix that is zero or empty.
  std::complex<double> getMaximumValue() const;

  /// Column index of the element of largest modulus in a row, the first of equals; 0 when there are
  /// no elements. Throws IndexOutOfBoundException.
  int getMaximumValueIndexInRow(int row) const;

  /// Row index of the element of largest modulus in a column, the first of equals; 0 when there are
  /// no elements. Throws IndexOutOfBoundException.
  int getMaximumValueIndexInColumn(int column) const;

  // ---- decompositions; every output argument is replaced whole

  /// Inverse by Gauss–Jordan elimination (without scaled pivoting; Golub & Van Loan, Matrix
  /// Computations, chapter 3). Does not throw: a matrix that is not square gives zeros
  /// of its own shape and a message on standard output; a singular one gives a message and
  /// elements that are not finite.
  Matrix Inverse() const;

  /// Moore–Penrose pseudo-inverse (columns × rows) V · Σ⁺ · Uᴴ (ibid., chapter 5); singular
  /// values up to SMALL_NUMBER count as 0.
  Matrix pseudoInverse() const;

  /// A = U · diag(S) · Vᴴ for this m × n matrix A: U (m × m) and V (n × n) unitary, S a
  /// max(m, n) × 1 column, real, non-negative, in decreasing order, zero beyond min(m, n).
  void singularValueDecomposition(Matrix& U, Matrix& S, Matrix& V) const;

  /// The decomposition above of B⁻¹ · A, with B (m × m) inverted by Inverse(). A B of another
  /// number of rows, whose Inverse() is zero, gives that of the m × n matrix of zeros. Throws
  /// MatrixSizeMismatchException unless B has m columns.
  void generalizedSingularValues(const Matrix& B, Matrix& U, Matrix& S, Matrix& V) const;

  /// A · vectors = vectors · diag(values) for this Hermitian n × n matrix A, of which only the
  /// upper triangle is read: values (n × 1, real, in no particular order), vectors (n × n,
  /// unitary). Throws NotSquareMatrixException. Not to be called on two threads at once.
  void eigenValues(Matrix& values, Matrix& vectors) const;

  /// A · x = λ · B · x for Hermitian A and Hermitian positive-definite B, both n × n: values (n ×
  /// 1) and vectors (n × n), through the Cholesky factor of B (ibid., chapter 8). Throws
  /// NotSquareMatrixException. Not to be called on two threads at once.
  void generalizedEigenValues(const Matrix& B, Matrix& values, Matrix& vectors) const;

  /// R⁻¹ for the upper triangular R with Rᴴ · R = this matrix (Cholesky; ibid., chapter 4): what
  /// generalizedEigenValues takes of its B. Throws NotSquareMatrixException.
  Matrix inverseCholeskyFactor() const;

  // ---- text

  /// Writes the label (printf rules), the shape and the elements to a stream.
  [[gnu::format(printf, 3, 4)]] void dump(FILE* stream, const char* format, ...) const;

  /// The same with the label "Matrix: " and this object's address.
  void dump(FILE* stream) const;

 private:
  std::size_t offset(int row, int column) const {
    return static_cast<std::size_t>(row) * static_cast<std::size_t>(columns) +
           static_cast<std::size_t>(column);
  }

  int rows = 0;
  int columns = 0;
  std::unique_ptr<std::complex<double>[]> elements;
};

/// Σ a[i · aStride] · b[i · bStride] over i = 0 … count − 1, summed in this order from 0: an
/// element of a matrix product.
std::complex<double> dotProduct(const std::complex<double>* a, std::ptrdiff_t aStride,
                                const std::complex<double>* b, std::ptrdiff_t bStride, int count);

/// Σ a[i] · conj(b[i]) over i = 0 … count − 1, likewise: an element of a · bᴴ.
std::complex<double> dotProductWithConjugate(const std::complex<double>* a,
                                             const std::complex<double>* b, int count);

/// result := a · b, bit for bit what the product of Matrix gives, into a matrix that has the
/// product's shape already. For loops over the bins, which need no new storage each time. Throws
/// MatrixSizeMismatchException unless all shapes fit; result is neither a nor b.
void multiplyInto(const Matrix& a, const Matrix& b, Matrix& result);

/// result := a · bᴴ, in the same way.
void multiplyAdjointInto(const Matrix& a, const Matrix& b, Matrix& result);

/// Makes matrix rows × columns, to be filled whole: zeros, or whatever it holds when it has this
/// shape already.
void reshape(Matrix& matrix, int rows, int columns);

/// Whether two matrices have the same shape and the same bytes, so that what follows from one
/// follows from the other to the bit.
bool sameBits(const Matrix& a, const Matrix& b);

/// Row `to` of b := row `from` of a. Throws IndexOutOfBoundException for a row that is not there,
/// MatrixSizeMismatchException when the column counts differ.
void copyRow(const Matrix& a, int from, Matrix& b, int to);

/// vector := column `from` of a; vector has a.rows × 1 elements already. Throws
/// IndexOutOfBoundException for a column that is not there, MatrixSizeMismatchException when the
/// row counts differ.
void copyColumn(const Matrix& a, int from, Matrix& vector);

/// Matrix product. Throws MatrixSizeMismatchException unless a.columns = b.rows.
Matrix operator*(const Matrix& a, const Matrix& b);

/// Every element times s.
Matrix operator*(const Matrix& a, const std::complex<double>& s);

/// Every element times s.
Matrix operator*(const std::complex<double>& s, const Matrix& a);

/// Element-wise sum. Shapes that differ are fatal: the process ends (std::terminate), unless an
/// exception is being handled, which is then thrown again.
Matrix operator+(const Matrix& a, const Matrix& b);

/// Element-wise difference, with shapes as in the sum.
Matrix operator-(const Matrix& a, const Matrix& b);

inline const std::complex<double>& Matrix::getElementAt(int row, int column) const {
  if (row >= rows || column >= columns) throw IndexOutOfBoundException();
  return elements[offset(row, column)];
}

inline std::span<const std::complex<double>> Matrix::row(int index) const {
  if (index >= rows) throw IndexOutOfBoundException();
  return {elements.get() + offset(index, 0), static_cast<std::size_t>(columns)};
}

inline std::span<std::complex<double>> Matrix::row(int index) {
  if (index >= rows) throw IndexOutOfBoundException();
  return {elements.get() + offset(index, 0), static_cast<std::size_t>(columns)};
}

inline void Matrix::setElementAt(int row, int column, const std::complex<double>& value) {
  if (row >= rows || column >= columns) throw IndexOutOfBoundException();
  elements[offset(row, column)] = value;
}

inline void Matrix::setElementAt(int row, int column, double real, double imaginary) {
  setElementAt(row, column, std::complex<double>(real, imaginary));
}

inline std::complex<double> dotProduct(const std::complex<double>* a, std::ptrdiff_t aStride,
                                       const std::complex<double>* b, std::ptrdiff_t bStride,
                                       int count) {
  // The plain formula; where complex multiplication gives something else, this gives NaN.
  double re = 0.0;
  double im = 0.0;
  for (int i = 0; i < count; ++i) {
    const std::complex<double> x = a[i * aStride];
    const std::complex<double> y = b[i * bStride];
    re += x.real() * y.real() - x.imag() * y.imag();
    im += x.real() * y.imag() + x.imag() * y.real();
  }
  if (re == re && im == im) return {re, im};
  std::complex<double> sum = 0.0;
  for (int i = 0; i < count; ++i) sum += a[i * aStride] * b[i * bStride];
  return sum;
}

inline std::complex<double> dotProductWithConjugate(const std::complex<double>* a,
                                                    const std::complex<double>* b, int count) {
  double re = 0.0;
  double im = 0.0;
  for (int i = 0; i < count; ++i) {
    const double yIm = -b[i].imag();
    re += a[i].real() * b[i].real() - a[i].imag() * yIm;
    im += a[i].real() * yIm + a[i].imag() * b[i].real();
  }
  if (re == re && im == im) return {re, im};
  std::complex<double> sum = 0.0;
  for (int i = 0; i < count; ++i) sum += a[i] * std::conj(b[i]);
  return sum;
}

inline void Matrix::swap(Matrix& other) noexcept {
  std::swap(rows, other.rows);
  std::swap(columns, other.columns);
  elements.swap(other.elements);
}

inline Matrix& Matrix::operator=(Matrix&& other) noexcept {
  swap(other);
  return *this;
}

}  // namespace BF

namespace std {
template <>
inline void swap(BF::Matrix& a, BF::Matrix& b) noexcept {
  a.swap(b);
}
}  // namespace std
