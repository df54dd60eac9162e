#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "bf/GJ.h"
#include "bf/GSS.h"
#include "bf/LCMV.h"
#include "tests/reference/Adaptive.h"
#include "tests/reference/Beamformers.h"
#include "tests/support/ComplexMatrixMatchers.h"
#include "tests/support/Databases.h"

namespace {

using BF::Matrix;
using namespace reference;
using namespace support;

constexpr int BINS = 11;  // some side by side in the lanes of a vector, some left over
constexpr auto TANH = BF::NL_FUNC_TANH;
constexpr auto CUBIC = BF::NL_FUNC_CUBIC;
constexpr auto OFF = static_cast<BF::NlFuncType>(0);

/// An engine with the settings of its reference.
struct Setting {
  std::string name;
  std::unique_ptr<BF::BF> engine;
  std::unique_ptr<reference::AdaptiveReference> oracle;
};

template <class Engine>
std::unique_ptr<BF::BF> steered(bool adaptive, double mu) {
  return std::make_unique<Engine>(BINS, 16000, 343.0, adaptive, mu);
}

Setting gica(const std::string& name, bool lcAdaptive, double mu, bool ssAdaptive, double muSs,
             BF::NlFuncType type) {
  constexpr double SCALE = 0.7;
  return {
      "GICA " + name,
      std::make_unique<BF::GICA>(BINS, 16000, 343.0, lcAdaptive, mu, ssAdaptive, muSs, SCALE, type),
      std::make_unique<reference::GicaReference>(lcAdaptive, mu, ssAdaptive, muSs, SCALE, type)};
}

/// Steps small enough that no trajectory diverges on the random scenes below.
std::vector<Setting> everySetting() {
  std::vector<Setting> all;
  for (const bool adaptive : {false, true}) {
    const double mu = adaptive ? 0.8 : 0.01;
    all.push_back({"LCMV", steered<BF::LCMV>(adaptive, mu),
                   std::make_unique<reference::LcmvReference>(adaptive, mu)});
    all.push_back({"GJ", steered<BF::GJ>(adaptive, mu),
                   std::make_unique<reference::GjReference>(adaptive, mu)});
  }
  all.push_back(gica("fixed steps, tanh", false, 0.01, false, 0.01, TANH));
  all.push_back(gica("fixed steps, cubic", false, 0.01, false, 0.001, CUBIC));
  all.push_back(gica("adaptive steps, tanh", true, 1.0, true, 0.02, TANH));
  all.push_back(gica("adaptive steps, cubic", true, 1.0, true, 0.02, CUBIC));
  all.push_back(gica("no separation", true, 0.5, false, 0.01, OFF));
  return all;
}

std::vector<int> idsOf(const std::vector<SceneSource>& scene) {
  std::vector<int> ids;
  for (const SceneSource& source : scene) ids.push_back(source.id);
  return ids;
}

/// A frame: mostly noise of about unit power, sometimes silent, faint or loud.
Matrix randomFrame(Generator& random, int mics) {
  const double scales[] = {1.0, 1.0, 1.0, 1.0, 0.1, 1e-6, 0.0, 2.0};
  return random.gaussian(mics, BINS) * scales[random.integer(0, 7)];
}

TEST(Adaptive, FollowsItsReferenceThroughChangingScenes) {
  for (int seed = 0; seed < 30; ++seed) {
    for (Setting& setting : everySetting()) {
      Generator random(seed);
      const int M = random.integer(1, 6);
      SCOPED_TRACE(testing::Message() << setting.name << ", seed " << seed << ", " << M << " mics");
      const auto database = randomDatabase(random, M, 9, BINS);
      setting.engine->setTransformFunctionDatabase(database);
      std::vector<SceneSource> scene;
      bool runaway = false;
      for (int frame = 0; frame < 60; ++frame) {
        // Sometimes the list is given again unchanged, sometimes not at all.
        const bool changes = runaway || frame == 0 || random.chance(0.3);
        // The separation term has no bound of its own: a trajectory that runs away starts again.
        if (runaway) {
          scene.clear();
        } else if (changes) {
          changeScene(random, 4, 9, scene);
        }
        if (changes || random.chance(0.2)) {
          setting.engine->updateSources(locationsOf(scene, database));
          setting.oracle->update(idsOf(scene), steeringOf(scene, database));
        }
        const Matrix X = randomFrame(random, M);
        Matrix Y;
        setting.engine->executeBeamForming(X, Y);
        // Outputs that are no product of W and X lead where a consistent engine hardly gets: the
        // inner product in the denominator of the separation step turns negative.
        if (random.chance(0.1)) {
          setting.engine->outputSpectrum = random.gaussian(Y.getRowCount(), BINS) * frobenius(X);
        }
        setting.engine->adaptSeparationMatrices();
        setting.oracle->adapt(fromMatrix(X), fromMatrix(setting.engine->outputSpectrum));
        runaway = false;
        ASSERT_EQ(setting.engine->separationMatrices.size(), static_cast<std::size_t>(BINS));
        for (int k = 0; k < BINS; ++k) {
          const Dense W = setting.oracle->rows(k, M);
          ASSERT_THAT(setting.engine->separationMatrices[k],
                      MatrixNear(toMatrix(W), ROUNDING * frobenius(W)))
              << "frame " << frame << ", bin " << k;
          runaway = runaway || frobenius(W) > 1e6;
        }
        setting.oracle->restartFrom(setting.engine->separationMatrices);
      }
    }
  }
}

/// How far the gain of row n towards source n is from 1 in any bin, relative to what the sum that
/// makes the gain can round to.
double worstGainError(const BF::BF& engine) {
  double worst = 0.0;
  for (std::size_t k = 0; k < engine.separationMatrices.size(); ++k) {
    const Dense W = fromMatrix(engine.separationMatrices[k]);
    const Dense A = fromMatrix(engine.transferFunctions[k]);
    const Dense gains = W * A;
    for (int n = 0; n < gains.rows; ++n) {
      const double error = static_cast<double>(std::abs(gains(n, n) - reference::Real(1)));
      worst = std::max(worst, error / (1.0 + frobenius(W) * frobenius(A)));
    }
  }
  return worst;
}

TEST(Adaptive, KeepsUnitGainWhateverTheStep) {
  for (const double mu : {0.0, 0.05, 1.0, 3.0, -0.5}) {
    for (const bool adaptive : {false, true}) {
      for (const auto& engine : {steered<BF::LCMV>(adaptive, mu), steered<BF::GJ>(adaptive, mu)}) {
        SCOPED_TRACE(testing::Message() << "type " << engine->getBfAlgorithmType() << ", mu " << mu
                                        << (adaptive ? ", normalised" : ""));
        Generator random(7);
        const auto database = randomDatabase(random, 5, 9, BINS);
        engine->setTransformFunctionDatabase(database);
        const auto sources = locationsOf({{1, 0}, {2, 4}, {3, 7}}, database);
        engine->updateSources(sources);
        const std::vector<Matrix> initial = engine->separationMatrices;
        for (int frame = 0; frame < 300; ++frame) {
          Matrix output;
          engine->executeBeamForming(randomFrame(random, 5), output);
          engine->adaptSeparationMatrices();
          ASSERT_LE(worstGainError(*engine), ROUNDING) << "frame " << frame;
          // Steps too large for the input make the rows grow without end; start again in time.
          if (frobenius(output) > 1e9) {
            engine->updateSources({});
            engine->updateSources(sources);
          }
        }
        if (mu == 0.0) {
          EXPECT_THAT(engine->separationMatrices, MatricesNear(initial, ROUNDING));
        }
      }
    }
  }
}

TEST(Gica, DrawsTheDiagonalGainsToOneAndStaysThere) {
  // With W = W − μ·E·Aᴴ gain n moves by the factor 1 − μ·‖a_n‖²: it converges for unit columns.
  Generator random(3);
  auto database = randomDatabase(random, 5, 9, BINS);
  for (Matrix& H : database.transferFunctions) {
    for (int s = 0; s < 9; ++s)
      H.setColumn(s, H.getColumn(s) * (1.0 / H.getColumn(s).frobeniusNorm()));
  }
  for (const bool adaptive : {false, true}) {
    Setting setting = gica("", adaptive, adaptive ? 1.0 : 0.2, true, 0.1, TANH);
    setting.engine->setTransformFunctionDatabase(database);
    setting.engine->updateSources(locationsOf({{1, 0}, {2, 4}, {3, 7}}, database));
    for (Matrix& W : setting.engine->separationMatrices) W = random.gaussian(3, 5);
    ASSERT_GT(worstGainError(*setting.engine), 0.01);
    Matrix output;
    for (int frame = 0; frame < 300; ++frame) {  // silence: only the constraint acts
      setting.engine->executeBeamForming(Matrix(5, BINS), output);
      setting.engine->adaptSeparationMatrices();
    }
    // The guard stops the adaptive step once ‖E·Aᴴ‖² is below 1e-10, with unit columns ‖E‖ < 1e-5.
    EXPECT_LE(worstGainError(*setting.engine), adaptive ? 1e-5 : ROUNDING);
  }
}

TEST(Gss, OnlyGicaHasAnUpdateRule) {
  Generator random(4);
  const auto database = randomDatabase(random, 4, 5, BINS);
  testing::internal::CaptureStdout();
  BF::GSS gss(BINS, 16000, 343.0, true, 0.5, true, 0.25, 2.0, TANH);
  BF::GICA gica(BINS, 16000, 343.0, true, 0.5, true, 0.25, 2.0, TANH);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  testing::internal::CaptureStdout();
  BF::GHDSS ghdss(BINS, 16000, 343.0, true, 0.5, true, 0.25, 2.0, CUBIC);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "GHDSS::GHDSS(numFreq=11, samplingRate=16000, soundSpeed=343.000000, mu=0.500000, "
            "mu_ss=0.250000, scale=2.000000, NlFuncType=2\n");
  for (BF::GSS* engine : {&gss, static_cast<BF::GSS*>(&ghdss)}) {
    engine->setTransformFunctionDatabase(database);
    engine->updateSources(locationsOf({{1, 0}, {2, 4}}, database));
    for (int k = 0; k < BINS; ++k) {
      EXPECT_THAT(
          engine->separationMatrices[k],
          MatrixNear(toMatrix(reference::matchedFilters(fromMatrix(engine->transferFunctions[k]))),
                     ROUNDING));
    }
    Matrix output;
    EXPECT_THROW(engine->adaptSeparationMatrices(), BF::IndexOutOfBoundException) << "no frame";
    engine->executeBeamForming(random.gaussian(4, BINS), output);
    const std::vector<Matrix> W = engine->separationMatrices;
    EXPECT_THROW(engine->adaptSeparationMatrices(), BF::InvalidStateException);
    EXPECT_THAT(engine->separationMatrices, MatricesEq(W));
  }
}

TEST(Lcmv, GivesWeakTransferFunctionsABoundedRow) {
  Generator random(8);
  auto database = randomDatabase(random, 2, 2, BINS);
  for (Matrix& H : database.transferFunctions) H = matrixOf({{0.0, {3e-4, 4e-4}}, {0.0, 0.0}});
  BF::LCMV engine(BINS, 16000, 343.0, false, 0.5);
  engine.setTransformFunctionDatabase(database);
  engine.updateSources(locationsOf({{1, 0}, {2, 1}}, database));
  // ‖a‖² is 0 and 2.5e-7: both below 1e-6, which stands in for them.
  EXPECT_THAT(engine.quiescentWeights[0],
              MatrixNear(matrixOf({{0.0, 0.0}, {{300.0, -400.0}, 0.0}}), 500 * ROUNDING));
  EXPECT_THAT(engine.separationMatrices[0], MatrixEq(engine.quiescentWeights[0]));
  EXPECT_THAT(engine.projectionMatrices[0], MatrixEq(Matrix::I(2)));
  EXPECT_THAT(engine.projectionMatrices[1],
              MatrixNear(matrixOf({{0.75, 0.0}, {0.0, 1.0}}), ROUNDING));
}

}  // namespace
