#include "cli/SceneCommand.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "cli/OptionChecks.h"
#include "pictures/PictureFile.h"
#include "pictures/ScenePicture.h"
#include "scene/SceneFile.h"

namespace {

struct Options {
  std::string scene;
  std::string output;
  std::string title;
  std::optional<double> duration;
  int width = 760;
  bool force = false;
};

void drawScene(const Options& options) {
  checkPicture(options.output, options.force, {options.scene});
  Audio::SceneChoice choice;
  choice.file = options.scene;
  const Audio::Scene scene = Audio::readScene(choice);
  const std::string title = options.title.empty()
                                ? std::filesystem::path(options.scene).filename().string()
                                : options.title;
  writePicture(
      options.output,
      scenePicture(scene, title, options.duration.value_or(sceneEnd(scene)), options.width),
      options.force);
}

}  // namespace

void addSceneCommand(CLI::App& app) {
  const auto options = std::make_shared<Options>();
  CLI::App* command =
      app.add_subcommand("scene", "Draw who is where and when, from above and by time");
  command->add_option("SCENE", options->scene, "Scene file (JSON or CSV)")->required();
  command->add_option("-o,--output", options->output, "The picture, NAME.svg or NAME.png")
      ->required();
  command->add_option("--title", options->title, "Heading; default: the file's name");
  command
      ->add_option("--duration", options->duration,
                   "Seconds to draw; default: the last time in the scene")
      ->check(isPositive());
  command->add_option("--width", options->width, "Width of the picture in pixels")
      ->check(isBetween(200, 10000))
      ->capture_default_str();
  command->add_flag("--force", options->force, "Replace an existing picture");
  command->footer("Example:\n  zelk-sss scene scene.json -o scene.svg");
  command->callback([options] { drawScene(*options); });
}
