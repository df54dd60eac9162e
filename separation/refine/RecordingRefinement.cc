#include "separation/refine/RecordingRefinement.h"

#include <algorithm>
#include <cmath>

#include "separation/refine/MaskedCovariance.h"
#include "separation/refine/Masks.h"

namespace Separation {

namespace {

constexpr double SAME_PLACE = 0.1;  // of the distance from the origin
constexpr std::ptrdiff_t MOST_PLACES = 64;

double powerOf(const std::complex<double>* x, std::size_t stride, std::size_t M) {
  double sum = 0.0;
  for (std::size_t i = 0; i < M; ++i) sum += std::norm(x[i * stride]);
  return sum;
}

double distance(const BF::Location& a, const BF::Location& b) {
  return std::hypot(a.x - b.x, a.y - b.y, a.z - b.z);
}

}  // namespace

RecordingRefinement::RecordingRefinement(int microphones, int bins, int theRounds, double loading,
                                         int referenceMicrophone)
    : M(static_cast<std::size_t>(microphones)),
      K(static_cast<std::size_t>(bins)),
      rounds(theRounds),
      mixture(microphones, bins),
      weights(microphones, referenceMicrophone, loading) {}

RecordingRefinement::Place* RecordingRefinement::nearest(Places& places,
                                                         const BF::SourceLocation& source) {
  Place* best = nullptr;
  for (Place& place : places) {
    if (place.id != source.id) continue;
    if (!best || distance(place.at, source) < distance(best->at, source)) best = &place;
  }
  return best;
}

RecordingRefinement::Place& RecordingRefinement::placeOf(const BF::SourceLocation& source) {
  Place* known = nearest(gathered, source);
  if (known) {
    const double tolerance = SAME_PLACE * std::hypot(source.x, source.y, source.z);
    const auto count = std::count_if(gathered.begin(), gathered.end(),
                                     [&](const Place& place) { return place.id == source.id; });
    if (distance(known->at, source) <= tolerance || count >= MOST_PLACES) return *known;
  }
  gathered.push_back({source.id, source, 0, Covariance(K * M * M), std::vector<double>(K)});
  return gathered.back();
}

void RecordingRefinement::gather(const std::vector<BF::SourceLocation>& listed,
                                 const std::vector<std::size_t>& rows, const BF::Matrix& X,
                                 const BF::Matrix& Y) {
  present.clear();
  for (const std::size_t row : rows) present.push_back(&placeOf(listed[row]));
  masks.resize(rows.size());
  if (pass > 0) {
    components.clear();
    for (const std::size_t row : rows) {
      const Place* place = nearest(earlier, listed[row]);
      components.push_back(
          place ? AngularMixture::Component{place->R.data(), place->logDeterminants.data()}
                : AngularMixture::Component{});
    }
    mixture.load(components, X);
  }
  for (Place* place : present) ++place->frames;
  for (std::size_t k = 0; k < K; ++k) {
    const double power = pass == 0 ? powerOf(X.data() + k, K, M) : 1.0;
    if (!(power > 0.0) || !std::isfinite(power)) continue;
    if (pass == 0 ? !powerShares(Y, rows, k, masks) : !mixture.masks(k, masks)) continue;
    for (std::size_t s = 0; s < rows.size(); ++s) {
      double weight = masks[s];
      if (pass == 0) weight /= power;
      if (pass > 0 && !isLastGathering()) weight = mixture.weight(k, s, masks[s]);
      addOuterProduct(1.0, weight, X.data() + k, K, M, present[s]->R.data() + k * M * M);
    }
  }
}

void RecordingRefinement::nextPass() {
  inForce.clear();
  earlier.swap(gathered);
  gathered.clear();
  for (Place& place : earlier) {
    if (!isLastGathering()) {
      mixture.learn(place.R, place.logDeterminants);
      continue;
    }
    const double scale = 1.0 / static_cast<double>(std::max<std::int64_t>(place.frames, 1));
    for (std::complex<double>& value : place.R) value *= scale;
  }
  ++pass;
}

void RecordingRefinement::computeWeights() {
  const std::size_t N = wanted.size();
  W.assign(K * N * M, 0.0);
  const Covariance silence(M * M);
  std::vector<const std::complex<double>*> R(N);
  for (std::size_t k = 0; k < K; ++k) {
    for (std::size_t s = 0; s < N; ++s) {
      R[s] = wanted[s] ? wanted[s]->R.data() + k * M * M : silence.data();
    }
    weights.compute(R, W.data() + k * N * M);
  }
}

void RecordingRefinement::refine(const std::vector<BF::SourceLocation>& listed,
                                 const std::vector<std::size_t>& rows, const BF::Matrix& X,
                                 BF::Matrix& Y) {
  wanted.clear();
  for (const std::size_t row : rows) wanted.push_back(nearest(earlier, listed[row]));
  if (wanted != inForce) {
    inForce.clear();
    computeWeights();
    inForce = wanted;
  }
  BF::reshape(Y, static_cast<int>(listed.size()), static_cast<int>(K));
  std::fill(Y.data(), Y.data() + listed.size() * K, 0.0);
  for (std::size_t k = 0; k < K; ++k) {
    applyRows(W.data() + k * rows.size() * M, rows, X.data() + k, K, M, Y.data() + k);
  }
}

}  // namespace Separation
