#include "tests/cli/JackServer.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <thread>

namespace {

constexpr std::size_t MAX_CALLS = 100'000;

jack_client_t* open(const std::string& server, const std::string& name) {
  jack_set_error_function([](const char*) {});
  jack_set_info_function([](const char*) {});
  const auto options = static_cast<jack_options_t>(JackNoStartServer | JackServerName);
  return jack_client_open(name.c_str(), options, nullptr, server.c_str());
}

/// Whether it holds within half a minute.
template <class Condition>
bool waitFor(Condition condition) {
  for (int i = 0; i < 600; ++i) {
    if (condition()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  return false;
}

}  // namespace

bool JackServer::isInstalled() { return std::system("command -v jackd > /dev/null") == 0; }

JackServer::JackServer(int period, int captures)
    : serverName("zelk-test-" + std::to_string(getpid())) {
  std::vector<std::string> words = {"jackd",
                                    "-r",  // no real-time scheduling, which not everybody may have
                                    "-S",  // each call waits for the one before it
                                    "-t2000",
                                    "-n",
                                    serverName,
                                    "-d",
                                    "dummy",
                                    "-r16000",
                                    "-p" + std::to_string(period),
                                    "-C" + std::to_string(captures),
                                    "-P2"};
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  process = fork();
  if (process < 0) throw std::runtime_error("no process can be made");
  if (process == 0) {
    setenv("JACK_NO_AUDIO_RESERVATION", "1", 1);
    const int nowhere = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    for (const int stream : {0, 1, 2}) dup2(nowhere, stream);
    execvp(argv[0], argv.data());
    _exit(127);
  }
  const bool answers = waitFor([this] {
    jack_client_t* const client = open(serverName, "probe");
    if (client) jack_client_close(client);
    return client != nullptr;
  });
  if (answers) return;
  kill();
  throw std::runtime_error("jackd does not answer");
}

JackServer::~JackServer() { kill(); }

void JackServer::send(int signal) const { ::kill(process, signal); }

void JackServer::kill() {
  if (process == 0) return;
  send(SIGTERM);
  waitpid(process, nullptr, 0);
  process = 0;
}

struct JackPeer::Impl {
  jack_client_t* client = nullptr;
  std::vector<jack_port_t*> ports;
  bool plays = false;
  std::vector<float> samples;  // interleaved
  std::size_t next = 0;
  std::atomic<bool> isPlaying = false;
  std::atomic<std::size_t> calls = 0;
  std::vector<jack_nframes_t> times;  // of the calls that recorded, or of the first that played

  int process(jack_nframes_t count);
};

int JackPeer::Impl::process(jack_nframes_t count) {
  const std::size_t channels = ports.size();
  const bool sounds = plays && isPlaying;
  if (plays ? sounds && next == 0 : calls < MAX_CALLS) {
    times.push_back(jack_last_frame_time(client));  // there is room
  }
  for (std::size_t c = 0; c < channels; ++c) {
    auto* const buffer = static_cast<float*>(jack_port_get_buffer(ports[c], count));
    for (std::size_t n = 0; n < count; ++n) {
      const std::size_t at = (next + n) * channels + c;
      if (plays) {
        buffer[n] = sounds && at < samples.size() ? samples[at] : 0.0F;
      } else if (at < samples.size()) {
        samples[at] = buffer[n];
      }
    }
  }
  if (sounds || !plays) next += count;
  ++calls;
  return 0;
}

JackPeer::JackPeer(const JackServer& server, const std::string& name, int count, bool plays)
    : impl(std::make_unique<Impl>()) {
  impl->client = open(server.name(), name);
  if (!impl->client) throw std::runtime_error("the server takes no client");
  impl->plays = plays;
  impl->times.reserve(MAX_CALLS);
  if (!plays) impl->samples.resize(std::size_t{16000} * 60 * count);
  for (int i = 1; i <= count; ++i) {
    impl->ports.push_back(
        jack_port_register(impl->client, ((plays ? "out_" : "in_") + std::to_string(i)).c_str(),
                           JACK_DEFAULT_AUDIO_TYPE, plays ? JackPortIsOutput : JackPortIsInput, 0));
  }
  jack_set_process_callback(
      impl->client,
      [](jack_nframes_t n, void* self) { return static_cast<Impl*>(self)->process(n); },
      impl.get());
  jack_activate(impl->client);
}

JackPeer::~JackPeer() { jack_client_close(impl->client); }

bool JackPeer::connect(const std::string& others) const {
  for (std::size_t i = 0; i < impl->ports.size(); ++i) {
    const std::string other = others + std::to_string(i + 1);
    const char* const own = jack_port_name(impl->ports[i]);
    const bool isConnected = waitFor([&] {
      return jack_connect(impl->client, impl->plays ? own : other.c_str(),
                          impl->plays ? other.c_str() : own) == 0;
    });
    if (!isConnected) return false;
  }
  return true;
}

void JackPeer::play(const std::vector<float>& samples) {
  impl->samples = samples;
  impl->isPlaying = true;
}

bool JackPeer::isDone() const {
  const std::size_t calls = impl->calls;
  const std::size_t wanted = impl->samples.size() / impl->ports.size();
  return waitFor(
      [&] { return (impl->calls - calls) * jack_get_buffer_size(impl->client) >= wanted; });
}

std::vector<float> JackPeer::recordedSince(const JackPeer& player, int port) const {
  const std::vector<jack_nframes_t>& times = impl->times;
  const auto found = std::find(times.begin(), times.end(), player.impl->times.at(0));
  std::vector<float> result;
  if (found == times.end()) return result;
  const auto first = static_cast<std::size_t>(found - times.begin());
  const std::size_t channels = impl->ports.size();
  for (std::size_t n = first * jack_get_buffer_size(impl->client); n < impl->next; ++n) {
    result.push_back(impl->samples.at(n * channels + static_cast<std::size_t>(port)));
  }
  return result;
}
