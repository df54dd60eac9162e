#pragma once

#include <vector>

#include "geometry/Location.h"
#include "scene/Scene.h"

/// The first time in seconds, from 0 on, at which the most sources of a scene are active, noise
/// sources included.
double fullestTime(const Audio::Scene& scene);

/// The sources that are active at a time in seconds, as the separation lists them: targets, then
/// noise, which with inactiveAsNoise the other targets follow.
std::vector<BF::SourceLocation> sourcesAt(const Audio::Scene& scene, double time,
                                          bool inactiveAsNoise = false);

/// Targets and noise sources as the separation lists them.
std::vector<BF::SourceLocation> asSeparated(const std::vector<Audio::PlacedSource>& targets,
                                            const std::vector<Audio::PlacedSource>& noise);

/// A source as the separation has it: coordinates reach it in single precision, on which the choice
/// between two positions that are about equally near depends.
BF::SourceLocation asSeparated(const BF::Location& point, int id, bool isTarget);
