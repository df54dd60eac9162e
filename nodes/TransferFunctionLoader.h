#pragma once

#include <stdexcept>
#include <string>

#include "geometry/TransformFunctionDatabase.h"

/// The database file could not be opened or read; what() names the file.
class TransferFunctionFileError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Reads a transfer-function database file through the file library. The library's records hold the
/// conjugates of the transfer functions; the database holds the transfer functions themselves.
/// Throws TransferFunctionFileError.
BF::TransformFunctionDatabase loadTransferFunctions(const std::string& path);
