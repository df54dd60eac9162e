#include "python/src/Errors.h"

#include <exception>
#include <map>
#include <string>

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
    raise(errorType(error.what()));
  }
}

}  // namespace

void registerErrors(const py::module_&) {
  errorType = py::object(py::module_::import("zelksss._error").attr("Error")).release();
  py::register_exception_translator(&translate);
}
