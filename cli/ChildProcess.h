#pragma once

#include <functional>
#include <string>

/// Writes the file of this name in a child process without limits: the library for SOFA files
/// crashes, at the latest when the process ends, after a disk was full. Throws DataError with the
/// text of the exception that the work threw, or one that names the file.
void writeInChild(const std::string& path, const std::function<void()>& work);
