// The editor's description of the node types against the tables that the nodes work from.

#include <iterator>
#include <pugixml.hpp>
#include <string>
#include <vector>

#include "AudioFrames.h"
#include "BackProjectionNode.h"
#include "NoiseCorrelationNode.h"
#include "SceneSources.h"
#include "SeparatedWriter.h"
#include "gmock/gmock.h"

namespace {

const NodeSpec* const SPECS[] = {&AudioFrames::SPEC, &SceneSources::SPEC, &SeparatedWriter::SPEC,
                                 &NoiseCorrelation::SPEC, &BackProjection::SPEC};

/// A node's terminals and parameters, a line each.
std::vector<std::string> linesOf(const NodeSpec& spec) {
  std::vector<std::string> lines;
  for (const auto& input : spec.inputs) lines.push_back("Input " + std::string(input.name));
  for (const char* output : spec.outputs) lines.push_back("Output " + std::string(output));
  for (const auto& [name, type, value] : spec.parameters) {
    lines.push_back(std::string("Parameter ") + name + ":" + type + "=" + (value ? value : ""));
  }
  return lines;
}

std::vector<std::string> linesOf(const pugi::xml_node& nodeClass) {
  std::vector<std::string> lines;
  for (const char* element : {"Input", "Output", "Parameter"}) {
    for (const pugi::xml_node& entry : nodeClass.children(element)) {
      lines.push_back(std::string(element) + " " + entry.attribute("name").value());
      if (element != std::string("Parameter")) continue;
      lines.back() += std::string(":") + entry.attribute("type").value() + "=" +
                      entry.attribute("value").value();
    }
  }
  return lines;
}

TEST(NodeSpecTest, TheDescriptionStatesWhatTheNodesHave) {
  pugi::xml_document document;
  ASSERT_TRUE(document.load_file(ZELK_AUDIO_DEF));
  const pugi::xml_node definitions = document.child("Definitions");
  const auto classes = definitions.children("NodeClass");
  ASSERT_EQ(std::distance(classes.begin(), classes.end()), std::ssize(SPECS));
  for (const NodeSpec* spec : SPECS) {
    SCOPED_TRACE(spec->type);
    EXPECT_NE(FD::Node::getFactoryNamed(spec->type), nullptr);
    const pugi::xml_node nodeClass =
        definitions.find_child_by_attribute("NodeClass", "name", spec->type);
    EXPECT_STREQ(nodeClass.attribute("require").value(), "zelk-audio");
    EXPECT_EQ(linesOf(nodeClass), linesOf(*spec));
    for (const pugi::xml_node& entry : nodeClass.children()) {
      EXPECT_GT(std::string(entry.text().get()).size(), 20U) << entry.attribute("name").value();
    }
  }
  EXPECT_EQ(FD::Object::getModuleVersions().at(0).name, "ZELKAUDIO");
}

}  // namespace
