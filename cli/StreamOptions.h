#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <vector>

#include "audio/SeparatedOutput.h"
#include "cli/SeparationSettings.h"
#include "scene/Scene.h"

/// Adds the options of streams without header: --raw for the recording, --raw-output for what is
/// separated.
void addStreamOptions(CLI::App& command, SeparationSettings& settings);

/// Completes the settings after parsing. Throws CLI::ValidationError for a format that cannot be
/// used, and for options of the command that contradict each other.
void applyStreamOptions(const CLI::App& command, SeparationSettings& settings);

/// Whether a name stands for standard input.
bool isStandardInput(const std::string& path);

/// Throws CLI::ValidationError when more than one of the files is standard input.
void refuseSharedInput(const std::vector<std::string>& files);

/// The stream on standard output, with a channel per target of the scene, in its order. Throws
/// DataError when standard output is a terminal or cannot be written.
std::unique_ptr<Audio::SeparatedOutput> openStreamOutput(const SeparationSettings& settings,
                                                         const Audio::Scene& scene);

/// Which source each channel of that stream is, a line.
std::string channelNote(const Audio::Scene& scene);
