#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "fileio/SofaWriter.h"
#include "responses/MeasuredResponses.h"

/// The frame that transfer functions are made for.
struct FrameShape {
  int rate = 16000;  ///< Hz, 1 or more
  int length = 512;  ///< samples, even: length / 2 + 1 bins from 0 to rate / 2
};

/// The bins of the frame, so many values per position and microphone.
inline std::size_t binsOf(const FrameShape& frame) {
  return static_cast<std::size_t>(frame.length) / 2 + 1;
}

/// Throws DataError "<what>: …" unless the rate is 1 … 1 000 000 Hz, the length even and 16 … 65536
/// samples, and `responses` (positions times microphones) times the bins can be written.
void checkFrame(const std::string& what, const FrameShape& frame, std::size_t responses);

/// A frame that holds less of the responses' energy than this separates badly.
constexpr double MIN_ENERGY = 0.99;

/// What became of the responses.
struct ImportReport {
  bool copied = false;        ///< rate and bins fitted: every value is the file's own
  bool chosen = false;        ///< the frame's length followed from the responses
  double removedDelay = 0.0;  ///< seconds taken off all responses alike; below 0: added
  double lostEnergy = 0.0;    ///< part of all energy that did not fit the frame, 0 … 1
  double worstLoss = 0.0;     ///< the largest such part of one response
  std::size_t worstPosition = 0;
  std::size_t worstMicrophone = 0;
  std::vector<std::string> warnings;  ///< a sentence each
};

/// Transfer functions of the file's responses at the frame's frequencies f(k) = k · rate / length:
///
///   H(k) = Σ w(n) h(n) e^(−j2πf(k)(n + delay − start) / file's rate)
///
/// where `start` is common to the whole file: the earliest onset less a lead of a 32nd part of the
/// frame, but 16 samples in frames of less than 512 (an eighth of the frame if that is less).
/// What arrives earlier or later than the frame is cut off with a short fade and reported. Sampling
/// the spectrum at these frequencies is the ideal change of the sampling rate; bins above half the
/// file's rate continue the last known one as a pure delay, with a warning. A file of transfer
/// functions that fits already is copied.
///
/// A frame length of 0 is chosen: that of a file of transfer functions of the same rate; otherwise
/// the least power of two, from 20 ms to 600 ms, of which half holds 99.99 % of the energy of all
/// responses, or the largest of these.
///
/// The report is replaced. Throws DataError naming the file.
SofaTransferFunctions importResponses(const SofaFile& file, FrameShape frame, ImportReport& report);

/// The same from responses in memory, which messages call `name`; the positions are left to the
/// caller, and what the report holds already stays. A frame length of 0 is chosen by their energy.
SofaTransferFunctions importResponses(const MeasuredResponses& responses, const std::string& name,
                                      FrameShape frame, ImportReport& report);

/// The longest frame of at most so many seconds whose length is a fast one for the transform: even,
/// without prime factors above 5.
int longestFrame(double seconds, int rate);

/// A part of a whole as "98.76 %".
std::string percentText(double share);
