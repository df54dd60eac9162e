// Raw bytes as a transfer-function file, through the confined reader: the libraries for the format
// may do what they like with them, this process must get a database or one line of reason.
#include "dsp/DataError.h"
#include "fileio/CZelkFileIO.h"
#include "fileio/SofaFile.h"
#include "fuzz/Fuzzing.h"
#include "responses/ResponseSet.h"
#include "responses/TfdbReport.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const ScratchFile scratch;
  scratch.fill(data, size);
  bool isRead = false;
  try {
    const SofaFile file(scratch.path());
    isRead = file.isTransferFunctions();
    require(!checkText(file).empty(), "there is a report");
    const ResponseSet responses(file.path());
    // At a high rate a delay may be many samples.
    if (responses.samplingRate() <= 48000) require(!responses.response(0, 0).empty(), "responses");
  } catch (const DataError& error) {
    require(isShowable(error.what()), "messages are showable");
  }
  CZelkFileIO reader;
  PARNIX_TFDBFileHeader header{};
  bool good = reader.ReadHeader(scratch.path().c_str(), &header);
  if (good) {
    PARNIX_TFDatabase database{};
    TFDatabaseAlloc(&database, header.sources, header.microphones, header.bins);
    good = reader.ReadData(scratch.path().c_str(), &database.transferFunctions);
    TFDatabaseFree(&database);
  }
  require(good == isRead, "a node reads what the command reads");
  return 0;
}
