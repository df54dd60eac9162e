#include "cli/SeparationRun.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>

#include "cli/PrintableOutput.h"
#include "cli/ProgressBar.h"
#include "cli/SeparatorSettings.h"
#include "cli/StopSignals.h"
#include "cli/StreamOptions.h"
#include "dsp/FrameLayout.h"
#include "separation/Separator.h"
#include "tracking/FollowedTracks.h"

namespace {

/// The files, or the stream.
std::unique_ptr<Audio::SeparatedOutput> openOutput(const SeparationSettings& s,
                                                   const Audio::Scene& scene) {
  if (s.directory == "-") return openStreamOutput(s, scene);
  Audio::SeparatedFilesOptions options;
  options.directory = s.directory;
  options.prefix = s.prefix;
  options.samplingRate = s.samplingRate;
  options.format = Audio::sampleFormatNamed(s.format);
  options.overwrite = s.overwrite;
  options.overwriteWords = FORCE_WORDS;
  return std::make_unique<Audio::SeparatedFiles>(options,
                                                 Audio::FrameLayout(s.outputLength(), s.advance));
}

/// For --debug: says when the output of a source ceases to be finite.
class FiniteCheck {
 public:
  explicit FiniteCheck(int samplingRate) : rate(samplingRate) {}

  void look(const Separation::Output& output) {
    std::set<int> now;
    for (const auto& [id, samples] : output.signals) {
      const auto bad = std::find_if(samples.begin(), samples.end(),
                                    [](float sample) { return !std::isfinite(sample); });
      if (bad == samples.end()) continue;
      now.insert(id);
      if (spoilt.contains(id)) continue;
      const std::int64_t n = output.start + (bad - samples.begin());
      warn(
          fmt::format("source {}: the output is not finite from {:.4f} s on (sample {}), expected "
                      "smaller steps of the method, or a recording without such samples",
                      id, static_cast<double>(n) / rate, n));
    }
    spoilt = std::move(now);
  }

 private:
  int rate;
  std::set<int> spoilt;  // whose last samples were not finite
};

/// The way of the recording's samples: block by block, each what a frame brings, to the separator,
/// with the sources that are listed then; and what it completes, to the files.
class SeparationRun {
 public:
  SeparationRun(const SeparationSettings& separationSettings, SeparationInputs& separationInputs)
      : s(separationSettings),
        inputs(separationInputs),
        layout(s.outputLength(), s.advance),
        separator(makeSeparator(s, inputs)),
        check(s.samplingRate) {}

  /// Goes through the recording as often as the settings ask for; the last time it is separated
  /// into the files, up to its end, or to the frame that is at hand when a signal comes, and they
  /// are completed. Says whether the end was reached.
  bool separate(ProgressBar& progress) {
    for (; pass < separator.passes(); ++pass) {
      Audio::AudioReader again = openAgain(s);
      if (!goThrough(again, progress)) return false;
      separator.startOver();
      framesBefore += frame + 1;
      frame = -1;
    }
    output = openOutput(s, inputs.scene);
    const bool isEnd = goThrough(*inputs.recording, progress);
    output->finish();
    for (const std::string& remark : output->remarks("--format FLOAT")) warn(remark);
    if (inputs.live) {
      reportTracks(s.tracks.input, inputs.live->counts(), inputs.live->failure());
      inputs.scene = followed.scene(s.tracks.input);
    }
    return isEnd;
  }

  /// What to say of a run that was stopped.
  std::string stopText() const {
    const int signal = SignalWatch::caught();
    if (!output) {
      return fmt::format("stopped by signal {} in pass {} of {}, before any file was written",
                         signal, pass, separator.passes());
    }
    return fmt::format("stopped by signal {} after frame {}{}", signal, frame,
                       s.directory == "-" ? "" : "; the files are complete up to it");
  }
  SeparationResult result() const { return {output->report(), output->samples(), passes()}; }
  int passes() const { return separator.passes(); }

 private:
  bool goThrough(Audio::AudioReader& recording, ProgressBar& progress) {
    const auto advance = static_cast<std::size_t>(s.advance);
    std::vector<float> block(advance * static_cast<std::size_t>(separator.microphones()));
    bool isEnd = false;
    do {
      const std::size_t count = recording.read(block.data(), advance);
      isEnd = count < advance;
      if (isEnd) {
        separateRest(block.data(), count);
      } else {
        listSources();
        write(separator.push(block.data(), count));
        progress.show(framesBefore + frame, layout.time(frame, s.samplingRate));
      }
    } while (!isEnd && SignalWatch::caught() == 0);
    // A stream that a signal interrupted seems to end there.
    return isEnd && !(SignalWatch::caught() != 0 && Audio::AudioReader::isStream(s.recording));
  }

  /// The last block, which is shorter than a frame's advance, and the frames that hold no more than
  /// the end of the recording.
  void separateRest(const float* samples, std::size_t count) {
    write(separator.push(samples, count));
    while (frame + 1 < layout.frameCount(separator.samples())) listSources();
    write(separator.flush());
  }

  /// Moves on to the next frame and says who is active in it.
  void listSources() {
    ++frame;
    const double time = layout.time(frame, s.samplingRate);
    const std::vector<BF::SourceLocation> sources = sourcesOf(inputs, time, s.inactiveAsNoise);
    separator.setSources(sources, separator.sourcesAt(frame));
    if (!output) return;
    std::vector<int> targets;
    for (const BF::SourceLocation& source : sources) {
      if (source.flag) targets.push_back(source.id);
    }
    output->addFrame(targets);
    if (inputs.live) followed.add({time, layout.time(frame + 1, s.samplingRate)}, sources);
  }

  void write(const Separation::Output& separated) {
    if (!output) return;
    if (s.debug) check.look(separated);
    Audio::SeparatedOutput::Signals signals;
    for (const auto& [id, samples] : separated.signals) signals[id] = samples.data();
    output->write(signals, separated.count);
  }

  const SeparationSettings& s;
  SeparationInputs& inputs;
  Audio::FrameLayout layout;
  Separation::Separator separator;
  std::unique_ptr<Audio::SeparatedOutput> output;  // in the last pass
  FiniteCheck check;
  Tracking::FollowedTracks followed;  // whom a tracker told
  int pass = 1;
  std::int64_t frame = -1;        // the newest one
  std::int64_t framesBefore = 0;  // of the passes before
};

}  // namespace

SeparationResult runSeparation(const SeparationSettings& settings, SeparationInputs& inputs,
                               bool showsProgress) {
  const SignalWatch signals;
  SeparationRun run(settings, inputs);
  bool isComplete = false;
  {
    const Audio::FrameLayout layout(settings.outputLength(), settings.advance);
    ProgressBar progress(showsProgress,
                         inputs.samples ? run.passes() * layout.frameCount(*inputs.samples) : 0);
    isComplete = run.separate(progress);
  }
  if (!isComplete) throw std::runtime_error(run.stopText());
  return run.result();
}
