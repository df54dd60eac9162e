#include "python/src/Parameters.h"

#include <pybind11/stl.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "python/src/Arguments.h"
#include "separation/Methods.h"

namespace py = pybind11;
using Separation::SettingError;

namespace {

const Method& checkedMethod(const std::string& name) {
  std::string names;
  for (const Method& method : methods()) {
    if (method.name == name) return method;
    names += (names.empty() ? "" : ", ") + method.name;
  }
  throw SettingError("method", '"' + name + '"', "one of " + names);
}

/// "GICA_LC_MYU" of GICA is lc_myu.
std::string keywordFor(const Method& method, std::string name) {
  if (name.starts_with(method.name + "_")) name.erase(0, method.name.size() + 1);
  std::transform(name.begin(), name.end(), name.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return name;
}

/// Values of keyword arguments by name, each taken once.
class Keywords {
 public:
  explicit Keywords(const py::dict& given) {
    for (const auto& [name, value] : given) {
      if (!value.is_none()) values[name.cast<std::string>()] = value;
    }
  }

  template <class Value>
  void take(const std::string& name, const char* expected, Value& value) {
    const auto found = values.find(name);
    if (found == values.end()) return;
    value = as<Value>(name, found->second, expected);
    values.erase(found);
  }

  bool has(const std::string& name) const { return values.contains(name); }

  /// A parameter of the method, as its table allows it and as text: a word or a number.
  std::string word(const MethodParameter& parameter, const std::string& name) {
    std::string value;
    take(name, "a text", value);
    const std::vector<std::string>& choices = parameter.choices;
    if (std::find(choices.begin(), choices.end(), value) != choices.end()) return value;
    std::string expected;
    for (const std::string& choice : choices) expected += (expected.empty() ? "" : ", ") + choice;
    throw SettingError(name, '"' + value + '"', expected);
  }

  std::string number(const MethodParameter& parameter, const std::string& name) {
    double value = 0.0;
    take(name, parameter.range.text, value);
    const std::string text = py::repr(py::float_(value)).cast<std::string>();
    if (value >= parameter.range.least && value <= parameter.range.most) return text;
    throw SettingError(name, text, parameter.range.text);
  }

  /// Refuses what was not taken.
  void requireNoMore(const Method& method) const {
    if (values.empty()) return;
    std::string names;
    for (const MethodParameter& parameter : method.parameters) {
      names += (names.empty() ? "" : ", ") + keywordFor(method, parameter.name);
    }
    throw SettingError(values.begin()->first, "given",
                       "a parameter of " + method.name + " (" +
                           (names.empty() ? "it has none" : names) + ") or of the separation");
  }

 private:
  template <class Value>
  static Value as(const std::string& name, const py::handle& value, const char* expected) {
    try {
      return value.cast<Value>();
    } catch (const py::cast_error&) {
      throw SettingError(name, py::repr(value).cast<std::string>(), expected);
    }
  }

  std::map<std::string, py::handle> values;
};

BF::EngineParameters takeParameters(const Method& method, Keywords& keywords) {
  std::map<std::string, std::string> given;
  for (const MethodParameter& parameter : method.parameters) {
    const std::string name = keywordFor(method, parameter.name);
    if (!keywords.has(name)) continue;
    given[parameter.name] = parameter.choices.empty() ? keywords.number(parameter, name)
                                                      : keywords.word(parameter, name);
  }
  return engineParameters(method, given);
}

/// [bins, microphones, microphones] as the separator has it.
std::vector<BF::Matrix> noiseMatrices(const py::handle& given) {
  const py::array_t<std::complex<double>> array =
      Arguments::complexDoubles(given, "noise_matrices", 3, "[bins, microphones, microphones]");
  const auto rows = static_cast<int>(array.shape(1));
  const auto columns = static_cast<int>(array.shape(2));
  std::vector<BF::Matrix> matrices;
  for (py::ssize_t k = 0; k < array.shape(0); ++k) {
    matrices.emplace_back(rows, columns);
    std::copy_n(array.data() + k * rows * columns, rows * columns, matrices.back().data());
  }
  return matrices;
}

/// What is done beside the method: passes over the recording, masks, threads.
void takeRefinement(Keywords& keywords, Separation::Settings& settings) {
  keywords.take("passes", "a whole number, 1 or more", settings.passes);
  keywords.take("refine", "a whole number of passes, 0 or more", settings.refinement.passes);
  keywords.take("refine_live", "True or False", settings.refinement.running);
  keywords.take("refine_memory", "seconds above 0", settings.refinement.memory);
  keywords.take("post_mask", "a number from 0 to 1", settings.postMask);
  keywords.take("threads", "a whole number, 1 or more", settings.threads);
}

void takeNoise(Keywords& keywords, Separation::NoiseSettings& noise) {
  keywords.take("noise_from", "a list of (begin, end) in seconds", noise.times);
  keywords.take("noise_forgetting", "a number from 0 to 1", noise.forgetting);
  keywords.take("noise_loading", "a number, 0 or more", noise.loading);
  keywords.take("noise_normalize", "True or False", noise.normalize);
  py::object matrices;
  keywords.take("noise_matrices", "an array", matrices);
  if (matrices) noise.matrices = noiseMatrices(matrices);
}

}  // namespace

BF::BfAlgorithmType algorithmNamed(const std::string& method) {
  return checkedMethod(method).algorithm;
}

BF::EngineParameters engineKeywords(const std::string& name, const py::dict& given) {
  Keywords keywords(given);
  const Method& method = checkedMethod(name);
  const BF::EngineParameters result = takeParameters(method, keywords);
  keywords.requireNoMore(method);
  return result;
}

Separation::Settings separationSettings(const std::string& name, const py::dict& given, int rate,
                                        int length, int microphones) {
  const Method& method = checkedMethod(name);
  Keywords keywords(given);
  Separation::Settings settings;
  settings.method = method.algorithm;
  if (method.needsResponses()) {
    keywords.take("loading", "above 0", settings.mvdrLoading);
    keywords.take("frames", "a whole number, 1 to 16", settings.mvdrFrames);
  }
  settings.parameters = takeParameters(method, keywords);
  settings.samplingRate = rate;
  settings.length = length;
  keywords.take("length", "a whole number of samples", settings.length);
  keywords.take("latency", "a whole number of samples", settings.latency);
  settings.advance = std::max(1, settings.latency ? *settings.latency / 2 : settings.length / 4);
  keywords.take("advance", "a whole number of samples", settings.advance);
  keywords.take("window", "HANN, HAMMING, SINE or RECTANGULAR", settings.window);
  if (method.nodeType == "ML") takeNoise(keywords, settings.noise);
  if (method.nodeType == "MSNR") keywords.take("level", "True or False", settings.level);
  takeRefinement(keywords, settings);
  keywords.take("project", "True or False", settings.project);
  keywords.take("project_forgetting", "a number from 0 to 1", settings.projectionForgetting);
  int reference = 1;
  const std::string numbers =
      "1 to " + std::to_string(microphones) + ", the number of a microphone";
  keywords.take("reference_mic", numbers.c_str(), reference);
  if (reference < 1 || reference > microphones) {
    throw SettingError("reference_mic", std::to_string(reference), numbers);
  }
  settings.referenceMicrophone = reference - 1;
  keywords.take("half_frame_shift", "True or False", settings.undoHalfFrameShift);
  keywords.take("inactive_as_noise", "True or False", settings.inactiveAsNoise);
  keywords.requireNoMore(method);
  return settings;
}
