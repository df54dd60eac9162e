#include "cli/CorpusCommand.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

// Without the package the interpreter would only say that there is no such module.
constexpr const char* PROGRAM = R"python(
import importlib.util, runpy, sys
if not importlib.util.find_spec("zelksss"):
    sys.exit(f"zelk-sss: corpus needs the Python package zelksss, which {sys.executable} lacks")
sys.argv[0] = "zelksss"
runpy.run_module("zelksss", run_name="__main__", alter_sys=True)
)python";

/// Becomes the interpreter, with the same standard streams.
[[noreturn]] void becomePackage(const std::vector<std::string>& arguments) {
  std::vector<std::string> words = {"python3", "-c", PROGRAM, "corpus"};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> pointers;
  pointers.reserve(words.size() + 1);
  for (std::string& word : words) pointers.push_back(word.data());
  pointers.push_back(nullptr);
  std::signal(SIGXFSZ, SIG_DFL);  // what is ignored stays so in the program
  execvp("python3", pointers.data());
  throw std::runtime_error(fmt::format(
      "corpus needs python3, with the package zelksss, on the PATH: {}", std::strerror(errno)));
}

}  // namespace

void addCorpusCommand(CLI::App& app) {
  CLI::App* command = app.add_subcommand(
      "corpus", "Separate, mix or score a manifest's items, on one machine or many");
  command->prefix_command();  // all that follows, --help with it, is the package's
  command->set_help_flag();
  command->callback([command] { becomePackage(command->remaining()); });
}
