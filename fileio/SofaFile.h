#pragma once

#include <array>
#include <complex>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "fileio/NcFile.h"

/// Measured or computed responses in a SOFA file (AES69): M source positions (measurements), R
/// receivers (microphones), N frequencies (DataType "TF") or samples (DataType "FIR").
///
/// The constructor reads and checks everything but the responses, and refuses counts of responses
/// that the file cannot hold (NcFile::valueCount), more than 2^20 measurements, and sampling rates
/// above 10 MHz. Throws SofaError.
class SofaFile {
 public:
  using Position = std::array<double, 3>;  ///< metres: x forward, y left, z up

  explicit SofaFile(const std::string& path);

  const std::string& path() const { return file.path(); }
  bool isTransferFunctions() const { return dataType == "TF"; }
  std::size_t measurements() const { return M; }
  std::size_t receivers() const { return R; }
  std::size_t length() const { return N; }
  double samplingRate() const { return rate; }

  /// Source positions seen from the listener, M of them, and receiver positions, R of them.
  const std::vector<Position>& sourcePositions() const { return sources; }
  const std::vector<Position>& receiverPositions() const { return microphones; }

  /// The microphone, from 1, that the transfer functions are relative to; 0 if to none. And the
  /// part of the responses' energy that their frame holds, 0 … 1, where the file says so.
  int referenceMicrophone() const { return reference; }
  std::optional<double> energyInFrame() const { return share; }

  /// What is odd about the file but no reason to refuse it, a sentence each.
  const std::vector<std::string>& warnings() const { return remarks; }

  /// H as the file holds it, value (m, r, n) at (m · R + r) · N + n. DataType "TF" only.
  std::vector<std::complex<float>> readTransferFunctions() const;

  /// Impulse responses in the same order, and the delay in samples of each (m, r) at m · R + r, by
  /// which a response is to be shifted. DataType "FIR" only.
  std::vector<float> readImpulseResponses() const;
  std::vector<double> readDelays() const;

 private:
  void readDataShape();
  void readFrequencies();
  void readSamplingRate();
  std::vector<Position> readPositions(const std::string& variable, const std::string& type);
  std::vector<Position> readListener(const std::string& variable, const std::string& typeOf,
                                     const Position& absent);
  void readSources();
  void readReceivers();
  void noteUnits(const std::string& variable);
  void readOrigin();

  NcFile file;
  std::string dataType;
  std::size_t M = 0;
  std::size_t R = 0;
  std::size_t N = 0;
  double rate = 0.0;
  int reference = 0;
  std::optional<double> share;
  std::vector<Position> sources;
  std::vector<Position> microphones;
  std::vector<std::string> remarks;
};
