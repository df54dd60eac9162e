#include "fileio/SofaParser.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <limits>

#include "dsp/DataError.h"
#include "fileio/SofaLimits.h"
#include "geometry/Direction.h"

namespace {

using BF::Position;

[[noreturn]] void fail(const std::string& text) { throw DataError(text); }

/// Largest relative deviation of a frequency from an even spacing, for values in single precision.
constexpr double SPACING_TOLERANCE = 1e-4;

/// Azimuth and elevation in degrees, distance in metres.
Position fromSpherical(const Position& p) {
  return BF::asPosition(BF::locationOf({p[0], p[1], p[2]}));
}

double dot(const Position& a, const Position& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

Position cross(const Position& a, const Position& b) {
  return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

double lengthOf(const Position& a) { return std::hypot(a[0], a[1], a[2]); }

Position normalised(const Position& a) {
  const double length = lengthOf(a);
  return {a[0] / length, a[1] / length, a[2] / length};
}

/// Row m of a list that holds one row for every measurement or one for all.
const Position& rowOf(const std::vector<Position>& rows, std::size_t m) {
  return rows.size() == 1 ? rows[0] : rows[m];
}

}  // namespace

SofaParser::SofaParser(const NcFile& input, std::size_t limit) : file(input), largest(limit) {
  const std::string conventions = file.attribute("", "Conventions");
  if (conventions != "SOFA") {
    fail(fmt::format("attribute Conventions is \"{}\", expected \"SOFA\"", printable(conventions)));
  }
  dataType = file.attribute("", "DataType");
  if (dataType != "TF" && dataType != "FIR") {
    fail(fmt::format("attribute DataType is \"{}\", expected \"TF\" or \"FIR\"",
                     printable(dataType)));
  }
  readDataShape();
  if (isTransferFunctions()) {
    readFrequencies();
  } else {
    readSamplingRate();
  }
  readSources();
  readReceivers();
  readOrigin();
}

void SofaParser::readDataShape() {
  const std::string variable = isTransferFunctions() ? "Data.Real" : "Data.IR";
  const std::vector<std::size_t> shape = file.shape(variable);
  if (shape.size() != 3) {
    fail(fmt::format("{} has {} dimensions, expected 3 (measurements, receivers, {})", variable,
                     shape.size(), isTransferFunctions() ? "frequencies" : "samples"));
  }
  for (const std::size_t length : shape) {
    if (length == 0 || length > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
      fail(fmt::format("{} has the shape {}, expected counts of 1 or more", variable, shape));
    }
  }
  M = shape[0];
  R = shape[1];
  N = shape[2];
  if (M > MAX_MEASUREMENTS) {
    fail(fmt::format("{} has {} measurements, expected at most {}", variable, M, MAX_MEASUREMENTS));
  }
  requireWithinLimit(variable);
  // Whoever reads the responses allocates by these counts: they must be what the file can hold.
  file.valueCount(variable);
  if (isTransferFunctions() && file.shape("Data.Imag") != shape) {
    fail(fmt::format("Data.Imag has the shape {}, expected that of Data.Real, {}",
                     file.shape("Data.Imag"), shape));
  }
}

// The whole of what is handed back counts, before any of it is allocated.
void SofaParser::requireWithinLimit(const std::string& variable) const {
  const std::optional<AnswerLayout> layout = layoutOf(head(AnswerState::RESPONSES));
  if (layout && layout->size <= largest) return;
  const double bytes = static_cast<double>(M) * static_cast<double>(R) * static_cast<double>(N) *
                       (isTransferFunctions() ? 2 : 1) * sizeof(float);
  fail(fmt::format("{} of the shape [{}, {}, {}] unfolds to {:.0f} bytes, {}", variable, M, R, N,
                   layout ? static_cast<double>(layout->size) : bytes, expectedAtMost(largest)));
}

AnswerHead SofaParser::head(AnswerState state) const {
  AnswerHead result;
  result.state = state;
  result.isTransferFunctions = isTransferFunctions() ? 1 : 0;
  result.measurements = M;
  result.receivers = R;
  result.length = N;
  result.samplingRate = rate;
  result.referenceMicrophone = reference;
  result.energyInFrame = share;
  return result;
}

// N holds the frequencies: from 0 in even steps up to half the sampling rate.
void SofaParser::readFrequencies() {
  const std::vector<std::size_t> shape = file.shape("N");
  if (shape != std::vector<std::size_t>{N}) {
    fail(fmt::format("N has the shape {}, expected [{}], the frequencies of Data.Real", shape, N));
  }
  const std::vector<double> frequencies = file.readDoubles("N");
  if (frequencies[0] != 0.0) {
    fail(fmt::format("N starts at {} Hz, expected 0", frequencies[0]));
  }
  const double last = frequencies.back();
  for (std::size_t n = 1; n < N; ++n) {
    const double expected = last * static_cast<double>(n) / static_cast<double>(N - 1);
    if (last <= 0.0 || std::abs(frequencies[n] - expected) > SPACING_TOLERANCE * last) {
      fail(fmt::format("N({}) is {} Hz, expected {} Hz for even steps", n, frequencies[n],
                       expected));
    }
  }
  rate = 2.0 * last;
  if (rate > MAX_RATE) {
    fail(fmt::format("N ends at {} Hz, expected at most {} Hz", last, 0.5 * MAX_RATE));
  }
}

void SofaParser::readSamplingRate() {
  const std::vector<double> rates = file.readDoubles("Data.SamplingRate");
  if (rates.empty()) fail("Data.SamplingRate has no value, expected one");
  if (rates[0] < 1.0 || rates[0] > MAX_RATE) {
    fail(fmt::format("Data.SamplingRate is {} Hz, expected 1 to {} Hz", rates[0], MAX_RATE));
  }
  if (std::any_of(rates.begin(), rates.end(), [&](double r) { return r != rates[0]; })) {
    fail("Data.SamplingRate differs between measurements, expected one rate");
  }
  rate = rates[0];
}

// A variable of rows of three coordinates, as cartesian metres. Of a third dimension (emitters or
// measurements) the first counts.
std::vector<Position> SofaParser::readPositions(const std::string& variable,
                                                const std::string& type) {
  const std::vector<std::size_t> shape = file.shape(variable);
  const bool valid = (shape.size() == 2 || shape.size() == 3) && shape[0] > 0 && shape[1] == 3 &&
                     (shape.size() == 2 || shape[2] > 0);
  if (!valid) {
    fail(fmt::format("{} has the shape {}, expected rows of 3 coordinates", variable, shape));
  }
  if (type != "spherical" && type != "cartesian") {
    fail(fmt::format("{} has the Type \"{}\", expected \"spherical\" or \"cartesian\"", variable,
                     printable(type)));
  }
  const std::vector<double> values = file.readDoubles(variable);
  const auto beyond = std::find_if(values.begin(), values.end(),
                                   [](double x) { return std::abs(x) > MAX_COORDINATE; });
  if (beyond != values.end()) {
    fail(fmt::format("{}: value {} is {}, expected coordinates from -{} to {} (metres, degrees)",
                     variable, beyond - values.begin(), *beyond, MAX_COORDINATE, MAX_COORDINATE));
  }
  const std::size_t depth = shape.size() == 3 ? shape[2] : 1;
  std::vector<Position> rows;
  bool moves = false;
  for (std::size_t i = 0; i < shape[0]; ++i) {
    Position p;
    for (std::size_t c = 0; c < 3; ++c) {
      const double* along = values.data() + (i * 3 + c) * depth;
      p[c] = *along;
      moves = moves || std::any_of(along, along + depth, [&](double x) { return x != *along; });
    }
    rows.push_back(type == "spherical" ? fromSpherical(p) : p);
  }
  if (moves) {
    remarks.push_back(
        fmt::format("{} has {} different places for each row: the first is used", variable, depth));
  }
  return rows;
}

// typeOf: the variable whose Type says what the coordinates mean, cartesian where it has none.
std::vector<Position> SofaParser::readListener(const std::string& variable,
                                               const std::string& typeOf, const Position& absent) {
  if (!file.hasVariable(variable) || !file.hasVariable(typeOf)) return {absent};
  std::string type = file.attribute(variable, "Type");
  if (type.empty()) type = file.attribute(typeOf, "Type");
  return readPositions(variable, type.empty() ? "cartesian" : type);
}

// Positions in the room become positions seen from the listener: relative to where the listener is,
// along the axes of its view (x) and up (z) directions.
void SofaParser::readSources() {
  const std::vector<Position> positions =
      readPositions("SourcePosition", file.attribute("SourcePosition", "Type"));
  const std::vector<Position> origins =
      readListener("ListenerPosition", "ListenerPosition", {0.0, 0.0, 0.0});
  const std::vector<Position> views = readListener("ListenerView", "ListenerView", {1.0, 0.0, 0.0});
  const std::vector<Position> ups = readListener("ListenerUp", "ListenerView", {0.0, 0.0, 1.0});
  const auto requireRows = [this](const char* variable, const std::vector<Position>& rows) {
    if (rows.size() == 1 || rows.size() == M) return;
    fail(fmt::format("{} has {} rows, expected 1 or {}, the measurements", variable, rows.size(),
                     M));
  };
  requireRows("SourcePosition", positions);
  requireRows("ListenerPosition", origins);
  requireRows("ListenerView", views);
  requireRows("ListenerUp", ups);
  for (std::size_t m = 0; m < M; ++m) {
    const Position& p = rowOf(positions, m);
    const Position& origin = rowOf(origins, m);
    const Position x = rowOf(views, m);
    const Position y = cross(rowOf(ups, m), x);
    if (lengthOf(y) == 0.0) {
      fail(
          fmt::format("ListenerView and ListenerUp of measurement {} are parallel or zero, "
                      "expected two directions",
                      m));
    }
    const Position front = normalised(x);
    const Position left = normalised(y);
    const Position relative = {p[0] - origin[0], p[1] - origin[1], p[2] - origin[2]};
    sources.push_back(
        {dot(relative, front), dot(relative, left), dot(relative, cross(front, left))});
  }
  noteUnits("SourcePosition");
  const auto first = [this](const Position& p) { return p == sources[0]; };
  if (M > 1 && std::all_of(sources.begin(), sources.end(), first)) {
    remarks.push_back(fmt::format("all {} measurements share one source position", M));
  }
}

// "metre" and "meter" are both in use, alone or after degrees.
void SofaParser::noteUnits(const std::string& variable) {
  const std::string units = file.attribute(variable, "Units");
  std::string word;
  bool known = true;
  const auto endWord = [&] {
    const bool plural = word.size() > 1 && word.back() == 's';
    if (plural) word.pop_back();
    known = known && (word.empty() || word == "m" || word == "metre" || word == "meter" ||
                      word == "degree" || word == "deg");
    word.clear();
  };
  for (const char c : units) {
    if (c == ',' || c == ' ') {
      endWord();
    } else {
      word += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
  }
  endWord();
  if (known) return;
  remarks.push_back(fmt::format(
      "{} has the Units \"{}\", expected metres (and degrees): its values are taken as such",
      variable, printable(units)));
}

void SofaParser::readReceivers() {
  microphones = readPositions("ReceiverPosition", file.attribute("ReceiverPosition", "Type"));
  if (microphones.size() != R) {
    fail(fmt::format("ReceiverPosition has {} rows, expected {}, the receivers of the data",
                     microphones.size(), R));
  }
  noteUnits("ReceiverPosition");
}

// Attributes of our own (SofaWriter.h), which other files lack.
void SofaParser::readOrigin() {
  const auto number = [this](const char* name, auto& value) {
    const std::string text = file.attribute("", name);
    if (text.empty() || text == "none") return false;
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value);
    if (result.ec == std::errc() && result.ptr == end) return true;
    fail(fmt::format("attribute {} is \"{}\", expected a number or none", name, printable(text)));
  };
  if (number("ZelkReferenceMicrophone", reference) && (reference < 1 || reference > R)) {
    fail(fmt::format("attribute ZelkReferenceMicrophone is {}, expected 1 to {}, the receivers",
                     reference, R));
  }
  if (number("ZelkEnergyInFrame", share) && !(share >= 0.0 && share <= 1.0)) {
    fail(fmt::format("attribute ZelkEnergyInFrame is {}, expected 0 to 1", share));
  }
}

void SofaParser::readResponses(float* values, double* delays) const {
  if (isTransferFunctions()) {
    file.readFloats("Data.Real", values);
    file.readFloats("Data.Imag", values + M * R * N);
  } else {
    file.readFloats("Data.IR", values);
    readDelays(delays);
  }
}

void SofaParser::readDelays(double* delays) const {
  std::fill(delays, delays + M * R, 0.0);
  if (!file.hasVariable("Data.Delay")) return;
  const std::vector<std::size_t> shape = file.shape("Data.Delay");
  const bool valid = shape.size() == 2 && (shape[0] == 1 || shape[0] == M) && shape[1] == R;
  if (!valid) {
    fail(fmt::format("Data.Delay has the shape {}, expected [1, {}] or [{}, {}]", shape, R, M, R));
  }
  const std::vector<double> values = file.readDoubles("Data.Delay");
  for (std::size_t m = 0; m < M; ++m) {
    for (std::size_t r = 0; r < R; ++r) delays[m * R + r] = values[(shape[0] == 1 ? 0 : m * R) + r];
  }
}
