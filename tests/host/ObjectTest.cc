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
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

std::string text(const Object& object) {
  std::ostringstream out;
  out << object;
  return out.str();
}

TEST(RCPtr, countsReferencesThroughCopiesConversionsAndContainers) {
  Counted::live = 0;
  {
    ObjectRef first(new Counted(1));
    const ObjectRef second = first;
    RCPtr<Counted> counted = first;                // down, by the object's own type
    const RCPtr<GenericType<int>> base = counted;  // and up
    first = first;
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
  }
  EXPECT_EQ(Counted::live, 0);
}

TEST(RCPtr, refusesAConversionToAnotherTypeAndKeepsItsObject) {
  Counted::live = 0;
  {
    const ObjectRef object(new Counted(1));
    RCPtr<String> name(new String("kept"));
    EXPECT_EQ(thrownText([&] { name = object; }), "Cast error: found Counted, expected FD::String");
    EXPECT_EQ(*name, "kept");
    name = ObjectRef();
    EXPECT_TRUE(name.isNil());
  }
  EXPECT_EQ(Counted::live, 0);
}

TEST(Object, aCopyHasACountOfItsOwn) {
  Counted::live = 0;
  RCPtr<Vector<ObjectRef>> original(new Vector<ObjectRef>(2, ObjectRef(new Counted(1))));
  const ObjectRef other = original;
  RCPtr<Vector<ObjectRef>> copy = original->clone();
  original = *&copy;
  EXPECT_EQ(object_cast<Vector<ObjectRef>>(other).size(), 2u);
  *copy = Vector<ObjectRef>();
  EXPECT_EQ(Counted::live, 1);
  EXPECT_EQ(thrownText([] { Source().clone(); }).substr(0, 9), "Object.cc");
}

TEST(Casts, giveTheValueOrThrowBothTypes) {
  EXPECT_EQ(dereference_cast<float>(ObjectRef(Float::alloc(0.5f))), 0.5f);
  EXPECT_EQ(object_cast<String>(ObjectRef(new String("a b"))), "a b");
  EXPECT_EQ(thrownText([] { dereference_cast<int>(TrueObject); }),
            "Cast error: found FD::NetCType<bool>, expected int");
  EXPECT_EQ(thrownText([] { object_cast<String>(ObjectRef()); }),
            "Cast error: found no object, expected FD::String");
  try {
    object_cast<Matrix<float>>(nilObject);
    FAIL();
  } catch (GenericCastException* e) {
    EXPECT_NE(dynamic_cast<CastException<Matrix<float>>*>(e), nullptr);
    delete e;
  }
}

TEST(Containers, holdAndPrintTheirElements) {
  Matrix<std::complex<float>> matrix(2, 3);
  matrix(1, 2) = {1, -1};
  EXPECT_EQ(matrix[1][2], std::complex<float>(1, -1));
  EXPECT_EQ(&matrix(1, 0), matrix[0] + 3);
  const Matrix<std::complex<float>> copy = matrix;
  matrix = Matrix<std::complex<float>>(1, 1);
  EXPECT_EQ(copy.nrows() * 10 + copy.ncols(), 23u);
  EXPECT_EQ(text(copy), "<Matrix 2 3 (0,0) (0,0) (0,0) (0,0) (0,0) (1,-1) >");

  Vector<ObjectRef> list(1, ObjectRef(new Source(7, 1, 2, 3)));
  list.push_back(TrueObject);
  list.push_back(ObjectRef());
  EXPECT_EQ(text(list), "<Vector <Source 7 1 2 3 > <Bool true > <null> >");
  Map<int, ObjectRef> map;
  map[3] = ObjectRef(Vector<float>::alloc(2));
  map[1] = nilObject;
  EXPECT_EQ(text(map), "<Map (1, <NilObject >) (3, <Vector 0 0 >) >");
}

TEST(ParameterSet, tellsMissingAndUnusedParameters) {
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

TEST(Exceptions, chainInnermostFirstAndKeepTheirOrigin) {
  BaseException* e = new GeneralException("first", "a.cc", 1);
  e->noteOrigin({"inner", "T", 3});
  e = e->add(new GeneralException("second", "b.cc", 2));
  e = e->add(new GeneralException("third", "c.cc", 3));
  e->noteOrigin({"outer", "T", 4});
  const std::unique_ptr<BaseException> owner(e);
  EXPECT_EQ(describe(*e), "a.cc, line 1: first\nb.cc, line 2: second\nc.cc, line 3: third");
  EXPECT_EQ(e->getOrigin()->node, "inner");
}

TEST(Buffer, holdsTheLastCountsOnly) {
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
    EXPECT_EQ(thrownText([&] { buffer[2]; }),
              "Count has left the buffer: count 2, newest 5, length 3");
    EXPECT_EQ(thrownText([&] { buffer[-1]; }),
              "Count has left the buffer: count -1, newest 5, length 3");
    EXPECT_EQ(thrownText([&] { buffer.get(6); }),
              "Count is not in the buffer: count 6, newest 5, length 3");
    buffer[2000000000] = ObjectRef(new Counted(1));  // far away, at once
    EXPECT_EQ(Counted::live, 1);
  }
  EXPECT_EQ(Counted::live, 0);
}

struct ValueCase {
  const char* type;
  const char* text;
  const char* expected;  // the object's text, or the reason of the refusal
};

class ParseValue : public testing::TestWithParam<ValueCase> {};

TEST_P(ParseValue, givesTheObjectOrTheReason) {
  std::string result;
  try {
    result = text(*parseValue(GetParam().type, GetParam().text));
  } catch (const std::invalid_argument& e) {
    result = e.what();
  }
  EXPECT_EQ(result, GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, ParseValue,
    testing::Values(
        ValueCase{"int", " +12 ", "<Int 12 >"}, ValueCase{"int", "-3", "<Int -3 >"},
        ValueCase{"int", "1.5", "'1.5' is not an int"},
        ValueCase{"int", "+-3", "'+-3' is not an int"}, ValueCase{"int", " ", "' ' is not an int"},
        ValueCase{"int", "2147483648", "'2147483648' is not an int"},
        ValueCase{"float", "1e-3", "<Float 0.001 >"},
        ValueCase{"float", "0,5", "'0,5' is not a float"},
        ValueCase{"float", "1e99", "'1e99' is not a float"},
        ValueCase{"string", " a ", "<String  a  >"}, ValueCase{"bool", "true", "<Bool true >"},
        ValueCase{"bool", "1", "'1' is not true or false"},
        ValueCase{"object", "<Vector<int> 1 2 >", "<Vector 1 2 >"},
        ValueCase{"object", "<Vector 0.5>", "<Vector 0.5 >"},
        ValueCase{"object", "<Vector<int>>", "<Vector >"},
        ValueCase{"object", "<Vector<int> 1 x>", "'x' is not an int"},
        ValueCase{"object", "<Bool false>", "<Bool false >"},
        ValueCase{"object", "<String a > b >", "<String a > b >"},
        ValueCase{"object", "<>", "'<>' is not an object such as <Float 0.5>"},
        ValueCase{"object", "<Window 3>",
                  "'Window' is not a kind of object that can be read; expected Int, Float, Double, "
                  "Bool, String or Vector"},
        ValueCase{"double", "1",
                  "unknown type 'double'; expected int, float, string, bool, object or "
                  "subnet_param"}));

}  // namespace
