#include "cli/ReportCommand.h"

#include <fmt/format.h>

#include <filesystem>
#include <iostream>
#include <memory>

#include "cli/OptionChecks.h"
#include "cli/ReportBuilder.h"

namespace {

void report(const ReportRequest& request) {
  std::vector<std::string> inputs = request.references;
  inputs.insert(inputs.end(), {request.mixture, request.database});
  checkReportFile(request.output, request.force, inputs);
  writeReport(request);
  std::cout << fmt::format("{}  {:.1f} MB\n", request.output,
                           static_cast<double>(std::filesystem::file_size(request.output)) / 1e6);
}

}  // namespace

void addReportCommand(CLI::App& app) {
  const auto request = std::make_shared<ReportRequest>();
  CLI::App* command = app.add_subcommand(
      "report", "Make one page to hear and see separations of a recording in a browser");
  command
      ->add_option("FOLDER", request->folders,
                   "Folders that separate wrote, all of the same recording")
      ->required();
  command->add_option("-o,--output", request->output, "The page, NAME.html")->required();
  command->add_option("--mixture", request->mixture,
                      "The recording; default: the one that the folders' run.json names");
  command->add_option("--reference", request->references,
                      "Each source alone, by increasing id; default: what mix wrote beside the "
                      "recording");
  command->add_option("--tf", request->database,
                      "Transfer-function database for the patterns; default: the run's");
  command->add_option("--title", request->title, "Heading; default: the recording's name");
  command
      ->add_option("--sound", request->sound,
                   "How sound is packed: flac without loss, opus small; auto: opus for long sound")
      ->check(CLI::IsMember({"auto", "flac", "opus"}))
      ->capture_default_str();
  addDatabaseLimit(*command);
  command->add_flag("--force", request->force, "Replace an existing page");
  command->footer(
      "Examples:\n"
      "  zelk-sss report separated -o report.html\n"
      "  zelk-sss report separated-null separated-gica -o both.html --title \"NULL and GICA\"");
  command->callback([request] { report(*request); });
}
