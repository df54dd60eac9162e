#include "responses/Places.h"

#include <utility>

std::vector<BF::SourceLocation> sourcesAsSeparated(
    const std::vector<SofaFile::Position>& positions) {
  std::vector<BF::SourceLocation> sources;
  int id = 0;
  for (const SofaFile::Position& p : positions) {
    sources.push_back(asSeparated({p[0], p[1], p[2]}, id++, true));
  }
  return sources;
}

MeasuredPlaces::MeasuredPlaces(std::vector<SofaFile::Position> positions)
    : grid{sourcesAsSeparated(positions), {}, {}}, places(std::move(positions)) {}

std::size_t MeasuredPlaces::nearest(const BF::Location& point) const {
  return static_cast<std::size_t>(grid.findNearestSourceIndex(asSeparated(point, 0, true)));
}

BF::Location MeasuredPlaces::place(std::size_t number) const {
  const SofaFile::Position& p = places.at(number);
  return {p[0], p[1], p[2]};
}
