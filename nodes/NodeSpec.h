#pragma once

#include <iosfwd>
#include <string>
#include <vector>

/// A node type as data: what its constructor works from and what the editor shows. All texts are
/// string literals.
struct NodeSpec {
  enum Need { NEEDED, OPTIONAL };
  struct Input {
    const char* name;
    const char* type;  ///< of the objects, as the editor names it
    const char* text;
    Need need = NEEDED;  ///< OPTIONAL: the input exists only in networks that link it
  };
  struct Output {
    const char* name;
    const char* type;
    const char* text;
  };
  struct Parameter {
    const char* name;
    const char* type;          ///< "int", "float", "bool" or "string"
    const char* defaultValue;  ///< null: the parameter must be given
    const char* text;
  };

  const char* type;
  const char* sourceFile;  ///< that the node's exceptions name
  const char* text;
  std::vector<Input> inputs;
  std::vector<Output> outputs;
  std::vector<Parameter> parameters;

  /// Null when there is no parameter of this name.
  const Parameter* findParameter(const std::string& name) const;
};

/// The editor's names for what travels between the nodes.
inline constexpr const char* SPECTRA_TYPE = "Matrix<complex<float> >";
inline constexpr const char* SOURCES_TYPE = "Vector<ObjectRef>";
inline constexpr const char* SPECTRUM_MAP_TYPE = "Map<int,ObjectRef>";

/// Writes the editor's description of node types (a .def file): they belong to a plug-in and stand
/// in a category of the editor's menu.
void writeDefinitions(std::ostream& file, const std::vector<const NodeSpec*>& specs,
                      const std::string& plugIn, const std::string& category);
