#include "fileio/SofaAnswer.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "dsp/DataError.h"
#include "fileio/PrintableText.h"
#include "fileio/SofaLimits.h"

namespace {

constexpr std::size_t MAX_REASON = 900;
constexpr std::size_t MAX_TEXT = std::size_t{1} << 16;

/// Adds a · b · c to the sum; false if that is more than a size can say.
bool addProduct(std::size_t& sum, std::size_t a, std::size_t b, std::size_t c) {
  std::size_t product = 0;
  return !__builtin_mul_overflow(a, b, &product) && !__builtin_mul_overflow(product, c, &product) &&
         !__builtin_add_overflow(sum, product, &sum);
}

[[noreturn]] void refuseAnswer(const std::string& what) {
  throw DataError(fmt::format("its reader handed back {}, expected a sound answer", what));
}

template <class Number>
bool allWithin(std::span<const Number> numbers, double most) {
  // False for NaN, too.
  return std::all_of(numbers.begin(), numbers.end(),
                     [most](Number x) { return static_cast<double>(std::abs(x)) <= most; });
}

}  // namespace

std::optional<AnswerLayout> layoutOf(const AnswerHead& head) {
  const bool filled = head.state == AnswerState::HEAD || head.state == AnswerState::RESPONSES;
  const bool full = head.state == AnswerState::RESPONSES;
  const std::size_t M = filled ? head.measurements : 0;
  const std::size_t R = filled ? head.receivers : 0;
  const std::size_t N = full ? head.length : 0;
  const std::size_t delayed = full && head.isTransferFunctions == 0 ? M : 0;
  AnswerLayout layout;
  std::size_t at = layout.sources;
  if (!addProduct(at, M, 3, sizeof(double))) return {};
  layout.microphones = at;
  if (!addProduct(at, R, 3, sizeof(double))) return {};
  layout.delays = at;
  if (!addProduct(at, delayed, R, sizeof(double))) return {};
  layout.values = at;
  const std::size_t parts = head.isTransferFunctions == 0 ? 1 : 2;
  if (!addProduct(layout.valueCount, M, R, N)) return {};
  if (!addProduct(at, layout.valueCount, parts, sizeof(float))) return {};
  layout.valueCount *= parts;
  layout.text = at;
  if (!addProduct(at, head.textBytes, 1, 1)) return {};
  layout.size = at;
  return layout;
}

SofaAnswer::SofaAnswer(AnswerBytes memory, std::size_t limit) : bytes(std::move(memory)) {
  if (bytes.size < sizeof begin) refuseAnswer(fmt::format("{} bytes", bytes.size));
  std::memcpy(&begin, bytes.data.get(), sizeof begin);
  if (begin.magic != AnswerHead::MAGIC) refuseAnswer("no answer");
  const std::optional<AnswerLayout> found = layoutOf(begin);
  if (!found || begin.textBytes > MAX_TEXT || found->size != bytes.size) {
    refuseAnswer(fmt::format("{} bytes that do not fit its counts", bytes.size));
  }
  layout = *found;
  if (begin.state == AnswerState::REFUSED) throw DataError(printable(text(), MAX_REASON));
  if (begin.state == AnswerState::OUT_OF_MEMORY) {
    throw DataError("reading it takes more memory than its size allows, " + EXPECTED_SOUND_FILE);
  }
  if (layout.text > limit) refuseAnswer(fmt::format("{} bytes", layout.text));
  checkCounts();
  checkNumbers();
}

void SofaAnswer::checkCounts() const {
  constexpr std::uint64_t MAX_COUNT = std::numeric_limits<int>::max();
  const bool valid = (begin.state == AnswerState::HEAD || begin.state == AnswerState::RESPONSES) &&
                     begin.isTransferFunctions <= 1 && M() > 0 && M() <= MAX_MEASUREMENTS &&
                     R() > 0 && R() <= MAX_COUNT && begin.length > 0 && begin.length <= MAX_COUNT;
  if (!valid) {
    refuseAnswer(
        fmt::format("{} positions, {} microphones and {} values each", M(), R(), begin.length));
  }
  if (!(begin.samplingRate >= 0.0 && begin.samplingRate <= MAX_RATE)) {
    refuseAnswer(fmt::format("a sampling rate of {} Hz", begin.samplingRate));
  }
  if (begin.referenceMicrophone > R()) {
    refuseAnswer(
        fmt::format("microphone {} of {} as the reference", begin.referenceMicrophone, R()));
  }
  if (begin.energyInFrame != AnswerHead::NOT_STATED &&
      !(begin.energyInFrame >= 0.0 && begin.energyInFrame <= 1.0)) {
    refuseAnswer(fmt::format("{} of the energy in the frame", begin.energyInFrame));
  }
}

void SofaAnswer::checkNumbers() const {
  const auto* places = reinterpret_cast<const double*>(bytes.data.get() + layout.sources);
  // A position relative to the listener is a rotated difference of two positions.
  if (!allWithin(std::span(places, 3 * (M() + R())), 8.0 * MAX_COORDINATE) ||
      !allWithin(delays(), std::numeric_limits<double>::max()) ||
      !allWithin(values(), std::numeric_limits<float>::max())) {
    refuseAnswer("numbers that are not finite");
  }
}

std::vector<BF::Position> SofaAnswer::positions(std::size_t at, std::size_t count) const {
  std::vector<BF::Position> result(count);
  std::memcpy(result.data(), bytes.data.get() + at, count * sizeof(BF::Position));
  return result;
}

std::span<const float> SofaAnswer::values() const {
  return {reinterpret_cast<const float*>(bytes.data.get() + layout.values), layout.valueCount};
}

std::span<const double> SofaAnswer::delays() const {
  return {reinterpret_cast<const double*>(bytes.data.get() + layout.delays),
          (layout.values - layout.delays) / sizeof(double)};
}

std::string SofaAnswer::text() const {
  return {reinterpret_cast<const char*>(bytes.data.get() + layout.text), begin.textBytes};
}

std::vector<std::string> SofaAnswer::warnings() const {
  std::vector<std::string> lines;
  const std::string all = text();
  for (std::size_t at = 0; at < all.size();) {
    const std::size_t end = std::min(all.find('\n', at), all.size());
    lines.push_back(printable(all.substr(at, end - at), MAX_REASON));
    at = end + 1;
  }
  return lines;
}
