#include "separation/SourceSignals.h"

#include <algorithm>
#include <utility>

namespace Separation {

SourceSignals::SourceSignals(Audio::FrameSynthesizer frameSynthesizer)
    : synthesizer(std::move(frameSynthesizer)) {}

SourceSignals::Source* SourceSignals::find(int id) {
  const auto found = std::find_if(sources.begin(), sources.end(),
                                  [id](const auto& source) { return source->id == id; });
  return found == sources.end() ? nullptr : found->get();
}

void SourceSignals::clearDelivered() {
  const Audio::FrameLayout& layout = synthesizer.frames();
  const std::int64_t reach = (layout.length() + layout.advance() - 1) / layout.advance();
  std::erase_if(sources, [&](const auto& source) {
    return source->lastFrame >= 0 && current - 1 - source->lastFrame >= reach;
  });
  for (const auto& source : sources) source->finished.clear();
  result.start += static_cast<std::int64_t>(result.count);
  result.count = 0;
  result.signals.clear();
}

void SourceSignals::prepare(int id) {
  if (find(id)) return;
  auto source = std::make_unique<Source>(id, synthesizer.frames());
  source->finished.resize(result.count);
  sources.push_back(std::move(source));
}

void SourceSignals::add(int id, const std::complex<float>* spectrum) {
  Source& source = *find(id);
  source.adder.add(synthesizer.synthesize(spectrum).data());
  source.lastFrame = current;
}

void SourceSignals::finishFrame(std::int64_t total) {
  const Audio::FrameLayout& layout = synthesizer.frames();
  const std::int64_t begin = std::clamp<std::int64_t>(layout.start(current), 0, total);
  const std::int64_t end = std::clamp<std::int64_t>(layout.start(current + 1), 0, total);
  const std::int64_t offset = begin - layout.start(current);
  const auto count = static_cast<std::size_t>(end - begin);
  for (const auto& source : sources) {
    if (source->finished.capacity() >= result.count + count) continue;
    source->finished.reserve(std::max(result.count + count, 2 * source->finished.capacity()));
  }

  for (const auto& source : sources) {
    if (source->lastFrame != current) source->adder.add(nullptr);
    if (count == 0) continue;
    const float* samples = source->adder.sum().data() + offset;
    source->finished.insert(source->finished.end(), samples, samples + count);
  }
  result.count += count;
  ++current;
}

const Output& SourceSignals::output() {
  result.signals.clear();
  for (const auto& source : sources) {
    result.signals.push_back({source->id, {source->finished.data(), result.count}});
  }
  return result;
}

}  // namespace Separation
