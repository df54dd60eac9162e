#pragma once

#include <CLI/CLI.hpp>

#include "scene/SceneFile.h"

/// Adds --source, which says who is where without a scene file, or where those are whom an RTTM
/// file names.
void addSourceOption(CLI::App& command, Audio::SceneChoice& scene);

/// Adds --sources FILE, too.
void addSceneOptions(CLI::App& command, Audio::SceneChoice& scene);

/// Throws CLI::ValidationError unless a scene is given.
void requireScene(const Audio::SceneChoice& scene, const std::string& otherWays = "");
