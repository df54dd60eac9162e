#pragma once

#include <complex>
#include <set>
#include <string>
#include <vector>

#include "BufferedNode.h"
#include "Map.h"
#include "Matrix.h"
#include "NodeFactory.h"
#include "Source.h"
#include "Vector.h"
#include "host/family/FrozenNodeException.h"
#include "net_types.h"

/// What travels between the nodes, per frame: spectra of all microphones (microphones × bins), one
/// spectrum, spectra by source id (values are SpectrumVectors), and a list of FD::Source.
using SpectrumMatrix = FD::Matrix<std::complex<float>>;
using SpectrumVector = FD::Vector<std::complex<float>>;
using SpectrumMap = FD::Map<int, FD::ObjectRef>;
using SourceList = FD::Vector<FD::ObjectRef>;

/// The terminals and parameters of a node type. Its constructor works from this table, and the
/// editor's description of the type states the same.
struct NodeSpec {
  struct Input {
    const char* name;
    bool isOptional;  ///< exists only in networks that link it
  };
  struct Parameter {
    const char* name;
    const char* type;          ///< "int", "float", "bool" or "string"
    const char* defaultValue;  ///< null: the parameter must be given
  };

  const char* type;
  std::vector<Input> inputs;
  std::vector<const char*> outputs;
  std::vector<Parameter> parameters;
};

/// What the nodes of the toolbox share: terminals and parameters by a table.
class ToolboxNode : public FD::BufferedNode {
 public:
  /// An optional input is created by the first link to it. Throws new FD::NodeException for a name
  /// that the type does not have.
  int translateInput(std::string inputName) override;

 protected:
  /// Declares the inputs that are not optional, and all outputs. nodeSpec must outlive the node.
  ToolboxNode(const NodeSpec& nodeSpec, std::string nodeName, const FD::ParameterSet& params);

  /// A parameter's value, or its default. A parameter without default that is missing fails in
  /// FD::ParameterSet::get; one of another type raises the host's cast exception.
  int intParameter(const char* parameter) const;
  float floatParameter(const char* parameter) const;
  bool boolParameter(const char* parameter) const;
  std::string stringParameter(const char* parameter) const;

  bool isConnected(const char* inputName) const;

  /// The object at an input. Throws new FD::NodeException when it is not connected.
  FD::ObjectRef pull(const char* inputName, int count);

  /// The ids in the SourceList at an input.
  std::set<int> pullIds(const char* inputName, int count);

  /// Sets an output of this count; for nodes that compute several at once.
  void setOutput(const char* outputName, int count, const FD::ObjectRef& value);

 private:
  const char* defaultOf(const char* parameter) const;
  int numberOf(const char* inputName) const;

  const NodeSpec& spec;
};
