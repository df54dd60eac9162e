#pragma once

#include <algorithm>
#include <cmath>
#include <complex>
#include <utility>
#include <vector>

#include "geometry/TransformFunctionDatabase.h"
#include "tests/support/MatrixGenerators.h"

namespace support {

/// Measured positions on a unit circle around the microphones, random transfer functions.
inline BF::TransformFunctionDatabase randomDatabase(Generator& random, int mics, int positions,
                                                    int bins) {
  BF::TransformFunctionDatabase database;
  for (int s = 0; s < positions; ++s) {
    const double angle = 2.0 * 3.14159265358979 * s / positions;
    database.sourceLocations.emplace_back(std::cos(angle), std::sin(angle), 0.0, s, false);
  }
  for (int m = 0; m < mics; ++m) database.micLocations.emplace_back(0.01 * m, 0.0, 0.0);
  for (int k = 0; k < bins; ++k) {
    database.transferFunctions.push_back(random.gaussian(mics, positions));
  }
  return database;
}

/// A source: its identifier, the database position it stands at, and whether it is a target.
struct SceneSource {
  int id;
  int position;
  bool target = true;
};

/// The source list for an engine. Sources stand nearer or farther than the measured positions and a
/// little beside them, but nearest to the one meant.
inline std::vector<BF::SourceLocation> locationsOf(const std::vector<SceneSource>& scene,
                                                   const BF::TransformFunctionDatabase& database) {
  std::vector<BF::SourceLocation> result;
  for (const SceneSource& source : scene) {
    const BF::SourceLocation& at = database.sourceLocations[source.position];
    const double distance = 0.8 + 0.1 * (source.id % 5);
    result.emplace_back(at.x * distance, at.y * distance, 0.05, source.id, source.target);
  }
  return result;
}

/// Column j: the transfer function of the scene's source j, for every bin.
inline std::vector<reference::Dense> steeringOf(const std::vector<SceneSource>& scene,
                                                const BF::TransformFunctionDatabase& database) {
  std::vector<reference::Dense> result;
  for (const BF::Matrix& H : database.transferFunctions) {
    reference::Dense A(H.getRowCount(), static_cast<int>(scene.size()));
    for (std::size_t j = 0; j < scene.size(); ++j) {
      for (int m = 0; m < A.rows; ++m) {
        A(m, static_cast<int>(j)) = reference::Complex(H.getElementAt(m, scene[j].position));
      }
    }
    result.push_back(A);
  }
  return result;
}

/// count sources with different ids at different positions.
inline std::vector<SceneSource> distinctSources(Generator& random, int count, int positions) {
  std::vector<int> order(positions);
  for (int i = 0; i < positions; ++i) order[i] = i;
  for (int i = positions - 1; i > 0; --i) std::swap(order[i], order[random.integer(0, i)]);
  std::vector<SceneSource> scene;
  for (int j = 0; j < count; ++j) scene.push_back({10 + j, order[j]});
  return scene;
}

/// One random event: a source appears (perhaps one that was there before, or a second one with an
/// id already present), vanishes, swaps rows with another, moves, or turns from target to noise.
inline void changeScene(Generator& random, int maximum, int positions,
                        std::vector<SceneSource>& scene) {
  const int count = static_cast<int>(scene.size());
  const int j = random.integer(0, std::max(0, count - 1));
  switch (random.integer(0, 5)) {
    case 0:
    case 1:
      if (count < maximum)
        scene.push_back({random.integer(0, 5), random.integer(0, positions - 1)});
      break;
    case 2:
      if (count > 0) scene.erase(scene.begin() + j);
      break;
    case 3:
      if (count > 1) std::swap(scene[0], scene[j]);
      break;
    case 4:
      if (count > 0) scene[j].position = random.integer(0, positions - 1);
      break;
    default:
      if (count > 0) scene[j].target = !scene[j].target;
  }
}

}  // namespace support
