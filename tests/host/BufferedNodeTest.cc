// Buffering, order, requests, exceptions and circles of buffered nodes, linked by hand.

#include "BufferedNode.h"

#include <stdexcept>

#include "NodeFactory.h"
#include "NodeFault.h"
#include "TestNodes.h"

using namespace FD;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

// What the runner does before the first frame.
void prepare(Probe& last, const std::vector<Probe*>& all) {
  last.request(0, ParameterSet());
  for (Probe* node : all) node->initialize();
}

ParameterSet lengths(const char* name, int value) {
  ParameterSet set;
  set.add(name, ObjectRef(Int::alloc(value)));
  return set;
}

TEST(BufferedNode, calculatesInOrderOnlyWhenAsked) {
  Probe ordered("ordered", true);
  Probe free("free");
  for (Probe* node : {&ordered, &free}) {
    EXPECT_EQ(node->at(3), 3);
    EXPECT_EQ(node->at(3), 3);
    EXPECT_EQ(node->at(5), 5);
  }
  EXPECT_THAT(ordered.calculated, ElementsAre(0, 1, 2, 3, 4, 5));
  EXPECT_THAT(free.calculated, ElementsAre(3, 5));

  ordered.reset();
  ordered.calculated.clear();
  EXPECT_EQ(ordered.at(1), 1);
  EXPECT_THAT(ordered.calculated, ElementsAre(0, 1));
}

TEST(BufferedNode, aCountThatHasRotatedOutIsAnError) {
  Probe ordered("ordered", true);
  Probe free("free");
  ordered.at(4);
  free.at(4);
  EXPECT_THAT(thrownText([&] { ordered.at(3); }), HasSubstr("count 3, newest 4, length 1"));
  EXPECT_THAT(thrownText([&] { free.at(3); }), HasSubstr("count 3, newest 4, length 1"));
}

TEST(BufferedNode, requestsTakeTheLongestAndAddUpAlongTheLinks) {
  Probe source("source");
  Probe middle("middle");
  middle.from(source, 2, 1);
  Probe last("last");
  last.from(middle, 3, 0);
  last.request(0, lengths("LOOKBACK", 4));
  last.request(0, lengths("LOOKAHEAD", 5));
  last.request(0, lengths("LOOKBACK", 1));  // shorter: nothing to do
  EXPECT_EQ(source.requests, 2);
  source.initialize();

  // back 2 + 3 + 4, ahead 1 + 0 + 5: 16 counts in all
  source.at(100);
  for (int count = 85; count <= 100; ++count) EXPECT_EQ(source.at(count), count);
  EXPECT_THAT(thrownText([&] { source.at(84); }), HasSubstr("length 16"));
}

TEST(BufferedNode, aRequestCanDemandOrder) {
  Probe node("node");
  node.request(0, lengths("INORDER", 1));
  node.at(2);
  EXPECT_THAT(node.calculated, ElementsAre(0, 1, 2));
}

TEST(BufferedNode, windowsOverWindowsCalculateEachCountOnce) {
  const auto sum = [](Probe& node, int count) {
    int total = 0;
    for (int c = std::max(0, count - 2); c <= count + 1; ++c) total += node.input(0, c);
    return total;
  };
  Probe source("source");
  Probe first("first", false, sum);
  first.from(source, 2, 1);
  Probe second("second", false, sum);
  second.from(first, 2, 1);
  prepare(second, {&source, &first, &second});
  for (int count = 0; count < 50; ++count) {
    int expected = 0;
    for (int c = std::max(0, count - 2); c <= count + 1; ++c) {
      for (int d = std::max(0, c - 2); d <= c + 1; ++d) expected += d;
    }
    EXPECT_EQ(second.at(count), expected) << count;
  }
  EXPECT_EQ(source.calculated.size(), 52u);
  EXPECT_EQ(first.calculated.size(), 51u);
}

TEST(BufferedNode, requestsDoNotMultiplyOverParallelPaths) {
  std::vector<std::unique_ptr<Probe>> nodes;
  nodes.push_back(std::make_unique<Probe>("0"));
  for (int i = 1; i < 60; ++i) {
    nodes.push_back(std::make_unique<Probe>(std::to_string(i)));
    nodes.back()->from(*nodes[nodes.size() - 2]).from(*nodes[nodes.size() - 2]);
  }
  nodes.back()->request(0, ParameterSet());
  EXPECT_LE(nodes.front()->requests, 4);  // one per path would be 2^59
}

TEST(BufferedNode, chainsAFrameworkExceptionAtEachNode) {
  Probe inner("inner", false, [](Probe& node, int) -> int {
    throw new NodeException(&node, "too loud", "inner.cc", 5);
  });
  Probe outer("outer", false, [](Probe& node, int count) { return node.input(0, count); });
  outer.from(inner);
  const std::string text = thrownText([&] { outer.at(7); });
  EXPECT_THAT(text,
              testing::MatchesRegex("inner.cc, line 5: node inner \\(type Probe\\): too loud\n"
                                    "BufferedNode.cc, line [0-9]+: node inner \\(type Probe\\): "
                                    "Exception caught in BufferedNode::getOutput\n"
                                    "BufferedNode.cc, line [0-9]+: node outer \\(type Probe\\): "
                                    "Exception caught in BufferedNode::getOutput"));
}

TEST(BufferedNode, lettingAStandardExceptionPassNotesWhereItAroseAndNotAnEarlierOne) {
  Probe inner("inner", true, [](Probe&, int count) -> int {
    if (count % 2 == 1) throw std::out_of_range("odd");
    return count;
  });
  // Handles what the inner node throws, and fails by itself later.
  Probe tolerant("tolerant", false, [](Probe& node, int count) -> int {
    try {
      return node.input(0, count);
    } catch (const std::exception&) {
      if (count == 9) throw std::domain_error("own");
      throw;
    }
  });
  tolerant.from(inner);
  const auto originAt = [&](int count) {
    try {
      tolerant.at(count);
    } catch (const std::logic_error& e) {
      const auto origin = takeCurrentFault();
      return origin ? origin->node + " " + std::to_string(origin->count) + " " + e.what() : "none";
    }
    return std::string("no exception");
  };
  EXPECT_EQ(originAt(4), "inner 1 odd");  // in order: failed at 1 on the way to 4
  EXPECT_EQ(originAt(9), "tolerant 9 own");
}

TEST(BufferedNode, aLoopThroughADelayRuns) {
  // y(n) = n + y(n − 1): the links form a circle, which the delay opens.
  const auto previous = [](Probe& node, int count) {
    return count == 0 ? 0 : node.input(0, count - 1);
  };
  Probe source("source");
  Probe delay("delay", false, previous);
  Probe sum("sum", false, [](Probe& node, int count) {
    const int before = node.input(1, count);
    return before + node.input(0, count);
  });
  sum.from(source).from(delay);
  delay.from(sum, 1);
  prepare(sum, {&source, &delay, &sum});
  for (int count = 0; count < 2000; ++count) ASSERT_EQ(sum.at(count), count * (count + 1) / 2);

  sum.reset();
  delay.reset();
  EXPECT_THAT(thrownText([&] { sum.at(5000); }),
              HasSubstr("Pulled through more than 1000 nodes; the links may form a circle"));
}

TEST(BufferedNode, needingItselfAtTheSameCountIsAnError) {
  const auto pass = [](Probe& node, int count) { return node.input(0, count); };
  for (const bool ordered : {false, true}) {
    Probe a("a", ordered, pass);
    Probe b("b", ordered, pass);
    a.from(b);
    b.from(a);
    prepare(a, {&a, &b});
    EXPECT_THAT(thrownText([&] { a.at(2); }), HasSubstr("node a (type Probe): Output OUTPUT at "
                                                        "count "));
    EXPECT_THAT(thrownText([&] { a.at(2); }), HasSubstr("needs itself; the links form a circle"));
  }
}

TEST(Node, terminalsThatAreMissingTakenOrNotConnectedAreErrors) {
  struct Terminals : Probe {
    Terminals() : Probe("n", false, [](Probe& node, int count) { return node.input(0, count); }) {}
    using BufferedNode::addInput;
    using BufferedNode::addOutput;
  } node;
  node.addInput("A");
  EXPECT_THAT(thrownText([&] { node.addInput("A"); }), HasSubstr("Input A is declared twice"));
  EXPECT_THAT(thrownText([&] { node.addOutput("OUTPUT"); }),
              HasSubstr("Output OUTPUT is declared twice"));
  EXPECT_THAT(thrownText([&] { node.translateInput("B"); }), HasSubstr("Unknown input B"));
  EXPECT_THAT(thrownText([&] { node.at(0); }), HasSubstr("Input A is not connected"));
  EXPECT_THAT(thrownText([&] { node.verifyConnect(); }), HasSubstr("Input A is not connected"));
  EXPECT_THAT(thrownText([&] { node.connectToNode("A", &node, "X"); }),
              HasSubstr("Unknown output X"));
}

TEST(Node, theFirstOfTwoRegistrationsStays) {
  _NodeFactory* const first = Node::getFactoryNamed("Constant");
  ASSERT_NE(first, nullptr);
  struct Other : _NodeFactory {
    Other() : _NodeFactory("Constant") {}
    Node* Create(const std::string&, const ParameterSet&) override { return nullptr; }
  };
  testing::internal::CaptureStderr();
  Node::addFactory("Constant", new Other);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Node type Constant is registered twice; the first one stays\n");
  EXPECT_EQ(Node::getFactoryNamed("Constant"), first);
  EXPECT_EQ(Node::getFactoryNamed("Nothing"), nullptr);
}

}  // namespace
