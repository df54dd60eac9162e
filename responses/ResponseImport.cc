#include "responses/ResponseImport.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <limits>
#include <numbers>
#include <optional>

#include "dsp/DataError.h"
#include "dsp/RealFft.h"

namespace {

using Complex = std::complex<double>;
using std::numbers::pi;

constexpr int MAX_RATE = 1000000;
constexpr int MIN_LENGTH = 16;
constexpr int MAX_LENGTH = 65536;

/// More values than this are not written to one file (1 GiB).
constexpr std::size_t MAX_VALUES = std::size_t{1} << 27;

/// A response has begun where it reaches this part of its position's peak.
constexpr float ONSET = 0.03F;

constexpr int SHORT_LEAD = 16;            ///< samples at the frame's rate …
constexpr int SHORT_LEADS_PER_FRAME = 8;  ///< … where so many at least are in a frame
constexpr int LONG_LEADS_PER_FRAME = 32;  ///< in a long one
constexpr double FADE_PART = 1.0 / 16;    ///< of the frame
constexpr double UNUSABLE_LOSS = 0.999;

constexpr double MIN_CHOSEN = 0.02;  ///< seconds, of a frame that is chosen
constexpr double MAX_CHOSEN = 0.6;
constexpr double ENERGY_IN_HALF = 0.9999;  ///< of it

/// Relative error of a frequency that does not matter: 0.01 rad at the end of the longest frame.
constexpr double FREQUENCY_TOLERANCE = 5e-8;

/// A transform at the file's rate that meets the frame's frequencies: bin k · step is f(k).
struct Grid {
  int length = 0;
  int step = 1;
};

int largestPrimeFactor(int n) {
  int largest = 1;
  for (int p = 2; p * p <= n; ++p) {
    for (; n % p == 0; n /= p) largest = p;
  }
  return std::max(largest, n);
}

// samplesPerFrame · step must be whole, for the smallest step. Nothing where the fast transform of
// that length takes longer (it does n · p steps for a prime factor p) than summing every bin.
std::optional<Grid> gridFor(double samplesPerFrame, std::size_t bins) {
  const double sums = samplesPerFrame * static_cast<double>(bins);
  const double longest = std::min(sums, static_cast<double>(1 << 24));
  for (int step = 1; samplesPerFrame * step <= longest; ++step) {
    const double exact = samplesPerFrame * step;
    const double whole = std::round(exact);
    if (whole < 1.0 || std::abs(exact - whole) > FREQUENCY_TOLERANCE * exact) continue;
    const int length = static_cast<int>(whole);
    if (whole * largestPrimeFactor(length) > sums) return std::nullopt;
    return Grid{length, step};
  }
  return std::nullopt;
}

/// What the frame's window does to a response.
struct Windowed {
  double energy = 0.0;    ///< of the response
  double lost = 0.0;      ///< of this, what lies outside the frame or in its fades
  std::size_t first = 0;  ///< the first sample in the frame
  std::size_t peak = 0;   ///< the sample of largest size in the frame
};

/// Powers of two between the shortest and the longest frame that may be chosen.
std::vector<int> choices(int rate) {
  std::vector<int> lengths;
  for (int length = MIN_LENGTH; length <= std::min<double>(MAX_LENGTH, MAX_CHOSEN * rate);
       length *= 2) {
    if (length >= MIN_CHOSEN * rate) lengths.push_back(length);
  }
  if (lengths.empty()) lengths.push_back(rate < MIN_LENGTH / MAX_CHOSEN ? MIN_LENGTH : MAX_LENGTH);
  return lengths;
}

/// The earliest time, in samples of the file, at which a response begins; NaN when all are silent.
double earliestOnset(const MeasuredResponses& responses) {
  double earliest = std::numeric_limits<double>::quiet_NaN();
  for (std::size_t m = 0; m < responses.measurements; ++m) {
    // One peak for all microphones: what one hears in a dead channel is noise, not an onset.
    const float* begin = responses.at(m, 0);
    const float* end = begin + responses.receivers * responses.length;
    float peak = 0.0F;
    for (const float* h = begin; h != end; ++h) peak = std::max(peak, std::abs(*h));
    if (peak == 0.0F) continue;
    for (std::size_t r = 0; r < responses.receivers; ++r) {
      const float* h = responses.at(m, r);
      const float* onset = std::find_if(
          h, h + responses.length, [peak](float value) { return std::abs(value) >= ONSET * peak; });
      if (onset == h + responses.length) continue;
      const double time = static_cast<double>(onset - h) + responses.delay(m, r);
      if (!(time >= earliest)) earliest = time;
    }
  }
  return earliest;
}

/// Brings the responses of one file to a frame.
class Importer {
 public:
  Importer(const std::string& filePath, const MeasuredResponses& measured,
           const FrameShape& wantedFrame, ImportReport& importReport)
      : path(filePath),
        responses(measured),
        frame(wantedFrame),
        report(importReport),
        samplesPerFrame(frame.length * responses.rate / frame.rate),
        grid(gridFor(samplesPerFrame, binsOf(frame))),
        buffer(grid ? static_cast<std::size_t>(grid->length)
                    : static_cast<std::size_t>(std::ceil(samplesPerFrame))) {
    if (!grid) return;
    // Whole where the grid is: so no more samples lie in the frame than in the grid.
    samplesPerFrame = static_cast<double>(grid->length) / grid->step;
    fft.emplace(grid->length);
    spectrum.resize(buffer.size() / 2 + 1);
  }

  std::vector<std::complex<float>> run();

  /// The part of the energy of all responses that the frame holds, 0 … 1.
  double energyInFrame();

 private:
  void findStart();
  Windowed transform(std::size_t m, std::size_t r, std::complex<float>* H);
  Windowed window(const float* h, double offset);
  Complex binOf(std::size_t k) const;
  double weight(double time, bool cutBefore, bool cutAfter) const;
  void reportLosses(double all, double lost);
  void warnOfMissingBand();
  void requireFinite(const std::vector<std::complex<float>>& H) const;

  const std::string& path;
  const MeasuredResponses& responses;
  FrameShape frame;
  ImportReport& report;
  double samplesPerFrame;  // of the file
  std::optional<Grid> grid;
  std::optional<Audio::RealFft> fft;
  std::vector<float> buffer;                  // the response's samples in the frame, then zeros
  std::vector<std::complex<float>> spectrum;  // of the buffer, where there is a grid
  double start = 0.0;                         // in samples of the file
  double lead = 0.0;
};

void Importer::findStart() {
  const double onset = earliestOnset(responses);
  if (std::isnan(onset)) {
    throw DataError(fmt::format("{}: all responses are 0, expected some sound", path));
  }
  const int samples = std::max(std::min(SHORT_LEAD, frame.length / SHORT_LEADS_PER_FRAME),
                               frame.length / LONG_LEADS_PER_FRAME);
  lead = samples * responses.rate / frame.rate;
  // A whole number: then whole delays stay whole.
  start = std::floor(onset - lead);
  report.removedDelay = start / responses.rate;
}

// 1 within the frame and 0 outside, with half a cosine period in between where something is cut.
double Importer::weight(double time, bool cutBefore, bool cutAfter) const {
  if (time < 0.0 || time >= samplesPerFrame) return 0.0;
  double x = 1.0;
  if (cutBefore) x = std::min(x, time / (0.5 * lead));
  if (cutAfter) x = std::min(x, (samplesPerFrame - time) / (FADE_PART * samplesPerFrame));
  return 0.5 - 0.5 * std::cos(pi * x);
}

// Puts the part of a response that lies in the frame at the start of the buffer. offset: the time
// of sample 0 from the start of the frame.
Windowed Importer::window(const float* h, double offset) {
  const auto N = static_cast<double>(responses.length);
  const auto energyOf = [](const float* from, const float* to) {
    double sum = 0.0;
    for (; from != to; ++from) sum += static_cast<double>(*from) * *from;
    return sum;
  };
  std::fill(buffer.begin(), buffer.end(), 0.0F);
  const auto first = static_cast<std::size_t>(std::clamp(std::ceil(-offset), 0.0, N));
  const auto last = static_cast<std::size_t>(
      std::clamp(std::ceil(samplesPerFrame - offset), static_cast<double>(first), N));
  const double before = energyOf(h, h + first);
  const double after = energyOf(h + last, h + responses.length);
  double inside = 0.0;
  double kept = 0.0;
  Windowed result;
  result.first = result.peak = first;
  for (std::size_t n = first; n < last; ++n) {
    const double w = weight(static_cast<double>(n) + offset, before > 0.0, after > 0.0);
    const auto value = static_cast<float>(w * h[n]);
    buffer[n - first] = value;
    inside += static_cast<double>(h[n]) * h[n];
    kept += static_cast<double>(value) * value;
    if (std::abs(h[n]) > std::abs(h[result.peak])) result.peak = n;
  }
  result.energy = before + inside + after;
  // Without a cut nothing is lost: the weights are 1, and rounding is no loss.
  if (before > 0.0 || after > 0.0) result.lost = std::max(0.0, result.energy - kept);
  return result;
}

// X(k) = Σ x(n) e^(−j2πkn / samplesPerFrame) over the buffer.
Complex Importer::binOf(std::size_t k) const {
  if (grid) return Complex(spectrum[k * static_cast<std::size_t>(grid->step)]);
  const Complex turn = std::polar(1.0, -2.0 * pi * static_cast<double>(k) / samplesPerFrame);
  Complex phase = 1.0;
  Complex sum = 0.0;
  for (const float x : buffer) {
    sum += static_cast<double>(x) * phase;
    phase *= turn;
  }
  return sum;
}

Windowed Importer::transform(std::size_t m, std::size_t r, std::complex<float>* H) {
  const double offset = responses.delay(m, r) - start;
  const Windowed result = window(responses.at(m, r), offset);
  if (fft) fft->forward(buffer.data(), spectrum.data());
  const double toFirst = offset + static_cast<double>(result.first);
  const auto fromFirst = static_cast<double>(result.peak - result.first);
  const auto lastKnown = static_cast<std::size_t>(0.5 * samplesPerFrame);
  for (std::size_t k = 0; k < binsOf(frame); ++k) {
    const std::size_t known = std::min(k, lastKnown);
    // Above half the file's rate, the last bin is continued by the delay of the response's peak.
    const double delay =
        static_cast<double>(k) * toFirst + static_cast<double>(k - known) * fromFirst;
    H[k] = std::complex<float>(binOf(known) * std::polar(1.0, -2.0 * pi * delay / samplesPerFrame));
  }
  return result;
}

void Importer::warnOfMissingBand() {
  if (frame.rate <= responses.rate * (1.0 + FREQUENCY_TOLERANCE)) return;
  report.warnings.push_back(fmt::format(
      "{}: the sampling rate is {} Hz: nothing is known above {} Hz, where the last known value is "
      "continued as a pure delay (for sound without that band, choose --rate {} or less)",
      path, responses.rate, 0.5 * responses.rate, responses.rate));
}

void Importer::reportLosses(double all, double lost) {
  report.lostEnergy = lost / all;
  const std::string place =
      fmt::format("position {}, microphone {}", report.worstPosition, report.worstMicrophone + 1);
  const std::string shape = fmt::format("a frame of {} samples ({:.1f} ms)", frame.length,
                                        1000.0 * frame.length / frame.rate);
  if (report.worstLoss > UNUSABLE_LOSS) {
    throw DataError(fmt::format(
        "{}: the response of {} lies outside {} that starts at {:.2f} ms, expected responses and "
        "Data.Delay within one frame (a longer --length?)",
        path, place, shape, 1000.0 * report.removedDelay));
  }
  if (report.lostEnergy <= 1.0 - MIN_ENERGY) return;
  report.warnings.push_back(fmt::format(
      "{}: {} holds {} of the responses' energy, at worst {} ({}), expected {} or more: {}", path,
      shape, percentText(1.0 - report.lostEnergy), percentText(1.0 - report.worstLoss), place,
      percentText(MIN_ENERGY),
      report.chosen ? "a longer --length holds more"
                    : "without --length and --latency the import chooses a longer frame"));
}

// Sums of samples near the largest number there is can be larger still.
void Importer::requireFinite(const std::vector<std::complex<float>>& H) const {
  const auto bad = std::find_if_not(H.begin(), H.end(), [](const std::complex<float>& h) {
    return std::isfinite(h.real()) && std::isfinite(h.imag());
  });
  if (bad == H.end()) return;
  const std::size_t row = static_cast<std::size_t>(bad - H.begin()) / binsOf(frame);
  throw DataError(fmt::format(
      "{}: the transfer function of position {}, microphone {} is {} somewhere, expected responses "
      "of less than {:.2g}",
      path, row / responses.receivers, row % responses.receivers + 1, std::abs(*bad),
      std::numeric_limits<float>::max()));
}

double Importer::energyInFrame() {
  findStart();
  double all = 0.0;
  double lost = 0.0;
  for (std::size_t m = 0; m < responses.measurements; ++m) {
    for (std::size_t r = 0; r < responses.receivers; ++r) {
      const Windowed one = window(responses.at(m, r), responses.delay(m, r) - start);
      all += one.energy;
      lost += one.lost;
    }
  }
  return 1.0 - lost / all;
}

std::vector<std::complex<float>> Importer::run() {
  findStart();
  warnOfMissingBand();
  const std::size_t K = binsOf(frame);
  std::vector<std::complex<float>> H(responses.measurements * responses.receivers * K);
  double all = 0.0;
  double lost = 0.0;
  std::size_t silent = 0;
  for (std::size_t m = 0; m < responses.measurements; ++m) {
    for (std::size_t r = 0; r < responses.receivers; ++r) {
      const Windowed one = transform(m, r, H.data() + (m * responses.receivers + r) * K);
      all += one.energy;
      lost += one.lost;
      if (one.energy == 0.0) ++silent;
      if (one.lost > report.worstLoss * one.energy) {
        report.worstLoss = one.lost / one.energy;
        report.worstPosition = m;
        report.worstMicrophone = r;
      }
    }
  }
  reportLosses(all, lost);
  requireFinite(H);
  if (silent > 0) {
    report.warnings.push_back(fmt::format("{}: {} of {} responses are all 0", path, silent,
                                          responses.measurements * responses.receivers));
  }
  return H;
}

// By what half a frame holds: a spectrum per frame is exact for responses that are short beside it,
// and filters that undo them are longer than they are. Longer frames are not tried once one holds
// enough.
int chooseLength(const std::string& path, const MeasuredResponses& responses, int rate) {
  const std::vector<int> lengths = choices(rate);
  for (const int length : lengths) {
    ImportReport report;
    const FrameShape half = {rate, length / 2};
    if (Importer(path, responses, half, report).energyInFrame() >= ENERGY_IN_HALF) {
      return length;
    }
  }
  return lengths.back();
}

}  // namespace

std::string percentText(double share) {
  // Rounded down: a hundred percent means all.
  return fmt::format("{:.4g} %", std::floor(1e4 * share + 1e-6) / 100.0);
}

void checkFrame(const std::string& what, const FrameShape& frame, std::size_t responses) {
  if (frame.rate < 1 || frame.rate > MAX_RATE) {
    throw DataError(
        fmt::format("{}: --rate is {}, expected 1 to {} Hz", what, frame.rate, MAX_RATE));
  }
  if (frame.length < MIN_LENGTH || frame.length > MAX_LENGTH || frame.length % 2 != 0) {
    throw DataError(fmt::format("{}: --length is {}, expected an even number from {} to {}", what,
                                frame.length, MIN_LENGTH, MAX_LENGTH));
  }
  if (responses > MAX_VALUES / binsOf(frame)) {
    throw DataError(fmt::format(
        "{}: {} responses of {} frequencies (--length {}) are {} values, expected at most {}", what,
        responses, binsOf(frame), frame.length, responses * binsOf(frame), MAX_VALUES));
  }
}

int longestFrame(double seconds, int rate) {
  // The limits of a length make of the rest what checkFrame refuses.
  int length =
      static_cast<int>(std::clamp(std::floor(seconds * rate + 1e-9), 0.0, MAX_LENGTH + 1.0));
  while (length >= MIN_LENGTH && (length % 2 != 0 || largestPrimeFactor(length) > 5)) --length;
  return length;
}

SofaTransferFunctions importResponses(const SofaFile& file, FrameShape frame,
                                      ImportReport& report) {
  report = {};
  const std::size_t count = file.measurements() * file.receivers();
  const bool rateFits =
      std::abs(file.samplingRate() - frame.rate) <= FREQUENCY_TOLERANCE * frame.rate;
  const bool fits = file.isTransferFunctions() && rateFits &&
                    (frame.length == 0 || file.length() == binsOf(frame));
  checkFrame(file.path(), {frame.rate, frame.length == 0 ? MIN_LENGTH : frame.length}, count);
  if (fits) {
    report.chosen = frame.length == 0;
    report.copied = true;
    frame.length = 2 * (static_cast<int>(file.length()) - 1);
    checkFrame(file.path(), frame, count);
  }
  for (const std::string& warning : file.warnings()) {
    report.warnings.push_back(fmt::format("{}: {}", file.path(), warning));
  }
  SofaTransferFunctions data;
  if (fits) {
    data.frequencies = binsOf(frame);
    data.values = file.readTransferFunctions();
    data.energyInFrame = file.energyInFrame();
  } else {
    data = importResponses(readMeasuredResponses(file), file.path(), frame, report);
    *data.energyInFrame *= file.energyInFrame().value_or(1.0);
  }
  data.sourcePositions = file.sourcePositions();
  data.receiverPositions = file.receiverPositions();
  data.samplingRate = frame.rate;
  data.referenceMicrophone = file.referenceMicrophone();
  return data;
}

SofaTransferFunctions importResponses(const MeasuredResponses& responses, const std::string& name,
                                      FrameShape frame, ImportReport& report) {
  if (frame.length == 0) {
    report.chosen = true;
    frame.length = chooseLength(name, responses, frame.rate);
  }
  checkFrame(name, frame, responses.measurements * responses.receivers);
  SofaTransferFunctions data;
  data.samplingRate = frame.rate;
  data.frequencies = binsOf(frame);
  data.values = Importer(name, responses, frame, report).run();
  data.energyInFrame = 1.0 - report.lostEnergy;
  return data;
}
