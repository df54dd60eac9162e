#include "responses/Places.h"

#include <utility>

std::vector<BF::SourceLocation> sourcesAsSeparated(const std::vector<BF::Position>& positions) {
  std::vector<BF::SourceLocation> sources;
  int id = 0;
  for (const BF::Position& p : positions) {
    sources.push_back(asSeparated(BF::asLocation(p), id++, true));
  }
  return sources;
}

MeasuredPlaces::MeasuredPlaces(std::vector<BF::Position> positions)
    : grid{sourcesAsSeparated(positions), {}, {}}, places(std::move(positions)) {}

std::size_t MeasuredPlaces::nearest(const BF::Location& point) const {
  return static_cast<std::size_t>(grid.findNearestSourceIndex(asSeparated(point, 0, true)));
}

BF::Location MeasuredPlaces::place(std::size_t number) const {
  return BF::asLocation(places.at(number));
}
