#include "scene/SceneFile.h"

#include <fmt/format.h>

#include <sstream>
#include <utility>

#include "audio/FileText.h"
#include "dsp/DataError.h"
#include "scene/SourceText.h"

namespace Audio {

namespace {

enum class Form { Json, Csv, Rttm };

Form formOf(const std::string& path, const std::string& text) {
  const std::size_t first = text.find_first_not_of(" \t\r\n");
  const auto beginsWith = [&](const char* word) {
    return first != std::string::npos && text.compare(first, std::string(word).size(), word) == 0;
  };
  if (path.ends_with(".rttm") || beginsWith("SPEAKER ") || beginsWith("SPKR-INFO ") ||
      beginsWith(";;")) {
    return Form::Rttm;
  }
  return path.ends_with(".csv") || beginsWith("id,") ? Form::Csv : Form::Json;
}

/// Whether an RTTM file has turns of a recording.
bool hasRecording(const std::string& text, const std::string& recording) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string type;
    std::string name;
    if (words >> type >> name && type == "SPEAKER" && name == recording) return true;
  }
  return false;
}

std::vector<Speaker> chosenSpeakers(const SceneChoice& choice) {
  try {
    return speakersOf(choice.sources);
  } catch (const DataError& error) {
    throw DataError(fmt::format("{}: {}", choice.sourceWords, error.what()));
  }
}

}  // namespace

Scene readScene(const SceneChoice& choice) {
  const std::vector<Speaker> speakers = chosenSpeakers(choice);
  if (choice.file.empty()) {
    std::vector<SceneSource> sources;
    for (const Speaker& speaker : speakers) sources.push_back(speaker.source);
    if (!sources.empty()) return Scene::of(std::move(sources), {}, choice.sourceWords);
    throw DataError(fmt::format("found neither {} nor {}, expected one of them", choice.fileWords,
                                choice.sourceWords));
  }
  const std::string text = fileText(choice.file, Scene::MAX_FILE_SIZE);
  const Form form = formOf(choice.file, text);
  if (form == Form::Rttm) {
    if (speakers.empty()) {
      throw DataError(fmt::format(
          "{}: RTTM says who speaks when but not where, expected {} NAME:AZIMUTH for each name",
          choice.file, choice.sourceWords));
    }
    return Scene::parseRttm(text, choice.file, speakers,
                            hasRecording(text, choice.recording) ? choice.recording : "");
  }
  if (!speakers.empty()) {
    throw DataError(fmt::format("{}: has its own places, expected {} only beside an RTTM file",
                                choice.file, choice.sourceWords));
  }
  return form == Form::Csv ? Scene::parseCsv(text, choice.file) : Scene::parse(text, choice.file);
}

}  // namespace Audio
