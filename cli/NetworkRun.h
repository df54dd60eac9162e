#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "NetworkDocument.h"
#include "dsp/DataError.h"

/// A network could not be run to its end; what() says why, a line for each node that failed.
class RunError : public DataError {
 public:
  using DataError::DataError;
};

/// Loads the plug-ins (once per process): the command's own, then those in the folders of
/// FLOWDESIGNER_PATH. Plug-ins that cannot be loaded are named on standard error. Throws RunError
/// when there are none.
void loadPlugIns();

/// Runs a document with the plug-ins, its outputs printed on `out`. SIGINT, SIGTERM and SIGHUP end
/// the run after the frame at hand: its files are closed, then RunError says so (but see
/// SignalWatch). Throws RunError for every error of the document and of its nodes.
void runDocument(const FD::NetworkDocument& document, const std::vector<std::string>& arguments,
                 std::ostream& out);
