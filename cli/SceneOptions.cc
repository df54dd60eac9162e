#include "cli/SceneOptions.h"

#include <fmt/format.h>

void addSourceOption(CLI::App& command, Audio::SceneChoice& scene) {
  command
      .add_option("--source", scene.sources,
                  "ID:AZIMUTH[:ELEVATION[:DISTANCE]], a source that is there always, or with an "
                  "RTTM file NAME:AZIMUTH… of a speaker; may be repeated")
      ->allow_extra_args(false);
}

void addSceneOptions(CLI::App& command, Audio::SceneChoice& scene) {
  command.add_option("--sources", scene.file,
                     "Scene file (JSON, CSV or RTTM): which sources, where, when");
  addSourceOption(command, scene);
}

void requireScene(const Audio::SceneChoice& scene, const std::string& otherWays) {
  if (scene.isGiven()) return;
  throw CLI::ValidationError(
      fmt::format("--sources is required, or --source ID:AZIMUTH for each source{}", otherWays));
}
