#include "fileio/CZelkFileIO.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <functional>
#include <limits>
#include <new>
#include <span>
#include <string>
#include <vector>

#include "dsp/DataError.h"
#include "fileio/SofaFile.h"

namespace {

int nonNegative(int count) { return std::max(count, 0); }

/// a · b · c, each 0 or more, if that many complex values have a size at all.
std::size_t product(int a, int b, int c) {
  constexpr std::size_t MAX_COUNT =
      std::numeric_limits<std::ptrdiff_t>::max() / (2 * sizeof(float));
  const std::size_t ab = static_cast<std::size_t>(a) * static_cast<std::size_t>(b);
  if (ab != 0 && static_cast<std::size_t>(c) > MAX_COUNT / ab) throw std::bad_alloc();
  return ab * static_cast<std::size_t>(c);
}

/// Runs a reader's body for a file; what it throws becomes one line on standard error and false.
bool reportingErrors(const char* path, const std::function<void()>& body) {
  try {
    body();
    return true;
  } catch (const std::bad_alloc&) {
    std::fprintf(stderr, "%s: there is not enough memory for its contents\n", path);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
  }
  return false;
}

/// What changes when a file does.
using Identity = std::array<std::int64_t, 5>;

Identity identityOf(const std::string& path) {
  struct stat s {};
  if (stat(path.c_str(), &s) != 0) return {};
  return {static_cast<std::int64_t>(s.st_dev), static_cast<std::int64_t>(s.st_ino), s.st_size,
          s.st_mtim.tv_sec, s.st_mtim.tv_nsec};
}

void requireTransferFunctions(const SofaFile& file) {
  if (file.isTransferFunctions()) return;
  throw DataError(fmt::format(
      "{}: attribute DataType is \"FIR\", expected \"TF\" (zelk-sss tfdb import converts it)",
      file.path()));
}

void requireCount(const SofaFile& file, const char* what, std::size_t found, std::size_t expected) {
  if (found == expected) return;
  throw DataError(
      fmt::format("{}: the file holds {} {}, expected {}", file.path(), found, what, expected));
}

void fillPositions(const std::vector<BF::Position>& positions, PARNIX_LocationArray& array) {
  for (std::size_t i = 0; i < positions.size(); ++i) {
    array.ids[i] = static_cast<int>(i);
    array.positions[i].x = static_cast<float>(positions[i][0]);
    array.positions[i].y = static_cast<float>(positions[i][1]);
    array.positions[i].z = static_cast<float>(positions[i][2]);
  }
}

}  // namespace

struct CZelkFileIO::OpenDatabase {
  explicit OpenDatabase(const std::string& path)
      : identity(identityOf(path)), file(readAsFarAsItGoes(path)) {
    requireTransferFunctions(file);
  }

  /// Responses that cannot be read are a fault of ReadData; what comes before is there all the
  /// same.
  SofaFile readAsFarAsItGoes(const std::string& path) {
    try {
      return SofaFile(path);
    } catch (const DataError& error) {
      SofaFile head(path, SofaFile::Part::HEAD);
      faultOfData = error.what();
      return head;
    }
  }

  Identity identity;        // from before the file was read
  std::string faultOfData;  // why the responses were not read; "": they were
  SofaFile file;
};

const CZelkFileIO::OpenDatabase& CZelkFileIO::open(const char* path) {
  const std::string name = path ? path : "";
  if (!kept || kept->file.path() != name || kept->identity != identityOf(name)) {
    kept.reset();
    kept = std::make_shared<const OpenDatabase>(name);
  }
  return *kept;
}

void LocationArrayAlloc(PARNIX_LocationArray* array, int count) {
  *array = {};
  array->count = nonNegative(count);
  array->ids = new int[static_cast<std::size_t>(array->count)];
  array->positions = new PARNIX_Position[static_cast<std::size_t>(array->count)]();
  for (int i = 0; i < array->count; ++i) array->ids[i] = i;
}

void LocationArrayFree(PARNIX_LocationArray* array) {
  delete[] array->ids;
  delete[] array->positions;
  *array = {};
}

void TFDatabaseAlloc(PARNIX_TFDatabase* database, int sources, int microphones, int bins) {
  *database = {};
  const std::size_t count =
      product(nonNegative(sources), nonNegative(microphones), nonNegative(bins));
  try {
    LocationArrayAlloc(&database->sources, sources);
    LocationArrayAlloc(&database->microphones, microphones);
    database->bins.capacity = database->bins.count = nonNegative(bins);
    database->bins.values = new std::int32_t[static_cast<std::size_t>(database->bins.count)]();
    database->transferFunctions.values = new float[2 * count]();
    database->transferFunctions.count = count;
  } catch (...) {
    TFDatabaseFree(database);
    throw;
  }
}

void TFDatabaseFree(PARNIX_TFDatabase* database) {
  LocationArrayFree(&database->sources);
  LocationArrayFree(&database->microphones);
  delete[] database->bins.values;
  delete[] database->transferFunctions.values;
  *database = {};
}

bool CZelkFileIO::ReadHeader(const char* path, PARNIX_TFDBFileHeader* header) {
  return reportingErrors(path, [&] {
    const SofaFile& file = open(path).file;
    header->version = 1;
    header->samplingRate = static_cast<std::int32_t>(std::lround(file.samplingRate()));
    header->bins = static_cast<std::int32_t>(file.length());
    header->microphones = static_cast<std::int32_t>(file.receivers());
    header->sources = static_cast<std::int32_t>(file.measurements());
  });
}

bool CZelkFileIO::ReadInfo(const char* path, const PARNIX_TFDBFileHeader* header,
                           PARNIX_LocationArray* sources, PARNIX_LocationArray* microphones,
                           PARNIX_IntArray* bins, bool checkHeader) {
  return reportingErrors(path, [&] {
    const SofaFile& file = open(path).file;
    if (checkHeader) {
      requireCount(file, "bins", file.length(), static_cast<std::size_t>(header->bins));
      requireCount(file, "microphones", file.receivers(),
                   static_cast<std::size_t>(header->microphones));
      requireCount(file, "sources", file.measurements(), static_cast<std::size_t>(header->sources));
    }
    requireCount(file, "bins", file.length(), static_cast<std::size_t>(bins->count));
    requireCount(file, "microphones", file.receivers(),
                 static_cast<std::size_t>(microphones->count));
    requireCount(file, "sources", file.measurements(), static_cast<std::size_t>(sources->count));
    fillPositions(file.sourcePositions(), *sources);
    fillPositions(file.receiverPositions(), *microphones);
    for (std::int32_t k = 0; k < bins->count; ++k) bins->values[k] = k;
  });
}

bool CZelkFileIO::ReadData(const char* path, PARNIX_ComplexArray* values) {
  return reportingErrors(path, [&] {
    const OpenDatabase& database = open(path);
    if (!database.faultOfData.empty()) throw DataError(database.faultOfData);
    const SofaFile& file = database.file;
    const std::size_t M = file.measurements();
    const std::size_t R = file.receivers();
    const std::size_t N = file.length();
    requireCount(file, "values", M * R * N, values->count);
    const std::span<const float> real = file.values().first(M * R * N);
    const std::span<const float> imag = file.values().last(M * R * N);
    for (std::size_t s = 0; s < M; ++s) {
      for (std::size_t m = 0; m < R; ++m) {
        for (std::size_t k = 0; k < N; ++k) {
          const std::size_t i = (s * R + m) * N + k;
          float* value = values->values + 2 * ((k * M + s) * R + m);
          value[0] = real[i];
          value[1] = -imag[i];
        }
      }
    }
    kept.reset();
  });
}

bool CZelkFileIO::LoadPositionData(const char* path, PARNIX_LocationArray* microphones) {
  return reportingErrors(path, [&] {
    const SofaFile file(path ? path : "", SofaFile::Part::HEAD);
    requireCount(file, "microphones", file.receivers(),
                 static_cast<std::size_t>(microphones->count));
    fillPositions(file.receiverPositions(), *microphones);
  });
}
