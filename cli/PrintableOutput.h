#pragma once

#include <iosfwd>
#include <memory>
#include <string>

/// The text with what could command a terminal as \xNN: control characters but line feed and tab,
/// and bytes that are no UTF-8. File names and file contents may hold such.
std::string printable(const std::string& text);

/// A line on std::cerr that begins with the command's name.
void warn(const std::string& text);

/// While it lives, all that goes to std::cout and std::cerr passes through printable(), whoever
/// writes it: the command, the nodes or the libraries. On std::cerr a line feed within a text that
/// is written in one piece counts as part of a name, too: messages are lines.
class PrintableOutput {
 public:
  PrintableOutput();
  PrintableOutput(const PrintableOutput&) = delete;
  PrintableOutput& operator=(const PrintableOutput&) = delete;
  ~PrintableOutput();

 private:
  class Filter;
  std::unique_ptr<Filter> output;
  std::unique_ptr<Filter> errors;
};
