#include "pictures/PatternMap.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <string>

#include "dsp/DataError.h"
#include "geometry/Direction.h"
#include "pictures/Raster.h"

namespace {

constexpr int FLOOR = PatternCaption::FLOOR;
constexpr std::size_t COLUMNS = 360;  // of a map, a degree each
constexpr std::size_t ROWS = 180;
constexpr int NOTHING = -1;  // no direction is near

// Sizes in pixels.
constexpr double LEFT = 46.0;  // of a map, for the elevations
constexpr double RIGHT = 18.0;
constexpr double PANEL_TITLE = 28.0;
constexpr double FOOT = 26.0;  // below a map, for the azimuths
constexpr double MIN_MAP = 200.0;
constexpr double LEGEND = 52.0;
constexpr double SCALE_WIDTH = 220.0;

/// The number of the direction nearest to the middle of each point of a map, row by row.
std::vector<int> nearestDirections(const std::vector<BF::Direction>& directions) {
  std::vector<BF::Location> ends;
  for (const BF::Direction& d : directions) {
    ends.push_back(BF::locationOf({d.azimuth, d.elevation, 1.0}));
  }
  // As far apart as if they were spread evenly over the sphere, 15 degrees at least.
  const double reach = std::max(
      15.0, std::sqrt(41253.0 / static_cast<double>(std::max<std::size_t>(1, ends.size()))));
  std::vector<int> nearest(ROWS * COLUMNS, NOTHING);
  for (std::size_t row = 0; row < ROWS; ++row) {
    for (std::size_t column = 0; column < COLUMNS; ++column) {
      const BF::Location p = BF::locationOf(
          {179.5 - static_cast<double>(column), 89.5 - static_cast<double>(row), 1.0});
      double best = std::cos(BF::radians(reach));
      for (std::size_t i = 0; i < ends.size(); ++i) {
        const double cosine = p.x * ends[i].x + p.y * ends[i].y + p.z * ends[i].z;
        if (cosine <= best) continue;
        best = cosine;
        nearest[row * COLUMNS + column] = static_cast<int>(i);
      }
    }
  }
  return nearest;
}

/// Where the parts of the picture lie, in pixels.
struct Layout {
  int inRow;        // maps side by side
  double side;      // width of a panel
  double mapWidth;  // twice a map's height
  double legendTop;

  Layout(int width, std::size_t panels)
      : inRow(panels > 1 ? 2 : 1), side(1.0 * width / inRow), mapWidth(side - LEFT - RIGHT) {
    if (mapWidth < MIN_MAP) {
      throw DataError(
          fmt::format("--width is {}, expected {} pixels or more for {} maps side by side", width,
                      inRow * (MIN_MAP + LEFT + RIGHT), inRow));
    }
    const double rows = std::ceil(static_cast<double>(panels) / inRow);
    legendTop = PatternCaption::HEADING + rows * panelHeight();
  }

  double panelHeight() const { return PANEL_TITLE + mapWidth / 2.0 + FOOT; }

  /// The upper left corner of a map.
  Point map(std::size_t panel) const {
    const int row = static_cast<int>(panel) / inRow;
    const int column = static_cast<int>(panel) % inRow;
    return {side * column + LEFT, PatternCaption::HEADING + panelHeight() * row + PANEL_TITLE};
  }
};

/// One map.
class Map {
 public:
  Map(Drawing& target, Point upperLeft, double pixels)
      : drawing(target), corner(upperLeft), W(pixels), H(pixels / 2.0) {}

  void drawLevels(const std::vector<int>& nearest, const std::vector<double>& gains,
                  int top) const {
    Raster raster(COLUMNS, ROWS);
    for (std::size_t i = 0; i < nearest.size(); ++i) {
      const int direction = nearest[i];
      raster.at(i % COLUMNS, i / COLUMNS) =
          direction == NOTHING
              ? PALE
              : scaleColour((gains[static_cast<std::size_t>(direction)] - FLOOR) / (top - FLOOR));
    }
    const Point end = {corner.x + W, corner.y + H};
    drawing.image(raster, corner, end, corner, end);
  }

  void drawAxes() const {
    drawing.path(
        {corner, {corner.x + W, corner.y}, {corner.x + W, corner.y + H}, {corner.x, corner.y + H}},
        true, {GREY, 1.0});
    const int step = W < 420.0 ? 90 : 45;
    for (int azimuth = 180; azimuth >= -180; azimuth -= step) {
      const Point p = at(azimuth, -90.0);
      drawing.line(p, {p.x, p.y + 4.0}, {GREY, 1.0});
      drawing.text({p.x, p.y + 13.0}, degreesText(azimuth), {11.0, Anchor::Middle, GREY});
    }
    for (int elevation = -90; elevation <= 90; elevation += 45) {
      const Point p = at(180.0, elevation);
      drawing.line({p.x - 4.0, p.y}, p, {GREY, 1.0});
      drawing.text({p.x - 7.0, p.y}, degreesText(elevation), {11.0, Anchor::End, GREY});
    }
  }

  void drawMark(const PatternCaption::Source& source, bool isTarget) const {
    drawSourceMark(drawing, at(source), std::to_string(source.id), isTarget);
  }

  void drawGain(const PatternCaption::Source& source, double gain) const {
    const Point p = at(source);
    const double below = p.y + 34.0 < corner.y + H ? 19.0 : -19.0;
    drawSourceGain(drawing, {std::clamp(p.x, corner.x + 40.0, corner.x + W - 40.0), p.y + below},
                   gain);
  }

 private:
  Point at(double azimuth, double elevation) const {
    return {corner.x + W * (180.0 - azimuth) / 360.0, corner.y + H * (90.0 - elevation) / 180.0};
  }
  Point at(const PatternCaption::Source& source) const {
    return at(source.direction.azimuth, source.direction.elevation);
  }

  Drawing& drawing;
  Point corner;
  double W;
  double H;
};

void drawLegend(Drawing& drawing, const PatternMap& map, double upper, int top, bool hasGaps) {
  const Point from = {LEFT, upper + 8.0};
  const Point to = {LEFT + SCALE_WIDTH, upper + 20.0};
  Raster raster(256, 1);
  for (std::size_t i = 0; i < 256; ++i) {
    raster.at(i, 0) = scaleColour(static_cast<double>(i) / 255.0);
  }
  drawing.image(raster, from, to, from, to);
  drawing.path({from, {to.x, from.y}, to, {from.x, to.y}}, true, {GREY, 1.0});
  for (int level = FLOOR; level <= top; level += 20) {
    const double x = from.x + SCALE_WIDTH * (level - FLOOR) / (top - FLOOR);
    drawing.line({x, to.y}, {x, to.y + 4.0}, {GREY, 1.0});
    drawing.text({x, to.y + 13.0}, fmt::format("{}{} dB", level == FLOOR ? "≤ " : "", level),
                 {10.0, Anchor::Middle, GREY});
  }
  double x = to.x + 24.0;
  const double middle = (from.y + to.y) / 2.0;
  const auto name = [&](const std::string& text) {
    drawing.text({x, middle}, text);
    x += 7.2 * static_cast<double>(text.size()) + 18.0;
  };
  name(map.meanName);
  for (const bool isTarget : {true, false}) {
    drawSourceMark(drawing, {x, middle}, "n", isTarget);
    x += 18.0;
    name(isTarget ? "target" : "interferer");
  }
  if (!hasGaps) return;
  drawing.patch({x - 8.0, middle - 6.0}, {x + 8.0, middle + 6.0}, 0.0, PALE, {GREY, 0.8});
  x += 16.0;
  name("no direction near");
}

}  // namespace

Drawing PatternMap::drawn(int width) const {
  const Layout layout(width, panels.size());
  Drawing drawing(width, static_cast<int>(layout.legendTop + LEGEND + noteHeight()), title);
  drawHeading(drawing);
  double highest = 0.0;
  for (const Panel& panel : panels) {
    for (const double gain : panel.gains) highest = std::max(highest, gain);
  }
  const int top = topRing(highest);
  const std::vector<int> nearest = nearestDirections(directions);
  for (std::size_t p = 0; p < panels.size(); ++p) {
    const Panel& panel = panels[p];
    const Source& target = sources[panel.source];
    const Point corner = layout.map(p);
    drawing.text(
        {corner.x, corner.y - 13.0},
        fmt::format("source {} at azimuth {}, elevation {}", target.id,
                    degreesText(target.direction.azimuth), degreesText(target.direction.elevation)),
        {13.0, Anchor::Start, BLACK, true});
    const Map map(drawing, corner, layout.mapWidth);
    map.drawLevels(nearest, panel.gains, top);
    map.drawAxes();
    for (std::size_t s = 0; s < sources.size(); ++s) {
      if (s == panel.source) continue;
      map.drawGain(sources[s], panel.sourceGains[s]);
      map.drawMark(sources[s], false);
    }
    map.drawMark(target, true);
  }
  const bool hasGaps = std::find(nearest.begin(), nearest.end(), NOTHING) != nearest.end();
  drawLegend(drawing, *this, layout.legendTop, top, hasGaps);
  drawNote(drawing);
  return drawing;
}
