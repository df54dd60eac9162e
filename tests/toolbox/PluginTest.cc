// The plug-in as a host meets it: loaded by name, used by a network document.

#include <dlfcn.h>

#include <complex>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "AudioTesting.h"
#include "BufferedNode.h"
#include "Map.h"
#include "Matrix.h"
#include "NetworkDocument.h"
#include "NodeFactory.h"
#include "Runner.h"
#include "Source.h"
#include "Vector.h"
#include "gtest/gtest.h"

namespace {

class PluginTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    ASSERT_EQ(FD::Node::getFactoryNamed("AudioFrames"), nullptr);
    ASSERT_NE(dlopen(ZELK_AUDIO_PLUGIN, RTLD_NOW | RTLD_GLOBAL), nullptr) << dlerror();
  }
};

TEST_F(PluginTest, RegistersItsModuleAndTypes) {
  for (const char* type :
       {"AudioFrames", "SceneSources", "SeparatedWriter", "NoiseCorrelation", "BackProjection"}) {
    EXPECT_NE(FD::Node::getFactoryNamed(type), nullptr) << type;
  }
  ASSERT_EQ(FD::Object::getModuleVersions().size(), 1U);
  EXPECT_EQ(FD::Object::getModuleVersions()[0].name, "ZELKAUDIO");
}

/// Stands for a separation: gives microphone i's spectrum to the i-th source.
class EachSource : public FD::BufferedNode {
 public:
  EachSource(std::string nodeName, const FD::ParameterSet& params)
      : FD::BufferedNode(std::move(nodeName), params) {
    addInput("INPUT_FRAMES");
    addInput("INPUT_SOURCES");
    addOutput("OUTPUT");
  }

 protected:
  void calculate(int, int count, FD::Buffer& out) override {
    const FD::ObjectRef framesRef = getInput(0, count);
    const FD::ObjectRef sourcesRef = getInput(1, count);
    const auto& frames = FD::object_cast<FD::Matrix<std::complex<float>>>(framesRef);
    const auto& sources = FD::object_cast<FD::Vector<FD::ObjectRef>>(sourcesRef);
    auto* map = new FD::Map<int, FD::ObjectRef>;
    out[count] = FD::ObjectRef(map);
    for (std::size_t i = 0; i < sources.size(); ++i) {
      auto* spectrum = new FD::Vector<std::complex<float>>(frames.ncols());
      map->insert({FD::object_cast<FD::Source>(sources[i]).id, FD::ObjectRef(spectrum)});
      for (std::size_t k = 0; k < frames.ncols(); ++k) (*spectrum)[k] = frames(i, k);
    }
  }
};

const int registered =
    FD::Node::addFactory("EachSource", new FD::NodeFactory<EachSource>("EachSource"));

// ARG1 is the recording, ARG2 the scene, ARG3 the folder.
const char* const DOCUMENT = R"(<?xml version="1.0"?>
<Document>
  <Network type="subnet" name="MAIN">
    <Node name="loop" type="LOOP" x="0" y="0">
      <Parameter name="FILE" type="subnet_param" value="ARG1"/>
      <Parameter name="SCENE" type="subnet_param" value="ARG2"/>
      <Parameter name="FOLDER" type="subnet_param" value="ARG3"/>
    </Node>
    <NetOutput name="OUTPUT" node="loop" terminal="OUTPUT"/>
  </Network>
  <Network type="iterator" name="LOOP">
    <Node name="frames" type="AudioFrames" x="0" y="0">
      <Parameter name="FILENAME" type="subnet_param" value="FILE"/>
      <Parameter name="LENGTH" type="int" value="512"/>
      <Parameter name="ADVANCE" type="int" value="160"/>
      <Parameter name="SAMPLING_RATE" type="int" value="16000"/>
      <Parameter name="CHANNELS" type="string" value=""/>
    </Node>
    <Node name="scene" type="SceneSources" x="0" y="0">
      <Parameter name="FILENAME" type="subnet_param" value="SCENE"/>
      <Parameter name="LENGTH" type="int" value="512"/>
      <Parameter name="ADVANCE" type="int" value="160"/>
      <Parameter name="SAMPLING_RATE" type="int" value="16000"/>
    </Node>
    <Node name="separate" type="EachSource" x="0" y="0"/>
    <Node name="writer" type="SeparatedWriter" x="0" y="0">
      <Parameter name="DIRECTORY" type="subnet_param" value="FOLDER"/>
      <Parameter name="LENGTH" type="int" value="512"/>
      <Parameter name="ADVANCE" type="int" value="160"/>
      <Parameter name="SAMPLING_RATE" type="int" value="16000"/>
      <Parameter name="FORMAT" type="string" value="FLOAT"/>
    </Node>
    <Link from="frames" output="OUTPUT" to="separate" input="INPUT_FRAMES"/>
    <Link from="scene" output="SOURCES" to="separate" input="INPUT_SOURCES"/>
    <Link from="separate" output="OUTPUT" to="writer" input="INPUT"/>
    <Link from="frames" output="SAMPLES" to="writer" input="SAMPLES"/>
    <Link from="frames" output="LAST_FRAME" to="writer" input="LAST_FRAME"/>
    <NetOutput name="OUTPUT" node="writer" terminal="OUTPUT"/>
    <NetCondition name="CONDITION" node="frames" terminal="NOT_EOF"/>
  </Network>
</Document>)";

TEST_F(PluginTest, RunsInANetworkDocument) {
  const TestFolder folder;
  const std::vector<float> sound = noise(2 * 16000, 60);
  writeSound(folder / "in.wav", 16000, 2, sound);
  const std::string scene = folder.write("scene.json", R"({"sources": [
      {"id": 8, "azimuth": 30}, {"id": 3, "azimuth": -30}]})");
  std::ostringstream out;
  std::ostringstream err;
  const FD::NetworkDocument document = FD::NetworkDocument::parse(DOCUMENT, "test.n");
  const std::vector<std::string> arguments = {folder / "in.wav", scene, folder / "out"};
  ASSERT_EQ(FD::runNetwork(document, arguments, out, err), 0) << err.str();

  std::vector<float> first;
  std::vector<float> second;
  for (std::size_t n = 0; n < 16000; ++n) {
    first.push_back(sound[2 * n]);
    second.push_back(sound[2 * n + 1]);
  }
  EXPECT_LT(differenceInDb(readSound(folder / "out/source_8.wav").samples, first), -100);
  EXPECT_LT(differenceInDb(readSound(folder / "out/source_3.wav").samples, second), -100);

  // The files are there now.
  EXPECT_EQ(FD::runNetwork(document, arguments, out, err), 1);
  EXPECT_THAT(err.str(), testing::HasSubstr("source_3.wav: exists already (set OVERWRITE"));
}

TEST_F(PluginTest, AStoppedRunKeepsWhatIsComplete) {
  const TestFolder folder;
  writeSound(folder / "in.wav", 16000, 2, noise(2 * 16000, 61));
  const std::string scene =
      folder.write("scene.json", R"({"sources": [{"id": 0, "azimuth": 30}]})");
  std::ostringstream out;
  std::ostringstream err;
  const FD::NetworkDocument document = FD::NetworkDocument::parse(DOCUMENT, "test.n");
  ASSERT_EQ(FD::runNetwork(document, {folder / "in.wav", scene, folder / "out"}, out, err,
                           [](int frame) { return frame < 49; }),
            0)
      << err.str();
  EXPECT_EQ(readSound(folder / "out/source_0.wav").samples.size(), 50U * 160 - (512 - 160));
}

}  // namespace
