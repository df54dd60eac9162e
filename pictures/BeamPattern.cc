#include "pictures/BeamPattern.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstddef>
#include <numeric>

#include "dsp/Decibels.h"

std::vector<double> powerGains(const BF::BF& engine, int row, int position) {
  engine.requireSeparationMatrices();
  std::vector<double> gains;
  for (std::size_t k = 0; k < engine.separationMatrices.size(); ++k) {
    const BF::Matrix w = engine.separationMatrices[k].getRow(row);
    const BF::Matrix h = engine.tfDatabase->transferFunctions.at(k).getColumn(position);
    gains.push_back(std::norm((w * h).scalar()));
  }
  return gains;
}

double broadbandGain(const std::vector<double>& powerGains) {
  const double sum = std::accumulate(powerGains.begin(), powerGains.end(), 0.0);
  return Audio::decibels(sum / static_cast<double>(std::max<std::size_t>(1, powerGains.size())));
}
