#pragma once

#include <vector>

#include "matrix/Matrix.h"

namespace BF {

/// What the step of GICA needs, for all K bins: W (N × M), A (M × N), the frame X (M × K), its
/// result Y and F = φ(Y) (N × K each), and the settings of the engine.
struct GicaStep {
  const std::vector<Matrix>& W;  ///< separation matrices before the step
  const std::vector<Matrix>& A;  ///< steering vectors in columns
  const Matrix& X;               ///< microphones' spectra
  const Matrix& Y;               ///< W · X
  const Matrix& F;               ///< φ(Y)
  double mu;                     ///< step of the geometric constraint
  double mu_ss;                  ///< step of the separation
  bool lcAdaptive;               ///< whether mu is scaled for every bin
  bool ssAdaptive;               ///< whether mu_ss is
};

/// newW[k] := the step of bin k for k = first … end − 1, several side by side in the lanes of the
/// processor's vectors, with the bits of one bin at a time. The bins that the lanes do not serve,
/// as they are left over or hold numbers out of the ordinary, are appended to alone. All shapes fit
/// and newW has its own.
void adaptInLanes(const GicaStep& step, int first, int end, std::vector<Matrix>& newW,
                  std::vector<int>& alone);

}  // namespace BF
