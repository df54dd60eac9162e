#include "separation/Separator.h"

#include <pybind11/stl.h>

#include <algorithm>
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

namespace py = pybind11;
using Separation::SettingError;

namespace {

/// The separator with lists of sources that may come from a scene.
class StreamSeparator {
 public:
  StreamSeparator(const Separation::Settings& settings,
                  const BF::TransformFunctionDatabase& database)
      : separator(settings, database), layout(settings.length, settings.advance) {}
  StreamSeparator(const Separation::Settings& settings, int microphones)
      : separator(settings, microphones), layout(settings.length, settings.advance) {}

  py::tuple process(const py::handle& block, const py::handle& sources) {
    const py::array_t<float> samples = checkedBlock(block);
    const auto count = static_cast<std::size_t>(samples.shape(0));
    list(sources);
    const float* values = samples.data();
    return pushed([&]() -> const Separation::Output& {
      listFrames(separator.samples() + static_cast<std::int64_t>(count));
      return separator.push(values, count);
    });
  }

  py::tuple flush() {
    return pushed([&]() -> const Separation::Output& {
      listFrames(separator.samples() + separator.settings().length);
      return separator.flush();
    });
  }

  const Separation::Separator& base() const { return separator; }

  /// The samples of a block, or of a whole recording, as `process` reads them.
  py::array_t<float> checkedBlock(const py::handle& block) const {
    const auto M = static_cast<py::ssize_t>(separator.microphones());
    std::string expected = "[samples, " + std::to_string(M) + " microphones]";
    const py::array given = Arguments::arrayOf(block, "x");
    if (given.ndim() == 2 && given.shape(1) != M && given.shape(0) == M) {
      expected += " (x.T has it)";
    }
    if (given.ndim() != 2 || given.shape(1) != M) {
      throw SettingError("x", Arguments::shapeText(given), expected);
    }
    return Arguments::floats(given, "x", 2, expected);
  }

 private:
  void list(const py::handle& sources) {
    if (sources.is_none()) return;
    if (py::isinstance<Audio::Scene>(sources)) {
      const auto& given = sources.cast<const Audio::Scene&>();
      if (sources.is(sceneObject)) return;
      given.requireFewAtOnce("sources", *separator.settings().inactiveAsNoise);
      sceneObject = py::reinterpret_borrow<py::object>(sources);
      scene = &given;
      return;
    }
    const std::vector<BF::SourceLocation> given = sourceList(sources);
    separator.setSources(given);
    lastFrom = separator.samples();
    sceneObject = py::object();
    scene = nullptr;
  }

  // A list for each frame that `total` samples complete, as it is at the frame's centre.
  void listFrames(std::int64_t total) {
    const Separation::Settings& s = separator.settings();
    for (; (nextFrame + 1) * s.advance <= total; ++nextFrame) {
      if (!scene) continue;
      const double time = layout.time(nextFrame, s.samplingRate);
      lastFrom = std::max(lastFrom, separator.sourcesAt(nextFrame));
      separator.setSources(sourcesAt(*scene, time, *s.inactiveAsNoise), lastFrom);
    }
  }

  /// (first sample, samples, {id: array}) of what a call gives, which runs without the lock.
  template <class Call>
  py::tuple pushed(const Call& call) {
    const Separation::Output* output = nullptr;
    {
      const py::gil_scoped_release release;
      output = &call();
    }
    py::dict signals;
    for (const Separation::Signal& signal : output->signals) {
      signals[py::int_(signal.id)] = py::array_t<float>(
          static_cast<py::ssize_t>(signal.samples.size()), signal.samples.data());
    }
    return py::make_tuple(output->start, output->count, std::move(signals));
  }

  Separation::Separator separator;
  Audio::FrameLayout layout;
  py::object sceneObject;  // keeps `scene` alive
  const Audio::Scene* scene = nullptr;
  std::int64_t nextFrame = 0;
  std::int64_t lastFrom = 0;
};

std::unique_ptr<StreamSeparator> makeSeparator(const Database& db, const std::string& method,
                                               const py::dict& parameters) {
  if (algorithmNamed(method) == Separation::ALGORITHM_MVDR) {
    throw SettingError("method", "MVDR", "one that separates with a Database");
  }
  return std::make_unique<StreamSeparator>(
      separationSettings(method, parameters, db.rate(), db.length()), db.forEngine());
}

std::unique_ptr<StreamSeparator> makeWithoutDatabase(int microphones, int rate,
                                                     const std::string& method,
                                                     const py::dict& parameters) {
  if (algorithmNamed(method) != BF::BF_ALGORITHM_CMSNR) {
    throw SettingError("db", "missing", "a Database, unless the method is MSNR");
  }
  return std::make_unique<StreamSeparator>(separationSettings(method, parameters, rate, 512),
                                           microphones);
}

}  // namespace

void bindSeparator(py::module_& module) {
  module.def("channels_of", [](const py::handle& x) {
    return Arguments::floats(x, "x", 2, "[samples, microphones]").shape(1);
  });
  py::class_<StreamSeparator>(module, "Separator")
      .def(py::init(&makeSeparator))
      .def(py::init(&makeWithoutDatabase))
      .def("process", &StreamSeparator::process)
      .def("checked", &StreamSeparator::checkedBlock)
      .def("flush", &StreamSeparator::flush)
      .def_property_readonly("samples", [](const StreamSeparator& s) { return s.base().samples(); })
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
