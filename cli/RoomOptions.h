#pragma once

#include <CLI/CLI.hpp>

#include "responses/Room.h"

/// Adds the options that describe a room: --room, --t60, --absorption, --array-at, --array-facing,
/// --jitter. The returned option, --room, tells whether there is a room; the others need it.
CLI::Option* addRoomOptions(CLI::App& command, RoomDescription& room);
