#pragma once

#include <cstddef>
#include <vector>

#include "ObjectRef.h"

namespace FD {
inline namespace zelk {

/// A std::vector that travels through a network as an object.
template <class T>
class Vector : public std::vector<T>, public Object {
 public:
  Vector() = default;
  explicit Vector(std::size_t n, const T& x = T()) : std::vector<T>(n, x) {}

  /// A new vector of n elements, to be adopted by an ObjectRef.
  static Vector* alloc(std::size_t n) { return new Vector(n); }

  void printOn(std::ostream& out) const override {
    out << "<Vector";
    for (const auto& element : *this) out << " " << element;
    out << " >";
  }

  ObjectRef clone() override { return ObjectRef(new Vector(*this)); }
};

}  // namespace zelk
}  // namespace FD
