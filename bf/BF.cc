#include "bf/BF.h"

#include <algorithm>
#include <complex>
#include <cstddef>
#include <cstring>
#include <utility>

namespace BF {

namespace {

/// Column `to` of H := column `from` of measured. Throws like getColumn and setColumn.
void gatherColumn(const Matrix& measured, int from, Matrix& H, int to) {
  if (from >= measured.getColumnCount()) throw IndexOutOfBoundException();
  if (measured.getRowCount() != H.getRowCount()) throw MatrixSizeMismatchException();
  for (int i = 0; i < H.getRowCount(); ++i) {
    H.data()[std::ptrdiff_t{i} * H.getColumnCount() + to] =
        measured.data()[std::ptrdiff_t{i} * measured.getColumnCount() + from];
  }
}

/// Whether column i of a and column j of b have the same bytes.
bool sameColumn(const Matrix& a, int i, const Matrix& b, int j) {
  if (i >= a.getColumnCount() || j >= b.getColumnCount() || a.getRowCount() != b.getRowCount()) {
    return false;
  }
  const std::complex<double>* x = a.data() + i;
  const std::complex<double>* y = b.data() + j;
  for (int m = 0; m < a.getRowCount(); ++m) {
    if (std::memcmp(static_cast<const void*>(x), static_cast<const void*>(y), sizeof *x) != 0) {
      return false;
    }
    x += a.getColumnCount();
    y += b.getColumnCount();
  }
  return true;
}

/// Column k of Y := W · column k of X, without a temporary.
void multiplyColumn(const Matrix& W, const Matrix& X, int k, Matrix& Y) {
  const int M = W.getColumnCount();
  if (k >= X.getColumnCount()) throw IndexOutOfBoundException();
  if (X.getRowCount() != M || W.getRowCount() != Y.getRowCount()) {
    throw MatrixSizeMismatchException();
  }
  for (int i = 0; i < W.getRowCount(); ++i) {
    Y.data()[std::ptrdiff_t{i} * Y.getColumnCount() + k] =
        dotProduct(W.data() + std::ptrdiff_t{i} * M, 1, X.data() + k, X.getColumnCount(), M);
  }
}

}  // namespace

BF::BF(int numFreqValue, int samplingRateValue, double soundSpeedValue)
    : numFreq(numFreqValue), samplingRate(samplingRateValue), soundSpeed(soundSpeedValue) {}

BF::~BF() = default;

void BF::setTransformFunctionDatabase(const TransformFunctionDatabase& db) {
  tfDatabase = std::make_unique<TransformFunctionDatabase>(db);
  numMic = static_cast<int>(tfDatabase->micLocations.size());
}

void BF::getTransformFunctions(const std::vector<SourceLocation>& requested,
                               std::vector<Matrix>& out) const {
  if (!tfDatabase) throw InvalidStateException();
  const int nSources = static_cast<int>(requested.size());
  const int nMic = static_cast<int>(tfDatabase->micLocations.size());

  std::vector<int> nearest;
  nearest.reserve(requested.size());
  for (const SourceLocation& source : requested) {
    nearest.push_back(tfDatabase->findNearestSourceIndex(source));
  }

  std::vector<Matrix> result;
  result.reserve(std::max(numFreq, 0));
  for (int k = 0; k < numFreq; ++k) {
    Matrix H(nMic, nSources);
    for (int j = 0; j < nSources; ++j) {
      if (static_cast<std::size_t>(k) >= tfDatabase->transferFunctions.size()) {
        throw IndexOutOfBoundException();
      }
      gatherColumn(tfDatabase->transferFunctions[k], nearest[j], H, j);
    }
    result.push_back(std::move(H));
  }
  out.swap(result);
}

std::vector<int> BF::previousIndices(const std::vector<SourceLocation>& newSources) const {
  std::vector<int> result;
  for (const SourceLocation& source : newSources) {
    const auto same = std::find_if(sources.begin(), sources.end(),
                                   [&](const SourceLocation& old) { return old.id == source.id; });
    result.push_back(same == sources.end() ? -1 : static_cast<int>(same - sources.begin()));
  }
  return result;
}

bool BF::keepsOrder(const std::vector<int>& previous) const {
  if (previous.size() != sources.size()) return false;
  for (std::size_t j = 0; j < previous.size(); ++j) {
    if (previous[j] != static_cast<int>(j)) return false;
  }
  return true;
}

bool BF::nothingChanges(const std::vector<SourceLocation>& newSources,
                        const std::vector<int>& previous) const {
  if (!keepsOrder(previous)) return false;
  const auto bins = static_cast<std::size_t>(std::max(numFreq, 0));
  if (!tfDatabase || tfDatabase->transferFunctions.size() < bins ||
      transferFunctions.size() != bins || separationMatrices.size() != bins) {
    return false;
  }
  const int nMic = static_cast<int>(tfDatabase->micLocations.size());
  if (std::any_of(transferFunctions.begin(), transferFunctions.end(),
                  [nMic](const Matrix& A) { return A.getRowCount() != nMic; })) {
    return false;
  }
  for (int j = 0; j < static_cast<int>(newSources.size()); ++j) {
    const int nearest = tfDatabase->findNearestSourceIndex(newSources[j]);
    for (std::size_t k = 0; k < bins; ++k) {
      if (!sameColumn(tfDatabase->transferFunctions[k], nearest, transferFunctions[k], j)) {
        return false;
      }
    }
  }
  return true;
}

void BF::prepare(std::vector<Matrix>& list, int rows, int columns) const {
  list.resize(static_cast<std::size_t>(std::max(numFreq, 0)));
  for (Matrix& matrix : list) reshape(matrix, rows, columns);
}

void BF::requireSeparationMatrices() const {
  if (separationMatrices.empty() ||
      separationMatrices.size() < static_cast<std::size_t>(std::max(numFreq, 0))) {
    throw InvalidStateException();
  }
}

void BF::executeBeamForming(const Matrix& input, Matrix& output) {
  requireSeparationMatrices();
  Matrix& X = spareInput;
  Matrix& Y = spareOutput;
  X = input;
  reshape(Y, separationMatrices[0].getRowCount(), numFreq);
  for (int k = 0; k < numFreq; ++k) multiplyColumn(separationMatrices[k], X, k, Y);
  output = Y;
  inputSpectrum.swap(X);
  outputSpectrum.swap(Y);
}

}  // namespace BF
