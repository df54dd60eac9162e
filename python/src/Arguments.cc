#include "python/src/Arguments.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <type_traits>

#include "matrix/ProcessorClones.h"

using Separation::SettingError;

namespace Arguments {

namespace {

std::string typeText(py::handle object) {
  return py::str(py::type::handle_of(object).attr("__name__")).cast<std::string>();
}

bool isNative(const py::dtype& type) { return type.byteorder() == '=' || type.byteorder() == '|'; }

/// Refuses arrays whose elements are of no kind in `kinds` (of numpy: f, c, i, u) or longer than 8
/// bytes per number.
void requireKind(const py::array& array, const std::string& name, const std::string& kinds,
                 const std::string& expected) {
  const py::dtype type = array.dtype();
  const bool isRight = kinds.find(type.kind()) != std::string::npos && isNative(type) &&
                       type.itemsize() >= (type.kind() == 'f' ? 4 : 1) &&
                       type.itemsize() <= (type.kind() == 'c' ? 16 : 8);
  if (isRight) return;
  throw SettingError(name, "an array of " + py::str(py::handle(type)).cast<std::string>(),
                     expected);
}

void requireDimensions(const py::array& array, const std::string& name, int dimensions,
                       const std::string& expected) {
  if (array.ndim() != dimensions) throw SettingError(name, shapeText(array), expected);
}

std::string indexText(const py::array& array, std::size_t flat) {
  std::string text;
  for (py::ssize_t axis = array.ndim() - 1; axis >= 0; --axis) {
    const auto count = static_cast<std::size_t>(array.shape(axis));
    text = std::to_string(flat % count) + (text.empty() ? "" : ", ") + text;
    flat /= count;
  }
  return "[" + text + "]";
}

bool isFinite(float x) { return std::isfinite(x); }
bool isFinite(double x) { return std::isfinite(x); }
template <class Real>
bool isFinite(const std::complex<Real>& x) {
  return std::isfinite(x.real()) && std::isfinite(x.imag());
}

/// Whether all are finite, found by their exponents: the loop takes many at once.
ZELK_PROCESSOR_CLONES bool areFinite(const float* values, std::size_t count) {
  std::uint32_t largest = 0;
  for (std::size_t i = 0; i < count; ++i) {
    largest = std::max(largest, std::bit_cast<std::uint32_t>(values[i]) & 0x7FFFFFFFU);
  }
  return largest < 0x7F800000U;
}

template <class Value>
void requireAllFinite(const py::array_t<Value>& array, const std::string& name) {
  const Value* values = array.data();
  const auto count = static_cast<std::size_t>(array.size());
  if constexpr (std::is_same_v<Value, float>) {
    if (areFinite(values, count)) return;
  }
  const Value* bad =
      std::find_if(values, values + count, [](const Value& x) { return !isFinite(x); });
  if (bad == values + count) return;
  throw SettingError(name,
                     py::str(py::cast(*bad)).template cast<std::string>() + " at " +
                         indexText(array, static_cast<std::size_t>(bad - values)),
                     "finite values");
}

/// The object's own memory where it has that type and lies row by row.
template <class Value>
py::array_t<Value> converted(py::handle object, const std::string& name, int dimensions,
                             const std::string& kinds, const std::string& types,
                             const std::string& expected) {
  const py::array given = arrayOf(object, name);
  requireKind(given, name, kinds, types + ", " + expected);
  requireDimensions(given, name, dimensions, expected);
  auto array = py::array_t<Value, py::array::c_style | py::array::forcecast>::ensure(given);
  if (!array) throw py::error_already_set();
  requireAllFinite<Value>(array, name);
  return array;
}

}  // namespace

std::string shapeText(const py::array& array) {
  std::string text;
  for (py::ssize_t axis = 0; axis < array.ndim(); ++axis) {
    text += (axis > 0 ? ", " : "") + std::to_string(array.shape(axis));
  }
  return "of shape (" + text + (array.ndim() == 1 ? ",)" : ")");
}

py::array arrayOf(py::handle object, const std::string& name) {
  if (py::isinstance<py::array>(object)) return py::reinterpret_borrow<py::array>(object);
  const py::module_ numpy = py::module_::import("numpy");
  try {
    const bool exchanges = !py::hasattr(object, "__array__") && py::hasattr(object, "__dlpack__");
    return numpy.attr(exchanges ? "from_dlpack" : "asarray")(object);
  } catch (const py::error_already_set& error) {
    throw SettingError(
        name, "a " + typeText(object),
        std::string("an array (") + py::str(error.value()).cast<std::string>() + ")");
  }
}

py::array_t<float> floats(py::handle object, const std::string& name, int dimensions,
                          const std::string& expected) {
  return converted<float>(object, name, dimensions, "f", "float32 or float64", expected);
}

py::array_t<double> doubles(py::handle object, const std::string& name, int dimensions,
                            const std::string& expected) {
  return converted<double>(object, name, dimensions, "fiu", "numbers", expected);
}

py::array_t<std::complex<double>> complexDoubles(py::handle object, const std::string& name,
                                                 int dimensions, const std::string& expected) {
  return converted<std::complex<double>>(object, name, dimensions, "cf", "complex128 or complex64",
                                         expected);
}

py::array_t<std::complex<float>> complexFloats(py::handle object, const std::string& name,
                                               int dimensions, const std::string& expected) {
  return converted<std::complex<float>>(object, name, dimensions, "cf", "complex64 or complex128",
                                        expected);
}

void requireFinite(const py::array_t<float>& array, const std::string& name) {
  requireAllFinite<float>(array, name);
}

py::array_t<float> copyOf(std::span<const float> samples) {
  // As py::array_t's constructor does it, which first makes vectors of shape and strides.
  const auto& numpy = py::detail::npy_api::get();
  auto count = static_cast<Py_intptr_t>(samples.size());
  auto array = py::reinterpret_steal<py::array_t<float>>(
      numpy.PyArray_NewFromDescr_(numpy.PyArray_Type_, py::dtype::of<float>().release().ptr(), 1,
                                  &count, nullptr, nullptr, 0, nullptr));
  if (!array) throw py::error_already_set();
  std::copy(samples.begin(), samples.end(), array.mutable_data());
  return array;
}

void requireShape(const py::array& array, const std::string& name,
                  const std::vector<py::ssize_t>& shape, const std::string& expected) {
  bool isRight = array.ndim() == static_cast<py::ssize_t>(shape.size());
  for (std::size_t axis = 0; isRight && axis < shape.size(); ++axis) {
    const py::ssize_t count = array.shape(static_cast<py::ssize_t>(axis));
    isRight = shape[axis] < 0 ? count > 0 : count == shape[axis];
  }
  if (!isRight) throw SettingError(name, shapeText(array), expected);
}

std::vector<std::array<double, 3>> points(py::handle object, const std::string& name) {
  const std::string expected = "[points, 3]: x, y and z in metres";
  const py::array_t<double> array = doubles(object, name, 2, expected);
  requireShape(array, name, {-1, 3}, expected);
  std::vector<std::array<double, 3>> result(static_cast<std::size_t>(array.shape(0)));
  std::copy_n(array.data(), array.size(), result.data()->data());
  return result;
}

}  // namespace Arguments
