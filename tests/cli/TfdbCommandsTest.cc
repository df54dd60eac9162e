#include <gmock/gmock.h>

#include "cli/ChildProcess.h"
#include "fileio/SofaWriter.h"
#include "responses/ArrayGeometry.h"
#include "tests/cli/CommandTest.h"

namespace {

using testing::HasSubstr;

using TfdbCommands = CommandTest;

TEST_F(TfdbCommands, GeometryInfoCheckAndImportWorkTogether) {
  const CommandRun made =
      run("tfdb geometry --circular 8 0.05 --elevations -30,0,30 --azimuth-step 30 --distances 1.5 "
          "db.sofa");
  EXPECT_EQ(made.output,
            "db.sofa: 36 source positions, 8 microphones, 257 frequencies (16000 Hz, frames of 512 "
            "samples)\n");
  EXPECT_EQ(made.errors, "");
  EXPECT_THAT(run("tfdb info db.sofa").output,
              testing::AllOf(HasSubstr("counts:        36 source positions, 8 microphones, "
                                       "257 frequencies (frames of 512 samples)\n"),
                             HasSubstr("elevation -30 … 30°, distance 1.5 … 1.5 m\n")));
  const CommandRun checked = run("tfdb check db.sofa");
  EXPECT_EQ(checked.status, 0);
  EXPECT_THAT(checked.output, testing::Not(HasSubstr("warning")));
  EXPECT_THAT(checked.output,
              HasSubstr("usable as a database for frames of 512 samples at 16000 Hz"));
  EXPECT_THAT(run("tfdb import db.sofa half.sofa --rate 8000 --length 256").output,
              HasSubstr("8 microphones, 129 frequencies (8000 Hz"));
  EXPECT_EQ(SofaFile(folder / "half.sofa").samplingRate(), 8000.0);
}

TEST_F(TfdbCommands, ARoomIsImportedRelativeToAMicrophoneAndSeparated) {
  const std::string room = " --room 4,3.5,2.5 --t60 0.3 ";
  const CommandRun made = run("tfdb room room.sofa --linear 2 0.1 --azimuth-step 90" + room);
  EXPECT_THAT(made.output, HasSubstr("room.sofa: room of 4 × 3.5 × 2.5 m: T60 0.3 s by Eyring's"));
  const CommandRun imported = run("tfdb import room.sofa db.sofa");
  EXPECT_EQ(imported.errors, "");
  EXPECT_THAT(imported.output, testing::AllOf(HasSubstr("length chosen: 8192 samples, 512 ms\n"),
                                              HasSubstr("reference:     microphone 1\n"),
                                              HasSubstr("in the frame:  100 %")));
  EXPECT_THAT(run("tfdb info db.sofa").output, HasSubstr("reference:     microphone 1\n"));
  // Another length and reference of what is relative already; "none" cannot undo it.
  EXPECT_THAT(run("tfdb import db.sofa other.sofa --length 16384 --reference-mic 2").output,
              HasSubstr("reference:     microphone 2\n"));
  EXPECT_THAT(run("tfdb import db.sofa other.sofa --force --reference-mic none").output,
              HasSubstr("reference:     microphone 1\n"));
  const CommandRun brief =
      run("tfdb import room.sofa brief.sofa --latency 32 --reference-mic none");
  EXPECT_THAT(brief.output, testing::AllOf(HasSubstr("frames of 512 samples"),
                                           HasSubstr("reference:     none\n")));
  EXPECT_THAT(brief.errors,
              testing::AllOf(HasSubstr("room.sofa: a frame of 512 samples (32.0 ms) holds "),
                             HasSubstr("without --length and --latency the import chooses")));

  folder.write("scene.json", R"({"sources": [{"id": 0, "azimuth": 0}, {"id": 1, "azimuth": 90}]})");
  run("tfdb geometry array.sofa --linear 2 0.1");
  std::vector<float> dry(8000);
  for (std::size_t n = 0; n < dry.size(); ++n) dry[n] = 0.01F * static_cast<float>(n % 37 % 5);
  writeSound(folder / "dry.wav", 16000, 1, dry);
  const CommandRun mixed =
      run("mix scene.json --tf array.sofa --dry dry.wav dry.wav -o mix.wav" + room);
  EXPECT_EQ(mixed.status, 0) << mixed.errors;
  EXPECT_THAT(mixed.errors, HasSubstr("T60 0.3 s by Eyring's"));
  EXPECT_EQ(run("separate mix.wav --tf db.sofa --sources scene.json -o out").errors, "");
  EXPECT_THAT(run("separate mix.wav --tf brief.sofa --sources scene.json -o out --force").errors,
              HasSubstr("brief.sofa: its frames of 512 samples hold "));
  EXPECT_THAT(run("mix scene.json --tf db.sofa --dry dry.wav dry.wav -o mix.wav --force").errors,
              HasSubstr("db.sofa: the responses are relative to microphone 1"));
}

TEST_F(TfdbCommands, WarnWhenTheFileContradictsItself) {
  auto data = freeFieldResponses(linearArray(2, 0.1), gridPositions({}), {});
  std::swap(data.receiverPositions[0], data.receiverPositions[1]);
  writeSofa(folder / "db.sofa", data);
  const std::string warning = "the responses contradict the positions: between microphones 1 and 2";
  EXPECT_THAT(run("tfdb check db.sofa").output, HasSubstr("warning: " + warning));
  const CommandRun imported = run("tfdb import db.sofa out.sofa");
  EXPECT_EQ(imported.status, 0);
  EXPECT_THAT(imported.errors, HasSubstr("zelk-sss: db.sofa: " + warning));
}

TEST_F(TfdbCommands, RefuseWhatMakesNoDatabase) {
  folder.write("ends.json", R"({"microphones": [[0, 0.05, 0], [0, 100, 0]]})");
  run("tfdb geometry --linear 2 0.1 whole.sofa");
  folder.write("broken.sofa", content("whole.sofa").substr(0, 4000));
  folder.write("scene.json", R"({"sources": [{"id": 0, "azimuth": 0}]})");
  auto data = freeFieldResponses(linearArray(2, 0.1), gridPositions({}), {});
  data.values.resize(data.values.size() / data.frequencies);
  data.frequencies = 1;
  writeSofa(folder / "one.sofa", data);
  const std::string oneFrequency =
      "one.sofa: the sampling rate, twice the last of the 1 frequencies, is 0 Hz, expected 1 Hz or "
      "more";
  const std::string circle = "tfdb geometry out.sofa --circular 4 0.1 ";
  expectRefused(
      2,
      {{"tfdb", "A subcommand is required"},
       {"tfdb import one.sofa", "OUTPUT is required"},
       {"tfdb geometry out.sofa",
        "Exactly 1 option from [--array,--microphones,--circular,--linear] is required"},
       {"tfdb import whole.sofa out.sofa --reference-mic left",
        "--reference-mic: \"left\", expected none or a number from 1"},
       {"tfdb import whole.sofa out.sofa --latency 20 --length 512", "--length excludes --latency"},
       {"tfdb room out.sofa --linear 2 0.1", "--room is required"},
       {"tfdb geometry --linear two 0.1 out.sofa", "Could not convert: --linear = two,0.1"},
       {"tfdb info whole.sofa --max-database-size big",
        "--max-database-size is \"big\", expected a size from 1 to 2^46 bytes…"}});
  expectRefused(
      1,
      {{"tfdb import none.sofa whole.sofa --force", "none.sofa: there is no such file"},
       {"tfdb info broken.sofa", "broken.sofa: …"},
       {"tfdb info whole.sofa --max-database-size 1K",
        "whole.sofa: Data.Real of the shape [72, 2, 257] unfolds to 297920 bytes, expected at most "
        "1024 bytes in memory (--max-database-size or ZELK_SSS_MAX_DATABASE allows more)"},
       {"tfdb check broken.sofa", "broken.sofa: …"},
       {"tfdb check one.sofa", oneFrequency},
       {"pattern --tf one.sofa --sources scene.json -o p.svg", oneFrequency},
       {"tfdb geometry out.sofa --circular 0 0.1",
        "--circular: COUNT is 0, expected 1 to 1024 microphones"},
       {"tfdb geometry out.sofa --circular 4 -1", "--circular: RADIUS is -1 m, expected above 0…"},
       {"tfdb geometry out.sofa --linear 4 nan", "--linear: SPACING is nan m, expected above 0…"},
       {circle + "--azimuth-step 0", "--azimuth-step is 0, expected above 0…"},
       {circle + "--azimuth-step 1e-9",
        "--azimuth-step 1e-09 with 1 elevations and 1 distances makes 360000000000 positions, "
        "expected at most 1000000"},
       {circle + "--elevations 91", "--elevations holds 91, expected -90 to 90…"},
       {circle + "--distances 0", "--distances is 0 m, expected above 0…"},
       {circle + "--distances 0.1",
        "the source at (0.1, 0, 0) m is 0 m away from microphone 1, expected 0.01 m or more…"},
       {"tfdb geometry out.sofa --microphones ends.json",
        "microphone 1 at (0, 0.05, 0) m is 50 m away from the array's centre, expected less than "
        "5.49 m, the way of sound in half a frame of 512 samples at 16000 Hz"},
       {circle + "--reference-mic 5",
        "--reference-mic is 5, expected none or 1 to 4, the microphones"},
       {circle + "--rate 0", "tfdb geometry: --rate is 0, expected 1 to 1000000 Hz"},
       {circle + "--length 511",
        "tfdb geometry: --length is 511, expected an even number from 16 to 65536"}});
}

}  // namespace
