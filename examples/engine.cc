// Separates one frame with the engine alone: two microphones, two sources in known directions.
#include <cstdio>

#include "bf/Fixed.h"

int main() {
  constexpr int BINS = 3;
  BF::TransformFunctionDatabase database;
  database.micLocations = {{0.0, 0.1, 0.0}, {0.0, -0.1, 0.0}};
  database.sourceLocations = {{1.0, 1.0, 0.0, 0, true}, {1.0, -1.0, 0.0, 1, true}};
  for (int k = 0; k < BINS; ++k) {
    BF::Matrix A(2, 2);  // element (m, s): transfer function from position s to microphone m
    A.setElementAt(0, 0, 1.0, 0.0);
    A.setElementAt(1, 0, 0.6, -0.2 * k);
    A.setElementAt(0, 1, 0.5, -0.3 * k);
    A.setElementAt(1, 1, 1.0, 0.0);
    database.transferFunctions.push_back(A);
  }

  BF::Null separator(BINS, 16000, 343.0);
  separator.setTransformFunctionDatabase(database);

  // What the microphones hear when source 7 sends 1 and source 9 sends 2i.
  BF::Matrix frame(2, BINS);
  for (int k = 0; k < BINS; ++k) {
    const BF::Matrix& A = database.transferFunctions[k];
    for (int m = 0; m < 2; ++m) {
      const std::complex<double> fromNine = A.getElementAt(m, 1) * std::complex<double>(0.0, 2.0);
      frame.setElementAt(m, k, A.getElementAt(m, 0) + fromNine);
    }
  }

  separator.updateSources({{1.0, 0.9, 0.0, 7, true}, {1.1, -1.0, 0.0, 9, true}});
  BF::Matrix separated;  // a row per source: 1 in the first, 2i in the second
  separator.executeBeamForming(frame, separated);
  separated.dump(stdout, "%s", "separated");
}
