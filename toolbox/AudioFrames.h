#pragma once

#include <memory>
#include <string>

#include "ToolboxNode.h"
#include "audio/FrameReader.h"

/// Reads a multichannel audio file as frames of spectra, streamed.
///
/// Outputs per frame: "OUTPUT", a SpectrumMatrix of microphones × LENGTH/2+1 bins; "NOT_EOF", a
/// Bool, whether the recording has this frame (an iterator's condition); "SAMPLES", an Int, how
/// many samples of the recording have this frame as their last one; "LAST_FRAME", a Bool, whether
/// it is the recording's last frame. After the recording's end: zeros, false, 0, false.
///
/// Throws new FD::NodeException for unusable parameters and files.
class AudioFrames : public ToolboxNode {
 public:
  static const NodeSpec SPEC;

  AudioFrames(std::string nodeName, const FD::ParameterSet& params);

  /// The next frame is the recording's first one again.
  void reset() override;

 protected:
  /// For a node with the same outputs and at least the same parameters; opens nothing.
  AudioFrames(const NodeSpec& nodeSpec, std::string nodeName, const FD::ParameterSet& params,
              int sourceLine);

  void calculate(int output_id, int count, FD::Buffer& out) override;

  /// What the parameters say of frames and file. Throw DataError.
  Audio::FrameLayout frameLayout() const;
  Audio::AudioReaderOptions readerOptions() const;
  std::unique_ptr<Audio::FrameReader> openReader(const Audio::AudioReaderOptions& options) const;

  std::unique_ptr<Audio::FrameReader> reader;

 private:
  FD::ObjectRef spectra(bool exists) const;
};
