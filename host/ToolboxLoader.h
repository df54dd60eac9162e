#pragma once

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace FD {
inline namespace zelk {

/// What came of loading plug-ins.
struct ToolboxReport {
  std::vector<std::filesystem::path> loaded;
  /// Plug-ins that were not loaded, each with the reason: the dynamic loader's, or that it was
  /// built for another host.
  std::vector<std::pair<std::filesystem::path, std::string>> failed;
};

/// Where plug-ins are looked for: $FLOWDESIGNER_HOME/lib/flowdesigner/toolbox, or without that
/// variable the folder toolbox/ beside this library; then each folder of the colon-separated
/// FLOWDESIGNER_PATH.
std::vector<std::filesystem::path> toolboxFolders();

/// Loads every file whose name contains ".tlb" in these folders and the folders inside them, for
/// the rest of the process; static initialisers register the node types. Plug-ins that fail are
/// tried again until a pass brings nothing new, since they may need each other's symbols. A folder
/// that does not exist is passed over, and a plug-in that was built for an installed FlowDesigner
/// is refused unopened.
ToolboxReport loadToolboxes(const std::vector<std::filesystem::path>& folders = toolboxFolders());

}  // namespace zelk
}  // namespace FD
