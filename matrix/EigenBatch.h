#pragma once

#include <vector>

#include "matrix/Matrix.h"

namespace BF {

/// values[i] and vectors[i] become, bit for bit, what matrices[i].eigenValues(values[i],
/// vectors[i]) gives (NaN aside, of which there are many). Several decompositions run side by side
/// in the lanes of the processor's vectors, since one alone waits for its roots and divisions most
/// of the time. All matrices are n × n: otherwise throws NotSquareMatrixException or
/// MatrixSizeMismatchException. Like eigenValues not for two threads at once.
void eigenValuesOfEach(const std::vector<Matrix>& matrices, std::vector<Matrix>& values,
                       std::vector<Matrix>& vectors);

}  // namespace BF
