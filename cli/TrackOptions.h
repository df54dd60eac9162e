#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "scene/Scene.h"
#include "tracking/LiveTracks.h"

/// Where a tracker's messages come from, and how they count.
struct TrackOptions {
  std::string input;  ///< a file, a FIFO, "-" or tcp://HOST:PORT; "": none
  Tracking::TrackSettings settings;

  bool isGiven() const { return !input.empty(); }
};

/// Adds --tracks with --track-hop, --track-hold and --track-distance.
void addTrackOptions(CLI::App& command, TrackOptions& options);

/// Whether a tracker is followed while it works: when both its messages and the recording come
/// while they are made.
bool areLive(const TrackOptions& options, const std::string& recording);

/// Everything that a tracker says, as a scene. What was left out is said on standard error. Throws
/// DataError.
Audio::Scene readTracks(const TrackOptions& options);

/// A tracker while it works.
std::unique_ptr<Tracking::LiveTracks> followTracks(const TrackOptions& options);

/// Says on standard error what was left out, and why no more was read.
void reportTracks(const std::string& input, const Tracking::TrackCounts& counts,
                  const std::string& failure = "");
