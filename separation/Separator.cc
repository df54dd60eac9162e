#include "separation/Separator.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "dsp/AudioError.h"
#include "dsp/FrameAnalyzer.h"
#include "dsp/FrameLayout.h"
#include "dsp/Window.h"
#include "separation/BackProjection.h"
#include "separation/NoiseModel.h"
#include "separation/SourceSignals.h"
#include "separation/SourceTimeline.h"

namespace Separation {

namespace {

constexpr double SPEED_OF_SOUND = 343.0;  // m/s

/// Larger samples have spectra that are not finite.
constexpr float MAX_SAMPLE = 1e15F;

Audio::FrameSynthesizer makeSynthesizer(const Settings& s) {
  try {
    return {Audio::FrameLayout(s.length, s.advance), Audio::windowNamed(s.window),
            *s.undoHalfFrameShift};
  } catch (const Audio::AudioError&) {  // the one fault that is left
    throw SettingError(
        "advance", std::to_string(s.advance),
        "at most half of length = " + std::to_string(s.length) +
            ": frames with this window overlap too little and samples would be lost");
  }
}

}  // namespace

struct Separator::Impl {
  Impl(const Settings& given, int microphoneCount)
      : settings(checkedSettings(given, microphoneCount)),
        M(static_cast<std::size_t>(microphoneCount)),
        layout(settings.length, settings.advance),
        analyzer(microphoneCount, layout, Audio::windowNamed(settings.window)),
        timeline(*settings.inactiveAsNoise),
        engine(BF::makeEngine(settings.method, settings.parameters, layout.bins(),
                              settings.samplingRate, SPEED_OF_SOUND)),
        X(microphoneCount, layout.bins()),
        spectrum(static_cast<std::size_t>(layout.bins())),
        signals(makeSynthesizer(settings)),
        ahead(M * static_cast<std::size_t>(layout.advance())) {
    engine->numMic = microphoneCount;
    if (settings.method == BF::BF_ALGORITHM_CML) noise.emplace(settings, microphoneCount);
    if (*settings.project) projection.emplace(layout.bins(), settings.projectionForgetting);
  }

  void beginCall();
  const Output& endCall();
  void take(const float* samples, std::size_t count);
  void loadFrame();
  void completeFrame();
  void listSources();
  void separate();
  void addRow(std::size_t row);

  Settings settings;
  std::size_t M;  // microphones
  Audio::FrameLayout layout;
  Audio::FrameAnalyzer analyzer;
  SourceTimeline timeline;
  std::optional<NoiseModel> noise;
  std::unique_ptr<BF::BF> engine;
  std::optional<Audio::BackProjection> projection;
  std::vector<BF::SourceLocation> listed;  // what the engine is to separate
  BF::Matrix X;                            // the frame's spectra, M × K
  BF::Matrix Y;                            // separated, a row for each that is listed
  std::vector<std::complex<float>> spectrum;
  SourceSignals signals;

  std::vector<float> ahead;    // interleaved samples that the next frame brings
  std::size_t aheadCount = 0;  // of each microphone
  std::int64_t total = 0;
  std::int64_t replaced = 0;
  bool isDelivered = true;  // the output of all calls so far
  bool isEnded = false;
  bool updateIsDue = false;  // the engine's noise changed

  // How far the frame is that the analyzer holds: an exception leaves the rest to the next call.
  bool isLoaded = false;
  bool isLearned = false;
  bool isSeparated = false;
  std::size_t rowsDone = 0;
};

// ---- samples

void Separator::Impl::beginCall() {
  if (isEnded) throw std::logic_error("the recording was ended by flush() already");
  if (isDelivered) signals.clearDelivered();
  isDelivered = false;
  if (isLoaded) completeFrame();
}

const Output& Separator::Impl::endCall() {
  const Output& output = signals.output();
  isDelivered = true;
  return output;
}

void Separator::Impl::take(const float* samples, std::size_t count) {
  float* to = ahead.data() + aheadCount * M;
  for (std::size_t i = 0; i < count * M; ++i) {
    const bool isValid = settings.keepNonFinite || std::abs(samples[i]) <= MAX_SAMPLE;
    if (!isValid) ++replaced;
    to[i] = isValid ? samples[i] : 0.0F;
  }
  aheadCount += count;
  total += static_cast<std::int64_t>(count);
}

// ---- a frame

void Separator::Impl::loadFrame() {
  analyzer.add(ahead.data(), aheadCount);
  aheadCount = 0;
  isLoaded = true;
  isLearned = isSeparated = false;
  rowsDone = 0;
}

void Separator::Impl::completeFrame() {
  listSources();
  const bool hasTargets = std::any_of(listed.begin(), listed.end(),
                                      [](const BF::SourceLocation& source) { return source.flag; });
  if (noise && !isLearned) {
    noise->addFrame(signals.frame(), total, analyzer.spectra().data(), hasTargets);
  }
  isLearned = true;
  if (!listed.empty() && !isSeparated) separate();
  isSeparated = true;
  for (; rowsDone < listed.size(); ++rowsDone) addRow(rowsDone);
  signals.finishFrame(total);
  isLoaded = false;
}

void Separator::Impl::listSources() {
  const std::int64_t centre = 2 * layout.start(signals.frame()) + layout.length();
  timeline.moveTo(std::max<std::int64_t>(0, centre));
  listed = timeline.current();
  if (settings.method != BF::BF_ALGORITHM_CML) return;
  std::erase_if(listed, [](const BF::SourceLocation& source) { return !source.flag; });
}

void Separator::Impl::separate() {
  if (noise && noise->write(signals.frame(), engine->noiseCorrelationMatrices)) updateIsDue = true;
  if (updateIsDue || !sameSources(engine->sources, listed)) {
    engine->updateSources(listed);
    updateIsDue = false;
  }
  const std::vector<std::complex<float>>& spectra = analyzer.spectra();
  for (std::size_t i = 0; i < spectra.size(); ++i) {
    X.data()[i] = std::complex<double>(spectra[i]);
  }
  engine->executeBeamForming(X, Y);
  engine->adaptSeparationMatrices();
}

void Separator::Impl::addRow(std::size_t row) {
  const BF::SourceLocation& source = listed[row];
  if (!source.flag) return;
  signals.prepare(source.id);
  const std::size_t K = spectrum.size();
  for (std::size_t k = 0; k < K; ++k) {
    spectrum[k] = std::complex<float>(Y.data()[row * K + k]);
  }
  if (projection) {
    const auto reference = static_cast<std::size_t>(settings.referenceMicrophone);
    projection->project(source.id, analyzer.spectra().data() + reference * K, spectrum.data(), true,
                        spectrum.data());
  }
  signals.add(source.id, spectrum.data());
}

// ---- the interface

Separator::Separator(const Settings& settings, const BF::TransformFunctionDatabase& database)
    : impl(std::make_unique<Impl>(settings, static_cast<int>(database.micLocations.size()))) {
  if (settings.method == BF::BF_ALGORITHM_CMSNR) return;
  checkDatabase(database, settings.length);
  impl->engine->setTransformFunctionDatabase(database);
}

Separator::Separator(const Settings& settings, int microphones)
    : impl(std::make_unique<Impl>(settings, microphones)) {
  if (settings.method == BF::BF_ALGORITHM_CMSNR) return;
  throw SettingError("database", "missing", "transfer functions, unless the method is CMSNR");
}

Separator::Separator(Separator&&) noexcept = default;
Separator& Separator::operator=(Separator&&) noexcept = default;
Separator::~Separator() = default;

void Separator::setSources(const std::vector<BF::SourceLocation>& sources) {
  impl->timeline.set(sources, impl->total);
}

void Separator::setSources(const std::vector<BF::SourceLocation>& sources, std::int64_t from) {
  impl->timeline.set(sources, from);
}

const Output& Separator::push(const float* samples, std::size_t count) {
  Impl& s = *impl;
  s.beginCall();
  while (count > 0) {
    const auto advance = static_cast<std::size_t>(s.layout.advance());
    const std::size_t part = std::min(count, advance - s.aheadCount);
    s.take(samples, part);
    samples += part * s.M;
    count -= part;
    if (s.aheadCount < advance) break;
    s.loadFrame();
    s.completeFrame();
  }
  return s.endCall();
}

const Output& Separator::flush() {
  Impl& s = *impl;
  s.beginCall();
  while (s.signals.frame() < s.layout.frameCount(s.total)) {
    s.loadFrame();
    s.completeFrame();
  }
  const Output& output = s.endCall();
  s.isEnded = true;
  return output;
}

const Settings& Separator::settings() const { return impl->settings; }
std::int64_t Separator::samples() const { return impl->total; }
int Separator::microphones() const { return static_cast<int>(impl->M); }
int Separator::latency() const { return impl->layout.length() - 1; }

std::int64_t Separator::sourcesAt(std::int64_t frame) const {
  return std::max<std::int64_t>(0, 2 * impl->layout.start(frame) + impl->layout.length()) / 2;
}

std::int64_t Separator::replacedValues() const { return impl->replaced; }

}  // namespace Separation
