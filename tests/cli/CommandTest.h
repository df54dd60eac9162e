#pragma once

#include <string>
#include <vector>

#include "tests/cli/CommandRun.h"
#include "tests/support/AudioTesting.h"

std::vector<std::string> wordsOf(const std::string& text);

/// Tests of the command in a folder of its own, so that it is given and tells bare file names.
class CommandTest : public testing::Test {
 protected:
  /// Arguments separated by blanks, and the message, of which a "…" stands for any part.
  struct Refusal {
    std::string arguments;
    std::string message;
  };

  CommandRun run(const std::string& arguments) const {
    return runCommand(wordsOf(arguments), folder / "");
  }

  /// Every case ends with the status and its message, one line, and leaves no file.
  void expectRefused(int status, const std::vector<Refusal>& cases) const;

  std::string content(const std::string& name) const;
  Sound sound(const std::string& name) const { return readSound(folder / name); }

  TestFolder folder;
};
