#include "cli/PrintableOutput.h"

#include <fmt/format.h>

#include <cstddef>
#include <cstdint>
#include <iostream>
#include <streambuf>
#include <string_view>

namespace {

std::uint8_t byteAt(std::string_view text, std::size_t i) {
  return static_cast<std::uint8_t>(text[i]);
}

/// How many bytes the character at the begin of a text has: 0 if it is none to be shown.
std::size_t characterLength(std::string_view text) {
  const std::uint8_t first = byteAt(text, 0);
  if (first == '\n' || first == '\t') return 1;
  if (first < 0x80) return first >= 0x20 && first != 0x7F ? 1 : 0;
  const std::size_t length = first < 0xC2 ? 0 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
  if (first > 0xF4 || length == 0 || text.size() < length) return 0;
  for (std::size_t i = 1; i < length; ++i) {
    if ((byteAt(text, i) & 0xC0) != 0x80) return 0;
  }
  const std::uint8_t second = byteAt(text, 1);
  const bool isControl = first == 0xC2 && second < 0xA0;  // U+0080 … U+009F
  const bool isOverlong = (first == 0xE0 && second < 0xA0) || (first == 0xF0 && second < 0x90);
  return isControl || isOverlong ? 0 : length;
}

}  // namespace

std::string printable(const std::string& text) {
  std::string result;
  std::string_view rest = text;
  while (!rest.empty()) {
    const std::size_t length = characterLength(rest);
    if (length == 0) {
      result += fmt::format("\\x{:02X}", byteAt(rest, 0));
      rest.remove_prefix(1);
    } else {
      result += rest.substr(0, length);
      rest.remove_prefix(length);
    }
  }
  return result;
}

/// Takes a stream's place in front of its buffer until it is destroyed.
class PrintableOutput::Filter : public std::streambuf {
 public:
  Filter(std::ostream& filteredStream, bool takesLines)
      : stream(filteredStream), target(filteredStream.rdbuf(this)), isOfLines(takesLines) {}
  Filter(const Filter&) = delete;
  Filter& operator=(const Filter&) = delete;
  ~Filter() override { stream.rdbuf(target); }

 protected:
  int_type overflow(int_type c) override {
    const char character = traits_type::to_char_type(c);
    return c == traits_type::eof() || xsputn(&character, 1) == 1 ? traits_type::not_eof(c)
                                                                 : traits_type::eof();
  }

  // Texts come whole: a character's bytes are not spread over calls.
  std::streamsize xsputn(const char* text, std::streamsize count) override {
    std::string shown = printable({text, static_cast<std::size_t>(count)});
    for (std::size_t i = 0; isOfLines && i + 1 < shown.size(); ++i) {
      if (shown[i] == '\n') shown.replace(i, 1, "\\x0A");
    }
    const auto size = static_cast<std::streamsize>(shown.size());
    return target->sputn(shown.data(), size) == size ? count : 0;
  }

  int sync() override { return target->pubsync(); }

 private:
  std::ostream& stream;
  std::streambuf* target;
  bool isOfLines;
};

void warn(const std::string& text) { std::cerr << "zelk-sss: " << text << std::endl; }

PrintableOutput::PrintableOutput()
    : output(std::make_unique<Filter>(std::cout, false)),
      errors(std::make_unique<Filter>(std::cerr, true)) {}
PrintableOutput::~PrintableOutput() = default;
