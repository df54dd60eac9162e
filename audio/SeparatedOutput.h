#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace Audio {

/// What was written for one source.
struct SeparatedSound {
  int id = 0;
  std::string path;                               ///< of its file, or which channel it is
  std::vector<std::pair<double, double>> active;  ///< begin and end in seconds
  std::int64_t clipped = 0;    ///< samples beyond full scale, stored as full scale
  std::int64_t nonFinite = 0;  ///< samples that were not finite, stored as 0
  float peak = 0;              ///< largest modulus before clipping
};

/// Takes the signals of separated sources. All of them begin at the recording's sample 0 and become
/// as long as it; a source is silent wherever it has no signal.
class SeparatedOutput {
 public:
  virtual ~SeparatedOutput() = default;

  /// Notes who is active in the next frame, at first frame 0. Throws DataError.
  virtual void addFrame(const std::vector<int>& ids) = 0;

  /// Samples by the id of a source that a frame listed, not owned.
  using Signals = std::map<int, const float*>;

  /// Appends `count` samples of every source; those without a signal are silent. Throws DataError.
  virtual void write(const Signals& signals, std::size_t count) = 0;

  /// Nothing can be written after it. Throws DataError.
  virtual void finish() = 0;

  /// Samples of every source so far.
  virtual std::int64_t samples() const = 0;

  /// One entry per source; complete after finish().
  virtual std::vector<SeparatedSound> report() const = 0;

  /// What a person should know of the finished output, a line each: samples that were clipped or
  /// not finite. floatWords: how one asks for samples that keep what others clip.
  virtual std::vector<std::string> remarks(const std::string& floatWords) const;

 protected:
  SeparatedOutput() = default;
  SeparatedOutput(SeparatedOutput&&) = default;
  SeparatedOutput& operator=(SeparatedOutput&&) = default;
};

}  // namespace Audio
