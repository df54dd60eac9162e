#include "pictures/PatternCaption.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "pictures/BeamPattern.h"

void PatternCaption::drawHeading(Drawing& drawing) const {
  const double width = drawing.width() - 40.0;
  drawing.text({20.0, 20.0}, shortened(title, width, 16.0), {16.0, Anchor::Start, BLACK, true});
  drawing.text({20.0, 42.0}, shortened(subtitle, width, 12.0), {12.0, Anchor::Start, GREY});
}

void PatternCaption::drawNote(Drawing& drawing) const {
  if (note.empty()) return;
  drawing.text({20.0, drawing.height() - NOTE_HEIGHT / 2.0 - 4.0},
               shortened(note, drawing.width() - 40.0, 11.0), {11.0, Anchor::Start, GREY});
}

int topRing(double highestGain) {
  constexpr int MAX_TOP = 20;
  constexpr int STEP = 10;
  // Half a decibel above a ring is no reason for the next one.
  const double highest = std::clamp<double>(highestGain, 0.0, MAX_TOP);
  return STEP * static_cast<int>(std::ceil((highest - 0.5) / STEP));
}

void drawSourceMark(Drawing& drawing, Point at, const std::string& id, bool isTarget) {
  const double half = 6.0 + 3.6 * static_cast<double>(id.size());
  drawing.patch({at.x - half, at.y - 9.0}, {at.x + half, at.y + 9.0}, 9.0, isTarget ? BLACK : WHITE,
                {isTarget ? WHITE : GREY, 1.2});
  drawing.text(at, id, {11.0, Anchor::Middle, isTarget ? WHITE : BLACK, true});
}

void drawSourceGain(Drawing& drawing, Point at, double gain) {
  const std::string text = gainText(gain);
  const double half = 3.2 * static_cast<double>(text.size());
  drawing.patch({at.x - half, at.y - 7.0}, {at.x + half, at.y + 7.0}, 3.0, WHITE, {PALE, 0.8});
  drawing.text(at, text, {10.0, Anchor::Middle, BLACK, true});
}

std::string degreesText(double value) { return fmt::format("{:.4g}°", value + 0.0); }
