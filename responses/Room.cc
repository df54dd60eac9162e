#include "responses/Room.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cmath>
#include <future>
#include <iterator>
#include <limits>
#include <numbers>
#include <thread>

#include "dsp/DataError.h"
#include "dsp/FastConvolution.h"
#include "geometry/Direction.h"
#include "geometry/Position.h"
#include "geometry/SpeedOfSound.h"

namespace {

using BF::Position;
using BF::SPEED_OF_SOUND;
using std::numbers::pi;
using Channels = std::vector<std::vector<double>>;

constexpr double MAX_SIDE = 200.0;  // metres
constexpr double MAX_T60 = 5.0;     // seconds
constexpr double MAX_IMAGES = 5e7;
constexpr double USUAL_HEIGHT = 1.2;        // metres, of an array
constexpr double OFF_MIDDLE = 0.47;         // of length and, from the other side, of width
constexpr double MIN_DISTANCE = 0.01;       // metres from a source to a microphone
constexpr double HIGH_PASS = 50.0;          // Hz
constexpr double MAX_VALUES = 134217728.0;  // of a file
constexpr double NEAR_WALL = 0.9;           // of the way from the array
constexpr std::size_t MAX_AROUND = 24;      // places of noise, each of which the room spreads
constexpr double STEP = 0.08;               // metres between the places of a moving source

// Not BF::distance, whose std::hypot takes several times as long: millions of these are computed.
double fastDistance(const Position& a, const Position& b) {
  const double x = a[0] - b[0];
  const double y = a[1] - b[1];
  const double z = a[2] - b[2];
  return std::sqrt(x * x + y * y + z * z);
}

std::string metres(const Position& p) {
  return fmt::format("({:.3g}, {:.3g}, {:.3g}) m", p[0], p[1], p[2]);
}

bool isInside(const Position& p, const Position& size) {
  for (std::size_t a = 0; a < 3; ++a) {
    if (!(p[a] > 0.0 && p[a] < size[a])) return false;
  }
  return true;
}

double volumeOf(const Position& size) { return size[0] * size[1] * size[2]; }

/// Areas of the walls at x = 0, x = length, y = 0 …
std::array<double, 6> wallsOf(const Position& size) {
  const double x = size[1] * size[2];
  const double y = size[0] * size[2];
  const double z = size[0] * size[1];
  return {x, x, y, y, z, z};
}

double surfaceOf(const Position& size) {
  double sum = 0.0;
  for (const double wall : wallsOf(size)) sum += wall;
  return sum;
}

// α from Eyring's formula, ln(1 − α) = −24 · ln 10 · V / (c · S · T60).
double absorptionFor(double t60, const Position& size) {
  return 1.0 - std::exp(-24.0 * std::numbers::ln10 * volumeOf(size) /
                        (SPEED_OF_SOUND * surfaceOf(size) * t60));
}

double t60Of(const std::array<double, 6>& absorption, const Position& size) {
  double mean = 0.0;
  for (std::size_t i = 0; i < 6; ++i) mean += absorption[i] * wallsOf(size)[i] / surfaceOf(size);
  if (mean >= 1.0) return 0.0;
  return 24.0 * std::numbers::ln10 * volumeOf(size) /
         (-SPEED_OF_SOUND * surfaceOf(size) * std::log1p(-mean));
}

std::array<double, 6> absorptionOf(const RoomDescription& room) {
  if (room.t60.has_value() == !room.absorption.empty()) {
    throw DataError("--room needs --t60 or --absorption, expected one of them");
  }
  std::array<double, 6> walls;
  if (room.t60) {
    if (!(*room.t60 > 0.0 && *room.t60 <= MAX_T60)) {
      throw DataError(
          fmt::format("--t60 is {} s, expected above 0 and up to {} s", *room.t60, MAX_T60));
    }
    walls.fill(absorptionFor(*room.t60, room.size));
    return walls;
  }
  const std::vector<double>& given = room.absorption;
  const bool valid =
      (given.size() == 1 || given.size() == 6) &&
      std::all_of(given.begin(), given.end(), [](double x) { return x > 0.0 && x <= 1.0; });
  if (!valid) {
    throw DataError(
        fmt::format("--absorption is {}, expected one value or six, each above 0 and up to 1",
                    fmt::join(given, ",")));
  }
  for (std::size_t i = 0; i < 6; ++i) walls[i] = given[given.size() == 1 ? 0 : i];
  return walls;
}

/// The responses one after the other, each brought to `samples` by zeros.
std::vector<float> flattened(const Channels& responses, std::size_t samples) {
  std::vector<float> values;
  for (const std::vector<double>& response : responses) {
    values.insert(values.end(), response.begin(), response.end());
    values.resize(values.size() + samples - response.size());
  }
  return values;
}

struct Pulse {
  double time;  // samples
  double value;
};

/// The directions of a set's positions seen from the array.
class Directions {
 public:
  explicit Directions(const ResponseSet& set) {
    for (std::size_t m = 0; m < set.measurements(); ++m) {
      const BF::Location p = set.position(m);
      const double size = std::hypot(p.x, p.y, p.z);
      if (size == 0.0)
        throw DataError(
            fmt::format("{}: a source is at the origin and so has no direction", set.path()));
      units.push_back({p.x / size, p.y / size, p.z / size});
      distances.push_back(size);
    }
  }

  double distance(std::size_t m) const { return distances[m]; }

  /// The position with the largest cosine to a direction.
  std::size_t nearest(const Position& direction) const {
    std::size_t best = 0;
    double most = -std::numeric_limits<double>::infinity();
    for (std::size_t m = 0; m < units.size(); ++m) {
      const Position& u = units[m];
      const double product = u[0] * direction[0] + u[1] * direction[1] + u[2] * direction[2];
      if (product <= most) continue;
      most = product;
      best = m;
    }
    return best;
  }

 private:
  std::vector<Position> units;
  std::vector<double> distances;
};

}  // namespace

Room::Room(const RoomDescription& description, int samplingRate)
    : wanted(description), rate(samplingRate) {
  box.size = wanted.size;
  for (const double side : box.size) {
    if (side > 0.0 && side <= MAX_SIDE) continue;
    throw DataError(fmt::format("--room is {}, expected sides above 0 and up to {} m",
                                fmt::join(box.size, ","), MAX_SIDE));
  }
  const std::array<double, 6> absorption = absorptionOf(wanted);
  for (std::size_t i = 0; i < 6; ++i) box.reflection[i] = std::sqrt(1.0 - absorption[i]);
  decay = t60Of(absorption, box.size);
  if (decay > MAX_T60 * (1.0 + 1e-9)) {
    throw DataError(
        fmt::format("--absorption makes a T60 of {:.3g} s, expected up to {} s", decay, MAX_T60));
  }
  const double images = 4.0 / 3.0 * pi * std::pow(SPEED_OF_SOUND * decay, 3.0) / volumeOf(box.size);
  if (images > MAX_IMAGES) {
    throw DataError(fmt::format(
        "--room {} with a T60 of {:.3g} s has {:.2g} images of a source, expected at most {:.2g}",
        fmt::join(box.size, ","), decay, images, MAX_IMAGES));
  }
  at = wanted.at.value_or(Position{OFF_MIDDLE * box.size[0], (1.0 - OFF_MIDDLE) * box.size[1],
                                   std::min(USUAL_HEIGHT, 0.5 * box.size[2])});
  inRoom({0.0, 0.0, 0.0}, "--array-at: the array");
}

Position Room::inRoom(const Position& point, const std::string& what) const {
  const double angle = BF::radians(wanted.facing);
  const Position p = {at[0] + std::cos(angle) * point[0] - std::sin(angle) * point[1],
                      at[1] + std::sin(angle) * point[0] + std::cos(angle) * point[1],
                      at[2] + point[2]};
  if (isInside(p, box.size)) return p;
  throw DataError(fmt::format("{} is at {} in the room, expected within the {} m of --room", what,
                              metres(p), fmt::join(box.size, " × ")));
}

// Directions by the golden spiral: equal steps of height, each turned by the golden angle.
std::vector<Position> Room::nearWalls(std::size_t count) const {
  const double angle = BF::radians(wanted.facing);
  std::vector<Position> points;
  for (std::size_t i = 0; i < count; ++i) {
    const double up = 1.0 - (2.0 * static_cast<double>(i) + 1.0) / static_cast<double>(count);
    const double turn = pi * (3.0 - std::sqrt(5.0)) * static_cast<double>(i);
    const double flat = std::sqrt(1.0 - up * up);
    const Position inAxesOfRoom = {flat * std::cos(turn + angle), flat * std::sin(turn + angle),
                                   up};
    double way = std::numeric_limits<double>::infinity();  // to the first wall
    for (std::size_t a = 0; a < 3; ++a) {
      const double left = inAxesOfRoom[a] < 0.0 ? -at[a] : box.size[a] - at[a];
      if (inAxesOfRoom[a] != 0.0) way = std::min(way, left / inAxesOfRoom[a]);
    }
    const double r = NEAR_WALL * way;
    points.push_back({r * flat * std::cos(turn), r * flat * std::sin(turn), r * up});
  }
  return points;
}

// What is farther away arrives after the sound has fallen by 60 dB, but the direct sound counts.
std::vector<ImageSource> Room::images(const Position& source, const Position& listener) const {
  const double reach =
      std::max(SPEED_OF_SOUND * decay, fastDistance(source, listener) + MIN_DISTANCE);
  return imagesOf(box, source, listener, reach, wanted.jitter, wanted.seed);
}

std::size_t Room::samplesFor(double farthest) const {
  return static_cast<std::size_t>(
      std::ceil(rate * std::max(decay, farthest / SPEED_OF_SOUND) + 1.0));
}

// Butterworth: H(s) = s² / (s² + √2 · s + 1), s = (1 − z⁻¹) / (1 + z⁻¹) / K, K = tan(π · f / rate).
void Room::highPass(std::vector<double>& response) const {
  const double K = std::tan(pi * std::min(HIGH_PASS / rate, 0.25));
  const double norm = 1.0 / (1.0 + std::numbers::sqrt2 * K + K * K);
  const double a1 = 2.0 * (K * K - 1.0) * norm;
  const double a2 = (1.0 - std::numbers::sqrt2 * K + K * K) * norm;
  double x1 = 0.0;
  double x2 = 0.0;
  double y1 = 0.0;
  double y2 = 0.0;
  for (double& sample : response) {
    const double x = sample;
    const double y = norm * (x - 2.0 * x1 + x2) - a1 * y1 - a2 * y2;
    x2 = x1;
    x1 = x;
    y2 = y1;
    y1 = y;
    sample = y;
  }
}

Channels Room::responses(const Position& source, const std::vector<Position>& microphones) const {
  const Position from =
      inRoom(source, fmt::format("a source at {} from the array", metres(source)));
  std::vector<Position> to;
  double farthest = 0.0;
  for (std::size_t r = 0; r < microphones.size(); ++r) {
    to.push_back(inRoom(microphones[r], fmt::format("microphone {}", r + 1)));
    farthest = std::max(farthest, fastDistance(from, to.back()));
  }
  const std::size_t length = samplesFor(farthest);
  const std::vector<ImageSource> all = images(from, at);
  const auto heardAt = [&](const Position& microphone) {
    PulseTrain train(rate, length);
    for (const ImageSource& image : all) {
      const double d = std::max(MIN_DISTANCE, fastDistance(image.place, microphone));
      train.add(d / SPEED_OF_SOUND * rate, image.gain / d);
    }
    std::vector<double> response = train.samples();
    highPass(response);
    return response;
  };
  Channels result(to.size());
  const std::size_t threads = std::max(1U, std::thread::hardware_concurrency());
  std::vector<std::future<void>> work;
  for (std::size_t first = 0; first < std::min(threads, to.size()); ++first) {
    work.push_back(std::async(std::launch::async, [&, first] {
      for (std::size_t r = first; r < to.size(); r += threads) result[r] = heardAt(to[r]);
    }));
  }
  for (std::future<void>& part : work) part.get();
  return result;
}

Channels Room::responses(const Position& source, const ResponseSet& set) const {
  const Position from =
      inRoom(source, fmt::format("a source at {} from the array", metres(source)));
  const Directions directions(set);
  const double angle = BF::radians(wanted.facing);
  const double cosine = std::cos(angle);
  const double sine = std::sin(angle);
  std::vector<std::vector<Pulse>> pulses(set.measurements());
  for (const ImageSource& image : images(from, at)) {
    const double x = image.place[0] - at[0];
    const double y = image.place[1] - at[1];
    const double z = image.place[2] - at[2];
    const double d = std::max(MIN_DISTANCE, std::hypot(x, y, z));
    const std::size_t m = directions.nearest({x * cosine + y * sine, y * cosine - x * sine, z});
    pulses[m].push_back({d / SPEED_OF_SOUND * rate, image.gain * directions.distance(m) / d});
  }

  const std::size_t length = samplesFor(fastDistance(from, at));
  Channels result(set.microphones());
  for (std::size_t m = 0; m < pulses.size(); ++m) {
    if (pulses[m].empty()) continue;
    PulseTrain train(rate, length);
    for (const Pulse& pulse : pulses[m]) train.add(pulse.time, pulse.value);
    const std::vector<double> samples = train.samples();
    for (std::size_t r = 0; r < result.size(); ++r) {
      const std::vector<double> part = convolution(samples, set.response(m, r));
      result[r].resize(std::max(result[r].size(), part.size()));
      for (std::size_t n = 0; n < part.size(); ++n) result[r][n] += part[n];
    }
  }
  std::size_t longest = 0;
  for (const auto& channel : result) longest = std::max(longest, channel.size());
  for (auto& channel : result) {
    channel.resize(longest);
    highPass(channel);
  }
  return result;
}

std::string Room::text() const {
  std::array<double, 6> absorption;
  for (std::size_t i = 0; i < 6; ++i) absorption[i] = 1.0 - box.reflection[i] * box.reflection[i];
  const bool one = std::all_of(absorption.begin(), absorption.end(),
                               [&](double x) { return x == absorption[0]; });
  return fmt::format("room of {} m: T60 {:.3g} s by Eyring's formula, absorption {}, array at {}",
                     fmt::join(box.size, " × "), decay,
                     one ? fmt::format("{:.2f}", absorption[0])
                         : fmt::format("{:.2f}", fmt::join(absorption, ", ")),
                     metres(at));
}

SofaImpulseResponses impulseResponses(const Responses& responses,
                                      const std::vector<Position>& microphones,
                                      const std::vector<Position>& sources) {
  SofaImpulseResponses data;
  data.sourcePositions = sources;
  data.receiverPositions = microphones;
  data.samplingRate = responses.samplingRate();
  Channels all;
  for (const Position& source : sources) {
    const std::size_t place = responses.nearest({source[0], source[1], source[2]});
    for (std::size_t r = 0; r < microphones.size(); ++r) {
      all.push_back(responses.response(place, r));
      data.samples = std::max(data.samples, all.back().size());
    }
  }
  data.values = flattened(all, data.samples);
  return data;
}

SofaImpulseResponses roomResponses(const Room& room, const std::vector<Position>& microphones,
                                   const std::vector<Position>& sources) {
  SofaImpulseResponses data;
  data.sourcePositions = sources;
  data.receiverPositions = microphones;
  data.samplingRate = room.samplingRate();
  data.title = "image-source responses in a " + room.text();
  data.roomType = "shoebox";
  Channels all;
  const double rows = static_cast<double>(sources.size() * microphones.size());
  for (const Position& source : sources) {
    Channels channels = room.responses(source, microphones);
    data.samples = std::max(data.samples, channels[0].size());
    if (rows * static_cast<double>(data.samples) > MAX_VALUES) {
      throw DataError(fmt::format(
          "{} positions × {} microphones × {} samples are more than a file can hold, expected at "
          "most {:.0f} values (a larger --azimuth-step, fewer --elevations or --distances)",
          sources.size(), microphones.size(), data.samples, MAX_VALUES));
    }
    std::move(channels.begin(), channels.end(), std::back_inserter(all));
  }
  data.values = flattened(all, data.samples);
  return data;
}

RoomResponses::RoomResponses(const Room& theRoom, std::vector<Position> microphonePositions)
    : room(theRoom), inAir(std::move(microphonePositions)) {}

RoomResponses::RoomResponses(const Room& theRoom, const ResponseSet& directionsHeard)
    : room(theRoom), directions(&directionsHeard) {}

std::size_t RoomResponses::nearest(const BF::Location& point) const {
  const auto away = [to = BF::asPosition(point)](const BF::Location& p) {
    return BF::distance(BF::asPosition(p), to);
  };
  const auto found =
      std::min_element(places.begin(), places.end(),
                       [&](const auto& a, const auto& b) { return away(a) < away(b); });
  if (found != places.end() && away(*found) <= STEP) {
    return static_cast<std::size_t>(found - places.begin());
  }
  places.push_back(point);
  return places.size() - 1;
}

std::vector<std::size_t> RoomResponses::surround(std::size_t count) const {
  std::vector<std::size_t> chosen;
  for (const Position& p : room.nearWalls(std::min(count, MAX_AROUND)))
    chosen.push_back(nearest(BF::asLocation(p)));
  return chosen;
}

std::vector<double> RoomResponses::response(std::size_t place, std::size_t r) const {
  if (place != computedPlace) {
    const Position source = BF::asPosition(places[place]);
    computed = directions ? room.responses(source, *directions) : room.responses(source, inAir);
    computedPlace = place;
  }
  return computed[r];
}
