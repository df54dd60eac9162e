#pragma once

#include <random>

#include "fileio/SofaWriter.h"
#include "tests/support/TestFolder.h"

/// Random transfer functions of M positions and R receivers, each on a line, and N frequencies.
inline SofaTransferFunctions randomTransferFunctions(int M, int R, int N, unsigned seed = 1) {
  std::mt19937 generator(seed);
  std::normal_distribution<float> gaussian;
  SofaTransferFunctions data;
  for (int m = 0; m < M; ++m) {
    data.sourcePositions.push_back({1.0 + m, 2.0 - m, 0.25 * m});
  }
  for (int r = 0; r < R; ++r) data.receiverPositions.push_back({0.0, 0.1 * r, 0.0});
  data.samplingRate = 16000.0;
  data.frequencies = static_cast<std::size_t>(N);
  for (int i = 0; i < M * R * N; ++i) {
    const float real = gaussian(generator);
    data.values.emplace_back(real, gaussian(generator));
  }
  data.title = "random";
  return data;
}
