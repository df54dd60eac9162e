#include "tracking/TrackInput.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <netdb.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <utility>

#include "audio/RangeText.h"
#include "dsp/DataError.h"

namespace Tracking {

namespace {

constexpr const char* SCHEME = "tcp://";

std::string reasonOf(int error) { return std::strerror(error); }

/// "127.0.0.1:9000", "[::1]:9000".
std::string addressText(const sockaddr* address, socklen_t size) {
  char host[NI_MAXHOST];
  char port[NI_MAXSERV];
  constexpr int NUMBERS = NI_NUMERICHOST | NI_NUMERICSERV;
  if (getnameinfo(address, size, host, sizeof host, port, sizeof port, NUMBERS) != 0) return "?";
  return std::strchr(host, ':') ? fmt::format("[{}]:{}", host, port)
                                : fmt::format("{}:{}", host, port);
}

void closeAll(std::initializer_list<int> descriptors) {
  for (const int descriptor : descriptors) {
    if (descriptor > STDIN_FILENO) close(descriptor);
  }
}

}  // namespace

void TrackInput::fail(const std::string& reason) const {
  throw DataError(fmt::format("{}: {}", words, reason));
}

TrackInput::TrackInput(const std::string& inputName, Tell tellListener)
    : words(inputName), tell(std::move(tellListener)) {
  wake = eventfd(0, EFD_CLOEXEC);
  if (wake < 0) fail("cannot be read: " + reasonOf(errno));
  try {
    if (words.starts_with(SCHEME)) {
      listen(words.substr(std::strlen(SCHEME)));
    } else {
      openFile();
    }
  } catch (...) {
    closeAll({stream, listener, wake});
    throw;
  }
}

TrackInput::~TrackInput() { closeAll({stream, listener, wake}); }

void TrackInput::openFile() {
  if (words == "-") {
    stream = STDIN_FILENO;
    words = "standard input";
  } else {
    // A FIFO is opened without waiting for its writer; read() waits, and can be stopped.
    stream = open(words.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (stream < 0) fail("cannot be read: " + reasonOf(errno));
  }
  struct stat status {};
  if (fstat(stream, &status) != 0) fail("cannot be read: " + reasonOf(errno));
  if (S_ISDIR(status.st_mode)) fail("cannot be read: " + reasonOf(EISDIR));
  isRegular = S_ISREG(status.st_mode);
}

void TrackInput::listen(const std::string& address) {
  const std::size_t colon = address.rfind(':');
  std::uint16_t port = 0;
  if (colon == std::string::npos || !Audio::parseNumber(address.substr(colon + 1), port)) {
    fail("found no port from 0 to 65535, expected tcp://HOST:PORT or tcp://:PORT");
  }
  std::string host = address.substr(0, colon);
  if (host.starts_with('[') && host.ends_with(']')) host = host.substr(1, host.size() - 2);
  listener = boundTo(host, std::to_string(port));
  sockaddr_storage bound{};
  socklen_t size = sizeof bound;
  getsockname(listener, reinterpret_cast<sockaddr*>(&bound), &size);
  tell(fmt::format("{}: waits for a tracker to connect to {}", words,
                   addressText(reinterpret_cast<sockaddr*>(&bound), size)));
}

/// A socket that listens there.
int TrackInput::boundTo(const std::string& host, const std::string& port) {
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_PASSIVE;
  // Without a host, the addresses of IPv4 are all: trackers connect to those.
  if (host.empty()) hints.ai_family = AF_INET;
  addrinfo* found = nullptr;
  const int error =
      getaddrinfo(host.empty() ? nullptr : host.c_str(), port.c_str(), &hints, &found);
  if (error != 0) fail(fmt::format("is no address to listen at: {}", gai_strerror(error)));
  const std::unique_ptr<addrinfo, void (*)(addrinfo*)> address(found, freeaddrinfo);
  const int made = socket(address->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  const int yes = 1;
  if (made < 0 || setsockopt(made, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes) != 0 ||
      bind(made, address->ai_addr, address->ai_addrlen) != 0 || ::listen(made, 1) != 0) {
    const std::string reason = reasonOf(errno);
    closeAll({made});
    fail("cannot be listened at: " + reason);
  }
  return made;
}

/// Waits until there is something to read, or an end; false after stop().
bool TrackInput::isReady(int descriptor) {
  pollfd polled[] = {{descriptor, POLLIN, 0}, {wake, POLLIN, 0}};
  while (poll(polled, 2, -1) < 0) {
    if (errno != EINTR) fail("cannot be read: " + reasonOf(errno));
  }
  return polled[1].revents == 0;
}

bool TrackInput::accept() {
  while (isReady(listener)) {
    sockaddr_storage peer{};
    socklen_t size = sizeof peer;
    stream =
        accept4(listener, reinterpret_cast<sockaddr*>(&peer), &size, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (stream >= 0) {
      tell(fmt::format("{}: a tracker has connected from {}", words,
                       addressText(reinterpret_cast<sockaddr*>(&peer), size)));
      return true;
    }
    const bool goesOn = errno == EAGAIN || errno == EINTR || errno == ECONNABORTED;
    if (!goesOn) fail("cannot be listened at: " + reasonOf(errno));
  }
  return false;
}

std::size_t TrackInput::read(char* bytes, std::size_t most, bool anotherFollows) {
  while (true) {
    if (stream < 0 && !accept()) return 0;
    if (!isReady(stream)) return 0;
    const ssize_t count = ::read(stream, bytes, most);
    if (count > 0) return static_cast<std::size_t>(count);
    const int error = count < 0 ? errno : 0;
    if (error == EAGAIN || error == EINTR) continue;
    // A tracker that was ended resets its connection.
    const bool isEnd = error == 0 || (listener >= 0 && error == ECONNRESET);
    if (!isEnd) fail("cannot be read: " + reasonOf(error));
    if (listener < 0 || !anotherFollows) return 0;
    close(stream);
    stream = -1;
  }
}

void TrackInput::stop() {
  const std::uint64_t one = 1;
  // Only a full counter could make it fail, which is readable, too.
  [[maybe_unused]] const ssize_t written = write(wake, &one, sizeof one);
}

}  // namespace Tracking
