#include "bench/Scenes.h"

#include <cmath>
#include <complex>
#include <random>
#include <stdexcept>

#include "bf/CML.h"
#include "bf/CMSNR.h"
#include "bf/Fixed.h"
#include "bf/GJ.h"
#include "bf/GSS.h"
#include "bf/LCMV.h"
#include "geometry/SpeedOfSound.h"

namespace bench {

namespace {

BF::SourceLocation position(int index, int id) {
  const double angle = 2.0 * 3.141592653589793 * index / POSITIONS;
  return {std::cos(angle), std::sin(angle), 0.0, id, true};
}

}  // namespace

BF::Matrix randomMatrix(int rows, int columns, unsigned seed) {
  std::mt19937 generator(seed);
  std::normal_distribution<double> gaussian(0.0, std::sqrt(0.5));
  BF::Matrix result(rows, columns);
  for (int i = 0; i < rows; ++i) {
    for (int j = 0; j < columns; ++j) {
      const double real = gaussian(generator);
      result.setElementAt(i, j, real, gaussian(generator));
    }
  }
  return result;
}

BF::Matrix randomCorrelation(int n, unsigned seed) {
  const BF::Matrix X = randomMatrix(n, 2 * n, seed);
  return X * X.transposed(true) * std::complex<double>(0.5 / n, 0.0) +
         BF::Matrix::I(n) * std::complex<double>(0.01, 0.0);
}

BF::TransformFunctionDatabase randomDatabase(int M) {
  BF::TransformFunctionDatabase database;
  for (int m = 0; m < M; ++m) database.micLocations.emplace_back(0.0, 0.05 * m, 0.0);
  for (int s = 0; s < POSITIONS; ++s) database.sourceLocations.push_back(position(s, s));
  for (int k = 0; k < BINS; ++k) {
    database.transferFunctions.push_back(randomMatrix(M, POSITIONS, 1000 + k));
  }
  return database;
}

std::vector<BF::SourceLocation> sourceList(int N) {
  std::vector<BF::SourceLocation> sources;
  for (int n = 0; n < N; ++n) sources.push_back(position(n * POSITIONS / 8 + 3, n));
  return sources;
}

BF::Matrix randomFrame(int M, unsigned seed) { return randomMatrix(M, BINS, seed); }

std::unique_ptr<BF::BF> makeEngine(int algorithm, int M) {
  std::unique_ptr<BF::BF> engine;
  const auto make = [&]<typename Engine, typename... Settings>(Settings... settings) {
    engine = std::make_unique<Engine>(BINS, SAMPLING_RATE, ::BF::SPEED_OF_SOUND, settings...);
  };
  switch (algorithm) {
    case BF::BF_ALGORITHM_DS:
      make.operator()<BF::DS>();
      break;
    case BF::BF_ALGORITHM_WDS:
      make.operator()<BF::WDS>();
      break;
    case BF::BF_ALGORITHM_NULL:
      make.operator()<BF::Null>();
      break;
    case BF::BF_ALGORITHM_ILSE:
      make.operator()<BF::ILSE>();
      break;
    case BF::BF_ALGORITHM_LCMV:
      make.operator()<BF::LCMV>(true, 0.001);
      break;
    case BF::BF_ALGORITHM_GJ:
      make.operator()<BF::GJ>(true, 0.001);
      break;
    case BF::BF_ALGORITHM_GICA:
      make.operator()<BF::GICA>(true, 0.001, true, 0.001, 0.1, BF::NL_FUNC_TANH);
      break;
    case BF::BF_ALGORITHM_CML:
      make.operator()<BF::CML>(0.01);
      for (int k = 0; k < BINS; ++k) {
        engine->noiseCorrelationMatrices.push_back(randomCorrelation(M, 5000 + k));
      }
      break;
    case BF::BF_ALGORITHM_CMSNR:
      make.operator()<BF::CMSNR>("GEVD", 0.99);
      break;
    default:
      throw std::invalid_argument("no benchmark for this algorithm");
  }
  engine->setTransformFunctionDatabase(randomDatabase(M));
  return engine;
}

}  // namespace bench
