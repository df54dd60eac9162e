#pragma once

#include "fileio/SofaFile.h"
#include "geometry/TransformFunctionDatabase.h"

/// Throws DataError unless a method can separate with the file: if it holds impulse responses, or
/// its frequencies reach to less than half a hertz (one alone is 0 Hz).
void requireDatabase(const SofaFile& file);

/// The database that the separation would use, from a file of DataType TF. Throws DataError.
BF::TransformFunctionDatabase databaseOf(const SofaFile& file);
