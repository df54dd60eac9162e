// Plug-ins: where they are looked for, how they load, and types and exceptions across their border.

#include "ToolboxLoader.h"

#include <complex>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "Matrix.h"
#include "NodeFactory.h"
#include "TestNodes.h"

using namespace FD;
using testing::ElementsAre;
using testing::HasSubstr;
namespace fs = std::filesystem;

namespace {

TEST(ToolboxLoader, looksWhereTheEnvironmentSays) {
  setenv("FLOWDESIGNER_HOME", "/opt/flow", 1);
  setenv("FLOWDESIGNER_PATH", "/a::/b", 1);
  EXPECT_THAT(toolboxFolders(), ElementsAre(fs::path("/opt/flow/lib/flowdesigner/toolbox"),
                                            fs::path("/a"), fs::path("/b")));
  unsetenv("FLOWDESIGNER_HOME");
  unsetenv("FLOWDESIGNER_PATH");
  ASSERT_EQ(toolboxFolders().size(), 1u);
  EXPECT_TRUE(fs::exists(toolboxFolders()[0].parent_path() / "libflow.so"));
  EXPECT_EQ(toolboxFolders()[0].filename(), "toolbox");
}

TEST(ToolboxLoader, reportsWhatCannotBeLoadedWithTheReason) {
  const fs::path folder = fs::temp_directory_path() / "zelk-broken-toolbox";
  fs::create_directories(folder);
  std::ofstream(folder / "broken.tlb.0") << "this is no shared object";
  std::ofstream(folder / "not-a-plugin.so") << "nor this";
  const ToolboxReport report = loadToolboxes({folder, folder / "missing"});
  fs::remove_all(folder);
  EXPECT_TRUE(report.loaded.empty());
  ASSERT_EQ(report.failed.size(), 1u);
  EXPECT_EQ(report.failed[0].first, folder / "broken.tlb.0");
  EXPECT_THAT(report.failed[0].second, HasSubstr("broken.tlb.0: "));
}

TEST(ToolboxLoader, loadsPluginsThatNeedEachOtherAndSharesTypesWithThem) {
  const ToolboxReport report = loadToolboxes({TEST_TOOLBOX});
  EXPECT_TRUE(report.failed.empty());
  // The one that stands first needs the other, so it loads in the second pass.
  ASSERT_THAT(report.loaded, ElementsAre(fs::path(TEST_TOOLBOX) / "deeper/plugin-needed.tlb",
                                         fs::path(TEST_TOOLBOX) / "plugin-needing.tlb"));
  EXPECT_EQ(Object::getModuleVersions().back().version, "1.2.3");
  EXPECT_EQ(Node::XPMDictionary().count("PluginNode"), 1u);

  _NodeFactory* const factory = Node::getFactoryNamed("PluginNode");
  ASSERT_NE(factory, nullptr);
  const RCPtr<Node> node(factory->Create("plugged", ParameterSet()));
  EXPECT_NE(dynamic_cast<BufferedNode*>(node.get()), nullptr);
  node->initialize();
  const ObjectRef result = node->getOutput(0, 0);
  EXPECT_EQ(object_cast<Matrix<std::complex<float>>>(result)(0, 1), 42.0f);
  EXPECT_THAT(thrownText([&] { node->getOutput(0, 1); }),
              HasSubstr("plugin.cc, line 7: node plugged: plug-in says no"));
  EXPECT_THROW(node->getOutput(0, 2), std::out_of_range);
}

}  // namespace
