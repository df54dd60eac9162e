#pragma once

#include <complex>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "geometry/Position.h"

namespace Audio {
class OutputFile;
}

/// Transfer functions and their geometry, to be written as a SOFA file of DataType "TF".
struct SofaTransferFunctions {
  std::vector<BF::Position> sourcePositions;    ///< M, metres: x forward, y left, z up
  std::vector<BF::Position> receiverPositions;  ///< R, metres
  double samplingRate = 0.0;                    ///< Hz
  std::size_t frequencies = 0;                  ///< N, from 0 to samplingRate / 2
  std::vector<std::complex<float>> values;      ///< (m, r, n) at (m · R + r) · N + n
  std::string title;
  int referenceMicrophone = 0;            ///< from 1: values are relative to its response; 0: none
  std::optional<double> energyInFrame{};  ///< part of the responses' energy that is in them, 0 … 1
};

/// Impulse responses and their geometry, to be written as a SOFA file of DataType "FIR".
struct SofaImpulseResponses {
  std::vector<BF::Position> sourcePositions;    ///< M, metres: x forward, y left, z up
  std::vector<BF::Position> receiverPositions;  ///< R, metres
  double samplingRate = 0.0;                    ///< Hz
  std::size_t samples = 0;                      ///< N of each response
  std::vector<float> values;                    ///< (m, r, n) at (m · R + r) · N + n
  std::string title;
  std::string roomType = "free field";  ///< as the attribute RoomType has it
};

/// Write a GeneralTF or GeneralFIR file (AES69, netCDF-4, compressed) as the content of an output
/// file, which stays unfinished. The reference microphone and the part of the energy are global
/// attributes of our own, ZelkReferenceMicrophone and ZelkEnergyInFrame. Throw DataError naming the
/// file.
void writeSofa(Audio::OutputFile& file, const SofaTransferFunctions& data);
void writeSofa(Audio::OutputFile& file, const SofaImpulseResponses& data);

/// Writes the file and finishes it, in place of one that is there. Throws DataError, also
/// as Audio::OutputFile does.
void writeSofa(const std::string& path, const SofaTransferFunctions& data);

/// The writing itself, in the module libzelk-sofa-writer.so, which writeSofa loads: to the file
/// `path`, which messages call `name`.
extern "C" void zelkWriteTransferFunctions(const std::string& path, const std::string& name,
                                           const SofaTransferFunctions& data);
extern "C" void zelkWriteImpulseResponses(const std::string& path, const std::string& name,
                                          const SofaImpulseResponses& data);
