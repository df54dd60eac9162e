#pragma once

#include <functional>
#include <string>

/// Does work on the file of this name in a child process of limited memory and time. Throws
/// SofaError naming the file if the child crashes or exceeds a limit, and SofaError with the same
/// text if the work throws a std::exception. All else that the work does stays in the child.
void tryInChild(const std::string& path, const std::function<void()>& work);

/// Reads a SOFA file in a child process first: the libraries below may crash or run forever on a
/// file made for that. Throws what the reading throws: only a file that was read within the limits
/// is left to the reading proper, which has none.
///
/// withResponses: also read the responses and delays, not just counts and positions.
void tryReading(const std::string& path, bool withResponses);

/// Writes the file of this name in a child process without limits: the library for SOFA files
/// crashes, at the latest when the process ends, after a disk was full. Throws SofaError with the
/// text of the exception that the work threw, or one that names the file.
void writeInChild(const std::string& path, const std::function<void()>& work);
