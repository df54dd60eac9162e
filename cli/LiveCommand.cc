#include "cli/LiveCommand.h"

#include <memory>

#include "cli/LiveRun.h"
#include "cli/SeparationOptions.h"
#include "dsp/DataError.h"

namespace {

struct Options {
  SeparationOptions separation;
  LiveSettings live;
};

void addServerOptions(CLI::App& command, Options& options) {
  LiveSettings& live = options.live;
  command
      .add_option("--slots", live.slots,
                  "Outputs, each for a source at a time; default: one per source of the scene, 4 "
                  "with a tracker that is followed")
      ->check(CLI::Range(1, 256));
  command
      .add_option("--margin", live.margin,
                  "Periods of the server that the separation may take; each is a delay, too")
      ->check(CLI::Range(1, 1000))
      ->capture_default_str();
  command.add_option("--from", live.from,
                     "Ports that the microphones hear, a regular expression, or none; default: "
                     "the sound card's");
  command.add_option("--channels", options.separation.settings.channels,
                     "Which of those ports, as 1-4,7; default: all");
  command
      .add_option("--to", live.to, "Ports that the slots play to, a regular expression, or none")
      ->capture_default_str();
  command.add_option("--name", live.client, "Name at the server")->capture_default_str();
  command.add_option("--server", live.server, "Name of the server; default: the default one");
}

void separateLive([[maybe_unused]] Options& options) {
#ifdef ZELK_HAS_JACK
  runLive(options.separation.settings, options.live);
#else
  throw DataError(
      "this zelk-sss was built without JACK, expected one that was built where JACK is (Debian: "
      "libjack-jackd2-dev)");
#endif
}

}  // namespace

void addLiveCommand(CLI::App& app) {
  const auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand("live", "Separate live sound of a JACK server");
  options->separation.addModel(*command);
  addServerOptions(*command, *options);
  options->separation.addFrames(*command);
  options->separation.addNoiseRecording(*command);
  options->separation.addNoise(*command);
  options->separation.addOutputs(*command);
  command->add_flag("--quiet", options->live.quiet, "Warnings alone");
  command->callback([options, command] {
    options->separation.apply(*command);
    separateLive(*options);
  });
}
