#include "bf/Fixed.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstddef>

namespace BF {

namespace {

/// Delay-and-sum. Row n of W has the entries conj(a_i) / (|a_i| · Σ_j |a_j|), a = column n of A.
void fillDelayAndSum(const Matrix& A, Matrix& W) {
  for (int n = 0; n < A.getColumnCount(); ++n) {
    Matrix a = A.getColumn(n);
    const Matrix r = a.elementwiseAbs();
    const std::complex<double> S = r.getElementSum();
    for (int i = 0; i < A.getRowCount(); ++i) {
      const std::complex<double> t = r.getElementAt(i, 0) * S;
      if (BF::BF_EPS > std::abs(t)) {
        a.setElementAt(i, 0, a.getElementAt(i, 0) / (t + BF::BF_EPS));
      } else {
        a.setElementAt(i, 0, (a.getElementAt(i, 0) / r.getElementAt(i, 0)) / S);
      }
    }
    W.setRow(n, a.transposed(true));
  }
}

/// Weighted delay-and-sum. Row n of W = pinv(a_n).
void fillWeightedDelayAndSum(const Matrix& A, Matrix& W) {
  for (int n = 0; n < A.getColumnCount(); ++n) W.setRow(n, A.getColumn(n).pseudoInverse());
}

/// The columns of A except column n, in their order: M × (N − 1).
Matrix otherColumns(const Matrix& A, int n) {
  Matrix B(A.getRowCount(), A.getColumnCount() - 1);
  for (int j = 0; j < B.getColumnCount(); ++j) B.setColumn(j, A.getColumn(j < n ? j : j + 1));
  return B;
}

/// An orthonormal basis of the vectors v with aᵀ · v = 0, M × (M − 1), for a row aᵀ (1 × M): its
/// right singular vectors but the first.
Matrix nullSpace(const Matrix& aT) {
  const int M = aT.getColumnCount();
  Matrix U;
  Matrix S;
  Matrix V(M, M);
  aT.singularValueDecomposition(U, S, V);
  const int first = std::min(1, M);
  return V.getSubmatrix(0, first, M, M - first);
}

/// ILSE. Among all w with aᵀ · w = 1 the one whose responses Bᵀ · w to the other sources are the
/// smallest in the least-squares sense:
///   h      M × 1              pinv(aᵀ), the minimum-norm solution of aᵀ · h = 1
///   V_null M × (M − 1)        basis of the space orthogonal to it
///   B      M × (N − 1)        the other sources' columns
///   G      (N − 1) × (M − 1)  Bᵀ · V_null
///   z      (M − 1) × 1        −pinv(G) · Bᵀ · h
///   w      M × 1              h + V_null · z; row n of W = wᵀ
void fillIlse(const Matrix& A, Matrix& W) {
  const int N = A.getColumnCount();
  for (int n = 0; n < N; ++n) {
    const Matrix aT = A.getColumn(n).transposed(false);
    const Matrix h = aT.pseudoInverse();
    if (N == 1) {
      W.setRow(n, h.transposed(false));
      continue;
    }
    const Matrix Vnull = nullSpace(aT);
    const Matrix BT = otherColumns(A, n).transposed(false);
    const Matrix G = BT * Vnull;
    const Matrix z = std::complex<double>(-1.0, 0.0) * G.pseudoInverse() * BT * h;
    const Matrix w = h + Vnull * z;
    W.setRow(n, w.transposed(false));
  }
}

/// The formula of an algorithm number; zeros for one that is not of this family.
Matrix separationMatrix(int type, const Matrix& A) {
  Matrix W(A.getColumnCount(), A.getRowCount());
  switch (type) {
    case BF_ALGORITHM_DS:
      fillDelayAndSum(A, W);
      break;
    case BF_ALGORITHM_WDS:
      fillWeightedDelayAndSum(A, W);
      break;
    case BF_ALGORITHM_NULL:
      W = A.pseudoInverse();
      break;
    case BF_ALGORITHM_ILSE:
      fillIlse(A, W);
      break;
    default:
      break;
  }
  return W;
}

}  // namespace

void Fixed::updateSources(const std::vector<SourceLocation>& newSources) {
  std::vector<Matrix> tf;
  getTransformFunctions(newSources, tf);

  std::vector<Matrix> newMatrices;
  newMatrices.reserve(tf.size());
  std::vector<int> types;
  bool allKnown = knownTransferFunctions.size() == tf.size();
  for (std::size_t k = 0; k < tf.size(); ++k) {
    types.push_back(getBfAlgorithmType());
    if (k < knownTypes.size() && types[k] == knownTypes[k] &&
        sameBits(tf[k], knownTransferFunctions[k])) {
      newMatrices.push_back(knownMatrices[k]);
    } else {
      newMatrices.push_back(separationMatrix(types[k], tf[k]));
      allKnown = false;
    }
  }

  std::vector<SourceLocation> newList(newSources);
  if (!allKnown) {
    std::vector<Matrix> tfCopy(tf);
    std::vector<Matrix> matricesCopy(newMatrices);
    knownTypes.swap(types);
    knownTransferFunctions.swap(tfCopy);
    knownMatrices.swap(matricesCopy);
  }
  sources.swap(newList);
  transferFunctions.swap(tf);
  separationMatrices.swap(newMatrices);
}

void Fixed::adaptSeparationMatrices() {}

}  // namespace BF
