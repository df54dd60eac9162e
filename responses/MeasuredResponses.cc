#include "responses/MeasuredResponses.h"

#include <fmt/format.h>

#include <algorithm>
#include <complex>

#include "dsp/DataError.h"
#include "dsp/RealFft.h"

namespace {

/// The part of a period that stands for the time before 0.
constexpr std::size_t AHEAD_DIVISOR = 8;
constexpr std::size_t RELATIVE_AHEAD_DIVISOR = 2;  // of responses relative to a microphone

void transformBack(const SofaFile& file, MeasuredResponses& responses) {
  const std::size_t bins = file.length();
  if (bins < 2) {
    throw DataError(
        fmt::format("{}: Data.Real has {} frequency, expected 2 or more to get responses in time",
                    file.path(), bins));
  }
  const std::size_t length = 2 * (bins - 1);
  const std::size_t ahead =
      length / (file.referenceMicrophone() > 0 ? RELATIVE_AHEAD_DIVISOR : AHEAD_DIVISOR);
  const std::vector<std::complex<float>> H = file.readTransferFunctions();
  const std::size_t rows = responses.measurements * responses.receivers;
  responses.length = length;
  responses.values.resize(rows * length);
  Audio::RealFft fft(static_cast<int>(length));
  for (std::size_t row = 0; row < rows; ++row) {
    float* h = responses.values.data() + row * length;
    fft.inverse(H.data() + row * bins, h);
    std::rotate(h, h + (length - ahead), h + length);
  }
  responses.delays.assign(rows, -static_cast<double>(ahead));
}

}  // namespace

MeasuredResponses readMeasuredResponses(const SofaFile& file) {
  MeasuredResponses responses;
  responses.measurements = file.measurements();
  responses.receivers = file.receivers();
  responses.rate = file.samplingRate();
  if (file.isTransferFunctions()) {
    transformBack(file, responses);
  } else {
    responses.length = file.length();
    responses.values = file.readImpulseResponses();
    responses.delays = file.readDelays();
  }
  return responses;
}
