// Transfer-function files, sound and otherwise, as the reader parses them and hands them over, and
// what the command makes of them.
#include <sys/mman.h>

#include <array>
#include <cmath>
#include <iterator>
#include <memory>
#include <vector>

#include "dsp/DataError.h"
#include "fileio/AnswerFile.h"
#include "fileio/CZelkFileIO.h"
#include "fileio/SofaFile.h"
#include "fileio/SofaParser.h"
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

/// What the reader makes of a file and what arrives from it, all in this process, which is
/// instrumented; `database` starts the real reader.
SofaFile parsed(const std::string& path) {
  constexpr std::size_t LIMIT = std::size_t{1} << 28;
  std::ifstream input(path, std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(input)), {});
  const NcFile netcdf(bytes.data(), bytes.size(), LIMIT);
  const int memory = memfd_create("answer", 0);
  try {
    writeAnswer(memory, SofaParser(netcdf, LIMIT), true);
  } catch (const DataError&) {
    close(memory);
    throw;
  }
  const auto size = static_cast<std::size_t>(lseek(memory, 0, SEEK_END));
  const auto answer = std::make_shared<std::vector<std::byte>>(size);
  require(pread(memory, answer->data(), size, 0) == static_cast<ssize_t>(size), "it is read");
  close(memory);
  return SofaFile(path, SofaAnswer({{answer, answer->data()}, size}, LIMIT));
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
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const ScratchFile file;
  FuzzedDataProvider choices(data, size);
  const bool valid = SofaComposer(choices, file.path()).isValid();
  bool isRead = false;
  try {
    const SofaFile sofa = parsed(file.path());
    read(sofa);
    isRead = true;
    examine(sofa);
  } catch (const DataError& error) {
    std::fprintf(stderr, "refused: %s\n", error.what());
    require(isShowable(error.what()), "messages are showable");
  }
  require(isRead || !valid, "a valid file is read");
  return 0;
}
