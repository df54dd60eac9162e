#include <string>
#include <vector>

#include "python/src/Arguments.h"
#include "python/src/Bindings.h"
#include "scoring/ScoreMetrics.h"

namespace py = pybind11;
using Separation::SettingError;

namespace {

constexpr int MAX_TAPS = 1024;

// The filters are found with a square matrix of that many rows: half a gigabyte.
constexpr py::ssize_t MAX_SYSTEM = 8192;

std::vector<NamedSignal> rows(const py::array_t<double>& array, const std::string& name) {
  std::vector<NamedSignal> signals;
  const py::ssize_t L = array.shape(1);
  for (py::ssize_t i = 0; i < array.shape(0); ++i) {
    const double* samples = array.data() + i * L;
    signals.push_back({name + "[" + std::to_string(i) + "]", {samples, samples + L}});
  }
  return signals;
}

/// [sources, 3]: SI-SDR, SI-SIR and SI-SAR in dB.
py::array_t<double> score(const py::handle& given, const py::handle& separated, int taps) {
  const py::array_t<double> references =
      Arguments::doubles(given, "references", 2, "[sources, samples]");
  const py::array_t<double> estimates =
      Arguments::doubles(separated, "estimates", 2, "[sources, samples]");
  const py::ssize_t N = references.shape(0);
  Arguments::requireShape(estimates, "estimates", {N, references.shape(1)},
                          Arguments::shapeText(references) + ", as the references");
  if (taps < 1 || taps > MAX_TAPS || taps * N > MAX_SYSTEM) {
    throw SettingError("filter_taps", std::to_string(taps),
                       "1 to " + std::to_string(MAX_TAPS) + ", and " + std::to_string(MAX_SYSTEM) +
                           " at most over all references");
  }
  py::array_t<double> scores({N, py::ssize_t{3}});
  double* result = scores.mutable_data();
  const py::gil_scoped_release release;
  const std::vector<NamedSignal> signals = rows(estimates, "estimates");
  const ScoreMetrics metrics(rows(references, "references"), taps);
  for (std::size_t i = 0; i < signals.size(); ++i) {
    const SourceScore one = metrics.score(signals[i], i);
    *result++ = one.sdr;
    *result++ = one.sir;
    *result++ = one.sar;
  }
  return scores;
}

}  // namespace

void bindScoring(py::module_& module) { module.def("score", &score); }
