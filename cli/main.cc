#include <CLI/CLI.hpp>
#include <csignal>
#include <exception>
#include <iostream>
#include <sstream>
#include <string>

#include "cli/ArraysCommand.h"
#include "cli/CorpusCommand.h"
#include "cli/EvaluateCommand.h"
#include "cli/LiveCommand.h"
#include "cli/MethodsCommand.h"
#include "cli/MixCommand.h"
#include "cli/NetworkRun.h"
#include "cli/PatternCommand.h"
#include "cli/PrintableOutput.h"
#include "cli/ReportCommand.h"
#include "cli/RunCommand.h"
#include "cli/SceneCommand.h"
#include "cli/ScoreCommand.h"
#include "cli/SeparateCommand.h"
#include "cli/SpectrogramCommand.h"
#include "cli/StopSignals.h"
#include "cli/Suggestions.h"
#include "cli/TfdbCommands.h"

namespace {

constexpr int DATA_ERROR = 1;
constexpr int USAGE_ERROR = 2;

int report(const std::string& text, int status) {
  std::cerr << "zelk-sss: " << text << std::endl;
  return status;
}

/// A run can fail in several nodes, a line each.
int reportRun(const std::string& text) {
  std::istringstream lines(text);
  std::cerr << "zelk-sss: ";
  for (std::string line; std::getline(lines, line);) std::cerr << line << std::endl;
  return DATA_ERROR;
}

/// What is wrong with the command line. A word that was mistyped is missing elsewhere, too: it says
/// more than what is missing.
std::string misuse(const CLI::App& app, const CLI::ParseError& error) {
  const auto code = static_cast<CLI::ExitCodes>(error.get_exit_code());
  std::string unexpected;
  if (code == CLI::ExitCodes::ExtrasError || code == CLI::ExitCodes::RequiredError) {
    unexpected = unexpectedArguments(app);
  }
  return unexpected.empty() ? error.what() : unexpected;
}

/// The status of a run that succeeded, if all it said arrived.
int finishOutput() {
  std::cout.flush();
  return std::cout ? 0 : report("standard output: cannot be written", DATA_ERROR);
}

/// Parses the command line; the sub-command it names runs in doing so.
int run(CLI::App& app, int argc, char** argv) {
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    // What --help and --version ask for comes this way too.
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
      app.exit(error);
      return finishOutput();
    }
    return report(misuse(app, error) + " (--help shows the usage)", USAGE_ERROR);
  } catch (const RunError& error) {
    return reportRun(error.what());
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
  return finishOutput();
}

}  // namespace

// What run() does not catch are faults in the options' declarations themselves.
int main(int argc, char** argv) {  // NOLINT(bugprone-exception-escape)
  const PrintableOutput printable;
  // A file at the size limit is to fail like one on a full disk, with a message.
  std::signal(SIGXFSZ, SIG_IGN);
  removeUnfinishedFilesOnSignals();
  CLI::App app("Sound source separation for microphone arrays", "zelk-sss");
  app.set_version_flag("--version", "zelk-sss " ZELK_VERSION);
  app.require_subcommand(0, 1);  // with 1, a misspelt command would not be named in the message
  addSeparateCommand(app);
  addLiveCommand(app);
  addMethodsCommand(app);
  addTfdbCommands(app);
  addArraysCommand(app);
  addMixCommand(app);
  addScoreCommand(app);
  addEvaluateCommand(app);
  addCorpusCommand(app);
  addPatternCommand(app);
  addSpectrogramCommand(app);
  addSceneCommand(app);
  addReportCommand(app);
  addRunCommand(app);
  return run(app, argc, argv);
}
