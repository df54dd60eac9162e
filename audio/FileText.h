#pragma once

#include <string>

namespace Audio {

/// The bytes of a whole file. Throws AudioError naming the file and why it cannot be read.
std::string fileText(const std::string& path);

}  // namespace Audio
