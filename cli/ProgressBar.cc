#include "cli/ProgressBar.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>

ProgressBar::ProgressBar(bool isWanted, std::int64_t frameCount)
    : isShown(isWanted && isatty(STDERR_FILENO) != 0), frames(frameCount) {}

ProgressBar::~ProgressBar() {
  if (shown >= 0) std::fputs("\r\033[K", stderr);
}

void ProgressBar::show(std::int64_t frame, double seconds) {
  if (!isShown) return;
  const auto now = static_cast<int>(
      frames > 0
          ? std::min(100.0, 100.0 * static_cast<double>(frame + 1) / static_cast<double>(frames))
          : seconds);
  if (now == shown) return;
  shown = now;
  if (frames > 0) {
    const std::string bar(static_cast<std::size_t>(now) * WIDTH / 100, '#');
    fmt::print(stderr, "\r[{:<{}}] {:3} %", bar, WIDTH, now);
  } else {
    fmt::print(stderr, "\r{} s", now);
  }
  std::fflush(stderr);
}
