// Every parameter of every node can be reached from the command line.

#include <pugixml.hpp>
#include <set>

#include "gmock/gmock.h"
#include "tests/cli/TalkersFixture.h"

namespace {

class Options : public Talkers {
 protected:
  /// The parameters of the network that `separate` would run with these options, as
  /// Type.NAME=value.
  std::set<std::string> network(const std::string& options) const {
    const CommandRun result =
        run("separate mix.wav -o out --print-network " + options +
            (options.find("--tracks") == std::string::npos ? files : " --tf array.sofa"));
    EXPECT_EQ(result.status, 0) << options << "\n" << result.errors;
    pugi::xml_document document;
    EXPECT_TRUE(document.load_string(result.output.c_str())) << result.output;
    std::set<std::string> parameters;
    for (const auto& found : document.select_nodes("//Node/Parameter")) {
      const pugi::xml_node node = found.node();
      parameters.insert(node.parent().attribute("type").value() + std::string(".") +
                        node.attribute("name").value() + "=" + node.attribute("value").value());
    }
    return parameters;
  }
};

TEST_F(Options, SetEveryParameterThatTheNodesDescribe) {
  std::set<std::string> described;
  for (const char* file : {ZELK_SSS_DEF, ZELK_AUDIO_DEF}) {
    pugi::xml_document document;
    ASSERT_TRUE(document.load_file(file)) << file;
    for (const auto& found : document.select_nodes("//NodeClass/Parameter")) {
      const pugi::xml_node node = found.node();
      described.insert(node.parent().attribute("name").value() + std::string(".") +
                       node.attribute("name").value());
    }
  }
  described.erase("MaskRefinement.LOADING");  // which the command leaves at its default
  std::erase_if(described, [](const std::string& name) { return name.starts_with("MVDR."); });
  described.erase("BeamForming.INITW_FILENAME");  // which the node does not read
  ASSERT_GT(described.size(), 40U);
  folder.write("tracks.json", R"({"t": 0, "sources": [{"id": 1, "azimuth": 0}]})");
  std::set<std::string> set;
  for (const char* options :
       {"--method LCMV", "--method GJ", "--method GICA", "--method ML --noise-from 0:0.5",
        "--method MSNR --refine-live", "--raw FLOAT_LE,3,16000", "--tracks tracks.json"}) {
    for (const std::string& parameter : network(options)) {
      set.insert(parameter.substr(0, parameter.find('=')));
    }
  }
  EXPECT_EQ(set, described);
}

TEST_F(Options, ReachTheirParameters) {
  const std::string ml = "--method ML --noise-from 0:1";
  const std::pair<std::string, std::string> cases[] = {
      {"", "BeamForming.BF_METHOD=NULL BeamForming.LENGTH=512 AudioFrames.ADVANCE=128"},
      {"--advance 100 --window SINE", "SeparatedWriter.ADVANCE=100 SeparatedWriter.WINDOW=SINE"},
      {"--channels 3,1,2 --resample", "AudioFrames.CHANNELS=3,1,2 AudioFrames.RESAMPLE=true"},
      {"--non-finite KEEP --debug", "AudioFrames.NON_FINITE=KEEP BeamForming.ENABLE_DEBUG=true"},
      {"--format PCM_24 --prefix x", "SeparatedWriter.FORMAT=PCM_24 SeparatedWriter.PREFIX=x"},
      {"--force", "SeparatedWriter.OVERWRITE=true"},
      {"--method LCMV --param LCMV_LC_MYU=0.5 --param LCMV_LC_METHOD=FIX",
       "BeamForming.LCMV_LC_MYU=0.5 BeamForming.LCMV_LC_METHOD=FIX"},
      {"--method GICA --param GICA_SS_METHOD=LC_MYU", "BeamForming.GICA_SS_METHOD=LC_MYU"},
      {"--project on --reference-mic 2 --project-forgetting 0.5",
       "BackProjection.REFERENCE=2 BackProjection.FORGETTING=0.5"},
      // What follows from the method.
      {"", "SeparatedWriter.HALF_FRAME_SHIFT=false SceneSources.INACTIVE_AS_NOISE=false"},
      {ml, "SeparatedWriter.HALF_FRAME_SHIFT=true"},
      {ml + " --project on", "SeparatedWriter.HALF_FRAME_SHIFT=false"},
      {"--half-frame-shift on", "SeparatedWriter.HALF_FRAME_SHIFT=true"},
      {ml + " --half-frame-shift off", "SeparatedWriter.HALF_FRAME_SHIFT=false"},
      {"--method MSNR", "SceneSources.INACTIVE_AS_NOISE=true BackProjection.REFERENCE=1"},
      {"--method MSNR --inactive-as-noise off", "SceneSources.INACTIVE_AS_NOISE=false"},
      // Where ML's noise comes from.
      {ml + ",1.1:1.25", "NoiseCorrelation.MODE=RANGES NoiseCorrelation.RANGES=0-1,1.1-1.25"},
      {"--method ML --noise-recording mix.wav --noise-channels 2,1,3",
       "NoiseCorrelation.MODE=FILE NoiseCorrelation.CHANNELS=2,1,3"},
      {ml + " --noise-loading 0.1", "NoiseCorrelation.LOADING=0.1"},
      {ml + " --noise-forgetting 0.5", "NoiseCorrelation.FORGETTING=0.5"},
      {ml + " --noise-normalize false", "NoiseCorrelation.NORMALIZE=false"}};
  for (const auto& [options, parameters] : cases) {
    EXPECT_THAT(network(options), testing::IsSupersetOf(wordsOf(parameters))) << options;
  }
}

}  // namespace
