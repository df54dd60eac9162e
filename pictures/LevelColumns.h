#pragma once

#include <complex>
#include <cstddef>
#include <vector>

/// Gathers the mean power of frames into columns: one frame in each at first; when there are
/// twice as many as fit, neighbours become one.
class LevelColumns {
 public:
  static constexpr std::size_t MIN_COLUMNS = 1024;  ///< columns, once neighbours have become one

  explicit LevelColumns(std::size_t binCount) : bins(binCount) {}

  /// Adds a frame's `bins` values.
  void add(const std::complex<float>* spectrum);

  std::size_t framesPerColumn() const { return perColumn; }

  /// Mean powers in dB over that of `unity`, bins in turn; the last column is of the frames left.
  std::vector<float> levels(double unity) const;

 private:
  void halve();

  std::size_t bins;
  std::size_t perColumn = 1;
  std::size_t frames = 0;
  std::vector<double> sums;  // of powers, columns in turn
};
