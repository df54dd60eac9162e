#include "nodes/TransferFunctionLoader.h"

#include "CZelkFileIO.h"
#include "dsp/DataError.h"

namespace {

/// A database of the file library, released at the end of its scope.
class FileDatabase {
 public:
  FileDatabase(int sources, int microphones, int bins) {
    TFDatabaseAlloc(&records, sources, microphones, bins);
  }
  FileDatabase(const FileDatabase&) = delete;
  FileDatabase& operator=(const FileDatabase&) = delete;
  ~FileDatabase() { TFDatabaseFree(&records); }

  PARNIX_TFDatabase records{};
};

BF::TransformFunctionDatabase converted(const PARNIX_TFDatabase& records) {
  BF::TransformFunctionDatabase database;
  const int nSources = records.sources.count;
  const int nMics = records.microphones.count;
  for (int i = 0; i < nSources; ++i) {
    const PARNIX_Position& p = records.sources.positions[i];
    database.sourceLocations.emplace_back(p.x, p.y, p.z, records.sources.ids[i], true);
  }
  for (int i = 0; i < nMics; ++i) {
    const PARNIX_Position& p = records.microphones.positions[i];
    database.micLocations.emplace_back(p.x, p.y, p.z);
  }
  const float* value = records.transferFunctions.values;  // bin, then source, then microphone
  for (int k = 0; k < records.bins.count; ++k) {
    BF::Matrix H(nMics, nSources);
    for (int s = 0; s < nSources; ++s) {
      for (int m = 0; m < nMics; ++m, value += 2) H.setElementAt(m, s, value[0], -value[1]);
    }
    database.transferFunctions.push_back(std::move(H));
  }
  return database;
}

}  // namespace

BF::TransformFunctionDatabase loadTransferFunctions(const std::string& path) {
  CZelkFileIO reader;
  PARNIX_TFDBFileHeader header{};
  if (!reader.ReadHeader(path.c_str(), &header)) {
    throw DataError("Failed to open TF data file <" + path + ">.");
  }
  FileDatabase file(header.sources, header.microphones, header.bins);
  PARNIX_TFDatabase& records = file.records;
  if (!reader.ReadInfo(path.c_str(), &header, &records.sources, &records.microphones, &records.bins,
                       true) ||
      !reader.ReadData(path.c_str(), &records.transferFunctions)) {
    throw DataError("Failed to read TF data file <" + path + ">.");
  }
  return converted(records);
}
