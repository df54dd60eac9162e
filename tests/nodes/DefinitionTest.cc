// The editor's description of the node types against what their sources know.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <pugixml.hpp>
#include <regex>
#include <set>
#include <string>

namespace {

class Definition : public testing::TestWithParam<std::pair<std::string, std::string>> {};

TEST_P(Definition, ListsWhatTheSourceKnows) {
  const auto& [type, file] = GetParam();
  pugi::xml_document document;
  ASSERT_TRUE(document.load_file(ZELK_SSS_DEF));
  std::set<std::string> described;
  for (const auto& found : document.select_nodes(("//NodeClass[@name='" + type + "']/*").c_str())) {
    const pugi::xml_node child = found.node();
    const std::string name = child.attribute("name").value();
    EXPECT_NE(child.text().get(), std::string()) << name;
    if (!name.empty()) described.insert(name);
  }

  std::ifstream in(ZELK_NODES "/" + file);
  const std::string source{std::istreambuf_iterator<char>(in), {}};
  EXPECT_EQ(source.find("new FD::NodeException"), std::string::npos) << "throw frozen ones";
  const std::regex literal("\"([A-Z_]{4,})\"");
  std::set<std::string> known;
  for (std::sregex_iterator i(source.begin(), source.end(), literal), end; i != end; ++i) {
    known.insert((*i)[1]);
  }
  if (type == "BeamForming") {
    for (const std::string prefix : {"GJ", "GICA", "LCMV"}) {
      known.insert({prefix + "_LC_METHOD", prefix + "_LC_MYU"});
    }
  }
  for (const char* value : {"DATABASE", "NULL", "ILSE", "LCMV", "GICA", "GHDSS", "ADAPTIVE",
                            "LC_MYU", "_LC_METHOD", "_LC_MYU", "MSNR"}) {
    known.erase(value);
  }
  EXPECT_EQ(described, known);
}

INSTANTIATE_TEST_SUITE_P(Nodes, Definition,
                         testing::Values(std::pair("BeamForming", "beamforming.cc"),
                                         std::pair("ML", "ML.cc"), std::pair("MSNR", "MSNR.cc")));

}  // namespace
