#include <pybind11/stl.h>

#include <cmath>
#include <optional>
#include <string>

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
  const Audio::Position p = Audio::Direction{azimuth, elevation, distance}.position();
  return sourceAt(id, p.x, p.y, p.z, isTarget);
}

}  // namespace

std::vector<BF::SourceLocation> sourceList(py::handle sources) {
  std::vector<BF::SourceLocation> list;
  if (!py::isinstance<py::sequence>(sources)) {
    throw SettingError("sources", py::repr(sources).cast<std::string>(),
                       "a Scene or a list of Source");
  }
  for (const py::handle entry : py::reinterpret_borrow<py::sequence>(sources)) {
    if (!py::isinstance<BF::SourceLocation>(entry)) {
      throw SettingError("sources[" + std::to_string(list.size()) + "]",
                         py::repr(entry).cast<std::string>(), "a Source");
    }
    list.push_back(entry.cast<const BF::SourceLocation&>());
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
      .def("at", &sourcesAt)
      .def_property_readonly("ids", [](const Audio::Scene& self) {
        std::vector<int> ids;
        for (const Audio::SceneSource& source : self.sources()) ids.push_back(source.id);
        return ids;
      });
}
