#pragma once

#include "fileio/SofaFile.h"
#include "fileio/SofaWriter.h"
#include "geometry/TransformFunctionDatabase.h"

/// Throws DataError unless a method can separate with the file: if it holds impulse responses, or
/// its frequencies reach to less than half a hertz (one alone is 0 Hz).
void requireDatabase(const SofaFile& file);

/// The transfer functions of a file of DataType TF, with its geometry. Throws DataError.
SofaTransferFunctions transferFunctionsOf(const SofaFile& file);

/// The database that the separation would use.
BF::TransformFunctionDatabase databaseOf(const SofaTransferFunctions& data);

/// The same from a file of DataType TF. Throws DataError.
BF::TransformFunctionDatabase databaseOf(const SofaFile& file);
