#include "TrackSources.h"

#include <fmt/format.h>

#include <cmath>
#include <iostream>
#include <utility>

#include "SourceLists.h"
#include "audio/SamplingRates.h"
#include "tracking/RecordedTracks.h"

namespace {

void tell(const std::string& text) { std::cerr << "TrackSources: " << text << std::endl; }

double positive(const char* name, double value) {
  if (std::isfinite(value) && value > 0.0) return value;
  throw DataError(fmt::format("{} is {}, expected a number above 0", name, value));
}

}  // namespace

const NodeSpec TrackSources::SPEC = {
    .type = "TrackSources",
    .sourceFile = "TrackSources.cc",
    .text =
        "Says which sources a tracker has in each frame, and where they are, from its messages "
        "(JSON).",
    .inputs = {},
    .outputs = {{"SOURCES", SOURCES_TYPE, "Target sources that are there in the frame"},
                {"NOISE_SOURCES", SOURCES_TYPE,
                 "Noise sources that are there in the frame; with INACTIVE_AS_NOISE also the "
                 "targets that are not"}},
    .parameters = {
        {"FILENAME", "string", nullptr,
         "Where the messages come from: a file or FIFO, - for standard input, or tcp://HOST:PORT, "
         "where the tracker connects"},
        {"LENGTH", "int", nullptr, "Samples per frame, as in AudioFrames"},
        {"ADVANCE", "int", nullptr, "Samples from one frame to the next, as in AudioFrames"},
        {"SAMPLING_RATE", "int", nullptr, "Sampling rate in Hz, as in AudioFrames"},
        {"HOP", "string", "128/16000", "What a count of timeStamp is: SAMPLES/RATE or seconds"},
        {"HOLD", "float", "0.5",
         "Seconds that a tracker's message stays in force when no other one follows"},
        {"DISTANCE", "float", "1", "Distance in metres of the directions that a tracker gives"},
        {"LIVE", "bool", "false",
         "true: messages count from when they arrive; false: all are read at first, and count by "
         "their own times"},
        {"INACTIVE_AS_NOISE", "bool", "false",
         "true: list a target as a noise source while it is not there; not with LIVE"}}};

namespace {

const int registered = declareNode<TrackSources>();

}  // namespace

TrackSources::TrackSources(std::string nodeName, const FD::ParameterSet& params)
    : ToolboxNode(SPEC, std::move(nodeName), params, __LINE__),
      input(stringParameter("FILENAME")),
      inactiveAsNoise(boolParameter("INACTIVE_AS_NOISE")) {
  inOrder = true;
  checked([&] {
    layout = Audio::FrameLayout(intParameter("LENGTH"), intParameter("ADVANCE"));
    samplingRate = Audio::checkedSamplingRate(intParameter("SAMPLING_RATE"));
    Tracking::TrackSettings settings;
    settings.hop = hopParameter();
    settings.hold = positive("HOLD", floatParameter("HOLD"));
    settings.distance = positive("DISTANCE", floatParameter("DISTANCE"));
    auto stream = std::make_unique<Tracking::TrackInput>(input, tell);
    if (boolParameter("LIVE")) {
      if (inactiveAsNoise) {
        throw DataError("INACTIVE_AS_NOISE is true, expected false where LIVE is true");
      }
      live = std::make_unique<Tracking::LiveTracks>(std::move(stream), settings);
      return;
    }
    Tracking::TrackCounts counts;
    scene = Tracking::recordedTracks(*stream, settings, counts);
    report(counts, "");
    scene.requireFewAtOnce(input, inactiveAsNoise);
  });
}

TrackSources::~TrackSources() {
  if (live) report(live->counts(), live->failure());
}

double TrackSources::hopParameter() const {
  try {
    return Tracking::hopOf(stringParameter("HOP"));
  } catch (const DataError& error) {
    throw DataError(fmt::format("HOP is {}", error.what()));
  }
}

void TrackSources::report(const Tracking::TrackCounts& counts, const std::string& failure) const {
  const std::string text = counts.text();
  if (!text.empty()) tell(fmt::format("{}: {}", input, text));
  if (!failure.empty()) tell(failure);
}

void TrackSources::calculate(int /*output_id*/, int count, FD::Buffer& /*out*/) {
  // Both outputs at once: they are to belong to one message.
  Tracking::LiveTracks::Sources sources;
  if (live) {
    sources = live->at(Tracking::LiveTracks::Clock::now());
  } else {
    const double t = layout.time(count, samplingRate);
    sources = {scene.targetsAt(t), scene.noiseAt(t, inactiveAsNoise)};
  }
  setOutput("SOURCES", count, sourceList(sources.targets));
  setOutput("NOISE_SOURCES", count, sourceList(sources.noise));
}
