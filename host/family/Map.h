#pragma once

#include <map>

#include "Object.h"

namespace FD {

/// A std::map that travels through a network as an object. Values may be plain or ObjectRefs.
template <class K, class V>
class Map : public std::map<K, V>, public Object {
 public:
  void printOn(std::ostream& out) const override {
    out << "<Map";
    for (const auto& [key, value] : *this) {
      out << " (" << key << ", ";
      printValue(out, value);
      out << ")";
    }
    out << " >";
  }

 private:
  // Prints objects by their own printOn, since hosts differ in what they stream by <<.
  static void printValue(std::ostream& out, const V& value) {
    if constexpr (requires { value->printOn(out); }) {
      if (value.get()) value->printOn(out);
    } else {
      out << value;
    }
  }
};

}  // namespace FD
