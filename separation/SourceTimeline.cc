#include "separation/SourceTimeline.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <string>
#include <utility>

#include "separation/Settings.h"

namespace Separation {

namespace {

using Sources = std::vector<BF::SourceLocation>;

/// Whether an id stands among the first `count` sources.
bool hasId(const Sources& sources, int id, std::size_t count) {
  return std::any_of(sources.begin(), sources.begin() + static_cast<std::ptrdiff_t>(count),
                     [id](const BF::SourceLocation& source) { return source.id == id; });
}

void check(const Sources& sources) {
  for (std::size_t i = 0; i < sources.size(); ++i) {
    const std::string name = "sources[" + std::to_string(i) + "]";
    const BF::SourceLocation& source = sources[i];
    for (const double coordinate : {source.x, source.y, source.z}) {
      if (std::isfinite(coordinate)) continue;
      throw SettingError(name, "at " + std::to_string(coordinate), "at finite coordinates");
    }
    if (hasId(sources, source.id, i)) {
      throw SettingError(name + ".id", std::to_string(source.id), "one that no other source has");
    }
  }
}

}  // namespace

bool sameSources(const Sources& a, const Sources& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const auto& s, const auto& t) {
    return s.id == t.id && s.flag == t.flag && s.x == t.x && s.y == t.y && s.z == t.z;
  });
}

void SourceTimeline::set(const Sources& sources, std::int64_t from) {
  if (from < lastFrom) {
    throw SettingError("from", std::to_string(from),
                       std::to_string(lastFrom) + " or more, as the list before");
  }
  if (!sameSources(sources, newest)) {
    check(sources);
    Sources noted(sources);
    Sources stored(sources);
    if (changes.empty() || changes.back().from != from) changes.push_back({from, {}});
    changes.back().sources.swap(stored);
    newest.swap(noted);
  }
  lastFrom = from;
}

void SourceTimeline::moveTo(std::int64_t halfSamples) {
  while (!changes.empty() && 2 * changes.front().from <= halfSamples) {
    apply(changes.front());
    changes.pop_front();
  }
}

// Ends without a change when memory runs out, and may then be called again.
void SourceTimeline::apply(Change& change) {
  Sources& sources = change.sources;
  if (inactiveAsNoise) {
    Sources all = targets;
    for (const BF::SourceLocation& source : sources) {
      if (!source.flag) continue;
      const auto known = std::find_if(
          all.begin(), all.end(), [&source](const auto& target) { return target.id == source.id; });
      if (known == all.end()) {
        all.push_back(source);
      } else {
        *known = source;
      }
    }
    Sources extended = sources;
    for (const BF::SourceLocation& target : all) {
      if (hasId(sources, target.id, sources.size())) continue;
      extended.push_back(target);
      extended.back().flag = false;
    }
    sources.swap(extended);
    targets.swap(all);
  }
  listed.swap(sources);
}

}  // namespace Separation
