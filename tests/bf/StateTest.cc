// What an engine keeps from frame to frame is, to the bit, what computing it anew would give; what
// fails changes nothing.
#include <gmock/gmock.h>

#include <functional>
#include <limits>
#include <memory>
#include <vector>

#include "bf/CML.h"
#include "bf/CMSNR.h"
#include "bf/Fixed.h"
#include "bf/GJ.h"
#include "bf/GSS.h"
#include "bf/LCMV.h"
#include "tests/support/CountedMemory.h"
#include "tests/support/Databases.h"

namespace {

using BF::Matrix;
using support::Generator;
using support::SceneSource;

constexpr int BINS = 3;
constexpr int RATE = 16000;
constexpr double SPEED = 343.0;

/// Every list of matrices that an engine's adaptation reads or changes.
std::vector<std::vector<Matrix>> listsOf(const BF::BF& engine) {
  std::vector<std::vector<Matrix>> lists{engine.transferFunctions,
                                         engine.separationMatrices,
                                         {engine.inputSpectrum, engine.outputSpectrum}};
  if (const auto* lcmv = dynamic_cast<const BF::LCMV*>(&engine)) {
    lists.insert(lists.end(), {lcmv->quiescentWeights, lcmv->projectionMatrices});
  }
  if (const auto* gj = dynamic_cast<const BF::GJ*>(&engine)) {
    lists.insert(lists.end(), {gj->quiescentWeights, gj->blockingMatrices, gj->adaptiveWeights});
  }
  if (const auto* cmsnr = dynamic_cast<const BF::CMSNR*>(&engine)) {
    lists.insert(lists.end(), {cmsnr->signalCorrelations, cmsnr->noiseCorrelations});
  }
  return lists;
}

testing::AssertionResult sameLists(const std::vector<Matrix>& a, const std::vector<Matrix>& b) {
  if (a.size() != b.size()) return testing::AssertionFailure() << a.size() << " and " << b.size();
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (!BF::sameBits(a[i], b[i])) return testing::AssertionFailure() << "entry " << i;
  }
  return testing::AssertionSuccess();
}

/// In most frames the scene stays as it is.
void perhapsChange(Generator& random, std::vector<SceneSource>& scene) {
  if (random.chance(0.4)) support::changeScene(random, 4, 9, scene);
}

/// Makes the engine compute everything anew in its next updateSources.
void spoilTransferFunctions(BF::BF& engine) {
  for (Matrix& A : engine.transferFunctions) {
    for (int i = 0; i < A.getRowCount() * A.getColumnCount(); ++i) {
      A.data()[i] = std::numeric_limits<double>::quiet_NaN();
    }
  }
}

using Maker = std::function<std::unique_ptr<BF::BF>()>;

template <typename Engine, typename... Settings>
Maker making(Settings... settings) {
  return [=] { return std::make_unique<Engine>(BINS, RATE, SPEED, settings...); };
}

std::vector<Maker> everyEngine() {
  return {making<BF::DS>(),
          making<BF::WDS>(),
          making<BF::Null>(),
          making<BF::ILSE>(),
          making<BF::LCMV>(true, 0.01),
          making<BF::GJ>(true, 0.01),
          making<BF::GICA>(true, 0.01, true, 0.01, 0.1, BF::NL_FUNC_TANH),
          making<BF::CMSNR>("GEVD", 0.9),
          making<BF::CMSNR>("GSVD", 0.9),
          making<BF::CML>(0.01)};
}

TEST(Reuse, AdaptiveEnginesKeepWhatRecomputationGives) {
  const Maker makers[] = {making<BF::LCMV>(true, 0.5), making<BF::GJ>(true, 0.5),
                          making<BF::GJ>(false, 0.01),
                          making<BF::GICA>(true, 0.5, true, 0.1, 0.1, BF::NL_FUNC_TANH)};
  for (const Maker& make : makers) {
    for (int seed = 0; seed < 20; ++seed) {
      Generator random(seed);
      int M = random.integer(1, 5);
      auto database = support::randomDatabase(random, M, 9, BINS);
      const auto quick = make();
      const auto anew = make();
      std::vector<SceneSource> scene{{1, 2}, {2, 5}};
      for (int frame = 0; frame < 40; ++frame) {
        SCOPED_TRACE(testing::Message() << "algorithm " << quick->getBfAlgorithmType() << ", seed "
                                        << seed << ", frame " << frame);
        if (frame == 20) {  // silence, in which another array takes the place of this one
          for (BF::BF* engine : {quick.get(), anew.get()}) engine->updateSources({});
          M = 6 - M;
          database = support::randomDatabase(random, M, 9, BINS);
          anew->transferFunctions.clear();
          for (BF::BF* engine : {quick.get(), anew.get()}) {
            engine->setTransformFunctionDatabase(database);
            engine->updateSources({});
          }
          ASSERT_TRUE(sameLists(quick->separationMatrices, anew->separationMatrices));
        }
        if (frame % 15 == 0) {  // the same positions, one bin changed
          database.transferFunctions[frame / 15] = random.gaussian(M, 9);
          quick->setTransformFunctionDatabase(database);
          anew->setTransformFunctionDatabase(database);
        }
        perhapsChange(random, scene);
        const auto sources = support::locationsOf(scene, database);
        spoilTransferFunctions(*anew);
        const Matrix input = random.gaussian(M, BINS);
        Matrix output;
        for (BF::BF* engine : {quick.get(), anew.get()}) {
          engine->updateSources(sources);
          engine->executeBeamForming(input, output);
          if (frame % 5 != 4) engine->adaptSeparationMatrices();
        }
        const auto kept = listsOf(*quick);
        const auto expected = listsOf(*anew);
        for (std::size_t i = 0; i < kept.size(); ++i) {
          ASSERT_TRUE(sameLists(kept[i], expected[i])) << "list " << i;
        }
      }
    }
  }
}

/// Takes another formula every 7th call of getBfAlgorithmType, so in the middle of a list of bins
/// too.
class Changing : public BF::Fixed {
 public:
  using Fixed::Fixed;
  int getBfAlgorithmType() const override { return 1 + calls++ / 7 % 4; }
  mutable int calls = 0;
};

TEST(Reuse, FixedEnginesAskForTheFormulaInEveryBin) {
  Generator random(4);
  const auto database = support::randomDatabase(random, 4, 9, BINS);
  Changing quick(BINS, RATE, SPEED);
  quick.setTransformFunctionDatabase(database);
  for (int update = 0; update < 30; ++update) {
    Changing fresh(BINS, RATE, SPEED);
    fresh.calls = quick.calls;
    fresh.setTransformFunctionDatabase(database);
    for (BF::BF* engine : {&quick, &fresh}) {
      engine->updateSources(support::locationsOf({{1, 2}, {2, 5}}, database));
    }
    ASSERT_TRUE(sameLists(quick.separationMatrices, fresh.separationMatrices)) << update;
  }
}

TEST(Reuse, StatelessEnginesKeepWhatAFreshOneGives) {
  const Maker makers[] = {making<BF::DS>(), making<BF::WDS>(), making<BF::Null>(),
                          making<BF::ILSE>(), making<BF::CML>(0.01)};
  for (const Maker& make : makers) {
    Generator random(3);
    auto database = support::randomDatabase(random, 4, 9, BINS);
    const auto quick = make();
    quick->setTransformFunctionDatabase(database);
    std::vector<Matrix> noise;
    for (int k = 0; k < BINS; ++k) noise.push_back(random.gaussian(4, 4));
    std::vector<SceneSource> scene{{1, 2}, {2, 5}};
    for (int frame = 0; frame < 60; ++frame) {
      SCOPED_TRACE(testing::Message()
                   << "algorithm " << quick->getBfAlgorithmType() << ", frame " << frame);
      perhapsChange(random, scene);
      if (frame % 7 == 0) noise[frame % BINS] = random.gaussian(4, 4);
      if (frame % 13 == 12) {  // the same positions, one bin changed
        database.transferFunctions[frame % BINS] = random.gaussian(4, 9);
        quick->setTransformFunctionDatabase(database);
      }
      if (frame % 11 == 0 && frame > 0) {  // whatever somebody else wrote there
        quick->separationMatrices.assign(BINS, Matrix(1, 4));
      }
      const auto fresh = make();
      fresh->setTransformFunctionDatabase(database);
      for (BF::BF* engine : {quick.get(), fresh.get()}) {
        engine->noiseCorrelationMatrices = noise;
        engine->updateSources(support::locationsOf(scene, database));
      }
      ASSERT_TRUE(sameLists(quick->transferFunctions, fresh->transferFunctions));
      ASSERT_TRUE(sameLists(quick->separationMatrices, fresh->separationMatrices));
    }
  }
}

/// vᴴ / ‖v‖² for the generalised eigenvector v of the largest eigenvalue.
Matrix filterOf(const Matrix& A, const Matrix& B) {
  Matrix values;
  Matrix vectors;
  A.generalizedEigenValues(B, values, vectors);
  const Matrix v = vectors.getColumn(values.getMaximumValueIndexInColumn(0));
  return (v * std::complex<double>(1.0 / v.norm().real(), 0.0)).transposed(true);
}

TEST(Reuse, CmsnrMatchesItsDefinitionWhateverItKeeps) {
  constexpr int M = 3;
  constexpr double ALPHA = 0.8;
  Generator random(5);
  const auto database = support::randomDatabase(random, M, 9, BINS);
  BF::CMSNR engine(BINS, RATE, SPEED, "GEVD", ALPHA);
  engine.numMic = M;
  std::vector<SceneSource> scene{{1, 2}, {2, 5}};
  for (int frame = 0; frame < 60; ++frame) {
    SCOPED_TRACE(testing::Message() << "frame " << frame);
    perhapsChange(random, scene);
    const auto sources = support::locationsOf(scene, database);
    engine.updateSources(sources);
    if (frame % 13 == 12) {  // what is kept belongs to other matrices now
      for (Matrix& B : engine.noiseCorrelations) B = B * std::complex<double>(2.0, 0.0);
    }
    const std::vector<Matrix> oldA = engine.signalCorrelations;
    const std::vector<Matrix> oldB = engine.noiseCorrelations;
    const Matrix input = random.gaussian(M, BINS);
    Matrix output;
    engine.executeBeamForming(input, output);
    engine.adaptSeparationMatrices();
    const int N = static_cast<int>(sources.size());
    for (int i = 0; i < BINS * N; ++i) {
      const Matrix x = input.getColumn(i / N);
      const Matrix P = x * x.transposed(true) * std::complex<double>(1.0 - ALPHA, 0.0);
      const std::complex<double> kept(ALPHA, 0.0);
      const bool target = sources[i % N].flag;
      const Matrix A = target ? P + kept * oldA[i] : oldA[i];
      const Matrix B = target ? oldB[i] : P + kept * oldB[i];
      ASSERT_TRUE(BF::sameBits(engine.signalCorrelations[i], A)) << i;
      ASSERT_TRUE(BF::sameBits(engine.noiseCorrelations[i], B)) << i;
      ASSERT_TRUE(BF::sameBits(engine.separationMatrices[i / N].getRow(i % N), filterOf(A, B)))
          << i;
    }
  }
}

TEST(Reuse, FramesAllocateNothingOnceTheSourcesRest) {
  constexpr int M = 8;
  Generator random(6);
  const auto database = support::randomDatabase(random, M, 9, BINS);
  const auto sources = support::locationsOf({{1, 2}, {2, 5}, {3, 7, false}}, database);
  for (const Maker& make : everyEngine()) {
    const auto engine = make();
    engine->setTransformFunctionDatabase(database);
    for (int k = 0; k < BINS; ++k) {
      engine->noiseCorrelationMatrices.push_back(random.hermitian(std::vector<double>(M, 1.0)));
    }
    Matrix output;
    long allocated = 0;
    for (int frame = 0; frame < 1003; ++frame) {
      // New noise statistics in every frame.
      for (Matrix& R : engine->noiseCorrelationMatrices) R.setElementAt(0, 0, 1.0 + frame, 0.0);
      const Matrix input = random.gaussian(M, BINS);
      const long before = allocations;
      engine->updateSources(sources);
      engine->executeBeamForming(input, output);
      engine->adaptSeparationMatrices();
      if (frame >= 3) allocated += allocations - before;
    }
    EXPECT_EQ(allocated, 0) << engine->getBfAlgorithmType();
  }
}

TEST(Failure, LeavesEveryListAsItWas) {
  constexpr int M = 4;
  Generator random(5);
  const auto good = support::randomDatabase(random, M, 9, BINS);
  const auto larger = support::randomDatabase(random, M + 1, 9, BINS);
  auto wrongRows = good, tooFewBins = good, noPositions = good;
  wrongRows.transferFunctions.back() = random.gaussian(M - 1, 9);
  tooFewBins.transferFunctions.pop_back();
  noPositions.sourceLocations.clear();
  for (Matrix& H : noPositions.transferFunctions) H = Matrix(M, 0);
  const auto others = support::locationsOf({{2, 1}, {3, 2}, {1, 0}}, good);
  for (const Maker& make : everyEngine()) {
    const auto engine = make();
    const int type = engine->getBfAlgorithmType();
    SCOPED_TRACE(type);
    const bool adapts = type >= BF::BF_ALGORITHM_LCMV && type != BF::BF_ALGORITHM_CML;
    engine->numMic = M;
    engine->noiseCorrelationMatrices.assign(BINS, Matrix::I(M));
    engine->setTransformFunctionDatabase(good);
    engine->updateSources(support::locationsOf({{1, 2}, {2, 5, false}}, good));
    if (adapts) {
      EXPECT_THROW(engine->adaptSeparationMatrices(), BF::IndexOutOfBoundException) << "no frame";
    }
    Matrix output;
    engine->executeBeamForming(random.gaussian(M, BINS), output);
    engine->adaptSeparationMatrices();
    const auto before = listsOf(*engine);

    const Matrix separated = output;
    EXPECT_THROW(engine->executeBeamForming(random.gaussian(M - 1, BINS), output),
                 BF::MatrixSizeMismatchException);
    EXPECT_THROW(engine->executeBeamForming(random.gaussian(M, BINS - 1), output),
                 BF::IndexOutOfBoundException);
    EXPECT_TRUE(BF::sameBits(output, separated));
    if (adapts) {
      engine->inputSpectrum = before[2][0].getSubmatrix(0, 0, M, BINS - 1);
      EXPECT_THROW(engine->adaptSeparationMatrices(), BF::IndexOutOfBoundException);
      engine->inputSpectrum = before[2][0];
    }
    if (type != BF::BF_ALGORITHM_CMSNR) {  // it has no use for transfer functions
      engine->setTransformFunctionDatabase(wrongRows);
      EXPECT_THROW(engine->updateSources(others), BF::MatrixSizeMismatchException);
      for (const auto* database : {&tooFewBins, &noPositions}) {
        engine->setTransformFunctionDatabase(*database);
        EXPECT_THROW(engine->updateSources(others), BF::IndexOutOfBoundException);
      }
      engine->setTransformFunctionDatabase(good);
    }
    if (type == BF::BF_ALGORITHM_CML) {
      for (const Matrix& wrong : {Matrix::I(3), Matrix(4, 3), Matrix(3, 4), Matrix()}) {
        engine->noiseCorrelationMatrices.back() = wrong;
        EXPECT_THROW(engine->updateSources(others), BF::MatrixSizeMismatchException);
      }
      engine->noiseCorrelationMatrices.pop_back();
      EXPECT_THROW(engine->updateSources(others), BF::IndexOutOfBoundException);
    }
    const auto expectUnchanged = [&] {
      const auto after = listsOf(*engine);
      for (std::size_t i = 0; i < before.size(); ++i) {
        EXPECT_TRUE(sameLists(after[i], before[i])) << "list " << i;
      }
      ASSERT_EQ(engine->sources.size(), 2U);
      EXPECT_EQ(engine->sources[1].id, 2);
    };
    expectUnchanged();

    if (!adapts) continue;
    engine->numMic = M + 1;  // the rows that stay and the last frame have M elements
    engine->setTransformFunctionDatabase(larger);
    if (type != BF::BF_ALGORITHM_CMSNR) {
      EXPECT_THROW(engine->updateSources(others), BF::MatrixSizeMismatchException);
      expectUnchanged();
    }
    engine->updateSources(support::locationsOf({{8, 0}, {9, 4, false}}, larger));
    EXPECT_THROW(engine->adaptSeparationMatrices(), BF::MatrixSizeMismatchException);
  }
}

}  // namespace
