#pragma once

#include <string>
#include <vector>

/// Throws DataError when nothing can or may be written at `path`: its folder does not exist, it is
/// itself a folder, it exists and `overwrite` is false, or it is one of the inputs, by whatever
/// name ("" is none). To be called before the work starts; Audio::OutputFile checks again.
void checkOutput(const std::string& path, bool overwrite, const std::vector<std::string>& inputs);

/// Writes a result to the file `path`, or to standard output if that is empty. Throws DataError as
/// Audio::OutputFile does.
void writeResult(const std::string& text, const std::string& path, bool overwrite);

/// Throws DataError when the file at `path`, which may not exist, is one of the inputs.
void refuseInput(const std::string& path, const std::vector<std::string>& inputs);
