#pragma once

#include <complex>
#include <vector>

#include "bf/BF.h"
#include "geometry/Location.h"
#include "nodes/DeclaredNode.h"

/// The way of a frame between the dataflow host's single-precision containers and the engine's
/// double-precision matrices, which all separation nodes share.

/// Appends one location per source of the list (FD::Source objects), with the flag.
/// Throws the host's cast exception when an element is no source.
void appendLocations(const SourceList& sourceList, bool flag,
                     std::vector<BF::SourceLocation>& locations);

/// Reports output values that are not finite, after narrowing, on standard output: a line
/// "<node>: Output Spectrum data [<source> , <bin>] is NAN. Please check the parameters." each, or
/// INF.
class OutputCheck {
 public:
  /// nanAlone: a value with both is reported as NAN alone, else in two lines.
  OutputCheck(const char* nodeType, bool nanAlone) : node(nodeType), nanHidesInfinity(nanAlone) {}

  void report(int source, int bin, const std::complex<float>& value) const;

 private:
  void write(int source, int bin, const char* fault) const;

  const char* node;
  bool nanHidesInfinity;
};

/// The frame in double precision, same shape: a row per microphone, a column per bin.
BF::Matrix widened(const SpectrumMatrix& frame);

/// Separates one frame: the engine's updateSources, executeBeamForming and adaptSeparationMatrices
/// on the frame in double precision, then each output row, narrowed to single precision, into the
/// map under the id of its location. An id that is there already keeps its first entry. check
/// (null: none) sees every value and only reports. Passes on what the engine throws, and throws
/// BF::IndexOutOfBoundException for a frame with more columns than the engine has bins.
void separateFrame(BF::BF& engine, const SpectrumMatrix& frame,
                   const std::vector<BF::SourceLocation>& locations, const OutputCheck* check,
                   SpectrumMap& map);
