#include "cli/tfdb/TfdbCommands.h"

#include <gmock/gmock.h>
#include <netcdf.h>

#include <sys/resource.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <new>

#include "cli/tfdb/ReadTrial.h"
#include "fileio/SofaFile.h"
#include "tests/fileio/SofaFiles.h"

namespace {

using testing::HasSubstr;

struct Result {
  std::string error;  ///< of a command that failed; "usage" if CLI11 refused its arguments
  std::string out;
  std::string warnings;
};

Result run(std::vector<std::string> arguments) {
  CLI::App app;
  app.require_subcommand(1);
  addTfdbCommands(app);
  std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
  reversed.push_back("tfdb");
  Result result;
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  try {
    app.parse(reversed);
  } catch (const CLI::ParseError&) {
    result.error = "usage";
  } catch (const std::runtime_error& error) {
    result.error = error.what();
  }
  result.out = testing::internal::GetCapturedStdout();
  result.warnings = testing::internal::GetCapturedStderr();
  return result;
}

std::string contentOf(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

TEST(TfdbCommands, GeometryInfoCheckAndImportWorkTogether) {
  const TemporaryFolder folder;
  const std::string db = folder / "db.sofa";
  Result result = run({"geometry", "--circular", "8", "0.05", "--elevations", "-30,0,30",
                       "--azimuth-step", "30", "--distances", "1.5", db});
  EXPECT_EQ(result.error, "");
  EXPECT_EQ(result.out, db + ": 36 source positions, 8 microphones, 257 frequencies (16000 Hz, "
                             "frames of 512 samples)\n");
  EXPECT_EQ(result.warnings, "");

  result = run({"info", db});
  EXPECT_THAT(result.out, HasSubstr("counts:        36 source positions, 8 microphones, "
                                    "257 frequencies (frames of 512 samples)\n"));
  EXPECT_THAT(result.out, HasSubstr("elevation -30 … 30°, distance 1.5 … 1.5 m\n"));

  result = run({"check", db});
  EXPECT_EQ(result.error, "");
  EXPECT_THAT(result.out, testing::Not(HasSubstr("warning")));
  EXPECT_THAT(result.out, HasSubstr("usable as a database for frames of 512 samples at 16000 Hz"));

  const std::string half = folder / "half.sofa";
  result = run({"import", db, half, "--rate", "8000", "--length", "256"});
  EXPECT_EQ(result.error, "");
  EXPECT_THAT(result.out, HasSubstr("8 microphones, 129 frequencies (8000 Hz"));
  EXPECT_EQ(SofaFile(half).samplingRate(), 8000.0);
}

TEST(TfdbCommands, WarnWhenTheFileContradictsItself) {
  const TemporaryFolder folder;
  const std::string db = folder / "db.sofa";
  ASSERT_EQ(run({"geometry", "--linear", "2", "0.1", db}).error, "");
  int id = 0;
  int variable = 0;
  ASSERT_EQ(nc_open(db.c_str(), NC_WRITE, &id), NC_NOERR);
  ASSERT_EQ(nc_inq_varid(id, "ReceiverPosition", &variable), NC_NOERR);
  const double swapped[] = {0.0, 0.05, 0.0, 0.0, -0.05, 0.0};
  ASSERT_EQ(nc_put_var_double(id, variable, swapped), NC_NOERR);
  ASSERT_EQ(nc_close(id), NC_NOERR);
  const std::string warning = "the responses contradict the positions: between microphones 0 and 1";
  EXPECT_THAT(run({"check", db}).out, HasSubstr("warning: " + warning));
  const Result result = run({"import", db, folder / "out.sofa"});
  EXPECT_EQ(result.error, "");
  EXPECT_THAT(result.warnings, HasSubstr("zelk-sss: " + db + ": " + warning));
}

TEST(TfdbCommands, KeepWhatExistsUnlessForcedAndLeaveNothingHalfDone) {
  const TemporaryFolder folder;
  const std::string db = folder / "db.sofa";
  std::ofstream(db) << "precious";
  const std::vector<std::string> geometry = {"geometry", "--linear", "2", "0.1", db};
  EXPECT_THAT(run(geometry).error, testing::StartsWith(db + ": exists already"));
  EXPECT_THAT(run({"import", folder / "none.sofa", db}).error, HasSubstr("exists already"));
  EXPECT_EQ(contentOf(db), "precious");

  // A failure after the check leaves the old file, too, and no other.
  EXPECT_EQ(run({"import", folder / "none.sofa", db, "--force"}).error,
            folder / "none.sofa" + ": there is no such file");
  EXPECT_EQ(contentOf(db), "precious");
  EXPECT_EQ(run({"geometry", "--linear", "2", "0.1", db, "--force"}).error, "");
  EXPECT_EQ(SofaFile(db).receivers(), 2U);
  EXPECT_EQ(std::distance(
                std::filesystem::directory_iterator(std::filesystem::path(db).parent_path()), {}),
            1);
}

TEST(TfdbCommands, RefuseArgumentsThatDoNotFitTogether) {
  const std::vector<std::string> cases[] = {
      {},
      {"info"},
      {"import", "one.sofa"},
      {"geometry", "out.sofa"},
      {"geometry", "--linear", "2", "0.1", "--circular", "2", "0.1", "out.sofa"},
      {"geometry", "--linear", "two", "0.1", "out.sofa"},
      {"import", "a.sofa", "b.sofa", "--length", "many"},
  };
  for (const auto& arguments : cases) EXPECT_EQ(run(arguments).error, "usage");
}

TEST(ReadTrial, ReportsACrashARunawayAndTooMuchMemory) {
  const std::pair<std::function<void()>, const char*> cases[] = {
      {[] {}, ""},
      {[] { throw SofaError("file: its own words"); }, "file: its own words"},
      {[] { _exit(1); }, "file: reading it fails, expected a sound netCDF-4 file"},
      {[] { std::abort(); }, "file: reading it crashes (Aborted), expected a sound netCDF-4 file"},
      {[] { throw std::bad_alloc(); }, "file: reading it takes more than 6 GiB of memory"},
      {[] {
         const rlimit oneSecond = {1, 2};
         setrlimit(RLIMIT_CPU, &oneSecond);
         for (std::atomic<int> turns = 0;;) ++turns;
       },
       "file: reading it takes more than 30 s"},
  };
  for (const auto& [work, reason] : cases) {
    std::string found;
    try {
      tryInChild("file", work);
    } catch (const SofaError& error) {
      found = error.what();
    }
    EXPECT_THAT(found, testing::StartsWith(reason));
    EXPECT_EQ(found.empty(), std::string(reason).empty());
  }
}

TEST(TfdbCommands, DamagedFilesAreErrorsThatNameThem) {
  const TemporaryFolder folder;
  const std::string db = folder / "db.sofa";
  const std::string broken = folder / "broken.sofa";
  ASSERT_EQ(run({"geometry", "--linear", "2", "0.1", db}).error, "");
  const std::string whole = contentOf(db);
  for (const double part : {0.0, 0.1, 0.5, 0.99}) {
    std::ofstream(broken, std::ios::trunc | std::ios::binary)
        << whole.substr(0, static_cast<std::size_t>(part * static_cast<double>(whole.size())));
    for (const char* command : {"info", "check"}) {
      EXPECT_THAT(run({command, broken}).error, testing::StartsWith(broken + ": ")) << part;
    }
  }
}

}  // namespace
