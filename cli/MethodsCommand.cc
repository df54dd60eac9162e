#include "cli/MethodsCommand.h"

#include <fmt/format.h>

#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>

#include "separation/Methods.h"

namespace {

std::string methodsJson() {
  nlohmann::ordered_json list = nlohmann::ordered_json::array();
  for (const Method& method : methods()) {
    nlohmann::ordered_json parameters = nlohmann::ordered_json::array();
    for (const MethodParameter& parameter : method.parameters) {
      parameters.push_back({{"name", parameter.name},
                            {"type", parameter.type},
                            {"default", parameter.defaultValue},
                            {"choices", parameter.choices},
                            {"meaning", parameter.meaning}});
    }
    list.push_back({{"name", method.name},
                    {"choose", method.choose},
                    {"needs_database", method.needsDatabase()},
                    {"needs_responses", method.needsResponses()},
                    {"parameters", parameters}});
  }
  return nlohmann::ordered_json{{"methods", list}}.dump(2) + "\n";
}

}  // namespace

void addMethodsCommand(CLI::App& app) {
  CLI::App* command = app.add_subcommand("methods", "List the separation methods");
  const auto isJson = std::make_shared<bool>(false);
  command->add_flag("--json", *isJson, "Write JSON instead of text");
  command->callback([isJson] {
    if (*isJson) {
      std::cout << methodsJson();
      return;
    }
    for (const Method& method : methods()) {
      std::cout << fmt::format("{:<5} {}\n", method.name, method.choose);
      for (const MethodParameter& parameter : method.parameters) {
        std::cout << fmt::format("      {} = {}: {}\n", parameter.name, parameter.defaultValue,
                                 parameter.meaning);
      }
    }
  });
}
