#pragma once

#include <string>

#include "geometry/TransformFunctionDatabase.h"

/// Reads a transfer-function database file through the file library. The library's records hold the
/// conjugates of the transfer functions; the database holds the transfer functions themselves.
/// Throws DataError.
BF::TransformFunctionDatabase loadTransferFunctions(const std::string& path);
