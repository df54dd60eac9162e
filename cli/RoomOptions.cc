#include "cli/RoomOptions.h"

#include "cli/OptionChecks.h"

CLI::Option* addRoomOptions(CLI::App& command, RoomDescription& room) {
  const auto list = [&command](const char* name, auto& value, const char* meaning) {
    return command.add_option(name, value, meaning)->delimiter(',');
  };
  CLI::Option* size = list("--room", room.size, "Length, width and height of a room, in metres");
  size->type_name("L,W,H");
  command
      .add_option(
          "--t60", room.t60,
          "Seconds in which sound in the room falls by 60 dB; the walls' absorption follows "
          "by Eyring's formula")
      ->needs(size);
  list("--absorption", room.absorption,
       "Or: energy that the walls absorb, above 0 up to 1; one value, or six: x = 0, x = L, y = 0, "
       "y = W, floor, ceiling")
      ->allow_extra_args(false)
      ->needs(size);
  list("--array-at", room.at,
       "Where in the room the array's origin is, in metres; default: near the middle, 1.2 m high")
      ->type_name("X,Y,Z")
      ->needs(size);
  command
      .add_option("--array-facing", room.facing,
                  "Degrees counter-clockwise from the room's x axis to the array's")
      ->check(isBetween(-360.0, 360.0))
      ->capture_default_str()
      ->needs(size);
  command
      .add_option(
          "--jitter", room.jitter,
          "Move every image of a source by up to so many metres at random, against sweeping "
          "echoes")
      ->check(isBetween(0.0, 1.0))
      ->capture_default_str()
      ->needs(size);
  return size;
}
