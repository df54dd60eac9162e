#pragma once

#include <string>
#include <utility>

#include "Node.h"

namespace FD {
inline namespace zelk {

/// Makes the nodes of one type.
class _NodeFactory {  // NOLINT: the interface's own name
 public:
  explicit _NodeFactory(std::string typeName) : type(std::move(typeName)) {}
  virtual ~_NodeFactory() = default;

  /// A new node, owned by the caller. Passes on what the node's constructor throws.
  virtual Node* Create(const std::string& name, const ParameterSet& params) = 0;

  const std::string& getName() const { return type; }

 private:
  std::string type;
};

/// The factory of node class T, which is built as T(std::string name, ParameterSet params).
template <class T>
class NodeFactory : public _NodeFactory {
 public:
  explicit NodeFactory(std::string typeName) : _NodeFactory(std::move(typeName)) {}

  Node* Create(const std::string& name, const ParameterSet& params) override {
    return new T(name, params);
  }
};

}  // namespace zelk
}  // namespace FD
