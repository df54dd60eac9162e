#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace Tracking {

/// Cuts a stream of bytes into JSON objects: they come one after another, with or without anything
/// between them (blanks, line feeds, the length of the next one in binary), in pieces of any size.
/// What cannot become an object is given up as soon as that shows, and looking goes on behind its
/// first brace, so that a cut or broken object does not take the next ones with it. Holds no more
/// than MAX_OBJECT bytes and what was added last.
class JsonObjects {
 public:
  static constexpr std::size_t MAX_OBJECT = std::size_t{1} << 16;  ///< bytes
  static constexpr std::size_t MAX_DEPTH = 8;

  void add(const char* bytes, std::size_t count) { buffer.append(bytes, count); }

  /// The next object's text, from brace to brace; none until more bytes come.
  std::optional<std::string> next();

  /// The object that next() gave last is no JSON: looking goes on behind its first brace.
  void giveBack();

  /// Whether it stands within something that was given up.
  bool isWithinGivenUp() const { return givenBegin < faultsEnd; }

  /// How often something that began with a brace was given up; what lies within counts once.
  std::size_t givenUp() const { return faults; }

 private:
  enum class Step { Goes, Ends, Fails };
  Step step(char c);
  void giveUp();
  void dropFront();

  std::string buffer;
  std::size_t begin = 0;      // of the object at hand, in the buffer
  std::size_t at = 0;         // the byte to look at next
  std::size_t faultsEnd = 0;  // what is given up before it lies within what was given up
  std::size_t faults = 0;
  bool isInside = false;  // of an object
  bool isString = false;
  bool isEscaped = false;
  char before = '\0';          // the last byte that is no blank, outside strings
  std::vector<char> brackets;  // that are open
  std::size_t givenBegin = 0;  // of the object that was given last
};

}  // namespace Tracking
