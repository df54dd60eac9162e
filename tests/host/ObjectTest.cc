// Objects, references, casts, parameters, containers.

#include <complex>
#include <sstream>

#include "Map.h"
#include "Matrix.h"
#include "ParameterValue.h"
#include "Source.h"
#include "TestNodes.h"
#include "Vector.h"

using namespace FD;
using testing::HasSubstr;

namespace {

std::string text(const Object& object) {
  std::ostringstream out;
  out << object;
  return out.str();
}

TEST(RCPtr, CountsReferencesThroughCopiesConversionsAndContainers) {
  Counted::live = 0;
  {
    ObjectRef first(new Counted(1));
    const ObjectRef second = first;
    RCPtr<Counted> counted = first;                // down, by the object's own type
    const RCPtr<GenericType<int>> base = counted;  // and up
    const ObjectRef& same = first;
    first = same;
    first = ObjectRef();
    Vector<ObjectRef> list(3, second);
    list.resize(1);
    Map<int, ObjectRef> map;
    map[1] = list[0];
    map[1] = base;
    EXPECT_EQ(Counted::live, 1);
    counted = RCPtr<Counted>(new Counted(2));
    EXPECT_EQ(Counted::live, 2);
    EXPECT_EQ(dereference_cast<int>(map[1]), 1);

    RCPtr<String> name(new String("kept"));
    EXPECT_EQ(thrownText([&] { name = second; }), "Cast error: found Counted, expected FD::String");
    EXPECT_EQ(*name, "kept");
    name = ObjectRef();
    EXPECT_EQ(thrownText([&] { object_cast<String>(name); }),
              "Cast error: found no object, expected FD::String");

    RCPtr<Vector<ObjectRef>> copy = RCPtr<Object>(new Vector<ObjectRef>(list))->clone();
    EXPECT_EQ(copy->size(), 1u);
    *copy = Vector<ObjectRef>();  // the elements, and not the count of the copy itself
    EXPECT_EQ(Counted::live, 2);
  }
  EXPECT_EQ(Counted::live, 0);
}

TEST(Containers, HoldAndPrintTheirElements) {
  Matrix<std::complex<float>> matrix(2, 3);
  matrix(1, 2) = {1, -1};
  EXPECT_EQ(matrix[1][2], std::complex<float>(1, -1));
  EXPECT_EQ(text(matrix), "<Matrix 2 3 (0,0) (0,0) (0,0) (0,0) (0,0) (1,-1) >");

  Vector<ObjectRef> list(1, ObjectRef(new Source(7, 1, 2, 3)));
  list.push_back(TrueObject);
  list.push_back(ObjectRef());
  EXPECT_EQ(text(list), "<Vector <Source 7 1 2 3 > <Bool true > <null> >");
  Map<int, ObjectRef> map;
  map[3] = ObjectRef(Vector<float>::alloc(2));
  map[1] = nilObject;
  EXPECT_EQ(text(map), "<Map (1, <NilObject >) (3, <Vector 0 0 >) >");
}

TEST(ParameterSet, TellsMissingAndUnusedParameters) {
  ParameterSet set;
  set.add("A", ObjectRef(Int::alloc(1)));
  set.add("A", ObjectRef(Int::alloc(2)));
  set.add("B", TrueObject);
  EXPECT_EQ(dereference_cast<int>(set.get("A")), 2);
  EXPECT_EQ(set.getDefault("C", nilObject).get(), nilObject.get());
  EXPECT_EQ(thrownText([&] { set.get("C"); }),
            "Missing parameter: C\nGiven parameters:\n  A = <Int 2 >\n  B = <Bool true >");
  EXPECT_THAT(thrownText([&] { set.checkUnused(); }), HasSubstr("Unused (unknown) parameter: B\n"));
  set.get("B");
  EXPECT_EQ(thrownText([&] { set.checkUnused(); }), "");
}

TEST(Buffer, HoldsTheLastCountsOnly) {
  Counted::live = 0;
  {
    Buffer buffer(3);
    for (int count : {0, 1, 2, 3}) buffer[count] = ObjectRef(new Counted(count));
    EXPECT_EQ(Counted::live, 3);
    EXPECT_FALSE(buffer.isValid(0));
    EXPECT_EQ(dereference_cast<int>(buffer.get(1)), 1);
    buffer[5] = ObjectRef(new Counted(5));  // 4 was skipped
    EXPECT_EQ(Counted::live, 2);
    EXPECT_FALSE(buffer.isValid(4));
    EXPECT_TRUE(buffer.isValid(3));
    buffer[4] = ObjectRef(new Counted(4));
    EXPECT_EQ(dereference_cast<int>(buffer.get(4)), 4);
    EXPECT_EQ(thrownText([&] { buffer[-1]; }),
              "Count has left the buffer: count -1, newest 5, length 3");
    EXPECT_EQ(thrownText([&] { buffer.get(6); }),
              "Count is not in the buffer: count 6, newest 5, length 3");
    buffer[2000000000] = ObjectRef(new Counted(1));  // far away, at once
    EXPECT_EQ(Counted::live, 1);
  }
  EXPECT_EQ(Counted::live, 0);
}

TEST(ParseValue, GivesTheObjectOrTheReason) {
  struct Case {
    const char* type;
    const char* text;
    const char* expected;  // the object's text, or the reason of the refusal
  };
  const Case cases[] = {
      {"int", " +12 ", "<Int 12 >"},
      {"int", "+-3", "'+-3' is not an int"},
      {"int", " ", "' ' is not an int"},
      {"int", "2147483648", "'2147483648' is not an int"},
      {"float", "1e-3", "<Float 0.001 >"},
      {"float", "0,5", "'0,5' is not a float"},
      {"float", "1e99", "'1e99' is not a float"},
      {"string", " a ", "<String  a  >"},
      {"bool", "true", "<Bool true >"},
      {"bool", "1", "'1' is not true or false"},
      {"object", "<Vector<int> 1 2 >", "<Vector 1 2 >"},
      {"object", "<Vector 0.5>", "<Vector 0.5 >"},
      {"object", "<Vector<int>>", "<Vector >"},
      {"object", "<Vector<int> 1 x>", "'x' is not an int"},
      {"object", "<String a > b >", "<String a > b >"},
      {"object", "<>", "'<>' is not an object such as <Float 0.5>"},
      {"object", "<Window 3>",
       "'Window' is not a kind of object that can be read; expected Int, Float, Double, Bool, "
       "String or Vector"},
      {"double", "1",
       "unknown type 'double'; expected int, float, string, bool, object or subnet_param"},
  };
  for (const Case& c : cases) {
    std::string result;
    try {
      result = text(*parseValue(c.type, c.text));
    } catch (const std::invalid_argument& e) {
      result = e.what();
    }
    EXPECT_EQ(result, c.expected);
  }
}

}  // namespace
