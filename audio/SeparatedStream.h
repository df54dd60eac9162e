#pragma once

#include <string>
#include <vector>

#include "audio/SampleFormat.h"
#include "audio/SeparatedOutput.h"

namespace Audio {

struct SeparatedStreamOptions {
  std::vector<int> ids;      ///< of the sources, in the order of the channels
  int samplingRate = 16000;  ///< Hz
  SampleFormat format = SampleFormat::Pcm16;
  bool hasHeader = true;  ///< a WAV header, whose sizes say "not known"; false: samples alone
};

/// Whoever read the stream has stopped.
class ConsumerGone {};

/// Writes the signals of separated sources as one stream with a channel per source, little-endian,
/// as soon as it gets them: nothing is held back, and memory does not grow.
class SeparatedStream : public SeparatedOutput {
 public:
  /// Writes to an open descriptor, which stays the caller's; `name` stands for it in messages.
  /// Writes the header. Throws as write() does.
  SeparatedStream(int descriptor, std::string name, const SeparatedStreamOptions& given);

  void addFrame(const std::vector<int>& ids) override;

  /// Throws DataError, and ConsumerGone. The latter is met only where SIGPIPE is ignored.
  void write(const Signals& signals, std::size_t count) override;
  void finish() override {}
  std::int64_t samples() const override { return position; }
  std::vector<SeparatedSound> report() const override;

 private:
  void append(Quantizer& channel, float value);
  void writeHeader();
  void send();

  int file;
  std::string fileName;
  SeparatedStreamOptions options;
  std::vector<Quantizer> channels;
  std::vector<char> bytes;  // of the block at hand
  std::int64_t position = 0;
};

}  // namespace Audio
