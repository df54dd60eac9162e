#pragma once

#include <pybind11/pybind11.h>

#include <optional>
#include <string>

#include "fileio/SofaWriter.h"
#include "geometry/TransformFunctionDatabase.h"

/// A transfer-function database: what a file of DataType TF holds, and the engine's form of it.
/// Never changed after it was made, so that threads may share it.
class Database {
 public:
  /// Takes the data, whose sampling rate is a whole number of Hz.
  explicit Database(SofaTransferFunctions given);

  const SofaTransferFunctions& data() const { return functions; }
  const BF::TransformFunctionDatabase& forEngine() const { return converted; }
  int rate() const { return static_cast<int>(functions.samplingRate); }
  int length() const { return 2 * (static_cast<int>(functions.frequencies) - 1); }

 private:
  SofaTransferFunctions functions;
  BF::TransformFunctionDatabase converted;
};

void bindDatabase(pybind11::module_& module);
