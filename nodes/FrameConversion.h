#pragma once

#include <complex>
#include <vector>

#include "Map.h"
#include "Matrix.h"
#include "ObjectRef.h"
#include "Vector.h"
#include "bf/BF.h"
#include "geometry/Location.h"

/// The way of a frame between the dataflow host's single-precision containers and the engine's
/// double-precision matrices, which all separation nodes share.

using SpectrumMatrix = FD::Matrix<std::complex<float>>;
using SpectrumVector = FD::Vector<std::complex<float>>;
using SpectrumMap = FD::Map<int, FD::ObjectRef>;

/// Speed of sound handed to the engines, in metres per second.
constexpr float SPEED_OF_SOUND = 343.0F;

/// Appends one location per source of the list (a Vector of FD::Source references), with the flag.
/// Throws the host's cast exception when an element is no source.
void appendLocations(const FD::Vector<FD::ObjectRef>& sourceList, bool flag,
                     std::vector<BF::SourceLocation>& locations);

/// Called for every output value, after narrowing: source index, bin, value.
using OutputCheck = void (*)(int source, int bin, const std::complex<float>& value);

/// Separates one frame: the engine's updateSources, executeBeamForming and adaptSeparationMatrices
/// on the frame in double precision, then each output row, narrowed to single precision, into the
/// map under the id of its location. An id that is there already keeps its first entry. check
/// (null: none) sees every value and only reports. Passes on what the engine throws, and throws
/// BF::IndexOutOfBoundException for a frame with more columns than the engine has bins.
void separateFrame(BF::BF& engine, const SpectrumMatrix& frame,
                   const std::vector<BF::SourceLocation>& locations, OutputCheck check,
                   SpectrumMap& map);

/// Whether a part of the value is NaN, and whether a part is infinite.
bool hasNan(const std::complex<float>& value);
bool hasInfinity(const std::complex<float>& value);

/// Writes "<node>: Output Spectrum data [<source> , <bin>] is <fault>. Please check the
/// parameters." as one line on standard output.
void reportOutputFault(const char* node, int source, int bin, const char* fault);
