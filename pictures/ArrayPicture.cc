#include "pictures/ArrayPicture.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace {

// Sizes in pixels.
constexpr double HEADING = 56.0;  // height of the title and the subtitle
constexpr double SIDE = 50.0;     // around the array, for labels and the scale
constexpr double MARK = 12.0;     // radius of a microphone

/// The longest of 1, 2, 5, 10, … cm that is no longer than a length in metres.
double roundLength(double metres) {
  const double decade = std::pow(10.0, std::floor(std::log10(metres) + 1e-9));
  for (const double factor : {5.0, 2.0}) {
    if (factor * decade <= metres * (1.0 + 1e-9)) return factor * decade;
  }
  return decade;
}

}  // namespace

Drawing ArrayPicture::drawn(int width) const {
  Drawing drawing(width, width + static_cast<int>(HEADING), title);
  drawing.text({20.0, 20.0}, shortened(title, width - 40.0, 16.0),
               {16.0, Anchor::Start, BLACK, true});
  drawing.text({20.0, 42.0}, shortened(subtitle, width - 40.0, 12.0), {12.0, Anchor::Start, GREY});

  double reach = 1e-3;  // metres, of the farthest microphone
  for (const Microphone& m : microphones) reach = std::max(reach, std::hypot(m.x, m.y));
  const double half = width / 2.0;
  const double scale = (half - SIDE - MARK) / reach;  // pixels per metre
  const auto at = [&](double x, double y) {
    return Point{half - y * scale, HEADING + half - x * scale};
  };

  const double R = half - SIDE;
  const Point centre = at(0.0, 0.0);
  drawing.line({centre.x - R, centre.y}, {centre.x + R, centre.y}, {PALE, 0.8});
  drawing.line({centre.x, centre.y - R}, {centre.x, centre.y + R}, {PALE, 0.8});
  const struct {
    const char* text;
    double right;
    double down;
  } ends[] = {{"0° (x)", 0, -1}, {"90° (y)", -1, 0}, {"180°", 0, 1}, {"-90°", 1, 0}};
  for (const auto& [text, right, down] : ends) {
    drawing.text({centre.x + right * (R + 24.0), centre.y + down * (R + 12.0)}, text,
                 {11.0, Anchor::Middle, GREY});
  }
  for (const Microphone& m : microphones) {
    const Point p = at(m.x, m.y);
    drawing.patch({p.x - MARK, p.y - MARK}, {p.x + MARK, p.y + MARK}, MARK, WHITE, {BLACK, 1.4});
    drawing.text(p, m.name, {11.0, Anchor::Middle, BLACK, true});
  }

  const double length = roundLength(reach);
  const Point begin{20.0, HEADING + width - 18.0};
  const Point end{begin.x + length * scale, begin.y};
  drawing.line(begin, end, {BLACK, 2.0});
  drawing.text({end.x + 8.0, end.y}, fmt::format("{:g} cm", 100.0 * length), {11.0});
  return drawing;
}
