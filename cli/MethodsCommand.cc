#include "cli/MethodsCommand.h"

#include <fmt/format.h>

#include <iostream>

#include "separation/Methods.h"

void addMethodsCommand(CLI::App& app) {
  CLI::App* command = app.add_subcommand("methods", "List the separation methods");
  command->callback([] {
    for (const Method& method : methods()) {
      std::cout << fmt::format("{:<5} {}\n", method.name, method.choose);
      for (const MethodParameter& parameter : method.parameters) {
        if (parameter.defaultValue.empty()) continue;
        std::cout << fmt::format("      {} = {}: {}\n", parameter.name, parameter.defaultValue,
                                 parameter.meaning);
      }
    }
  });
}
