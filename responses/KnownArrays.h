#pragma once

#include <string>
#include <vector>

#include "responses/ArrayGeometry.h"

/// A microphone array that is sold, as published configurations of source localisation describe it.
struct KnownArray {
  std::string name;      ///< by which options name it
  std::string title;     ///< by which people know it
  Positions positions;   ///< of its microphones, the board lying flat
  std::string channels;  ///< of its recordings, a microphone each in the same order: "2-5"
  int recorded = 0;      ///< channels of its recordings in all
  int samplingRate = 0;  ///< that it usually records at, in Hz
};

const std::vector<KnownArray>& knownArrays();

/// Throws std::invalid_argument with the names that there are.
const KnownArray& knownArray(const std::string& name);
