#pragma once

#include <complex>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "nodes/DeclaredNode.h"
#include "tests/support/ThrownText.h"

/// What the tests of the separation nodes share: parameters, frames, a node that feeds them.

using Spectra = SpectrumMatrix;
using Spectrum = SpectrumVector;

struct Parameter {
  std::string name;
  FD::ObjectRef value;
};
inline Parameter text(const std::string& name, const std::string& value) {
  return {name, FD::ObjectRef(new FD::String(value))};
}
inline Parameter number(const std::string& name, int value) {
  return {name, FD::ObjectRef(FD::Int::alloc(value))};
}
inline Parameter real(const std::string& name, float value) {
  return {name, FD::ObjectRef(FD::Float::alloc(value))};
}
inline Parameter truth(const std::string& name, bool value) {
  return {name, FD::ObjectRef(new FD::Bool(value))};
}

/// Gives the object that a function makes for each count.
class Feed : public FD::Node {
 public:
  using Function = std::function<FD::ObjectRef(int count)>;

  explicit Feed(Function f) : FD::Node("feed", FD::ParameterSet()), function(std::move(f)) {
    addOutput("OUTPUT");
  }
  FD::ObjectRef getOutput(int /*outputId*/, int count) override { return function(count); }

 private:
  Function function;
};

using NodePtr = FD::RCPtr<FD::Node>;

inline NodePtr makeNode(const std::string& type, const std::vector<Parameter>& parameters) {
  FD::ParameterSet set;
  for (const Parameter& parameter : parameters) set.add(parameter.name, parameter.value);
  return NodePtr(FD::Node::getFactoryNamed(type)->Create("node", set));
}

inline FD::ObjectRef sourceList(const std::vector<FD::Source>& sources) {
  auto* list = new FD::Vector<FD::ObjectRef>;
  const FD::ObjectRef owner(list);
  for (const FD::Source& s : sources) {
    list->push_back(FD::ObjectRef(new FD::Source(s.id, s.x, s.y, s.z)));
  }
  return owner;
}

inline const Spectrum& spectrumOf(const FD::ObjectRef& map, int id) {
  return FD::object_cast<Spectrum>(FD::object_cast<SpectrumMap>(map).at(id));
}
