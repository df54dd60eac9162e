// Plug-ins: where they are looked for, how they load, and types and exceptions across their border.

#include "ToolboxLoader.h"

#include <complex>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include "Matrix.h"
#include "NodeFactory.h"
#include "TestNodes.h"

using namespace FD;
using testing::ElementsAre;
using testing::HasSubstr;
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
  EXPECT_TRUE(fs::exists(toolboxFolders()[0].parent_path() / "libflow.so"));
  EXPECT_EQ(toolboxFolders()[0].filename(), "toolbox");
}

TEST(ToolboxLoader, LoadsPluginsThatNeedEachOtherAndSharesTypesWithThem) {
  const ToolboxReport report = loadToolboxes({"/no/such/folder", TEST_TOOLBOX});
  EXPECT_TRUE(report.failed.empty());
  // The one that stands first needs the other, so it loads in the second pass.
  ASSERT_THAT(report.loaded, ElementsAre(fs::path(TEST_TOOLBOX) / "sub/plugin-needed.tlb",
                                         fs::path(TEST_TOOLBOX) / "plugin-needing.tlb"));
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
