#include "python/src/Errors.h"

#include <cstddef>
#include <exception>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "dsp/DataError.h"
#include "separation/Settings.h"

namespace py = pybind11;

namespace {

// Kept for the life of the process, as the module is.
py::handle errorType;

/// A field, or a text about fields, in the names of the arguments.
std::string withArguments(std::string text) {
  static const std::map<std::string, std::string> ARGUMENTS = {
      {"samplingRate", "rate"},
      {"noise.times", "noise_from"},
      {"noise.matrices", "noise_matrices"},
      {"noise.forgetting", "noise_forgetting"},
      {"noise.loading", "noise_loading"},
      {"mvdrLoading", "loading"},
      {"mvdrFrames", "frames"},
      {"refinement.memory", "refine_memory"},
      {"refinement.passes", "refine"},
      {"refinement.running", "refine_live"},
      {"postMask", "post_mask"},
      {"projectionForgetting", "project_forgetting"},
      {"parameters.decompositionAlgorithm", "decomposition_algorithm"},
      {"database.micLocations", "db.microphones"},
      {"database.sourceLocations", "db.positions"},
      {"database.transferFunctions", "db"}};
  for (const auto& [field, argument] : ARGUMENTS) {
    const std::size_t at = text.find(field);
    if (at != std::string::npos) text.replace(at, field.size(), argument);
  }
  return text;
}

/// A text that speaks of the command's options, in the names of the arguments.
std::string withoutOptions(const std::string& text) {
  // Options that a function of the package has as an argument; the second where the names differ.
  static const std::vector<std::pair<std::string, std::string>> OPTIONS = {
      {"--max-database-size or ", ""},
      {"--room needs", "Room needs"},
      {"--room", "size"},
      {"--array-at: the array", "at: the array"},
      {"--distances", "distance"},
      {"--t60", "t60"},
      {"--absorption", "absorption"},
      {"--elevations", "elevations"},
      {"--rate", "rate"},
      {"--azimuth-step", "azimuth_step"},
      {"--latency", "latency"},
      {"--length", "length"},
      {"--reference-mic", "reference_mic"}};
  std::string result = text;
  for (const auto& [option, argument] : OPTIONS) {
    for (std::size_t at = 0; (at = result.find(option, at)) != std::string::npos;) {
      // Not within a file's name.
      const bool isWord = at == 0 || result[at - 1] == ' ' || result[at - 1] == '(';
      if (isWord) result.replace(at, option.size(), argument);
      at += isWord ? argument.size() : option.size();
    }
  }
  return result;
}

/// "FIELD is ACTUAL, expected EXPECTED" has its parts as attributes if it began with an option.
py::object dataError(const std::string& original) {
  const std::string text = withoutOptions(original);
  const std::size_t actual = text.find(" is ");
  const std::size_t expected = text.find(", expected ");
  if (!original.starts_with("--") || actual >= expected || expected == std::string::npos) {
    return errorType(text);
  }
  return errorType(text, text.substr(0, actual), text.substr(actual + 4, expected - actual - 4),
                   text.substr(expected + 11));
}

void raise(const py::object& error) { PyErr_SetObject(errorType.ptr(), error.ptr()); }

void translate(std::exception_ptr pointer) {
  try {
    std::rethrow_exception(pointer);
  } catch (const Separation::SettingError& error) {
    const std::string field = withArguments(error.field);
    const std::string expected = withArguments(error.expected);
    raise(errorType(field + " is " + error.actual + ", expected " + expected, field, error.actual,
                    expected));
  } catch (const DataError& error) {
    raise(dataError(error.what()));
  }
}

}  // namespace

void registerErrors(const py::module_&) {
  errorType = py::object(py::module_::import("zelksss._error").attr("Error")).release();
  py::register_exception_translator(&translate);
}
