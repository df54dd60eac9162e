#include "responses/TfdbReport.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <iterator>
#include <numbers>
#include <optional>
#include <set>

#include "dsp/Decibels.h"
#include "geometry/Direction.h"
#include "geometry/Position.h"
#include "responses/DatabaseFile.h"
#include "responses/DelayCheck.h"

namespace {

using BF::Position;

constexpr std::size_t MAX_CHECK = 4096;
constexpr std::size_t CHECKED_VALUES = std::size_t{1} << 27;
constexpr std::size_t MAX_ROWS = 16;

std::string counted(std::size_t count, const char* noun) {
  return fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s");
}

double distanceOf(const Position& p) { return BF::directionOf(BF::asLocation(p)).distance; }

template <class Measure>
std::string range(const std::vector<Position>& positions, Measure measure) {
  double least = measure(positions[0]);
  double most = least;
  for (const Position& p : positions) {
    least = std::min(least, measure(p));
    most = std::max(most, measure(p));
  }
  return fmt::format("{:.4g} … {:.4g}", least, most);
}

std::string sourcesText(const std::vector<Position>& sources) {
  const auto direction = [](const Position& p) { return BF::directionOf(BF::asLocation(p)); };
  const auto azimuth = [&](const Position& p) { return direction(p).azimuth; };
  const auto elevation = [&](const Position& p) { return direction(p).elevation; };
  return fmt::format("sources:      azimuth {}°, elevation {}°, distance {} m\n",
                     range(sources, azimuth), range(sources, elevation),
                     range(sources, distanceOf));
}

std::string microphonesText(const std::vector<Position>& microphones) {
  std::string text;
  for (std::size_t r = 0; r < std::min(microphones.size(), MAX_ROWS); ++r) {
    Position p = microphones[r];
    for (double& x : p) x = std::round(1e4 * x) / 1e4 + 0.0;  // no "-0.0000"
    text += fmt::format("microphone {:>2}: x {:.4f}, y {:.4f}, z {:.4f} m\n", r, p[0], p[1], p[2]);
  }
  if (microphones.size() > MAX_ROWS) {
    text += fmt::format("… and {} more\n", microphones.size() - MAX_ROWS);
  }
  return text;
}

void findPlaces(const SofaTransferFunctions& data, std::vector<std::string>& findings) {
  const std::set<Position> places(data.sourcePositions.begin(), data.sourcePositions.end());
  const std::size_t M = data.sourcePositions.size();
  if (places.size() < M && places.size() > 1) {  // all at one: the reader remarks that
    findings.push_back(
        fmt::format("{} share {} source positions: by its place only the first of several is found",
                    counted(M, "measurement"), places.size()));
  }
  const auto atOrigin = std::count_if(places.begin(), places.end(),
                                      [](const Position& p) { return distanceOf(p) == 0.0; });
  if (atOrigin > 0) findings.push_back("a source is at the origin and so has no direction");
}

void findSilence(const SofaTransferFunctions& data, std::vector<std::string>& findings) {
  const std::size_t N = data.frequencies;
  const std::size_t rows = data.values.size() / N;
  std::size_t silentRows = 0;
  std::vector<bool> heard(N, false);
  for (std::size_t row = 0; row < rows; ++row) {
    bool silent = true;
    for (std::size_t n = 0; n < N; ++n) {
      if (data.values[row * N + n] == std::complex<float>()) continue;
      silent = false;
      heard[n] = true;
    }
    if (silent) ++silentRows;
  }
  if (silentRows > 0) {
    findings.push_back(
        fmt::format("{} of {} responses are 0 at all frequencies", silentRows, rows));
  }
  const auto empty = static_cast<std::size_t>(std::count(heard.begin(), heard.end(), false));
  if (empty > 0) {
    const auto first = std::find(heard.begin(), heard.end(), false) - heard.begin();
    findings.push_back(fmt::format("all responses are 0 at {} of {} frequencies, the first {} Hz",
                                   empty, N,
                                   0.5 * data.samplingRate * static_cast<double>(first) /
                                       static_cast<double>(std::max<std::size_t>(1, N - 1))));
  }
}

std::vector<std::string> plainFindings(const SofaTransferFunctions& data) {
  std::vector<std::string> findings;
  findPlaces(data, findings);
  findSilence(data, findings);
  return findings;
}

/// What the responses are relative to, and how much of them the frame holds where that is known.
std::string originText(int reference, const std::optional<double>& share) {
  std::string text = fmt::format("reference:     {}\n",
                                 reference > 0 ? fmt::format("microphone {}", reference) : "none");
  if (share)
    text += fmt::format("in the frame:  {} of the responses' energy\n", percentText(*share));
  return text;
}

/// The file's responses as transfer functions at its own rate, for examination.
SofaTransferFunctions examined(const SofaFile& file, ImportReport& report) {
  if (file.isTransferFunctions()) return transferFunctionsOf(file);
  std::size_t length = std::clamp<std::size_t>(std::bit_ceil(file.length()), 64, MAX_CHECK);
  const std::size_t responses = file.measurements() * file.receivers();
  while (length > 64 && responses > CHECKED_VALUES / (length / 2 + 1)) length /= 2;
  const auto rate = static_cast<int>(std::clamp(std::round(file.samplingRate()), 1.0, 1e6));
  return importResponses(file, {rate, static_cast<int>(length)}, report);
}

}  // namespace

std::string infoText(const SofaFile& file) {
  const bool tf = file.isTransferFunctions();
  std::string text = fmt::format(
      "{}\ndata type:     {}\ncounts:        {}, {}, {}\nsampling rate: {} Hz\n", file.path(),
      tf ? "TF (transfer functions)" : "FIR (impulse responses)",
      counted(file.measurements(), "source position"), counted(file.receivers(), "microphone"),
      tf ? fmt::format("{} frequencies (frames of {} samples)", file.length(),
                       2 * (file.length() - 1))
         : counted(file.length(), "sample"),
      file.samplingRate());
  if (tf) text += originText(file.referenceMicrophone(), file.energyInFrame());
  text += sourcesText(file.sourcePositions()) + microphonesText(file.receiverPositions());
  for (const std::string& warning : file.warnings()) text += "warning: " + warning + "\n";
  return text;
}

std::vector<std::string> findingsOf(const SofaTransferFunctions& data) {
  std::vector<std::string> findings = plainFindings(data);
  const auto agreement = compareDelays(data);
  if (agreement && contradicts(*agreement)) findings.push_back(describe(*agreement, data));
  return findings;
}

std::string checkText(const SofaFile& file) {
  if (file.isTransferFunctions()) requireDatabase(file);
  ImportReport report;
  const SofaTransferFunctions data = examined(file, report);
  std::string text = infoText(file);
  for (const std::string& finding : plainFindings(data)) text += "warning: " + finding + "\n";
  const auto agreement = compareDelays(data);
  if (!agreement) {
    text += "delays:        cannot be compared (too few or too similar directions)\n";
  } else {
    text += (contradicts(*agreement) ? "warning: " : "delays:        ") +
            describe(*agreement, data) + "\n";
  }
  if (file.isTransferFunctions()) {
    return text + fmt::format("usable as a database for frames of {} samples at {} Hz\n",
                              2 * (file.length() - 1), file.samplingRate());
  }
  if (report.worstLoss > 0.0) {
    text +=
        fmt::format("length:        {:.1f} dB of the energy lie outside {} samples\n",
                    Audio::decibels(std::max(0.0, report.lostEnergy)), 2 * (data.frequencies - 1));
  }
  return text + "usable after `zelk-sss tfdb import`\n";
}

std::string countsText(const SofaTransferFunctions& data) {
  return fmt::format("{}, {}, {} frequencies ({} Hz, frames of {} samples)",
                     counted(data.sourcePositions.size(), "source position"),
                     counted(data.receiverPositions.size(), "microphone"), data.frequencies,
                     data.samplingRate, 2 * (data.frequencies - 1));
}

std::string importText(const std::string& output, const SofaTransferFunctions& data,
                       const ImportReport& report) {
  std::string text = fmt::format("{}: {}\n", output, countsText(data));
  if (report.copied) {
    text += "copied as they are: rate and frequencies fit\n";
  } else {
    text +=
        fmt::format("common delay {}: {:.3f} ms\n", report.removedDelay < 0.0 ? "added" : "removed",
                    1000.0 * std::abs(report.removedDelay));
  }
  if (report.chosen) {
    text += fmt::format("length chosen: {} samples, {:.4g} ms\n", 2 * (data.frequencies - 1),
                        2000.0 * static_cast<double>(data.frequencies - 1) / data.samplingRate);
  }
  return text + originText(data.referenceMicrophone, data.energyInFrame);
}
