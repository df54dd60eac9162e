#include "separation/SettingsWindows.h"

namespace Separation {

Audio::FrameWindows windowsOf(const Settings& s) {
  if (s.latency) return Audio::lowDelayWindows(s.length, *s.latency);
  return Audio::equalWindows(Audio::windowNamed(s.window), s.length);
}

}  // namespace Separation
