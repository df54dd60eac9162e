#include "pictures/LevelColumns.h"

#include <algorithm>
#include <cmath>

#include "dsp/Decibels.h"

void LevelColumns::add(const std::complex<float>* spectrum) {
  if (frames == 2 * MIN_COLUMNS * perColumn) halve();
  const std::size_t column = frames / perColumn;
  sums.resize((column + 1) * bins);
  for (std::size_t k = 0; k < bins; ++k) {
    sums[column * bins + k] += std::norm(std::complex<double>(spectrum[k]));
  }
  ++frames;
}

void LevelColumns::halve() {
  for (std::size_t c = 0; c < MIN_COLUMNS; ++c) {
    for (std::size_t k = 0; k < bins; ++k) {
      sums[c * bins + k] = sums[2 * c * bins + k] + sums[(2 * c + 1) * bins + k];
    }
  }
  sums.resize(MIN_COLUMNS * bins);
  perColumn *= 2;
}

std::vector<float> LevelColumns::levels(double unity) const {
  std::vector<float> result(sums.size());
  for (std::size_t i = 0; i < sums.size(); ++i) {
    const std::size_t first = i / bins * perColumn;
    const auto count = static_cast<double>(std::min(perColumn, frames - first));
    result[i] = static_cast<float>(Audio::decibels(sums[i] / (count * unity)));
  }
  return result;
}
