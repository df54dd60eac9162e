#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

// NOLINTBEGIN(readability-identifier-naming): the names are those of the product family's library.

/// What a transfer-function database file holds, in counts.
struct PARNIX_TFDBFileHeader {
  std::int32_t version;
  std::int32_t samplingRate;  ///< Hz
  std::int32_t bins;
  std::int32_t microphones;
  std::int32_t sources;
};

/// One position in metres: x forward, y left, z up.
struct PARNIX_Position {
  float x;
  float y;
  float z;
  unsigned char reserved[60];
};

/// Positions and their ids.
struct PARNIX_LocationArray {
  int* ids;
  PARNIX_Position* positions;
  int count;
};

/// The database's frequency bins, by number.
struct PARNIX_IntArray {
  std::int32_t capacity;
  std::int32_t count;
  std::int32_t* values;
};

/// Complex values, real and imaginary part in turn. A database's value for bin k, source s and
/// microphone m stands at index (k × sources + s) × microphones + m.
struct PARNIX_ComplexArray {
  float* values;
  std::size_t count;
};

/// A transfer-function database in memory. The values are the conjugates of the transfer functions
/// H of the transform X(k) = Σ x(n) · e^(−j2πkn/L).
struct PARNIX_TFDatabase {
  PARNIX_LocationArray sources;
  PARNIX_LocationArray microphones;
  PARNIX_IntArray bins;
  PARNIX_ComplexArray transferFunctions;
};

// NOLINTEND(readability-identifier-naming)

static_assert(offsetof(PARNIX_TFDBFileHeader, bins) == 8);
static_assert(offsetof(PARNIX_TFDBFileHeader, microphones) == 12);
static_assert(offsetof(PARNIX_TFDBFileHeader, sources) == 16);
static_assert(sizeof(PARNIX_Position) == 72 && offsetof(PARNIX_Position, x) == 0 &&
              offsetof(PARNIX_Position, y) == 4 && offsetof(PARNIX_Position, z) == 8);
static_assert(offsetof(PARNIX_IntArray, count) == 4);

/// Allocates the arrays of a database of the given counts, zero-filled; the caller hands them to
/// ReadInfo and ReadData and ends with TFDatabaseFree. Counts below zero count as zero. Throws
/// std::bad_alloc, leaving an empty database, when there is not that much memory.
void TFDatabaseAlloc(PARNIX_TFDatabase* database, int sources, int microphones, int bins);

/// Releases what TFDatabaseAlloc allocated and leaves an empty database.
void TFDatabaseFree(PARNIX_TFDatabase* database);

/// Allocates an array of positions, zero-filled, with ids 0 … count − 1; the caller ends with
/// LocationArrayFree. A count below zero counts as zero. Throws std::bad_alloc, leaving what
/// LocationArrayFree releases.
void LocationArrayAlloc(PARNIX_LocationArray* array, int count);

/// Releases what LocationArrayAlloc allocated and leaves an empty array.
void LocationArrayFree(PARNIX_LocationArray* array);

/// Reader of transfer-function databases: SOFA files (AES69) of DataType "TF", whose measurements
/// are the source positions and whose receivers are the microphones.
///
/// Every reader returns false on failure and writes the reason as one line on standard error. Files
/// are untrusted: a process of its own reads them under limits (SofaFile.h), counts are checked
/// against the file and against the arrays given before anything is filled, and a database has at
/// most 2 GiB, or what the environment variable ZELK_SSS_MAX_DATABASE says, however small its file.
///
/// ReadHeader reads the whole file and keeps it for ReadInfo and ReadData, so that a file which
/// stays as it is is read once; ReadData lets it go.
class CZelkFileIO {
 public:
  /// Checks the file's structure and fills the header.
  bool ReadHeader(const char* path, PARNIX_TFDBFileHeader* header);

  /// Fills arrays allocated for the header's counts: positions with their ids, and the bins'
  /// numbers. With checkHeader the file's counts must still be the header's.
  bool ReadInfo(const char* path, const PARNIX_TFDBFileHeader* header,
                PARNIX_LocationArray* sources, PARNIX_LocationArray* microphones,
                PARNIX_IntArray* bins, bool checkHeader);

  /// Fills an array allocated for the file's bins × sources × microphones.
  bool ReadData(const char* path, PARNIX_ComplexArray* values);

  /// Fills an array allocated for the file's microphones with their positions.
  bool LoadPositionData(const char* path, PARNIX_LocationArray* microphones);

 private:
  struct OpenDatabase;

  /// The database of this name, as it is kept, or read anew if the file is not the one kept.
  const OpenDatabase& open(const char* path);

  std::shared_ptr<const OpenDatabase> kept;
};
