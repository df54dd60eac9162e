#pragma once

#include <stdexcept>

/// A picture cannot be made; what() says of what, what was found and what was expected.
class PlotError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};
