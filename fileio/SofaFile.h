#pragma once

#include <complex>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "fileio/SofaAnswer.h"

/// Measured or computed responses in a SOFA file (AES69): M source positions (measurements), R
/// receivers (microphones), N frequencies (DataType "TF") or samples (DataType "FIR").
///
/// The file is read and checked by a process of its own under limits (ReaderProcess.h), so that a
/// file which breaks the libraries for its format does no harm; here every size and number that
/// comes back is checked again. A database of more than databaseLimit() bytes is refused.
class SofaFile {
 public:
  enum class Part { HEAD, ALL };  ///< whether the responses are read, too

  /// Throws DataError, which names the file.
  explicit SofaFile(const std::string& path, Part part = Part::ALL);

  /// What a reader handed back for the file of this name.
  SofaFile(std::string path, SofaAnswer handedBack);

  const std::string& path() const { return name; }
  bool isTransferFunctions() const { return answer.head().isTransferFunctions != 0; }
  std::size_t measurements() const { return answer.head().measurements; }
  std::size_t receivers() const { return answer.head().receivers; }
  std::size_t length() const { return answer.head().length; }
  double samplingRate() const { return answer.head().samplingRate; }

  /// Source positions seen from the listener, M of them, and receiver positions, R of them.
  const std::vector<BF::Position>& sourcePositions() const { return sources; }
  const std::vector<BF::Position>& receiverPositions() const { return microphones; }

  /// The microphone, from 1, that the responses are relative to; 0 if to none. And the part of the
  /// measured responses' energy that their frame holds, 0 … 1, where the file says so.
  int referenceMicrophone() const { return static_cast<int>(answer.head().referenceMicrophone); }
  std::optional<double> energyInFrame() const;

  /// What is odd about the file but no reason to refuse it, a sentence each.
  const std::vector<std::string>& warnings() const { return remarks; }

  /// H as the file holds it, value (m, r, n) at (m · R + r) · N + n. DataType "TF" only, as the
  /// next two are for "FIR". std::logic_error where the responses were not read or have been
  /// dropped.
  std::vector<std::complex<float>> readTransferFunctions() const;

  /// Impulse responses in the same order, and the delay in samples of each (m, r) at m · R + r, by
  /// which a response is to be shifted.
  std::vector<float> readImpulseResponses() const;
  std::vector<double> readDelays() const;

  /// All values as they came, M · R · N: samples, or real parts and then as many imaginary parts.
  std::span<const float> values() const;

  /// Frees the memory of the responses; everything else stays.
  void dropResponses() { answer.dropArrays(); }

 private:
  std::string name;
  SofaAnswer answer;
  std::vector<BF::Position> sources;
  std::vector<BF::Position> microphones;
  std::vector<std::string> remarks;
};
