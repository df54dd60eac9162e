#pragma once

#include <array>
#include <string>
#include <vector>

/// Impulse responses for a SOFA file of DataType FIR.
struct FirResponses {
  std::vector<std::array<double, 3>> sources;  ///< M, metres
  std::size_t receivers = 1;                   ///< R
  std::size_t samples = 1;                     ///< N
  double samplingRate = 16000;                 ///< Hz
  std::vector<double> values;                  ///< (m, r, n) at (m · R + r) · N + n
  std::vector<double> delays;                  ///< R, or M · R: samples
};

/// Writes them with netCDF-C alone. Throws std::runtime_error.
void writeFirFile(const std::string& path, const FirResponses& data);
