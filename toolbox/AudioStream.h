#pragma once

#include <string>

#include "AudioFrames.h"

/// Reads sound that comes once, from begin to end, as frames of spectra: standard input, a FIFO, a
/// device, with a header or raw. Outputs as those of AudioFrames. A frame is given out as soon as
/// the ADVANCE samples after it are there, which tell whether it is the last one.
///
/// The stream is opened when the first frame is asked for, so that a network can be built before
/// anybody sends; it is opened anew for another run.
///
/// Throws new FD::NodeException for unusable parameters and streams.
class AudioStream : public AudioFrames {
 public:
  static const NodeSpec SPEC;

  AudioStream(std::string nodeName, const FD::ParameterSet& params);

  /// Closes the stream.
  void reset() override;

 protected:
  void calculate(int output_id, int count, FD::Buffer& out) override;

 private:
  Audio::AudioReaderOptions options;
};
