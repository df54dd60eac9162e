#pragma once

#include <complex>
#include <string>
#include <vector>

#include "BufferedNode.h"
#include "Map.h"
#include "Matrix.h"
#include "NodeFactory.h"
#include "Source.h"
#include "Vector.h"
#include "net_types.h"
#include "nodes/NodeSpec.h"

/// What travels between the nodes, per frame: spectra of all microphones (microphones × bins), one
/// spectrum, spectra by source id (values are SpectrumVectors), and a list of FD::Source.
using SpectrumMatrix = FD::Matrix<std::complex<float>>;
using SpectrumVector = FD::Vector<std::complex<float>>;
using SpectrumMap = FD::Map<int, FD::ObjectRef>;
using SourceList = FD::Vector<FD::ObjectRef>;

/// What all nodes of this project share: terminals and parameters by their declaration.
///
/// A node type T has a public static const NodeSpec SPEC, passes it on to this class, and is made
/// known to the host by declareNode<T>() in a static initialiser below the definition of SPEC.
class DeclaredNode : public FD::BufferedNode {
 public:
  /// An optional input is created by the first link to it. Throws new FD::NodeException for a name
  /// that the type does not have.
  int translateInput(std::string inputName) override;

 protected:
  /// Adds the inputs that are not optional, and all outputs. nodeSpec must outlive the node.
  /// sourceLine: the caller's.
  DeclaredNode(const NodeSpec& nodeSpec, std::string nodeName, const FD::ParameterSet& params,
               int sourceLine);

  /// Throws new FD::NodeException, with the type's source file and the caller's line.
  [[noreturn]] void fail(const std::string& text, int sourceLine = __builtin_LINE());

  /// A parameter's value, or its default. A parameter without default that is missing fails in
  /// FD::ParameterSet::get; one of another type raises the host's cast exception. All throw
  /// std::logic_error for a parameter that the type does not declare so.
  int intParameter(const char* parameter) const;
  float floatParameter(const char* parameter) const;
  bool boolParameter(const char* parameter) const;
  std::string stringParameter(const char* parameter) const;

  bool isGiven(const char* parameter) const;

  bool isConnected(const char* inputName) const;

  /// The object at an input. Throws new FD::NodeException when it is not connected.
  FD::ObjectRef pull(const char* inputName, int count, int sourceLine = __builtin_LINE());

  /// Sets an output of this count; for nodes that compute several at once.
  void setOutput(const char* outputName, int count, const FD::ObjectRef& value);

  const NodeSpec& spec;

 private:
  const char* defaultOf(const char* parameter, const std::string& type) const;
  int numberOf(const std::string& inputName) const;

  int constructorLine;
};

/// Where a factory's declaration is found.
class Declaration {
 public:
  virtual ~Declaration() = default;
  virtual const NodeSpec& spec() const = 0;
};

template <class T>
class DeclaredFactory : public FD::NodeFactory<T>, public Declaration {
 public:
  DeclaredFactory() : FD::NodeFactory<T>(T::SPEC.type) {}
  const NodeSpec& spec() const override { return T::SPEC; }
};

/// Registers a node type at the host. Returns a number, so that a static initialiser can call it.
template <class T>
int declareNode() {
  return FD::Node::addFactory(T::SPEC.type, new DeclaredFactory<T>) +
         FD::Node::addXPM(T::SPEC.type, nullptr);
}

/// The declarations of all registered node types that have one, by name.
std::vector<const NodeSpec*> declaredNodes();
