#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "audio/FrameReader.h"
#include "dsp/FrameLayout.h"
#include "matrix/Matrix.h"
#include "scene/TimeRange.h"
#include "separation/NoiseCorrelation.h"

namespace Audio {

/// The plain mean of the correlation matrices of a recording's frames, read to its end: of those
/// frames that lie wholly in one of the ranges; without ranges, of all that hold no padding.
/// Throws DataError when there is no such frame or the file cannot be decoded.
NoiseCorrelation noiseOfFile(FrameReader& reader, const std::vector<TimeRange>& ranges);

/// A recording in memory: `count` samples of each of `channels`, interleaved.
struct RecordedSamples {
  const float* values;
  std::size_t count;
  int channels;
  int samplingRate;  ///< Hz
};

/// The same of a recording in memory, which messages call `name`; window: a value per sample of a
/// frame.
NoiseCorrelation noiseOfSamples(const RecordedSamples& recording, const FrameLayout& layout,
                                std::vector<float> window, const std::vector<TimeRange>& ranges,
                                const std::string& name);

/// The matrices that NoiseCorrelation::write gives, one M × M matrix per bin.
std::vector<BF::Matrix> noiseMatrices(const NoiseCorrelation& noise, double loading,
                                      bool normalize);

}  // namespace Audio
