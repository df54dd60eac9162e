#include "scoring/ReferenceSpan.h"

#include <utility>

#include "dsp/FastConvolution.h"

ReferenceSpan::ReferenceSpan(std::vector<const Signal*> signals, int taps)
    : references(std::move(signals)), T(taps), gram(factor()) {}

// 0, 1, −1, 2, −2 …: the signal itself comes first, so that newEnergy tells of it.
int ReferenceSpan::delay(std::size_t tap) const {
  const int half = static_cast<int>(tap + 1) / 2;
  return tap % 2 == 1 ? half : -half;
}

// Signal i · T + a is s_i delayed by d(a). The inner product of two of them depends on the
// difference of their delays: Σ_n s_i(n − d(a)) · s_j(n − d(b)) = r_ij(d(a) − d(b)).
GramFactor ReferenceSpan::factor() const {
  const auto taps = static_cast<std::size_t>(T);
  std::vector<std::vector<std::vector<double>>> r(references.size());
  for (std::size_t i = 0; i < references.size(); ++i) {
    for (std::size_t j = 0; j <= i; ++j) {
      r[i].push_back(crossCorrelation(*references[i], *references[j], T - 1));
    }
  }
  return GramFactor(references.size() * taps, [&](std::size_t row, std::size_t column) {
    const int lag = delay(row % taps) - delay(column % taps);
    return r[row / taps][column / taps][static_cast<std::size_t>(lag + T - 1)];
  });
}

double ReferenceSpan::newEnergy(std::size_t i) const {
  return gram.newEnergy(i * static_cast<std::size_t>(T));
}

ReferenceSpan::Signal ReferenceSpan::project(const Signal& signal) const {
  const auto taps = static_cast<std::size_t>(T);
  const int maxLag = T / 2;
  std::vector<double> b;
  for (const Signal* reference : references) {
    const std::vector<double> r = crossCorrelation(*reference, signal, maxLag);
    for (std::size_t a = 0; a < taps; ++a) {
      const int index = delay(a) + maxLag;
      b.push_back(r[static_cast<std::size_t>(index)]);
    }
  }
  const std::vector<double> c = gram.solve(std::move(b));

  Signal projection(signal.size() + taps - 1);
  for (std::size_t i = 0; i < references.size(); ++i) {
    std::vector<double> h(taps);
    for (std::size_t a = 0; a < taps; ++a) {
      const int index = delay(a) + leadIn();
      h[static_cast<std::size_t>(index)] = c[i * taps + a];
    }
    const Signal part = convolution(*references[i], h);
    for (std::size_t n = 0; n < projection.size(); ++n) projection[n] += part[n];
  }
  return projection;
}
