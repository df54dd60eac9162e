#pragma once

#include <stdexcept>

/// A file, an option or a stream cannot be used as asked. The text is for a person: it names the
/// file and the place in it, or the option, what was found and what was expected. Thrown by value.
class DataError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};
