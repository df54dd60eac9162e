#include "responses/Places.h"

std::vector<BF::SourceLocation> sourcesAsSeparated(const SofaFile& file) {
  std::vector<BF::SourceLocation> sources;
  int id = 0;
  for (const SofaFile::Position& p : file.sourcePositions()) {
    sources.push_back(asSeparated({p[0], p[1], p[2]}, id++, true));
  }
  return sources;
}

MeasuredPlaces::MeasuredPlaces(const SofaFile& file)
    : grid{sourcesAsSeparated(file), {}, {}}, places(file.sourcePositions()) {}

std::size_t MeasuredPlaces::nearest(const BF::Location& point) const {
  return static_cast<std::size_t>(grid.findNearestSourceIndex(asSeparated(point, 0, true)));
}

BF::Location MeasuredPlaces::place(std::size_t number) const {
  const SofaFile::Position& p = places.at(number);
  return {p[0], p[1], p[2]};
}
