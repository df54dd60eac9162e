#include "NetworkDocument.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <pugixml.hpp>
#include <sstream>
#include <string_view>

namespace FD {
inline namespace zelk {

namespace {

constexpr std::size_t MAX_FILE_SIZE = std::size_t{16} << 20;  // bytes

/// The number of the line with the character at this place, from 1.
std::ptrdiff_t lineAt(const std::string& text, std::ptrdiff_t offset) {
  return 1 + std::count(text.begin(), text.begin() + std::min(offset, std::ssize(text)), '\n');
}

/// Turns the elements of one XML document into descriptions; its messages say where it is.
class DocumentReader {
 public:
  DocumentReader(const std::string& documentText, const std::string& documentSource)
      : text(documentText), source(documentSource), place(documentSource) {}

  NetworkDocument document(const pugi::xml_node& root) {
    NetworkDocument result{source};
    for (const pugi::xml_node& element : root.children()) {
      if (element.name() == std::string_view("Network")) {
        result.networks.push_back(network(element));
      } else {
        refuseUnlessNote(element, "Network or Note");
      }
    }
    return result;
  }

 private:
  // Texts and comments mean nothing anywhere, such as the points that a link bends at.
  void refuseUnlessNote(const pugi::xml_node& element, const std::string& expected) const {
    if (element.type() != pugi::node_element || element.name() == std::string_view("Note")) return;
    throw DocumentError(fmt::format("{}: line {}: unknown element '{}', expected {}", place,
                                    lineAt(text, element.offset_debug()), element.name(),
                                    expected));
  }

  void refuseInside(const pugi::xml_node& element) const {
    for (const pugi::xml_node& child : element.children()) {
      refuseUnlessNote(child, fmt::format("none in {}", element.name()));
    }
  }

  NetworkDescription network(const pugi::xml_node& element) {
    NetworkDescription result;
    result.name = attribute(element, "name");
    place = fmt::format("{}: network '{}'", source, result.name);
    result.type = attribute(element, "type");
    for (const pugi::xml_node& child : element.children()) {
      const std::string_view kind = child.name();
      if (kind == "Node") {
        result.nodes.push_back(node(child));
      } else if (kind == "Link" || kind == "ProbeLink") {  // the editor's name for it
        result.links.push_back({attribute(child, "from"), attribute(child, "output"),
                                attribute(child, "to"), attribute(child, "input")});
      } else if (kind == "NetInput") {
        result.inputs.push_back(terminal(child));
      } else if (kind == "NetOutput") {
        result.outputs.push_back(terminal(child));
      } else if (kind == "NetCondition") {
        if (result.condition) throw DocumentError(place + ": more than one NetCondition");
        result.condition = terminal(child);
      } else {
        refuseUnlessNote(child, "Node, Link, ProbeLink, NetInput, NetOutput, NetCondition or Note");
      }
      if (kind != "Node" && kind != "Note") refuseInside(child);
    }
    place = source;
    return result;
  }

  std::string attribute(const pugi::xml_node& element, const char* name) const {
    const pugi::xml_attribute found = element.attribute(name);
    if (found) return found.value();
    const std::string who = element.attribute("name").value();
    throw DocumentError(fmt::format("{}: element {}{} has no attribute '{}'", place, element.name(),
                                    who.empty() ? "" : " '" + who + "'", name));
  }

  NodeDescription node(const pugi::xml_node& element) {
    NodeDescription result{attribute(element, "name"),
                           attribute(element, "type"),
                           {},
                           attribute(element, "x"),
                           attribute(element, "y")};
    const std::string networkPlace = place;
    place = fmt::format("{}: node '{}'", networkPlace, result.name);
    for (const pugi::xml_node& child : element.children()) {
      if (child.name() == std::string_view("Parameter")) {
        result.parameters.push_back(
            {attribute(child, "name"), attribute(child, "type"), attribute(child, "value")});
        refuseInside(child);
      } else {
        refuseUnlessNote(child, "Parameter or Note");
      }
    }
    place = networkPlace;
    return result;
  }

  TerminalDescription terminal(const pugi::xml_node& element) const {
    return {attribute(element, "name"), attribute(element, "node"), attribute(element, "terminal")};
  }

  const std::string& text;
  const std::string& source;
  std::string place;
};

// XML 1.0 has no way to write most control characters.
void checkWritable(const std::string& source, const std::string& text) {
  const auto bad = std::find_if(text.begin(), text.end(), [](unsigned char c) {
    return c < 0x20 && c != '\t' && c != '\n' && c != '\r';
  });
  if (bad == text.end()) return;
  throw DocumentError(
      fmt::format("{}: the character with code {} in a text cannot be written as XML", source,
                  static_cast<int>(*bad)));
}

/// Writes descriptions as XML elements.
class DocumentWriter {
 public:
  explicit DocumentWriter(const std::string& documentSource) : source(documentSource) {}

  void network(pugi::xml_node parent, const NetworkDescription& description) const {
    pugi::xml_node element = parent.append_child("Network");
    set(element, "type", description.type);
    set(element, "name", description.name);
    int column = 0;
    for (const NodeDescription& node : description.nodes) {
      append(element, node, std::to_string(120 * column++));
    }
    for (const LinkDescription& link : description.links) {
      pugi::xml_node child = element.append_child("Link");
      set(child, "from", link.from);
      set(child, "output", link.output);
      set(child, "to", link.to);
      set(child, "input", link.input);
    }
    for (const auto& input : description.inputs) append(element, "NetInput", input);
    for (const auto& output : description.outputs) append(element, "NetOutput", output);
    if (description.condition) append(element, "NetCondition", *description.condition);
  }

 private:
  void set(pugi::xml_node& element, const char* name, const std::string& value) const {
    checkWritable(source, value);
    element.append_attribute(name).set_value(value.c_str());
  }

  void append(pugi::xml_node& parent, const NodeDescription& node, const std::string& x) const {
    pugi::xml_node element = parent.append_child("Node");
    set(element, "name", node.name);
    set(element, "type", node.type);
    set(element, "x", node.x.empty() ? x : node.x);
    set(element, "y", node.y.empty() ? "0" : node.y);
    for (const ParameterDescription& parameter : node.parameters) {
      pugi::xml_node child = element.append_child("Parameter");
      set(child, "name", parameter.name);
      set(child, "type", parameter.type);
      set(child, "value", parameter.value);
    }
  }

  void append(pugi::xml_node& parent, const char* kind, const TerminalDescription& bound) const {
    pugi::xml_node element = parent.append_child(kind);
    set(element, "name", bound.name);
    set(element, "node", bound.node);
    set(element, "terminal", bound.terminal);
  }

  const std::string& source;
};

std::string readFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::string text;
  char block[16384];
  // A folder opens like a file and fails only when read.
  while (file && text.size() <= MAX_FILE_SIZE) {
    file.read(block, sizeof block);
    text.append(block, static_cast<std::size_t>(file.gcount()));
  }
  if (!file.is_open() || file.bad() || std::filesystem::is_directory(path)) {
    const int reason = std::filesystem::is_directory(path) ? EISDIR : errno;
    throw DocumentError(
        fmt::format("{}: cannot be read: {}", path.string(), std::strerror(reason)));
  }
  if (text.size() > MAX_FILE_SIZE) {
    throw DocumentError(fmt::format("{}: has more than {} bytes, expected at most that",
                                    path.string(), MAX_FILE_SIZE));
  }
  return text;
}

}  // namespace

NetworkDocument NetworkDocument::read(const std::filesystem::path& path) {
  return parse(readFile(path), path.string());
}

NetworkDocument NetworkDocument::parse(const std::string& xml, const std::string& source) {
  pugi::xml_document parsed;
  const pugi::xml_parse_result status = parsed.load_buffer(xml.data(), xml.size());
  if (!status) {
    throw DocumentError(fmt::format("{}: line {}: not well-formed XML: {}", source,
                                    lineAt(xml, status.offset), status.description()));
  }
  const pugi::xml_node root = parsed.document_element();
  if (std::string_view(root.name()) != "Document") {
    throw DocumentError(
        fmt::format("{}: not a network document: the root element is '{}', "
                    "expected 'Document'",
                    source, root.name()));
  }
  return DocumentReader(xml, source).document(root);
}

std::string NetworkDocument::toXml() const {
  pugi::xml_document xml;
  pugi::xml_node declaration = xml.append_child(pugi::node_declaration);
  declaration.append_attribute("version") = "1.0";
  pugi::xml_node root = xml.append_child("Document");
  const DocumentWriter writer(source);
  for (const NetworkDescription& description : networks) writer.network(root, description);
  std::ostringstream text;
  xml.save(text, "  ");
  return text.str();
}

}  // namespace zelk
}  // namespace FD
