#pragma once

#include <vector>

#include "matrix/Matrix.h"

namespace BF {

/// What the step of GICA needs, for all K bins: W (N × M), A (M × N), the frame X (M × K), its
/// result Y and F = φ(Y) (N × K each), and the settings of the engine.
struct GicaStep {
  const std::vector<Matrix>& W;
  const std::vector<Matrix>& A;
  const Matrix& X;
  const Matrix& Y;
  const Matrix& F;
  double mu, mu_ss;
  bool lcAdaptive, ssAdaptive;
};

/// newW[k] := the step of bin k, several side by side in the lanes of the processor's vectors, with
/// the bits of one bin at a time. The bins that the lanes do not serve, as they are left over or
/// hold numbers out of the ordinary, are appended to alone. All shapes fit and newW has its own.
void adaptInLanes(const GicaStep& step, std::vector<Matrix>& newW, std::vector<int>& alone);

}  // namespace BF
