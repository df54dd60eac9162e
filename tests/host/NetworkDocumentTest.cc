// Documents: reading, writing, every refusal, and what broken bytes do.

#include "NetworkDocument.h"

#include <fmt/format.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

#include "Runner.h"
#include "TestNodes.h"

using namespace FD;
using testing::HasSubstr;

namespace {

std::string element(const std::string& kind, const std::string& attributes) {
  return fmt::format("<{} {}/>", kind, attributes);
}

std::string node(const std::string& name, const std::string& type,
                 const std::string& parameters = "") {
  return fmt::format("<Node name='{}' type='{}' x='0' y='0'>{}</Node>", name, type, parameters);
}

std::string parameter(const std::string& name, const std::string& type, const std::string& value) {
  return element("Parameter", fmt::format("name='{}' type='{}' value='{}'", name, type, value));
}

std::string link(const std::string& from, const std::string& output, const std::string& to,
                 const std::string& input) {
  return element("Link",
                 fmt::format("from='{}' output='{}' to='{}' input='{}'", from, output, to, input));
}

std::string bound(const std::string& kind, const std::string& nodeName, const std::string& terminal,
                  const std::string& name = "OUTPUT") {
  return element(kind, fmt::format("name='{}' node='{}' terminal='{}'", name, nodeName, terminal));
}

std::string network(const std::string& name, const std::string& content,
                    const std::string& type = "subnet") {
  return fmt::format("<Network type='{}' name='{}'>{}</Network>", type, name, content);
}

std::string document(const std::string& content) {
  return fmt::format("<Document>{}</Document>", content);
}

const std::string COUNT = node("n", "IterCount");
const std::string OUT = bound("NetOutput", "n", "OUTPUT");

std::string run(const std::string& xml, const std::vector<std::string>& arguments = {}) {
  std::ostringstream out;
  std::ostringstream err;
  int status = 1;
  try {
    status = runNetwork(NetworkDocument::parse(xml, "test.n"), arguments, out, err);
  } catch (const DocumentError& e) {
    err << e.what() << "\n";
  }
  EXPECT_EQ(status != 0, !err.str().empty()) << err.str();
  return out.str() + err.str();
}

struct ErrorCase {
  std::string name;
  std::string xml;
  std::string message;
};

void PrintTo(const ErrorCase& error, std::ostream* out) { *out << error.name; }

// "Network.cc, line 57: …" with "#" for the number: that is not what these tests pin.
std::string withoutSourceLines(std::string text) {
  const std::string mark = ".cc, line ";
  for (std::size_t at = text.find(mark); at != std::string::npos; at = text.find(mark, at)) {
    at += mark.size();
    text.replace(at, text.find_first_not_of("0123456789", at) - at, "#");
  }
  return text;
}

class DocumentErrors : public testing::TestWithParam<ErrorCase> {};

TEST_P(DocumentErrors, nameThePlace) {
  EXPECT_EQ(withoutSourceLines(run(GetParam().xml)), GetParam().message + "\n");
}

std::vector<ErrorCase> formErrors() {
  return {
      {"empty", "", "test.n: line 1: not well-formed XML: No document element found"},
      {"notClosed", "<Document>\n<Network>\n</Document>",
       "test.n: line 3: not well-formed XML: Start-end tags mismatch"},
      {"root", "<html/>",
       "test.n: not a network document: the root element is 'html', expected 'Document'"},
      {"networkName", "<Document><Network type='subnet'/></Document>",
       "test.n: element Network has no attribute 'name'"},
      {"networkType", "<Document><Network name='MAIN'/></Document>",
       "test.n: network 'MAIN': element Network 'MAIN' has no attribute 'type'"},
      {"nodePosition", document(network("MAIN", "<Node name='n' type='NOP' x='0'/>")),
       "test.n: network 'MAIN': element Node 'n' has no attribute 'y'"},
      {"parameterType",
       document(network("MAIN", node("n", "NOP", element("Parameter", "name='P' value=''")))),
       "test.n: network 'MAIN': node 'n': element Parameter 'P' has no attribute 'type'"},
      {"linkEnd", document(network("MAIN", element("Link", "from='a' output='b' to='c'"))),
       "test.n: network 'MAIN': element Link has no attribute 'input'"},
      {"terminal", document(network("MAIN", element("NetOutput", "name='O' node='n'"))),
       "test.n: network 'MAIN': element NetOutput 'O' has no attribute 'terminal'"},
      {"conditions",
       document(network("MAIN", bound("NetCondition", "n", "O") + bound("NetCondition", "n", "O"))),
       "test.n: network 'MAIN': more than one NetCondition"},
  };
}

std::vector<ErrorCase> networkErrors() {
  return {
      {"noMain", document(network("OTHER", COUNT + OUT)),
       "test.n: there is no network named 'MAIN'"},
      {"twoNetworks", document(network("MAIN", COUNT + OUT) + network("MAIN", COUNT + OUT)),
       "test.n: two networks are named 'MAIN'"},
      {"networkKind", document(network("MAIN", COUNT + OUT, "thread")),
       "test.n: network 'MAIN': unknown type 'thread'; expected subnet or iterator"},
      {"noOutput", document(network("MAIN", COUNT)),
       "test.n: network 'MAIN': has no output (NetOutput)"},
      {"noCondition", document(network("MAIN", COUNT + OUT, "iterator")),
       "test.n: network 'MAIN': an iterator needs a condition (NetCondition)"},
      {"condition", document(network("MAIN", COUNT + OUT + bound("NetCondition", "n", "OUTPUT"))),
       "test.n: network 'MAIN': has a condition (NetCondition), but is not of type iterator"},
      {"conditionNode",
       document(network("MAIN", COUNT + OUT + bound("NetCondition", "m", "OUTPUT"), "iterator")),
       "test.n: network 'MAIN': NetCondition 'OUTPUT' of node 'm' terminal 'OUTPUT': Network.cc, "
       "line #: There is no node named m"},
      {"nodeType", document(network("MAIN", node("n", "Nonsense") + OUT)),
       "test.n: network 'MAIN': node 'n': unknown node type 'Nonsense'"},
      {"twoNodes", document(network("MAIN", COUNT + COUNT + OUT)),
       "test.n: network 'MAIN': node 'n': Network.cc, line #: node MAIN (type MAIN): Two nodes are "
       "named n"},
      {"circle",
       document(network("MAIN", node("a", "A") + OUT) + network("A", node("b", "B") + OUT) +
                network("B", node("c", "A") + OUT)),
       "test.n: network 'B': node 'c': circular inclusion of networks: MAIN -> A -> B -> A"},
      {"circleOfOne", document(network("MAIN", node("n", "MAIN") + OUT)),
       "test.n: network 'MAIN': node 'n': circular inclusion of networks: MAIN -> MAIN"},
      {"doWhile",
       document(network("MAIN", node("l", "L", parameter("DOWHILE", "int", "1")) + OUT) +
                network("L", COUNT + OUT + bound("NetCondition", "n", "OUTPUT"), "iterator")),
       "test.n: network 'L': Cast error: found FD::NetCType<int>, expected bool"},
  };
}

std::vector<ErrorCase> terminalErrors() {
  const std::string nop = node("p", "NOP");
  return {
      {"linkFromNode", document(network("MAIN", COUNT + nop + link("m", "O", "p", "INPUT") + OUT)),
       "test.n: network 'MAIN': link from node 'm' output 'O' to node 'p' input 'INPUT': "
       "Network.cc, line #: There is no node named m"},
      {"linkOutput", document(network("MAIN", COUNT + nop + link("n", "O", "p", "INPUT") + OUT)),
       "test.n: network 'MAIN': link from node 'n' output 'O' to node 'p' input 'INPUT': Node.cc, "
       "line #: node n (type IterCount): Unknown output O"},
      {"linkInput", document(network("MAIN", COUNT + nop + link("n", "OUTPUT", "p", "I") + OUT)),
       "test.n: network 'MAIN': link from node 'n' output 'OUTPUT' to node 'p' input 'I': Node.cc, "
       "line #: node p (type NOP): Unknown input I"},
      {"linkedTwice",
       document(network("MAIN", COUNT + nop + link("n", "OUTPUT", "p", "INPUT") +
                                    link("p", "OUTPUT", "p", "INPUT") + OUT)),
       "test.n: network 'MAIN': link from node 'p' output 'OUTPUT' to node 'p' input 'INPUT': the "
       "input is linked already"},
      {"inputLinkedTwice",
       document(network("MAIN", COUNT + nop + link("n", "OUTPUT", "p", "INPUT") +
                                    bound("NetInput", "p", "INPUT", "IN") + OUT)),
       "test.n: network 'MAIN': NetInput 'IN' of node 'p' terminal 'INPUT': the input is linked "
       "already"},
      {"netInput", document(network("MAIN", COUNT + bound("NetInput", "n", "X", "IN") + OUT)),
       "test.n: network 'MAIN': NetInput 'IN' of node 'n' terminal 'X': Node.cc, line #: node n "
       "(type IterCount): Unknown input X"},
      {"netOutput", document(network("MAIN", COUNT + bound("NetOutput", "n", "X"))),
       "test.n: network 'MAIN': NetOutput 'OUTPUT' of node 'n' terminal 'X': Node.cc, line #: node "
       "n (type IterCount): Unknown output X"},
      {"twoOutputs", document(network("MAIN", COUNT + OUT + OUT)),
       "test.n: network 'MAIN': NetOutput 'OUTPUT' of node 'n' terminal 'OUTPUT': two outputs have "
       "this name"},
      {"subnetInput",
       document(network("MAIN", COUNT + node("s", "S") + link("n", "OUTPUT", "s", "IN") + OUT) +
                network("S", COUNT + OUT)),
       "test.n: network 'MAIN': link from node 'n' output 'OUTPUT' to node 's' input 'IN': "
       "Node.cc, "
       "line #: node s (type S): Unknown input IN"},
  };
}

std::vector<ErrorCase> parameterErrors() {
  const auto constant = [](const std::string& parameters) {
    return document(
        network("MAIN", node("c", "Constant", parameters) + bound("NetOutput", "c", "VALUE")));
  };
  return {
      {"missing", constant(""),
       "test.n: network 'MAIN': node 'c' (type Constant): Missing parameter: VALUE\nGiven "
       "parameters:"},
      {"emptyIsNotSet", constant(parameter("VALUE", "int", "")),
       "test.n: network 'MAIN': node 'c' (type Constant): Missing parameter: VALUE\nGiven "
       "parameters:"},
      {"absentSubnetParam", constant(parameter("VALUE", "subnet_param", "ARG1")),
       "test.n: network 'MAIN': node 'c' (type Constant): Missing parameter: VALUE\nGiven "
       "parameters:"},
      {"value", constant(parameter("VALUE", "int", "abc")),
       "test.n: network 'MAIN': node 'c': parameter 'VALUE': 'abc' is not an int"},
      {"type", constant(parameter("VALUE", "double", "1")),
       "test.n: network 'MAIN': node 'c': parameter 'VALUE': unknown type 'double'; expected int, "
       "float, string, bool, object or subnet_param"},
      {"twice", constant(parameter("VALUE", "int", "1") + parameter("VALUE", "int", "2")),
       "test.n: network 'MAIN': node 'c': parameter 'VALUE': is given twice"},
      {"constructor",
       document(network(
           "MAIN", node("t", "Thrower",
                        parameter("AT", "int", "-1") + parameter("KIND", "string", "standard")) +
                       OUT)),
       "test.n: network 'MAIN': node 't' (type Thrower): broken, too"},
      {"constructorOther",
       document(network("MAIN",
                        node("t", "Thrower",
                             parameter("AT", "int", "-1") + parameter("KIND", "string", "other")) +
                            OUT)),
       "test.n: network 'MAIN': node 't' (type Thrower): unknown exception"},
  };
}

std::string nameOf(const testing::TestParamInfo<ErrorCase>& info) { return info.param.name; }

INSTANTIATE_TEST_SUITE_P(Form, DocumentErrors, testing::ValuesIn(formErrors()), nameOf);
INSTANTIATE_TEST_SUITE_P(Network, DocumentErrors, testing::ValuesIn(networkErrors()), nameOf);
INSTANTIATE_TEST_SUITE_P(Terminal, DocumentErrors, testing::ValuesIn(terminalErrors()), nameOf);
INSTANTIATE_TEST_SUITE_P(Parameter, DocumentErrors, testing::ValuesIn(parameterErrors()), nameOf);

// ---- what is accepted

TEST(NetworkDocument, argumentsReachMainAndTheNetworksItPassesThemTo) {
  const auto constant = [](const std::string& name, const std::string& argument) {
    return node(name, "Constant", parameter("VALUE", "subnet_param", argument)) +
           bound("NetOutput", name, "VALUE", name);
  };
  const std::string xml =
      document(network("MAIN", constant("a", "ARG1") + constant("b", "int:ARG2") +
                                   constant("c", "float:ARG2") + constant("d", "string:ARG2") +
                                   node("s", "S", parameter("GAIN", "subnet_param", "float:ARG2")) +
                                   bound("NetOutput", "s", "OUTPUT", "s")) +
               network("S", node("c", "Constant", parameter("VALUE", "subnet_param", "GAIN")) +
                                bound("NetOutput", "c", "VALUE")));
  EXPECT_EQ(run(xml, {"a b", "12"}),
            "<String a b >\n<Int 12 >\n<Float 12 >\n<String 12 >\n<Float 12 >\n");
  EXPECT_EQ(run(xml, {"x", "y"}),
            "test.n: network 'MAIN': node 'b': parameter 'VALUE': 'y' is not an int\n");
}

TEST(NetworkDocument, notesPositionsAndLinkPointsMeanNothing) {
  EXPECT_EQ(
      run(document("<!-- c --><Note text='x'/>" +
                   network("MAIN", "<Note x='1'>free text</Note>" + COUNT +
                                       "<Node name='p' type='NOP' x='left' y='' colour='red'/>"
                                       "<Link from='n' output='OUTPUT' to='p' input='INPUT'>"
                                       "1 2 3.5 4</Link>" +
                                       bound("NetOutput", "p", "OUTPUT")))),
      "<Int 0 >\n");
}

TEST(NetworkDocument, anUnlinkedNetworkInputLeavesTheNodesInputUnlinked) {
  const std::string inner =
      network("S", node("o", "Optional") + bound("NetInput", "o", "EXTRA", "IN") +
                       bound("NetOutput", "o", "OUTPUT"));
  const std::string middle = network("M", node("s", "S") + bound("NetInput", "s", "IN", "OUTER") +
                                              bound("NetOutput", "s", "OUTPUT"));
  const std::string main =
      COUNT + node("linked", "M") + node("unlinked", "M") + link("n", "OUTPUT", "linked", "OUTER") +
      bound("NetOutput", "linked", "OUTPUT", "A") + bound("NetOutput", "unlinked", "OUTPUT", "B");
  EXPECT_EQ(run(document(network("MAIN", main) + middle + inner)), "<Int 1 >\n<Int -1 >\n");
}

TEST(NetworkDocument, inclusionThatGrowsWithoutBoundsIsRefused) {
  std::string wide = network("MAIN", node("n", "W0") + OUT);
  std::string deep = network("MAIN", node("n", "W0") + OUT);
  for (int i = 0; i < 70; ++i) {
    const std::string next = fmt::format("W{}", i + 1);
    const std::string name = fmt::format("W{}", i);
    deep += network(name, node("n", next) + OUT);
    if (i < 30) wide += network(name, node("n", next) + node("m", next) + OUT);
  }
  wide += network("W30", COUNT + OUT);
  std::string outputs;
  for (int i = 0; i < 1000; ++i)
    outputs += bound("NetOutput", "c", "OUTPUT", fmt::format("O{}", i));
  std::string terminals = network("W", node("c", "IterCount") + outputs);
  std::string many;
  for (int i = 0; i < 1000; ++i) many += node(fmt::format("n{}", i), "W");
  terminals += network("MAIN", many + OUT);
  const auto tooMany =
      HasSubstr("the networks include more than 100000 nodes, links and terminals in all");
  EXPECT_THAT(run(document(wide)), tooMany);
  EXPECT_THAT(run(document(terminals)), tooMany);
  EXPECT_THAT(run(document(deep)), HasSubstr("networks are included more than 64 levels deep"));
}

NetworkDocument sample() {
  NetworkDescription main{"MAIN"};
  main.nodes = {{"loop", "LOOP", {{"TEXT", "string", "a<b> & \"c\" 'd'\n\té"}}}, {"n", "NOP"}};
  main.links = {{"loop", "OUTPUT", "n", "INPUT"}};
  main.outputs = {{"OUTPUT", "n", "OUTPUT"}};
  NetworkDescription loop{"LOOP", "iterator"};
  loop.nodes = {{"text", "Constant", {{"VALUE", "subnet_param", "TEXT"}}},
                {"count", "IterCount"},
                {"limit", "Constant", {{"VALUE", "object", "<Int 2>"}}},
                {"smaller", "Smaller"}};
  loop.links = {{"count", "OUTPUT", "smaller", "INPUT1"}, {"limit", "VALUE", "smaller", "INPUT2"}};
  loop.outputs = {{"OUTPUT", "text", "VALUE"}};
  loop.condition = TerminalDescription{"CONDITION", "smaller", "OUTPUT"};
  return {"sample", {main, loop}};
}

TEST(NetworkDocument, whatIsWrittenReadsBackAndRunsTheSame) {
  const std::string xml = sample().toXml();
  EXPECT_EQ(run(xml), "<String a<b> & \"c\" 'd'\n\té >\n");
  EXPECT_EQ(NetworkDocument::parse(xml, "again").toXml(), xml);
  EXPECT_THAT(xml, HasSubstr("<Node name=\"n\" type=\"NOP\" x=\"120\" y=\"0\""));

  NetworkDocument bad = sample();
  bad.networks[0].name = "MA\x01IN";
  try {
    bad.toXml();
    FAIL();
  } catch (const DocumentError& e) {
    EXPECT_STREQ(e.what(), "sample: the character with code 1 in a text cannot be written as XML");
  }
}

TEST(NetworkDocument, filesThatCannotBeReadAreErrors) {
  const auto folder = std::filesystem::temp_directory_path();
  for (const auto& [path, reason] :
       {std::pair(folder / "no-such-document.n", "No such file or directory"),
        std::pair(folder, "Is a directory")}) {
    std::ostringstream out;
    std::ostringstream err;
    EXPECT_EQ(runNetworkFile(path, {}, out, err), 1);
    EXPECT_EQ(err.str(), path.string() + ": cannot be read: " + reason + "\n");
  }
}

TEST(NetworkDocument, damagedBytesNeverCrash) {
  const std::string whole = sample().toXml();
  for (std::size_t length = 0; length < whole.size(); length += 3) run(whole.substr(0, length));
  std::mt19937 random(7);
  int refused = 0;
  for (int i = 0; i < 3000; ++i) {
    std::string damaged = whole;
    for (int k = 0; k < 1 + i % 3; ++k) {
      const std::size_t at = random() % whole.size();
      if (i % 2) {
        damaged[at] = static_cast<char>(random());
      } else {  // moves a piece of the document elsewhere
        damaged.insert(random() % damaged.size(), whole.substr(at, random() % 60));
      }
    }
    // A loop without an end is a network like any other; here a hook ends it.
    std::ostringstream out;
    std::ostringstream err;
    try {
      const auto parsed = NetworkDocument::parse(damaged, "damaged");
      refused += runNetwork(parsed, {}, out, err, [](int frame) { return frame < 20; });
    } catch (const DocumentError&) {
      ++refused;
    }
  }
  EXPECT_GT(refused, 1000);
  EXPECT_LT(refused, 3000);
}

}  // namespace
