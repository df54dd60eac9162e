#include "cli/SeparationOptions.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <stdexcept>

#include "ParameterValue.h"
#include "cli/OptionChecks.h"
#include "cli/SceneOptions.h"
#include "net_types.h"
#include "separation/Settings.h"

namespace {

/// The value as it came, if the parameter may have it.
std::string checkedValue(const MethodParameter& parameter, const std::string& value) {
  FD::ObjectRef parsed;
  try {
    parsed = FD::parseValue(parameter.type, value);
  } catch (const std::invalid_argument& error) {
    misuse(fmt::format("--param {} is \"{}\": {}", parameter.name, value, error.what()));
  }
  if (parameter.type == "float" || parameter.type == "int") {
    const float number = parameter.type == "int"
                             ? static_cast<float>(FD::dereference_cast<int>(parsed))
                             : FD::dereference_cast<float>(parsed);
    const NumberRange& range = parameter.range;
    if (!(number >= range.least && number <= range.most)) {
      misuse(fmt::format("--param {} is \"{}\", expected {}", parameter.name, value, range.text));
    }
  }
  const std::vector<std::string>& choices = parameter.choices;
  if (!choices.empty() && std::find(choices.begin(), choices.end(), value) == choices.end()) {
    misuse(fmt::format("--param {} is \"{}\", expected {}", parameter.name, value,
                       fmt::join(choices, ", ")));
  }
  return value;
}

/// Splits NAME=VALUE and checks the name against the method's parameters.
void addMethodParameter(const std::string& assignment, SeparationSettings& settings) {
  const std::size_t equals = assignment.find('=');
  const std::string name = assignment.substr(0, equals);
  if (equals == std::string::npos) {
    misuse(fmt::format("--param is \"{}\", expected NAME=VALUE", assignment));
  }
  std::string names;
  for (const MethodParameter& parameter : settings.method->parameters) {
    if (parameter.name == name) {
      if (settings.methodParameters.contains(name)) {
        misuse(fmt::format("--param names \"{}\" twice, expected it once", name));
      }
      settings.methodParameters[name] = checkedValue(parameter, assignment.substr(equals + 1));
      return;
    }
    names += (names.empty() ? "" : ", ") + parameter.name;
  }
  misuse(fmt::format("--param names \"{}\", expected a parameter of {}: {}", name,
                     settings.method->name, names.empty() ? "it has none" : names));
}

/// GICA's separation step may take its size from the constraint's.
void refuseUnusedStep(const SeparationSettings& s) {
  const auto chosen = s.methodParameters.find("GICA_SS_METHOD");
  if (chosen == s.methodParameters.end() || chosen->second != "LC_MYU") return;
  if (!s.methodParameters.contains("GICA_SS_MYU")) return;
  misuse("--param GICA_SS_MYU is not used where GICA_SS_METHOD is LC_MYU, expected one of them");
}

/// Refuses a database or responses that the method does not use, and asks for those that it does.
void requireFiles(const SeparationSettings& s) {
  if (s.method->needsDatabase() && s.database.empty()) {
    misuse(fmt::format("--tf is missing: {} needs a transfer-function database", s.method->name));
  }
  if (s.method->needsResponses() && s.responses.empty()) {
    misuse(fmt::format("--responses is missing: {} needs whole impulse responses", s.method->name));
  }
  if (s.method->needsResponses() && !s.database.empty()) {
    misuse(fmt::format("--tf serves other methods, expected --responses alone for {}",
                       s.method->name));
  }
  if (!s.method->needsResponses() && !s.responses.empty()) {
    misuse(fmt::format("--responses serves MVDR, not {}", s.method->name));
  }
}

/// Refuses options of the noise's statistics for other methods, and noise from two places.
void refuseNoiseOptions(const SeparationSettings& s, const CLI::App& command) {
  for (const CLI::Option* option : command.get_options()) {
    if (option->count() == 0 || !option->get_name().starts_with("--noise-")) continue;
    if (s.method->nodeType == "ML") continue;
    misuse(fmt::format("{} serves ML, not {}", option->get_name(), s.method->name));
  }
  if (!s.noiseRanges.empty() && !s.noiseRecording.empty()) {
    misuse("--noise-from and --noise-recording exclude each other");
  }
  if (!s.noiseChannels.empty() && s.noiseRecording.empty()) {
    misuse("--noise-channels selects of a noise recording, expected --noise-recording, too");
  }
}

/// Refuses what says twice who is where, or not at all.
void checkScene(const SeparationSettings& s, const std::string& inactiveAsNoise) {
  if (!s.tracks.isGiven()) return requireScene(s.scene, ", or --tracks");
  if (s.scene.isGiven()) misuse("--tracks and --sources or --source exclude each other");
  if (inactiveAsNoise == "on" && areLive(s.tracks, s.recording)) {
    misuse("--inactive-as-noise on does not go with a tracker that is followed while it works");
  }
}

bool chosen(const std::string& choice, bool automatic) {
  return choice == "on" || (choice == "auto" && automatic);
}

void addChoice(CLI::App& command, const std::string& name, std::string& value,
               const std::string& meaning) {
  command.add_option(name, value, meaning)
      ->check(CLI::IsMember({"on", "off", "auto"}))
      ->capture_default_str();
}

}  // namespace

void misuse(const std::string& text) { throw CLI::ValidationError(text); }

void SeparationOptions::addModel(CLI::App& command) {
  SeparationSettings& s = settings;
  command.add_option("--tf", s.database, "Transfer-function database (SOFA, DataType TF)");
  command.add_option("--responses", s.responses, "MVDR: whole impulse responses (SOFA, best FIR)");
  addDatabaseLimit(command);
  addSceneOptions(command, s.scene);
  addTrackOptions(command, s.tracks);
  addMethod(command);
}

void SeparationOptions::addMethod(CLI::App& command) {
  command.add_option("--method", method, "See: zelk-sss methods")->capture_default_str();
  command
      .add_option("--param", parameters, "NAME=VALUE, a parameter of the method; may be repeated")
      ->allow_extra_args(false);
}

void SeparationOptions::addFrames(CLI::App& command) {
  SeparationSettings& s = settings;
  command.add_option("--length", s.length, "Samples per frame; default: the database's, or 512")
      ->check(isPositive());
  command
      .add_option("--advance", s.advance,
                  "Samples from frame to frame; default: a quarter of the frame")
      ->check(isPositive());
  CLI::Option* window = command.add_option("--window", s.window, "Shape of the frames")
                            ->check(CLI::IsMember({"HANN", "HAMMING", "SINE", "RECTANGULAR"}))
                            ->capture_default_str();
  command
      .add_option("--latency", s.latencyInMs,
                  "Milliseconds within which a sample is finished; chooses --advance and windows, "
                  "long ones before and short ones after; default: the frame")
      ->check(isPositive())
      ->excludes(window);
  command
      .add_option("--threads", s.threads,
                  "Threads that share the bins of a frame; the outputs do not depend on it")
      ->check(CLI::Range(1, Separation::MAX_THREADS))
      ->capture_default_str();
}

void SeparationOptions::addNoiseTimes(CLI::App& command) {
  command
      .add_option("--noise-from", settings.noiseRanges,
                  "ML: when the recording holds noise alone, seconds, as 0:1.5,4:5; default: "
                  "while no source is active")
      ->check(isTimeRanges());
}

void SeparationOptions::addNoiseRecording(CLI::App& command) {
  SeparationSettings& s = settings;
  command.add_option("--noise-recording", s.noiseRecording, "ML: a recording of the noise alone");
  command.add_option("--noise-channels", s.noiseChannels,
                     "ML: channels of the noise recording; default: as --channels");
}

void SeparationOptions::addNoise(CLI::App& command) {
  SeparationSettings& s = settings;
  command
      .add_option("--noise-loading", s.noiseLoading,
                  "ML: share of the mean added to each noise matrix's diagonal")
      ->check(isNonNegative())
      ->capture_default_str();
  command
      .add_option("--noise-forgetting", s.noiseForgetting,
                  "ML: how much of the running mean of the noise a new frame leaves")
      ->check(isBetween(0.0, 1.0))
      ->capture_default_str();
  command
      .add_option("--noise-normalize", s.noiseNormalize,
                  "ML: scale each noise matrix to a mean diagonal of 1, true or false")
      ->capture_default_str();
}

void SeparationOptions::addOutputs(CLI::App& command) {
  SeparationSettings& s = settings;
  addChoice(command, "--project", projection,
            "Scale the outputs to the reference microphone; auto: for MSNR");
  command.add_option("--reference-mic", s.reference, "The reference microphone, from 1")
      ->capture_default_str();
  command
      .add_option("--project-forgetting", s.projectionForgetting,
                  "How much of the scale's averages a new frame leaves")
      ->check(isBetween(0.0, 1.0))
      ->capture_default_str();
  addChoice(command, "--half-frame-shift", halfFrameShift,
            "Undo a shift by half a frame; auto: for ML that is not projected");
  addChoice(command, "--inactive-as-noise", inactiveAsNoise,
            "List sources as noise while they are silent; auto: for MSNR");
  command.add_flag("--refine-live", s.refineLive,
                   "Separate anew, by MVDR from masks of what was separated, within one pass");
  command
      .add_option("--refine-memory", s.refineMemory,
                  "--refine-live: seconds that the covariances reach back")
      ->check(CLI::PositiveNumber)
      ->capture_default_str();
  command
      .add_option("--post-mask", s.postMask,
                  "Multiply each output by its share of the power of all, at least by this; 1: off")
      ->check(isBetween(0.0, 1.0))
      ->capture_default_str();
  command.add_option("--level", level, "MSNR: bring the recording to the same level, loud or soft")
      ->check(CLI::IsMember({"on", "off"}))
      ->capture_default_str();
}

void SeparationOptions::addPasses(CLI::App& command) {
  SeparationSettings& s = settings;
  command
      .add_option("--refine", s.refinePasses,
                  "Separate anew, by MVDR from masks that so many passes improve")
      ->check(CLI::Range(0, 100))
      ->capture_default_str()
      ->excludes("--refine-live");
  command
      .add_option("--passes", s.passes,
                  "How often the method goes through the recording; LCMV, GICA and MSNR learn on")
      ->check(CLI::Range(1, 100))
      ->capture_default_str();
}

void SeparationOptions::apply(const CLI::App& command) {
  checkScene(settings, inactiveAsNoise);
  applyMethod(command);
  requireFiles(settings);
}

void SeparationOptions::applyMethod(const CLI::App& command) {
  SeparationSettings& s = settings;
  try {
    s.method = &methodNamed(method);
  } catch (const std::invalid_argument& error) {
    misuse(error.what());
  }
  for (const std::string& assignment : parameters) addMethodParameter(assignment, s);
  refuseUnusedStep(s);
  refuseNoiseOptions(s, command);
  const bool learnsFromSilence = s.method->nodeType == "MSNR";
  s.project = chosen(projection, learnsFromSilence);
  // Of a tracker that is followed, the sources that went would become ever more.
  s.inactiveAsNoise = chosen(inactiveAsNoise, learnsFromSilence && !areLive(s.tracks, s.recording));
  // Projection and refinement turn each bin back by themselves.
  const bool isRefined = s.refinePasses > 0 || s.refineLive;
  s.undoHalfFrameShift =
      chosen(halfFrameShift, s.method->nodeType == "ML" && !s.project && !isRefined);
  // Without projection MSNR's outputs have an arbitrary scale.
  s.level = level == "on" && s.project;
}
