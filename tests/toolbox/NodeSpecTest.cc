// The editor's description of the node types against the tables that the nodes work from.

#include <iterator>
#include <memory>
#include <pugixml.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "AudioFrames.h"
#include "AudioTesting.h"
#include "BackProjectionNode.h"
#include "NoiseCorrelationNode.h"
#include "SceneSources.h"
#include "SeparatedWriter.h"
#include "gtest/gtest.h"

namespace {

const NodeSpec* const SPECS[] = {&AudioFrames::SPEC, &SceneSources::SPEC, &SeparatedWriter::SPEC,
                                 &NoiseCorrelation::SPEC, &BackProjection::SPEC};

pugi::xml_document definitions() {
  pugi::xml_document document;
  EXPECT_TRUE(document.load_file(ZELK_AUDIO_DEF));
  return document;
}

/// Name, type and default of each parameter, as "NAME:type=default".
std::vector<std::string> parametersOf(const pugi::xml_node& nodeClass) {
  std::vector<std::string> list;
  for (const pugi::xml_node& parameter : nodeClass.children("Parameter")) {
    list.push_back(std::string(parameter.attribute("name").value()) + ":" +
                   parameter.attribute("type").value() + "=" +
                   parameter.attribute("value").value());
  }
  return list;
}

std::vector<std::string> parametersOf(const NodeSpec& spec) {
  std::vector<std::string> list;
  for (const auto& parameter : spec.parameters) {
    const char* value = parameter.defaultValue ? parameter.defaultValue : "";
    list.push_back(std::string(parameter.name) + ":" + parameter.type + "=" + value);
  }
  return list;
}

std::vector<std::string> namesOf(const pugi::xml_node& nodeClass, const char* element) {
  std::vector<std::string> names;
  for (const pugi::xml_node& entry : nodeClass.children(element)) {
    names.emplace_back(entry.attribute("name").value());
  }
  return names;
}

TEST(NodeSpecTest, TheDescriptionStatesWhatTheNodesHave) {
  const pugi::xml_document document = definitions();
  const auto classes = document.child("Definitions").children("NodeClass");
  ASSERT_EQ(std::distance(classes.begin(), classes.end()), std::ssize(SPECS));
  for (const NodeSpec* spec : SPECS) {
    SCOPED_TRACE(spec->type);
    EXPECT_NE(FD::Node::getFactoryNamed(spec->type), nullptr);
    const pugi::xml_node nodeClass =
        document.child("Definitions").find_child_by_attribute("NodeClass", "name", spec->type);
    ASSERT_TRUE(nodeClass);
    EXPECT_STREQ(nodeClass.attribute("require").value(), "zelk-audio");

    std::vector<std::string> inputs;
    for (const auto& input : spec->inputs) inputs.emplace_back(input.name);
    EXPECT_EQ(namesOf(nodeClass, "Input"), inputs);
    const std::vector<std::string> outputs(spec->outputs.begin(), spec->outputs.end());
    EXPECT_EQ(namesOf(nodeClass, "Output"), outputs);
    EXPECT_EQ(parametersOf(nodeClass), parametersOf(*spec));

    for (const pugi::xml_node& entry : nodeClass.children()) {
      EXPECT_GT(std::string(entry.text().get()).size(), 20U) << entry.attribute("name").value();
    }
  }
}

// A node with a table of its own, to ask it for parameters.
class TableNode : public ToolboxNode {
 public:
  explicit TableNode(const NodeSpec& table) : ToolboxNode(table, "node", FD::ParameterSet()) {}
  using ToolboxNode::boolParameter;
  using ToolboxNode::floatParameter;
  using ToolboxNode::intParameter;
  using ToolboxNode::stringParameter;

 protected:
  void calculate(int, int, FD::Buffer&) override {}
};

TEST(ToolboxNodeTest, DefaultsComeFromTheTable) {
  const NodeSpec spec = {"Type",
                         {{"ALWAYS", false}, {"MAYBE", true}},
                         {"OUT"},
                         {{"A", "int", "7"},
                          {"B", "float", "0.25"},
                          {"C", "bool", "true"},
                          {"D", "string", "text"},
                          {"E", "int", nullptr}}};
  TableNode node(spec);
  EXPECT_EQ(node.intParameter("A"), 7);
  EXPECT_EQ(node.floatParameter("B"), 0.25F);
  EXPECT_TRUE(node.boolParameter("C"));
  EXPECT_EQ(node.stringParameter("D"), "text");
  for (const char* missing : {"E", "UNLISTED"}) {
    try {
      node.intParameter(missing);
      ADD_FAILURE() << missing;
    } catch (FD::ParameterException* e) {
      delete e;
    }
  }
  EXPECT_EQ(node.translateInput("MAYBE"), 1);
  EXPECT_EQ(node.translateInput("MAYBE"), 1);
  EXPECT_EQ(node.translateInput("ALWAYS"), 0);
  try {
    node.translateInput("NEVER");
    ADD_FAILURE();
  } catch (FD::NodeException* e) {
    std::ostringstream out;
    e->print(out);
    EXPECT_THAT(out.str(), testing::HasSubstr("NEVER is not supported."));
    delete e;
  }
}

}  // namespace
