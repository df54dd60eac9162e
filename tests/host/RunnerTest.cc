// Whole runs: loops, nesting, reports of what nodes throw, stopping, ten thousand frames.

#include "Runner.h"

#include <fmt/format.h>

#include <sstream>

#include "NetworkBuilder.h"
#include "TestNodes.h"

using namespace FD;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;

namespace {

struct Outcome {
  int status;
  std::string out;
  std::string err;
};

Outcome run(const NetworkDocument& document, const std::vector<std::string>& arguments = {},
            const Iterator::FrameHook& hook = {}) {
  std::ostringstream out;
  std::ostringstream err;
  const int status = runNetwork(document, arguments, out, err, hook);
  return {status, out.str(), err.str()};
}

/// MAIN runs LOOP, which counts from 0 while the count is smaller than LIMIT; its output is the
/// given terminal of one of the nodes added to it.
NetworkDocument loopDocument(const std::string& limit, std::vector<NodeDescription> nodes,
                             std::vector<LinkDescription> links, const TerminalDescription& output,
                             std::vector<ParameterDescription> loopParameters = {}) {
  NetworkDescription main{"MAIN"};
  loopParameters.push_back({"LIMIT", "int", limit});
  main.nodes = {{"loop", "LOOP", loopParameters}};
  main.outputs = {{"OUTPUT", "loop", "OUTPUT"}};
  NetworkDescription loop{"LOOP", "iterator"};
  loop.nodes = {{"count", "IterCount"},
                {"limit", "Constant", {{"VALUE", "subnet_param", "LIMIT"}}},
                {"smaller", "Smaller"}};
  loop.nodes.insert(loop.nodes.end(), nodes.begin(), nodes.end());
  loop.links = {{"count", "OUTPUT", "smaller", "INPUT1"}, {"limit", "VALUE", "smaller", "INPUT2"}};
  loop.links.insert(loop.links.end(), links.begin(), links.end());
  loop.outputs = {output};
  loop.condition = TerminalDescription{"CONDITION", "smaller", "OUTPUT"};
  return {"test.n", {main, loop}};
}

NetworkDocument sumDocument(const std::string& limit,
                            std::vector<ParameterDescription> loopParameters = {}) {
  return loopDocument(limit, {{"sum", "RunningSum"}}, {{"count", "OUTPUT", "sum", "IN"}},
                      {"OUTPUT", "sum", "OUTPUT"}, std::move(loopParameters));
}

TEST(Runner, ALoopAsksItsConditionBeforeOrAfterTheFrame) {
  EXPECT_EQ(run(sumDocument("4")).out, "<Int 6 >\n");  // frames 0 to 3
  EXPECT_EQ(run(sumDocument("0")).out, "<NilObject >\n");
  const std::vector<ParameterDescription> doWhile = {{"DOWHILE", "bool", "true"}};
  EXPECT_EQ(run(sumDocument("4", doWhile)).out, "<Int 10 >\n");  // and 4
  EXPECT_EQ(run(sumDocument("0", doWhile)).out, "<Int 0 >\n");
}

TEST(Runner, AnInnerLoopStartsAnewForEachOuterFrameAndSeesItsInput) {
  // OUTER sums, over its frames o = 0 … 3, what INNER gives: the sum of its input o over 5 frames,
  // as the input stays that of the outer frame.
  NetworkDocument document =
      loopDocument("4", {{"inner", "INNER", {{"LIMIT", "int", "5"}}}, {"total", "RunningSum"}},
                   {{"count", "OUTPUT", "inner", "IN"}, {"inner", "OUTPUT", "total", "IN"}},
                   {"OUTPUT", "total", "OUTPUT"});
  NetworkDescription inner =
      loopDocument("5", {{"sum", "RunningSum"}}, {}, {"OUTPUT", "sum", "OUTPUT"}).networks[1];
  inner.name = "INNER";
  inner.inputs = {{"IN", "sum", "IN"}};
  document.networks.push_back(inner);
  std::vector<int> frames;
  EXPECT_EQ(run(document, {}, [&](int frame) { return frames.push_back(frame), true; }).out,
            "<Int 30 >\n");
  EXPECT_THAT(frames, ElementsAre(0, 1, 2, 3));  // of the outer loop alone
}

TEST(Runner, RequestsPassThroughNetworks) {
  // The window, inside a network, looks back and ahead into a sum outside.
  NetworkDocument document =
      loopDocument("50", {{"sum", "RunningSum"}, {"window", "W"}},
                   {{"count", "OUTPUT", "sum", "IN"}, {"sum", "OUTPUT", "window", "IN"}},
                   {"OUTPUT", "window", "OUTPUT"});
  NetworkDescription window{"W"};
  window.nodes = {{"before", "NOP"}, {"w", "Window"}};
  window.links = {{"before", "OUTPUT", "w", "IN"}};
  window.inputs = {{"IN", "before", "INPUT"}};
  window.outputs = {{"OUTPUT", "w", "OUTPUT"}};
  document.networks.push_back(window);
  // At 49 the sums of 0 … 47, 48, 49 and 50.
  const int expected = (47 * 48 + 48 * 49 + 49 * 50 + 50 * 51) / 2;
  const Outcome outcome = run(document);
  EXPECT_EQ(outcome.out, fmt::format("<Int {} >\n", expected)) << outcome.err;
}

TEST(Runner, TheConditionsNodesMayLookBackAndAhead) {
  // The window's input is used by the condition alone: its value at n is (n−2) + … + (n+1).
  NetworkDocument document =
      loopDocument("100", {{"sum", "RunningSum"}, {"window", "Window"}},
                   {{"count", "OUTPUT", "sum", "IN"}, {"sum", "OUTPUT", "window", "IN"}},
                   {"OUTPUT", "count", "OUTPUT"});
  document.networks[1].links[0].from = "window";
  // Of the sums n(n + 1)/2 that makes 52 at 5, 74 at 6 and 100 at 7, which ends the loop.
  const Outcome outcome = run(document);
  EXPECT_EQ(outcome.out, "<Int 6 >\n") << outcome.err;
}

TEST(Runner, TheHookEndsItsLoopAndEveryFurtherOneAfterTheFrame) {
  NetworkDocument document = sumDocument("10");
  NetworkDescription& main = document.networks[0];
  main.nodes.push_back(main.nodes[0]);
  main.nodes[1].name = "second";
  main.outputs.push_back({"SECOND", "second", "OUTPUT"});
  Counted::live = 0;
  stopCalls = 0;
  int calls = 0;
  EXPECT_EQ(run(document).out, "<Int 45 >\n<Int 45 >\n");
  EXPECT_EQ(stopCalls, 0);
  const Outcome outcome = run(document, {}, [&](int) { return ++calls != 3; });
  EXPECT_EQ(outcome.out, "<Int 3 >\n<Int 0 >\n");
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(stopCalls, 2);  // once each
  EXPECT_EQ(Counted::live, 0);
}

TEST(Runner, WhatANodeThrowsIsReportedWithItsNameTypeAndFrame) {
  struct Case {
    const char* kind;
    const char* at;
    const char* out;
    std::string report;  // what follows the file's and the node's name, as a regular expression
  };
  const Case cases[] = {
      {"framework", "17", "",
       "frame 17: thrower.cc, line 12: node thrower \\(type Thrower\\): broken\n"
       "BufferedNode.cc, line [0-9]+: node thrower \\(type Thrower\\): Exception caught in "
       "BufferedNode::getOutput\n"},
      {"cast", "17", "",
       "frame 17: Cast error: found FD::NetCType<bool>, expected FD::String\nBufferedNode.cc.*\n"},
      {"standard", "17", "", "frame 17: std::runtime_error: broken, too\n"},
      {"other", "17", "", "frame 17: unknown exception\n"},
      {"initialize", "99", "", "outside the frames: std::runtime_error: not ready\n"},
      {"cleanup", "99", "<Int 19 >\n", "outside the frames: std::runtime_error: disk full\n"},
  };
  for (const auto& [kind, at, out, report] : cases) {
    Counted::live = 0;
    const Outcome outcome = run(loopDocument(
        "20", {{"thrower", "Thrower", {{"AT", "int", at}, {"KIND", "string", kind}}}, {"p", "NOP"}},
        {{"count", "OUTPUT", "thrower", "IN"}, {"thrower", "OUTPUT", "p", "INPUT"}},
        {"OUTPUT", "p", "OUTPUT"}));
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, out);
    EXPECT_THAT(outcome.err, MatchesRegex("test.n: node 'thrower' \\(type Thrower\\), " + report));
    EXPECT_EQ(Counted::live, 0);
  }
}

TEST(Runner, ALoopThatFailedHasNoResult) {
  const NetworkDocument document = loopDocument(
      "4", {{"thrower", "Thrower", {{"AT", "int", "2"}, {"KIND", "string", "framework"}}}},
      {{"count", "OUTPUT", "thrower", "IN"}}, {"OUTPUT", "thrower", "OUTPUT"});
  const RCPtr<Network> network = buildNetwork(document, "MAIN", ParameterSet());
  network->initialize();
  for (int attempt = 0; attempt < 2; ++attempt) {
    EXPECT_THAT(thrownText([&] { network->getOutput(0, 0); }), HasSubstr("broken"));
  }
}

TEST(Runner, NetworksThatCannotRunAreErrors) {
  NetworkDocument noBool = sumDocument("4");
  noBool.networks[1].condition = TerminalDescription{"CONDITION", "count", "OUTPUT"};

  NetworkDocument itself = sumDocument("3");
  itself.networks[0].links = {{"loop", "OUTPUT", "loop", "IN"}};
  itself.networks[1].links.pop_back();  // the sum now sums what comes in
  itself.networks[1].inputs = {{"IN", "sum", "IN"}};

  NetworkDescription chain{"MAIN"};
  chain.nodes = {{"0", "IterCount"}};
  for (int i = 1; i <= 20000; ++i) {
    chain.nodes.push_back({std::to_string(i), i % 2 ? "NOP" : "Print"});
    chain.links.push_back({std::to_string(i - 1), "OUTPUT", std::to_string(i), "INPUT"});
  }
  chain.outputs = {{"OUTPUT", "20000", "OUTPUT"}};

  std::vector<std::pair<NetworkDocument, const char*>> cases = {
      {noBool,
       "node loop (type LOOP): The condition at frame 0 is FD::NetCType<int>; expected a Bool\n"},
      {itself, "The loop needs its own result; the links form a circle"},
      {{"test.n", {chain}}, "Pulled through more than 1000 nodes; the links may form a circle"},
  };
  NetworkDescription subnet{"S"};
  subnet.nodes = {{"n", "NOP"}};
  subnet.inputs = {{"IN", "n", "INPUT"}};
  subnet.outputs = {{"OUTPUT", "n", "OUTPUT"}};
  for (const auto& [type, input] : {std::pair("NOP", "INPUT"), std::pair("Print", "INPUT"),
                                    std::pair("RunningSum", "IN"), std::pair("S", "IN")}) {
    NetworkDescription main{"MAIN"};
    main.nodes = {{"a", type}, {"b", type}};
    main.links = {{"a", "OUTPUT", "b", input}, {"b", "OUTPUT", "a", input}};
    main.outputs = {{"OUTPUT", "a", "OUTPUT"}};
    cases.push_back({{"test.n", {main, subnet}}, "form a circle"});
  }
  for (const auto& [document, message] : cases) {
    const Outcome outcome = run(document);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, HasSubstr(message));
  }
}

TEST(Runner, ComparisonsTakeNumbersOfAnyKindAndStrings) {
  struct Case {
    const char* type;
    ParameterDescription a;
    ParameterDescription b;
    const char* result;
  };
  const ParameterDescription two{"VALUE", "int", "2"};
  const ParameterDescription half{"VALUE", "float", "2.5"};
  const ParameterDescription text{"VALUE", "string", "2"};
  const Case cases[] = {
      {"Smaller", two, half, "<Bool true >\n"},
      {"Smaller", two, two, "<Bool false >\n"},
      {"Greater", half, two, "<Bool true >\n"},
      {"Equal", two, {"VALUE", "object", "<Double 2>"}, "<Bool true >\n"},
      {"Equal", text, text, "<Bool true >\n"},
      {"Equal", text, two,
       "Cannot compare FD::String with FD::NetCType<int>: expected numbers or strings"},
  };
  for (const auto& [type, a, b, result] : cases) {
    NetworkDescription main{"MAIN"};
    main.nodes = {{"a", "Constant", {a}}, {"b", "Constant", {b}}, {"c", type}};
    main.links = {{"a", "VALUE", "c", "INPUT1"}, {"b", "VALUE", "c", "INPUT2"}};
    main.outputs = {{"OUTPUT", "c", "OUTPUT"}};
    const Outcome outcome = run({"test.n", {main}});
    EXPECT_THAT(outcome.out + outcome.err, HasSubstr(result));
  }
}

TEST(Runner, PrintPrintsEveryFrameOnStandardOutput) {
  testing::internal::CaptureStdout();
  run(loopDocument("3", {{"print", "Print"}}, {{"count", "OUTPUT", "print", "INPUT"}},
                   {"OUTPUT", "print", "OUTPUT"}));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "<Int 0 >\n<Int 1 >\n<Int 2 >\n");
}

TEST(Runner, TenThousandFramesLeaveNothingBehind) {
  // Two consumers of one stateful node, one of them with a window into past and future.
  const NetworkDocument document = loopDocument(
      "10000", {{"sum", "RunningSum"}, {"w1", "Window"}, {"w2", "Window"}, {"last", "Smaller"}},
      {{"count", "OUTPUT", "sum", "IN"},
       {"sum", "OUTPUT", "w1", "IN"},
       {"w1", "OUTPUT", "w2", "IN"},
       {"sum", "OUTPUT", "last", "INPUT1"},
       {"w2", "OUTPUT", "last", "INPUT2"}},
      {"OUTPUT", "last", "OUTPUT"});
  Counted::live = 0;
  Counted::peak = 0;
  int frames = 0;
  const Outcome outcome = run(document, {}, [&](int) { return ++frames, true; });
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(frames, 10000);
  EXPECT_EQ(Counted::live, 0);
  // What the buffers hold: 7 counts of the sum, 4 of the first window, 1 of the second, one on its
  // way.
  EXPECT_LE(Counted::peak, 13);
}

}  // namespace
