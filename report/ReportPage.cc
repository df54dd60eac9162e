#include "report/ReportPage.h"

#include <nlohmann/json.hpp>
#include <string_view>

#include "pictures/Base64.h"
#include "report/PageParts.h"

namespace {

using Json = nlohmann::ordered_json;

const char* nameOf(ReportTrack::Kind kind) {
  switch (kind) {
    case ReportTrack::Kind::Mixture:
      return "mixture";
    case ReportTrack::Kind::Reference:
      return "reference";
    case ReportTrack::Kind::Source:
      break;
  }
  return "source";
}

Json jsonOf(const ReportRun& run) {
  Json patterns = Json::array();
  for (const ReportPattern& pattern : run.patterns) {
    patterns.push_back(
        {{"source", pattern.source}, {"time", pattern.time}, {"svg", base64(pattern.svg)}});
  }
  return {{"name", run.name},
          {"facts", run.facts},
          {"warnings", run.warnings},
          {"patterns", patterns},
          {"scores", run.scores}};
}

/// A text within HTML.
std::string escaped(const std::string& text) {
  std::string result;
  for (const char c : text) {
    if (c == '&') {
      result += "&amp;";
    } else if (c == '<') {
      result += "&lt;";
    } else {
      result += c;
    }
  }
  return result;
}

/// JSON in which no "<" ends the element that it stands in.
std::string forScript(const Json& json) {
  const std::string text = json.dump(-1, ' ', false, Json::error_handler_t::replace);
  std::string result;
  for (const char c : text) {
    if (c == '<') {
      result += "\\u003c";
    } else {
      result += c;
    }
  }
  return result;
}

}  // namespace

std::string ReportPage::html() const {
  Json trackList = Json::array();
  for (const ReportTrack& track : tracks) {
    trackList.push_back({{"kind", nameOf(track.kind)},
                         {"name", track.name},
                         {"place", track.place},
                         {"active", track.active},
                         {"sound", base64(track.sound)},
                         {"spectrogram", base64(track.spectrogram)},
                         {"spectrogram_begin", track.spectrogramBegin},
                         {"spectrogram_length", track.spectrogramLength}});
  }
  Json runList = Json::array();
  for (const ReportRun& run : runs) runList.push_back(jsonOf(run));
  const Json data = {{"duration", duration},
                     {"sampling_rate", samplingRate},
                     {"peak", peak},
                     {"sound_note", soundNote},
                     {"level_note", levelNote},
                     {"score_note", scoreNote},
                     {"score_heads", scoreHeads},
                     {"scene", base64(scene)},
                     {"tracks", trackList},
                     {"runs", runList}};
  const std::pair<std::string_view, std::string> parts[] = {
      {"TITLE", escaped(title)},     {"SUBTITLE", escaped(subtitle)},
      {"STYLE", PageParts::STYLE},   {"PLAYER_LICENCE", PageParts::PLAYER_LICENCE},
      {"PLAYER", PageParts::PLAYER}, {"SCRIPT", PageParts::SCRIPT},
      {"DATA", forScript(data)}};
  // One pass, so that what a part says is not taken for the place of another.
  std::string result;
  std::string_view rest = PageParts::TEMPLATE;
  while (true) {
    const std::size_t begin = rest.find("{{");
    result += rest.substr(0, begin);
    if (begin == std::string_view::npos) return result;
    const std::size_t end = rest.find("}}", begin);
    const std::string_view name = rest.substr(begin + 2, end - begin - 2);
    for (const auto& [part, text] : parts) {
      if (part == name) result += text;
    }
    rest.remove_prefix(end + 2);
  }
}
