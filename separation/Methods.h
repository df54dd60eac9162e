#pragma once

#include <string>
#include <vector>

/// A parameter of a separation node that a method reads.
struct MethodParameter {
  std::string name;
  std::string type;          ///< as in network documents: "int", "float", "string", "bool"
  std::string defaultValue;  ///< what the command sets when it is not asked otherwise
  std::string meaning;
  std::vector<std::string> choices = {};  ///< the texts it may have; empty: any of its type
};

/// A way of separating, as the command offers it.
struct Method {
  std::string name;      ///< what --method takes
  std::string nodeType;  ///< "BeamForming", "ML" or "MSNR"
  std::string choose;    ///< one line: when to choose it
  std::vector<MethodParameter> parameters;

  bool needsDatabase() const { return nodeType != "MSNR"; }
};

/// Every method, in the order they are listed to users.
const std::vector<Method>& methods();

/// The method of that name. Throws std::invalid_argument listing the names there are.
const Method& methodNamed(const std::string& name);
