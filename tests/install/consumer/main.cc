// Uses the installed engine: nulls each of three sources for the others, for four microphones.
#include <cmath>
#include <complex>
#include <cstdio>

#include "bf/BF.h"
#include "bf/CML.h"
#include "bf/CMSNR.h"
#include "bf/Fixed.h"
#include "bf/GJ.h"
#include "bf/GSS.h"
#include "bf/LCMV.h"

namespace {

constexpr int MICROPHONES = 4;
constexpr int SOURCES = 3;
constexpr int BINS = 5;

BF::TransformFunctionDatabase makeDatabase() {
  BF::TransformFunctionDatabase database;
  for (int m = 0; m < MICROPHONES; ++m) database.micLocations.emplace_back(0.0, 0.05 * m, 0.0);
  for (int n = 0; n < SOURCES; ++n)
    database.sourceLocations.emplace_back(1.0, n - 1.0, 0.0, n, true);
  for (int k = 0; k < BINS; ++k) {
    BF::Matrix A(MICROPHONES, SOURCES);
    for (int m = 0; m < MICROPHONES; ++m) {
      for (int n = 0; n < SOURCES; ++n) {
        A.setElementAt(m, n, std::polar(1.0 / (1 + n), -0.3 * (k + 1) * m * (n - 1)));
      }
    }
    database.transferFunctions.push_back(A);
  }
  return database;
}

}  // namespace

int main() {
  const BF::TransformFunctionDatabase database = makeDatabase();
  BF::Null engine(BINS, 16000, 343.0);
  engine.setTransformFunctionDatabase(database);
  engine.updateSources(database.sourceLocations);
  for (int k = 0; k < BINS; ++k) {
    const BF::Matrix rest =
        engine.separationMatrices[k] * database.transferFunctions[k] - BF::Matrix::I(SOURCES);
    // The decompositions stop at 1.5e-7 relative.
    if (!(std::abs(rest.frobeniusNorm()) < 1e-5)) {
      std::printf("bin %d: W A differs from I by %g\n", k, std::abs(rest.frobeniusNorm()));
      return 1;
    }
  }
  std::puts("W A = I");
  return 0;
}
