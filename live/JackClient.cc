#include "live/JackClient.h"

#include <fmt/format.h>
#include <jack/jack.h>
#include <jack/thread.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <mutex>

#include "dsp/DataError.h"

namespace Live {

namespace {

/// What libjack would print about what is told as an error anyway.
void ignore(const char*) {}

struct Closer {
  void operator()(jack_client_t* client) const { jack_client_close(client); }
};

std::string refusal(const std::string& server, jack_status_t status) {
  if ((status & (JackServerFailed | JackServerError)) != 0) {
    return fmt::format(
        "no JACK server{} answers, expected one that runs (start jackd, or with PipeWire: pw-jack "
        "zelk-sss live)",
        server.empty() ? "" : fmt::format(" \"{}\"", server));
  }
  return fmt::format("the JACK server refuses a client (status 0x{:x}), expected one that takes it",
                     static_cast<unsigned>(status));
}

}  // namespace

struct JackClient::Impl {
  std::unique_ptr<jack_client_t, Closer> client;
  std::vector<jack_port_t*> microphones;
  std::vector<jack_port_t*> slots;
  std::vector<const float*> in;  // of the call at hand
  std::vector<float*> out;
  SampleExchange* exchange = nullptr;
  std::function<std::size_t(int period)> delayOf;
  std::atomic<std::size_t> delay = 0;
  std::atomic<int> xruns = 0;
  std::atomic<bool> isOver = false;
  std::mutex reasonMutex;
  std::string reason;

  void addPorts(std::vector<jack_port_t*>& ports, const char* prefix, int count,
                JackPortFlags direction);
  std::vector<std::string> ports(const std::string& pattern, unsigned long direction) const;
  void connect(const std::string& from, const std::string& to);

  // What the server calls; `self` is this object.
  static int process(jack_nframes_t count, void* self);
  static int resize(jack_nframes_t count, void* self);
  static void tellLatency(jack_latency_callback_mode_t mode, void* self);
  static int countXrun(void* self);
  static void end(jack_status_t status, const char* text, void* self);
};

// The only one that may not wait.
int JackClient::Impl::process(jack_nframes_t count, void* self) {
  auto& s = *static_cast<Impl*>(self);
  for (std::size_t i = 0; i < s.in.size(); ++i) {
    s.in[i] = static_cast<const float*>(jack_port_get_buffer(s.microphones[i], count));
  }
  for (std::size_t i = 0; i < s.out.size(); ++i) {
    s.out[i] = static_cast<float*>(jack_port_get_buffer(s.slots[i], count));
  }
  s.exchange->exchange(s.in.data(), s.out.data(), count);
  return 0;
}

// The server calls process() neither now nor with the old size afterwards.
int JackClient::Impl::resize(jack_nframes_t count, void* self) {
  auto& s = *static_cast<Impl*>(self);
  s.delay = s.delayOf(static_cast<int>(count));
  s.exchange->setDelay(s.delay);
  return 0;
}

void JackClient::Impl::tellLatency(jack_latency_callback_mode_t mode, void* self) {
  auto& s = *static_cast<Impl*>(self);
  const bool isCapture = mode == JackCaptureLatency;
  const std::vector<jack_port_t*>& from = isCapture ? s.microphones : s.slots;
  jack_latency_range_t all = {~jack_nframes_t{0}, 0};
  for (jack_port_t* port : from) {
    jack_latency_range_t range = {};
    jack_port_get_latency_range(port, mode, &range);
    all.min = std::min(all.min, range.min);
    all.max = std::max(all.max, range.max);
  }
  all.min += static_cast<jack_nframes_t>(s.delay);
  all.max += static_cast<jack_nframes_t>(s.delay);
  for (jack_port_t* port : isCapture ? s.slots : s.microphones) {
    jack_port_set_latency_range(port, mode, &all);
  }
}

int JackClient::Impl::countXrun(void* self) {
  ++static_cast<Impl*>(self)->xruns;
  return 0;
}

void JackClient::Impl::end(jack_status_t, const char* text, void* self) {
  auto& s = *static_cast<Impl*>(self);
  const std::lock_guard lock(s.reasonMutex);
  s.reason = text;
  s.isOver = true;
}

void JackClient::Impl::addPorts(std::vector<jack_port_t*>& ports, const char* prefix, int count,
                                JackPortFlags direction) {
  for (int i = 1; i <= count; ++i) {
    const std::string name = fmt::format("{}_{}", prefix, i);
    jack_port_t* const port =
        jack_port_register(client.get(), name.c_str(), JACK_DEFAULT_AUDIO_TYPE, direction, 0);
    if (!port) {
      throw DataError(
          fmt::format("the JACK server gives no port {}, expected {} of them (jackd "
                      "--port-max raises how many there are)",
                      name, count));
    }
    ports.push_back(port);
  }
}

std::vector<std::string> JackClient::Impl::ports(const std::string& pattern,
                                                 unsigned long direction) const {
  unsigned long flags = direction;
  if (pattern.empty()) flags |= JackPortIsPhysical;
  const std::unique_ptr<const char*, void (*)(void*)> names(
      jack_get_ports(client.get(), pattern.empty() ? nullptr : pattern.c_str(),
                     JACK_DEFAULT_AUDIO_TYPE, flags),
      jack_free);
  std::vector<std::string> result;
  for (const char** name = names.get(); name && *name; ++name) result.emplace_back(*name);
  return result;
}

void JackClient::Impl::connect(const std::string& from, const std::string& to) {
  const int status = jack_connect(client.get(), from.c_str(), to.c_str());
  if (status == 0 || status == EEXIST) return;
  throw DataError(fmt::format(
      "the JACK server does not connect {} to {}, expected ports that can be connected", from, to));
}

JackClient::JackClient(const std::string& clientName, const std::string& server)
    : impl(std::make_unique<Impl>()) {
  jack_set_error_function(ignore);
  jack_set_info_function(ignore);
  jack_status_t status = {};
  impl->client.reset(
      server.empty()
          ? jack_client_open(clientName.c_str(), JackNoStartServer, &status)
          : jack_client_open(clientName.c_str(),
                             static_cast<jack_options_t>(JackNoStartServer | JackServerName),
                             &status, server.c_str()));
  if (!impl->client) throw DataError(refusal(server, status));
  jack_on_info_shutdown(impl->client.get(), Impl::end, impl.get());
}

JackClient::~JackClient() = default;

std::string JackClient::name() const { return jack_get_client_name(impl->client.get()); }

int JackClient::samplingRate() const {
  return static_cast<int>(jack_get_sample_rate(impl->client.get()));
}

int JackClient::period() const {
  return static_cast<int>(jack_get_buffer_size(impl->client.get()));
}

std::size_t JackClient::delay() const { return impl->delay; }

bool JackClient::isRealTime() const { return jack_is_realtime(impl->client.get()) != 0; }

std::vector<std::string> JackClient::soundGivers(const std::string& pattern) const {
  return impl->ports(pattern, JackPortIsOutput);
}

std::vector<std::string> JackClient::soundTakers(const std::string& pattern) const {
  return impl->ports(pattern, JackPortIsInput);
}

void JackClient::start(SampleExchange& exchange, int microphones, int slots,
                       std::function<std::size_t(int)> delayOf) {
  Impl& s = *impl;
  s.exchange = &exchange;
  s.delayOf = std::move(delayOf);
  s.addPorts(s.microphones, "mic", microphones, JackPortIsInput);
  s.addPorts(s.slots, "slot", slots, JackPortIsOutput);
  s.in.resize(s.microphones.size());
  s.out.resize(s.slots.size());
  Impl::resize(static_cast<jack_nframes_t>(period()), &s);
  jack_client_t* const client = s.client.get();
  if (jack_set_process_callback(client, Impl::process, &s) != 0 ||
      jack_set_buffer_size_callback(client, Impl::resize, &s) != 0 ||
      jack_set_latency_callback(client, Impl::tellLatency, &s) != 0 ||
      jack_set_xrun_callback(client, Impl::countXrun, &s) != 0 || jack_activate(client) != 0) {
    throw DataError("the JACK server does not start the client, expected one that does");
  }
}

void JackClient::connect(const std::vector<std::string>& givers,
                         const std::vector<std::string>& takers) {
  for (std::size_t i = 0; i < std::min(givers.size(), impl->microphones.size()); ++i) {
    impl->connect(givers[i], jack_port_name(impl->microphones[i]));
  }
  for (std::size_t i = 0; i < std::min(takers.size(), impl->slots.size()); ++i) {
    impl->connect(jack_port_name(impl->slots[i]), takers[i]);
  }
}

void JackClient::hasten(std::thread& thread) const {
  if (!isRealTime()) return;
  const int priority = jack_client_real_time_priority(impl->client.get());
  jack_acquire_real_time_scheduling(thread.native_handle(), std::max(1, priority - 1));
}

int JackClient::xruns() const { return impl->xruns; }

std::optional<std::string> JackClient::ended() const {
  if (!impl->isOver) return std::nullopt;
  const std::lock_guard lock(impl->reasonMutex);
  return impl->reason;
}

}  // namespace Live
