#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "fileio/SofaWriter.h"
#include "geometry/Position.h"
#include "responses/ImageSources.h"
#include "responses/ResponseSet.h"
#include "responses/Responses.h"

/// A rectangular room and an array in it, as a person describes them.
struct RoomDescription {
  std::array<double, 3> size = {};  ///< metres: length (x), width (y), height (z)
  std::optional<double> t60;        ///< seconds in which sound falls by 60 dB; or …
  std::vector<double> absorption;  ///< … of the energy, for all walls or for x = 0, x = length, …
  std::optional<BF::Position> at;  ///< the array's origin; absent: see placeOfArray
  double facing = 0.0;             ///< degrees from the room's x axis to the array's
  double jitter = 0.0;             ///< metres, see imagesOf
  unsigned seed = 1;               ///< of the jitter
};

/// A room with an array, for one sampling rate. Sound travels at 343 m/s; a source heard directly
/// at 1 m has the level 1. Everything below 50 Hz is taken off (a Butterworth high-pass of the
/// second order): images that all have one sign add up there.
class Room {
 public:
  /// The absorption that belongs to a T60 follows from Eyring's formula,
  ///   T60 = 24 · ln 10 · V / (−c · S · ln(1 − α)),
  /// V and S being the room's volume and surface. Throws DataError.
  Room(const RoomDescription& description, int samplingRate);

  int samplingRate() const { return rate; }
  double t60() const { return decay; }  ///< seconds, by Eyring's formula

  /// Where the array's origin is: unless told, a little off the middle of the floor, so that echoes
  /// from opposite walls do not coincide, at 1.2 m or half the height, whichever is less.
  const BF::Position& placeOfArray() const { return at; }

  /// A point given in the array's axes, in the room's. Throws DataError "<what> …" unless it is in
  /// the room.
  BF::Position inRoom(const BF::Position& point, const std::string& what) const;

  /// `count` points near the walls, in the array's axes: in directions that are spread evenly over
  /// the sphere, 0.9 of the way from the array to the wall.
  std::vector<BF::Position> nearWalls(std::size_t count) const;

  /// Impulse responses from a source to every microphone, both in the array's axes: T60 long, from
  /// 4 ms before the sound is emitted on, all of one length.
  std::vector<std::vector<double>> responses(const BF::Position& source,
                                             const std::vector<BF::Position>& microphones) const;

  /// The same for microphones that hear every direction as a set of responses says: an image at
  /// distance d sounds with the response of the nearest direction, measured at distance d₀, times
  /// d₀/d and d/c later.
  std::vector<std::vector<double>> responses(const BF::Position& source,
                                             const ResponseSet& directions) const;

  /// One line that says what was made of the description.
  std::string text() const;

 private:
  std::vector<ImageSource> images(const BF::Position& source, const BF::Position& listener) const;
  std::size_t samplesFor(double farthest) const;
  void highPass(std::vector<double>& response) const;

  RoomDescription wanted;
  int rate;
  ShoeBox box;
  BF::Position at = {};
  double decay = 0.0;
};

/// The responses from the places nearest to `sources`, all of one length, as if the sources were
/// there exactly.
SofaImpulseResponses impulseResponses(const Responses& responses,
                                      const std::vector<BF::Position>& microphones,
                                      const std::vector<BF::Position>& sources);

/// The responses of all source positions to all microphones, in the array's axes. Throws DataError,
/// also where they are more than a file can hold.
SofaImpulseResponses roomResponses(const Room& room, const std::vector<BF::Position>& microphones,
                                   const std::vector<BF::Position>& sources);

/// A room's responses for rendering. A place is made when it is asked for: exactly at the first
/// point, and anew for every point that is more than 8 cm from all places so far.
class RoomResponses : public Responses {
 public:
  /// Microphones alone in the air, or such that hear every direction as a set says. Room and set
  /// must outlive this.
  RoomResponses(const Room& theRoom, std::vector<BF::Position> microphonePositions);
  RoomResponses(const Room& theRoom, const ResponseSet& directionsHeard);

  int samplingRate() const override { return room.samplingRate(); }
  std::size_t microphones() const override {
    return directions ? directions->microphones() : inAir.size();
  }
  std::size_t nearest(const BF::Location& point) const override;
  BF::Location position(std::size_t place) const override { return places[place]; }
  std::vector<std::size_t> surround(std::size_t count) const override;  ///< near the walls
  std::vector<double> response(std::size_t place, std::size_t r) const override;

 private:
  const Room& room;
  std::vector<BF::Position> inAir;
  const ResponseSet* directions = nullptr;
  mutable std::vector<BF::Location> places;
  mutable std::size_t computedPlace = SIZE_MAX;
  mutable std::vector<std::vector<double>> computed;  // of that place
};
