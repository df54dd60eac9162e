#pragma once

#include <exception>

namespace BF {

/// An index or an index range lies outside the matrix.
class IndexOutOfBoundException : public std::exception {};

/// The shapes of two operands do not fit the operation.
class MatrixSizeMismatchException : public std::exception {};

/// An operation that needs a square matrix got another shape.
class NotSquareMatrixException : public std::exception {};

/// An operation that needs a row or a column vector got another shape.
class NotVectorException : public std::exception {};

/// An operation that needs a 1 × 1 matrix got another shape.
class NotScalarException : public std::exception {};

/// The separation engine is in a state, or got a setting, with which the call cannot go on.
class InvalidStateException : public std::exception {};

}  // namespace BF
