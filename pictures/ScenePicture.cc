#include "pictures/ScenePicture.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "dsp/DataError.h"
#include "pictures/Ticks.h"

namespace {

// Sizes in pixels.
constexpr int MIN_WIDTH = 320;
constexpr double MAX_RADIUS = 230.0;
constexpr double HEADING = 40.0;
constexpr double SIDE = 30.0;    // around the view from above
constexpr double ROW = 22.0;     // of a source in the list of times
constexpr double NAMES = 110.0;  // left of the bars
constexpr double FOOT = 44.0;    // times below the bars

/// A source as it is drawn.
struct Shown {
  const Audio::SceneSource& source;
  bool isNoise;
  Colour colour;

  std::string name() const { return fmt::format("{} {}", isNoise ? "noise" : "source", source.id); }
};

std::vector<Shown> shownOf(const Audio::Scene& scene) {
  std::vector<Shown> result;
  const auto count = static_cast<double>(scene.sources().size());
  for (const Audio::SceneSource& source : scene.sources()) {
    // Dark enough for white letters.
    const double share = count > 1 ? static_cast<double>(result.size()) / (count - 1.0) : 0.0;
    result.push_back({source, false, scaleColour(0.57 + 0.38 * share)});
  }
  for (const Audio::SceneSource& source : scene.noiseSources()) {
    result.push_back({source, true, GREY});
  }
  return result;
}

/// The places along a source's way.
std::vector<BF::Location> wayOf(const Audio::SceneSource& source) {
  constexpr int STEPS = 200;
  std::vector<BF::Location> way = {source.track.front().position};
  const double begin = source.track.front().t;
  const double end = source.track.back().t;
  for (int i = 1; i <= STEPS && end > begin; ++i) {
    way.push_back(source.positionAt(begin + (end - begin) * i / STEPS));
  }
  return way;
}

/// The view from above: metres to pixels.
class View {
 public:
  View(Drawing& target, Point middle, double outerRadius, const std::vector<Shown>& shown)
      : drawing(target), centre(middle), R(outerRadius) {
    for (const Shown& one : shown) {
      for (const auto& p : wayOf(one.source)) farthest = std::max(farthest, std::hypot(p.x, p.y));
    }
    if (farthest <= 0.0) farthest = 1.0;
  }

  void drawGrid() const {
    for (const double metres : ticks(0.0, farthest, 4)) {
      if (metres <= 0.0) continue;
      drawing.circle(centre, scale() * metres, {PALE, 0.8});
      drawing.text({centre.x + 4.0, centre.y + scale() * metres - 8.0},
                   fmt::format("{:g} m", metres), {10.0, Anchor::Start, GREY});
    }
    drawing.line({centre.x - R, centre.y}, {centre.x + R, centre.y}, {PALE, 0.8});
    drawing.line({centre.x, centre.y - R}, {centre.x, centre.y + R}, {PALE, 0.8});
    drawing.text({centre.x, centre.y - R - 10.0}, "front", {11.0, Anchor::Middle, GREY});
    drawing.text({centre.x - R - 4.0, centre.y - 10.0}, "left", {11.0, Anchor::Middle, GREY});
    drawing.patch({centre.x - 4.0, centre.y - 4.0}, {centre.x + 4.0, centre.y + 4.0}, 1.0, BLACK,
                  {BLACK, 1.0});
    drawing.text({centre.x + 10.0, centre.y + 10.0}, "array", {11.0, Anchor::Start, GREY});
  }

  /// The way, a ring where it begins, and the id where it ends.
  void draw(const Shown& one) const {
    const std::vector<BF::Location> way = wayOf(one.source);
    std::vector<Point> points;
    for (const auto& p : way) points.push_back(at(p));
    if (points.size() > 1) {
      drawing.path(points, false, {one.colour, 2.0, one.isNoise ? "4 3" : ""});
      drawing.circle(points.front(), 4.0, {one.colour, 2.0});
    }
    const Point p = points.back();
    const std::string id = std::to_string(one.source.id);
    const double half = 6.0 + 3.6 * static_cast<double>(id.size());
    drawing.patch({p.x - half, p.y - 9.0}, {p.x + half, p.y + 9.0}, 9.0,
                  one.isNoise ? WHITE : one.colour, {one.colour, 1.4});
    drawing.text(p, id, {11.0, Anchor::Middle, one.isNoise ? BLACK : WHITE, true});
  }

 private:
  double scale() const { return 0.88 * R / farthest; }
  Point at(const BF::Location& p) const {
    return {centre.x - scale() * p.y, centre.y - scale() * p.x};
  }

  Drawing& drawing;
  Point centre;
  double R;
  double farthest = 0.0;  // metres
};

/// The list of times: a row for each source, from the upper left corner on.
void drawTimes(Drawing& drawing, const std::vector<Shown>& shown, double top, double duration) {
  const double left = NAMES;
  const double right = drawing.width() - 24.0;
  const double span = duration > 0.0 ? duration : 1.0;
  const auto x = [&](double seconds) {
    return left + (right - left) * std::clamp(seconds / span, 0.0, 1.0);
  };
  const double bottom = top + ROW * static_cast<double>(shown.size());
  const auto times = duration > 0.0 ? ticks(0.0, duration, 8) : std::vector<double>();
  for (const double tick : times) {
    drawing.line({x(tick), top}, {x(tick), bottom + 4.0}, {PALE, 0.8});
    drawing.text({x(tick), bottom + 14.0}, fmt::format("{:g}", tick), {11.0, Anchor::Middle});
  }
  if (!times.empty()) {
    drawing.text({(left + right) / 2.0, bottom + 31.0}, "time (s)", {12.0, Anchor::Middle});
  }
  for (std::size_t i = 0; i < shown.size(); ++i) {
    const double middle = top + ROW * (static_cast<double>(i) + 0.5);
    drawing.text({left - 10.0, middle}, shown[i].name(), {12.0, Anchor::End});
    const auto bar = [&](double begin, double end) {
      drawing.patch({x(begin), middle - 7.0}, {x(end), middle + 7.0}, 3.0,
                    shown[i].isNoise ? WHITE : shown[i].colour, {shown[i].colour, 1.2});
    };
    if (shown[i].source.always) {
      bar(0.0, span);
      drawing.text({(left + right) / 2.0, middle}, "always",
                   {11.0, Anchor::Middle, shown[i].isNoise ? BLACK : WHITE});
    }
    for (const Audio::TimeRange& range : shown[i].source.active) {
      if (range.end > 0.0 && range.begin < span) bar(range.begin, range.end);
    }
  }
}

}  // namespace

double sceneEnd(const Audio::Scene& scene) {
  double end = 0.0;
  for (const auto* list : {&scene.sources(), &scene.noiseSources()}) {
    for (const Audio::SceneSource& source : *list) {
      if (source.track.size() > 1) end = std::max(end, source.track.back().t);
      for (const Audio::TimeRange& range : source.active) {
        if (std::isfinite(range.end)) end = std::max(end, range.end);
      }
    }
  }
  return end;
}

Drawing scenePicture(const Audio::Scene& scene, const std::string& title, double duration,
                     int width) {
  if (width < MIN_WIDTH) {
    throw DataError(fmt::format("--width is {}, expected {} pixels or more", width, MIN_WIDTH));
  }
  const std::vector<Shown> shown = shownOf(scene);
  const double radius = std::min(MAX_RADIUS, width / 2.0 - 2.0 * SIDE);
  const double times = HEADING + 2.0 * (radius + SIDE) + 10.0;
  const double height = times + ROW * static_cast<double>(shown.size()) + FOOT;
  Drawing drawing(width, static_cast<int>(std::ceil(height)), title);
  drawing.text({20.0, 20.0}, shortened(title, width - 40.0, 16.0),
               {16.0, Anchor::Start, BLACK, true});
  const View view(drawing, {width / 2.0, HEADING + SIDE + radius}, radius, shown);
  view.drawGrid();
  for (const Shown& one : shown) view.draw(one);
  drawTimes(drawing, shown, times, duration);
  return drawing;
}
