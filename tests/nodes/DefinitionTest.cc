// The editor's description of the node types against the nodes themselves.
#include <gmock/gmock.h>

#include <fstream>
#include <map>
#include <pugixml.hpp>
#include <set>
#include <sstream>

#include "tests/nodes/NodeTesting.h"

namespace {

std::string readText(const std::string& path) {
  std::ifstream file(path);
  std::stringstream text;
  text << file.rdbuf();
  return text.str();
}

/// The texts of string literals in a source file that look like names of parameters or terminals.
std::set<std::string> upperCaseLiterals(const std::string& source) {
  std::set<std::string> names;
  for (std::size_t i = 0; (i = source.find('"', i)) != std::string::npos;) {
    const std::size_t end = source.find('"', i + 1);
    const std::string literal = source.substr(i + 1, end - i - 1);
    if (literal.size() > 3 &&
        literal.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ_") == std::string::npos) {
      names.insert(literal);
    }
    i = end + 1;
  }
  return names;
}

class Definition : public testing::TestWithParam<std::pair<const char*, const char*>> {
 protected:
  Definition() {
    EXPECT_TRUE(document.load_file(ZELK_SSS_DEF));
    for (const pugi::xml_node& node : document.child("Definitions").children("NodeClass")) {
      if (std::string(node.attribute("name").value()) == GetParam().first) definition = node;
    }
  }

  pugi::xml_document document;
  pugi::xml_node definition;
};

TEST_P(Definition, ListsWhatTheSourceKnows) {
  ASSERT_TRUE(definition);
  std::set<std::string> described;
  for (const pugi::xml_node& child : definition.children()) {
    EXPECT_FALSE(std::string(child.text().get()).empty()) << child.attribute("name").value();
    if (*child.attribute("name").value()) described.insert(child.attribute("name").value());
  }
  std::set<std::string> known =
      upperCaseLiterals(readText(std::string(ZELK_NODES) + "/" + GetParam().second));
  for (const std::string prefix : {"GJ", "GICA", "LCMV"}) {
    if (std::string(GetParam().first) != "BeamForming") break;
    known.insert({prefix + "_LC_METHOD", prefix + "_LC_MYU"});
  }
  for (const char* value : {"DATABASE", "WDS", "NULL", "ILSE", "LCMV", "GICA", "GHDSS", "ADAPTIVE",
                            "LC_MYU", "_LC_METHOD", "_LC_MYU", "MSNR", "GEVD"}) {
    known.erase(value);
  }
  EXPECT_EQ(described, known);
}

TEST_P(Definition, DefaultsAreTheNodes) {
  const std::map<std::string, std::string> defaults = {
      {"LCMV_LC_METHOD", "FIX"}, {"LCMV_LC_MYU", "0.001"},  {"GJ_LC_METHOD", "FIX"},
      {"GJ_LC_MYU", "0.001"},    {"GICA_SS_METHOD", "FIX"}, {"GICA_SS_MYU", "0.001"},
      {"GICA_SS_SCAL", "0.1"},   {"GICA_LC_METHOD", "FIX"}, {"GICA_LC_MYU", "0.001"},
      {"ENABLE_DEBUG", "false"}, {"ALPHA", "0.99"},         {"DECOMPOSITION_ALGORITHM", "GEVD"}};
  for (const pugi::xml_node& parameter : definition.children("Parameter")) {
    const auto known = defaults.find(parameter.attribute("name").value());
    const std::string expected = known == defaults.end() ? "" : known->second;
    EXPECT_EQ(parameter.attribute("value").value(), expected)
        << parameter.attribute("name").value();
  }
}

INSTANTIATE_TEST_SUITE_P(Nodes, Definition,
                         testing::Values(std::pair("BeamForming", "beamforming.cc"),
                                         std::pair("ML", "ML.cc"), std::pair("MSNR", "MSNR.cc")));

}  // namespace
