#include "cli/PatternCommand.h"

#include <fmt/format.h>

#include <cmath>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "cli/OptionChecks.h"
#include "cli/PatternModel.h"
#include "cli/PrintableOutput.h"
#include "cli/SceneOptions.h"
#include "pictures/BeamPattern.h"
#include "pictures/PictureFile.h"
#include "scene/SceneMoment.h"
#include "separation/Methods.h"

namespace {

constexpr std::size_t MAX_FREQUENCIES = 8;
constexpr double NOTED_ELEVATION = 5.0;  // degrees

struct Options {
  PatternRequest request;
  Audio::SceneChoice scene;
  std::string band;  ///< "LOW:HIGH" in Hz; empty: all
  std::optional<double> time;
  std::string output;
  int width = 900;
  bool force = false;
};

void checkMethod(const std::string& name) {
  try {
    if (methodNamed(name).needsDatabase()) return;
  } catch (const std::invalid_argument& error) {
    throw CLI::ValidationError(error.what());
  }
  throw CLI::ValidationError(
      fmt::format("--method is {}, whose matrices come from the recording alone, expected one that "
                  "uses the sources' positions",
                  name));
}

/// LOW:HIGH in Hz.
std::optional<std::pair<double, double>> bandOf(const std::string& text) {
  if (text.empty()) return {};
  const std::size_t colon = text.find(':');
  double low = 0.0;
  double high = 0.0;
  if (colon == std::string::npos || !CLI::detail::lexical_cast(text.substr(0, colon), low) ||
      !CLI::detail::lexical_cast(text.substr(colon + 1), high) ||
      !(0.0 <= low && low < high && std::isfinite(high))) {
    throw CLI::ValidationError(
        "--band", fmt::format("\"{}\", expected LOW:HIGH in Hz with 0 <= LOW < HIGH, such as "
                              "300:3400",
                              text));
  }
  return std::pair(low, high);
}

void checkUsage(const Options& options) {
  requireScene(options.scene);
  checkMethod(options.request.method);
  if (options.request.frequencies.size() > MAX_FREQUENCIES) {
    throw CLI::ValidationError("--frequency",
                               fmt::format("{} given, expected {} at most",
                                           options.request.frequencies.size(), MAX_FREQUENCIES));
  }
  checkPicture(options.output, options.force, {options.request.database, options.scene.file});
}

/// Notes sources that stand elsewhere than what the picture shows.
void noteElevations(const Options& options, const PatternModel& model) {
  if (options.request.isMap) return;
  const double shown = model.shown().directions.front().elevation;
  for (const BF::SourceLocation& source : model.sources()) {
    const double elevation = BF::directionOf(source).elevation;
    if (std::abs(elevation - shown) <= NOTED_ELEVATION) continue;
    warn(
        fmt::format("{}: source {} is at elevation {:.1f} degrees, the picture shows {:.1f} "
                    "(--elevation)",
                    options.request.scene, source.id, elevation, shown + 0.0));
  }
}

/// The mean gains between the sources themselves, a line for each target.
void printGains(const Options& options, const PatternModel& model) {
  std::cout << fmt::format("{}: {} at {:.2f} s, {} of {}\n", options.output, options.request.method,
                           model.time(), model.shown().text(), options.request.database);
  for (std::size_t row = 0; row < model.sources().size(); ++row) {
    if (!model.sources()[row].flag) continue;
    std::cout << fmt::format("source {}: gain", model.sources()[row].id);
    for (std::size_t s = 0; s < model.sources().size(); ++s) {
      std::cout << fmt::format("{} {} towards source {}", s == 0 ? "" : ",",
                               gainText(model.gain(row, s)), model.sources()[s].id);
    }
    std::cout << "\n";
  }
}

void drawPattern(Options options) {
  PatternRequest& request = options.request;
  checkUsage(options);
  request.band = bandOf(options.band);
  request.scene = options.scene.name();
  const Audio::Scene scene = Audio::readScene(options.scene);
  PatternModel model(request, scene);
  model.setTime(options.time.value_or(fullestTime(scene)));
  writePicture(
      options.output,
      request.isMap ? model.map().drawn(options.width) : model.picture().drawn(options.width),
      options.force);
  noteElevations(options, model);
  printGains(options, model);
}

}  // namespace

void addPatternCommand(CLI::App& app) {
  const auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand(
      "pattern", "Draw how loud a method lets each direction through, for each source");
  command
      ->add_option("--tf", options->request.database,
                   "Transfer-function database (SOFA, DataType TF)")
      ->required();
  addSceneOptions(*command, options->scene);
  command
      ->add_option("--method", options->request.method,
                   "See: zelk-sss methods; LCMV, GJ and GICA are drawn before they adapt, ML with "
                   "equal noise at all microphones")
      ->capture_default_str();
  CLI::Option* frequency =
      command
          ->add_option(
              "--frequency", options->request.frequencies,
              "Frequencies to draw, in Hz, beside the mean of all; default: 500 1000 2000 4000")
          ->check(isNonNegative());
  command->add_option("--band", options->band,
                      "Frequencies that the mean is over, LOW:HIGH in Hz; default: all");
  command
      ->add_option("--time", options->time,
                   "When in the scene, in seconds; default: when the most sources are active")
      ->check(isNonNegative());
  CLI::Option* elevation =
      command
          ->add_option("--elevation", options->request.elevation,
                       "Elevation to draw, in degrees: the nearest that the database has")
          ->check(isBetween(-90.0, 90.0))
          ->capture_default_str();
  command
      ->add_flag("--map", options->request.isMap,
                 "Draw the mean for all directions of a database that covers a sphere, as a map by "
                 "azimuth and elevation")
      ->excludes(frequency)
      ->excludes(elevation);
  command->add_option("-o,--output", options->output, "The picture, NAME.svg or NAME.png")
      ->required();
  command->add_option("--width", options->width, "Width of the picture in pixels")
      ->check(isBetween(200, 10000))
      ->capture_default_str();
  addDatabaseLimit(*command);
  command->add_flag("--force", options->force, "Replace an existing picture");
  command->footer(
      "Examples:\n  zelk-sss pattern --tf array.sofa --sources scene.json --method NULL -o "
      "pattern.svg\n"
      "  zelk-sss pattern --tf sphere.sofa --source 0:30:20 --source 1:-60 --map --band 500:4000 "
      "-o "
      "map.svg");
  command->callback([options] { drawPattern(*options); });
}
