// The command of a stand-in for an installed FlowDesigner: loads the plug-ins in the folders of the
// environment and runs a document.
//   batchflow DOCUMENT [ARGUMENT …]
#include <iostream>
#include <string>
#include <vector>

#include "Runner.h"
#include "ToolboxLoader.h"

int main(int count, char** words) {
  if (count < 2) return 1;
  for (const auto& [path, reason] : FD::loadToolboxes().failed) {
    std::cerr << path.string() << ": " << reason << "\n";
  }
  const std::vector<std::string> arguments(words + 2, words + count);
  return FD::runNetworkFile(words[1], arguments, std::cout, std::cerr);
}
