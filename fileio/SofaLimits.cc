#include "fileio/SofaLimits.h"

#include <fmt/format.h>

#include <cstdlib>

#include "dsp/DataError.h"
#include "fileio/PrintableText.h"

std::size_t databaseLimit() {
  const char* text = std::getenv(DATABASE_LIMIT_VARIABLE);
  return text ? parseDatabaseLimit(DATABASE_LIMIT_VARIABLE, text) : DEFAULT_DATABASE_LIMIT;
}

std::size_t parseDatabaseLimit(const std::string& name, const std::string& text) {
  constexpr std::size_t MAX_BYTES = std::size_t{1} << 46;
  std::size_t bytes = 0;
  std::size_t at = 0;
  for (; at < text.size() && text[at] >= '0' && text[at] <= '9' && bytes <= MAX_BYTES; ++at) {
    bytes = 10 * bytes + static_cast<std::size_t>(text[at] - '0');
  }
  const std::size_t digits = at;
  if (digits > 0 && bytes <= MAX_BYTES && at < text.size()) {
    const std::string units = "KMGT";
    const std::size_t unit = units.find(text[at]);
    if (unit != std::string::npos && bytes <= (MAX_BYTES >> (10 * (unit + 1)))) {
      bytes <<= 10 * (unit + 1);
      ++at;
    }
  }
  if (digits == 0 || at != text.size() || bytes == 0 || bytes > MAX_BYTES) {
    throw DataError(fmt::format("{} is \"{}\", expected a size from 1 to 2^46 bytes, such as 4G",
                                name, printable(text)));
  }
  return bytes;
}

std::string expectedAtMost(std::size_t limit) {
  return fmt::format("expected at most {} bytes in memory (--max-database-size or {} allows more)",
                     limit, DATABASE_LIMIT_VARIABLE);
}
