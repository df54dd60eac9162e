#include "nodes/NodeReports.h"

#include <cxxabi.h>

#include <cstdlib>
#include <iostream>
#include <memory>
#include <sstream>
#include <typeinfo>

namespace {

std::string nodeName(FD::Node& node, const char* type) {
  return "node '" + node.getName() + "' (type " + type + ")";
}

std::string className(const std::exception& fault) {
  const char* const name = typeid(fault).name();
  const std::unique_ptr<char, void (*)(void*)> readable(
      abi::__cxa_demangle(name, nullptr, nullptr, nullptr), std::free);
  return readable ? readable.get() : name;
}

}  // namespace

void reportEngineFault(FD::Node& node, const char* type, int count, const std::exception& fault,
                       const SpectrumMatrix& frame, const BF::BF& engine) {
  std::ostringstream out;
  out << nodeName(node, type) << ", frame " << count << ": " << className(fault)
      << ": the frame has " << frame.nrows() << " microphones and " << frame.ncols() << " bins";
  if (engine.tfDatabase) {
    out << ", the database has " << engine.tfDatabase->micLocations.size() << " microphones and "
        << engine.tfDatabase->transferFunctions.size() << " bins";
  } else if (engine.inputSpectrum.getRowCount() > 0) {
    out << ", the last frame before it had " << engine.inputSpectrum.getRowCount()
        << " microphones";
  }
  if (engine.getBfAlgorithmType() == BF::BF_ALGORITHM_CML) {
    const std::vector<BF::Matrix>& noise = engine.noiseCorrelationMatrices;
    const int M = noise.empty() ? 0 : noise[0].getRowCount();
    out << ", INPUT_NOISE_CM has " << noise.size() << " matrices of " << M << " x " << M;
  }
  out << "; expected the same microphones everywhere and LENGTH/2+1 = " << engine.numFreq
      << " bins\n";
  std::cerr << out.str() << std::flush;
}

void reportEngineFault(FD::Node& node, const char* type, const std::exception& fault,
                       const std::string& expected) {
  std::cerr << nodeName(node, type) + ": " + className(fault) + ": " + expected + "\n"
            << std::flush;
}

void warnOfOtherBins(FD::Node& node, const char* type, const std::string& path,
                     const BF::TransformFunctionDatabase& database, int bins) {
  const std::size_t found = database.transferFunctions.size();
  if (found == static_cast<std::size_t>(bins)) return;
  std::ostringstream out;
  out << nodeName(node, type) << ": " << path << " has " << found
      << " bins, expected LENGTH/2+1 = " << bins << " bins\n";
  std::cerr << out.str() << std::flush;
}
