#include "cli/ArraysCommand.h"

#include <fmt/format.h>

#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>

#include "audio/Channels.h"
#include "cli/OptionChecks.h"
#include "pictures/ArrayPicture.h"
#include "pictures/PictureFile.h"
#include "responses/KnownArrays.h"

namespace {

struct Options {
  std::string name;
  std::string output;
  int width = 500;
  bool force = false;
};

std::string recordingText(const KnownArray& array) {
  return fmt::format("channels {} of {}, {} Hz", array.channels, array.recorded,
                     array.samplingRate);
}

void listArrays() {
  for (const KnownArray& array : knownArrays()) {
    std::cout << fmt::format("{:<16}{} microphones, {}: {}\n", array.name, array.positions.size(),
                             recordingText(array), array.title);
  }
}

void showArray(const KnownArray& array, const Options& options) {
  ArrayPicture picture;
  picture.title = array.title;
  picture.subtitle =
      fmt::format("{}: {}, numbered by channel, from above", array.name, recordingText(array));
  std::cout << fmt::format("{}: {}, {}\n", array.name, array.title, recordingText(array));
  const std::vector<int> channels = Audio::selectedChannels(array.channels, array.recorded);
  for (std::size_t m = 0; m < array.positions.size(); ++m) {
    const auto& [x, y, z] = array.positions[m];
    picture.microphones.push_back({x, y, std::to_string(channels[m] + 1)});
    std::cout << fmt::format("channel {}: [{:g}, {:g}, {:g}]\n", channels[m] + 1, x, y, z);
  }
  if (!options.output.empty()) {
    writePicture(options.output, picture.drawn(options.width), options.force);
  }
}

}  // namespace

CLI::Validator isArrayName() {
  return {[](const std::string& name) -> std::string {
            try {
              knownArray(name);
              return {};
            } catch (const std::invalid_argument& error) {
              return error.what();
            }
          },
          ""};
}

void addArraysCommand(CLI::App& app) {
  const auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand(
      "arrays", "List the microphone arrays that --array knows, or show and draw one");
  CLI::Option* name =
      command->add_option("NAME", options->name, "The array to show")->check(isArrayName());
  CLI::Option* output =
      command->add_option("-o,--output", options->output, "Its picture, NAME.svg or NAME.png")
          ->needs(name);
  command->add_option("--width", options->width, "Width of the picture in pixels")
      ->check(isBetween(200, 10000))
      ->capture_default_str();
  command->add_flag("--force", options->force, "Replace an existing picture");
  command->callback([options, output] {
    if (*output) checkPicture(options->output, options->force, {});
    if (options->name.empty()) return listArrays();
    showArray(knownArray(options->name), *options);
  });
}
