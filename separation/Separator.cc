#include "separation/Separator.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "dsp/AllWithin.h"
#include "dsp/DataError.h"
#include "dsp/FrameAnalyzer.h"
#include "dsp/FrameLayout.h"
#include "separation/SettingsWindows.h"
#include "separation/SourceSignals.h"
#include "separation/SourceTimeline.h"
#include "separation/SpectralSeparation.h"

namespace Separation {

namespace {

/// Larger samples have spectra that are not finite.
constexpr float MAX_SAMPLE = 1e15F;

Audio::FrameSynthesizer makeSynthesizer(const Settings& s) {
  try {
    return {Audio::FrameLayout(s.length, s.advance), windowsOf(s), *s.undoHalfFrameShift};
  } catch (const DataError&) {  // the one fault that is left
    throw SettingError(
        "advance", std::to_string(s.advance),
        "at most half of " + std::string(s.latency ? "latency" : "length") + " = " +
            std::to_string(s.outputLength()) +
            ": frames with this window overlap too little and samples would be lost");
  }
}

}  // namespace

struct Separator::Impl {
  Impl(const Settings& given, int microphoneCount, const ImpulseResponses* responses)
      : settings(checkedSettings(given, microphoneCount)),
        M(static_cast<std::size_t>(microphoneCount)),
        layout(settings.outputLength(), settings.advance),
        analyzer(makeAnalyzer()),
        timeline(*settings.inactiveAsNoise),
        separation(settings, microphoneCount, responses),
        spectrum(static_cast<std::size_t>(settings.length / 2 + 1)),
        signals(makeSynthesizer(settings)),
        ahead(M * static_cast<std::size_t>(layout.advance())) {}

  Audio::FrameAnalyzer makeAnalyzer() const;
  void beginCall();
  const Output& endCall();
  void take(const float* samples, std::size_t count);
  void loadFrame();
  void completeFrame();
  void listSources();
  void addRow(std::size_t row);
  void startOver();

  Settings settings;
  std::size_t M;              // microphones
  Audio::FrameLayout layout;  // of what the frames give
  Audio::FrameAnalyzer analyzer;
  SourceTimeline timeline;
  SpectralSeparation separation;
  std::vector<BF::SourceLocation> listed;  // whom the frame's separation is to separate
  const BF::Matrix* separated = nullptr;   // a row for each that is listed
  std::vector<std::complex<float>> spectrum;
  SourceSignals signals;

  std::vector<float> ahead;    // interleaved samples that the next frame brings
  std::size_t aheadCount = 0;  // of each microphone
  std::int64_t total = 0;
  std::int64_t replaced = 0;
  bool isDelivered = true;  // the output of all calls so far
  bool isEnded = false;

  // How far the frame is that the analyzer holds: an exception leaves the rest to the next call.
  bool isLoaded = false;
  std::size_t rowsDone = 0;
};

Audio::FrameAnalyzer Separator::Impl::makeAnalyzer() const {
  return {static_cast<int>(M), Audio::FrameLayout(settings.length, settings.advance),
          windowsOf(settings).analysis};
}

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
  std::copy_n(samples, count * M, to);
  if (!settings.keepNonFinite && !Audio::allWithin(to, count * M, MAX_SAMPLE)) {
    for (std::size_t i = 0; i < count * M; ++i) {
      if (std::abs(to[i]) <= MAX_SAMPLE) continue;
      ++replaced;
      to[i] = 0.0F;
    }
  }
  aheadCount += count;
  total += static_cast<std::int64_t>(count);
}

// ---- a frame

void Separator::Impl::loadFrame() {
  analyzer.add(ahead.data(), aheadCount);
  aheadCount = 0;
  isLoaded = true;
  separated = nullptr;
  rowsDone = 0;
}

void Separator::Impl::completeFrame() {
  listSources();
  if (!separated) {
    separated = &separation.separate(signals.frame(), total, analyzer.spectra(), listed);
  }
  if (separation.isLastPass()) {
    for (; rowsDone < listed.size(); ++rowsDone) addRow(rowsDone);
  }
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

void Separator::Impl::addRow(std::size_t row) {
  const BF::SourceLocation& source = listed[row];
  if (!source.flag) return;
  signals.prepare(source.id);
  const std::size_t K = spectrum.size();
  for (std::size_t k = 0; k < K; ++k) {
    spectrum[k] = std::complex<float>(separated->data()[row * K + k]);
  }
  signals.add(source.id, spectrum.data());
}

void Separator::Impl::startOver() {
  if (separation.isLastPass()) {
    throw std::logic_error("startOver() is called in the last of passes() passes");
  }
  Audio::FrameAnalyzer newAnalyzer = makeAnalyzer();
  SourceTimeline newTimeline(*settings.inactiveAsNoise);
  SourceSignals newSignals(makeSynthesizer(settings));
  separation.nextPass();
  analyzer = std::move(newAnalyzer);
  timeline = std::move(newTimeline);
  signals = std::move(newSignals);
  aheadCount = 0;
  total = replaced = 0;
  isDelivered = true;
  isEnded = isLoaded = false;
}

// ---- the interface

Separator::Separator(const Settings& settings, const BF::TransformFunctionDatabase& database) {
  if (settings.method == ALGORITHM_MVDR) {
    throw SettingError("responses", "missing", "impulse responses for the method MVDR");
  }
  impl = std::make_unique<Impl>(settings, static_cast<int>(database.micLocations.size()), nullptr);
  if (settings.method == BF::BF_ALGORITHM_CMSNR) return;
  checkDatabase(database, settings.length);
  impl->separation.setDatabase(database);
}

Separator::Separator(const Settings& settings, int microphones) {
  if (settings.method == BF::BF_ALGORITHM_CMSNR) {
    impl = std::make_unique<Impl>(settings, microphones, nullptr);
    return;
  }
  throw SettingError("database", "missing", "transfer functions, unless the method is CMSNR");
}

Separator::Separator(const Settings& settings, const ImpulseResponses& responses) {
  if (settings.method != ALGORITHM_MVDR) {
    throw SettingError("database", "missing", "transfer functions, unless the method is MVDR");
  }
  checkResponses(responses, settings.samplingRate);
  impl = std::make_unique<Impl>(settings, static_cast<int>(responses.microphones), &responses);
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

int Separator::passes() const { return impl->separation.passes(); }
void Separator::startOver() { impl->startOver(); }
const Settings& Separator::settings() const { return impl->settings; }
std::int64_t Separator::samples() const { return impl->total; }
int Separator::microphones() const { return static_cast<int>(impl->M); }
int Separator::latency() const { return impl->layout.length() - 1; }

std::int64_t Separator::sourcesAt(std::int64_t frame) const {
  return std::max<std::int64_t>(0, 2 * impl->layout.start(frame) + impl->layout.length()) / 2;
}

std::int64_t Separator::replacedValues() const { return impl->replaced; }

}  // namespace Separation
