#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "live/SampleExchange.h"

namespace Live {

/// A client of a JACK sound server: a port for each microphone and each slot, whose sound goes
/// through an exchange. The server calls it in a thread of its own, in which nothing waits,
/// allocates or locks. The server learns how long sound takes from the microphones to the slots.
class JackClient {
 public:
  /// Connects to a server that runs; server "": the default one. Throws DataError when there is
  /// none or it refuses. A server that has a client of this name already gives another one.
  JackClient(const std::string& name, const std::string& server);
  JackClient(const JackClient&) = delete;
  JackClient& operator=(const JackClient&) = delete;
  ~JackClient();

  std::string name() const;
  int samplingRate() const;   ///< in Hz
  int period() const;         ///< samples from call to call; the server may change it
  std::size_t delay() const;  ///< in force since start(), in samples
  bool isRealTime() const;    ///< whether the server's threads come before those of other programs

  /// Names of the server's ports that give sound (or take it), as it lists them, those that match a
  /// regular expression; "": those of sound cards.
  std::vector<std::string> soundGivers(const std::string& pattern) const;
  std::vector<std::string> soundTakers(const std::string& pattern) const;

  /// Makes the ports mic_1 … and slot_1 …, and lets sound go through the exchange from now on, at
  /// the delay that belongs to the server's period. The exchange outlives the client. Throws
  /// DataError when the server refuses.
  void start(SampleExchange& exchange, int microphones, int slots,
             std::function<std::size_t(int period)> delayOf);

  /// Connects microphone n to givers[n], slot n to takers[n], as far as there are both. Throws
  /// DataError when the server refuses.
  void connect(const std::vector<std::string>& givers, const std::vector<std::string>& takers);

  /// Lets a thread come before those of other programs, right behind the server's, if that is what
  /// the server does.
  void hasten(std::thread& thread) const;

  int xruns() const;  ///< times that the server was not in time, since start()

  /// Why the server ended the connection, as it says; nothing while it lasts.
  std::optional<std::string> ended() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl;
};

}  // namespace Live
