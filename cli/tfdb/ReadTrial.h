#pragma once

#include <functional>
#include <string>

/// Does work on the file of this name in a child process of limited memory and time. Throws
/// SofaError naming the file if the child crashes or exceeds a limit. What the work throws itself,
/// and all else it does, stays in the child.
void tryInChild(const std::string& path, const std::function<void()>& work);

/// Reads a SOFA file in a child process first: the libraries below may crash or run forever on a
/// file made for that. Errors that reading finds are left to the reading proper.
///
/// withResponses: also read the responses and delays, not just counts and positions.
void tryReading(const std::string& path, bool withResponses);
