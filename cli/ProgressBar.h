#pragma once

#include <cstdint>

/// One line on standard error, if that is a terminal, that is drawn again at every hundredth of the
/// work and goes when the work is done.
class ProgressBar {
 public:
  /// frameCount: of the whole work; 0 where it is not known, or nothing is to be shown.
  explicit ProgressBar(std::int64_t frameCount);
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;
  ~ProgressBar();

  /// Frames 0 … frame are done.
  void show(std::int64_t frame);

 private:
  static constexpr int WIDTH = 50;
  std::int64_t frames;
  int shown = -1;
};
