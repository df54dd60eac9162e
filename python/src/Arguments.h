#pragma once

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <array>
#include <complex>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "separation/Settings.h"

/// Arguments of Python functions, checked: what cannot be used is refused by a SettingError that
/// names the argument and becomes zelksss.Error.
namespace Arguments {

namespace py = pybind11;

/// "shape (3, 4)".
std::string shapeText(const py::array& array);

/// An array of anything that numpy makes one of: arrays, sequences, objects with __array__ or
/// __dlpack__. Without a copy where the object allows it.
py::array arrayOf(py::handle object, const std::string& name);

/// The same as float32, or as float64, row by row in memory: the object's own memory where it has
/// that layout, a copy otherwise. Refused are other types than float32 and float64 and, for
/// coordinates, than whole numbers, too; another number of dimensions; and values that are not
/// finite. `expected` says what the shape is to be.
py::array_t<float> floats(py::handle object, const std::string& name, int dimensions,
                          const std::string& expected);
py::array_t<double> doubles(py::handle object, const std::string& name, int dimensions,
                            const std::string& expected);

/// Likewise complex values, of double or single precision.
py::array_t<std::complex<double>> complexDoubles(py::handle object, const std::string& name,
                                                 int dimensions, const std::string& expected);
py::array_t<std::complex<float>> complexFloats(py::handle object, const std::string& name,
                                               int dimensions, const std::string& expected);

/// Refuses values that are not finite.
void requireFinite(const py::array_t<float>& array, const std::string& name);

/// A new array of these samples, made quickly.
py::array_t<float> copyOf(std::span<const float> samples);

/// Refuses an array of another shape than `shape`, in which −1 stands for any count above 0.
void requireShape(const py::array& array, const std::string& name,
                  const std::vector<py::ssize_t>& shape, const std::string& expected);

/// Coordinates in metres from an array [points, 3].
std::vector<std::array<double, 3>> points(py::handle object, const std::string& name);

}  // namespace Arguments
