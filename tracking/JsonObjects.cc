#include "tracking/JsonObjects.h"

#include <algorithm>
#include <cstring>

namespace Tracking {

namespace {

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

}  // namespace

/// One byte of an object. Refuses at once what no JSON has there, as far as brackets and strings
/// tell: the rest is the parser's.
JsonObjects::Step JsonObjects::step(char c) {
  const auto code = static_cast<unsigned char>(c);
  if (isString) {
    if (code < 0x20) return Step::Fails;
    if (isEscaped) {
      isEscaped = false;
    } else if (c == '\\') {
      isEscaped = true;
    } else if (c == '"') {
      isString = false;
      before = c;
    }
    return Step::Goes;
  }
  if (isBlank(c)) return Step::Goes;
  if (code < 0x20 || code > 0x7E) return Step::Fails;
  if (before == '{' && c != '"' && c != '}') return Step::Fails;
  if (before == '"' && std::strchr(":,}]", c) == nullptr) return Step::Fails;
  if (c == '{' || c == '[') {
    const bool mayStand = brackets.empty() || before == ':' || before == ',' || before == '[';
    if (!mayStand || brackets.size() == MAX_DEPTH) return Step::Fails;
    brackets.push_back(c);
  } else if (c == '}' || c == ']') {
    if (brackets.back() != (c == '}' ? '{' : '[')) return Step::Fails;
    brackets.pop_back();
    if (brackets.empty()) return Step::Ends;
  } else if (c == '"') {
    isString = true;
  }
  before = c;
  return Step::Goes;
}

void JsonObjects::giveUp() {
  if (begin >= faultsEnd) ++faults;
  faultsEnd = std::max(faultsEnd, at);
  at = begin + 1;
  isInside = false;
}

void JsonObjects::giveBack() {
  if (!isWithinGivenUp()) ++faults;
  faultsEnd = std::max(faultsEnd, at);
  at = givenBegin + 1;
}

/// What lies before the byte to look at, or before the object at hand, is done with.
void JsonObjects::dropFront() {
  const std::size_t done = isInside ? begin : at;
  buffer.erase(0, done);
  begin -= std::min(begin, done);
  at -= done;
  faultsEnd -= std::min(faultsEnd, done);
}

std::optional<std::string> JsonObjects::next() {
  while (at < buffer.size()) {
    if (!isInside) {
      at = std::min(buffer.find('{', at), buffer.size());
      if (at == buffer.size()) break;
      begin = at;
      isInside = true;
      isString = isEscaped = false;
      before = '\0';
      brackets.clear();
    }
    const Step result = step(buffer[at++]);
    if (result == Step::Ends) {
      isInside = false;
      givenBegin = begin;
      return buffer.substr(begin, at - begin);
    }
    if (result == Step::Fails || at - begin >= MAX_OBJECT) giveUp();
  }
  dropFront();
  return std::nullopt;
}

}  // namespace Tracking
