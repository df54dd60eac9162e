#include "cli/TfdbCommands.h"

#include <fmt/format.h>

#include <charconv>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "audio/OutputFile.h"
#include "cli/ArraysCommand.h"
#include "cli/ChildProcess.h"
#include "cli/OptionChecks.h"
#include "cli/OutputCheck.h"
#include "cli/RoomOptions.h"
#include "responses/ArrayGeometry.h"
#include "responses/KnownArrays.h"
#include "responses/RelativeResponses.h"
#include "responses/ResponseImport.h"
#include "responses/ResponseSet.h"
#include "responses/Room.h"
#include "responses/TfdbReport.h"

namespace {

/// Where a command writes to.
struct Output {
  std::string path;
  bool force = false;

  void addOptions(CLI::App& command) {
    command.add_option("OUTPUT", path, "The SOFA file to write")->required();
    command.add_flag("--force", force, "Replace the output if it exists");
  }

  template <class Data>
  void write(const Data& data) const {
    Audio::OutputFile file(path, force);
    file.temporaryName();  // this process's, which outlives the child
    writeInChild(path, [&] { writeSofa(file, data); });
    file.finish();
  }
};

/// What `import` and `geometry` share: for which frames, and relative to what.
struct Target {
  FrameShape frame;
  double latency = 0.0;  // milliseconds; 0: not given
  std::string reference;

  void addOptions(CLI::App& command, const std::string& usualReference, const char* usualLength) {
    reference = usualReference;
    command.add_option("--rate", frame.rate, "Sampling rate of the recordings, in Hz")
        ->capture_default_str();
    CLI::Option* length =
        command
            .add_option("--length", frame.length, "Samples of a frame, as the separation will use")
            ->default_str(usualLength);
    command
        .add_option("--latency", latency,
                    "Or: milliseconds that a live separation may be late, which is the length of a "
                    "frame")
        ->check(isPositive())
        ->excludes(length);
    command
        .add_option("--reference-mic", reference,
                    "The microphone, from 1, as which separated sources shall sound, or none")
        ->capture_default_str();
  }

  FrameShape chosenFrame() const {
    return latency > 0.0 ? FrameShape{frame.rate, longestFrame(latency / 1000.0, frame.rate)}
                         : frame;
  }

  /// The reference microphone, 0 for none.
  int referenceNumber() const {
    if (reference == "none") return 0;
    int number = 0;
    const char* end = reference.data() + reference.size();
    const auto result = std::from_chars(reference.data(), end, number);
    if (result.ec == std::errc() && result.ptr == end && number > 0) return number;
    throw CLI::ValidationError("--reference-mic",
                               fmt::format("\"{}\", expected none or a number from 1", reference));
  }
};

void addImport(CLI::App& tfdb) {
  struct Options {
    std::string input;
    Output output;
    Target target;
  };
  CLI::App* command = tfdb.add_subcommand(
      "import", "Make a database from measured responses (SOFA, data type FIR or TF)");
  const auto options = std::make_shared<Options>();
  command->add_option("INPUT", options->input, "The SOFA file to read")->required();
  options->output.addOptions(*command);
  options->target.frame.length = 0;
  options->target.addOptions(*command, "1", "as the responses need");
  addDatabaseLimit(*command);
  command->callback([options] {
    const std::string& input = options->input;
    int reference = options->target.referenceNumber();
    checkOutput(options->output.path, options->output.force, {input});
    ImportReport report;
    SofaTransferFunctions data =
        importResponses(SofaFile(input), options->target.chosenFrame(), report);
    data.title = "imported from " + std::filesystem::path(input).filename().string();
    for (const std::string& finding : findingsOf(data)) {
      report.warnings.push_back(fmt::format("{}: {}", input, finding));
    }
    // What was divided by one microphone's response can only change to another's.
    if (reference == 0) reference = data.referenceMicrophone;
    if (reference > 0) makeRelative(data, reference);
    for (const std::string& text : report.warnings) std::cerr << "zelk-sss: " << text << "\n";
    options->output.write(data);
    std::cout << importText(options->output.path, data, report);
  });
}

/// The microphones that a person describes by options.
struct Array {
  std::string name;
  std::string file;
  std::tuple<int, double> circular;
  std::tuple<int, double> linear;
  CLI::Option* circularOption = nullptr;
  CLI::Option* linearOption = nullptr;

  void addOptions(CLI::App& command) {
    CLI::Option_group* group = command.add_option_group("array", "The microphones (one of these)");
    group->add_option("--array", name, "An array that is sold, as zelk-sss arrays lists them")
        ->check(isArrayName());
    group->add_option(
        "--microphones", file,
        R"(JSON file {"microphones": [[x, y, z], …]}, metres: x front, y left, z up)");
    circularOption =
        group->add_option("--circular", circular, "COUNT and RADIUS in metres, horizontal");
    linearOption = group->add_option("--linear", linear,
                                     "COUNT and SPACING in metres, along y from right to left");
    group->require_option(1);
  }

  Positions positions() const {
    if (*circularOption) return std::apply(circularArray, circular);
    if (*linearOption) return std::apply(linearArray, linear);
    return name.empty() ? readMicrophones(file) : knownArray(name).positions;
  }
};

void addGrid(CLI::App& command, DirectionGrid& grid) {
  command.add_option("--azimuth-step", grid.azimuthStep, "Degrees between directions")
      ->capture_default_str();
  command.add_option("--elevations", grid.elevations, "Degrees, separated by commas")
      ->delimiter(',')
      ->allow_extra_args(false)
      ->capture_default_str();
  command.add_option("--distances", grid.distances, "Metres, separated by commas")
      ->delimiter(',')
      ->allow_extra_args(false)
      ->capture_default_str();
}

void addGeometry(CLI::App& tfdb) {
  struct Options {
    Output output;
    Array array;
    DirectionGrid grid;
    Target target;
  };
  CLI::App* command = tfdb.add_subcommand(
      "geometry", "Make a database of free-field responses from microphone positions");
  const auto options = std::make_shared<Options>();
  options->output.addOptions(*command);
  options->target.addOptions(*command, "none", "512");
  options->array.addOptions(*command);
  addGrid(*command, options->grid);
  command->callback([options] {
    const int reference = options->target.referenceNumber();
    checkOutput(options->output.path, options->output.force, {options->array.file});
    SofaTransferFunctions data = freeFieldResponses(
        options->array.positions(), gridPositions(options->grid), options->target.chosenFrame());
    if (reference > 0) makeRelative(data, reference);
    options->output.write(data);
    std::cout << fmt::format("{}: {}\n", options->output.path, countsText(data));
  });
}

void addRoom(CLI::App& tfdb) {
  struct Options {
    Output output;
    Array array;
    DirectionGrid grid;
    RoomDescription room;
    int rate = 16000;
  };
  CLI::App* command = tfdb.add_subcommand(
      "room", "Compute impulse responses in a room, as if measured there (SOFA, data type FIR)");
  const auto options = std::make_shared<Options>();
  options->output.addOptions(*command);
  options->array.addOptions(*command);
  command->add_option("--rate", options->rate, "Sampling rate of the recordings, in Hz")
      ->check(isBetween(1000, 1'000'000))
      ->capture_default_str();
  addRoomOptions(*command, options->room)->required();
  command->add_option("--seed", options->room.seed, "Start of the jitter's random numbers")
      ->capture_default_str();
  addGrid(*command, options->grid);
  command->callback([options] {
    checkOutput(options->output.path, options->output.force, {options->array.file});
    const Room room(options->room, options->rate);
    options->output.write(
        roomResponses(room, options->array.positions(), gridPositions(options->grid)));
    std::cout << options->output.path << ": " << room.text() << "\n";
  });
}

void addExamination(CLI::App& tfdb, const char* name, const char* description, SofaFile::Part part,
                    std::string (*text)(const SofaFile&)) {
  CLI::App* command = tfdb.add_subcommand(name, description);
  const auto file = std::make_shared<std::string>();
  command->add_option("FILE", *file, "The SOFA file to read")->required();
  addDatabaseLimit(*command);
  command->callback([file, part, text] { std::cout << text(SofaFile(*file, part)); });
}

}  // namespace

void addTfdbCommands(CLI::App& app) {
  CLI::App* tfdb = app.add_subcommand("tfdb", "Make and examine transfer-function databases");
  tfdb->require_subcommand(1);
  addImport(*tfdb);
  addGeometry(*tfdb);
  addRoom(*tfdb);
  addExamination(*tfdb, "info", "Say what a SOFA file holds", SofaFile::Part::HEAD, infoText);
  addExamination(*tfdb, "check", "Read a whole SOFA file and say what is wrong or odd",
                 SofaFile::Part::ALL, checkText);
}
