#pragma once

#include <string>

#include "pictures/Drawing.h"
#include "scene/Scene.h"

/// The last time that a scene speaks of, in seconds; 0 if it speaks of none.
double sceneEnd(const Audio::Scene& scene);

/// A scene seen from above, front up and left at the left, with the ways of moving sources; and
/// below it a bar for each time at which a source is active, up to `duration` seconds. With
/// duration 0 the bars have no times. Throws DataError when the width in pixels is too small.
Drawing scenePicture(const Audio::Scene& scene, const std::string& title, double duration,
                     int width);
