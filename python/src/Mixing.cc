#include <pybind11/stl.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "python/src/Arguments.h"
#include "python/src/Bindings.h"
#include "python/src/Database.h"
#include "responses/MixNoise.h"
#include "responses/MixRenderer.h"
#include "responses/ResponseSet.h"
#include "responses/Room.h"
#include "scene/Scene.h"

namespace py = pybind11;
using Separation::SettingError;

namespace {

struct MixOptions {
  std::optional<double> noiseLevel;    // dB
  std::optional<double> diffuseLevel;  // dB
  Reverberation reverberation;
  std::optional<RoomDescription> room;
  unsigned seed = 1;
};

/// Samples of every microphone in turn, of one length once all are there.
struct Mixture {
  std::vector<std::vector<float>> images;  // of the sources, then of diffuse and microphones' noise
  std::size_t values = 0;

  void add(std::vector<float> image) {
    values = std::max(values, image.size());
    images.push_back(std::move(image));
  }
};

void requireLevel(const std::string& name, const std::optional<double>& level) {
  if (!level || (*level >= -200.0 && *level <= 0.0)) return;
  throw SettingError(name, py::str(py::float_(*level)).cast<std::string>(), "-200 to 0 dB");
}

/// Renders as the command does, with the same random numbers for the same seed.
Mixture render(const std::vector<Audio::SceneSource>& sources,
               const std::vector<std::vector<float>>& dry, const Database& db, MixOptions options) {
  options.reverberation.seed = options.seed;
  const ResponseSet responses(db.data(), "db", options.reverberation);
  std::optional<Room> room;
  std::optional<RoomResponses> inRoom;
  if (options.room) {
    options.room->seed = options.seed;
    room.emplace(*options.room, responses.samplingRate());
    inRoom.emplace(*room, responses.microphonePositions());
  }
  const Responses& heard = inRoom ? static_cast<const Responses&>(*inRoom) : responses;
  const MixRenderer renderer(heard);
  Mixture mixture;
  for (std::size_t i = 0; i < sources.size(); ++i) {
    mixture.add(renderer.render(sources[i], dry[i]).samples);
  }
  const std::size_t length = mixture.values / responses.microphones();
  if (options.diffuseLevel) {
    mixture.add(diffuseNoise(heard, length, *options.diffuseLevel, options.seed + 1));
  }
  if (options.noiseLevel) {
    mixture.add(microphoneNoise(mixture.values, *options.noiseLevel, options.seed));
  }
  return mixture;
}

/// dry: one array [samples] for each source and then for each noise source of the scene. Gives the
/// images [samples, microphones] in the same order, then diffuse noise and the microphones' noise.
py::list mix(const Audio::Scene& scene, const py::sequence& dry, const Database& db,
             std::optional<double> noiseLevel, std::optional<double> diffuseLevel, double reverb,
             double directToReverberant, const std::optional<RoomDescription>& room,
             unsigned seed) {
  requireLevel("noise_level", noiseLevel);
  requireLevel("diffuse_level", diffuseLevel);
  if (!(reverb >= 0.0 && reverb <= 5.0)) {
    throw SettingError("reverb", py::str(py::float_(reverb)).cast<std::string>(), "0 to 5 s");
  }
  std::vector<Audio::SceneSource> sources = scene.sources();
  sources.insert(sources.end(), scene.noiseSources().begin(), scene.noiseSources().end());
  if (dry.size() != sources.size()) {
    throw SettingError("dry", std::to_string(dry.size()) + " signals",
                       std::to_string(sources.size()) + ", one for each source of the scene");
  }
  std::vector<std::vector<float>> signals;
  for (const py::handle signal : dry) {
    const std::string name = "dry[" + std::to_string(signals.size()) + "]";
    const py::array_t<float> samples = Arguments::floats(signal, name, 1, "[samples]");
    signals.emplace_back(samples.data(), samples.data() + samples.size());
  }
  Mixture mixture;
  {
    const py::gil_scoped_release release;
    mixture = render(sources, signals, db,
                     {noiseLevel, diffuseLevel, {reverb, directToReverberant, seed}, room, seed});
  }
  const std::size_t M = db.data().receiverPositions.size();
  py::list images;
  for (const std::vector<float>& image : mixture.images) {
    py::array_t<float> array(
        {static_cast<py::ssize_t>(mixture.values / M), static_cast<py::ssize_t>(M)});
    std::fill(std::copy(image.begin(), image.end(), array.mutable_data()),
              array.mutable_data() + array.size(), 0.0F);
    images.append(std::move(array));
  }
  return images;
}

}  // namespace

void bindMixing(py::module_& module) {
  py::class_<RoomDescription>(module, "Room")
      .def(py::init([](std::array<double, 3> size, std::optional<double> t60,
                       std::vector<double> absorption, std::optional<std::array<double, 3>> at,
                       double facing, double jitter) {
        const RoomDescription room = {size, t60, std::move(absorption), at, facing, jitter, 1};
        Room(room, 16000);  // refuses what is no room
        return room;
      }))
      .def("describe",
           [](const RoomDescription& self, int rate) { return Room(self, rate).text(); });
  module.def("mix", &mix);
}
