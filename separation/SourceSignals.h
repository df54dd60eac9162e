#pragma once

#include <complex>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "dsp/OverlapAdder.h"
#include "separation/Output.h"

namespace Separation {

/// Adds the frames of the separated sources up, and collects what is finished.
class SourceSignals {
 public:
  explicit SourceSignals(Audio::FrameSynthesizer frameSynthesizer);

  /// Drops what was delivered, and the sources of whose frames nothing is left.
  void clearDelivered();

  /// Makes sure that a source has its place; adds nothing yet.
  void prepare(int id);

  /// A source's spectrum in the frame that is being added; prepare() was called.
  void add(int id, const std::complex<float>* spectrum);

  /// Ends the frame: sources without a spectrum are silent in it, and the samples that it finishes,
  /// up to number `total` of the recording, join the output. Either does all or throws and changes
  /// nothing.
  void finishFrame(std::int64_t total);

  /// All that was finished since clearDelivered(). Valid until the next call of another method.
  const Output& output();

  /// The frame that is to come.
  std::int64_t frame() const { return current; }

 private:
  struct Source {
    Source(int identifier, const Audio::FrameLayout& layout) : id(identifier), adder(layout) {}

    int id;
    Audio::OverlapAdder adder;
    std::int64_t lastFrame = -1;
    std::vector<float> finished;
  };
  Source* find(int id);

  Audio::FrameSynthesizer synthesizer;
  std::vector<std::unique_ptr<Source>> sources;
  std::int64_t current = 0;
  Output result;
};

}  // namespace Separation
