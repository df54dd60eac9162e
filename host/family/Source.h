#pragma once

#include "Object.h"

namespace FD {

/// A localised sound source: its number and its position in metres, in the coordinates of the
/// microphone array (x forward, y left, z up). Travels in a Vector<ObjectRef>.
class Source : public Object {
 public:
  Source() = default;
  Source(int number, float px, float py, float pz) : x(px), y(py), z(pz), id(number) {}

  void printOn(std::ostream& out) const override {
    out << "<Source " << id << " " << x << " " << y << " " << z << " >";
  }

  float x = 0;
  float y = 0;
  float z = 0;
  int id = 0;
};

}  // namespace FD
