// The editor's descriptions, asked of the registered nodes.

#include <gmock/gmock.h>

#include <fstream>
#include <iterator>
#include <pugixml.hpp>

#include "ParameterValue.h"
#include "nodes/DeclaredNode.h"

namespace {

/// Type and value of an element's entries, by name.
std::vector<std::string> described(const pugi::xml_node& nodeClass, const char* element) {
  std::vector<std::string> lines;
  for (const pugi::xml_node& entry : nodeClass.children(element)) {
    lines.push_back(entry.attribute("name").value());
    for (const char* attribute : {"type", "value"}) {
      lines.back() += std::string("; ") + entry.attribute(attribute).value();
    }
    lines.back() += std::string("; ") + entry.text().get();
  }
  return lines;
}

TEST(Definition, StatesWhatTheRegisteredNodesDeclare) {
  std::map<std::string, pugi::xml_node> classes;
  pugi::xml_document documents[2];
  const std::string plugIns[] = {"zelk-sss", "zelk-audio"};
  for (int i = 0; i < 2; ++i) {
    ASSERT_TRUE(documents[i].load_file((ZELK_TOOLBOX "/" + plugIns[i] + ".def").c_str()));
    std::ifstream in(ZELK_TOOLBOX "/" + plugIns[i] + ".def");
    const std::string content{std::istreambuf_iterator<char>(in), {}};
    EXPECT_EQ(content.find("Matrix<"), std::string::npos) << "escaped, for stricter readers";
    for (const auto& nodeClass : documents[i].child("Definitions").children("NodeClass")) {
      EXPECT_EQ(nodeClass.attribute("require").value(), plugIns[i]);
      classes[nodeClass.attribute("name").value()] = nodeClass;
    }
  }
  const std::vector<const NodeSpec*> specs = declaredNodes();
  EXPECT_EQ(specs.size(), classes.size());
  EXPECT_GE(specs.size(), 8U);
  for (const NodeSpec* spec : specs) {
    SCOPED_TRACE(spec->type);
    std::vector<std::string> inputs, outputs, parameters;
    const auto entry = [](const auto& e, const std::string& value = "") {
      EXPECT_GT(std::string(e.text).size(), 15U) << e.name;
      return std::string(e.name) + "; " + e.type + "; " + value + "; " + e.text;
    };
    for (const auto& input : spec->inputs) inputs.push_back(entry(input));
    for (const auto& output : spec->outputs) outputs.push_back(entry(output));
    for (const auto& parameter : spec->parameters) {
      const std::string value = parameter.defaultValue ? parameter.defaultValue : "";
      parameters.push_back(entry(parameter, value));
      if (value.empty()) continue;
      EXPECT_FALSE(FD::parseValue(parameter.type, value).isNil());
    }
    EXPECT_EQ(described(classes[spec->type], "Input"), inputs);
    EXPECT_EQ(described(classes[spec->type], "Output"), outputs);
    EXPECT_EQ(described(classes[spec->type], "Parameter"), parameters);
    EXPECT_STREQ(classes[spec->type].child("Description").text().get(), spec->text);
  }
}

}  // namespace
