#pragma once

#include <string>

namespace Audio {

/// Refuses to convert between sampling rates whose ratio is beyond 1000: what says so is no
/// recording, and the conversion takes time and memory that grow with the ratio. Throws DataError
/// naming the file.
void checkConversion(const std::string& path, int fileRate, int wantedRate);

}  // namespace Audio
