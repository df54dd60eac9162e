#include "separation/Methods.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <stdexcept>

namespace {

using Parameters = std::vector<MethodParameter>;

constexpr float MAX_FLOAT = std::numeric_limits<float>::max();
constexpr NumberRange NOT_NEGATIVE = {0.0F, MAX_FLOAT, "0 or more"};
constexpr NumberRange POSITIVE = {std::numeric_limits<float>::min(), MAX_FLOAT, "a number above 0"};

/// The steps' defaults are the command's own: with them a few seconds of speech suffice.
Parameters constraintStep(const std::string& prefix, const std::string& size) {
  return {{prefix + "_LC_METHOD",
           "string",
           "ADAPTIVE",
           "ADAPTIVE: the step follows the signal's power; FIX: the step is " + prefix + "_LC_MYU",
           {"FIX", "ADAPTIVE"}},
          {prefix + "_LC_MYU",
           "float",
           size,
           "step size, or its multiplier when adaptive; larger learns faster, less cleanly",
           {},
           NOT_NEGATIVE}};
}

Parameters gicaSteps() {
  Parameters steps = {
      {"GICA_SS_METHOD",
       "string",
       "ADAPTIVE",
       "separation step: ADAPTIVE, FIX, or LC_MYU (fixed, of the size GICA_LC_MYU)",
       {"FIX", "LC_MYU", "ADAPTIVE"}},
      {"GICA_SS_MYU",
       "float",
       "0.1",
       "separation step size, or its multiplier when adaptive",
       {},
       NOT_NEGATIVE},
      {"GICA_SS_SCAL", "float", "0.1", "scale of the outputs inside the tanh", {}, POSITIVE}};
  for (const MethodParameter& parameter : constraintStep("GICA", "0.1")) steps.push_back(parameter);
  return steps;
}

std::vector<Method> makeMethods() {
  return {
      {"DS",
       BF::BF_ALGORITHM_DS,
       "BeamForming",
       "one source in mild noise; never harms, gains little",
       {}},
      {"WDS",
       BF::BF_ALGORITHM_WDS,
       "BeamForming",
       "like DS, weighted by how well each microphone hears the source",
       {}},
      {"NULL",
       BF::BF_ALGORITHM_NULL,
       "BeamForming",
       "known positions and a database that fits the room: nulls every other listed source",
       {}},
      {"ILSE",
       BF::BF_ALGORITHM_ILSE,
       "BeamForming",
       "like NULL, and still exact towards the source with more sources than microphones",
       {}},
      {"LCMV", BF::BF_ALGORITHM_LCMV, "BeamForming",
       "unlisted interference: lowers the output power, keeps the source; adapts over seconds",
       constraintStep("LCMV", "0.5")},
      {"GJ", BF::BF_ALGORITHM_GJ, "BeamForming",
       "the same aim by a sidelobe canceller; forgets at every source change",
       constraintStep("GJ", "0.001")},
      {"GICA", BF::BF_ALGORITHM_GICA, "BeamForming",
       "several talkers at known positions, a database that fits roughly; adapts over seconds",
       gicaSteps()},
      {"ML",
       BF::BF_ALGORITHM_CML,
       "ML",
       "steady noise whose statistics can be measured (--noise-from)",
       {{"REG_FACTOR",
         "float",
         "0.0001",
         "regularisation, relative to the noise matrix's norm",
         {},
         NOT_NEGATIVE}}},
      {"MSNR",
       BF::BF_ALGORITHM_CMSNR,
       "MSNR",
       "no database: learns from when each source is active and when it is silent",
       {{"ALPHA",
         "float",
         "0.99",
         "forgetting factor of the statistics, per frame",
         {},
         {0.0F, 1.0F, "0 to 1"}},
        {"DECOMPOSITION_ALGORITHM", "string", "GEVD", "GEVD or GSVD", {"GEVD", "GSVD"}}}},
      {"MVDR",
       Separation::ALGORITHM_MVDR,
       "MVDR",
       "known positions in a room whose impulse responses are there (--responses): short frames",
       {{"LOADING",
         "float",
         "0.0001",
         "noise of the microphones' own, as a share of the sources' mean power",
         {},
         POSITIVE},
        {"FRAMES",
         "int",
         "4",
         "frames that a filter takes, half a frame apart: more hold echoes back longer",
         {},
         {1.0F, Separation::MAX_MVDR_FRAMES, "1 to 16"}}}},
  };
}

std::map<std::string, std::string> withDefaults(const Method& method,
                                                std::map<std::string, std::string> texts) {
  for (const MethodParameter& parameter : method.parameters) {
    texts.try_emplace(parameter.name, parameter.defaultValue);
  }
  return texts;
}

/// With the precision of the nodes' parameters.
double numberOf(const std::string& text) {
  return static_cast<double>(std::strtof(text.c_str(), nullptr));
}

}  // namespace

const std::vector<Method>& methods() {
  static const std::vector<Method> ALL = makeMethods();
  return ALL;
}

BF::EngineParameters engineParameters(const Method& method,
                                      const std::map<std::string, std::string>& given) {
  const std::map<std::string, std::string> texts = withDefaults(method, given);
  const auto number = [&](const std::string& name) { return numberOf(texts.at(name)); };
  BF::EngineParameters result;
  for (const auto& [name, text] : texts) {
    if (name.ends_with("_LC_METHOD")) result.lcAdaptive = text == "ADAPTIVE";
    if (name.ends_with("_LC_MYU")) result.mu = number(name);
    if (name == "GICA_SS_METHOD") result.ssAdaptive = text == "ADAPTIVE";
    if (name == "GICA_SS_MYU") {
      const bool asConstraint = texts.at("GICA_SS_METHOD") == "LC_MYU";
      result.mu_ss = number(asConstraint ? "GICA_LC_MYU" : name);
    }
    if (name == "GICA_SS_SCAL") result.scale = number(name);
    if (name == "REG_FACTOR") result.regFactor = number(name);
    if (name == "ALPHA") result.alpha = number(name);
    if (name == "DECOMPOSITION_ALGORITHM") result.decompositionAlgorithm = text;
  }
  return result;
}

void setMethod(const Method& method, const std::map<std::string, std::string>& given,
               Separation::Settings& settings) {
  settings.method = method.algorithm;
  settings.parameters = engineParameters(method, given);
  if (!method.needsResponses()) return;
  const std::map<std::string, std::string> texts = withDefaults(method, given);
  settings.mvdrLoading = numberOf(texts.at("LOADING"));
  settings.mvdrFrames = static_cast<int>(numberOf(texts.at("FRAMES")));
}

const Method& methodNamed(const std::string& name) {
  const auto found = std::find_if(methods().begin(), methods().end(),
                                  [&](const Method& method) { return method.name == name; });
  if (found != methods().end()) return *found;
  std::string names;
  for (const Method& method : methods()) names += (names.empty() ? "" : ", ") + method.name;
  throw std::invalid_argument(fmt::format("--method is \"{}\", expected one of {}", name, names));
}
