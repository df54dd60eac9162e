#include "cli/RunCommand.h"

#include <iostream>
#include <string>
#include <vector>

#include "cli/NetworkRun.h"

void addRunCommand(CLI::App& app) {
  CLI::App* command =
      app.add_subcommand("run", "Run a network document: zelk-sss run NETWORK [ARG1 [ARG2 …]]");
  // What follows the document is the network's alone, whatever it looks like.
  command->prefix_command();
  command->callback([command] {
    std::vector<std::string> words = command->remaining();
    if (words.empty()) throw CLI::RequiredError("NETWORK");
    const std::string network = words.front();
    words.erase(words.begin());
    runDocument(FD::NetworkDocument::read(network), words, std::cout);
  });
}
