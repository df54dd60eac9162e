#pragma once

#include <memory>
#include <vector>

#include "bf/BF.h"

/// What the benchmarks run on: random databases, frames and matrices from fixed seeds.
namespace bench {

constexpr int BINS = 257;
constexpr int SAMPLING_RATE = 16000;
/// Measured source positions, evenly on the unit circle.
constexpr int POSITIONS = 72;

/// Different input frames, taken in turn.
constexpr int FRAMES = 32;
/// Frames before a measurement begins: they build what later ones reuse.
constexpr int FIRST_FRAMES = 4;

/// rows × columns circular complex Gaussian elements of unit variance.
BF::Matrix randomMatrix(int rows, int columns, unsigned seed);

/// Positive-definite n × n matrix: the average of 2·n outer products plus a little of the identity.
BF::Matrix randomCorrelation(int n, unsigned seed);

/// Random transfer functions of POSITIONS positions around M microphones, K = BINS.
BF::TransformFunctionDatabase randomDatabase(int M);

/// N sources at distinct positions of that database, ids 0 … N − 1.
std::vector<BF::SourceLocation> sourceList(int N);

/// A random frame, M × BINS.
BF::Matrix randomFrame(int M, unsigned seed);

/// The engine of an algorithm number with default settings and the database of M microphones.
std::unique_ptr<BF::BF> makeEngine(int algorithm, int M);

}  // namespace bench
