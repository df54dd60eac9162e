#pragma once

#include <complex>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "bf/BF.h"
#include "separation/BackProjection.h"
#include "separation/LearntRows.h"
#include "separation/Level.h"
#include "separation/NoiseModel.h"
#include "separation/Settings.h"
#include "separation/refine/RecordingRefinement.h"
#include "separation/refine/RunningRefinement.h"

namespace Separation {

class Mvdr;

/// Separates the spectra of frames: the method's engine, with the noise, level, projection,
/// refinement and mask that the settings ask for, in this order.
class SpectralSeparation {
 public:
  /// checked: settings that checkedSettings() gave; responses: for MVDR, with microphones as many.
  SpectralSeparation(const Settings& checked, int microphones, const ImpulseResponses* responses);

  /// For the methods with a database, before the first frame.
  void setDatabase(const BF::TransformFunctionDatabase& database);

  /// One frame of M × K spectra, a row per microphone. total: samples of the recording so far;
  /// listed: the sources to be separated. Gives a row of K values for each of these; the rows of
  /// noise sources hold nothing that is asked for. Where this throws, memory having run out, it is
  /// called again with the same frame, and goes on where it was.
  const BF::Matrix& separate(std::int64_t frame, std::int64_t total,
                             const std::vector<std::complex<float>>& spectra,
                             const std::vector<BF::SourceLocation>& listed);

  int passes() const { return settings.passes + settings.refinement.recordingPasses(); }
  bool isLastPass() const { return pass + 1 == passes(); }

  /// The next frame is the first one of another pass over the same recording.
  void nextPass();

 private:
  enum class Stage { Begun, Learned, Separated, Projected, Refined, Gathered };

  void learn(std::int64_t frame, std::int64_t total,
             const std::vector<std::complex<float>>& spectra,
             const std::vector<BF::SourceLocation>& listed);
  void load(const std::vector<std::complex<float>>& spectra, float gain);
  void runEngine(std::int64_t frame, const std::vector<std::complex<float>>& spectra,
                 const std::vector<BF::SourceLocation>& listed);
  void updateEngine(const std::vector<BF::SourceLocation>& listed);
  void project(const std::complex<float>* reference, const BF::SourceLocation& source,
               std::size_t row);
  void narrow();
  void refine(const std::vector<BF::SourceLocation>& listed);

  Settings settings;
  std::optional<NoiseModel> noise;
  std::unique_ptr<BF::BF> engine;
  Mvdr* mvdr;  // the engine, if it is one
  std::optional<Level> level;
  std::optional<LearntRows> learnt;
  std::optional<Audio::BackProjection> projection;
  std::optional<RunningRefinement> running;
  std::optional<RecordingRefinement> ofRecording;
  int pass = 0;
  bool updateIsDue = false;  // the engine's noise changed
  BF::Matrix X;              // the frame's spectra, M × K
  BF::Matrix Y;              // separated, a row for each that is listed
  std::vector<std::complex<float>> spectrum;
  std::vector<std::size_t> heard;  // rows of Y that masks compare
  std::vector<std::size_t> fresh;
  std::vector<double> masks;
  Stage stage = Stage::Begun;
  std::size_t projectedRows = 0;
};

}  // namespace Separation
