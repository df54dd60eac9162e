#pragma once

#include <stdexcept>

namespace Audio {

/// What a person has to know about an unusable file, parameter or stream: the text names the file
/// or parameter, the value found and what was expected. Thrown by value.
class AudioError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace Audio
