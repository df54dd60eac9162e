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

ParameterSet lengths(const char* name, int value) {
  ParameterSet set;
  set.add(name, ObjectRef(Int::alloc(value)));
  return set;
}

TEST(BufferedNode, CalculatesInOrderOnlyWhenAsked) {
  Probe ordered("ordered", true);
  Probe requested("requested");
  requested.request(0, lengths("INORDER", 1));
  Probe free("free");
  for (Probe* node : {&ordered, &requested, &free}) {
    EXPECT_EQ(node->at(3), 3);
    EXPECT_EQ(node->at(3), 3);
    EXPECT_EQ(node->at(5), 5);
  }
  EXPECT_THAT(ordered.calculated, ElementsAre(0, 1, 2, 3, 4, 5));
  EXPECT_THAT(requested.calculated, ElementsAre(0, 1, 2, 3, 4, 5));
  EXPECT_THAT(free.calculated, ElementsAre(3, 5));
  EXPECT_THAT(thrownText([&] { ordered.at(3); }), HasSubstr("count 3, newest 5, length 1"));

  ordered.reset();
  ordered.calculated.clear();
  EXPECT_EQ(ordered.at(1), 1);
  EXPECT_THAT(ordered.calculated, ElementsAre(0, 1));
}

TEST(BufferedNode, RequestsTakeTheLongestAndAddUpAlongTheLinks) {
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

TEST(BufferedNode, RequestsDoNotMultiplyOverParallelPaths) {
  std::vector<std::unique_ptr<Probe>> nodes;
  nodes.push_back(std::make_unique<Probe>("0"));
  for (int i = 1; i < 25; ++i) {
    Probe& before = *nodes.back();
    nodes.push_back(std::make_unique<Probe>(std::to_string(i)));
    nodes.back()->from(before).from(before);
  }
  nodes.back()->request(0, ParameterSet());
  EXPECT_LE(nodes.front()->requests, 4);  // one per path would be 2^24
}

TEST(BufferedNode, AStandardExceptionIsNotedWhereItAroseAndNotAnEarlierOne) {
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

TEST(BufferedNode, ALoopThroughADelayRuns) {
  // y(n) = n + y(n − 1): the links form a circle, which the delay opens.
  Probe source("source");
  Probe delay("delay", false,
              [](Probe& node, int count) { return count == 0 ? 0 : node.input(0, count - 1); });
  Probe sum("sum", false, [](Probe& node, int count) {
    const int before = node.input(1, count);
    return before + node.input(0, count);
  });
  sum.from(source).from(delay);
  delay.from(sum, 1);
  sum.request(0, ParameterSet());
  for (Probe* node : {&source, &delay, &sum}) node->initialize();
  for (int count = 0; count < 2000; ++count) ASSERT_EQ(sum.at(count), count * (count + 1) / 2);
}

TEST(BufferedNode, NeedingItselfAtTheSameOrALaterCountInOrderIsAnError) {
  for (const int ahead : {0, 1}) {
    const auto pull = [ahead](Probe& node, int count) { return node.input(0, count + ahead); };
    Probe a("a", true, pull);
    Probe b("b", false, pull);
    a.from(b);
    b.from(a);
    EXPECT_THAT(thrownText([&] { a.at(2); }),
                HasSubstr(fmt::format("node a (type Probe): Output OUTPUT at count {} needs "
                                      "itself; the links form a circle",
                                      2 * ahead)));
  }
}

TEST(Node, TerminalsDeclaredTwiceOrNotConnectedAreErrors) {
  struct Terminals : Probe {
    using BufferedNode::addInput;
    using BufferedNode::addOutput;
    using Probe::Probe;
  } node("n");
  node.addInput("A");
  EXPECT_THAT(thrownText([&] { node.addInput("A"); }), HasSubstr("Input A is declared twice"));
  EXPECT_THAT(thrownText([&] { node.addOutput("OUTPUT"); }),
              HasSubstr("Output OUTPUT is declared twice"));
  EXPECT_THAT(thrownText([&] { node.verifyConnect(); }), HasSubstr("Input A is not connected"));
}

TEST(Node, TheFirstOfTwoRegistrationsStays) {
  _NodeFactory* const first = Node::getFactoryNamed("Constant");
  ASSERT_NE(first, nullptr);
  struct Other : _NodeFactory {
    using _NodeFactory::_NodeFactory;
    Node* Create(const std::string&, const ParameterSet&) override { return nullptr; }
  };
  testing::internal::CaptureStderr();
  Node::addFactory("Constant", new Other("Constant"));
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Node type Constant is registered twice; the first one stays\n");
  EXPECT_EQ(Node::getFactoryNamed("Constant"), first);
}

}  // namespace
