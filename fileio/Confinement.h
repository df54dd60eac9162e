#pragma once

#include "fileio/SofaLimits.h"

/// Takes from this process, until it ends, everything that reading a file in memory does not need:
/// memory, processor time and file sizes beyond the limits, new privileges, processes, core files,
/// and all system calls but those that manage its own memory, resize the file `answer` and end it.
/// Other calls fail with EPERM, so that libraries that try one go on without. The process also ends
/// when the one that started it does. Throws DataError where the system cannot do that.
void confine(const ReaderLimits& limits, int answer);

/// Processor time is limited to what a head takes until this says that an answer of so many bytes
/// is to be read; never to more than confine() was told.
void allowResponses(std::size_t bytes);
