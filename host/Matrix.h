#pragma once

#include <cstddef>
#include <memory>

#include "ObjectRef.h"

namespace FD {
inline namespace zelk {

/// A dense row-major matrix that travels through a network as an object: element (r, c) stands at
/// r × ncols() + c. Indices are not checked.
template <class T>
class Matrix : public Object {
 public:
  Matrix() : Matrix(0, 0) {}
  /// rows × cols elements T().
  Matrix(std::size_t rows, std::size_t cols)
      : rowCount(rows), columnCount(cols), elements(new T[rows * cols]()) {}
  Matrix(const Matrix& other)
      : Object(other),
        rowCount(other.rowCount),
        columnCount(other.columnCount),
        elements(new T[rowCount * columnCount]()) {
    for (std::size_t i = 0; i < rowCount * columnCount; ++i) elements[i] = other.elements[i];
  }
  Matrix& operator=(const Matrix& other) {
    Matrix copy(other);
    rowCount = copy.rowCount;
    columnCount = copy.columnCount;
    elements.swap(copy.elements);
    return *this;
  }

  std::size_t nrows() const { return rowCount; }
  std::size_t ncols() const { return columnCount; }

  T& operator()(std::size_t row, std::size_t column) {
    return elements[row * columnCount + column];
  }
  const T& operator()(std::size_t row, std::size_t column) const {
    return elements[row * columnCount + column];
  }

  /// The first element of a row.
  T* operator[](std::size_t row) { return elements.get() + row * columnCount; }
  const T* operator[](std::size_t row) const { return elements.get() + row * columnCount; }

  void printOn(std::ostream& out) const override {
    out << "<Matrix " << rowCount << " " << columnCount;
    for (std::size_t i = 0; i < rowCount * columnCount; ++i) out << " " << elements[i];
    out << " >";
  }

  ObjectRef clone() override { return ObjectRef(new Matrix(*this)); }

 private:
  std::size_t rowCount;
  std::size_t columnCount;
  std::unique_ptr<T[]> elements;
};

}  // namespace zelk
}  // namespace FD
