#pragma once

#include <vector>

#include "geometry/Location.h"
#include "matrix/Matrix.h"

namespace BF {

/// Transfer functions from a grid of measured source positions to every microphone.
///
/// Every matrix in transferFunctions has micLocations.size() rows and sourceLocations.size()
/// columns; whoever fills the record sees to that.
struct TransformFunctionDatabase {
  std::vector<SourceLocation> sourceLocations;  ///< measured positions; the index is the column
  std::vector<MicLocation> micLocations;        ///< microphones; the index is the row
  std::vector<Matrix> transferFunctions;        ///< entry k: bin k, microphones × positions

  /// Index of the measured source position nearest to a point by Euclidean distance, the lowest
  /// index of equals; 0 when there are no positions.
  int findNearestSourceIndex(const SourceLocation& point) const;

  /// The same search over the microphone positions: the argument's type chooses the list.
  int findNearestSourceIndex(const MicLocation& point) const;
};

}  // namespace BF
