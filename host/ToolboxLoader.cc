#include "ToolboxLoader.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <system_error>

namespace fs = std::filesystem;

namespace FD {
inline namespace zelk {

namespace {

fs::path folderOfThisLibrary() {
  Dl_info info;
  if (!dladdr(reinterpret_cast<const void*>(&toolboxFolders), &info)) return {};
  std::error_code ignored;
  return fs::weakly_canonical(info.dli_fname, ignored).parent_path();
}

// Sorted, so that runs are alike on every file system.
std::vector<fs::path> findPlugins(const std::vector<fs::path>& folders) {
  std::vector<fs::path> plugins;
  for (const fs::path& folder : folders) {
    std::vector<fs::path> found;
    std::error_code error;
    fs::recursive_directory_iterator it(folder, fs::directory_options::skip_permission_denied,
                                        error);
    for (; !error && it != fs::recursive_directory_iterator(); it.increment(error)) {
      std::error_code unreadable;
      if (it->path().filename().string().find(".tlb") != std::string::npos &&
          it->is_regular_file(unreadable)) {
        found.push_back(it->path());
      }
    }
    std::sort(found.begin(), found.end());
    plugins.insert(plugins.end(), found.begin(), found.end());
  }
  return plugins;
}

// What only a plug-in for another host names, whichever way it was linked: Node::addFactory without
// this host's inline namespace.
constexpr char FOREIGN_SYMBOL[] = "_ZN2FD4Node10addFactory";

bool isOfAnotherHost(const fs::path& plugin) {
  std::ifstream file(plugin, std::ios::binary);
  const std::string content{std::istreambuf_iterator<char>(file), {}};
  return content.find(FOREIGN_SYMBOL) != std::string::npos;
}

// Returns why the plug-in cannot be loaded; nothing when it is.
std::string load(const fs::path& plugin) {
  // Not even tried: it would bring the other host into the process.
  if (isOfAnotherHost(plugin)) {
    const char* const expected =
        "it was built for an installed FlowDesigner, expected a plug-in built for zelk-sss";
    return expected;
  }
  // With a slash in it, so that the loader does not search its own path for the name.
  if (dlopen(fs::absolute(plugin).c_str(), RTLD_LAZY | RTLD_GLOBAL)) return "";
  const char* const reason = dlerror();
  return reason ? reason : "unknown reason";
}

}  // namespace

std::vector<fs::path> toolboxFolders() {
  std::vector<fs::path> folders;
  if (const char* home = std::getenv("FLOWDESIGNER_HOME"); home && *home) {
    folders.push_back(fs::path(home) / "lib/flowdesigner/toolbox");
  } else {
    folders.push_back(folderOfThisLibrary() / "toolbox");
  }
  const char* const path = std::getenv("FLOWDESIGNER_PATH");
  std::istringstream list(path ? path : "");
  for (std::string folder; std::getline(list, folder, ':');) {
    if (!folder.empty()) folders.emplace_back(folder);
  }
  return folders;
}

ToolboxReport loadToolboxes(const std::vector<fs::path>& folders) {
  ToolboxReport report;
  std::vector<fs::path> pending = findPlugins(folders);
  bool progress = true;
  while (progress && !pending.empty()) {
    progress = false;
    report.failed.clear();
    std::vector<fs::path> failed;
    for (const fs::path& plugin : pending) {
      const std::string reason = load(plugin);
      if (reason.empty()) {
        report.loaded.push_back(plugin);
        progress = true;
      } else {
        report.failed.emplace_back(plugin, reason);
        failed.push_back(plugin);
      }
    }
    pending.swap(failed);
  }
  return report;
}

}  // namespace zelk
}  // namespace FD
