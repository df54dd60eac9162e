#include "cli/EvaluatedMethod.h"

#include <fmt/format.h>

#include "cli/SeparationOptions.h"

EvaluatedMethod evaluatedMethod(const std::string& text) {
  const std::size_t end = std::min(text.find(' '), text.size());
  std::string name = text.substr(0, end);
  std::string words = text.substr(end);
  const std::size_t plus = name.find('+');
  if (plus != std::string::npos) {
    words += " --refine=" + name.substr(plus + 1);
    name.resize(plus);
  }
  CLI::App app;
  app.set_help_flag();
  SeparationOptions options;
  options.addMethod(app);
  options.addNoiseTimes(app);
  options.addNoise(app);
  options.addOutputs(app);
  options.addPasses(app);
  try {
    app.parse("--method=" + name + words);
    options.applyMethod(app);
  } catch (const CLI::ParseError& error) {
    throw CLI::ValidationError(fmt::format("method \"{}\": {}", text, error.what()));
  }
  return {text, options.settings};
}
