#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "geometry/Location.h"
#include "geometry/TransformFunctionDatabase.h"
#include "separation/Output.h"
#include "separation/Settings.h"

namespace Separation {

/// Separates the sound of a microphone array into one signal per source, block by block, by
/// windowed Fourier transforms, a separation engine per frame and overlap-add (Allen, "Short term
/// spectral analysis, synthesis, and modification by discrete Fourier transform", 1977; windowed on
/// both sides as by Griffin and Lim, "Signal estimation from modified short-time Fourier
/// transform", 1984).
///
/// Frame f holds `length` samples from (f + 1) · advance − length on; samples before number 0 and
/// after the last one are zeros. Its last `latency` samples, without such a setting all, become
/// sound. The list of sources that is in force at the centre of these, but not before sample 0,
/// serves it; without sources it is silent. How the samples are cut into
/// blocks makes no difference, to the bit. The outputs are aligned with the input and together as
/// long as it.
///
/// GJ learns while the list stays: a new or moved source lets its adaptive part begin anew.
///
/// An exception (memory that runs out, above all) costs nothing: samples() says how much of its
/// block an interrupted push took, and what was interrupted is done by the next call, whose output
/// then holds the interrupted call's, too. In blocks of the same size, frames with unchanged
/// sources allocate no memory, as long as all statistics stay finite. A separator is used by one
/// thread at a time; several work on several threads at once.
class Separator {
 public:
  /// Throws SettingError for settings out of range and a database that does not fit them; the
  /// database is copied. CMSNR takes from it how many microphones there are.
  Separator(const Settings& settings, const BF::TransformFunctionDatabase& database);

  /// For CMSNR, which needs no database. Throws SettingError, also for any other method.
  Separator(const Settings& settings, int microphones);

  /// For MVDR, from whole impulse responses, which are copied. Throws SettingError, also for any
  /// other method.
  Separator(const Settings& settings, const ImpulseResponses& responses);

  Separator(Separator&&) noexcept;             ///< The moved one can only be destroyed.
  Separator& operator=(Separator&&) noexcept;  ///< Likewise.
  ~Separator();

  /// Whose sound is heard from the next sample on: the whole list, which is in force until another
  /// one is set; empty at first. x, y, z in the coordinates of the database (for CMSNR, any); flag
  /// true for a target, which gets a signal, false for a noise source, which is only taken into
  /// account. CML does not look at noise sources. Throws SettingError for an id that stands twice
  /// and coordinates that are not finite; the list before then stays in force.
  void setSources(const std::vector<BF::SourceLocation>& sources);

  /// The same from sample `from` on, in the past or to come; frames that are done already stay as
  /// they are. Throws SettingError, also when `from` lies before that of the list before.
  void setSources(const std::vector<BF::SourceLocation>& sources, std::int64_t from);

  /// Takes the next `count` samples of every microphone, interleaved (microphones() · count values
  /// of −1 … 1), and gives what is finished. The output is valid until the next call.
  const Output& push(const float* samples, std::size_t count);

  /// Ends the recording: gives all samples that are left. Then no more are taken; push and flush
  /// throw std::logic_error.
  const Output& flush();

  /// Passes over the recording that the settings ask for, those of the refinement included. Signals
  /// come out in the last one; the passes before it learn.
  int passes() const;

  /// Ends the pass and begins the next one: nobody is listed, no sample was taken, and what was
  /// learnt stays: what adaptive methods know of a source with the same id, statistics of noise,
  /// the level, covariances. Throws std::logic_error in the last pass.
  void startOver();

  /// Settings in force, all optional members set.
  const Settings& settings() const;

  /// Samples of each microphone that were taken.
  std::int64_t samples() const;
  int microphones() const;  ///< Channels of the samples that push takes.

  /// Once P samples were taken, P − latency() at least are finished: settings().outputLength() − 1.
  /// With blocks of `advance` samples it is outputLength() − advance.
  int latency() const;

  /// The sample whose list of sources serves a frame: the centre of what becomes sound of it,
  /// rounded down, but at least 0.
  std::int64_t sourcesAt(std::int64_t frame) const;

  /// Values replaced by 0 because they were not finite or beyond 10¹⁵.
  std::int64_t replacedValues() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl;
};

}  // namespace Separation
