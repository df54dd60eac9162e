// Files made to break the reader, and readers that were broken. scripts/fuzz.sh makes many more.

#include <gmock/gmock.h>
#include <netcdf.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <limits>
#include <memory>
#include <random>

#include "CZelkFileIO.h"
#include "dsp/DataError.h"
#include "fileio/ReaderProcess.h"
#include "tests/fileio/NetcdfEdits.h"
#include "tests/fileio/SofaFiles.h"

namespace {

constexpr int M = 3;
constexpr int R = 2;
constexpr int N = 5;

/// A first measurement alone in a piece for four million.
void putHugePiece(int id) {
  int dimensions[3];
  nc_def_dim(id, "M", NC_UNLIMITED, &dimensions[0]);
  nc_def_dim(id, "R", 1, &dimensions[1]);
  nc_def_dim(id, "K", 2, &dimensions[2]);
  int number = 0;
  nc_def_var(id, "Data.Real", NC_FLOAT, 3, dimensions, &number);
  const std::size_t piece[3] = {1 << 22, 1, 2};
  ASSERT_EQ(nc_def_var_chunking(id, number, NC_CHUNKED, piece), NC_NOERR);
  nc_def_var_deflate(id, number, 0, 1, 1);
  const std::size_t start[3] = {0, 0, 0};
  const std::size_t count[3] = {1, 1, 2};
  const float values[2] = {1.0F, 1.0F};
  ASSERT_EQ(nc_put_vara_float(id, number, start, count, values), NC_NOERR);
}

/// Two frequencies, 0 and a million times what one can hear.
void putHighFrequency(int id) {
  defineVariable(id, "Data.Real", NC_FLOAT, {1, 1, 2});
  defineVariable(id, "Data.Imag", NC_FLOAT, {1, 1, 2});
  const double frequencies[2] = {0.0, 2e10};
  nc_put_var_double(id, defineVariable(id, "N", NC_DOUBLE, {2}), frequencies);
}

/// Transfer functions of a shape that the file does not fill.
std::function<void(const std::string&)> claiming(const std::vector<std::size_t>& shape) {
  return building("TF", [=](int id) {
    defineVariable(id, "Data.Real", NC_FLOAT, shape);
    defineVariable(id, "Data.Imag", NC_FLOAT, shape);
  });
}

TEST(BrokenFiles, AreRefusedWithAReasonOnOneLine) {
  namespace fs = std::filesystem;
  struct Case {
    std::function<void(const std::string& path)> breakIt;  // changes or replaces a sound file
    std::string reason;
  };
  const double INF = std::numeric_limits<double>::infinity();
  const auto text = [](int id) {
    for (const char* name : {"Data.Real", "Data.Imag"})
      defineVariable(id, name, NC_CHAR, {M, R, N});
  };
  const auto otherShapes = [](int id) {
    defineVariable(id, "Data.Real", NC_FLOAT, {M, R, N});
    defineVariable(id, "Data.Imag", NC_FLOAT, {M, R, N + 1});
  };
  const auto samples = [](int id) { defineVariable(id, "Data.IR", NC_DOUBLE, {M, R, N}); };
  const auto nothing = [](int) {};
  const auto stating = [](const char* attribute, const std::string& value) {
    return editing([=](int id) {
      ASSERT_EQ(nc_put_att_text(id, NC_GLOBAL, attribute, value.size(), value.c_str()), NC_NOERR);
    });
  };
  const Case cases[] = {
      {[](const std::string& p) { fs::remove(p); }, "there is no such file"},
      {[](const std::string& p) { fs::remove(p), fs::create_directory(p); },
       "is not a regular file"},
      {[](const std::string& p) { fs::remove(p), fs::create_symlink("/dev/zero", p); },
       "is not a regular file"},
      {[](const std::string& p) { std::ofstream(p) << "no netCDF"; },
       "is not a readable netCDF file"},
      {[](const std::string& p) { fs::resize_file(p, fs::file_size(p) / 2); }, ": "},
      {editing([](int id) { nc_del_att(id, NC_GLOBAL, "Conventions"); }),
       "attribute Conventions is \"\", expected \"SOFA\""},
      {building("SOS", nothing), "attribute DataType is \"SOS\", expected \"TF\" or \"FIR\""},
      {building("TF\nall is well \x1B[2J", nothing),
       "attribute DataType is \"TF?all is well ?[2J\", expected \"TF\" or \"FIR\""},
      {building(std::string(5000, 'x'), nothing), "xxx...\", expected"},
      {building("FIR", samples), "variable Data.SamplingRate is missing"},
      {building("TF", nothing), "variable Data.Real is missing"},
      {claiming({M, R}),
       "Data.Real has 2 dimensions, expected 3 (measurements, receivers, frequencies)"},
      {building("TF", otherShapes),
       "Data.Imag has the shape [3, 2, 6], expected that of Data.Real, [3, 2, 5]"},
      {building("TF", text), "variable Data.Real does not hold numbers"},
      {claiming({1, 1, 100000000}), "bytes can hold"},
      {claiming({1, 1, 2000000000}),
       "Data.Real of the shape [1, 1, 2000000000] unfolds to 16000000128 bytes, expected at most "
       "2147483648 bytes in memory (--max-database-size or"},
      {claiming({(1 << 20) + 1, 1, 1}),
       "Data.Real has 1048577 measurements, expected at most 1048576"},
      {building("TF", putHugePiece),
       "variable Data.Real is stored in pieces (chunks) of 4194304 x 1 x 2 values, expected at "
       "most 4194304"},
      {building("TF", putHighFrequency), "N ends at 20000000000 Hz, expected at most 5000000 Hz"},
      {editing(setting("N", {N - 1}, 1e300)), "N(1) is 2000 Hz, expected"},
      {editing(setting("N", {2}, 1.0)), "N(2) is 1 Hz, expected 4000 Hz for even steps"},
      {editing(setting("N", {0}, 10.0)), "N starts at 10 Hz, expected 0"},
      {editing(setting("SourcePosition", {1, 2}, INF)),
       "SourcePosition: value 5 is inf, expected a finite number"},
      {editing(setting("SourcePosition", {1, 2}, -1e10)),
       "SourcePosition: value 5 is -10000000000, expected coordinates from -1000000000 to "
       "1000000000"},
      {editing(setting("Data.Imag", {0, 0, 1}, std::nan(""))),
       "Data.Imag: value 1 is nan, expected a finite number"},
      {editing(setting("Data.Real", {0, 0, 1}, -HUGE_VAL)), "Data.Real: value 1 is -inf, expected"},
      {editing(setting("Data.Imag", {0, 0, 1}, NC_FILL_FLOAT)),
       "Data.Imag: value 1 was never written, expected"},
      {editing(setting("ListenerView", {0, 0}, 0.0)),
       "ListenerView and ListenerUp of measurement 0 are parallel or zero, expected two "
       "directions"},
      {stating("ZelkReferenceMicrophone", "3"),
       "attribute ZelkReferenceMicrophone is 3, expected 1 to 2, the receivers"},
      {stating("ZelkReferenceMicrophone", "left"),
       "attribute ZelkReferenceMicrophone is \"left\", expected a number or none"},
      {stating("ZelkEnergyInFrame", "nan"), "attribute ZelkEnergyInFrame is nan, expected 0 to 1"},
  };
  const TestFolder folder;
  for (const Case& c : cases) {
    const std::string path = folder / "a\nb.sofa";
    fs::remove_all(path);
    writeSofa(path, randomTransferFunctions(M, R, N));
    c.breakIt(path);
    PARNIX_TFDBFileHeader header{};
    testing::internal::CaptureStderr();
    CZelkFileIO reader;
    PARNIX_ComplexArray values{};
    EXPECT_FALSE(reader.ReadHeader(path.c_str(), &header) &&
                 reader.ReadData(path.c_str(), &values));
    const std::string told = testing::internal::GetCapturedStderr();
    EXPECT_THAT(told, testing::StartsWith(folder / "a?b.sofa: "));
    EXPECT_THAT(told, testing::HasSubstr(c.reason));
    EXPECT_EQ(std::count(told.begin(), told.end(), '\n'), 1) << told;
  }
}

/// Every way to reach a file refuses one that was mangled, or reads it; none crashes or hangs.
TEST(BrokenFiles, MangledFilesDoNoHarm) {
  const TestFolder folder;
  const std::string path = folder / "db.sofa";
  writeSofa(path, randomTransferFunctions(M, R, N));
  std::ifstream file(path, std::ios::binary);
  const std::string sound((std::istreambuf_iterator<char>(file)), {});
  std::mt19937 random(1);
  for (int i = 0; i < 45; ++i) {
    std::string bytes = sound;
    if (i % 3 == 0) bytes.resize(random() % bytes.size());
    for (int flips = i % 3 * 10; flips > 0; --flips) {
      bytes[random() % bytes.size()] ^= static_cast<char>(1 << random() % 8);
    }
    std::ofstream(path, std::ios::binary) << bytes;
    PARNIX_TFDBFileHeader header{};
    testing::internal::CaptureStderr();
    const bool good = CZelkFileIO().ReadHeader(path.c_str(), &header);
    const std::string told = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::count(told.begin(), told.end(), '\n'), good ? 0 : 1) << i << ": " << told;
    EXPECT_TRUE(good || told.starts_with(path + ": ")) << told;
  }
}

TEST(DatabaseLimit, IsThatOfTheEnvironmentAndNamedInTheRefusal) {
  const TestFolder folder;
  const std::string path = folder / "db.sofa";
  writeSofa(path, randomTransferFunctions(M, R, N));
  // A head of 80 bytes, M + R positions of 24 and M · R · N values of 8.
  const std::pair<const char*, std::string> cases[] = {
      {"440", ""},
      {"1K", ""},
      {"439",
       path + ": Data.Real of the shape [3, 2, 5] unfolds to 440 bytes, expected at most 439 bytes "
              "in memory (--max-database-size or ZELK_SSS_MAX_DATABASE allows more)"},
      {"65T", "ZELK_SSS_MAX_DATABASE is \"65T\", expected a size from 1 to 2^46 bytes"},
      {"0", "ZELK_SSS_MAX_DATABASE is \"0\", expected"},
      {"4Gi", "ZELK_SSS_MAX_DATABASE is \"4Gi\", expected"},
  };
  for (const auto& [limit, reason] : cases) {
    setenv("ZELK_SSS_MAX_DATABASE", limit, 1);
    PARNIX_TFDBFileHeader header{};
    testing::internal::CaptureStderr();
    EXPECT_EQ(CZelkFileIO().ReadHeader(path.c_str(), &header), reason.empty()) << limit;
    EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::StartsWith(reason));
  }
  unsetenv("ZELK_SSS_MAX_DATABASE");
}

TEST(BrokenReaders, AreReportedByNameOfTheFile) {
  const TestFolder folder;
  const std::string path = folder / "db.sofa";
  const std::string program = folder / "reader";
  std::ofstream(path) << "any";
  const std::pair<const char*, std::string> cases[] = {
      {"kill -SEGV $$", "reading it crashes (Segmentation fault), expected a sound netCDF-4 file"},
      {"kill -XCPU $$", "reading it takes more processor time than its size allows, expected"},
      {"exec sleep 100", "reading it does not end within 1 s, expected"},
      {"exit 5", "its reader " + program + " ends with status 5, expected 0"},
      {"exit 0", "its reader handed back 0 bytes, expected a sound answer"},
      {"head -c 1000 /dev/zero >&3", "its reader handed back no answer, expected"},
      {"sleep 1.5 & exit 0", "its reader handed back 0 bytes"},
      // What it is to know and to have, and nothing else; then it fails.
      {"[ \"$*\" = 'head 99' ] && [ -z \"$HOME$USER\" ] && [ ! -e /proc/$$/fd/4 ] && "
       "[ \"$(cat)\" = any ] && exit 6",
       "its reader " + program + " ends with status 6"},
  };
  for (const auto& [script, reason] : cases) {
    // Written anew each time: a program that still runs is not to be written to.
    std::filesystem::remove(program);
    std::ofstream(program) << "#!/bin/bash\n" << script << "\n";
    std::filesystem::permissions(program, std::filesystem::perms::owner_all);
    EXPECT_THAT([&] { readBy(program, path, false, 99, 1); },
                testing::ThrowsMessage<DataError>(testing::StartsWith(path + ": " + reason)));
  }
  EXPECT_THAT(
      [&] { readBy(folder / "none", path, false, 99, 1); },
      testing::ThrowsMessage<DataError>(testing::HasSubstr("no process could be made for it")));
}

/// A sound answer of 2 positions, 1 microphone and 3 frequencies, and its warning.
std::vector<std::byte> soundAnswer() {
  AnswerHead head;
  head.state = AnswerState::RESPONSES;
  head.isTransferFunctions = 1;
  head.measurements = 2;
  head.receivers = 1;
  head.length = 3;
  head.samplingRate = 16000.0;
  const std::string warning = "odd\x1B[2J\n";
  head.textBytes = warning.size();
  const AnswerLayout layout = layoutOf(head).value();
  std::vector<std::byte> bytes(layout.size);
  std::memcpy(bytes.data(), &head, sizeof head);
  std::memcpy(bytes.data() + layout.text, warning.data(), warning.size());
  return bytes;
}

SofaAnswer answerOf(const std::vector<std::byte>& bytes) {
  const auto kept = std::make_shared<std::vector<std::byte>>(bytes);
  return {{std::shared_ptr<const std::byte>(kept, kept->data()), kept->size()}, 1 << 20};
}

TEST(SofaAnswer, OfALyingReaderIsRefused) {
  const SofaAnswer sound = answerOf(soundAnswer());
  EXPECT_EQ(sound.values().size(), 12U);
  EXPECT_THAT(sound.warnings(), testing::ElementsAre("odd?[2J"));

  // Every change of the head by a number that is wrong at its place, in bytes of the same size and
  // (where the counts claim it) of another.
  constexpr std::uint64_t WRONG[] = {0,       5,          1U << 31,   1ULL << 32, (1ULL << 62) + 1,
                                     1 << 20, ~0ULL >> 1, 1ULL << 63, ~0ULL};
  for (std::size_t at = 0; at < sizeof(AnswerHead); at += sizeof(std::uint64_t)) {
    if (at == offsetof(AnswerHead, samplingRate)) continue;
    if (at == offsetof(AnswerHead, energyInFrame)) continue;
    for (const std::uint64_t wrong : WRONG) {
      std::vector<std::byte> bytes = soundAnswer();
      std::memcpy(bytes.data() + at, &wrong, sizeof wrong);
      if (at == offsetof(AnswerHead, isTransferFunctions) && wrong != 0) continue;  // below
      if (at == offsetof(AnswerHead, referenceMicrophone) && wrong == 0) continue;
      EXPECT_THROW(answerOf(bytes), DataError) << at << " " << wrong;
    }
  }
  const auto spoilt = [](std::size_t at, auto value) {
    std::vector<std::byte> bytes = soundAnswer();
    std::memcpy(bytes.data() + at, &value, sizeof value);
    return bytes;
  };
  const double NaN = std::nan("");
  const std::pair<std::size_t, std::vector<double>> numbers[] = {
      {offsetof(AnswerHead, samplingRate), {NaN, -1.0, 1e8}},
      {offsetof(AnswerHead, energyInFrame), {NaN, -0.1, 1.001}},
      {sizeof(AnswerHead), {NaN, 1e300, -HUGE_VAL}},  // of a position
      {sizeof(AnswerHead) + 64, {NaN, 1e300, -HUGE_VAL}}};
  for (const auto& [at, values] : numbers) {
    for (const double x : values)
      EXPECT_THROW(answerOf(spoilt(at, x)), DataError) << at << " " << x;
  }
  EXPECT_THROW(answerOf(spoilt(offsetof(AnswerHead, isTransferFunctions), std::uint64_t{2})),
               DataError);
  const std::size_t lastValue =
      soundAnswer().size() - std::string("odd\x1B[2J\n").size() - sizeof(float);
  EXPECT_THROW(answerOf(spoilt(lastValue, std::numeric_limits<float>::infinity())), DataError);
  for (const std::size_t size : {0, 8, 63, 64, 100, 1000}) {
    std::vector<std::byte> bytes = soundAnswer();
    bytes.resize(size);
    EXPECT_THROW(answerOf(bytes), DataError) << size;
  }
}

}  // namespace
