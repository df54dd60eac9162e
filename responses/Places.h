#pragma once

#include <cstddef>
#include <vector>

#include "fileio/SofaFile.h"
#include "geometry/Position.h"
#include "geometry/TransformFunctionDatabase.h"
#include "scene/Scene.h"
#include "scene/SceneMoment.h"

/// Source positions as the separation has them, with their numbers from 0 as ids.
std::vector<BF::SourceLocation> sourcesAsSeparated(const std::vector<BF::Position>& positions);

/// Source positions, and the choice between them that the separation makes.
class MeasuredPlaces {
 public:
  explicit MeasuredPlaces(std::vector<BF::Position> positions);
  explicit MeasuredPlaces(const SofaFile& file) : MeasuredPlaces(file.sourcePositions()) {}

  std::size_t count() const { return places.size(); }

  /// The position with the least distance to a point, as its number from 0; of equals the first.
  std::size_t nearest(const BF::Location& point) const;

  BF::Location place(std::size_t number) const;

 private:
  BF::TransformFunctionDatabase grid;  // without responses
  std::vector<BF::Position> places;
};
