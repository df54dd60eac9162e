#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace Audio {

/// The bytes of a whole file, be it a FIFO, too, or of standard input for "-". Throws DataError
/// naming the file and why it cannot be read, or that it has more than `most` bytes.
std::string fileText(const std::string& path, std::size_t most = SIZE_MAX);

}  // namespace Audio
