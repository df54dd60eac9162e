#pragma once

#include <string>
#include <vector>

#include "fileio/SofaWriter.h"
#include "geometry/Position.h"
#include "responses/ResponseImport.h"

using Positions = std::vector<BF::Position>;

/// `count` microphones on a horizontal circle around the origin: the first in front, the others
/// counter-clockwise (to the left). `count` must be 1 or more, the radius above 0.
Positions circularArray(int count, double radius);

/// `count` microphones on the y axis, centred, from right to left. The spacing must be above 0.
Positions linearArray(int count, double spacing);

/// Reads {"microphones": [[x, y, z], …]}: one or more microphones at different places within 100 m.
Positions readMicrophones(const std::string& path);

/// Directions seen from the origin.
struct DirectionGrid {
  double azimuthStep = 5.0;                ///< degrees, above 0 up to 360: 0, step, … below 360
  std::vector<double> elevations = {0.0};  ///< degrees, −90 … 90
  std::vector<double> distances = {1.0};   ///< metres, above 0
};

/// The grid's points: azimuths fastest, then elevations, then distances. At an elevation of ±90
/// there is one point. Throws DataError naming the option.
Positions gridPositions(const DirectionGrid& grid);

/// Transfer functions of spherical waves in a free field to every microphone m, from a source at
/// distance d(m), compared with what a microphone in the array's centre (at distance d(0)) hears:
///
///   H(k) = d(0) / d(m) · e^(−j2πf(k)(d(m) − d(0)) / c), with c = 343 m/s
///
/// Microphones on the near side hear the sound before the centre does: no common delay is added.
/// Throws DataError if a source is within 1 cm of a microphone or of the centre, or the array
/// is so wide that delays reach half a frame.
SofaTransferFunctions freeFieldResponses(const Positions& microphones, const Positions& sources,
                                         const FrameShape& frame);
