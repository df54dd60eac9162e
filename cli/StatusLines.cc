#include "cli/StatusLines.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

StatusLines::StatusLines(bool isWanted) : isTerminal(isWanted && isatty(STDERR_FILENO)) {}

void StatusLines::show(const std::vector<std::string>& lines) {
  clear();
  if (!isTerminal || lines.empty()) return;
  winsize size = {};
  const bool isKnown = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 0;
  const std::size_t width = isKnown && size.ws_col > 1 ? size.ws_col - 1U : 79;
  const bool fits = lines.size() < (isKnown ? size.ws_row : 24U);
  for (std::size_t i = fits ? 0 : lines.size() - 1; i < lines.size(); ++i) {
    fmt::print(stderr, "{}\n", lines[i].substr(0, width));
    ++shown;
  }
  std::fflush(stderr);
}

void StatusLines::clear() {
  if (shown == 0) return;
  fmt::print(stderr, "\033[{}F\033[J", shown);  // that many lines up, and away with what follows
  std::fflush(stderr);
  shown = 0;
}

std::string levelBar(float peak) {
  constexpr float LOWEST = -60.0F;
  constexpr int WIDTH = 30;
  const float level = 20.0F * std::log10(std::max(peak, 1e-6F));
  const float share = std::clamp(1.0F - level / LOWEST, 0.0F, 1.0F);
  const std::string bar(static_cast<std::size_t>(std::lround(share * WIDTH)), '#');
  return fmt::format("[{:<{}}] {:>6}", bar, WIDTH,
                     level <= -120.0F ? "-inf" : fmt::format("{:.1f}", level));
}
