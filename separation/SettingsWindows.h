#pragma once

#include "dsp/FrameWindows.h"
#include "separation/Settings.h"

namespace Separation {

/// The windows that settings ask for, which are in their ranges.
Audio::FrameWindows windowsOf(const Settings& settings);

}  // namespace Separation
