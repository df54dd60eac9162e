#include "toolbox/SeparatedFrames.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "dsp/DataError.h"

SeparatedFrames::SeparatedFrames(const Audio::SeparatedFilesOptions& options,
                                 Audio::FrameSynthesizer synthesizer)
    : layout(synthesizer.frames()), files(options, layout), signals(std::move(synthesizer)) {}

void SeparatedFrames::addFrame(const Spectra& spectra, std::optional<int> completedSamples) {
  isCounted = completedSamples.has_value();
  if (isCounted) takeCount(*completedSamples);
  std::vector<int> ids;
  for (const auto& [id, spectrum] : spectra) ids.push_back(id);
  files.addFrame(ids);
  signals.clearDelivered();
  for (const auto& [id, spectrum] : spectra) {
    signals.prepare(id);
    signals.add(id, spectrum);
  }
  finishFrame();
}

/// A frame that completes fewer samples than its advance says is where the recording ends.
void SeparatedFrames::takeCount(int count) {
  const std::int64_t begin = std::max<std::int64_t>(0, layout.start(signals.frame()));
  const std::int64_t end = std::max<std::int64_t>(0, layout.start(signals.frame() + 1));
  const std::int64_t complete = total == UNKNOWN ? end - begin : 0;
  if (count < 0 || count > complete) {
    throw DataError(fmt::format("frame {} finishes 0 to {} samples, found a count of {}",
                                signals.frame(), complete, count));
  }
  if (count < complete) total = begin + count;
}

void SeparatedFrames::finishFrame() {
  signals.finishFrame(total);
  const Separation::Output& output = signals.output();
  Audio::SeparatedFiles::Signals samples;
  for (const Separation::Signal& signal : output.signals) {
    samples[signal.id] = signal.samples.data();
  }
  files.write(samples, output.count);
}

std::vector<std::string> SeparatedFrames::finish() {
  if (signals.frame() > 0 && !isCounted) {
    total = layout.start(signals.frame() - 1) + layout.length();
    while (files.samples() < total) {
      signals.clearDelivered();
      finishFrame();
    }
  }
  files.finish();
  return files.remarks("the format FLOAT");
}
