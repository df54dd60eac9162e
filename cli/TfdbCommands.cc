#include "cli/TfdbCommands.h"

#include <fmt/format.h>

#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "audio/OutputFile.h"
#include "cli/ChildProcess.h"
#include "responses/ArrayGeometry.h"
#include "responses/ResponseImport.h"
#include "responses/TfdbReport.h"

namespace {

/// What `import` and `geometry` share: where to write, and for which frames.
struct Target {
  std::string output;
  FrameShape frame;
  bool force = false;

  void addOptions(CLI::App& command) {
    command.add_option("OUTPUT", output, "The SOFA file to write")->required();
    command.add_option("--rate", frame.rate, "Sampling rate of the recordings, in Hz")
        ->capture_default_str();
    command.add_option("--length", frame.length, "Samples of a frame, as the separation will use")
        ->capture_default_str();
    command.add_flag("--force", force, "Replace the output if it exists");
  }

  void write(const SofaTransferFunctions& data) const {
    OutputFile file(output, force);
    writeInChild(file.temporaryPath(), [&] { writeSofa(file.temporaryPath(), data); });
    file.finish();
  }
};

void addImport(CLI::App& tfdb) {
  struct Options {
    std::string input;
    Target target;
  };
  CLI::App* command = tfdb.add_subcommand(
      "import", "Make a database from measured responses (SOFA, data type FIR or TF)");
  const auto options = std::make_shared<Options>();
  command->add_option("INPUT", options->input, "The SOFA file to read")->required();
  options->target.addOptions(*command);
  command->callback([options] {
    const std::string& input = options->input;
    checkOutput(options->target.output, options->target.force);
    tryReading(input, true);
    ImportReport report;
    SofaTransferFunctions data = importResponses(SofaFile(input), options->target.frame, report);
    data.title = "imported from " + std::filesystem::path(input).filename().string();
    for (const std::string& finding : findingsOf(data)) {
      report.warnings.push_back(fmt::format("{}: {}", input, finding));
    }
    for (const std::string& text : report.warnings) std::cerr << "zelk-sss: " << text << "\n";
    options->target.write(data);
    std::cout << importText(options->target.output, data, report);
  });
}

void addGeometry(CLI::App& tfdb) {
  struct Options {
    std::string file;
    std::tuple<int, double> circular;
    std::tuple<int, double> linear;
    DirectionGrid grid;
    Target target;
  };
  CLI::App* command = tfdb.add_subcommand(
      "geometry", "Make a database of free-field responses from microphone positions");
  const auto options = std::make_shared<Options>();
  options->target.addOptions(*command);
  CLI::Option_group* array = command->add_option_group("array", "The microphones (one of these)");
  array->add_option("--microphones", options->file,
                    R"(JSON file {"microphones": [[x, y, z], …]}, metres: x front, y left, z up)");
  const CLI::Option* circular =
      array->add_option("--circular", options->circular, "COUNT and RADIUS in metres, horizontal");
  const CLI::Option* linear = array->add_option(
      "--linear", options->linear, "COUNT and SPACING in metres, along y from right to left");
  array->require_option(1);
  command->add_option("--azimuth-step", options->grid.azimuthStep, "Degrees between directions")
      ->capture_default_str();
  command->add_option("--elevations", options->grid.elevations, "Degrees, separated by commas")
      ->delimiter(',')
      ->allow_extra_args(false)
      ->capture_default_str();
  command->add_option("--distances", options->grid.distances, "Metres, separated by commas")
      ->delimiter(',')
      ->allow_extra_args(false)
      ->capture_default_str();
  command->callback([options, circular, linear] {
    checkOutput(options->target.output, options->target.force);
    const Positions microphones = *circular ? std::apply(circularArray, options->circular)
                                  : *linear ? std::apply(linearArray, options->linear)
                                            : readMicrophones(options->file);
    const SofaTransferFunctions data =
        freeFieldResponses(microphones, gridPositions(options->grid), options->target.frame);
    options->target.write(data);
    std::cout << fmt::format("{}: {}\n", options->target.output, countsText(data));
  });
}

void addExamination(CLI::App& tfdb, const char* name, const char* description, bool withResponses,
                    std::string (*text)(const SofaFile&)) {
  CLI::App* command = tfdb.add_subcommand(name, description);
  const auto file = std::make_shared<std::string>();
  command->add_option("FILE", *file, "The SOFA file to read")->required();
  command->callback([file, withResponses, text] {
    tryReading(*file, withResponses);
    std::cout << text(SofaFile(*file));
  });
}

}  // namespace

void addTfdbCommands(CLI::App& app) {
  CLI::App* tfdb = app.add_subcommand("tfdb", "Make and examine transfer-function databases");
  tfdb->require_subcommand(1);
  addImport(*tfdb);
  addGeometry(*tfdb);
  addExamination(*tfdb, "info", "Say what a SOFA file holds", false, infoText);
  addExamination(*tfdb, "check", "Read a whole SOFA file and say what is wrong or odd", true,
                 checkText);
}
