#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "geometry/Position.h"

enum class AnswerState : std::uint64_t {
  UNFINISHED = 0,     ///< the reader has not come to its end
  HEAD = 1,           ///< all but the responses
  RESPONSES = 2,      ///< everything
  REFUSED = 3,        ///< only a text, the reason
  OUT_OF_MEMORY = 4,  ///< nothing: the reader's memory did not suffice
};

/// The begin of an answer: what the reader process hands back about a SOFA file, in memory that it
/// shares with whoever started it. Arrays follow as AnswerLayout says. The state is set last.
struct AnswerHead {
  static constexpr double NOT_STATED = -1.0;
  static constexpr std::uint64_t MAGIC = 0x3252534F464B4C5AU;

  std::uint64_t magic = MAGIC;
  AnswerState state = AnswerState::UNFINISHED;
  std::uint64_t isTransferFunctions = 0;  ///< 1: DataType "TF", 0: "FIR"
  std::uint64_t measurements = 0;         ///< M
  std::uint64_t receivers = 0;            ///< R
  std::uint64_t length = 0;               ///< N, frequencies or samples
  double samplingRate = 0.0;              ///< Hz
  std::uint64_t referenceMicrophone = 0;  ///< from 1: responses are relative to its own; 0: to none
  double energyInFrame = NOT_STATED;  ///< part of the responses' energy that is in them, 0 … 1
  std::uint64_t textBytes = 0;
};

/// Where the arrays of an answer stand, in bytes from its begin:
///
///   sources      M × 3 doubles
///   microphones  R × 3 doubles
///   delays       M × R doubles, in samples (FIR)
///   values       M × R × N floats (FIR), or as many real parts, then imaginary ones (TF)
///   text         warnings, a line each, or the reason of a refusal
///
/// Without responses there are neither delays nor values.
struct AnswerLayout {
  std::size_t sources = sizeof(AnswerHead);
  std::size_t microphones = sizeof(AnswerHead);
  std::size_t delays = sizeof(AnswerHead);
  std::size_t values = sizeof(AnswerHead);
  std::size_t valueCount = 0;
  std::size_t text = sizeof(AnswerHead);
  std::size_t size = sizeof(AnswerHead);  ///< of the whole answer
};

/// The layout that follows from a head, nothing if it would be larger than a size can say.
std::optional<AnswerLayout> layoutOf(const AnswerHead& head);

/// An answer's memory and how many bytes it has.
struct AnswerBytes {
  std::shared_ptr<const std::byte> data;
  std::size_t size = 0;
};

/// An answer as it arrived, with every size and number checked anew: whoever wrote it may have been
/// taken over by the file it read.
class SofaAnswer {
 public:
  SofaAnswer() = default;

  /// Throws DataError (without the file's name) unless the bytes are a whole answer of state HEAD
  /// or RESPONSES of at most `limit` bytes in which counts, sizes and ranges agree and every number
  /// is finite; with the reader's reason if it refused the file.
  SofaAnswer(AnswerBytes memory, std::size_t limit);

  const AnswerHead& head() const { return begin; }
  std::vector<BF::Position> sourcePositions() const { return positions(layout.sources, M()); }
  std::vector<BF::Position> receiverPositions() const { return positions(layout.microphones, R()); }
  std::vector<std::string> warnings() const;

  /// Whether there are values and delays.
  bool hasResponses() const { return bytes.data && begin.state == AnswerState::RESPONSES; }
  std::span<const float> values() const;
  std::span<const double> delays() const;

  /// Frees the memory: only the head is left.
  void dropArrays() { bytes = {}; }

 private:
  std::size_t M() const { return begin.measurements; }
  std::size_t R() const { return begin.receivers; }
  std::vector<BF::Position> positions(std::size_t at, std::size_t count) const;
  std::string text() const;
  void checkCounts() const;
  void checkNumbers() const;

  AnswerBytes bytes;
  AnswerHead begin;
  AnswerLayout layout;
};
