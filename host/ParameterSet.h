#pragma once

#include <map>
#include <string>

#include "BaseException.h"
#include "ObjectRef.h"

namespace FD {
inline namespace zelk {

/// Named values that a node, a network or a request is given.
class ParameterSet {
 public:
  bool exist(const std::string& name) const { return entries.count(name) != 0; }

  /// Throws new ParameterException when there is no such parameter.
  ObjectRef get(const std::string& name) const;

  /// The parameter, or value where there is none.
  ObjectRef getDefault(const std::string& name, const ObjectRef& value) const;

  /// Sets the parameter, replacing an earlier value.
  void add(const std::string& name, const ObjectRef& value);

  /// Throws new ParameterException naming the first parameter that nobody has asked this set for.
  void checkUnused() const;

  /// One line per parameter: name and value.
  void print(std::ostream& out) const;

 private:
  struct Entry {
    ObjectRef value;
    mutable bool used = false;
  };

  std::map<std::string, Entry> entries;
};

/// A parameter is missing or not understood.
class ParameterException : public BaseException {
 public:
  ParameterException(std::string text, std::string parameter, const ParameterSet& parameters);
  void print(std::ostream& out = std::cerr) override;

 private:
  std::string message;
  std::string parameter;
  ParameterSet parameters;
};

}  // namespace zelk
}  // namespace FD
