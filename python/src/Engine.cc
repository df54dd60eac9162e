#include <algorithm>
#include <complex>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "bf/EngineFactory.h"
#include "geometry/SpeedOfSound.h"
#include "python/src/Arguments.h"
#include "python/src/Bindings.h"
#include "python/src/Database.h"
#include "python/src/Parameters.h"
#include "python/src/Sources.h"

namespace py = pybind11;
using Complex = std::complex<double>;
using Separation::SettingError;

namespace {

/// An engine whose calls are checked before they are made, as its own exceptions have no text.
class Engine {
 public:
  Engine(const std::string& method, int bins, int rate, const py::dict& parameters) {
    if (bins < 1) throw SettingError("bins", std::to_string(bins), "1 or more");
    if (rate < 1) throw SettingError("rate", std::to_string(rate), "1 Hz or more");
    engine = BF::makeEngine(algorithmNamed(method), engineKeywords(method, parameters), bins, rate,
                            BF::SPEED_OF_SOUND);
  }

  void setDatabase(const Database& db) {
    const auto bins = static_cast<int>(db.data().frequencies);
    if (bins != engine->numFreq) {
      throw SettingError("database", "for " + std::to_string(bins) + " bins",
                         std::to_string(engine->numFreq));
    }
    engine->setTransformFunctionDatabase(db.forEngine());
    engine->numMic = static_cast<int>(db.data().receiverPositions.size());
  }

  void setMicrophones(int count) {
    if (count < 1) throw SettingError("microphones", std::to_string(count), "1 or more");
    engine->numMic = count;
  }

  void setThreads(int count) {
    if (count < 1 || count > Separation::MAX_THREADS) {
      throw SettingError("threads", std::to_string(count),
                         "1 to " + std::to_string(Separation::MAX_THREADS));
    }
    engine->setThreads(count);
  }

  void setNoise(const py::handle& given) {
    engine->noiseCorrelationMatrices = matricesOf(given, "noise_correlation_matrices", M());
  }

  void updateSources(const py::handle& sources) {
    std::vector<BF::SourceLocation> list = sourceList(sources);
    const bool needsDatabase = engine->getBfAlgorithmType() != BF::BF_ALGORITHM_CMSNR;
    if (needsDatabase && !engine->tfDatabase) {
      throw SettingError("database", "missing", "a Database before sources are listed");
    }
    if (M() < 1) throw SettingError("microphones", "missing", "their count, or a database");
    if (engine->getBfAlgorithmType() == BF::BF_ALGORITHM_CML &&
        engine->noiseCorrelationMatrices.empty()) {
      throw SettingError("noise_correlation_matrices", "missing", "a matrix for each bin");
    }
    const py::gil_scoped_release release;
    engine->updateSources(list);
  }

  py::array_t<Complex> process(const py::handle& spectrum, bool adapts) {
    const std::string expected =
        "[" + std::to_string(M()) + " microphones, " + std::to_string(engine->numFreq) + " bins]";
    const py::array_t<Complex> X = Arguments::complexDoubles(spectrum, "x", 2, expected);
    Arguments::requireShape(X, "x", {M(), engine->numFreq}, expected);
    if (engine->separationMatrices.empty()) {
      throw SettingError("sources", "missing", "a list, by update_sources");
    }
    std::copy_n(X.data(), X.size(), input(X).data());
    {
      const py::gil_scoped_release release;
      engine->executeBeamForming(frame, output);
      if (adapts) engine->adaptSeparationMatrices();
    }
    py::array_t<Complex> Y({output.getRowCount(), output.getColumnCount()});
    std::copy_n(output.data(), Y.size(), Y.mutable_data());
    return Y;
  }

  py::array_t<Complex> separationMatrices() const { return arrayOf(engine->separationMatrices); }
  py::array_t<Complex> transferFunctions() const { return arrayOf(engine->transferFunctions); }
  int bins() const { return engine->numFreq; }
  int rate() const { return engine->samplingRate; }
  int M() const { return engine->numMic; }

 private:
  BF::Matrix& input(const py::array_t<Complex>& X) {
    BF::reshape(frame, static_cast<int>(X.shape(0)), static_cast<int>(X.shape(1)));
    return frame;
  }

  std::vector<BF::Matrix> matricesOf(const py::handle& given, const std::string& argument,
                                     int size) const {
    const std::string expected = "[" + std::to_string(engine->numFreq) + " bins, " +
                                 std::to_string(size) + ", " + std::to_string(size) + "]";
    const py::array_t<Complex> array = Arguments::complexDoubles(given, argument, 3, expected);
    Arguments::requireShape(array, argument, {engine->numFreq, size, size}, expected);
    std::vector<BF::Matrix> matrices(static_cast<std::size_t>(engine->numFreq),
                                     BF::Matrix(size, size));
    const Complex* from = array.data();
    for (BF::Matrix& matrix : matrices) {
      std::copy_n(from, size * size, matrix.data());
      from += size * size;
    }
    return matrices;
  }

  /// [matrices, rows, columns], all matrices having one shape.
  static py::array_t<Complex> arrayOf(const std::vector<BF::Matrix>& matrices) {
    const int rows = matrices.empty() ? 0 : matrices.front().getRowCount();
    const int columns = matrices.empty() ? 0 : matrices.front().getColumnCount();
    py::array_t<Complex> array({static_cast<py::ssize_t>(matrices.size()),
                                static_cast<py::ssize_t>(rows), static_cast<py::ssize_t>(columns)});
    Complex* to = array.mutable_data();
    for (const BF::Matrix& matrix : matrices) to = std::copy_n(matrix.data(), rows * columns, to);
    return array;
  }

  std::unique_ptr<BF::BF> engine;
  BF::Matrix frame;   // storage of the last frame
  BF::Matrix output;  // and of its result
};

}  // namespace

void bindEngine(py::module_& module) {
  py::class_<Engine>(module, "Engine")
      .def(py::init<const std::string&, int, int, const py::dict&>())
      .def("set_database", &Engine::setDatabase)
      .def("set_microphones", &Engine::setMicrophones)
      .def("set_threads", &Engine::setThreads)
      .def("set_noise", &Engine::setNoise)
      .def("update_sources", &Engine::updateSources)
      .def("process", &Engine::process)
      .def_property_readonly("separation_matrices", &Engine::separationMatrices)
      .def_property_readonly("transfer_functions", &Engine::transferFunctions)
      .def_property_readonly("bins", &Engine::bins)
      .def_property_readonly("rate", &Engine::rate)
      .def_property_readonly("microphones", &Engine::M);
}
