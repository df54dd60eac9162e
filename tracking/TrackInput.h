#pragma once

#include <cstddef>
#include <functional>
#include <string>

namespace Tracking {

/// Where a tracker's messages come from: a file, a FIFO, "-" for standard input, or
/// tcp://HOST:PORT, an address of this machine at which a tracker connects: HOST is a name or
/// number, in brackets if it is one of IPv6, and none stands for all of the machine's addresses;
/// port 0 takes a free one.
class TrackInput {
 public:
  using Tell = std::function<void(const std::string&)>;

  /// tell hears where it listens, and who connects. Throws DataError naming the input.
  TrackInput(const std::string& inputName, Tell tellListener);
  TrackInput(const TrackInput&) = delete;
  TrackInput& operator=(const TrackInput&) = delete;
  ~TrackInput();

  const std::string& name() const { return words; }

  /// Whether all that will ever come is there: a regular file.
  bool isFile() const { return isRegular; }

  /// Waits for bytes and gives how many came, up to `most`; 0 at the end, or once stop() was
  /// called. The end of tcp:// is that of the first connection, unless another one is to follow:
  /// then it waits for that. Throws DataError when reading fails.
  std::size_t read(char* bytes, std::size_t most, bool anotherFollows);

  /// Ends a read() that waits, from any thread, and all that come later.
  void stop();

 private:
  void openFile();
  void listen(const std::string& address);
  int boundTo(const std::string& host, const std::string& port);
  bool isReady(int descriptor);
  bool accept();
  [[noreturn]] void fail(const std::string& reason) const;

  std::string words;
  Tell tell;
  bool isRegular = false;
  int wake = -1;      // becomes readable by stop()
  int listener = -1;  // for tcp://
  int stream = -1;
};

}  // namespace Tracking
