#pragma once

#include <string>
#include <utility>
#include <vector>

/// A sound of the report, with all that is shown of it.
struct ReportTrack {
  enum class Kind { Mixture, Source, Reference };

  Kind kind = Kind::Source;
  std::string name;
  std::string place;               ///< where it comes from, or the microphone, or empty
  std::string sound = {};          ///< the bytes of a sound file that browsers play
  std::string spectrogram = {};    ///< the bytes of a PNG image, 0 Hz below
  double spectrogramBegin = 0.0;   ///< seconds: its left edge
  double spectrogramLength = 0.0;  ///< seconds that it covers
  std::vector<std::pair<double, double>> active = {};  ///< seconds; empty for the mixture
};

/// A picture of what a run lets through from each direction.
struct ReportPattern {
  int source = 0;     ///< its id
  double time = 0.0;  ///< seconds from which on it holds
  std::string svg;
};

/// A row of scores, as texts in the order of ReportPage::scoreHeads.
using ReportRow = std::vector<std::string>;

struct ReportRun {
  std::string name;
  std::vector<std::pair<std::string, std::string>> facts;  ///< what, and its value
  std::vector<std::string> warnings;
  std::vector<ReportPattern> patterns;
  std::vector<ReportRow> scores;
};

/// What the page shows.
struct ReportPage {
  std::string title;
  std::string subtitle;
  double duration = 0.0;  ///< seconds
  int samplingRate = 0;   ///< Hz
  double peak = 1.0;      ///< the largest sample of all sounds, above 0
  std::string soundNote;  ///< how the sounds were packed
  std::string levelNote;  ///< what the colours of the spectrograms mean
  std::string scoreNote;  ///< how the scores were computed
  ReportRow scoreHeads;
  std::string scene;  ///< a picture as SVG, or empty
  std::vector<ReportTrack> tracks;
  std::vector<ReportRun> runs;

  /// One self-contained HTML document, which asks no network.
  std::string html() const;
};
