#pragma once

#include <string>
#include <vector>

namespace Audio {

/// The channels that a text such as "1-4,7" selects of a file with fileChannels channels, as
/// indices from 0 in the order of the text, whose numbers count from 1. An empty text selects all.
/// Throws DataError for anything else, for a channel the file does not have and for one named
/// twice; the message calls the text by `name`.
std::vector<int> selectedChannels(const std::string& text, int fileChannels,
                                  const std::string& name = "CHANNELS");

}  // namespace Audio
