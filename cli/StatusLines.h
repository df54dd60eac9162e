#pragma once

#include <cstddef>
#include <string>
#include <vector>

/// A few lines on standard error, if that is a terminal, that are drawn again and again in their
/// place, and go when they are not needed any more.
class StatusLines {
 public:
  explicit StatusLines(bool isWanted);
  StatusLines(const StatusLines&) = delete;
  StatusLines& operator=(const StatusLines&) = delete;
  ~StatusLines() { clear(); }

  bool areShown() const { return isTerminal; }

  /// On a terminal that is too low for all of them, the last one alone.
  void show(const std::vector<std::string>& lines);

  /// Makes room for other output.
  void clear();

 private:
  bool isTerminal;
  std::size_t shown = 0;
};

/// A bar for a level from −60 to 0 dB re full scale, and the level in numbers.
std::string levelBar(float peak);
