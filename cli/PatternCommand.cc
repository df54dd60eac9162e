#include "cli/PatternCommand.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "cli/OptionChecks.h"
#include "cli/SceneOptions.h"
#include "dsp/DataError.h"
#include "dsp/Decibels.h"
#include "fileio/SofaFile.h"
#include "pictures/BeamPattern.h"
#include "pictures/DirectionRing.h"
#include "pictures/PatternPicture.h"
#include "pictures/PictureFile.h"
#include "responses/DatabaseFile.h"
#include "scene/SceneMoment.h"
#include "separation/Methods.h"
#include "separation/SeparationEngine.h"

namespace {

constexpr std::size_t MAX_FREQUENCIES = 8;
constexpr double NOTED_ELEVATION = 5.0;  // degrees
constexpr double MIN_GAIN = -100.0;      // dB; what lies below is rounding

struct Options {
  std::string database;
  Audio::SceneChoice scene;
  std::string method = "NULL";
  std::vector<double> frequencies;  ///< Hz; empty: the usual ones
  std::optional<double> time;
  double elevation = 0.0;
  std::string output;
  int width = 900;
  bool force = false;
};

/// Everything the gains follow from.
struct Setup {
  std::unique_ptr<BF::BF> engine;
  double samplingRate = 0.0;
  double time = 0.0;
  std::vector<BF::SourceLocation> sources;
};

std::string fileName(const std::string& path) {
  return std::filesystem::path(path).filename().string();
}

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

void checkUsage(const Options& options) {
  requireScene(options.scene);
  checkMethod(options.method);
  if (options.frequencies.size() > MAX_FREQUENCIES) {
    throw CLI::ValidationError(
        "--frequency",
        fmt::format("{} given, expected {} at most", options.frequencies.size(), MAX_FREQUENCIES));
  }
  checkPicture(options.output, options.force, {options.database, options.scene.file});
}

Setup readInputs(const Options& options) {
  Setup setup;
  const Audio::Scene scene = Audio::readScene(options.scene);
  setup.time = options.time.value_or(fullestTime(scene));
  setup.sources = sourcesAt(scene, setup.time);
  if (std::none_of(setup.sources.begin(), setup.sources.end(), [](auto& s) { return s.flag; })) {
    throw DataError(
        fmt::format("{}: found no source that is active at {:g} s, expected one or more (--time)",
                    options.scene.name(), setup.time));
  }
  const SofaFile file(options.database);
  requireDatabase(file);
  setup.samplingRate = file.samplingRate();
  setup.engine =
      engineOf(options.method, databaseOf(file), static_cast<int>(std::lround(setup.samplingRate)));
  setup.engine->updateSources(setup.sources);
  return setup;
}

/// The bins nearest to the frequencies, in increasing order, each once.
std::vector<std::size_t> binsOf(const Options& options, const Setup& setup) {
  const std::size_t last = setup.engine->separationMatrices.size() - 1;
  const double highest = setup.samplingRate / 2.0;
  std::vector<double> frequencies = options.frequencies;
  for (const double frequency : frequencies) {
    if (frequency <= highest) continue;
    throw DataError(fmt::format("--frequency is {:g} Hz, expected 0 to {:g} Hz, which {} covers",
                                frequency, highest, options.database));
  }
  if (frequencies.empty()) {
    for (const double usual : {500.0, 1000.0, 2000.0, 4000.0}) {
      if (usual <= highest) frequencies.push_back(usual);
    }
  }
  std::vector<std::size_t> bins;
  bins.reserve(frequencies.size());
  for (const double frequency : frequencies) {
    bins.push_back(
        static_cast<std::size_t>(std::lround(frequency / highest * static_cast<double>(last))));
  }
  std::sort(bins.begin(), bins.end());
  bins.erase(std::unique(bins.begin(), bins.end()), bins.end());
  return bins;
}

double meanDistance(const std::vector<BF::SourceLocation>& sources) {
  double sum = 0.0;
  for (const BF::SourceLocation& source : sources) sum += BF::directionOf(source).distance;
  return sum / static_cast<double>(sources.size());
}

DirectionRing ringOf(const Options& options, const Setup& setup) {
  try {
    return DirectionRing::of(*setup.engine->tfDatabase, options.elevation,
                             meanDistance(setup.sources));
  } catch (const DataError& error) {
    throw DataError(options.database + ": " + error.what());
  }
}

/// How the matrices were made, where that is not the whole truth about the method.
std::string stateOf(const std::string& method) {
  if (method == "ML") return ", equal noise at all microphones";
  if (method == "LCMV" || method == "GJ" || method == "GICA") return " before it adapts";
  return "";
}

PatternPicture pictureOf(const Options& options, const Setup& setup, const DirectionRing& ring) {
  PatternPicture picture;
  picture.title = fmt::format("{}{}: gain by direction (0 dB: unchanged)", options.method,
                              stateOf(options.method));
  picture.subtitle = fmt::format("{}, {}; {} at {:.2f} s", fileName(options.database), ring.text(),
                                 fileName(options.scene.name()), setup.time);
  for (const BF::Direction& direction : ring.directions)
    picture.azimuths.push_back(direction.azimuth);
  const std::vector<std::size_t> bins = binsOf(options, setup);
  const double step =
      setup.samplingRate / 2.0 /
      static_cast<double>(std::max<std::size_t>(1, setup.engine->separationMatrices.size() - 1));
  for (const std::size_t k : bins) picture.frequencies.push_back(static_cast<double>(k) * step);
  for (std::size_t row = 0; row < setup.sources.size(); ++row) {
    picture.sources.push_back({setup.sources[row].id, BF::directionOf(setup.sources[row])});
    if (!setup.sources[row].flag) continue;
    PatternPicture::Panel panel{row, std::vector<std::vector<double>>(bins.size() + 1)};
    for (const int position : ring.positions) {
      const std::vector<double> gains = powerGains(*setup.engine, static_cast<int>(row), position);
      for (std::size_t c = 0; c < bins.size(); ++c) {
        panel.curves[c].push_back(Audio::decibels(gains[bins[c]]));
      }
      panel.curves.back().push_back(broadbandGain(gains));
    }
    picture.panels.push_back(std::move(panel));
  }
  return picture;
}

/// Notes sources that stand elsewhere than what the picture shows.
void noteElevations(const Options& options, const Setup& setup, const DirectionRing& ring) {
  const double shown = ring.directions.front().elevation;
  for (const BF::SourceLocation& source : setup.sources) {
    const double elevation = BF::directionOf(source).elevation;
    if (std::abs(elevation - shown) <= NOTED_ELEVATION) continue;
    std::cerr << "zelk-sss: "
              << fmt::format(
                     "{}: source {} is at elevation {:.1f} degrees, the picture shows {:.1f} "
                     "(--elevation)",
                     options.scene.name(), source.id, elevation, shown + 0.0)
              << std::endl;
  }
}

std::string gainText(double gain) {
  return gain < MIN_GAIN ? fmt::format("below {:.0f} dB", MIN_GAIN)
                         : fmt::format("{:.1f} dB", std::round(10.0 * gain) / 10.0 + 0.0);
}

/// The broadband gains between the sources themselves, a line for each target.
void printGains(const Options& options, const Setup& setup, const DirectionRing& ring) {
  std::cout << fmt::format("{}: {} at {:.2f} s, {} of {}\n", options.output, options.method,
                           setup.time, ring.text(), options.database);
  for (std::size_t row = 0; row < setup.sources.size(); ++row) {
    if (!setup.sources[row].flag) continue;
    std::cout << fmt::format("source {}: gain", setup.sources[row].id);
    for (std::size_t s = 0; s < setup.sources.size(); ++s) {
      const int position = setup.engine->tfDatabase->findNearestSourceIndex(setup.sources[s]);
      const double gain = broadbandGain(powerGains(*setup.engine, static_cast<int>(row), position));
      std::cout << fmt::format("{} {} towards source {}", s == 0 ? "" : ",", gainText(gain),
                               setup.sources[s].id);
    }
    std::cout << "\n";
  }
}

void drawPattern(const Options& options) {
  checkUsage(options);
  const Setup setup = readInputs(options);
  const DirectionRing ring = ringOf(options, setup);
  const PatternPicture picture = pictureOf(options, setup, ring);
  writePicture(options.output, picture.drawn(options.width), options.force);
  noteElevations(options, setup, ring);
  printGains(options, setup, ring);
}

}  // namespace

void addPatternCommand(CLI::App& app) {
  const auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand(
      "pattern", "Draw how loud a method lets each direction through, for each source");
  command->add_option("--tf", options->database, "Transfer-function database (SOFA, DataType TF)")
      ->required();
  addSceneOptions(*command, options->scene);
  command
      ->add_option("--method", options->method,
                   "See: zelk-sss methods; LCMV, GJ and GICA are drawn before they adapt, ML with "
                   "equal noise at all microphones")
      ->capture_default_str();
  command
      ->add_option(
          "--frequency", options->frequencies,
          "Frequencies to draw, in Hz, beside the mean of all; default: 500 1000 2000 4000")
      ->check(isNonNegative());
  command
      ->add_option("--time", options->time,
                   "When in the scene, in seconds; default: when the most sources are active")
      ->check(isNonNegative());
  command
      ->add_option("--elevation", options->elevation,
                   "Elevation to draw, in degrees: the nearest that the database has")
      ->check(isBetween(-90.0, 90.0))
      ->capture_default_str();
  command->add_option("-o,--output", options->output, "The picture, NAME.svg or NAME.png")
      ->required();
  command->add_option("--width", options->width, "Width of the picture in pixels")
      ->check(isBetween(200, 10000))
      ->capture_default_str();
  addDatabaseLimit(*command);
  command->add_flag("--force", options->force, "Replace an existing picture");
  command->footer(
      "Example:\n  zelk-sss pattern --tf array.sofa --sources scene.json --method NULL -o "
      "pattern.svg");
  command->callback([options] { drawPattern(*options); });
}
