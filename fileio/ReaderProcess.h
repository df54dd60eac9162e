#pragma once

#include <string>

#include "fileio/SofaAnswer.h"

/// Has the program zelk-sofa-reader, which is installed beside this library, read a SOFA file: all
/// of it or all but the responses. The file is opened here, and only a regular file; the reader can
/// do nothing but read it (Confinement.h) and has ReaderLimits. Returns what it handed back, at
/// most `limit` bytes, checked. Throws DataError that names the file.
SofaAnswer readInProcess(const std::string& path, bool withResponses, std::size_t limit);

/// The same by another program, which gets `seconds` to end (0: what the file's size allows).
SofaAnswer readBy(const std::string& program, const std::string& path, bool withResponses,
                  std::size_t limit, std::size_t seconds);
