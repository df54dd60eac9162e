#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "fileio/NcFile.h"
#include "fileio/SofaAnswer.h"

/// What a SOFA file (AES69) in netCDF says: M source positions (measurements), R receivers
/// (microphones), N frequencies (DataType "TF") or samples (DataType "FIR").
///
/// The constructor reads and checks everything but the responses, and refuses counts whose answer
/// would be larger than the limit, or whose responses the file cannot hold (NcFile::valueCount),
/// more than 2^20 measurements, and sampling rates above 10 MHz. Throws DataError without the
/// file's name.
class SofaParser {
 public:
  /// The file must outlive this.
  SofaParser(const NcFile& input, std::size_t limit);

  /// Counts and rate, for an answer of this state; its text is left empty.
  AnswerHead head(AnswerState state) const;

  /// Source positions seen from the listener, M of them, and receiver positions, R of them.
  const std::vector<BF::Position>& sourcePositions() const { return sources; }
  const std::vector<BF::Position>& receiverPositions() const { return microphones; }

  /// What is odd about the file but no reason to refuse it, a sentence each.
  const std::vector<std::string>& warnings() const { return remarks; }

  /// Fills the values and, for DataType "FIR", the delays of an answer (AnswerLayout).
  void readResponses(float* values, double* delays) const;

 private:
  bool isTransferFunctions() const { return dataType == "TF"; }
  void readDataShape();
  void requireWithinLimit(const std::string& variable) const;
  void readFrequencies();
  void readSamplingRate();
  std::vector<BF::Position> readPositions(const std::string& variable, const std::string& type);
  std::vector<BF::Position> readListener(const std::string& variable, const std::string& typeOf,
                                         const BF::Position& absent);
  void readSources();
  void readReceivers();
  void readOrigin();
  void readDelays(double* delays) const;
  void noteUnits(const std::string& variable);

  const NcFile& file;
  std::size_t largest;
  std::string dataType;
  std::size_t M = 0;
  std::size_t R = 0;
  std::size_t N = 0;
  double rate = 0.0;
  std::uint64_t reference = 0;
  double share = AnswerHead::NOT_STATED;
  std::vector<BF::Position> sources;
  std::vector<BF::Position> microphones;
  std::vector<std::string> remarks;
};
