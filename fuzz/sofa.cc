// Transfer-function files, sound and otherwise, read in every way that the nodes and the command
// read them.
#include <array>
#include <cmath>

#include "fileio/CZelkFileIO.h"
#include "fileio/SofaFile.h"
#include "fuzz/SofaComposer.h"
#include "responses/ResponseImport.h"
#include "responses/ResponseSet.h"
#include "responses/TfdbReport.h"

// What netCDF loses when it refuses a variable is not the reader's.
extern "C" const char* __lsan_default_suppressions() { return "leak:libnetcdf\nleak:libhdf5\n"; }

namespace {

template <class Values>
void requireFinite(const Values& values, const char* law) {
  for (const auto& x : values) require(std::isfinite(std::abs(x)), law);
}

/// Loads a database as a node does; true if it could be read.
bool load(const std::string& path) {
  CZelkFileIO reader;
  PARNIX_TFDBFileHeader header{};
  if (!reader.ReadHeader(path.c_str(), &header)) return false;
  require(header.bins > 0 && header.microphones > 0 && header.sources > 0, "counts are above 0");
  PARNIX_TFDatabase database{};
  TFDatabaseAlloc(&database, header.sources, header.microphones, header.bins);
  const bool good = reader.ReadInfo(path.c_str(), &header, &database.sources, &database.microphones,
                                    &database.bins, true) &&
                    reader.ReadData(path.c_str(), &database.transferFunctions);
  for (int i = 0; good && i < database.sources.count; ++i) {
    const PARNIX_Position& p = database.sources.positions[i];
    requireFinite(std::array{p.x, p.y, p.z}, "a node's positions are finite");
  }
  require(!good || reader.LoadPositionData(path.c_str(), &database.microphones),
          "positions of microphones are read alone");
  TFDatabaseFree(&database);
  return good;
}

void readResponses(const SofaFile& file) {
  if (file.isTransferFunctions()) {
    const auto H = file.readTransferFunctions();
    require(H.size() == file.measurements() * file.receivers() * file.length(), "H is complete");
    for (const auto& h : H) requireFinite(std::array{h.real(), h.imag()}, "H is finite");
  } else {
    requireFinite(file.readImpulseResponses(), "responses are finite");
    requireFinite(file.readDelays(), "delays are finite");
  }
}

void read(const SofaFile& file) {
  require(file.sourcePositions().size() == file.measurements(), "a position per measurement");
  require(file.receiverPositions().size() == file.receivers(), "a position per receiver");
  for (const auto& p : file.sourcePositions()) requireFinite(p, "source positions are finite");
  for (const auto& p : file.receiverPositions()) requireFinite(p, "receiver positions are finite");
  for (const std::string& warning : file.warnings()) require(isShowable(warning), "warnings");
  readResponses(file);
}

void examine(const SofaFile& file) {
  require(!checkText(file).empty(), "there is a report");
  ImportReport report;
  const SofaTransferFunctions data = importResponses(file, {16000, 32}, report);
  requireFinite(data.values, "imported responses are finite");
  const ResponseSet responses(file.path());
  if (responses.samplingRate() > 48000) return;  // a delay may be many samples
  requireFinite(responses.response(0, 0), "responses to convolve with are finite");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const ScratchFile file;
  FuzzedDataProvider choices(data, size);
  const bool sound = SofaComposer(choices, file.path()).isSound();
  bool isRead = false;
  try {
    const SofaFile sofa(file.path());
    read(sofa);
    isRead = true;
    require(load(file.path()) == sofa.isTransferFunctions(), "a node reads what the command reads");
    examine(sofa);
  } catch (const SofaError& error) {
    std::fprintf(stderr, "refused: %s\n", error.what());
    require(isShowable(error.what()), "messages are showable");
  }
  require(isRead || !sound, "a sound file is read");
  return 0;
}
