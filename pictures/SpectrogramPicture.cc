#include "pictures/SpectrogramPicture.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "dsp/DataError.h"
#include "pictures/Ticks.h"

namespace {

constexpr double LEFT = 62.0;    // pixels, for the frequencies
constexpr double RIGHT = 96.0;   // for the scale of levels
constexpr double BOTTOM = 46.0;  // for the times
constexpr double TITLE = 28.0;   // above each panel
constexpr double USUAL_PANEL = 140.0;
constexpr double MIN_PANEL = 40.0;
constexpr double MIN_WIDTH = 360.0;
constexpr double TICK = 4.0;
const TextStyle LABEL = {12.0, Anchor::Middle};

/// What all panels share.
struct Axes {
  double begin = 0.0;  // seconds
  double end = 0.0;
  double hertz = 0.0;
  double top = 0.0;     // dB
  double bottom = 0.0;  // dB

  Axes(const std::vector<Spectrogram>& spectrograms, const SpectrogramStyle& style)
      : begin(style.begin) {
    for (const Spectrogram& s : spectrograms) {
      end = std::max(end, s.duration);
      hertz = std::max(hertz, s.samplingRate / 2.0);
    }
    top = loudestLevel(spectrograms);
    bottom = top - style.range;
    if (begin >= end) {
      throw DataError(fmt::format(
          "--time begins at {:g} s, expected a time before the end at {:g} s", begin, end));
    }
    if (style.end > 0.0) end = std::min(end, style.end);
  }

  double share(double level) const { return (level - bottom) / (top - bottom); }
};

/// Where a panel's picture lies.
struct Frame {
  Point from;
  Point to;

  double x(double seconds, const Axes& axes) const {
    return from.x + (to.x - from.x) * (seconds - axes.begin) / (axes.end - axes.begin);
  }
  double y(double hertz, const Axes& axes) const {
    return to.y - (to.y - from.y) * hertz / axes.hertz;
  }
};

/// Each bin reaches half a bin to both sides of its frequency, each column one step from its begin.
void drawLevels(Drawing& drawing, const Spectrogram& s, const Frame& frame, const Axes& axes) {
  const double half =
      s.bins > 1 ? s.samplingRate / 4.0 / static_cast<double>(s.bins - 1) : s.samplingRate / 4.0;
  const double end = s.begin + s.columnSeconds * static_cast<double>(s.columns());
  drawing.image(levelRaster(s, axes.bottom, axes.top),
                {frame.x(s.begin, axes), frame.y(s.samplingRate / 2.0 + half, axes)},
                {frame.x(end, axes), frame.y(-half, axes)},
                {frame.from.x, frame.y(s.samplingRate / 2.0, axes)},
                {std::clamp(frame.x(s.duration, axes), frame.from.x, frame.to.x), frame.to.y});
}

void drawFrequencies(Drawing& drawing, const Frame& frame, const Axes& axes) {
  const bool inKilohertz = axes.hertz >= 2000.0;
  const double height = frame.to.y - frame.from.y;
  for (const double tick :
       ticks(0.0, axes.hertz, std::clamp(static_cast<int>(height / 22), 2, 9))) {
    const double y = frame.y(tick, axes);
    drawing.line({frame.from.x - TICK, y}, {frame.from.x, y}, {});
    drawing.text({frame.from.x - 7.0, y}, fmt::format("{:g}", inKilohertz ? tick / 1000.0 : tick),
                 {11.0, Anchor::End});
  }
  TextStyle upright = LABEL;
  upright.turn = -90.0;
  drawing.text({frame.from.x - 46.0, (frame.from.y + frame.to.y) / 2.0}, inKilohertz ? "kHz" : "Hz",
               upright);
}

void drawTimes(Drawing& drawing, const Frame& frame, const Axes& axes, bool labelled) {
  const double width = frame.to.x - frame.from.x;
  for (const double tick : ticks(axes.begin, axes.end, std::max(2, static_cast<int>(width / 70)))) {
    const double x = frame.x(tick, axes);
    drawing.line({x, frame.to.y}, {x, frame.to.y + TICK}, {});
    if (labelled) {
      drawing.text({x, frame.to.y + 14.0}, fmt::format("{:g}", tick), {11.0, Anchor::Middle});
    }
  }
  if (labelled) {
    drawing.text({(frame.from.x + frame.to.x) / 2.0, frame.to.y + 33.0}, "time (s)", LABEL);
  }
}

void drawOutline(Drawing& drawing, const Frame& frame) {
  const auto& [from, to] = frame;
  drawing.path({from, {to.x, from.y}, to, {from.x, to.y}}, true, {GREY, 1.0});
}

void drawScale(Drawing& drawing, const Frame& frame, const Axes& axes) {
  constexpr std::size_t STEPS = 256;
  Raster raster(1, STEPS);
  for (std::size_t i = 0; i < STEPS; ++i) {
    raster.at(0, i) = scaleColour(1.0 - static_cast<double>(i) / (STEPS - 1));
  }
  drawing.image(raster, frame.from, frame.to, frame.from, frame.to);
  drawOutline(drawing, frame);
  const double height = frame.to.y - frame.from.y;
  for (const double tick :
       ticks(axes.bottom, axes.top, std::clamp(static_cast<int>(height / 22), 2, 11))) {
    const double y = frame.to.y - height * axes.share(tick);
    drawing.line({frame.to.x, y}, {frame.to.x + TICK, y}, {});
    drawing.text({frame.to.x + 7.0, y}, fmt::format("{:g}", tick), {11.0});
  }
  TextStyle upright = LABEL;
  upright.turn = -90.0;
  drawing.text({frame.to.x + 48.0, (frame.from.y + frame.to.y) / 2.0},
               height > 250.0 ? "level (dB, 0 = sine of full scale)" : "level (dB)", upright);
}

/// The panels' height, from the picture's or the usual one.
double panelHeight(std::size_t panels, const SpectrogramStyle& style) {
  if (style.width < MIN_WIDTH) {
    throw DataError(
        fmt::format("--width is {}, expected {} pixels or more", style.width, MIN_WIDTH));
  }
  if (style.height == 0) return USUAL_PANEL;
  const auto count = static_cast<double>(panels);
  const double height = (style.height - BOTTOM) / count - TITLE;
  if (height < MIN_PANEL) {
    throw DataError(fmt::format("--height is {}, expected {} pixels or more for {} panels",
                                style.height, count * (MIN_PANEL + TITLE) + BOTTOM, panels));
  }
  return height;
}

}  // namespace

double loudestLevel(const std::vector<Spectrogram>& spectrograms) {
  double loudest = -std::numeric_limits<double>::infinity();
  for (const Spectrogram& s : spectrograms) {
    for (const float level : s.levels) loudest = std::max(loudest, double{level});
  }
  return std::isfinite(loudest) ? 5.0 * std::ceil(loudest / 5.0) : 0.0;
}

Raster levelRaster(const Spectrogram& s, double bottom, double top) {
  Raster raster(s.columns(), s.bins);
  for (std::size_t c = 0; c < s.columns(); ++c) {
    for (std::size_t k = 0; k < s.bins; ++k) {
      raster.at(c, s.bins - 1 - k) = scaleColour((double{s.level(c, k)} - bottom) / (top - bottom));
    }
  }
  return raster;
}

Drawing spectrogramPicture(const std::vector<Spectrogram>& spectrograms,
                           const SpectrogramStyle& style) {
  const double panel = panelHeight(spectrograms.size(), style);
  const double bottom = static_cast<double>(spectrograms.size()) * (panel + TITLE);
  const Axes axes(spectrograms, style);
  Drawing drawing(style.width, static_cast<int>(std::lround(bottom + BOTTOM)), "Spectrograms");
  double top = 0.0;
  for (const Spectrogram& s : spectrograms) {
    const Frame frame = {{LEFT, top + TITLE}, {style.width - RIGHT, top + TITLE + panel}};
    drawing.text({LEFT, top + TITLE - 11.0}, shortened(s.name, frame.to.x - frame.from.x, 12.0),
                 {12.0, Anchor::Start, BLACK, true});
    drawLevels(drawing, s, frame, axes);
    drawOutline(drawing, frame);
    drawFrequencies(drawing, frame, axes);
    drawTimes(drawing, frame, axes, &s == &spectrograms.back());
    top = frame.to.y;
  }
  drawScale(drawing, {{style.width - RIGHT + 18.0, TITLE}, {style.width - RIGHT + 32.0, bottom}},
            axes);
  return drawing;
}
