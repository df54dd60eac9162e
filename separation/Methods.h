#pragma once

#include <map>
#include <string>
#include <vector>

#include "bf/EngineFactory.h"
#include "separation/Settings.h"

/// What a number may be.
struct NumberRange {
  float least = 0.0F;
  float most = 0.0F;
  const char* text = "";  ///< for messages, after "expected"
};

/// A parameter of a separation node that a method reads.
struct MethodParameter {
  std::string name;
  std::string type;          ///< as in network documents: "int", "float", "string", "bool"
  std::string defaultValue;  ///< what the command sets when it is not asked otherwise
  std::string meaning;
  std::vector<std::string> choices = {};  ///< the texts it may have; empty: any of its type
  NumberRange range = {};                 ///< of a "float" or "int"
};

/// A way of separating, as the command offers it.
struct Method {
  std::string name;  ///< what --method takes
  BF::BfAlgorithmType algorithm;
  std::string nodeType;  ///< "BeamForming", "ML", "MSNR" or "MVDR"
  std::string choose;    ///< one line: when to choose it
  std::vector<MethodParameter> parameters;

  bool needsDatabase() const { return nodeType != "MSNR" && nodeType != "MVDR"; }

  /// Whether it works from whole impulse responses.
  bool needsResponses() const { return nodeType == "MVDR"; }

  /// Whether the matrices solve for all sources at once, which sources that the microphones hardly
  /// tell apart make nearly singular.
  bool solvesForSources() const {
    return nodeType == "BeamForming" && name != "DS" && name != "WDS";
  }
};

/// Every method, in the order they are listed to users.
const std::vector<Method>& methods();

/// What the engine of a method takes: the values given by the parameters' names, as texts that
/// their types, choices and ranges allow, and the defaults of the others. Numbers have the single
/// precision of the nodes' parameters.
BF::EngineParameters engineParameters(const Method& method,
                                      const std::map<std::string, std::string>& given);

/// Makes the method, its parameters and what MVDR is told beside them those of the settings.
void setMethod(const Method& method, const std::map<std::string, std::string>& given,
               Separation::Settings& settings);

/// The method of that name. Throws std::invalid_argument listing the names there are.
const Method& methodNamed(const std::string& name);
