#pragma once

#include <string>

/// Reads a SOFA file in a child process of limited memory and time first: the libraries below may
/// crash or run forever on a file made for that. Throws SofaError naming the file if the child did
/// not come through. Errors that reading finds are left to the reading proper.
///
/// withResponses: also read the responses and delays, not just counts and positions.
void tryReading(const std::string& path, bool withResponses);
