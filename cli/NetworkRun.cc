#include "cli/NetworkRun.h"

#include <dlfcn.h>
#include <fmt/format.h>

#include <filesystem>
#include <iostream>
#include <sstream>

#include "Runner.h"
#include "ToolboxLoader.h"
#include "cli/StopSignals.h"

namespace {

/// The command's own plug-ins come first, installed or in the build tree, whatever host the
/// environment names; then the folders that it adds.
std::vector<std::filesystem::path> plugInFolders() {
  namespace fs = std::filesystem;
  std::error_code error;
  const fs::path prefix = fs::read_symlink("/proc/self/exe", error).parent_path().parent_path();
  const fs::path installed = prefix / ZELK_LIBRARY_FOLDER / "zelk-sss/toolbox";
  std::vector<fs::path> folders = FD::toolboxFolders();
  folders.front() = fs::is_directory(installed, error) ? installed : prefix / "toolbox";
  return folders;
}

/// A plug-in has files of its own that a signal may interrupt.
void removeFilesOnSignals(const std::filesystem::path& plugIn) {
  void* const library = dlopen(std::filesystem::absolute(plugIn).c_str(), RTLD_LAZY | RTLD_NOLOAD);
  void* const remover = library ? dlsym(library, "zelkRemoveUnfinishedFiles") : nullptr;
  if (remover) addUnfinishedFiles(reinterpret_cast<void (*)()>(remover));
}

}  // namespace

void loadPlugIns() {
  static const FD::ToolboxReport REPORT = FD::loadToolboxes(plugInFolders());
  for (const auto& [path, reason] : REPORT.failed) {
    std::cerr << "zelk-sss: " << fmt::format("{}: cannot be loaded: {}", path.string(), reason)
              << std::endl;
  }
  for (const std::filesystem::path& plugIn : REPORT.loaded) removeFilesOnSignals(plugIn);
  if (!REPORT.loaded.empty()) return;
  std::string folders;
  for (const std::filesystem::path& folder : plugInFolders())
    folders += fmt::format(" {}", folder.string());
  throw RunError("found no plug-ins, expected zelk-sss.tlb and zelk-audio.tlb in one of:" +
                 folders);
}

void runDocument(const FD::NetworkDocument& document, const std::vector<std::string>& arguments,
                 std::ostream& out) {
  loadPlugIns();
  const SignalWatch signals;
  std::ostringstream errors;
  int lastFrame = -1;
  const int status = FD::runNetwork(document, arguments, out, errors, [&](int frame) {
    lastFrame = frame;
    return SignalWatch::caught() == 0;
  });
  if (status != 0) {
    std::string text = errors.str();
    while (!text.empty() && text.back() == '\n') text.pop_back();
    throw RunError(text);
  }
  if (SignalWatch::caught() != 0) {
    throw RunError(
        fmt::format("stopped by signal {} after frame {}; the files are complete up to it",
                    SignalWatch::caught(), lastFrame));
  }
}
