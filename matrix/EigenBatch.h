#pragma once

#include <vector>

#include "matrix/Matrix.h"

namespace BF {

/// How many decompositions this processor runs side by side: 8, 4 or 1.
int eigenLanes();

/// values[i] and vectors[i] become, bit for bit, what matrices[i].eigenValues(values[i],
/// vectors[i]) gives (NaN aside, of which there are many). Several decompositions run side by side
/// in the lanes of the processor's vectors, since one alone waits for its roots and divisions most
/// of the time. All matrices are n × n: otherwise throws NotSquareMatrixException or
/// MatrixSizeMismatchException. Like eigenValues not for two threads at once. Fewer lanes than the
/// processor has give the same.
void eigenValuesOfEach(const std::vector<Matrix>& matrices, std::vector<Matrix>& values,
                       std::vector<Matrix>& vectors, int lanes = eigenLanes());

}  // namespace BF
