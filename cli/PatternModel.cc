#include "cli/PatternModel.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <filesystem>

#include "dsp/DataError.h"
#include "dsp/Decibels.h"
#include "fileio/SofaFile.h"
#include "geometry/SpeedOfSound.h"
#include "pictures/BeamPattern.h"
#include "responses/DatabaseFile.h"
#include "scene/SceneMoment.h"
#include "separation/SeparationEngine.h"

namespace {

std::string fileName(const std::string& path) {
  return std::filesystem::path(path).filename().string();
}

double meanDistance(const std::vector<BF::SourceLocation>& sources) {
  double sum = 0.0;
  for (const BF::SourceLocation& source : sources) sum += BF::directionOf(source).distance;
  return sum / static_cast<double>(sources.size());
}

/// How the matrices were made, where that is not the whole truth about the method.
std::string stateOf(const std::string& method) {
  if (method == "ML") return ", equal noise at all microphones";
  if (method == "LCMV" || method == "GJ" || method == "GICA") return " before it adapts";
  return "";
}

/// Above which frequency an array hears some directions alike: c / (2 d), where d is the largest
/// distance from a microphone to its nearest neighbour. Infinite where the places are not known.
double aliasingLimit(const std::vector<BF::MicLocation>& microphones) {
  double widest = 0.0;
  for (const BF::MicLocation& a : microphones) {
    double nearest = HUGE_VAL;
    for (const BF::MicLocation& b : microphones) {
      if (&a != &b)
        nearest = std::min<double>(nearest, std::hypot(a.x - b.x, a.y - b.y, a.z - b.z));
    }
    if (nearest < HUGE_VAL) widest = std::max(widest, nearest);
  }
  return widest > 0.0 ? BF::SPEED_OF_SOUND / (2.0 * widest) : HUGE_VAL;
}

std::string kilohertz(double hertz) { return fmt::format("{:.3g}", hertz / 1000.0 + 0.0); }

}  // namespace

PatternModel::PatternModel(PatternRequest patternRequest, Audio::Scene patternScene)
    : wanted(std::move(patternRequest)), scene(std::move(patternScene)) {
  const SofaFile file(wanted.database);
  requireDatabase(file);
  samplingRate = file.samplingRate();
  engine = engineOf(wanted.method, databaseOf(file), static_cast<int>(std::lround(samplingRate)));
  const double highest = samplingRate / 2.0;
  for (const double frequency : wanted.frequencies) {
    if (frequency <= highest) continue;
    throw DataError(fmt::format("--frequency is {:g} Hz, expected 0 to {:g} Hz, which {} covers",
                                frequency, highest, wanted.database));
  }
  if (wanted.band && wanted.band->second > highest) {
    throw DataError(fmt::format("--band is {:g}:{:g} Hz, expected 0 to {:g} Hz, which {} covers",
                                wanted.band->first, wanted.band->second, highest, wanted.database));
  }
  if (!wanted.frequencies.empty()) return;
  for (const double usual : {500.0, 1000.0, 2000.0, 4000.0}) {
    if (usual <= highest) wanted.frequencies.push_back(usual);
  }
}

void PatternModel::setTime(double seconds) {
  moment = seconds;
  active = sourcesAt(scene, moment);
  if (std::none_of(active.begin(), active.end(), [](auto& s) { return s.flag; })) {
    throw DataError(
        fmt::format("{}: found no source that is active at {:g} s, expected one or more (--time)",
                    wanted.scene, moment));
  }
  engine->updateSources(active);
  try {
    const double distance = meanDistance(active);
    directions = wanted.isMap ? DirectionSet::sphere(*engine->tfDatabase, distance)
                              : DirectionSet::ring(*engine->tfDatabase, wanted.elevation, distance);
  } catch (const DataError& error) {
    throw DataError(wanted.database + ": " + error.what());
  }
}

double PatternModel::binWidth() const {
  return samplingRate / 2.0 /
         static_cast<double>(std::max<std::size_t>(1, engine->separationMatrices.size() - 1));
}

/// The bins nearest to the frequencies, in increasing order, each once.
std::vector<std::size_t> PatternModel::bins() const {
  std::vector<std::size_t> result;
  for (const double frequency : wanted.frequencies) {
    const auto k = static_cast<std::size_t>(std::lround(frequency / binWidth()));
    result.push_back(std::min(k, engine->separationMatrices.size() - 1));
  }
  std::sort(result.begin(), result.end());
  result.erase(std::unique(result.begin(), result.end()), result.end());
  return result;
}

double PatternModel::bandGain(const std::vector<double>& powerGains) const {
  if (!wanted.band) return broadbandGain(powerGains);
  const auto first = static_cast<std::size_t>(std::lround(wanted.band->first / binWidth()));
  const auto last = static_cast<std::size_t>(std::lround(wanted.band->second / binWidth()));
  const auto at = [&](std::size_t k) {
    return powerGains.begin() + static_cast<std::ptrdiff_t>(std::min(k, powerGains.size()));
  };
  return broadbandGain({at(first), at(last + 1)});
}

std::string PatternModel::bandText() const {
  const auto [low, high] = wanted.band.value_or(std::pair(0.0, samplingRate / 2.0));
  return fmt::format("mean over {}–{} kHz", kilohertz(low), kilohertz(high));
}

double PatternModel::gain(std::size_t of, std::size_t towards) const {
  const int position = engine->tfDatabase->findNearestSourceIndex(active.at(towards));
  return bandGain(powerGains(*engine, static_cast<int>(of), position));
}

std::string PatternModel::methodText() const { return wanted.method + stateOf(wanted.method); }

PatternCaption PatternModel::caption() const {
  PatternCaption caption;
  caption.title = methodText() + ": gain by direction (0 dB: unchanged)";
  caption.subtitle = fmt::format("{}, {}; {} at {:.2f} s", fileName(wanted.database),
                                 directions.text(), fileName(wanted.scene), moment);
  caption.meanName = bandText();
  const double limit = aliasingLimit(engine->tfDatabase->micLocations);
  if (limit < samplingRate / 2.0) {
    caption.note = fmt::format(
        "Spatial aliasing above {} kHz, where neighbouring microphones are half a wavelength "
        "apart.",
        kilohertz(limit));
  }
  for (const BF::SourceLocation& source : active) {
    caption.sources.push_back({source.id, BF::directionOf(source)});
  }
  return caption;
}

PatternPicture PatternModel::picture() const {
  PatternPicture picture{caption(), {}, {}, {}};
  for (const BF::Direction& one : directions.directions) {
    picture.azimuths.push_back(one.azimuth);
  }
  const std::vector<std::size_t> curves = bins();
  for (const std::size_t k : curves) {
    picture.frequencies.push_back(static_cast<double>(k) * binWidth());
  }
  for (std::size_t row = 0; row < active.size(); ++row) {
    if (!active[row].flag) continue;
    PatternPicture::Panel panel{row, std::vector<std::vector<double>>(curves.size() + 1), {}};
    for (const int position : directions.positions) {
      const std::vector<double> gains = powerGains(*engine, static_cast<int>(row), position);
      for (std::size_t c = 0; c < curves.size(); ++c) {
        panel.curves[c].push_back(Audio::decibels(gains[curves[c]]));
      }
      panel.curves.back().push_back(bandGain(gains));
    }
    for (std::size_t s = 0; s < active.size(); ++s) panel.sourceGains.push_back(gain(row, s));
    picture.panels.push_back(std::move(panel));
  }
  return picture;
}

PatternMap PatternModel::map() const {
  PatternMap map{caption(), directions.directions, {}};
  for (std::size_t row = 0; row < active.size(); ++row) {
    if (!active[row].flag) continue;
    PatternMap::Panel panel{row, {}, {}};
    for (const int position : directions.positions) {
      panel.gains.push_back(bandGain(powerGains(*engine, static_cast<int>(row), position)));
    }
    for (std::size_t s = 0; s < active.size(); ++s) panel.sourceGains.push_back(gain(row, s));
    map.panels.push_back(std::move(panel));
  }
  return map;
}
