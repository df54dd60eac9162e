#include "cli/RunCommand.h"

#include <iostream>
#include <memory>

#include "cli/NetworkRun.h"

void addRunCommand(CLI::App& app) {
  struct Options {
    std::string network;
    std::vector<std::string> arguments;
  };
  const auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand("run", "Run a network document");
  command->add_option("NETWORK", options->network, "Network document (XML, *.n)")->required();
  command->add_option("ARGS", options->arguments, "Its arguments: ARG1, ARG2, …");
  command->callback([options] {
    runDocument(FD::NetworkDocument::read(options->network), options->arguments, std::cout, 0);
  });
}
