#include "separation/SpectralSeparation.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "geometry/SpeedOfSound.h"
#include "separation/SettingsWindows.h"
#include "separation/SourceTimeline.h"
#include "separation/mvdr/Mvdr.h"
#include "separation/refine/Masks.h"

namespace Separation {

namespace {

std::unique_ptr<BF::BF> makeEngine(const Settings& s, const ImpulseResponses* responses) {
  if (s.method != ALGORITHM_MVDR) {
    return BF::makeEngine(s.method, s.parameters, s.length / 2 + 1, s.samplingRate,
                          BF::SPEED_OF_SOUND);
  }
  SpatialCovariance covariance(*responses, windowsOf(s).analysis,
                               FrameStack::halfOverlapping(s.mvdrFrames, s.length, s.advance));
  return std::make_unique<Mvdr>(std::move(covariance), s.samplingRate, s.referenceMicrophone,
                                s.mvdrLoading);
}

}  // namespace

SpectralSeparation::SpectralSeparation(const Settings& checked, int microphones,
                                       const ImpulseResponses* responses)
    : settings(checked),
      engine(makeEngine(settings, responses)),
      mvdr(dynamic_cast<Mvdr*>(engine.get())),
      X(microphones, engine->numFreq),
      spectrum(static_cast<std::size_t>(engine->numFreq)) {
  const RefinementSettings& r = settings.refinement;
  const int K = engine->numFreq;
  engine->numMic = microphones;
  engine->setThreads(settings.threads);
  if (settings.method == BF::BF_ALGORITHM_CML) noise.emplace(settings, microphones);
  if (settings.level) level.emplace();
  if (*settings.project) projection.emplace(K, settings.projectionForgetting);
  if (settings.passes > 1) learnt.emplace();
  if (r.running) {
    const double lambda = std::exp(-settings.advance / (r.memory * settings.samplingRate));
    running.emplace(microphones, K, lambda, r.loading, settings.referenceMicrophone);
    running->team.setSize(settings.threads);
  }
  if (r.passes > 0) {
    ofRecording.emplace(microphones, K, r.passes, r.loading, settings.referenceMicrophone);
  }
}

void SpectralSeparation::setDatabase(const BF::TransformFunctionDatabase& database) {
  engine->setTransformFunctionDatabase(database);
}

void SpectralSeparation::nextPass() {
  ++pass;
  if (mvdr) mvdr->startOver();
  if (pass < settings.passes) {
    if (learnt) learnt->keep(*engine);
  } else {
    ofRecording->nextPass();
  }
}

const BF::Matrix& SpectralSeparation::separate(std::int64_t frame, std::int64_t total,
                                               const std::vector<std::complex<float>>& spectra,
                                               const std::vector<BF::SourceLocation>& listed) {
  // Whom CMSNR lists as noise is silent, or has no filter of its own.
  const bool onlyTargets = settings.method == BF::BF_ALGORITHM_CMSNR;
  heard.clear();
  for (std::size_t row = 0; row < listed.size(); ++row) {
    if (listed[row].flag || !onlyTargets) heard.push_back(row);
  }
  // In the order of the ids, in which a map of spectra has them.
  std::sort(heard.begin(), heard.end(),
            [&](std::size_t a, std::size_t b) { return listed[a].id < listed[b].id; });
  const bool isByEngine = pass < settings.passes;

  if (stage < Stage::Learned) {
    if (isByEngine) learn(frame, total, spectra, listed);
    stage = Stage::Learned;
  }
  if (listed.empty() && mvdr && isByEngine) {
    load(spectra, 1.0F);
    mvdr->hear(X);
  }
  if (!listed.empty() && stage < Stage::Separated) {
    if (isByEngine) runEngine(frame, spectra, listed);
    if (!isByEngine || level) load(spectra, 1.0F);
    stage = Stage::Separated;
    projectedRows = 0;
  }
  if (!listed.empty() && stage < Stage::Projected) {
    const auto reference = static_cast<std::size_t>(settings.referenceMicrophone);
    for (; projection && isByEngine && projectedRows < listed.size(); ++projectedRows) {
      project(spectra.data() + reference * spectrum.size(), listed[projectedRows], projectedRows);
    }
    stage = Stage::Projected;
  }
  if (!listed.empty()) refine(listed);
  stage = Stage::Begun;
  return Y;
}

void SpectralSeparation::learn(std::int64_t frame, std::int64_t total,
                               const std::vector<std::complex<float>>& spectra,
                               const std::vector<BF::SourceLocation>& listed) {
  if (level) level->add(spectra.data(), spectra.size());
  if (!noise) return;
  const bool hasTargets = std::any_of(listed.begin(), listed.end(),
                                      [](const BF::SourceLocation& source) { return source.flag; });
  noise->addFrame(frame, total, spectra.data(), hasTargets);
}

void SpectralSeparation::load(const std::vector<std::complex<float>>& spectra, float gain) {
  for (std::size_t i = 0; i < spectra.size(); ++i) {
    X.data()[i] = std::complex<double>(spectra[i] * gain);
  }
}

void SpectralSeparation::runEngine(std::int64_t frame,
                                   const std::vector<std::complex<float>>& spectra,
                                   const std::vector<BF::SourceLocation>& listed) {
  if (noise && noise->write(frame, engine->noiseCorrelationMatrices)) updateIsDue = true;
  if (updateIsDue || !sameSources(engine->sources, listed)) {
    updateEngine(listed);
    updateIsDue = false;
  }
  load(spectra, level ? level->gain() : 1.0F);
  engine->executeBeamForming(X, Y);
  engine->adaptSeparationMatrices();
}

// From the second pass on, a source that was not listed goes on with what was learnt of it.
void SpectralSeparation::updateEngine(const std::vector<BF::SourceLocation>& listed) {
  fresh.clear();
  if (learnt) {
    learnt->keep(*engine);
    for (std::size_t s = 0; pass > 0 && s < listed.size(); ++s) {
      const bool isKnown =
          std::any_of(engine->sources.begin(), engine->sources.end(),
                      [&](const BF::SourceLocation& old) { return old.id == listed[s].id; });
      if (!isKnown) fresh.push_back(s);
    }
  }
  engine->updateSources(listed);
  if (learnt) learnt->restore(fresh, *engine);
}

void SpectralSeparation::project(const std::complex<float>* reference,
                                 const BF::SourceLocation& source, std::size_t row) {
  if (!source.flag) return;
  std::complex<double>* y = Y.data() + row * spectrum.size();
  for (std::size_t k = 0; k < spectrum.size(); ++k) spectrum[k] = std::complex<float>(y[k]);
  projection->project(source.id, reference, spectrum.data(), true, spectrum.data());
  for (std::size_t k = 0; k < spectrum.size(); ++k) y[k] = std::complex<double>(spectrum[k]);
}

// To the precision of separated spectra outside, so that refining them there gives the same. By way
// of `spectrum`: g++ 12 leaves out conversions that go there and back in one loop.
void SpectralSeparation::narrow() {
  for (const std::size_t row : heard) {
    std::complex<double>* y = Y.data() + row * spectrum.size();
    for (std::size_t k = 0; k < spectrum.size(); ++k) spectrum[k] = std::complex<float>(y[k]);
    for (std::size_t k = 0; k < spectrum.size(); ++k) y[k] = std::complex<double>(spectrum[k]);
  }
}

void SpectralSeparation::refine(const std::vector<BF::SourceLocation>& listed) {
  const bool isByEngine = pass < settings.passes;
  if (stage < Stage::Refined) {
    if (!isByEngine && isLastPass()) ofRecording->refine(listed, heard, X, Y);
    if (running && !heard.empty()) {
      narrow();
      running->refine(listed, heard, X, Y);
    }
    stage = Stage::Refined;
  }
  if (stage < Stage::Gathered) {
    const bool isWanted = ofRecording && pass + 1 >= settings.passes && !isLastPass();
    if (isWanted) ofRecording->gather(listed, heard, X, Y);
    stage = Stage::Gathered;
  }
  if (settings.postMask < 1.0 && isLastPass()) {
    masks.resize(heard.size());
    applyMasks(settings.postMask, heard, masks, Y);
  }
}

}  // namespace Separation
