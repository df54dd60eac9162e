#include "matrix/EigenBatch.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <mutex>

#include "matrix/JacobiRotation.h"
#include "matrix/ProcessorClones.h"

namespace BF {

namespace {

// eigenValues keeps work vectors that all threads share.
std::mutex oneAtATime;

Matrix principalVectorOf(const Matrix& matrix) {
  const std::lock_guard<std::mutex> lock(oneAtATime);
  Matrix values;
  Matrix V;
  matrix.eigenValues(values, V);
  return V.getColumn(values.getMaximumValueIndexInColumn(0));
}

#ifdef ZELK_HAS_VECTOR_TARGETS

#pragma GCC push_options
#pragma GCC target("avx512f")
namespace avx512 {
constexpr int LANES = 8;
#include "matrix/EigenLanes.inc"
}  // namespace avx512
#pragma GCC pop_options

#pragma GCC push_options
#pragma GCC target("avx2")
namespace avx2 {
constexpr int LANES = 4;
#include "matrix/EigenLanes.inc"
}  // namespace avx2
#pragma GCC pop_options
#endif

}  // namespace

int eigenLanes() {
#ifdef ZELK_HAS_VECTOR_TARGETS
  if (__builtin_cpu_supports("avx512f")) return avx512::LANES;
  if (__builtin_cpu_supports("avx2")) return avx2::LANES;
#endif
  return 1;
}

void principalEigenVectors(const std::vector<Matrix>& matrices, std::vector<Matrix>& vectors,
                           [[maybe_unused]] int lanes) {
  const int count = static_cast<int>(matrices.size());
  for (const Matrix& matrix : matrices) {
    if (matrix.getRowCount() != matrix.getColumnCount()) throw NotSquareMatrixException();
    if (matrix.getRowCount() != matrices[0].getRowCount()) throw MatrixSizeMismatchException();
    if (matrix.getRowCount() == 0) throw IndexOutOfBoundException();
  }
  vectors.resize(count);
  int done = 0;
#ifdef ZELK_HAS_VECTOR_TARGETS
  for (; lanes == avx512::LANES && done < count; done += lanes) {
    avx512::principalVectorsFrom(done, matrices, vectors);
  }
  for (; lanes == avx2::LANES && done < count; done += lanes) {
    avx2::principalVectorsFrom(done, matrices, vectors);
  }
#endif
  for (; done < count; ++done) vectors[done] = principalVectorOf(matrices[done]);
}

}  // namespace BF
