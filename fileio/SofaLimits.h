#pragma once

#include <algorithm>
#include <cstddef>
#include <string>

/// What no sound file has more of.
constexpr std::size_t MAX_MEASUREMENTS = std::size_t{1} << 20;
constexpr double MAX_RATE = 1e7;  ///< Hz

/// Metres or degrees. What is computed from larger numbers may overflow.
constexpr double MAX_COORDINATE = 1e9;

/// The most that deflate can shrink: what a file holds is at most this multiple of its size.
constexpr std::size_t MAX_COMPRESSION = 1032;

const std::string EXPECTED_SOUND_FILE = "expected a sound netCDF-4 file";

/// The environment variable that says how large a database may be, and where it does not.
constexpr const char* DATABASE_LIMIT_VARIABLE = "ZELK_SSS_MAX_DATABASE";
constexpr std::size_t DEFAULT_DATABASE_LIMIT = std::size_t{1} << 31;

/// Bytes that a database may have in memory: positions and responses, single precision. Throws
/// DataError if the environment variable is no size.
std::size_t databaseLimit();

/// A whole number of bytes, with K, M, G or T behind it of KiB to TiB: 1 to 2^46. Throws
/// DataError "<name> is …" for another text.
std::size_t parseDatabaseLimit(const std::string& name, const std::string& text);

/// "expected at most … bytes in all (…)", where a database is larger than the limit.
std::string expectedAtMost(std::size_t limit);

/// What a file of this size may take to read, given the database limit: bytes that its responses
/// unfold to and of the answer, seconds of processor time for the head alone (and for all, were it
/// as large as it can be) and of waiting, bytes of address space.
struct ReaderLimits {
  ReaderLimits(std::size_t fileSize, std::size_t databaseLimit)
      : unfolded(fileSize < databaseLimit / MAX_COMPRESSION ? fileSize * MAX_COMPRESSION
                                                            : databaseLimit),
        answer(databaseLimit + TEXT),
        seconds(secondsFor(unfolded)),
        waiting(4 * seconds),
        // The answer, and a variable in the file's own precision, as one piece and converted.
        addressSpace(PROGRAM + fileSize + 3 * unfolded) {}

  static constexpr std::size_t HEAD_SECONDS = 5;

  /// Seconds of processor time to read so many bytes of an answer.
  static constexpr std::size_t secondsFor(std::size_t bytes) {
    return HEAD_SECONDS + bytes / 50'000'000;
  }

  static constexpr std::size_t PROGRAM = std::size_t{512} << 20;

  static constexpr std::size_t TEXT = std::size_t{1} << 20;

  std::size_t unfolded;
  std::size_t answer;
  std::size_t seconds;
  std::size_t waiting;
  std::size_t addressSpace;
};
