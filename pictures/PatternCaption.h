#pragma once

#include <string>
#include <vector>

#include "geometry/Direction.h"
#include "pictures/Drawing.h"

/// What pictures of directional patterns say beside their diagrams, and the marks in these.
struct PatternCaption {
  /// A source, and where it really is.
  struct Source {
    int id = 0;
    BF::Direction direction;
  };

  static constexpr int FLOOR = -40;            ///< dB, the lowest level that is told apart
  static constexpr double HEADING = 56.0;      ///< pixels, height of the title and the subtitle
  static constexpr double NOTE_HEIGHT = 20.0;  ///< pixels

  std::string title;
  std::string subtitle;
  std::string meanName;  ///< of what is the mean over frequencies
  std::string note;      ///< a sentence below the diagrams, or empty
  std::vector<Source> sources;

  void drawHeading(Drawing& drawing) const;

  /// The note, if there is one, at the foot of the drawing.
  void drawNote(Drawing& drawing) const;

  double noteHeight() const { return note.empty() ? 0.0 : NOTE_HEIGHT; }
};

/// The ring at or above the highest gain in dB, 20 at most and 0 at least.
int topRing(double highestGain);

/// A source's id on a patch: black for the target, white for others.
void drawSourceMark(Drawing& drawing, Point at, const std::string& id, bool isTarget);

/// How loud the mean is towards a source, on a patch of white.
void drawSourceGain(Drawing& drawing, Point at, double gain);

std::string degreesText(double value);
