#include "nodes/NodeSpec.h"

#include <algorithm>
#include <ostream>

namespace {

std::string escaped(const std::string& text) {
  std::string result;
  for (const char c : text) {
    switch (c) {
      case '&':
        result += "&amp;";
        break;
      case '<':
        result += "&lt;";
        break;
      case '>':
        result += "&gt;";
        break;
      case '"':
        result += "&quot;";
        break;
      default:
        result += c;
    }
  }
  return result;
}

std::string attribute(const char* name, const std::string& value) {
  return std::string(" ") + name + "=\"" + escaped(value) + "\"";
}

template <class Entry>
void writeEntry(std::ostream& file, const std::string& element, const Entry& entry,
                const std::string& value = "") {
  file << "    <" << element << attribute("name", entry.name) << attribute("type", entry.type)
       << value << ">" << escaped(entry.text) << "</" << element << ">\n";
}

}  // namespace

const NodeSpec::Parameter* NodeSpec::findParameter(const std::string& name) const {
  const auto found = std::find_if(parameters.begin(), parameters.end(),
                                  [&](const Parameter& entry) { return entry.name == name; });
  return found == parameters.end() ? nullptr : &*found;
}

void writeDefinitions(std::ostream& file, const std::vector<const NodeSpec*>& specs,
                      const std::string& plugIn, const std::string& category) {
  file << "<?xml version=\"1.0\"?>\n<Definitions>\n";
  for (const NodeSpec* spec : specs) {
    file << "  <NodeClass" << attribute("name", spec->type) << attribute("category", category)
         << attribute("require", plugIn) << ">\n";
    for (const NodeSpec::Input& input : spec->inputs) writeEntry(file, "Input", input);
    for (const NodeSpec::Output& output : spec->outputs) writeEntry(file, "Output", output);
    for (const NodeSpec::Parameter& parameter : spec->parameters) {
      const char* const value = parameter.defaultValue ? parameter.defaultValue : "";
      writeEntry(file, "Parameter", parameter, attribute("value", value));
    }
    file << "    <Description>" << escaped(spec->text) << "</Description>\n  </NodeClass>\n";
  }
  file << "</Definitions>\n";
}
