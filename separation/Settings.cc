#include "separation/Settings.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <sstream>

namespace Separation {

namespace {

constexpr int MAX_LENGTH = 1 << 24;
constexpr int MAX_RATE = 10'000'000;

template <class Value>
std::string asText(const Value& value) {
  std::ostringstream text;
  text << value;
  return text.str();
}

/// Refuses a value that is not right.
template <class Value>
void require(bool isRight, const std::string& field, const Value& actual,
             const std::string& expected) {
  if (!isRight) throw SettingError(field, asText(actual), expected);
}

void requireShare(const std::string& field, double value) {
  require(value >= 0 && value <= 1, field, value, "0 to 1");
}

std::string shapeOf(const BF::Matrix& matrix) {
  return std::to_string(matrix.getRowCount()) + " x " + std::to_string(matrix.getColumnCount());
}

void checkMethod(const Settings& s) {
  switch (s.method) {
    case BF::BF_ALGORITHM_DS:
    case BF::BF_ALGORITHM_WDS:
    case BF::BF_ALGORITHM_NULL:
    case BF::BF_ALGORITHM_ILSE:
    case BF::BF_ALGORITHM_LCMV:
    case BF::BF_ALGORITHM_GJ:
    case BF::BF_ALGORITHM_GICA:
    case BF::BF_ALGORITHM_CML:
      return;
    case BF::BF_ALGORITHM_CMSNR: {
      const std::string& name = s.parameters.decompositionAlgorithm;
      require(name == "GEVD" || name == "GSVD", "parameters.decompositionAlgorithm", name,
              "GEVD or GSVD");
      return;
    }
    default:
      require(s.method == ALGORITHM_MVDR, "method", static_cast<int>(s.method),
              "DS, WDS, NULL, ILSE, LCMV, GJ, GICA, CML, CMSNR or MVDR");
  }
}

void checkNoise(const Settings& s, int M) {
  const NoiseSettings& noise = s.noise;
  requireShare("noise.forgetting", noise.forgetting);
  require(noise.loading >= 0 && std::isfinite(noise.loading), "noise.loading", noise.loading,
          "0 or more");
  for (const auto& [begin, end] : noise.times) {
    require(begin >= 0 && begin < end, "noise.times", asText(begin) + " to " + asText(end),
            "0 <= begin < end");
  }
  const auto bins = static_cast<std::size_t>(s.length / 2 + 1);
  require(noise.matrices.empty() || noise.times.empty(), "noise.times", noise.times.size(),
          "none beside noise.matrices");
  require(noise.matrices.empty() || noise.matrices.size() == bins, "noise.matrices",
          noise.matrices.size(), asText(bins) + ", one for each bin");
  for (const BF::Matrix& R : noise.matrices) {
    require(R.getRowCount() == M && R.getColumnCount() == M, "noise.matrices", shapeOf(R),
            asText(M) + " x " + asText(M) + ", microphones");
  }
}

void checkRefinement(const Settings& s) {
  const auto requirePositive = [](const std::string& field, double value) {
    require(value > 0 && std::isfinite(value), field, value, "a number above 0");
  };
  requirePositive("mvdrLoading", s.mvdrLoading);
  require(s.mvdrFrames >= 1 && s.mvdrFrames <= MAX_MVDR_FRAMES, "mvdrFrames", s.mvdrFrames,
          "1 to " + asText(MAX_MVDR_FRAMES));
  requirePositive("refinement.loading", s.refinement.loading);
  requirePositive("refinement.memory", s.refinement.memory);
  require(s.passes >= 1, "passes", s.passes, "1 or more");
  require(s.refinement.passes >= 0, "refinement.passes", s.refinement.passes, "0 or more");
  require(s.refinement.passes == 0 || !s.refinement.running, "refinement.passes",
          s.refinement.passes, "0 beside refinement.running");
  requireShare("postMask", s.postMask);
}

}  // namespace

SettingError::SettingError(std::string fieldName, std::string actualValue,
                           std::string expectedValues)
    : std::invalid_argument(fieldName + " is " + actualValue + ", expected " + expectedValues),
      field(std::move(fieldName)),
      actual(std::move(actualValue)),
      expected(std::move(expectedValues)) {}

Settings checkedSettings(const Settings& given, int microphones) {
  Settings s = given;
  require(microphones >= 1, "microphones", microphones, "1 or more");
  checkMethod(s);
  require(s.samplingRate >= 1 && s.samplingRate <= MAX_RATE, "samplingRate", s.samplingRate,
          "1 to " + asText(MAX_RATE) + " Hz");
  require(s.length >= 1 && s.length <= MAX_LENGTH, "length", s.length,
          "1 to " + asText(MAX_LENGTH) + " samples");
  const int S = s.outputLength();
  require(!s.latency || (S >= 2 && S <= s.length), "latency", S,
          "2 to length = " + asText(s.length) + " samples");
  require(s.advance >= 1 && s.advance <= S, "advance", s.advance,
          (s.latency ? "1 to latency = " : "1 to length = ") + asText(S) + " samples");
  require(s.window == "HANN" || s.window == "HAMMING" || s.window == "SINE" ||
              s.window == "RECTANGULAR",
          "window", s.window, "HANN, HAMMING, SINE or RECTANGULAR");
  checkNoise(s, microphones);
  checkRefinement(s);
  require(s.threads >= 1 && s.threads <= MAX_THREADS, "threads", s.threads,
          "1 to " + asText(MAX_THREADS));
  requireShare("projectionForgetting", s.projectionForgetting);
  require(s.referenceMicrophone >= 0 && s.referenceMicrophone < microphones, "referenceMicrophone",
          s.referenceMicrophone, "0 to " + asText(microphones - 1));
  const bool learnsFromSilence = s.method == BF::BF_ALGORITHM_CMSNR;
  if (!s.project) s.project = learnsFromSilence;
  s.level = s.level && learnsFromSilence && *s.project;
  if (!s.inactiveAsNoise) s.inactiveAsNoise = learnsFromSilence;
  if (!s.undoHalfFrameShift) {
    const bool isRefined = s.refinement.running || s.refinement.passes > 0;
    s.undoHalfFrameShift = s.method == BF::BF_ALGORITHM_CML && !*s.project && !isRefined;
  }
  return s;
}

void checkDatabase(const BF::TransformFunctionDatabase& database, int length) {
  const std::size_t M = database.micLocations.size();
  const std::size_t positions = database.sourceLocations.size();
  const auto bins = static_cast<std::size_t>(length / 2 + 1);
  require(M >= 1, "database.micLocations", M, "1 or more");
  require(positions >= 1, "database.sourceLocations", positions, "1 or more");
  require(database.transferFunctions.size() == bins, "database.transferFunctions",
          database.transferFunctions.size(), asText(bins) + " bins, for frames of that length");
  for (const BF::Matrix& H : database.transferFunctions) {
    require(static_cast<std::size_t>(H.getRowCount()) == M &&
                static_cast<std::size_t>(H.getColumnCount()) == positions,
            "database.transferFunctions", shapeOf(H),
            asText(M) + " x " + asText(positions) + ", microphones and positions");
  }
}

void checkResponses(const ImpulseResponses& responses, int samplingRate) {
  const std::size_t P = responses.positions.size();
  require(P >= 1, "responses.positions", P, "1 or more");
  require(responses.microphones >= 1, "responses.microphones", responses.microphones, "1 or more");
  require(responses.taps >= 1, "responses.taps", responses.taps, "1 or more");
  const std::size_t count = P * responses.microphones * responses.taps;
  require(responses.samples.size() == count, "responses.samples", responses.samples.size(),
          asText(count) + " values, positions x microphones x taps");
  require(std::all_of(responses.samples.begin(), responses.samples.end(),
                      [](float value) { return std::isfinite(value); }),
          "responses.samples", "not finite", "finite values");
  require(responses.samplingRate == samplingRate, "responses.samplingRate", responses.samplingRate,
          asText(samplingRate) + " Hz, that of the recording");
}

}  // namespace Separation
