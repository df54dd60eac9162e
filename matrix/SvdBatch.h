#pragma once

#include "matrix/Batch.h"

namespace BF {

// Singular-value decompositions of a Batch, of which only what the result needs is formed. Matrices
// beyond 2^±1000 are decomposed one by one. All throw MatrixSizeMismatchException for operands of
// different shapes.

/// result := operand.pseudoInverse().
void pseudoInverses(const Batch& batch);

/// result := operand.inverseCholeskyFactor(). Throws NotSquareMatrixException.
void inverseCholeskyFactors(const Batch& batch);

/// result := columns n … m − 1 of the U that operand.singularValueDecomposition(U, S, V) gives for
/// an m × n operand with m ≥ n: an orthonormal basis of the vectors v with Aᴴ · v = 0. Throws
/// MatrixSizeMismatchException when m < n.
void orthogonalComplements(const Batch& batch);

/// result := column 0 of that U for a square operand, the left singular vector (n × 1) of the
/// largest singular value. Throws NotSquareMatrixException, and IndexOutOfBoundException for 0 × 0.
void principalSingularVectors(const Batch& batch);

}  // namespace BF
