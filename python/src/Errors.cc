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

std::string argumentFor(const std::string& field) {
  static const std::map<std::string, std::string> ARGUMENTS = {
      {"samplingRate", "rate"},
      {"noise.times", "noise_from"},
      {"noise.matrices", "noise_matrices"},
      {"noise.forgetting", "noise_forgetting"},
      {"noise.loading", "noise_loading"},
      {"projectionForgetting", "project_forgetting"},
      {"referenceMicrophone", "reference_mic"},
      {"parameters.decompositionAlgorithm", "decomposition_algorithm"},
      {"database.micLocations", "db.microphones"},
      {"database.sourceLocations", "db.positions"},
      {"database.transferFunctions", "db"}};
  const auto found = ARGUMENTS.find(field);
  return found == ARGUMENTS.end() ? field : found->second;
}

void raise(const py::object& error) { PyErr_SetObject(errorType.ptr(), error.ptr()); }

void translate(std::exception_ptr pointer) {
  try {
    std::rethrow_exception(pointer);
  } catch (const Separation::SettingError& error) {
    const std::string field = argumentFor(error.field);
    raise(errorType(field + " is " + error.actual + ", expected " + error.expected, field,
                    error.actual, error.expected));
  } catch (const DataError& error) {
    raise(errorType(error.what()));
  }
}

}  // namespace

void registerErrors(const py::module_&) {
  errorType = py::object(py::module_::import("zelksss._error").attr("Error")).release();
  py::register_exception_translator(&translate);
}
