#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "bf/EngineFactory.h"
#include "geometry/TransformFunctionDatabase.h"
#include "separation/mvdr/ImpulseResponses.h"

/// Separation of sampled sound, on top of the engine of namespace BF.
namespace Separation {

/// A value that cannot be used, for whoever tells a person in words of its own. Thrown by value.
class SettingError : public std::invalid_argument {
 public:
  /// what() is "<field> is <actual>, expected <expected>".
  SettingError(std::string fieldName, std::string actualValue, std::string expectedValues);

  std::string field;     ///< the member of Settings or the argument, as "noise.forgetting"
  std::string actual;    ///< the value found, as text
  std::string expected;  ///< what it may be, in English
};

/// Where CML has the statistics of the noise from: `matrices`, `times`, or, if both are empty, the
/// frames for which no target is listed.
///
/// Of the frames' observations x (M × 1, per bin) the mean R of x · xᴴ is taken, n counting them:
///   R ← (1 − w) · R + w · x · xᴴ,  w = max(1/n, 1 − forgetting).
/// With σ = tr(R)/M, the mean power of a microphone, the engine gets R/σ + loading · I, or, without
/// normalisation, R + loading · σ · I. Frames with values that are not finite are left out.
struct NoiseSettings {
  /// Begin and end, in seconds of what is pushed, of stretches that hold noise alone. Every frame
  /// that lies wholly in one counts, and serves from itself on; the mean is the plain one.
  std::vector<std::pair<double, double>> times;
  /// One M × M matrix per bin, as the engine is to have it: measured in advance.
  std::vector<BF::Matrix> matrices;
  double forgetting = 0.98;  ///< 0 to 1, of the mean over frames without targets
  double loading = 1e-4;     ///< 0 or more
  bool normalize = true;     ///< whether the recording's level shall not count
};

/// The number of the method MVDR where methods have numbers; those of the engine end at 11.
inline constexpr BF::BfAlgorithmType ALGORITHM_MVDR{101};

/// The most frames that MVDR may take at once.
inline constexpr int MAX_MVDR_FRAMES = 16;

/// More are not taken.
inline constexpr int MAX_THREADS = 256;

/// Whether what a method separated is separated anew, by MVDR from covariances that masks of the
/// first outputs weigh. They know the room, which the database may not. The outputs then are the
/// sources as the reference microphone hears them; noise that is no listed source, which CML and
/// LCMV hold back, comes through again.
struct RefinementSettings {
  /// Passes over the recording after those of the method, 0 or more, in which masks for the
  /// covariances of the whole recording are estimated, each from those of the pass before; one more
  /// separates.
  int passes = 0;
  bool running = false;   ///< with covariances of what was heard so far, in the same pass
  double memory = 2.0;    ///< seconds that the running covariances reach back, above 0
  double loading = 1e-4;  ///< of the sources' mean power, above 0

  /// Passes over the recording that it makes after those of the method.
  int recordingPasses() const { return passes > 0 ? passes + 1 : 0; }
};

/// Everything that a separation is made of but the database.
struct Settings {
  /// DS, WDS, NULL, ILSE, LCMV, GJ, GICA, CML, CMSNR or ALGORITHM_MVDR.
  BF::BfAlgorithmType method = BF::BF_ALGORITHM_NULL;
  BF::EngineParameters parameters;  ///< those of the method count
  int samplingRate = 16000;         ///< Hz, 1 to 10 000 000
  int length = 512;   ///< samples per frame, 1 to 2²⁴; the database has length/2 + 1 bins
  int advance = 128;  ///< samples from frame to frame, 1 to length
  std::string window = "HANN";  ///< HANN, HAMMING, SINE or RECTANGULAR: before and after
  /// Samples of a frame's end that become sound, 2 to length: within as many a sample is finished.
  /// The frame's window then rises slowly and falls within a quarter of them, and that of the
  /// output is short (after Mauler and Martin 2007); `window` does not count. Unset: the whole
  /// frame.
  std::optional<int> latency;
  NoiseSettings noise;  ///< for CML
  /// Whether each output is scaled, bin by bin, to what the reference microphone X hears of it:
  /// by P/Q with P ← α · P + X · conj(Y) and Q ← α · Q + |Y|². Unset: for CMSNR, whose outputs have
  /// an arbitrary scale.
  std::optional<bool> project;
  double projectionForgetting = 0.97;  ///< α, 0 to 1
  int referenceMicrophone = 0;         ///< X's row, from 0
  int mvdrFrames = 4;  ///< MVDR: frames that a filter takes, 1 to 16, half a frame apart
  /// Whether the outputs' circular shift by half a frame is undone. Unset: for CML, unless it is
  /// projected, which undoes it by itself.
  std::optional<bool> undoHalfFrameShift;
  /// Whether a target that is no longer listed stays in the list as a noise source where it was
  /// last. Unset: for CMSNR, which learns from such frames what is not the target.
  std::optional<bool> inactiveAsNoise;
  /// Samples that are not finite or beyond 10¹⁵ are passed on instead of being replaced by 0.
  bool keepNonFinite = false;
  double mvdrLoading = 1e-4;  ///< MVDR: of the sources' mean power, above 0
  /// CMSNR, if projected, separates spectra that are brought to a stated level; the projection
  /// brings its outputs back, so that the level of the recording makes no difference. (CML has
  /// noise.normalize for that.)
  bool level = true;
  /// How often the method goes through the recording, 1 or more, by Separator::startOver: LCMV,
  /// GICA and CMSNR learn on from one pass to the next.
  int passes = 1;
  RefinementSettings refinement;  ///< by masks, after the method
  /// Each output is multiplied, bin by bin, by its share of the power of all outputs, but at least
  /// by this, 0 to 1: a Wiener filter. 1: not at all.
  double postMask = 1.0;
  /// So many threads, the caller's among them and no more than the machine has processors, share
  /// the bins of a frame where it is worth it, 1 to MAX_THREADS. Results do not depend on it.
  int threads = 1;

  /// Samples of a frame that become sound.
  int outputLength() const { return latency.value_or(length); }
};

/// A copy in which every optional member is set. Throws SettingError for a value out of its range,
/// a method that does not separate, and a decomposition with an unknown name.
Settings checkedSettings(const Settings& given, int microphones);

/// Throws SettingError unless the database has positions, microphones, one matrix of microphones ×
/// positions per bin, and length/2 + 1 bins.
void checkDatabase(const BF::TransformFunctionDatabase& database, int length);

/// Throws SettingError unless there are positions, microphones and taps, the samples of each, all
/// finite, and the sampling rate is that of the settings.
void checkResponses(const ImpulseResponses& responses, int samplingRate);

}  // namespace Separation
