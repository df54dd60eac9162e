#include "cli/SpectrogramCommand.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "cli/OptionChecks.h"
#include "cli/StreamOptions.h"
#include "dsp/DataError.h"
#include "pictures/PictureFile.h"
#include "pictures/Spectrogram.h"
#include "pictures/SpectrogramPicture.h"

namespace {

constexpr std::size_t MAX_PANELS = 32;

struct Options {
  std::vector<std::string> files;
  std::string channels;
  SpectrogramFrames frames{512, 0};  ///< advance 0: a quarter of the length
  SpectrogramStyle style;
  std::vector<std::string> titles;
  std::string time;  ///< BEGIN:END in seconds; empty: all
  std::string output;
  bool force = false;
};

void drawSpectrograms(const Options& options) {
  SpectrogramFrames frames = options.frames;
  if (frames.advance == 0) frames.advance = std::max(1, frames.length / 4);
  if (frames.advance > frames.length) {
    throw CLI::ValidationError("--advance", fmt::format("{}, expected --length, {}, at most",
                                                        frames.advance, frames.length));
  }
  refuseSharedInput(options.files);
  checkPicture(options.output, options.force, options.files);
  std::vector<Spectrogram> panels;
  for (const std::string& file : options.files) {
    std::vector<Spectrogram> more = readSpectrograms(file, options.channels, frames);
    panels.insert(panels.end(), std::make_move_iterator(more.begin()),
                  std::make_move_iterator(more.end()));
    if (panels.size() <= MAX_PANELS) continue;
    throw DataError(
        fmt::format("{}: with it there are {} panels, expected {} at most (--channel "
                    "chooses channels)",
                    file, panels.size(), MAX_PANELS));
  }
  if (!options.titles.empty() && options.titles.size() != panels.size()) {
    throw DataError(fmt::format("--title: {} given, expected {}, one for each panel",
                                options.titles.size(), panels.size()));
  }
  for (std::size_t i = 0; i < options.titles.size(); ++i) panels[i].name = options.titles[i];
  SpectrogramStyle style = options.style;
  if (!options.time.empty()) {
    const Audio::TimeRange range = timeRangesOf(options.time).front();
    style.begin = range.begin;
    style.end = range.end;
  }
  writePicture(options.output, spectrogramPicture(panels, style), options.force);
}

}  // namespace

void addSpectrogramCommand(CLI::App& app) {
  const auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand(
      "spectrogram", "Draw recordings by time and frequency, on the same axes and scale");
  command
      ->add_option("FILE", options->files,
                   "Recordings, a panel for each and each channel; - is standard input")
      ->required();
  command->add_option("--channel", options->channels,
                      "Channels of files that have several, as 1-4,7; default: all");
  command->add_option("--length", options->frames.length, "Samples per frame")
      ->check(isBetween(2, 8192))
      ->capture_default_str();
  command
      ->add_option("--advance", options->frames.advance,
                   "Samples from frame to frame; default: a quarter of the frame")
      ->check(isPositive());
  command
      ->add_option("--range", options->style.range,
                   "dB from the loudest level of all files to the lightest colour")
      ->check(isBetween(10.0, 200.0))
      ->capture_default_str();
  command->add_option("--title", options->titles,
                      "What each panel is called, in their order; default: the files' names");
  command
      ->add_option("--time", options->time,
                   "Draw this part alone, BEGIN:END in seconds; default: all")
      ->check(isTimeRange());
  command->add_option("-o,--output", options->output, "The picture, NAME.svg or NAME.png")
      ->required();
  command->add_option("--width", options->style.width, "Width of the picture in pixels")
      ->check(isBetween(200, 10000))
      ->capture_default_str();
  command
      ->add_option("--height", options->style.height,
                   "Height of the picture in pixels; default: 168 for each panel and 46")
      ->check(isBetween(80, 20000));
  command->add_flag("--force", options->force, "Replace an existing picture");
  command->footer(
      "Example:\n  zelk-sss spectrogram mix.wav separated/source_*.wav --channel 1 -o sound.png");
  command->callback([options] { drawSpectrograms(*options); });
}
