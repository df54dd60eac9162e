#pragma once

#include <cstdint>

/// One line on standard error, if that is a terminal, that is drawn again at every hundredth of the
/// work, or at every second of sound where nobody knows how much there will be, and goes when the
/// work is done.
class ProgressBar {
 public:
  /// frameCount: of the whole work; 0 where it is not known.
  ProgressBar(bool isWanted, std::int64_t frameCount);
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;
  ~ProgressBar();

  /// Frames 0 … frame are done, the newest at `seconds` of the recording.
  void show(std::int64_t frame, double seconds);

 private:
  static constexpr int WIDTH = 50;
  bool isShown;
  std::int64_t frames;
  int shown = -1;
};
