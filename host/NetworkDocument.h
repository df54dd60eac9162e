#pragma once

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace FD {
inline namespace zelk {

/// What is wrong with a network document: one message that names the document and, as far as they
/// apply, the network, the node, the terminal or the parameter.
class DocumentError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A parameter of a node. type: "int", "float", "string", "bool", "object" or "subnet_param" (value
/// then names a parameter of the enclosing network). An empty value means: not set.
struct ParameterDescription {
  std::string name;
  std::string type;
  std::string value;
};

/// A node of a network. type: a registered node type or a network of the same document. x and y
/// place the node in an editor; left empty they are chosen when the document is written.
struct NodeDescription {
  std::string name;
  std::string type;
  std::vector<ParameterDescription> parameters = {};
  std::string x = {};
  std::string y = {};
};

/// From an output of one node to an input of another.
struct LinkDescription {
  std::string from;
  std::string output;
  std::string to;
  std::string input;
};

/// A terminal of the network itself and the node's terminal it is bound to.
struct TerminalDescription {
  std::string name;
  std::string node;
  std::string terminal;
};

/// A network of nodes, which appears as a node where another network includes it.
struct NetworkDescription {
  std::string name;
  std::string type = "subnet";  ///< or "iterator", a loop with a condition
  std::vector<NodeDescription> nodes = {};
  std::vector<LinkDescription> links = {};
  std::vector<TerminalDescription> inputs = {};
  std::vector<TerminalDescription> outputs = {};
  std::optional<TerminalDescription> condition = {};
};

/// A network document in memory, read from XML or put together by a program. Nothing in it is
/// checked beyond its form; NetworkBuilder.h checks what it means.
struct NetworkDocument {
  std::string source;  ///< what messages call the document; a file's path
  std::vector<NetworkDescription> networks = {};

  /// Reads an XML document. Throws DocumentError when the file cannot be read, is no well-formed
  /// XML, has no root element Document, or an element is unknown or lacks an attribute it must
  /// have. Links may be called Link or ProbeLink, as an editor writes them. What means nothing to a
  /// run is ignored: notes, further attributes, the points at which a link bends.
  static NetworkDocument read(const std::filesystem::path& path);
  /// The same for XML text at hand.
  static NetworkDocument parse(const std::string& xml, const std::string& source);

  /// The document as XML that read() and an installed FlowDesigner take. Throws DocumentError for
  /// text that XML cannot carry (control characters).
  std::string toXml() const;
};

}  // namespace zelk
}  // namespace FD
