// Texts that a person types: channels, time ranges, values of parameters.
#include <cmath>
#include <set>
#include <sstream>
#include <stdexcept>

#include "ObjectRef.h"
#include "ParameterValue.h"
#include "audio/Channels.h"
#include "dsp/DataError.h"
#include "fuzz/Fuzzing.h"
#include "scene/TimeRange.h"

namespace {

void selectChannels(const std::string& text, int fileChannels) {
  try {
    const std::vector<int> channels = Audio::selectedChannels(text, fileChannels);
    const std::set<int> different(channels.begin(), channels.end());
    require(different.size() == channels.size(), "no channel comes twice");
    require(!channels.empty() && *different.begin() >= 0 && *different.rbegin() < fileChannels,
            "channels are the file's");
  } catch (const DataError&) {
  }
}

void parseRanges(const std::string& text) {
  try {
    const std::vector<Audio::TimeRange> ranges = Audio::parseTimeRanges(text);
    require(!ranges.empty(), "there is a range");
    for (const Audio::TimeRange& range : ranges) {
      require(range.begin >= 0.0 && range.begin < range.end && std::isfinite(range.end),
              "ranges have a length");
    }
  } catch (const DataError&) {
  }
}

void parseParameter(const std::string& type, const std::string& text) {
  try {
    const FD::ObjectRef value = FD::parseValue(type, text);
    require(!value.isNil(), "a value is an object");
    std::ostringstream printed;
    value->printOn(printed);
    require(printed.str().front() == '<', "a value can be printed");
  } catch (const std::invalid_argument&) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  selectChannels(text, 8);
  parseRanges(text);
  for (const char* type : {"int", "float", "string", "bool", "object"}) parseParameter(type, text);
  return 0;
}
