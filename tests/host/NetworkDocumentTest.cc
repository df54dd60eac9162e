// Documents: reading, writing, and every refusal.

#include "NetworkDocument.h"

#include <fmt/format.h>

#include <filesystem>
#include <regex>
#include <sstream>

#include "Runner.h"
#include "TestNodes.h"

using namespace FD;
using testing::HasSubstr;

namespace {

std::string node(const std::string& name, const std::string& type,
                 const std::string& parameters = "") {
  return fmt::format("<Node name='{}' type='{}' x='0' y='0'>{}</Node>", name, type, parameters);
}

std::string parameter(const std::string& name, const std::string& type, const std::string& value) {
  return fmt::format("<Parameter name='{}' type='{}' value='{}'/>", name, type, value);
}

std::string link(const std::string& from, const std::string& output, const std::string& to,
                 const std::string& input) {
  return fmt::format("<Link from='{}' output='{}' to='{}' input='{}'/>", from, output, to, input);
}

/// A NetInput, NetOutput or NetCondition.
std::string bound(const std::string& kind, const std::string& nodeName, const std::string& terminal,
                  const std::string& name = "OUTPUT") {
  return fmt::format("<{} name='{}' node='{}' terminal='{}'/>", kind, name, nodeName, terminal);
}

std::string network(const std::string& name, const std::string& content,
                    const std::string& type = "subnet") {
  return fmt::format("<Network type='{}' name='{}'>{}</Network>", type, name, content);
}

/// A document of MAIN, with this content, and other networks.
std::string document(const std::string& main, const std::string& others = "") {
  return "<Document>" + network("MAIN", main) + others + "</Document>";
}

const std::string COUNT = node("n", "IterCount");
const std::string OUT = bound("NetOutput", "n", "OUTPUT");

/// What is printed and reported; "#" for the sources' line numbers, which these tests do not pin.
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
  const std::regex sourceLine("cc, line [0-9]+");
  return out.str() + std::regex_replace(err.str(), sourceLine, "cc, line #");
}

TEST(NetworkDocument, ADocumentThatIsWrongIsRefusedWithThePlace) {
  const std::pair<std::string, std::string> cases[] = {
      {"", "line 1: not well-formed XML: No document element found"},
      {"<Document>\n<Network>\n</Document>",
       "line 3: not well-formed XML: Start-end tags mismatch"},
      {"<html/>", "not a network document: the root element is 'html', expected 'Document'"},
      {"<Document><Network type='subnet'/></Document>", "element Network has no attribute 'name'"},
      {"<Document>\n<Net/></Document>", "line 2: unknown element 'Net', expected Network or Note"},
      {"<Document>" + network("OTHER", COUNT + OUT) + "</Document>",
       "there is no network named 'MAIN'"},
      {document(COUNT + OUT, network("MAIN", COUNT + OUT)), "two networks are named 'MAIN'"},
      {document(node("n", "W") + OUT, network("W", COUNT + OUT, "thread")),
       "network 'W': unknown type 'thread'; expected subnet or iterator"},
      {document(node("n", "L") + OUT, network("L", COUNT + OUT, "iterator")),
       "network 'L': an iterator needs a condition (NetCondition)"},
      {document(node("n", "L", parameter("DOWHILE", "int", "1")) + OUT,
                network("L", COUNT + OUT + bound("NetCondition", "n", "OUTPUT"), "iterator")),
       "network 'L': Cast error: found FD::NetCType<int>, expected bool"},
      {document(node("n", "L") + OUT,
                network("L", COUNT + OUT + bound("NetCondition", "m", "OUTPUT"), "iterator")),
       "network 'L': NetCondition 'OUTPUT' of node 'm' terminal 'OUTPUT': Network.cc, line #: "
       "There is no node named m"},
      {document(node("a", "A") + OUT,
                network("A", node("b", "B") + OUT) + network("B", node("c", "A") + OUT)),
       "network 'B': node 'c': circular inclusion of networks: MAIN -> A -> B -> A"},
  };
  for (const auto& [xml, message] : cases) EXPECT_EQ(run(xml), "test.n: " + message + "\n") << xml;
}

TEST(NetworkDocument, AMainNetworkThatIsWrongIsRefusedWithThePlace) {
  const std::string nop = node("p", "NOP");
  const std::string linked = COUNT + nop + link("n", "OUTPUT", "p", "INPUT");
  const auto constant = [](const std::string& parameters) {
    return node("c", "Constant", parameters) + bound("NetOutput", "c", "VALUE");
  };
  const auto thrower = [](const std::string& kind) {
    return node("t", "Thrower", parameter("AT", "int", "-1") + parameter("KIND", "string", kind));
  };
  const std::pair<std::string, std::string> cases[] = {
      {node("n", "NOP", "<Parameter name='P' value=''/>") + OUT,
       "node 'n': element Parameter 'P' has no attribute 'type'"},
      {"<Link from='a' output='b' to='c'/>", "element Link has no attribute 'input'"},
      {bound("NetCondition", "n", "O") + bound("NetCondition", "n", "O"),
       "more than one NetCondition"},
      {COUNT, "has no output (NetOutput)"},
      {COUNT + OUT + bound("NetCondition", "n", "OUTPUT"),
       "has a condition (NetCondition), but is not of type iterator"},
      {node("n", "Nothing") + OUT, "node 'n': unknown node type 'Nothing'"},
      {COUNT + COUNT + OUT,
       "node 'n': Network.cc, line #: node MAIN (type MAIN): Two nodes are named n"},
      {COUNT + nop + link("n", "O", "p", "INPUT") + OUT,
       "link from node 'n' output 'O' to node 'p' input 'INPUT': Node.cc, line #: node n (type "
       "IterCount): Unknown output O"},
      {linked + link("p", "OUTPUT", "p", "INPUT") + OUT,
       "link from node 'p' output 'OUTPUT' to node 'p' input 'INPUT': the input is linked already"},
      {linked + bound("NetInput", "p", "INPUT", "IN") + OUT,
       "NetInput 'IN' of node 'p' terminal 'INPUT': the input is linked already"},
      {COUNT + bound("NetInput", "n", "X", "IN") + OUT,
       "NetInput 'IN' of node 'n' terminal 'X': Node.cc, line #: node n (type IterCount): Unknown "
       "input X"},
      {COUNT + bound("NetOutput", "n", "X"),
       "NetOutput 'OUTPUT' of node 'n' terminal 'X': Node.cc, line #: node n (type IterCount): "
       "Unknown output X"},
      {COUNT + OUT + OUT,
       "NetOutput 'OUTPUT' of node 'n' terminal 'OUTPUT': two outputs have this name"},
      {constant(parameter("VALUE", "int", "")),
       "node 'c' (type Constant): Missing parameter: VALUE\nGiven parameters:"},
      {constant(parameter("VALUE", "subnet_param", "ARG1")),
       "node 'c' (type Constant): Missing parameter: VALUE\nGiven parameters:"},
      {constant(parameter("VALUE", "int", "1") + parameter("VALUE", "int", "2")),
       "node 'c': parameter 'VALUE': is given twice"},
      {COUNT + "\n<Links/>" + OUT,
       "line 2: unknown element 'Links', expected Node, Link, ProbeLink, NetInput, NetOutput, "
       "NetCondition or Note"},
      {node("n", "NOP", "\n\n<Param/>") + OUT,
       "node 'n': line 3: unknown element 'Param', expected Parameter or Note"},
      {linked + "<Link from='n' output='OUTPUT' to='p' input='INPUT'><Point/></Link>" + OUT,
       "line 1: unknown element 'Point', expected none in Link"},
      {node("n", "NOP", "<Parameter name='P' type='int' value='1'><Value/></Parameter>") + OUT,
       "node 'n': line 1: unknown element 'Value', expected none in Parameter"},
      {thrower("standard") + OUT, "node 't' (type Thrower): std::runtime_error: broken, too"},
      {thrower("other") + OUT, "node 't' (type Thrower): unknown exception"},
  };
  for (const auto& [content, message] : cases) {
    EXPECT_EQ(run(document(content)), "test.n: network 'MAIN': " + message + "\n");
  }
}

#ifdef __SANITIZE_ADDRESS__
// What a node's constructor throws is read when the node is gone, as in an installed FlowDesigner.
TEST(NetworkDocumentDeathTest, AnExceptionThatIsNotFrozenIsFoundByTheSanitizer) {
  const std::string thrower =
      node("t", "Thrower", parameter("AT", "int", "-1") + parameter("KIND", "string", "framework"));
  EXPECT_DEATH(run(document(thrower + OUT)), "heap-use-after-free");
}
#endif

TEST(NetworkDocument, InclusionThatGrowsWithoutBoundsIsRefused) {
  std::string wide;
  std::string deep;
  for (int i = 0; i < 70; ++i) {
    const std::string name = fmt::format("W{}", i);
    const std::string next = fmt::format("W{}", i + 1);
    deep += network(name, node("n", next) + OUT);
    wide += network(name, i < 30 ? node("n", next) + node("m", next) + OUT : COUNT + OUT);
  }
  std::string outputs;
  std::string nodes;
  for (int i = 0; i < 1000; ++i) {
    outputs += bound("NetOutput", "n", "OUTPUT", fmt::format("O{}", i));
    nodes += node(fmt::format("n{}", i), "W");
  }
  const std::string first = node("n", "W0") + OUT;
  const auto tooMany =
      HasSubstr("the networks include more than 100000 nodes, links and terminals in all");
  EXPECT_THAT(run(document(first, wide)), tooMany);
  EXPECT_THAT(run(document(nodes + OUT, network("W", COUNT + outputs))), tooMany);
  EXPECT_THAT(run(document(first, deep)), HasSubstr("networks are included more than 64 levels"));
}

TEST(NetworkDocument, FilesThatCannotBeReadAreErrors) {
  const auto folder = std::filesystem::temp_directory_path();
  for (const auto& [path, reason] :
       {std::pair(folder / "no-such-document.n", "cannot be read: No such file or directory"),
        std::pair(folder, "cannot be read: Is a directory"),
        std::pair(std::filesystem::path("/dev/zero"),
                  "has more than 16777216 bytes, expected at most that")}) {
    std::ostringstream out;
    std::ostringstream err;
    EXPECT_EQ(runNetworkFile(path, {}, out, err), 1);
    EXPECT_EQ(err.str(), path.string() + ": " + reason + "\n");
  }
}

// ---- what is accepted

TEST(NetworkDocument, ArgumentsReachMainAndTheNetworksItPassesThemTo) {
  const auto constant = [](const std::string& name, const std::string& argument) {
    return node(name, "Constant", parameter("VALUE", "subnet_param", argument)) +
           bound("NetOutput", name, "VALUE", name);
  };
  const std::string xml =
      document(constant("a", "ARG1") + constant("b", "int:ARG2") + constant("d", "string:ARG2") +
                   node("s", "S", parameter("GAIN", "subnet_param", "float:ARG2")) +
                   bound("NetOutput", "s", "c", "s"),
               network("S", constant("c", "GAIN")));
  EXPECT_EQ(run(xml, {"a b", "12"}), "<String a b >\n<Int 12 >\n<String 12 >\n<Float 12 >\n");
  EXPECT_EQ(run(xml, {"x", "y"}),
            "test.n: network 'MAIN': node 'b': parameter 'VALUE': 'y' is not an int\n");
}

TEST(NetworkDocument, WhatAnEditorAddsMeansNothingAndItsLinksAreLinks) {
  EXPECT_EQ(run(document("<!-- c --><Note x='1'>free text</Note>" + COUNT +
                             "<Node name='p' type='NOP' x='left' y='' colour='red'/>"
                             "<ProbeLink from='n' output='OUTPUT' to='p' input='INPUT'>1 2 3.5 4"
                             "</ProbeLink>" +
                             bound("NetOutput", "p", "OUTPUT"),
                         "<Note text='x'><Line/></Note>")),
            "<Int 0 >\n");
}

TEST(NetworkDocument, AnUnlinkedNetworkInputLeavesTheNodesInputUnlinked) {
  const std::string inner = network("S", node("p", "NOP") + bound("NetInput", "p", "INPUT", "IN") +
                                             bound("NetOutput", "p", "OUTPUT"));
  const std::string middle = network("M", node("s", "S") + bound("NetInput", "s", "IN", "OUTER") +
                                              bound("NetOutput", "s", "OUTPUT"));
  const std::string unlinked = COUNT + node("m", "M") + bound("NetOutput", "m", "OUTPUT");
  EXPECT_EQ(run(document(unlinked + link("n", "OUTPUT", "m", "OUTER"), middle + inner)),
            "<Int 0 >\n");
  EXPECT_EQ(run(document(unlinked, middle + inner)),
            "test.n: node 'p' (type NOP), frame 0: Node.cc, line #: node p (type NOP): Input INPUT "
            "is not connected\n");
}

TEST(NetworkDocument, WhatIsWrittenReadsBackAndRunsTheSame) {
  const std::string text = "a&lt;b> &amp; &quot;c&quot; &apos;d&apos;&#10;&#9;é";
  const std::string loop =
      node("text", "Constant", parameter("VALUE", "subnet_param", "TEXT")) + node("p", "NOP") +
      bound("NetInput", "p", "INPUT", "LIMIT") + node("less", "Smaller") + COUNT +
      link("n", "OUTPUT", "less", "INPUT1") + link("p", "OUTPUT", "less", "INPUT2") +
      bound("NetOutput", "text", "VALUE") + bound("NetCondition", "less", "OUTPUT");
  const std::string xml =
      document(node("limit", "Constant", parameter("VALUE", "object", "&lt;Int 2>")) +
                   node("loop", "LOOP", parameter("TEXT", "string", text)) +
                   link("limit", "VALUE", "loop", "LIMIT") + bound("NetOutput", "loop", "OUTPUT"),
               network("LOOP", loop, "iterator"));
  const std::string written = NetworkDocument::parse(xml, "test.n").toXml();
  EXPECT_EQ(run(written), "<String a<b> & \"c\" 'd'\n\té >\n");
  EXPECT_EQ(NetworkDocument::parse(written, "again").toXml(), written);

  NetworkDescription main{"MAIN"};
  main.nodes = {{"a", "NOP"}, {"b", "NOP"}};
  EXPECT_THAT((NetworkDocument{"sample", {main}}).toXml(),
              HasSubstr("<Node name=\"b\" type=\"NOP\" x=\"120\" y=\"0\""));
  main.name = "MA\x01IN";
  try {
    (NetworkDocument{"sample", {main}}).toXml();
    FAIL();
  } catch (const DocumentError& e) {
    EXPECT_STREQ(e.what(), "sample: the character with code 1 in a text cannot be written as XML");
  }
}

}  // namespace
