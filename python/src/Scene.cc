#include <pybind11/stl.h>

#include <cmath>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "geometry/Direction.h"
#include "python/src/Arguments.h"
#include "python/src/Sources.h"
#include "scene/Scene.h"
#include "scene/SceneMoment.h"

namespace py = pybind11;
using Separation::SettingError;

namespace {

BF::SourceLocation sourceAt(int id, double x, double y, double z, bool isTarget) {
  for (const double c : {x, y, z}) {
    if (!std::isfinite(c)) throw SettingError("position", std::to_string(c), "finite metres");
  }
  return asSeparated({x, y, z}, id, isTarget);
}

BF::SourceLocation sourceTowards(int id, double azimuth, double elevation, double distance,
                                 bool isTarget) {
  const BF::Location p = BF::locationOf({azimuth, elevation, distance});
  return sourceAt(id, p.x, p.y, p.z, isTarget);
}

/// speakers: the Source of each name.
Audio::Scene readRttm(const std::string& path, const py::dict& speakers,
                      const std::string& recording) {
  std::vector<Audio::Speaker> list;
  for (const auto& [name, value] : speakers) {
    if (!py::isinstance<BF::SourceLocation>(value)) {
      throw SettingError("speakers[" + py::repr(name).cast<std::string>() + "]",
                         py::repr(value).cast<std::string>(), "a Source");
    }
    const auto& source = value.cast<const BF::SourceLocation&>();
    Audio::SceneSource place;
    place.id = source.id;
    place.track.emplace_back().position = {source.x, source.y, source.z};
    list.push_back({py::str(name).cast<std::string>(), place});
  }
  const py::gil_scoped_release release;
  return Audio::Scene::readRttm(path, list, recording);
}

py::tuple idsOf(const Audio::Scene& scene) {
  std::vector<int> ids;
  for (const Audio::SceneSource& source : scene.sources()) ids.push_back(source.id);
  return py::tuple(py::cast(ids));
}

/// (begin, end) in seconds of a target's ranges; None where it is there always.
py::object activeRanges(const Audio::Scene& scene, int id) {
  for (const Audio::SceneSource& source : scene.sources()) {
    if (source.id != id) continue;
    if (source.always) return py::none();
    std::vector<std::pair<double, double>> ranges;
    for (const Audio::TimeRange& range : source.active) ranges.emplace_back(range.begin, range.end);
    return py::cast(ranges);
  }
  throw SettingError("id", std::to_string(id), "that of a target in the scene");
}

}  // namespace

std::vector<BF::SourceLocation> sourceList(py::handle sources) {
  std::vector<BF::SourceLocation> list;
  if (!py::isinstance<py::sequence>(sources)) {
    throw SettingError("sources", py::repr(sources).cast<std::string>(),
                       "a Scene or a list of Source");
  }
  py::detail::make_caster<BF::SourceLocation> source;  // one for all: it looks up its type
  for (const py::handle entry : py::reinterpret_borrow<py::sequence>(sources)) {
    if (!source.load(entry, false)) {
      throw SettingError("sources[" + std::to_string(list.size()) + "]",
                         py::repr(entry).cast<std::string>(), "a Source");
    }
    list.push_back(py::detail::cast_op<const BF::SourceLocation&>(source));
  }
  return list;
}

void bindScene(py::module_& module) {
  py::class_<BF::SourceLocation>(module, "Source")
      .def(py::init([](int id, double a, double b, double c, bool isDirection, bool isTarget) {
        return isDirection ? sourceTowards(id, a, b, c, isTarget) : sourceAt(id, a, b, c, isTarget);
      }))
      .def_readonly("id", &BF::SourceLocation::id)
      .def_readonly("target", &BF::SourceLocation::flag)
      .def_property_readonly("position", [](const BF::SourceLocation& self) {
        return py::make_tuple(self.x, self.y, self.z);
      });
  py::class_<Audio::Scene>(module, "Scene")
      .def_static("read", &Audio::Scene::read, py::call_guard<py::gil_scoped_release>())
      .def_static("parse", &Audio::Scene::parse)
      .def("at", [](const Audio::Scene& self, double time) { return sourcesAt(self, time); })
      .def_static("from_rttm", &readRttm)
      .def("active", &activeRanges)
      .def_property_readonly("ids", &idsOf)
      .def_property_readonly("noise_ids", [](const Audio::Scene& self) {
        std::vector<int> ids;
        for (const Audio::SceneSource& source : self.noiseSources()) ids.push_back(source.id);
        return py::tuple(py::cast(ids));
      });
}
