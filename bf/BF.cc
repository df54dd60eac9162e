#include "bf/BF.h"

#include <algorithm>
#include <complex>
#include <cstddef>
#include <utility>

#include "matrix/ColumnProducts.h"

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
  std::vector<Matrix> result;
  gather(requested, result);
  out.swap(result);
}

void BF::gatherTransferFunctions(const std::vector<SourceLocation>& requested) {
  gather(requested, spareTransferFunctions);
}

void BF::gather(const std::vector<SourceLocation>& requested, std::vector<Matrix>& out) const {
  if (!tfDatabase) throw InvalidStateException();
  const int N = static_cast<int>(requested.size());
  const std::vector<Matrix>& measured = tfDatabase->transferFunctions;
  prepare(out, static_cast<int>(tfDatabase->micLocations.size()), N);
  for (int j = 0; j < N; ++j) {
    const int nearest = tfDatabase->findNearestSourceIndex(requested[j]);
    if (measured.size() < out.size()) throw IndexOutOfBoundException();
    for (std::size_t k = 0; k < out.size(); ++k) gatherColumn(measured[k], nearest, out[k], j);
  }
}

void BF::findPrevious(const std::vector<SourceLocation>& newSources) {
  previous.clear();
  for (const SourceLocation& source : newSources) {
    const auto same = std::find_if(sources.begin(), sources.end(),
                                   [&](const SourceLocation& old) { return old.id == source.id; });
    previous.push_back(same == sources.end() ? -1 : static_cast<int>(same - sources.begin()));
  }
}

bool BF::keepsOrder() const {
  if (previous.size() != sources.size()) return false;
  for (std::size_t j = 0; j < previous.size(); ++j) {
    if (previous[j] != static_cast<int>(j)) return false;
  }
  return true;
}

bool BF::nothingChanges() const {
  return keepsOrder() && separationMatrices.size() == spareTransferFunctions.size() &&
         std::equal(transferFunctions.begin(), transferFunctions.end(),
                    spareTransferFunctions.begin(), spareTransferFunctions.end(), sameBits);
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
  multiplyColumns(separationMatrices, X, Y);
  output = Y;
  inputSpectrum.swap(X);
  outputSpectrum.swap(Y);
}

}  // namespace BF
