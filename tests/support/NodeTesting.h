#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "nodes/DeclaredNode.h"
#include "tests/support/ThrownText.h"

/// What the tests of the nodes share: parameters, nodes, stand-ins for other nodes.

inline FD::ObjectRef text(const std::string& value) { return FD::ObjectRef(new FD::String(value)); }
inline FD::ObjectRef number(int value) { return FD::ObjectRef(FD::Int::alloc(value)); }
inline FD::ObjectRef real(float value) { return FD::ObjectRef(FD::Float::alloc(value)); }
inline FD::ObjectRef truth(bool value) { return FD::ObjectRef(new FD::Bool(value)); }

using Parameter = std::pair<std::string, FD::ObjectRef>;
using Parameters = std::vector<Parameter>;

/// The last of several values of a parameter counts; with a nil value it is not set.
inline FD::ParameterSet parameterSet(const Parameters& parameters) {
  const std::map<std::string, FD::ObjectRef> last(parameters.rbegin(), parameters.rend());
  FD::ParameterSet set;
  for (const auto& [name, value] : last) {
    if (!value.isNil()) set.add(name, value);
  }
  return set;
}

using NodePtr = FD::RCPtr<FD::Node>;

/// On the heap, where the sanitizer sees an exception that reaches for a node that is gone.
inline NodePtr makeNode(const std::string& type, const Parameters& parameters,
                        const std::string& name = "node") {
  return NodePtr(FD::Node::getFactoryNamed(type)->Create(name, parameterSet(parameters)));
}

/// A source node whose outputs are functions of the count.
class Stub : public FD::Node {
 public:
  using Output = std::function<FD::ObjectRef(int count)>;

  Stub(const std::string& name, std::vector<std::pair<std::string, Output>> given)
      : FD::Node(name, FD::ParameterSet()), results(std::move(given)) {
    for (const auto& [output, unused] : results) addOutput(output);
  }
  FD::ObjectRef getOutput(int outputId, int count) override {
    return results[static_cast<std::size_t>(outputId)].second(count);
  }

 private:
  std::vector<std::pair<std::string, Output>> results;
};

inline FD::ObjectRef sourceList(const std::vector<FD::Source>& sources) {
  auto* list = new SourceList;
  const FD::ObjectRef owner(list);
  for (const FD::Source& s : sources) {
    list->push_back(FD::ObjectRef(new FD::Source(s.id, s.x, s.y, s.z)));
  }
  return owner;
}

/// Sources whose positions do not matter.
inline FD::ObjectRef sourcesWithIds(const std::set<int>& ids) {
  std::vector<FD::Source> sources;
  for (const int id : ids) sources.emplace_back(id, 0.0F, 0.0F, 0.0F);
  return sourceList(sources);
}

inline const SpectrumVector& spectrumOf(const FD::ObjectRef& map, int id) {
  return FD::object_cast<SpectrumVector>(FD::object_cast<SpectrumMap>(map).at(id));
}
