#include "NetworkBuilder.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <memory>
#include <set>
#include <utility>

#include "NodeFactory.h"
#include "ParameterValue.h"
#include "net_types.h"

namespace FD {
inline namespace zelk {

namespace {

// Documents are untrusted: networks that include each other several times over grow exponentially,
// and deep inclusion uses the stack. Both limits are far beyond any network that is meant to run.
constexpr std::size_t MAX_PARTS = 100000;
constexpr std::size_t MAX_INCLUSION_DEPTH = 64;

using NameSet = std::set<std::string>;

// Runs action; whatever it throws becomes a DocumentError that begins with place.
template <class Action>
auto reporting(const std::string& place, Action action) {
  try {
    return action();
  } catch (BaseException* e) {
    const std::unique_ptr<BaseException> owner(e);
    throw DocumentError(place + ": " + describe(*e));
  } catch (const DocumentError&) {
    throw;
  } catch (const std::exception& e) {
    throw DocumentError(place + ": " + e.what());
  } catch (...) {
    throw DocumentError(place + ": unknown exception");
  }
}

// A new node; a C++ exception of its constructor is told with its class.
RCPtr<Node> createNode(const std::string& place, _NodeFactory& factory, const std::string& name,
                       const ParameterSet& params) {
  return reporting(place, [&] {
    try {
      return RCPtr<Node>(factory.Create(name, params));
    } catch (const std::exception& e) {
      throw DocumentError(place + ": " + describe(e));
    }
  });
}

/// One building of a network from a document.
class Builder {
 public:
  Builder(const NetworkDocument& networkDocument, const Iterator::FrameHook& hook)
      : document(networkDocument), onFrame(hook) {
    NameSet names;
    for (const NetworkDescription& network : document.networks) {
      if (names.insert(network.name).second) continue;
      throw DocumentError(
          fmt::format("{}: two networks are named '{}'", document.source, network.name));
    }
  }

  RCPtr<Network> buildMain(const std::string& name, const ParameterSet& params) {
    const NetworkDescription* const description = find(name);
    if (!description) {
      throw DocumentError(fmt::format("{}: there is no network named '{}'", document.source, name));
    }
    return build(*description, name, params, {}, false);
  }

 private:
  const NetworkDescription* find(const std::string& name) const {
    const auto found =
        std::find_if(document.networks.begin(), document.networks.end(),
                     [&](const NetworkDescription& network) { return network.name == name; });
    return found == document.networks.end() ? nullptr : &*found;
  }

  std::string place(const NetworkDescription& network) const {
    return fmt::format("{}: network '{}'", document.source, network.name);
  }

  static void check(bool good, const std::string& where, const std::string& problem) {
    if (!good) throw DocumentError(where + ": " + problem);
  }

  // linked: which of the network's inputs the outer network links to something.
  RCPtr<Network> build(const NetworkDescription& description, const std::string& nodeName,
                       const ParameterSet& params, const NameSet& linked, bool insideLoop) {
    const std::string where = place(description);
    const bool loop = description.type == "iterator";
    check(loop || description.type == "subnet", where,
          fmt::format("unknown type '{}'; expected subnet or iterator", description.type));
    check(!description.outputs.empty(), where, "has no output (NetOutput)");
    check(!loop || description.condition, where, "an iterator needs a condition (NetCondition)");
    check(loop || !description.condition, where,
          "has a condition (NetCondition), but is not of type iterator");

    countParts(where, description);
    inclusion.push_back(description.name);
    const RCPtr<Network> network = reporting(where, [&] {
      return RCPtr<Network>(loop ? new Iterator(nodeName, params) : new Network(nodeName, params));
    });
    network->setType(description.name);
    for (const NodeDescription& node : description.nodes) {
      addNode(*network, description, node, params, linked, insideLoop || loop);
    }
    addLinks(*network, description);
    addTerminals(*network, description, linked);
    if (loop) {
      Iterator& iterator = dynamic_cast<Iterator&>(*network);
      bindCondition(iterator, description);
      if (!insideLoop) iterator.setFrameHook(onFrame);
    }
    inclusion.pop_back();
    return network;
  }

  void countParts(const std::string& where, const NetworkDescription& description) {
    partCount += description.nodes.size() + description.links.size() + description.inputs.size() +
                 description.outputs.size();
    check(partCount <= MAX_PARTS, where,
          fmt::format("the networks include more than {} nodes, links and terminals in all",
                      MAX_PARTS));
  }

  // ---- nodes

  void addNode(Network& network, const NetworkDescription& description, const NodeDescription& node,
               const ParameterSet& scope, const NameSet& linked, bool insideLoop) {
    const std::string where = fmt::format("{}: node '{}'", place(description), node.name);
    const ParameterSet params = parameters(where, node, scope);
    RCPtr<Node> built;
    if (_NodeFactory* const factory = Node::getFactoryNamed(node.type)) {
      built =
          createNode(fmt::format("{} (type {})", where, node.type), *factory, node.name, params);
    } else if (const NetworkDescription* const included = find(node.type)) {
      checkInclusion(where, node.type);
      built =
          build(*included, node.name, params, linkedInputs(description, node, linked), insideLoop);
    } else {
      throw DocumentError(fmt::format("{}: unknown node type '{}'", where, node.type));
    }
    built->setType(node.type);
    reporting(where, [&] { network.addNode(built); });
  }

  void checkInclusion(const std::string& where, const std::string& type) const {
    if (std::find(inclusion.begin(), inclusion.end(), type) != inclusion.end()) {
      throw DocumentError(fmt::format("{}: circular inclusion of networks: {} -> {}", where,
                                      fmt::join(inclusion, " -> "), type));
    }
    check(inclusion.size() < MAX_INCLUSION_DEPTH, where,
          fmt::format("networks are included more than {} levels deep", MAX_INCLUSION_DEPTH));
  }

  static NameSet linkedInputs(const NetworkDescription& description, const NodeDescription& node,
                              const NameSet& linked) {
    NameSet result;
    for (const LinkDescription& link : description.links) {
      if (link.to == node.name) result.insert(link.input);
    }
    for (const TerminalDescription& input : description.inputs) {
      if (input.node == node.name && linked.count(input.name)) result.insert(input.terminal);
    }
    return result;
  }

  static ParameterSet parameters(const std::string& nodePlace, const NodeDescription& node,
                                 const ParameterSet& scope) {
    ParameterSet result;
    NameSet names;
    for (const ParameterDescription& parameter : node.parameters) {
      const std::string where = fmt::format("{}: parameter '{}'", nodePlace, parameter.name);
      check(names.insert(parameter.name).second, where, "is given twice");
      const ObjectRef value = reporting(where, [&] { return valueOf(parameter, scope); });
      if (!value.isNil()) result.add(parameter.name, value);
    }
    return result;
  }

  // A null reference: not set.
  static ObjectRef valueOf(const ParameterDescription& parameter, const ParameterSet& scope) {
    if (parameter.value.empty()) return ObjectRef();
    if (parameter.type != "subnet_param") return parseValue(parameter.type, parameter.value);
    if (scope.exist(parameter.value)) return scope.get(parameter.value);
    refuseMistypedArgument(parameter.value, scope);
    return ObjectRef();
  }

  // "int:ARG1" is missing when the argument is missing, which is not an error here, but also when
  // the argument is no int, which must not go unnoticed.
  static void refuseMistypedArgument(const std::string& name, const ParameterSet& scope) {
    const std::size_t colon = name.find(':');
    if (colon == std::string::npos || name.compare(colon + 1, 3, "ARG") != 0) return;
    const std::string argument = name.substr(colon + 1);
    if (!scope.exist(argument)) return;
    parseValue(name.substr(0, colon), object_cast<String>(scope.get(argument)));
  }

  // ---- links and terminals

  void addLinks(Network& network, const NetworkDescription& description) const {
    std::set<std::pair<std::string, std::string>> taken;
    for (const LinkDescription& link : description.links) {
      const std::string where =
          fmt::format("{}: link from node '{}' output '{}' to node '{}' input '{}'",
                      place(description), link.from, link.output, link.to, link.input);
      check(taken.insert({link.to, link.input}).second, where, "the input is linked already");
      reporting(where, [&] { network.connect(link.to, link.input, link.from, link.output); });
    }
    for (const TerminalDescription& input : description.inputs) {
      check(taken.insert({input.node, input.terminal}).second,
            terminalPlace(description, "NetInput", input), "the input is linked already");
    }
  }

  std::string terminalPlace(const NetworkDescription& description, const char* kind,
                            const TerminalDescription& bound) const {
    return fmt::format("{}: {} '{}' of node '{}' terminal '{}'", place(description), kind,
                       bound.name, bound.node, bound.terminal);
  }

  void addTerminals(Network& network, const NetworkDescription& description,
                    const NameSet& linked) const {
    for (const TerminalDescription& input : description.inputs) {
      reporting(terminalPlace(description, "NetInput", input), [&] {
        // Left out of the net when nothing comes in, so that the node sees an unlinked input.
        if (linked.count(input.name))
          return network.bindInput(input.name, input.node, input.terminal);
        network.declareInput(input.name);
        network.getNodeNamed(input.node).translateInput(input.terminal);
      });
    }
    NameSet names;
    for (const TerminalDescription& output : description.outputs) {
      const std::string where = terminalPlace(description, "NetOutput", output);
      check(names.insert(output.name).second, where, "two outputs have this name");
      reporting(where, [&] { network.bindOutput(output.name, output.node, output.terminal); });
    }
  }

  void bindCondition(Iterator& iterator, const NetworkDescription& description) const {
    const TerminalDescription& condition = *description.condition;
    reporting(terminalPlace(description, "NetCondition", condition),
              [&] { iterator.bindCondition(condition.node, condition.terminal); });
  }

  const NetworkDocument& document;
  const Iterator::FrameHook& onFrame;
  std::vector<std::string> inclusion;  // the networks being built, outermost first
  std::size_t partCount = 0;
};

}  // namespace

RCPtr<Network> buildNetwork(const NetworkDocument& document, const std::string& name,
                            const ParameterSet& params, const Iterator::FrameHook& onFrame) {
  return Builder(document, onFrame).buildMain(name, params);
}

ParameterSet argumentParameters(const std::vector<std::string>& arguments) {
  ParameterSet result;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string name = fmt::format("ARG{}", i + 1);
    const ObjectRef text(new String(arguments[i]));
    result.add(name, text);
    result.add("string:" + name, text);
    if (const auto number = parseInt(arguments[i])) {
      result.add("int:" + name, ObjectRef(Int::alloc(*number)));
    }
    if (const auto number = parseFloat(arguments[i])) {
      result.add("float:" + name, ObjectRef(Float::alloc(*number)));
    }
  }
  return result;
}

}  // namespace zelk
}  // namespace FD
