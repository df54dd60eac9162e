#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "fileio/SofaWriter.h"

/// How the delays between two microphones that the transfer functions hold agree with those that
/// the positions of the microphones and sources predict.
struct DelayAgreement {
  std::size_t microphoneA = 0;
  std::size_t microphoneB = 0;
  std::size_t directions = 0;  ///< source positions compared
  double correlation = 0.0;    ///< of found and predicted delays over these, −1 … 1
  double rmsDifference = 0.0;  ///< seconds, found less predicted
  std::size_t example = 0;     ///< the source position with the longest predicted delay
  double foundDelay = 0.0;     ///< seconds by which B is later than A there
  double predictedDelay = 0.0;
};

/// The pair of microphones with the least correlation, among those whose predicted delays vary by
/// a quarter of a sample or more and that have four or more sources; nothing if there is no such
/// pair. Found delays are the maxima of the cross-correlation within what the distance of the two
/// allows (with a head between them, and some channel delay). A few thousand pairs of responses
/// are compared, evenly picked where there are more.
std::optional<DelayAgreement> compareDelays(const SofaTransferFunctions& data);

/// True if responses and positions contradict each other: the correlation is below −0.3.
bool contradicts(const DelayAgreement& agreement);

/// One sentence with the numbers and the example, for a pair that contradicts or one that fits.
std::string describe(const DelayAgreement& agreement, const SofaTransferFunctions& data);
