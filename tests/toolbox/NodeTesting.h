#pragma once

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "NetworkBuilder.h"
#include "ToolboxNode.h"
#include "gtest/gtest.h"
#include "tests/support/ThrownText.h"

/// What the tests of the nodes share: one layout of frames, parameters, stand-ins for other nodes.

inline constexpr int RATE = 1000;
inline constexpr int LENGTH = 64;
inline constexpr int ADVANCE = 16;
inline constexpr int BINS = LENGTH / 2 + 1;

inline FD::ObjectRef text(const std::string& value) { return FD::ObjectRef(new FD::String(value)); }
inline FD::ObjectRef number(int value) { return FD::ObjectRef(FD::Int::alloc(value)); }
inline FD::ObjectRef fraction(float value) { return FD::ObjectRef(FD::Float::alloc(value)); }
inline FD::ObjectRef truth(bool value) { return FD::ObjectRef(new FD::Bool(value)); }

using Parameters = std::vector<std::pair<const char*, FD::ObjectRef>>;

inline FD::ParameterSet parameterSet(const Parameters& parameters) {
  FD::ParameterSet set;
  for (const auto& [name, value] : parameters) set.add(name, value);
  return set;
}

/// LENGTH, ADVANCE and SAMPLING_RATE, then the others, which may replace them.
inline FD::ParameterSet withLayout(const Parameters& others) {
  FD::ParameterSet set = parameterSet(
      {{"LENGTH", number(LENGTH)}, {"ADVANCE", number(ADVANCE)}, {"SAMPLING_RATE", number(RATE)}});
  for (const auto& [name, value] : others) set.add(name, value);
  return set;
}

/// The text of the framework exception that action throws.
template <class Action>
std::string faultOf(Action action) {
  const std::string text = thrownText(action);
  if (text.empty()) ADD_FAILURE() << "nothing was thrown";
  return text;
}

/// A source node whose outputs are functions of the count.
class Stub : public FD::Node {
 public:
  using Output = std::function<FD::ObjectRef(int)>;

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

inline FD::ObjectRef sourceList(const std::set<int>& ids) {
  auto* list = new SourceList;
  for (const int id : ids) {
    auto* source = new FD::Source;
    source->id = id;
    list->push_back(FD::ObjectRef(source));
  }
  return FD::ObjectRef(list);
}

inline std::vector<int> ids(const FD::ObjectRef& list) {
  std::vector<int> found;
  for (const auto& source : FD::object_cast<SourceList>(list)) {
    found.push_back(FD::object_cast<FD::Source>(source).id);
  }
  return found;
}
