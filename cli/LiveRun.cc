#include "cli/LiveRun.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <exception>
#include <functional>
#include <iostream>
#include <numeric>
#include <optional>
#include <stdexcept>
#include <thread>
#include <tuple>
#include <vector>

#include "audio/Channels.h"
#include "cli/PrintableOutput.h"
#include "cli/SeparationInputs.h"
#include "cli/SeparatorSettings.h"
#include "cli/StatusLines.h"
#include "cli/StopSignals.h"
#include "dsp/DataError.h"
#include "live/JackClient.h"
#include "live/LiveSeparation.h"

namespace {

constexpr const char* NOTHING = "none";
constexpr int MAX_CHANNELS = 4096;              // where nothing is connected that would limit them
constexpr std::chrono::milliseconds TURN{100};  // from look to look
constexpr int TURNS_PER_MINUTE = 600;
constexpr int TRACKER_SLOTS = 4;  // as many sources as trackers usually follow

/// What a pattern did not match, for messages.
std::string noPort(const std::string& option, const std::string& pattern) {
  return fmt::format("{}: the JACK server has no port that {}", option,
                     pattern.empty() ? "belongs to a sound card" : "matches \"" + pattern + "\"");
}

/// The ports that the microphones hear, in the order of the microphones.
std::vector<std::string> portsToHear(const LiveSettings& live, const std::string& channels,
                                     const Live::JackClient& client) {
  if (live.from == NOTHING) return {};
  const std::vector<std::string> all = client.soundGivers(live.from);
  if (all.empty()) {
    throw DataError(noPort("--from", live.from) +
                    ", expected ports that give sound (jack_lsp lists them), or none");
  }
  std::vector<std::string> chosen;
  for (const int i :
       Audio::selectedChannels(channels, static_cast<int>(all.size()), "--channels")) {
    chosen.push_back(all[static_cast<std::size_t>(i)]);
  }
  return chosen;
}

std::vector<std::string> portsToPlayTo(const LiveSettings& live, const Live::JackClient& client) {
  if (live.to == NOTHING) return {};
  std::vector<std::string> ports = client.soundTakers(live.to);
  if (ports.empty()) {
    throw DataError(noPort("--to", live.to) +
                    ", expected ports that take sound (jack_lsp lists them), or none");
  }
  return ports;
}

/// How many microphones the options speak of; 0: they do not say.
int channelCount(const std::string& channels, const std::vector<std::string>& heard) {
  if (!heard.empty()) return static_cast<int>(heard.size());
  if (channels.empty()) return 0;
  return static_cast<int>(Audio::selectedChannels(channels, MAX_CHANNELS, "--channels").size());
}

/// Runs the separation in a thread of its own, as long as this object lives.
class SeparationThread {
 public:
  SeparationThread(Live::LiveSeparation& separation, Live::SampleExchange& sampleExchange)
      : exchange(sampleExchange), thread([this, &separation] { run(separation); }) {}
  SeparationThread(const SeparationThread&) = delete;
  SeparationThread& operator=(const SeparationThread&) = delete;
  ~SeparationThread() { end(); }

  std::thread& worker() { return thread; }
  bool isOver() const { return over; }

  /// Ends it. Throws what it threw.
  void finish() {
    end();
    if (failure) std::rethrow_exception(failure);
  }

 private:
  void run(Live::LiveSeparation& separation) {
    try {
      separation.run();
    } catch (...) {
      failure = std::current_exception();
    }
    over = true;
  }

  void end() {
    exchange.end();
    if (thread.joinable()) thread.join();
  }

  Live::SampleExchange& exchange;
  std::exception_ptr failure;
  std::atomic<bool> over = false;
  std::thread thread;
};

int slotsOf(const LiveSettings& live, const SeparationInputs& inputs) {
  if (live.slots > 0) return live.slots;
  return inputs.live ? TRACKER_SLOTS : static_cast<int>(inputs.scene.sources().size());
}

/// A server's sound on its way through the separation, and what is told of it.
class LiveRun {
 public:
  LiveRun(SeparationSettings& settings, const LiveSettings& liveSettings)
      : s(settings),
        live(liveSettings),
        client(live.client, live.server),
        heard(portsToHear(live, s.channels, client)),
        takers(portsToPlayTo(live, client)),
        inputs(openInputs(s, {client.samplingRate(), channelCount(s.channels, heard)})),
        slots(slotsOf(live, inputs)),
        holders(static_cast<std::size_t>(slots)),
        lines(!live.quiet) {
    const auto latency = static_cast<std::size_t>(s.outputLength() + live.margin * client.period());
    const std::size_t room = std::max<std::size_t>(s.samplingRate, 8 * latency);
    exchange.emplace(static_cast<std::size_t>(inputs.microphones), holders.size(), room, latency);
    separation.emplace(
        makeSeparator(s, inputs),
        [this](double time) { return sourcesOf(inputs, time, s.inactiveAsNoise); }, *exchange,
        slots, latency);
  }

  void run() {
    const SignalWatch signals;
    SeparationThread thread(*separation, *exchange);
    client.hasten(thread.worker());
    for (const std::string& warning : inputs.warnings) warn(warning);
    client.start(*exchange, inputs.microphones, slots, delayOfPeriods());
    client.connect(heard, takers);
    tellBegin();
    for (int rest = 0; SignalWatch::caught() == 0 && !client.ended() && !thread.isOver(); --rest) {
      std::this_thread::sleep_for(TURN);
      lines.clear();
      tellChanges();
      if (rest <= 0 && tellTrouble()) rest = TURNS_PER_MINUTE;
      if (lines.areShown()) drawLevels();
    }
    lines.clear();
    thread.finish();
    tellChanges();
    tellTrouble();
    tellEnd();
    if (const auto reason = client.ended()) {
      throw std::runtime_error(
          fmt::format("the JACK server ended the connection ({}), expected one that runs on",
                      reason->empty() ? "without a reason" : *reason));
    }
  }

 private:
  /// The delay with a period, for one period after the other.
  std::function<std::size_t(int)> delayOfPeriods() const {
    return [settings = separatorSettings(s), margin = live.margin, step = 0](int period) mutable {
      step = std::gcd(step, period);
      return Live::LiveSeparation::delay(settings, period, margin, step);
    };
  }

  std::string latencyText() const {
    const std::size_t samples = client.delay();
    return fmt::format("latency {} samples ({:.1f} ms)", samples,
                       1000.0 * static_cast<double>(samples) / s.samplingRate);
  }

  void tellBegin() {
    lastPeriod = client.period();
    if (live.quiet) return;
    for (const std::string& note : inputs.notes) std::cout << note << "\n";
    for (std::size_t i = 0; i < heard.size(); ++i) {
      std::cout << fmt::format("mic_{} hears {}\n", i + 1, heard[i]);
    }
    std::cout << fmt::format(
                     "JACK client {}: {} microphones, {} slots, {} Hz, periods of {} samples; {}",
                     client.name(), inputs.microphones, slots, s.samplingRate, client.period(),
                     latencyText())
              << std::endl;
  }

  void tellChanges() {
    while (const auto event = separation->nextEvent()) {
      const auto& [id, slot, begins] = event->change;
      if (slot != Live::SlotChange::NO_SLOT) {
        auto& holder = holders[static_cast<std::size_t>(slot)];
        holder = begins ? std::optional<int>(id) : std::nullopt;
        if (live.quiet) continue;
        std::cout << fmt::format("{:.2f} s: slot_{} {}", event->time, slot + 1,
                                 begins ? fmt::format("plays source {}", id) : "is free")
                  << std::endl;
      } else if (begins) {
        warn(fmt::format("source {}: no slot is free from {:.2f} s on, expected --slots {} or more",
                         id, event->time, slots + 1));
      }
    }
    if (client.period() == lastPeriod || client.ended()) return;
    lastPeriod = client.period();
    warn(fmt::format("the JACK server's periods have {} samples now: {}", lastPeriod,
                     latencyText()));
  }

  /// Tells what went wrong since it was told last, and whether anything did.
  bool tellTrouble() {
    const Live::ExchangeCounts counts = exchange->counts();
    const auto before = std::tuple(lastLate, lastXruns, lastReplaced);
    if (counts.lateCalls != lastLate) {
      lastLate = counts.lateCalls;
      warn(
          fmt::format("the separation was late {} times so far, and {} samples are silent; "
                      "expected a faster machine, or --margin {}",
                      counts.lateCalls, counts.lateSamples, live.margin + 1));
    }
    if (client.xruns() != lastXruns) {
      lastXruns = client.xruns();
      warn(fmt::format("the JACK server was late {} times so far (xruns)", lastXruns));
    }
    if (separation->replacedValues() != lastReplaced) {
      lastReplaced = separation->replacedValues();
      warn(
          fmt::format("{} samples so far were not finite and played as 0, expected smaller steps "
                      "of the method",
                      lastReplaced));
    }
    return before != std::tuple(lastLate, lastXruns, lastReplaced);
  }

  void drawLevels() {
    std::vector<std::string> all;
    for (std::size_t i = 0; i < exchange->microphoneLevels().channels(); ++i) {
      all.push_back(
          fmt::format("mic_{:<5}{} dB", i + 1, levelBar(exchange->microphoneLevels().take(i))));
    }
    for (std::size_t i = 0; i < holders.size(); ++i) {
      all.push_back(fmt::format("slot_{:<4}{} dB{}", i + 1,
                                levelBar(exchange->slotLevels().take(i)),
                                holders[i] ? fmt::format("  source {}", *holders[i]) : ""));
    }
    const Live::ExchangeCounts counts = exchange->counts();
    all.push_back(fmt::format("{:.1f} s, late {}, xruns {}",
                              static_cast<double>(counts.samples) / s.samplingRate,
                              counts.lateCalls, client.xruns()));
    lines.show(all);
  }

  void tellEnd() const {
    if (inputs.live) reportTracks(s.tracks.input, inputs.live->counts(), inputs.live->failure());
    if (live.quiet) return;
    const Live::ExchangeCounts counts = exchange->counts();
    std::cout << fmt::format(
        "{:.2f} s of sound; the separation was late {} times ({} samples silent, {} passed over), "
        "the server {} times; {}\n",
        static_cast<double>(counts.samples) / s.samplingRate, counts.lateCalls, counts.lateSamples,
        separation->passedOver() + counts.lostSamples, client.xruns(), latencyText());
  }

  SeparationSettings& s;
  const LiveSettings& live;
  std::optional<Live::SampleExchange> exchange;  // outlives the client, which calls it
  Live::JackClient client;
  std::vector<std::string> heard;   // ports, microphone by microphone
  std::vector<std::string> takers;  // ports, slot by slot
  SeparationInputs inputs;
  int slots;
  std::vector<std::optional<int>> holders;  // which source has each slot
  std::optional<Live::LiveSeparation> separation;
  StatusLines lines;
  int lastPeriod = 0;
  std::int64_t lastLate = 0;
  int lastXruns = 0;
  std::int64_t lastReplaced = 0;
};

}  // namespace

void runLive(SeparationSettings& settings, const LiveSettings& live) {
  settings.recording = "the JACK server";  // for messages
  LiveRun(settings, live).run();
}
