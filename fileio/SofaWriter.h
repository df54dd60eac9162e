#pragma once

#include <array>
#include <complex>
#include <cstddef>
#include <optional>
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
  int referenceMicrophone = 0;            ///< from 1: values are relative to its response; 0: none
  std::optional<double> energyInFrame{};  ///< part of the responses' energy that is in them, 0 … 1
};

/// Impulse responses and their geometry, to be written as a SOFA file of DataType "FIR".
struct SofaImpulseResponses {
  std::vector<std::array<double, 3>> sourcePositions;    ///< M, metres: x forward, y left, z up
  std::vector<std::array<double, 3>> receiverPositions;  ///< R, metres
  double samplingRate = 0.0;                             ///< Hz
  std::size_t samples = 0;                               ///< N of each response
  std::vector<float> values;                             ///< (m, r, n) at (m · R + r) · N + n
  std::string title;
  std::string roomType = "free field";  ///< as the attribute RoomType has it
};

/// Write a GeneralTF or GeneralFIR file (AES69, netCDF-4, compressed) and replace what is there.
/// The reference microphone and the part of the energy are global attributes of our own,
/// ZelkReferenceMicrophone and ZelkEnergyInFrame. Throw SofaError naming the file; then no complete
/// file is left at the path.
void writeSofa(const std::string& path, const SofaTransferFunctions& data);
void writeSofa(const std::string& path, const SofaImpulseResponses& data);
