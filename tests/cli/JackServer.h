#pragma once

#include <jack/jack.h>
#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

/// A sound server without hardware, for one test.
class JackServer {
 public:
  static bool isInstalled();

  /// Starts jackd with the dummy driver: periods of so many samples at 16 kHz. Waits until it
  /// answers; throws std::runtime_error when it does not.
  JackServer(int period, int captures);
  JackServer(const JackServer&) = delete;
  JackServer& operator=(const JackServer&) = delete;
  ~JackServer();

  const std::string& name() const { return serverName; }
  void send(int signal) const;

  /// Stops it for good.
  void kill();

 private:
  std::string serverName;
  pid_t process = 0;
};

/// A client that plays files or records, and knows when.
class JackPeer {
 public:
  /// count ports, out_1 … to play from or in_1 … to record.
  JackPeer(const JackServer& server, const std::string& name, int count, bool plays);
  JackPeer(const JackPeer&) = delete;
  JackPeer& operator=(const JackPeer&) = delete;
  ~JackPeer();

  /// Waits for the other's ports (such as zelk-sss:mic_) and connects port n to port n. False:
  /// they did not come.
  bool connect(const std::string& others) const;

  /// Plays interleaved samples from the next call of the server on.
  void play(const std::vector<float>& samples);
  bool isDone() const;

  /// What was recorded at a port from the call on in which another peer began to play.
  std::vector<float> recordedSince(const JackPeer& player, int port) const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl;
};
