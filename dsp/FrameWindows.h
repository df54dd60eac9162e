#pragma once

#include <vector>

#include "dsp/Window.h"

namespace Audio {

/// The windows of frames of L samples. The synthesis window covers the last S ≤ L of them, and the
/// rest of the frame gives nothing: what the frame's spectrum resolves depends on L, and how long a
/// sample waits for the last frame that holds it on S alone.
struct FrameWindows {
  std::vector<float> analysis;   ///< before the transform, L values
  std::vector<float> synthesis;  ///< after the inverse transform, S values
};

/// The same window before and after: S = L.
FrameWindows equalWindows(WindowType type, int length);

/// A long window before and a short one after (Mauler and Martin, "A low delay, variable
/// resolution, perfect reconstruction spectral analysis-synthesis system for speech enhancement",
/// 2007; for separation: Wang, Wichern, Watanabe, Le Roux, "STFT-domain neural speech enhancement
/// with very low algorithmic latency", 2022). With F = S/4, and m = n − (L − S) counting the last S
/// samples:
///   analysis   sin(πn / 2(L − F)) for n < L − F, then cos(π(n − (L − F)) / 2F)
///   synthesis  sin²(πm/S) / analysis
/// so that both together are a Hann window of S samples, whose copies at distances that divide S/2
/// add up to a constant. Theirs falls within F = S/2; the faster the fall, the better the frame's
/// end stands for the sound, and the more a component of the spectrum spreads.
/// 2 ≤ span ≤ length; span: S.
FrameWindows lowDelayWindows(int length, int span);

}  // namespace Audio
