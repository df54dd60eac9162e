#include "separation/LearntRows.h"

#include <algorithm>
#include <utility>

#include "bf/CMSNR.h"

namespace Separation {

namespace {

/// to := from, which has the same shape.
void overwrite(const BF::Matrix& from, BF::Matrix& to) {
  std::copy(from.data(), from.data() + from.getRowCount() * from.getColumnCount(), to.data());
}

}  // namespace

void LearntRows::keep(const BF::BF& engine) {
  const auto* pairs = dynamic_cast<const BF::CMSNR*>(&engine);
  const std::size_t N = engine.sources.size();
  for (std::size_t s = 0; s < N; ++s) {
    Learnt learnt;
    for (std::size_t k = 0; k < engine.separationMatrices.size(); ++k) {
      learnt.rows.push_back(engine.separationMatrices[k].getRow(static_cast<int>(s)));
      if (!pairs) continue;
      learnt.signal.push_back(pairs->signalCorrelations[k * N + s]);
      learnt.noise.push_back(pairs->noiseCorrelations[k * N + s]);
    }
    known[engine.sources[s].id] = std::move(learnt);
  }
}

void LearntRows::restore(const std::vector<std::size_t>& indices, BF::BF& engine) const {
  auto* pairs = dynamic_cast<BF::CMSNR*>(&engine);
  const std::size_t N = engine.sources.size();
  for (const std::size_t s : indices) {
    const auto found = known.find(engine.sources[s].id);
    if (found == known.end()) continue;
    const Learnt& learnt = found->second;
    for (std::size_t k = 0; k < learnt.rows.size(); ++k) {
      BF::copyRow(learnt.rows[k], 0, engine.separationMatrices[k], static_cast<int>(s));
      if (!pairs) continue;
      overwrite(learnt.signal[k], pairs->signalCorrelations[k * N + s]);
      overwrite(learnt.noise[k], pairs->noiseCorrelations[k * N + s]);
    }
  }
}

}  // namespace Separation
