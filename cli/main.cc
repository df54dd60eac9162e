#include <CLI/CLI.hpp>
#include <csignal>
#include <exception>
#include <iostream>
#include <string>

#include "cli/MethodsCommand.h"
#include "cli/MixCommand.h"
#include "cli/PatternCommand.h"
#include "cli/RunCommand.h"
#include "cli/ScoreCommand.h"
#include "cli/SeparateCommand.h"
#include "cli/SpectrogramCommand.h"
#include "cli/StopSignals.h"
#include "cli/TfdbCommands.h"

namespace {

constexpr int DATA_ERROR = 1;
constexpr int USAGE_ERROR = 2;

int report(const std::string& text, int status) {
  std::cerr << "zelk-sss: " << text << std::endl;
  return status;
}

/// Parses the command line; the sub-command it names runs in doing so.
int run(CLI::App& app, int argc, char** argv) {
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    // What --help and --version ask for comes this way too.
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) return app.exit(error);
    return report(std::string(error.what()) + " (--help shows the usage)", USAGE_ERROR);
  } catch (const std::bad_alloc&) {
    return report("the files need more memory than there is", DATA_ERROR);
  } catch (const std::exception& error) {
    return report(error.what(), DATA_ERROR);
  }
  if (app.get_subcommands().empty()) {
    std::string names;
    for (const CLI::App* command : app.get_subcommands({})) names += " " + command->get_name();
    return report("no command is given, expected one of:" + names, USAGE_ERROR);
  }
  std::cout.flush();
  return std::cout ? 0 : report("standard output: cannot be written", DATA_ERROR);
}

}  // namespace

// What run() does not catch are faults in the options' declarations themselves.
int main(int argc, char** argv) {  // NOLINT(bugprone-exception-escape)
  // A file at the size limit is to fail like one on a full disk, with a message.
  std::signal(SIGXFSZ, SIG_IGN);
  removeUnfinishedFilesOnSignals();
  CLI::App app("Sound source separation for microphone arrays", "zelk-sss");
  app.set_version_flag("--version", "zelk-sss " ZELK_VERSION);
  app.require_subcommand(0, 1);  // with 1, a misspelt command would not be named in the message
  addSeparateCommand(app);
  addMethodsCommand(app);
  addTfdbCommands(app);
  addMixCommand(app);
  addScoreCommand(app);
  addPatternCommand(app);
  addSpectrogramCommand(app);
  addRunCommand(app);
  return run(app, argc, argv);
}
