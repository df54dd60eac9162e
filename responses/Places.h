#pragma once

#include <cstddef>

#include "fileio/SofaFile.h"
#include "scene/Scene.h"

/// The angle between two places seen from the origin, in degrees; 0 if one of them is there.
double angleBetween(const Audio::Position& a, const Audio::Position& b);

/// A file's source position with the least distance to a point, as its number from 0; of equals the
/// first, as the separation chooses.
std::size_t nearestSource(const SofaFile& file, const Audio::Position& point);

/// The place of a source position.
Audio::Position placeOf(const SofaFile& file, std::size_t number);
