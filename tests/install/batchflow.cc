// A stand-in for an installed FlowDesigner's command, over the bundled host:
// batchflow NETWORK [ARG1 [ARG2 …]] with the plug-ins below $FLOWDESIGNER_HOME.
#include <cstdlib>
#include <iostream>

#include "Runner.h"
#include "ToolboxLoader.h"

int main(int count, char** words) {
  const char* const home = std::getenv("FLOWDESIGNER_HOME");
  if (!home || count < 2) return 1;
  const std::string toolbox = std::string(home) + "/lib/flowdesigner/toolbox";
  for (const auto& [path, reason] : FD::loadToolboxes({toolbox}).failed)
    std::cerr << reason << "\n";
  return FD::runNetworkFile(words[1], {words + 2, words + count}, std::cout, std::cerr);
}
