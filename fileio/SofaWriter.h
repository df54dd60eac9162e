#pragma once

#include <array>
#include <complex>
#include <cstddef>
#include <string>
#include <vector>

/// Transfer functions and their geometry, to be written as a SOFA file of DataType "TF".
struct SofaTransferFunctions {
  std::vector<std::array<double, 3>> sourcePositions;    ///< M, metres: x forward, y left, z up
  std::vector<std::array<double, 3>> receiverPositions;  ///< R, metres
  double samplingRate = 0.0;                             ///< Hz
  std::size_t frequencies = 0;                           ///< N, from 0 to samplingRate / 2
  std::vector<std::complex<float>> values;               ///< (m, r, n) at (m · R + r) · N + n
  std::string title;
};

/// Writes a GeneralTF file (AES69, netCDF-4, compressed), which appears when it is complete. Throws
/// SofaError naming the file, or AudioError as Audio::OutputFile does.
void writeSofa(const std::string& path, const SofaTransferFunctions& data, bool overwrite = true);
