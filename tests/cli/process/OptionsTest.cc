// Every parameter of every node can be reached from the command line.

#include <map>
#include <pugixml.hpp>
#include <set>
#include <sstream>
#include <utility>

#include "gmock/gmock.h"
#include "tests/cli/process/CommandRun.h"
#include "tests/cli/process/TalkersFixture.h"

namespace {

/// Node type and parameter.
using Key = std::pair<std::string, std::string>;

std::vector<std::string> words(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> all;
  for (std::string word; stream >> word;) all.push_back(word);
  return all;
}

class Options : public Talkers {
 protected:
  /// The parameters of the network that `separate` would run with these options.
  std::map<Key, std::string> network(const std::string& options) const {
    std::vector<std::string> arguments = {"separate", mixture, "--sources", scene,
                                          "-o",       "out",   "--tf",      "--print-network"};
    arguments.insert(arguments.end() - 1, database);
    for (const std::string& word : words(options)) arguments.push_back(word);
    const CommandRun run = runCommand(arguments);
    EXPECT_EQ(run.status, 0) << options << "\n" << run.errors;
    pugi::xml_document document;
    EXPECT_TRUE(document.load_string(run.output.c_str())) << run.output;
    std::map<Key, std::string> parameters;
    for (const auto& found : document.select_nodes("//Node/Parameter")) {
      const pugi::xml_node node = found.node();
      parameters[{node.parent().attribute("type").value(), node.attribute("name").value()}] =
          node.attribute("value").value();
    }
    return parameters;
  }
};

TEST_F(Options, SetEveryParameterThatTheNodesDescribe) {
  std::set<Key> described;
  for (const char* file : {ZELK_SSS_DEF, ZELK_AUDIO_DEF}) {
    pugi::xml_document document;
    ASSERT_TRUE(document.load_file(file)) << file;
    for (const auto& found : document.select_nodes("//NodeClass/Parameter")) {
      const pugi::xml_node node = found.node();
      described.insert({node.parent().attribute("name").value(), node.attribute("name").value()});
    }
  }
  ASSERT_GT(described.size(), 40U);

  std::set<Key> set;
  for (const char* options : {"--method LCMV", "--method GJ", "--method GICA",
                              "--method ML --noise-from 0:0.5", "--method MSNR"}) {
    for (const auto& [key, value] : network(options)) set.insert(key);
  }
  EXPECT_EQ(set, described);
}

struct OptionCase {
  const char* options;
  Key key;
  const char* value;
};

class Option : public Options, public testing::WithParamInterface<OptionCase> {};

TEST_P(Option, ReachesItsParameter) {
  const auto& [options, key, value] = GetParam();
  const std::map<Key, std::string> parameters = network(options);
  ASSERT_TRUE(parameters.contains(key)) << key.first << " " << key.second;
  EXPECT_EQ(parameters.at(key), value);
}

INSTANTIATE_TEST_SUITE_P(
    All, Option,
    testing::Values(
        OptionCase{"", {"BeamForming", "BF_METHOD"}, "NULL"},
        OptionCase{"", {"BeamForming", "LENGTH"}, "512"},
        OptionCase{"", {"AudioFrames", "ADVANCE"}, "128"},
        OptionCase{"--advance 100", {"SeparatedWriter", "ADVANCE"}, "100"},
        OptionCase{"--window SINE", {"SeparatedWriter", "WINDOW"}, "SINE"},
        OptionCase{"--channels 3,1,2", {"AudioFrames", "CHANNELS"}, "3,1,2"},
        OptionCase{"--resample", {"AudioFrames", "RESAMPLE"}, "true"},
        OptionCase{"--non-finite KEEP", {"AudioFrames", "NON_FINITE"}, "KEEP"},
        OptionCase{"--format PCM_24", {"SeparatedWriter", "FORMAT"}, "PCM_24"},
        OptionCase{"--prefix x", {"SeparatedWriter", "PREFIX"}, "x"},
        OptionCase{"--force", {"SeparatedWriter", "OVERWRITE"}, "true"},
        OptionCase{"--debug", {"BeamForming", "ENABLE_DEBUG"}, "true"},
        OptionCase{"--param INITW_FILENAME=w", {"BeamForming", "INITW_FILENAME"}, "w"},
        OptionCase{"--method LCMV --param LCMV_LC_MYU=0.5 --param LCMV_LC_METHOD=FIX",
                   {"BeamForming", "LCMV_LC_MYU"},
                   "0.5"},
        OptionCase{"--method GICA --param GICA_SS_METHOD=LC_MYU",
                   {"BeamForming", "GICA_SS_METHOD"},
                   "LC_MYU"},
        OptionCase{"--project on --reference-mic 2", {"BackProjection", "REFERENCE"}, "2"},
        OptionCase{
            "--project on --project-forgetting 0.5", {"BackProjection", "FORGETTING"}, "0.5"},
        // What follows from the method.
        OptionCase{"", {"SeparatedWriter", "HALF_FRAME_SHIFT"}, "false"},
        OptionCase{"--method ML --noise-from 0:1", {"SeparatedWriter", "HALF_FRAME_SHIFT"}, "true"},
        OptionCase{"--method ML --noise-from 0:1 --project on",
                   {"SeparatedWriter", "HALF_FRAME_SHIFT"},
                   "false"},
        OptionCase{"--half-frame-shift on", {"SeparatedWriter", "HALF_FRAME_SHIFT"}, "true"},
        OptionCase{"", {"SceneSources", "INACTIVE_AS_NOISE"}, "false"},
        OptionCase{"--method MSNR", {"SceneSources", "INACTIVE_AS_NOISE"}, "true"},
        OptionCase{"--method MSNR --inactive-as-noise off",
                   {"SceneSources", "INACTIVE_AS_NOISE"},
                   "false"},
        OptionCase{"--method MSNR", {"BackProjection", "REFERENCE"}, "1"},
        // Where ML's noise comes from.
        OptionCase{"--method ML --noise-from 0:0.5,1:1.25",
                   {"NoiseCorrelation", "RANGES"},
                   "0-0.5,1-1.25"},
        OptionCase{"--method ML --noise-from 0:1", {"NoiseCorrelation", "MODE"}, "RANGES"},
        OptionCase{"--method ML --noise-recording n.wav", {"NoiseCorrelation", "MODE"}, "FILE"},
        OptionCase{"--method ML --noise-recording n.wav --noise-channels 2-4",
                   {"NoiseCorrelation", "CHANNELS"},
                   "2-4"},
        OptionCase{"--method ML --noise-from 0:1 --noise-loading 0.1",
                   {"NoiseCorrelation", "LOADING"},
                   "0.1"},
        OptionCase{"--method ML --noise-from 0:1 --noise-forgetting 0.5",
                   {"NoiseCorrelation", "FORGETTING"},
                   "0.5"},
        OptionCase{"--method ML --noise-from 0:1 --noise-normalize false",
                   {"NoiseCorrelation", "NORMALIZE"},
                   "false"}));

}  // namespace
