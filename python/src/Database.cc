#include "python/src/Database.h"

#include <pybind11/stl.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <utility>
#include <vector>

#include "fileio/SofaFile.h"
#include "python/src/Arguments.h"
#include "responses/ArrayGeometry.h"
#include "responses/DatabaseFile.h"
#include "responses/RelativeResponses.h"
#include "responses/ResponseImport.h"

namespace py = pybind11;
using Separation::SettingError;

namespace {

using Complex = std::complex<float>;

constexpr int MAX_RATE = 1'000'000;
constexpr int MIN_LENGTH = 16;
constexpr int MAX_LENGTH = 65536;

FrameShape checkedFrame(int rate, int length) {
  if (rate < 1 || rate > MAX_RATE) {
    throw SettingError("rate", std::to_string(rate), "1 to " + std::to_string(MAX_RATE) + " Hz");
  }
  if (length < MIN_LENGTH || length > MAX_LENGTH || length % 2 != 0) {
    throw SettingError(
        "length", std::to_string(length),
        "an even number from " + std::to_string(MIN_LENGTH) + " to " + std::to_string(MAX_LENGTH));
  }
  return {rate, length};
}

std::string text(double value) { return py::str(py::float_(value)).cast<std::string>(); }

void requireReference(int reference, std::size_t microphones) {
  if (reference >= 0 && static_cast<std::size_t>(reference) <= microphones) return;
  throw SettingError("reference_mic", std::to_string(reference),
                     "1 to " + std::to_string(microphones) + ", or None");
}

std::unique_ptr<Database> readDatabase(const std::string& path) {
  const SofaFile file(path);
  requireDatabase(file);
  return std::make_unique<Database>(transferFunctionsOf(file));
}

std::unique_ptr<Database> freeField(const py::handle& microphones, int rate, int length,
                                    double azimuthStep, std::vector<double> elevations,
                                    std::vector<double> distances, int reference) {
  const FrameShape frame = checkedFrame(rate, length);
  const Positions array = Arguments::points(microphones, "mics");
  requireReference(reference, array.size());
  if (!(azimuthStep > 0.0 && azimuthStep <= 360.0)) {
    throw SettingError("azimuth_step", text(azimuthStep), "above 0 and up to 360 degrees");
  }
  for (const double metres : distances) {
    if (!(metres > 0.0)) throw SettingError("distance", text(metres), "metres above 0");
  }
  for (const double degrees : elevations) {
    if (!(std::abs(degrees) <= 90.0)) {
      throw SettingError("elevations", text(degrees), "-90 to 90 degrees");
    }
  }
  const py::gil_scoped_release release;
  const Positions grid = gridPositions({azimuthStep, std::move(elevations), std::move(distances)});
  SofaTransferFunctions data = freeFieldResponses(array, grid, frame);
  if (reference > 0) makeRelative(data, reference);
  return std::make_unique<Database>(std::move(data));
}

// responses [positions, microphones, taps], which is how the library keeps them.
std::unique_ptr<Database> fromResponses(const py::handle& responses, const py::handle& positions,
                                        const py::handle& microphones, int rate, int length,
                                        int reference) {
  const std::string expected = "[positions, microphones, taps]";
  const py::array_t<float> given = Arguments::floats(responses, "ir", 3, expected);
  Positions places = Arguments::points(positions, "positions");
  Positions array = Arguments::points(microphones, "microphones");
  Arguments::requireShape(
      given, "ir",
      {static_cast<py::ssize_t>(places.size()), static_cast<py::ssize_t>(array.size()), -1},
      "[" + std::to_string(places.size()) + " positions, " + std::to_string(array.size()) +
          " microphones, taps]");
  const FrameShape frame = {checkedFrame(rate, MIN_LENGTH).rate,
                            length == 0 ? 0 : checkedFrame(rate, length).length};
  requireReference(reference, array.size());
  MeasuredResponses measured;
  measured.measurements = places.size();
  measured.receivers = array.size();
  measured.length = static_cast<std::size_t>(given.shape(2));
  measured.rate = rate;
  measured.values.assign(given.data(), given.data() + given.size());
  measured.delays.assign(places.size() * array.size(), 0.0);
  const py::gil_scoped_release release;
  ImportReport report;
  SofaTransferFunctions data = importResponses(measured, "ir", frame, report);
  data.sourcePositions = std::move(places);
  data.receiverPositions = std::move(array);
  data.title = "impulse responses given as arrays";
  if (reference > 0) makeRelative(data, reference);
  return std::make_unique<Database>(std::move(data));
}

// h [bins, microphones, positions], which the library keeps as [positions, microphones, bins].
std::unique_ptr<Database> fromArrays(const py::handle& h, const py::handle& positions,
                                     const py::handle& microphones, int rate) {
  const std::string expected = "[bins, microphones, positions]";
  const py::array given = Arguments::arrayOf(h, "h");
  if (given.ndim() != 3) throw SettingError("h", Arguments::shapeText(given), expected);
  SofaTransferFunctions data;
  data.sourcePositions = Arguments::points(positions, "positions");
  data.receiverPositions = Arguments::points(microphones, "microphones");
  data.samplingRate = checkedFrame(rate, 2 * (static_cast<int>(given.shape(0)) - 1)).rate;
  data.frequencies = static_cast<std::size_t>(given.shape(0));
  const auto P = static_cast<py::ssize_t>(data.sourcePositions.size());
  const auto M = static_cast<py::ssize_t>(data.receiverPositions.size());
  Arguments::requireShape(
      given, "h", {-1, M, P},
      "[bins, " + std::to_string(M) + " microphones, " + std::to_string(P) + " positions]");
  const py::array_t<Complex> values =
      Arguments::complexFloats(given.attr("transpose")(2, 1, 0), "h", 3, expected);
  data.values.assign(values.data(), values.data() + values.size());
  data.title = "transfer functions given as arrays";
  return std::make_unique<Database>(std::move(data));
}

py::array_t<double> pointsArray(const std::vector<std::array<double, 3>>& points) {
  py::array_t<double> result({static_cast<py::ssize_t>(points.size()), py::ssize_t{3}});
  std::copy_n(points.data()->data(), 3 * points.size(), result.mutable_data());
  return result;
}

/// The database's own memory, to be read only: [bins, microphones, positions].
py::array_t<Complex> transferFunctions(const py::object& self) {
  const SofaTransferFunctions& data = self.cast<const Database&>().data();
  const auto K = static_cast<py::ssize_t>(data.frequencies);
  const auto M = static_cast<py::ssize_t>(data.receiverPositions.size());
  const auto P = static_cast<py::ssize_t>(data.sourcePositions.size());
  constexpr auto size = static_cast<py::ssize_t>(sizeof(Complex));
  py::array_t<Complex> view({K, M, P}, {size, K * size, M * K * size}, data.values.data(), self);
  view.attr("setflags")(false);
  return view;
}

}  // namespace

Database::Database(SofaTransferFunctions given)
    : functions(std::move(given)), converted(databaseOf(functions)) {
  functions.samplingRate = std::round(functions.samplingRate);
}

void bindDatabase(py::module_& module) {
  py::class_<Database>(module, "Database")
      .def_static("read", &readDatabase, py::call_guard<py::gil_scoped_release>())
      .def_static("free_field", &freeField)
      .def_static("from_responses", &fromResponses)
      .def_static("from_arrays", &fromArrays)
      .def(
          "write",
          [](const Database& self, const std::string& path) { writeSofa(path, self.data()); },
          py::call_guard<py::gil_scoped_release>())
      .def_property_readonly("h", &transferFunctions)
      .def_property_readonly(
          "positions",
          [](const Database& self) { return pointsArray(self.data().sourcePositions); })
      .def_property_readonly(
          "microphones",
          [](const Database& self) { return pointsArray(self.data().receiverPositions); })
      .def_property_readonly("energy_in_frame",
                             [](const Database& self) { return self.data().energyInFrame; })
      .def_property_readonly("reference_mic",
                             [](const Database& self) { return self.data().referenceMicrophone; })
      .def_property_readonly("rate", &Database::rate)
      .def_property_readonly("length", &Database::length);
}
