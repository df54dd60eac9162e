#pragma once

#include <vector>

#include "audio/Channels.h"
#include "audio/FrameReader.h"
#include "separation/NoiseCorrelation.h"

namespace Audio {

/// The plain mean of the correlation matrices of a recording's frames, read to its end: of those
/// frames that lie wholly in one of the ranges; without ranges, of all that hold no padding.
/// Throws DataError when there is no such frame or the file cannot be decoded.
NoiseCorrelation noiseOfFile(FrameReader& reader, const std::vector<TimeRange>& ranges);

}  // namespace Audio
