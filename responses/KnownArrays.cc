#include "responses/KnownArrays.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

const std::vector<KnownArray>& knownArrays() {
  static const std::vector<KnownArray> ARRAYS = {
      {"respeaker-4",
       "ReSpeaker 4-Mic Array for Raspberry Pi",
       {{-0.0405, 0, 0}, {0, 0.0405, 0}, {0.0405, 0, 0}, {0, -0.0405, 0}},
       "1-4",
       4,
       16000},
      {"respeaker-usb-4",
       "ReSpeaker USB 4 Mic Array v2.0",
       {{-0.032, 0, 0}, {0, -0.032, 0}, {0.032, 0, 0}, {0, 0.032, 0}},
       "2-5",
       6,
       16000},
      {"respeaker-6",
       "ReSpeaker 6-Mic Array for Raspberry Pi",
       {{-0.0232, 0.0401, 0},
        {-0.0463, 0, 0},
        {-0.0232, -0.0401, 0},
        {0.0232, -0.0401, 0},
        {0.0463, 0, 0},
        {0.0232, 0.0401, 0}},
       "1-6",
       8,
       16000},
      {"matrix-voice",
       "MATRIX Voice",
       {{0, 0, 0},
        {-0.038133, 0.003576, 0},
        {-0.020980, 0.032043, 0},
        {0.011971, 0.036381, 0},
        {0.035908, 0.013323, 0},
        {0.032805, -0.019767, 0},
        {0.004999, -0.037972, 0},
        {-0.026571, -0.027584, 0}},
       "1-8",
       8,
       48000},
      {"matrix-creator",
       "MATRIX Creator",
       {{0.020091, -0.048504, 0},
        {-0.020091, -0.048504, 0},
        {-0.048504, -0.020091, 0},
        {-0.048504, 0.020091, 0},
        {-0.020091, 0.048504, 0},
        {0.020091, 0.048504, 0},
        {0.048504, 0.020091, 0},
        {0.048504, -0.020091, 0}},
       "1-8",
       8,
       48000},
      {"uma-8",
       "miniDSP UMA-8",
       {{0, 0, 0},
        {0, 0.043, 0},
        {0.037, 0.021, 0},
        {0.037, -0.021, 0},
        {0, -0.043, 0},
        {-0.037, -0.021, 0},
        {-0.037, 0.021, 0}},
       "1-7",
       8,
       48000}};
  return ARRAYS;
}

const KnownArray& knownArray(const std::string& name) {
  const std::vector<KnownArray>& arrays = knownArrays();
  const auto found = std::find_if(arrays.begin(), arrays.end(),
                                  [&](const KnownArray& array) { return array.name == name; });
  if (found != arrays.end()) return *found;
  std::string names;
  for (const KnownArray& array : arrays) names += (names.empty() ? "" : ", ") + array.name;
  throw std::invalid_argument(fmt::format("\"{}\", expected one of {}", name, names));
}
