#include "cli/ProgressBar.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>

ProgressBar::ProgressBar(std::int64_t frameCount)
    : frames(isatty(STDERR_FILENO) ? frameCount : 0) {}

ProgressBar::~ProgressBar() {
  if (shown >= 0) std::fputs("\r\033[K", stderr);
}

void ProgressBar::show(std::int64_t frame) {
  if (frames <= 0) return;
  const int percent = static_cast<int>(std::min<std::int64_t>(100, (frame + 1) * 100 / frames));
  if (percent == shown) return;
  shown = percent;
  const std::string bar(static_cast<std::size_t>(percent) * WIDTH / 100, '#');
  fmt::print(stderr, "\r[{:<{}}] {:3} %", bar, WIDTH, percent);
  std::fflush(stderr);
}
