#include "fileio/PrintableText.h"

#include <algorithm>

namespace {

bool isControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }

}  // namespace

std::string printable(const std::string& text, std::size_t longest) {
  std::string result = text.substr(0, longest);
  for (char& c : result) {
    if (isControl(c) || static_cast<unsigned char>(c) > 0x7F) c = '?';
  }
  return text.size() > longest ? result + "..." : result;
}

std::string aboutFile(const std::string& path, const std::string& text) {
  std::string shown = path;
  std::replace_if(shown.begin(), shown.end(), isControl, '?');
  return shown + ": " + text;
}
