#include "pictures/PatternPicture.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "dsp/DataError.h"
#include "geometry/Direction.h"

namespace {

constexpr int FLOOR = PatternCaption::FLOOR;  // in the centre
constexpr int RING_STEP = 10;                 // dB
const Colour RINGS = PALE;

// Sizes in pixels.
constexpr double SIDE = 46.0;  // around a diagram, for the labels of the angles
constexpr double MIN_RADIUS = 90.0;
constexpr double MAX_RADIUS = 230.0;
constexpr double HEADING = PatternCaption::HEADING;
constexpr double PANEL_TITLE = 26.0;
constexpr double LEGEND_WIDTH = 172.0;  // of an entry
constexpr double LEGEND_LINE = 24.0;
constexpr std::size_t MAX_DOTS = 120;  // directions that are marked one by one

Stroke curveStroke(std::size_t curve, std::size_t curves) {
  if (curve + 1 == curves) return {BLACK, 2.4};
  static const char* const DASHES[] = {"", "8 3", "2 2.5", "9 3 2 3"};
  const double share =
      curves > 2 ? static_cast<double>(curve) / static_cast<double>(curves - 2) : 0.0;
  return {scaleColour(0.34 + 0.5 * share), 1.7, DASHES[curve % std::size(DASHES)]};
}

std::string frequencyText(double hertz) {
  return hertz < 1000.0 ? fmt::format("{:.4g} Hz", hertz)
                        : fmt::format("{:.4g} kHz", hertz / 1000.0);
}

/// One polar diagram.
class Diagram {
 public:
  Diagram(Drawing& target, Point middle, double outerRadius, int topDecibels)
      : drawing(target), centre(middle), R(outerRadius), top(topDecibels) {}

  void drawGrid() const {
    for (int level = FLOOR + RING_STEP; level <= top; level += RING_STEP) {
      const bool isUnity = level == 0;
      drawing.circle(centre, radius(level), {isUnity ? GREY : RINGS, isUnity ? 1.2 : 0.8});
    }
    for (int azimuth = -150; azimuth <= 180; azimuth += 30) {
      drawing.line(centre, at(azimuth, R), {RINGS, 0.8});
      drawing.text(at(azimuth, R + 26.0), degreesText(azimuth), {11.0, Anchor::Middle, GREY});
    }
  }

  /// Levels of the rings along a spoke, each on a patch of white.
  void drawLevels(double azimuth) const {
    const bool isTight = radius(FLOOR + RING_STEP) < 30.0;
    for (int level = FLOOR + RING_STEP; level <= top; level += RING_STEP) {
      if (isTight && level % (2 * RING_STEP) != 0) continue;
      const Point p = at(azimuth, radius(level));
      const std::string text = fmt::format("{} dB", level);
      const double half = 3.2 * static_cast<double>(text.size());
      drawing.patch({p.x - half, p.y - 6.0}, {p.x + half, p.y + 6.0}, 3.0, WHITE, {WHITE, 0.0});
      drawing.text(p, text, {10.0, Anchor::Middle, GREY});
    }
    const std::string least = fmt::format("≤ {} dB", FLOOR);
    drawing.patch({centre.x - 24.0, centre.y - 6.0}, {centre.x + 24.0, centre.y + 6.0}, 3.0, WHITE,
                  {WHITE, 0.0});
    drawing.text(centre, least, {10.0, Anchor::Middle, GREY});
  }

  /// The directions that the curve was computed at.
  void drawDots(const std::vector<double>& azimuths, const std::vector<double>& gains) const {
    if (azimuths.size() > MAX_DOTS) return;
    for (std::size_t i = 0; i < azimuths.size(); ++i) {
      drawing.circle(at(azimuths[i], radius(gains[i])), 1.6, {BLACK, 1.6});
    }
  }

  /// How loud the mean is towards a source, inside its mark.
  void drawGain(double azimuth, double gain) const {
    drawSourceGain(drawing, at(azimuth, R - 22.0), gain);
  }

  /// The curve, open where the directions leave a gap.
  void drawCurve(const std::vector<double>& azimuths, const std::vector<double>& gains,
                 const Stroke& stroke) const {
    const std::size_t N = azimuths.size();
    const double gap = widestStep(azimuths);
    std::size_t start = 0;  // the first point behind a gap, if there is one
    for (std::size_t i = 0; i < N; ++i) {
      if (stepBefore(azimuths, i) > gap) start = i;
    }
    const bool closed = stepBefore(azimuths, start) <= gap;
    std::vector<Point> points;
    for (std::size_t j = 0; j < N; ++j) {
      const std::size_t i = (start + j) % N;
      if (j > 0 && stepBefore(azimuths, i) > gap) {
        drawing.path(points, false, stroke);
        points.clear();
      }
      points.push_back(at(azimuths[i], radius(gains[i])));
    }
    drawing.path(points, closed, stroke);
  }

  void drawSpoke(double azimuth, bool isTarget) const {
    drawing.line(centre, at(azimuth, R), {isTarget ? BLACK : GREY, 1.1, isTarget ? "" : "4 3"});
  }

  void drawMark(int id, double azimuth, bool isTarget) const {
    drawSourceMark(drawing, at(azimuth, R), std::to_string(id), isTarget);
  }

 private:
  Point at(double azimuth, double distance) const {
    const double a = BF::radians(azimuth);
    return {centre.x - distance * std::sin(a), centre.y - distance * std::cos(a)};
  }

  double radius(double level) const {
    return std::isnan(level) ? 0.0 : R * std::clamp((level - FLOOR) / (top - FLOOR), 0.0, 1.0);
  }

  static double stepBefore(const std::vector<double>& azimuths, std::size_t i) {
    return i > 0 ? azimuths[i] - azimuths[i - 1] : azimuths.front() + 360.0 - azimuths.back();
  }

  /// Steps above it are gaps.
  static double widestStep(const std::vector<double>& azimuths) {
    std::vector<double> steps;
    for (std::size_t i = 0; i < azimuths.size(); ++i) steps.push_back(stepBefore(azimuths, i));
    std::nth_element(steps.begin(), steps.begin() + static_cast<long>(steps.size() / 2),
                     steps.end());
    return std::max(30.0, 2.5 * steps[steps.size() / 2]);
  }

  Drawing& drawing;
  Point centre;
  double R;
  int top;
};

/// The azimuth of a spoke that lies far from every source, between two labelled ones.
double freeAzimuth(const std::vector<PatternPicture::Source>& sources) {
  double best = 0.0;
  double widest = -1.0;
  for (int azimuth = -165; azimuth < 180; azimuth += 30) {
    double nearest = 360.0;
    for (const auto& source : sources) {
      nearest =
          std::min(nearest, std::abs(std::remainder(azimuth - source.direction.azimuth, 360.0)));
    }
    if (nearest <= widest) continue;
    widest = nearest;
    best = azimuth;
  }
  return best;
}

int topLevel(const std::vector<PatternPicture::Panel>& panels) {
  double highest = 0.0;
  for (const auto& panel : panels) {
    for (const auto& curve : panel.curves) {
      for (const double gain : curve) highest = std::max(highest, gain);
    }
  }
  return topRing(highest);
}

/// Where the parts of the picture lie, in pixels.
struct Layout {
  int width;
  int inRow;           // diagrams side by side
  double side;         // width of a panel
  double radius;       // of a diagram
  double panelHeight;  // its title included
  double legendTop;
  int legendColumns;
  int height;

  Layout(int pictureWidth, int panels, int legendEntries)
      : width(pictureWidth),
        inRow(panels == 4 ? 2 : std::min(panels, 3)),
        side(1.0 * width / inRow),
        radius(std::min(side / 2.0 - SIDE, MAX_RADIUS)),
        panelHeight(PANEL_TITLE + 2.0 * (radius + SIDE)),
        legendTop(HEADING + panelHeight * std::ceil(1.0 * panels / inRow)),
        legendColumns(std::max(1, static_cast<int>((width - 20.0) / LEGEND_WIDTH))),
        height(static_cast<int>(
            legendTop + LEGEND_LINE * std::ceil(1.0 * legendEntries / legendColumns) + 10.0)) {
    if (radius >= MIN_RADIUS) return;
    throw DataError(
        fmt::format("--width is {}, expected {} pixels or more for {} diagrams side by side", width,
                    inRow * 2.0 * (MIN_RADIUS + SIDE), inRow));
  }

  /// The upper end of a panel's middle line.
  Point panel(std::size_t p) const {
    const int row = static_cast<int>(p) / inRow;
    const int column = static_cast<int>(p) % inRow;
    return {side * (column + 0.5), HEADING + panelHeight * row};
  }

  Point legendEntry(int i) const {
    const int line = i / legendColumns;
    const int column = i % legendColumns;
    return {20.0 + LEGEND_WIDTH * column, legendTop + LEGEND_LINE * (line + 0.5)};
  }
};

void drawPanel(Drawing& drawing, const Layout& layout, const PatternPicture& picture,
               std::size_t number) {
  const PatternPicture::Panel& panel = picture.panels[number];
  const auto& target = picture.sources[panel.source];
  const Point upper = layout.panel(number);
  drawing.text(
      {upper.x, upper.y + 14.0},
      fmt::format("source {} at azimuth {}", target.id, degreesText(target.direction.azimuth)),
      {13.0, Anchor::Middle, BLACK, true});
  const Diagram diagram(drawing, {upper.x, upper.y + PANEL_TITLE + SIDE + layout.radius},
                        layout.radius, topLevel(picture.panels));
  diagram.drawGrid();
  for (std::size_t s = 0; s < picture.sources.size(); ++s) {
    diagram.drawSpoke(picture.sources[s].direction.azimuth, s == panel.source);
  }
  for (std::size_t c = 0; c < panel.curves.size(); ++c) {
    diagram.drawCurve(picture.azimuths, panel.curves[c], curveStroke(c, panel.curves.size()));
  }
  diagram.drawDots(picture.azimuths, panel.curves.back());
  diagram.drawLevels(freeAzimuth(picture.sources));
  for (std::size_t s = 0; s < panel.sourceGains.size(); ++s) {
    if (s != panel.source)
      diagram.drawGain(picture.sources[s].direction.azimuth, panel.sourceGains[s]);
  }
  // The target's patch last: it stays in sight where two sources share an azimuth.
  for (std::size_t s = 0; s < picture.sources.size(); ++s) {
    const auto& source = picture.sources[s];
    if (s != panel.source) diagram.drawMark(source.id, source.direction.azimuth, false);
  }
  diagram.drawMark(target.id, target.direction.azimuth, true);
}

void drawLegend(Drawing& drawing, const Layout& layout, const PatternPicture& picture) {
  const std::vector<double>& frequencies = picture.frequencies;
  const int curves = static_cast<int>(frequencies.size()) + 1;
  const auto name = [&](int i, const std::string& text) {
    const Point p = layout.legendEntry(i);
    drawing.text({p.x + 36.0, p.y}, text);
    return p;
  };
  for (int c = 0; c < curves; ++c) {
    const bool isLast = c + 1 == curves;
    const Point p = name(
        c, isLast ? picture.meanName : frequencyText(frequencies[static_cast<std::size_t>(c)]));
    drawing.line(p, {p.x + 30.0, p.y},
                 curveStroke(static_cast<std::size_t>(c), static_cast<std::size_t>(curves)));
  }
  for (const bool isTarget : {true, false}) {
    const Point p = name(isTarget ? curves : curves + 1, isTarget ? "target" : "interferer");
    drawSourceMark(drawing, {p.x + 15.0, p.y}, "n", isTarget);
  }
}

}  // namespace

Drawing PatternPicture::drawn(int width) const {
  const Layout layout(width, static_cast<int>(panels.size()),
                      static_cast<int>(frequencies.size()) + 3);
  Drawing drawing(width, layout.height + static_cast<int>(noteHeight()), title);
  drawHeading(drawing);
  for (std::size_t p = 0; p < panels.size(); ++p) drawPanel(drawing, layout, *this, p);
  drawLegend(drawing, layout, *this);
  drawNote(drawing);
  return drawing;
}
