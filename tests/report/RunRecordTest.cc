#include "report/RunRecord.h"

#include "audio/AudioReader.h"
#include "audio/EncodedSound.h"
#include "dsp/DataError.h"
#include "gmock/gmock.h"
#include "report/ReportPage.h"
#include "tests/support/AudioTesting.h"

namespace {

using testing::HasSubstr;

TEST(RunRecord, IsReadAsItWasWritten) {
  const TestFolder folder;
  EXPECT_FALSE(RunRecord::read(folder / "").has_value());
  RunRecord run;
  run.recording = "/a/\"mix\".wav";
  run.method = "GICA";
  run.parameters = {{"GICA_LC_MYU", "0.1"}};
  run.length = 512;
  run.latencySamples = 128;
  run.samplingRate = 16000;
  run.warnings = {"odd"};
  run.scene = Audio::Scene::parse(
      R"({"sources": [{"id": 4, "azimuth": 350, "active": [[0.5, 3], [5, 6]]},
                      {"id": 2, "track": [{"t": 0, "azimuth": 0}, {"t": 4, "position": [1, 2, 3]}]}],
          "noise": [{"id": 1, "position": [0, 1, 0]}]})",
      "scene");
  folder.write(RunRecord::NAME, run.json());
  const auto again = RunRecord::read(folder / "");
  ASSERT_TRUE(again.has_value());
  EXPECT_EQ(again->json(), run.json());
  EXPECT_DOUBLE_EQ(again->latency(), 0.008);
  std::string older = run.json();
  older.erase(older.find("  \"latency\""), std::string("  \"latency\": 128,\n").size());
  folder.write(RunRecord::NAME, older);
  EXPECT_DOUBLE_EQ(RunRecord::read(folder / "")->latency(), 0.032);
  EXPECT_EQ(again->scene.sources()[1].positionAt(4).z, 3.0);
}

TEST(RunRecord, FilesFromStrangersAreRefusedWithTheirPlace) {
  const TestFolder folder;
  const auto message = [&](const char* name, const std::string& text) -> std::string {
    folder.write(name, text);
    try {
      RunRecord::read(folder / "");
      sourcesOfRun(folder / "");
    } catch (const DataError& error) {
      return error.what();
    }
    return "";
  };
  const char* timeline = "timeline.json";
  EXPECT_THAT(message(timeline, "{"), HasSubstr("timeline.json: "));
  EXPECT_THAT(message(timeline, R"({"sampling_rate": 1, "samples": 1, "sources": []})"),
              HasSubstr("/sources: found [], expected a list of one source or more"));
  EXPECT_THAT(message(timeline, R"({"sampling_rate": 1, "samples": 1, "sources":
                                   [{"id": 1, "file": "../x.wav", "active": []}]})"),
              HasSubstr("/sources/0/file: found \"../x.wav\", expected the name of a file in"));
  EXPECT_THAT(message(RunRecord::NAME, R"({"version": "1"})"), HasSubstr("run.json: "));
}

// FLAC gives the samples back to within 16 bits, Opus a sound of the same length; neither depends
// on a block's or a packet's length.
TEST(EncodedSound, IsReadBackAtTheSamePlace) {
  const TestFolder folder;
  for (const int rate : {16000, 44100}) {
    for (const std::size_t length : {1, 4096, 10001}) {
      Signal signal{noise(length, 7), rate};
      for (float& x : signal.samples) x *= 0.5F;
      for (const auto coding : {SoundCoding::Flac, SoundCoding::Opus}) {
        const bool isFlac = coding == SoundCoding::Flac;
        SCOPED_TRACE(testing::Message() << rate << " Hz, " << length << ", FLAC " << isFlac);
        const std::string name = isFlac ? "a.flac" : "a.ogg";
        folder.write(name, encodedSound(signal, coding, "a"));
        const Signal again = readSignal(folder / name, 1);
        if (!isFlac) {
          EXPECT_NEAR(double(again.samples.size()) / again.samplingRate, double(length) / rate,
                      0.0001);
          continue;
        }
        ASSERT_EQ(again.samples.size(), length);
        for (std::size_t n = 0; n < length; ++n) {
          ASSERT_NEAR(again.samples[n], std::clamp(signal.samples[n], -1.0F, 1.0F), 1.01 / 32768);
        }
      }
    }
  }
}

// What texts say ends neither an element nor the script, and is no place for another part.
TEST(ReportPage, TextsStayTexts) {
  ReportPage page;
  page.title = "<b>&{{SCRIPT}}";
  page.scoreNote = "</script><script>alert(1)</script>{{TITLE}}";
  const std::string html = page.html();
  EXPECT_THAT(html, HasSubstr("<h1>&lt;b>&amp;{{SCRIPT}}</h1>"));
  EXPECT_THAT(html, HasSubstr("\\u003c/script>\\u003cscript>alert(1)\\u003c/script>{{TITLE}}"));
  EXPECT_THAT(html, testing::Not(HasSubstr("<script>alert")));
}

}  // namespace
