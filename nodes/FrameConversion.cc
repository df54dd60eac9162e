#include "nodes/FrameConversion.h"

#include <cmath>
#include <iostream>

#include "matrix/Exceptions.h"

namespace {

/// Row i of Y, narrowed, goes under the id of location i.
void insertSpectra(const BF::Matrix& Y, const std::vector<BF::SourceLocation>& locations,
                   const OutputCheck* check, SpectrumMap& map) {
  for (int i = 0; i < Y.getRowCount(); ++i) {
    auto* spectrum = new SpectrumVector(Y.getColumnCount());
    const FD::ObjectRef owner(spectrum);
    for (int k = 0; k < Y.getColumnCount(); ++k) {
      const std::complex<float> value(Y.getElementAt(i, k));
      if (check) check->report(i, k, value);
      (*spectrum)[k] = value;
    }
    map.insert({locations.at(i).id, owner});
  }
}

bool hasNan(const std::complex<float>& value) {
  return std::isnan(value.real()) || std::isnan(value.imag());
}

bool hasInfinity(const std::complex<float>& value) {
  return std::isinf(value.real()) || std::isinf(value.imag());
}

}  // namespace

void OutputCheck::report(int source, int bin, const std::complex<float>& value) const {
  const bool isNan = hasNan(value);
  if (isNan) write(source, bin, "NAN");
  if (hasInfinity(value) && !(isNan && nanHidesInfinity)) write(source, bin, "INF");
}

void OutputCheck::write(int source, int bin, const char* fault) const {
  std::cout << node << ": Output Spectrum data [" << source << " , " << bin << "] is " << fault
            << ". Please check the parameters." << std::endl;
}

BF::Matrix widened(const SpectrumMatrix& frame) {
  const int rows = static_cast<int>(frame.nrows());
  const int columns = static_cast<int>(frame.ncols());
  BF::Matrix X(rows, columns);
  for (int i = 0; i < rows; ++i) {
    for (int k = 0; k < columns; ++k) X.setElementAt(i, k, std::complex<double>(frame(i, k)));
  }
  return X;
}

void appendLocations(const SourceList& sourceList, bool flag,
                     std::vector<BF::SourceLocation>& locations) {
  for (const FD::ObjectRef& element : sourceList) {
    const auto& source = FD::object_cast<FD::Source>(element);
    locations.emplace_back(source.x, source.y, source.z, source.id, flag);
  }
}

void separateFrame(BF::BF& engine, const SpectrumMatrix& frame,
                   const std::vector<BF::SourceLocation>& locations, const OutputCheck* check,
                   SpectrumMap& map) {
  // The engine would leave further columns out.
  const bool fits = frame.ncols() <= static_cast<std::size_t>(engine.numFreq);
  if (!fits) throw BF::IndexOutOfBoundException();
  BF::Matrix Y;
  engine.updateSources(locations);
  engine.executeBeamForming(widened(frame), Y);
  engine.adaptSeparationMatrices();
  insertSpectra(Y, locations, check, map);
}
