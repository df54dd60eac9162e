// Plug-ins: where they are looked for and how they load.

#include "ToolboxLoader.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "NodeFactory.h"
#include "TestNodes.h"

using namespace FD;
using testing::ElementsAre;
namespace fs = std::filesystem;

namespace {

TEST(ToolboxLoader, LooksWhereTheEnvironmentSays) {
  setenv("FLOWDESIGNER_HOME", "/opt/flow", 1);
  setenv("FLOWDESIGNER_PATH", "/a::/b", 1);
  EXPECT_THAT(toolboxFolders(), ElementsAre(fs::path("/opt/flow/lib/flowdesigner/toolbox"),
                                            fs::path("/a"), fs::path("/b")));
  unsetenv("FLOWDESIGNER_HOME");
  unsetenv("FLOWDESIGNER_PATH");
  ASSERT_EQ(toolboxFolders().size(), 1u);
  EXPECT_TRUE(fs::exists(toolboxFolders()[0].parent_path() / "libzelk-flow.so"));
  EXPECT_EQ(toolboxFolders()[0].filename(), "toolbox");
}

TEST(ToolboxLoader, LoadsPluginsThatNeedEachOther) {
  std::ofstream(fs::path(TEST_TOOLBOX) / "no-plug-in.so") << "is not looked at";
  const ToolboxReport report = loadToolboxes({"/no/such/folder", TEST_TOOLBOX});
  EXPECT_TRUE(report.failed.empty());
  // The one that stands first needs the other, so it loads in the second pass.
  ASSERT_THAT(report.loaded, ElementsAre(fs::path(TEST_TOOLBOX) / "sub/plugin-needed.tlb",
                                         fs::path(TEST_TOOLBOX) / "plugin-needing.tlb"));
  const RCPtr<Node> node(Node::getFactoryNamed("PluginNode")->Create("plugged", ParameterSet()));
  EXPECT_EQ(dereference_cast<int>(node->getOutput(0, 0)), 42);
}

}  // namespace
