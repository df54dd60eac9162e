#include "separation/Separator.h"

#include <pybind11/stl.h>

#include <algorithm>
#include <array>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "dsp/FrameLayout.h"
#include "python/src/Arguments.h"
#include "python/src/Bindings.h"
#include "python/src/Database.h"
#include "python/src/Parameters.h"
#include "python/src/Sources.h"
#include "scene/Scene.h"
#include "scene/SceneMoment.h"
#include "separation/NoiseFile.h"
#include "separation/ResponseFile.h"
#include "separation/SettingsWindows.h"

namespace py = pybind11;
using Separation::SettingError;

namespace {

constexpr int DEFAULT_LENGTH = 512;  // samples per frame, where no database says it

/// zelksss.Output and the names of its attributes, kept for the life of the process, as the module
/// is.
struct OutputType {
  py::handle type;
  py::handle start;
  py::handle count;
} outputType;

/// The samples of a block, or of a whole recording.
py::array_t<float> checkedSamples(const py::handle& x, int microphones) {
  const auto M = static_cast<py::ssize_t>(microphones);
  if (py::array_t<float, py::array::c_style>::check_(x)) {  // as blocks mostly are
    auto rows = py::reinterpret_borrow<py::array_t<float>>(x);
    if (rows.ndim() == 2 && rows.shape(1) == M) {
      Arguments::requireFinite(rows, "x");
      return rows;
    }
  }
  std::string expected = "[samples, " + std::to_string(M) + " microphones]";
  const py::array given = Arguments::arrayOf(x, "x");
  if (given.ndim() == 2 && given.shape(1) != M && given.shape(0) == M) {
    expected += " (x.T has it)";
  }
  if (given.ndim() != 2 || given.shape(1) != M) {
    throw SettingError("x", Arguments::shapeText(given), expected);
  }
  return Arguments::floats(given, "x", 2, expected);
}

/// The separator with lists of sources that may come from a scene.
class StreamSeparator {
 public:
  /// model: what a Separation::Separator is made from.
  template <class Model>
  StreamSeparator(const Separation::Settings& settings, const Model& model)
      : separator(settings, model), layout(settings.outputLength(), settings.advance) {}

  py::object process(const py::handle& block, const py::handle& sources) {
    const py::array_t<float> samples = checkedSamples(block, separator.microphones());
    const auto count = static_cast<std::size_t>(samples.shape(0));
    list(sources);
    const float* values = samples.data();
    return pushed([&]() -> const Separation::Output& {
      listFrames(separator.samples() + static_cast<std::int64_t>(count));
      return separator.push(values, count);
    });
  }

  py::object flush() {
    return pushed([&]() -> const Separation::Output& {
      listFrames(separator.samples() + separator.settings().length);
      return separator.flush();
    });
  }

  void startOver() {
    separator.startOver();
    inForce = py::object();
    scene = nullptr;
    nextFrame = 0;
    lastFrom = 0;
  }

  /// The samples are a stretch of the recording that the scene tells of, from this one on.
  void beginAt(std::int64_t sample) {
    const int advance = separator.settings().advance;
    if (sample < 0 || sample % advance != 0) {
      throw SettingError("start", std::to_string(sample),
                         "a multiple of advance = " + std::to_string(advance) + ", from 0 on");
    }
    framesBefore = sample / advance;
  }

  const Separation::Separator& base() const { return separator; }

 private:
  void list(const py::handle& sources) {
    if (sources.is_none() || (scene && sources.is(inForce))) return;
    if (!scene && isListed(sources)) {
      lastFrom = separator.samples();
    } else if (py::isinstance<Audio::Scene>(sources)) {
      const auto& given = sources.cast<const Audio::Scene&>();
      given.requireFewAtOnce("sources", *separator.settings().inactiveAsNoise);
      inForce = py::reinterpret_borrow<py::object>(sources);
      scene = &given;
    } else {
      separator.setSources(sourceList(sources));
      lastFrom = separator.samples();
      inForce = py::tuple(py::reinterpret_borrow<py::object>(sources));
      scene = nullptr;
    }
  }

  /// Whether those in force are these very objects, as they mostly are from block to block. A
  /// Source never changes.
  bool isListed(const py::handle& sources) const {
    PyObject* list = sources.ptr();
    if (!inForce || !(PyList_CheckExact(list) || PyTuple_CheckExact(list))) return false;
    PyObject** items = PySequence_Fast_ITEMS(list);
    PyObject** known = PySequence_Fast_ITEMS(inForce.ptr());
    const Py_ssize_t count = PySequence_Fast_GET_SIZE(list);
    return count == PyTuple_GET_SIZE(inForce.ptr()) && std::equal(items, items + count, known);
  }

  // A list for each frame that `total` samples complete, as it is at the frame's centre.
  void listFrames(std::int64_t total) {
    const Separation::Settings& s = separator.settings();
    for (; (nextFrame + 1) * s.advance <= total; ++nextFrame) {
      if (!scene) continue;
      const double time = layout.time(framesBefore + nextFrame, s.samplingRate);
      lastFrom = std::max(lastFrom, separator.sourcesAt(nextFrame));
      separator.setSources(sourcesAt(*scene, time, *s.inactiveAsNoise), lastFrom);
    }
  }

  /// The zelksss.Output of what a call gives, which runs without the lock.
  template <class Call>
  py::object pushed(const Call& call) {
    const Separation::Output* output = nullptr;
    {
      const py::gil_scoped_release release;
      output = &call();
    }
    auto result = py::reinterpret_steal<py::object>(PyObject_CallNoArgs(outputType.type.ptr()));
    if (!result) throw py::error_already_set();
    for (const Separation::Signal& signal : output->signals) {
      result[py::int_(signal.id)] = Arguments::copyOf(signal.samples);
    }
    result.attr(outputType.start) = output->start;
    result.attr(outputType.count) = output->count;
    return result;
  }

  Separation::Separator separator;
  Audio::FrameLayout layout;
  py::object inForce;  // a tuple of sources, or the scene, which it keeps alive
  const Audio::Scene* scene = nullptr;
  std::int64_t framesBefore = 0;  // of the recording
  std::int64_t nextFrame = 0;
  std::int64_t lastFrom = 0;
};

/// The settings with the noise at the times of `noise_from` measured in advance, as the command
/// does it, where there is a whole recording.
Separation::Settings withMeasuredNoise(Separation::Settings settings, const py::handle& recording,
                                       int microphones) {
  Separation::NoiseSettings& noise = settings.noise;
  if (recording.is_none() || noise.times.empty()) return settings;
  Separation::checkedSettings(settings, microphones);
  const py::array_t<float> x = checkedSamples(recording, microphones);
  std::vector<Audio::TimeRange> ranges;
  for (const auto& [begin, end] : noise.times) ranges.push_back({begin, end});
  const py::gil_scoped_release release;
  noise.matrices = noiseMatrices(
      noiseOfSamples(
          {x.data(), static_cast<std::size_t>(x.shape(0)), microphones, settings.samplingRate},
          {settings.length, settings.advance}, windowsOf(settings).analysis, ranges, "noise_from"),
      noise.loading, noise.normalize);
  noise.times.clear();
  return settings;
}

/// recording: None, or all that is going to be separated.
std::unique_ptr<StreamSeparator> makeSeparator(const Database& db, const std::string& method,
                                               const py::dict& parameters,
                                               const py::handle& recording) {
  if (algorithmNamed(method) == Separation::ALGORITHM_MVDR) {
    throw SettingError("responses", "missing", "zelksss.Responses, for the method MVDR");
  }
  const auto microphones = static_cast<int>(db.data().receiverPositions.size());
  const Separation::Settings settings =
      separationSettings(method, parameters, db.rate(), db.length(), microphones);
  return std::make_unique<StreamSeparator>(withMeasuredNoise(settings, recording, microphones),
                                           db.forEngine());
}

std::unique_ptr<StreamSeparator> makeFromResponses(const Separation::ImpulseResponses& responses,
                                                   const std::string& method,
                                                   const py::dict& parameters) {
  if (algorithmNamed(method) != Separation::ALGORITHM_MVDR) {
    throw SettingError("method", '"' + method + '"', "MVDR, which alone takes responses");
  }
  const Separation::Settings settings =
      separationSettings(method, parameters, responses.samplingRate, DEFAULT_LENGTH,
                         static_cast<int>(responses.microphones));
  return std::make_unique<StreamSeparator>(settings, responses);
}

std::unique_ptr<StreamSeparator> makeWithoutDatabase(int microphones, int rate,
                                                     const std::string& method,
                                                     const py::dict& parameters) {
  if (algorithmNamed(method) != BF::BF_ALGORITHM_CMSNR) {
    throw SettingError("db", "missing", "a Database, unless the method is MSNR");
  }
  return std::make_unique<StreamSeparator>(
      separationSettings(method, parameters, rate, DEFAULT_LENGTH, microphones), microphones);
}

/// ir [positions, microphones, taps], which is how the separation keeps them.
Separation::ImpulseResponses makeResponses(const py::handle& ir, const py::handle& positions,
                                           int rate) {
  const py::array_t<float> given = Arguments::floats(ir, "ir", 3, "[positions, microphones, taps]");
  const std::vector<std::array<double, 3>> places = Arguments::points(positions, "positions");
  Arguments::requireShape(given, "ir", {static_cast<py::ssize_t>(places.size()), -1, -1},
                          "[" + std::to_string(places.size()) + " positions, microphones, taps]");
  Separation::ImpulseResponses responses;
  for (const auto& [x, y, z] : places) {
    const auto id = static_cast<int>(responses.positions.size());
    responses.positions.push_back(asSeparated({x, y, z}, id, true));
  }
  responses.microphones = static_cast<std::size_t>(given.shape(1));
  responses.taps = static_cast<std::size_t>(given.shape(2));
  responses.samplingRate = rate;
  responses.samples.assign(given.data(), given.data() + given.size());
  return responses;
}

/// Their own memory, to be read only.
py::array_t<float> responseSamples(const py::object& self) {
  const auto& responses = self.cast<const Separation::ImpulseResponses&>();
  py::array_t<float> view({responses.positions.size(), responses.microphones, responses.taps},
                          responses.samples.data(), self);
  view.attr("setflags")(false);
  return view;
}

py::array_t<double> responsePositions(const Separation::ImpulseResponses& responses) {
  py::array_t<double> result({responses.positions.size(), std::size_t{3}});
  double* value = result.mutable_data();
  for (const BF::SourceLocation& p : responses.positions) {
    for (const double c : {p.x, p.y, p.z}) *value++ = c;
  }
  return result;
}

}  // namespace

void bindSeparator(py::module_& module) {
  outputType = {py::object(py::module_::import("zelksss._output").attr("Output")).release(),
                PyUnicode_InternFromString("start"), PyUnicode_InternFromString("count")};
  module.def("channels_of", [](const py::handle& x) {
    return Arguments::floats(x, "x", 2, "[samples, microphones]").shape(1);
  });
  py::class_<Separation::ImpulseResponses>(module, "Responses")
      .def(py::init(&makeResponses))
      .def_static("read", &readImpulseResponses, py::call_guard<py::gil_scoped_release>())
      .def_property_readonly("ir", &responseSamples)
      .def_property_readonly("positions", &responsePositions)
      .def_readonly("rate", &Separation::ImpulseResponses::samplingRate);
  py::class_<StreamSeparator>(module, "Separator")
      .def(py::init(&makeSeparator))
      .def(py::init(&makeFromResponses))
      .def(py::init(&makeWithoutDatabase))
      .def("process", &StreamSeparator::process)
      .def("checked", [](const StreamSeparator& s,
                         const py::handle& x) { return checkedSamples(x, s.base().microphones()); })
      .def("begin_at", &StreamSeparator::beginAt)
      .def("start_over", &StreamSeparator::startOver)
      .def("flush", &StreamSeparator::flush)
      .def_property_readonly("samples", [](const StreamSeparator& s) { return s.base().samples(); })
      .def_property_readonly("passes", [](const StreamSeparator& s) { return s.base().passes(); })
      .def_property_readonly("latency", [](const StreamSeparator& s) { return s.base().latency(); })
      .def_property_readonly("microphones",
                             [](const StreamSeparator& s) { return s.base().microphones(); })
      .def_property_readonly(
          "rate", [](const StreamSeparator& s) { return s.base().settings().samplingRate; })
      .def_property_readonly("length",
                             [](const StreamSeparator& s) { return s.base().settings().length; })
      .def_property_readonly("advance",
                             [](const StreamSeparator& s) { return s.base().settings().advance; });
}
