#include "separation/refine/RunningRefinement.h"

#include <algorithm>
#include <cmath>

#include "separation/refine/MaskedCovariance.h"
#include "separation/refine/Masks.h"

namespace Separation {

namespace {

constexpr double FORGOTTEN_AFTER = 5.0;  // times the time constant of the recursion

}  // namespace

RunningRefinement::RunningRefinement(int microphones, int bins, double forgetting, double loading,
                                     int referenceMicrophone)
    : M(static_cast<std::size_t>(microphones)),
      K(static_cast<std::size_t>(bins)),
      lambda(forgetting),
      members{{{}, {}, {}, {microphones, referenceMicrophone, loading}}} {}

void RunningRefinement::findStates(const std::vector<BF::SourceLocation>& listed,
                                   const std::vector<std::size_t>& rows) {
  std::erase_if(states, [&](const State& state) {
    return static_cast<double>(frame - state.last) * (1.0 - lambda) > FORGOTTEN_AFTER;
  });
  present.clear();
  for (const std::size_t row : rows) {
    const int id = listed[row].id;
    auto found = std::find_if(states.begin(), states.end(),
                              [id](const State& state) { return state.id == id; });
    if (found == states.end()) {
      found = states.insert(states.end(), State{id, 0, frame, Covariance(K * M * M)});
    }
    present.push_back(&*found);
  }
  members.resize(static_cast<std::size_t>(team.size()), members[0]);
  for (Member& member : members) {
    member.masks.resize(rows.size());
    member.refinedShares.resize(rows.size());
    member.R.resize(rows.size());
  }
  W.resize(K * rows.size() * M);
  ofWeights.reserve(rows.size());
  hasWeights = present == ofWeights;
}

// Leaves in Y what it likes: the output replaces it.
bool RunningRefinement::findMasks(const std::vector<std::size_t>& rows, const BF::Matrix& X,
                                  std::size_t k, BF::Matrix& Y, Member& its) const {
  std::vector<double>& masks = its.masks;
  std::vector<double>& refinedShares = its.refinedShares;
  if (!powerShares(Y, rows, k, masks)) return false;
  if (!hasWeights) return true;
  applyRows(W.data() + k * rows.size() * M, rows, X.data() + k, K, M, Y.data() + k);
  if (!powerShares(Y, rows, k, refinedShares)) return true;
  double total = 0.0;
  for (std::size_t s = 0; s < rows.size(); ++s) total += masks[s] * refinedShares[s];
  if (!(total > 0.0)) return true;
  for (std::size_t s = 0; s < rows.size(); ++s) masks[s] *= refinedShares[s] / total;
  return true;
}

void RunningRefinement::refine(const std::vector<BF::SourceLocation>& listed,
                               const std::vector<std::size_t>& rows, const BF::Matrix& X,
                               BF::Matrix& Y) {
  findStates(listed, rows);
  for (State* state : present) {
    ++state->frames;
    state->last = frame;
  }
  ++frame;
  const double nanoseconds = members[0].weights.nanosecondsFor(rows.size());
  team.share(static_cast<int>(K), nanoseconds, [&](int first, int end, int member) {
    for (int k = first; k < end; ++k) {
      refineBin(rows, X, static_cast<std::size_t>(k), Y, members[static_cast<std::size_t>(member)]);
    }
  });
  ofWeights = present;
}

void RunningRefinement::refineBin(const std::vector<std::size_t>& rows, const BF::Matrix& X,
                                  std::size_t k, BF::Matrix& Y, Member& its) {
  const std::complex<double>* x = X.data() + k;
  const bool counts = findMasks(rows, X, k, Y, its);
  for (std::size_t s = 0; s < rows.size(); ++s) {
    State& state = *present[s];
    std::complex<double>* Rs = state.R.data() + k * M * M;
    its.R[s] = Rs;
    if (!counts) continue;
    const double w = std::max(1.0 / static_cast<double>(state.frames), 1.0 - lambda);
    addOuterProduct(1.0 - w, w * its.masks[s], x, K, M, Rs);
  }
  std::complex<double>* weightsOfBin = W.data() + k * rows.size() * M;
  its.weights.compute(its.R, weightsOfBin);
  applyRows(weightsOfBin, rows, x, K, M, Y.data() + k);
}

}  // namespace Separation
