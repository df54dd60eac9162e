// Network documents: XML text, or (without a '<' at the beginning) documents put together from the
// bytes. They are built, not run, and written and read again.
#include "NetworkBuilder.h"
#include "NetworkDocument.h"
#include "fuzz/Fuzzing.h"

namespace {

const char* const NAMES[] = {"MAIN", "A", "B", "C", "a", "b"};
const char* const TYPES[] = {"NOP", "Constant", "IterCount", "Smaller", "A", "B", "C", "none"};
const char* const TERMINALS[] = {"INPUT", "OUTPUT", "VALUE", "INPUT1", "INPUT2", "X", "Y"};
const char* const VALUE_TYPES[] = {"int", "float", "string", "bool", "object", "subnet_param"};

/// Puts a document together by choices, of names that often fit.
class Composer {
 public:
  explicit Composer(FuzzedDataProvider& input) : choices(input) {}

  FD::NetworkDocument document() {
    FD::NetworkDocument result{"document"};
    while (more()) result.networks.push_back(network());
    return result;
  }

 private:
  bool more() { return choices.remaining_bytes() > 0 && choices.ConsumeBool(); }
  std::string name() { return choices.PickValueInArray(NAMES); }
  std::string terminal() { return choices.PickValueInArray(TERMINALS); }

  FD::TerminalDescription bound() {
    const std::string label = terminal();
    const std::string node = name();
    return {label, node, terminal()};
  }

  FD::NetworkDescription network() {
    FD::NetworkDescription result;
    result.name = name();
    result.type = choices.PickValueInArray({"subnet", "iterator", "other"});
    while (more()) result.nodes.push_back(node());
    while (more()) {
      const FD::TerminalDescription from = bound();
      result.links.push_back({from.node, from.terminal, name(), terminal()});
    }
    while (more()) result.inputs.push_back(bound());
    while (more()) result.outputs.push_back(bound());
    if (more()) result.condition = bound();
    return result;
  }

  FD::NodeDescription node() {
    FD::NodeDescription result{name(), choices.PickValueInArray(TYPES)};
    while (more()) {
      const std::string type = choices.PickValueInArray(VALUE_TYPES);
      const std::string value = choices.ConsumeRandomLengthString(20);
      result.parameters.push_back({terminal(), type, value});
    }
    return result;
  }

  FuzzedDataProvider& choices;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider choices(data, size);
  try {
    const bool isText = size > 0 && data[0] == '<';
    const auto text = isText ? choices.ConsumeRemainingBytesAsString() : std::string();
    const auto document =
        isText ? FD::NetworkDocument::parse(text, "document") : Composer(choices).document();
    for (const FD::NetworkDescription& network : document.networks) {
      try {
        FD::buildNetwork(document, network.name, FD::argumentParameters({"1", "2.5", "text"}));
      } catch (const FD::DocumentError&) {
      }
    }
    const std::string xml = document.toXml();
    require(FD::NetworkDocument::parse(xml, "document").toXml() == xml, "writing keeps everything");
  } catch (const FD::DocumentError&) {
  }
  return 0;
}
