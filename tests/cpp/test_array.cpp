#include <gtest/gtest.h>

#include <functional>

#include "sample_arrays.h"
#include "zorvandata/visitor.h"

namespace foundation::zorvandata {
namespace {

using sample::cell;
using sample::counting;
using sample::describe;
using sample::record;
using sample::strings;

const ArrayFactory kFactory;

TEST(ElementTypes, CodesNamesAndSizesAreTheContract) {
  std::string listed;
  for (int code = 0; isKnownCode(code); ++code) {
    const auto type = static_cast<ArrayType>(code);
    listed += nameOf(type) + std::string(" ") + std::to_string(elementSize(type)) + ", ";
    EXPECT_EQ(isDense(type), elementSize(type) != 0) << code;
  }
  EXPECT_EQ(listed,
            "UNKNOWN 0, LOGICAL 1, CHAR 2, ZORVAN_STRING 0, DOUBLE 8, SINGLE 4, INT8 1, UINT8 1, "
            "INT16 2, UINT16 2, INT32 4, UINT32 4, INT64 8, UINT64 8, COMPLEX_DOUBLE 16, "
            "COMPLEX_SINGLE 8, COMPLEX_INT8 2, COMPLEX_UINT8 2, COMPLEX_INT16 4, COMPLEX_UINT16 4, "
            "COMPLEX_INT32 8, COMPLEX_UINT32 8, COMPLEX_INT64 16, COMPLEX_UINT64 16, CELL 0, "
            "STRUCT 0, OBJECT 0, VALUE_OBJECT 0, HANDLE_OBJECT_REF 0, ENUMERATION 0, "
            "SPARSE_LOGICAL 0, SPARSE_DOUBLE 0, SPARSE_COMPLEX_DOUBLE 0, ");
  EXPECT_FALSE(isKnownCode(-1));
  EXPECT_STREQ(nameOf(static_cast<ArrayType>(33)), "?");
}

TEST(DimensionsTest, AreAtLeastTwo) {
  const std::pair<ArrayDimensions, ArrayDimensions> cases[] = {
      {{}, {1, 1}},     {{5}, {1, 5}},          {{0}, {1, 0}},
      {{0, 3}, {0, 3}}, {{2, 3, 1}, {2, 3, 1}}, {{4, 0, 2}, {4, 0, 2}}};
  for (const auto& [given, expected] : cases) {
    const Array array = counting(ArrayType::INT8, given);
    size_t elements = 1;
    for (const size_t extent : expected) elements *= extent;
    EXPECT_EQ(array.getDimensions(), expected);
    EXPECT_EQ(array.getNumberOfElements(), elements);
    EXPECT_EQ(array.isEmpty(), elements == 0);
  }
  EXPECT_EQ(Array().getDimensions(), (ArrayDimensions{0, 0}));
}

// Writes through one of two handles and returns whether only that one has changed.
bool changesOneOnly(Array first, const std::function<void(Array&)>& write) {
  const std::string before = describe(first);
  Array second = first;
  write(second);
  if (describe(first) != before || describe(second) == before) return false;
  const std::string after = describe(second);
  write(first);
  return describe(first) == after && describe(second) == after;
}

TEST(CopyOnWrite, WritingShowsInOneHandleOnly) {
  const Array value = kFactory.createCharArray("new");
  const auto property = ZorvanPropertyIdentifier("added");
  const std::tuple<const char*, Array, std::function<void(Array&)>> cases[] = {
      {"inline buffer", counting(ArrayType::DOUBLE, {1, 2}), [](Array& a) { a[1] = 7.5; }},
      {"shared buffer", counting(ArrayType::DOUBLE, {9, 9}), [](Array& a) { a[80] = 7.5; }},
      {"logical", counting(ArrayType::LOGICAL, {1, 3}), [](Array& a) { a[1] = true; }},
      {"string", strings({1, 2}, {u"a", u"b"}), [](Array& a) { a[0] = std::u16string(u"new"); }},
      {"string to missing", strings({1, 1}, {u"a"}),
       [](Array& a) { a[0] = std::optional<std::u16string>(); }},
      {"cell", cell({cell({}), cell({})}), [&](Array& a) { a[1] = value; }},
      {"struct", record({{"f", cell({})}}), [&](Array& a) { a[0]["f"] = value; }},
      {"object property", kFactory.createValueObjectScalar(ClassInfo(std::string("C"))),
       [&](Array& a) { a[0][property] = value; }},
  };
  for (const auto& [name, array, write] : cases) EXPECT_TRUE(changesOneOnly(array, write)) << name;
}

TEST(CopyOnWrite, ElementTakenOutDoesNotFollowItsCell) {
  Array outer = cell({counting(ArrayType::INT32, {2, 2})});
  Array inner = outer[0];
  const std::string before = describe(outer);
  inner[0] = int32_t{-1};
  EXPECT_EQ(describe(outer), before);
  const std::string written = describe(inner);
  TypedArray<int32_t> view(inner);
  view[1] = int32_t{-2};
  EXPECT_EQ(describe(inner), written);
}

TEST(CopyOnWrite, ArraysCanHoldTheirOwnFormerValue) {
  Array array = cell({kFactory.createScalar(1.0)});
  const std::string before = describe(array);
  array[0] = array;
  EXPECT_EQ(describe(array[0]), before);
  Array structure = record({{"self", kFactory.createScalar(true)}});
  const std::string plain = describe(structure);
  structure[0]["self"] = structure;
  EXPECT_EQ(describe(structure[0]["self"]), plain);
}

TEST(References, AssigningOneReferenceToAnotherCopiesTheElement) {
  Array cells = cell({kFactory.createScalar(1.0), kFactory.createScalar(2.0)});
  cells[0] = cells[1];
  EXPECT_EQ(describe(cells[0]), describe(kFactory.createScalar(2.0)));
  Array structs = kFactory.createStructArray({1, 2}, {"f"});
  structs[1]["f"] = kFactory.createScalar(3.0);
  structs[0]["f"] = structs[1]["f"];
  EXPECT_EQ(describe(structs[0]["f"]), describe(kFactory.createScalar(3.0)));
}

TEST(Handles, MovingLeavesNoArray) {
  Array from = kFactory.createScalar(1.0);
  const Array to = std::move(from);
  EXPECT_EQ(from.getType(), ArrayType::UNKNOWN);  // NOLINT: the moved-from state is defined
  EXPECT_EQ(static_cast<double>(to[0]), 1.0);
}

TEST(Equality, IsDeep) {
  const std::vector<sample::Sample> samples = sample::everyKind();
  const std::vector<sample::Sample> again = sample::everyKind();
  const double nan = std::numeric_limits<double>::quiet_NaN();
  for (size_t i = 0; i < samples.size(); ++i) {
    EXPECT_EQ(samples[i].array, samples[i].array) << samples[i].name;
    for (size_t j = 0; j < samples.size(); ++j) {
      if (samples[i].name.find("odd") != std::string::npos) continue;
      EXPECT_EQ(samples[i].array == again[j].array,
                describe(samples[i].array) == describe(again[j].array))
          << samples[i].name << " and " << samples[j].name;
    }
  }
  EXPECT_NE(kFactory.createScalar(nan), kFactory.createScalar(nan));
  EXPECT_NE(cell({kFactory.createScalar(nan)}), cell({kFactory.createScalar(nan)}));
  EXPECT_EQ(kFactory.createScalar(0.0), kFactory.createScalar(-0.0));
}

TEST(Equality, SeesADifferenceInOnePartOnly) {
  const auto sparse = [](const std::vector<size_t>& rows, const std::vector<size_t>& starts,
                         double value) {
    return kFactory.createSparseArray(ArrayType::SPARSE_DOUBLE, 3, 2, rows, starts,
                                      kFactory.createScalar(value));
  };
  const auto days = [](const char* type, const char* member) {
    return kFactory.createEnumerationArray({1, 1}, std::string(type), {member});
  };
  const auto handle = [](uint64_t number) {
    return kFactory.createHandleArray({1, 1}, std::string("H"), {number});
  };
  const std::pair<Array, Array> cases[] = {
      {sparse({0}, {0, 1, 1}, 1), sparse({1}, {0, 1, 1}, 1)},
      {sparse({0}, {0, 1, 1}, 1), sparse({0}, {0, 0, 1}, 1)},
      {sparse({0}, {0, 1, 1}, 1), sparse({0}, {0, 1, 1}, 2)},
      {days("A", "m"), days("B", "m")},
      {days("A", "m"), days("A", "n")},
      {handle(1), handle(2)},
      {record({{"a", Array()}}), record({{"b", Array()}})},
      {strings({1, 1}, {u""}), strings({1, 1}, {std::nullopt})},
      {strings({1, 2}, {u"x", u"x"}), strings({2, 1}, {u"x", u"x"})},
  };
  for (const auto& [a, b] : cases) {
    EXPECT_FALSE(a == b) << describe(a) << describe(b);
    EXPECT_FALSE(cell({a}) == cell({b})) << describe(a) << describe(b);
  }
}

// Expects the statement to throw the library's exception with this ID and text.
#define EXPECT_FAILURE(id, text, ...)                  \
  try {                                                \
    static_cast<void>(__VA_ARGS__);                    \
    ADD_FAILURE() << "nothing was thrown: " << (text); \
  } catch (const Exception& e) {                       \
    EXPECT_STREQ(e.what(), text);                      \
    EXPECT_EQ(e.getExceptionID(), id);                 \
  }

TEST(Failures, OfIndicesAndCasts) {
  Array number = kFactory.createScalar(1.0);
  const Array same = number;
  TypedArray<double> view(number);
  Array cells = cell({number, kFactory.createCharArray("x"), strings({1, 1}, {std::nullopt})});
  const Array texts = strings({1, 1}, {std::nullopt});
  const char* index = "Array index is out of range.";
  const char* ofDouble = "Array type mismatch: the element is of an array of type DOUBLE";
  EXPECT_FAILURE(1, index, same[1]);
  EXPECT_FAILURE(1, index, cells[3] = number);
  EXPECT_FAILURE(1, index, view[SIZE_MAX] = 1.0);
  EXPECT_FAILURE(1, index, Array()[0]);
  EXPECT_FAILURE(101, ofDouble, float(same[0]));
  EXPECT_FAILURE(101, ofDouble, StructElement(same[0]));
  EXPECT_FAILURE(101, "Array type mismatch: expected CELL, found DOUBLE", Array(same[0]));
  EXPECT_FAILURE(101, "Array type mismatch: expected ZORVAN_STRING, found DOUBLE",
                 castToString(same[0]));
  EXPECT_FAILURE(101, "Array type mismatch: expected CHAR, found DOUBLE",
                 static_cast<CharArray>(cells[0]));
  EXPECT_FAILURE(101, "Array type mismatch: expected INT64, found DOUBLE",
                 TypedArray<int64_t>(number));
  EXPECT_FAILURE(101, "Array type mismatch: expected SINGLE, found DOUBLE", number[0] = 1.0f);
  EXPECT_FAILURE(101, "Array type mismatch: expected a sparse array", SparseArray(number));
  EXPECT_FAILURE(101, "Array type mismatch: elements of DOUBLE arrays have no fields or properties",
                 same[0]["f"]);
  EXPECT_FAILURE(104, "Missing string value", castToString(cells[2]));
  EXPECT_FAILURE(104, "Missing string value", std::u16string(ZORVANStringReferenceExt(texts[0])));
  EXPECT_EQ(describe(number), describe(kFactory.createScalar(1.0)));
}

TEST(Failures, OfFactories) {
  const char* overflow = "Invalid array dimensions: the product of the dimensions overflows";
  const char* memory = "Invalid array dimensions: the array would not fit into memory";
  const char* unknown = "Unknown DataType field in zorvan::data::Array.";
  const char* ascii = "Input data can only contain ASCII characters.";
  const char* utf8 = "Text is not valid UTF-8.";
  const size_t half = size_t{1} << 32;
  const ArrayFactory f;
  EXPECT_FAILURE(102, overflow, f.createArray(ArrayType::INT8, {half, half}));
  EXPECT_FAILURE(102, overflow, f.createArray(ArrayType::CELL, {half, 0, half}));
  EXPECT_FAILURE(102, overflow, f.createStructArray({SIZE_MAX, 1}, {"f"}));
  EXPECT_FAILURE(102, memory, f.createArray(ArrayType::COMPLEX_DOUBLE, {half, half >> 2}));
  EXPECT_FAILURE(102, memory, f.createCellArray({half, half >> 2}));
  EXPECT_FAILURE(102, "Invalid array dimensions: the byte count does not match them",
                 f.createArrayWithData(ArrayType::INT16, {1, 2}, "abc", 3));
  EXPECT_FAILURE(101, "Array type mismatch: raw data is for numbers and characters",
                 f.createArrayWithData(ArrayType::CELL, {0, 0}, "", 0));
  EXPECT_FAILURE(102, "Invalid array dimensions: they ask for 4 elements, 1 are given",
                 f.createCellArray({2, 2}, {Array()}));
  EXPECT_FAILURE(102, "Invalid array dimensions: they ask for 2 elements, 1 are given",
                 f.createHandleArray({1, 2}, std::string("H"), {1}));
  EXPECT_FAILURE(8, unknown, f.createArray(ArrayType::UNKNOWN, {1, 1}));
  EXPECT_FAILURE(8, unknown, f.createArray(static_cast<ArrayType>(99), {1, 1}));
  EXPECT_FAILURE(15, ascii, f.createCharArray("caf\xE9"));
  EXPECT_FAILURE(15, ascii, CharArray(f.createCharArray(u"\u00E9")).toAscii());
  EXPECT_FAILURE(106, utf8, f.createScalar(std::string("\xFF")));
  EXPECT_FAILURE(106, utf8, f.createStructArray({1, 1}, {"\xFF"}));
  EXPECT_FAILURE(103, "Invalid field name: 'a' stands twice",
                 f.createStructArray({1, 1}, {"a", "b", "a"}));
  EXPECT_FAILURE(103, "Invalid field name: a name is empty", f.createStructArray({1, 1}, {""}));
}

TEST(Failures, OfSparseParts) {
  const Array values = counting(ArrayType::DOUBLE, {1, 2});
  const std::pair<std::vector<size_t>, std::vector<size_t>> rowsAndStarts[] = {
      {{0, 3}, {0, 1, 2}},                          // row out of range
      {{1, 1}, {0, 2, 2}},                          // rows not ascending
      {{0, 1}, {0, 3, 2}},                          // starts descending
      {{0, 1}, {1, 1, 2}},                          // first start not zero
      {{0, 1}, {0, 2}},    {{0, 1}, {}},            // too few starts
      {{0}, {0, 1, 1}},    {{0, 1, 2}, {0, 3, 3}},  // more and fewer values than rows
  };
  for (const auto& [rows, starts] : rowsAndStarts) {
    EXPECT_FAILURE(
        102, "Invalid array dimensions: the sparse array's parts do not fit together",
        kFactory.createSparseArray(ArrayType::SPARSE_DOUBLE, 3, 2, rows, starts, values));
  }
  EXPECT_FAILURE(102, "Invalid array dimensions: a sparse array has two dimensions",
                 kFactory.createArray(ArrayType::SPARSE_DOUBLE, {2, 2, 2}));
}

TEST(Factories, FillWithTheTypesDefault) {
  EXPECT_EQ(kFactory.createArray(ArrayType::DOUBLE, {2, 2}),
            sample::dense<double>(ArrayType::DOUBLE, {2, 2}, {0, 0, 0, 0}));
  const Array texts = kFactory.createArray(ArrayType::ZORVAN_STRING, {1, 2});
  EXPECT_FALSE(ZORVANStringReferenceExt(texts[1]).has_value());
  const Array cells = kFactory.createArray(ArrayType::CELL, {1, 2});
  EXPECT_EQ(describe(cells[1]), describe(counting(ArrayType::DOUBLE, {0, 0})));
  const Array structs = kFactory.createStructArray({1, 2}, {"f"});
  EXPECT_EQ(describe(structs[1]["f"]), describe(counting(ArrayType::DOUBLE, {0, 0})));
  const SparseArray sparse(kFactory.createArray(ArrayType::SPARSE_LOGICAL, {2, 3}));
  EXPECT_EQ(sparse.getColumnStarts(), (std::vector<size_t>{0, 0, 0, 0}));
  EXPECT_EQ(describe(sparse.getValues()), describe(counting(ArrayType::LOGICAL, {1, 0})));
  const uint8_t flags[] = {0, 2, 255};
  EXPECT_EQ(kFactory.createArrayWithData(ArrayType::LOGICAL, {1, 3}, flags, 3),
            sample::dense<uint8_t>(ArrayType::LOGICAL, {1, 3}, {0, 1, 1}));
}

TEST(Views, IterateInLinearOrder) {
  const TypedArray<int16_t> numbers(
      sample::dense<int16_t>(ArrayType::INT16, {2, 2}, {1, -2, 3, 4}));
  EXPECT_EQ(std::vector<int16_t>(numbers.begin(), numbers.end()),
            (std::vector<int16_t>{1, -2, 3, 4}));
  std::vector<std::optional<std::u16string>> read;
  for (const auto& text : TypedArray<std::optional<std::u16string>>(strings({1, 2}, {u"a", {}}))) {
    read.push_back(text);
  }
  EXPECT_EQ(read, (std::vector<std::optional<std::u16string>>{u"a", std::nullopt}));
  const CharArray text(kFactory.createCharArray(u"caf\u00E9"));
  EXPECT_EQ(text.toUTF16(), u"caf\u00E9");
  EXPECT_EQ(text.getDimensions(), (ArrayDimensions{1, 4}));
  const Array cells = cell({text, strings({1, 1}, {u"\u00E9"})});
  EXPECT_EQ(castToString(cells[0]), u"caf\u00E9");
  EXPECT_EQ(castToString(cells[1]), u"\u00E9");
  EXPECT_EQ(cells[0].getNumberOfElements(), 4u);
}

TEST(Views, OfStructs) {
  Array array = kFactory.createStructArray({1, 2}, {"b", "a"});
  array[1][ZorvanFieldIdentifier("a")] = kFactory.createScalar(uint8_t{5});
  const StructArray view(array);
  EXPECT_EQ(view.getFieldNames(), (std::vector<ZorvanFieldIdentifier>{{"b"}, {"a"}}));
  EXPECT_EQ(view.getNumberOfFields(), 2u);
  std::vector<std::string> found;
  for (const StructElement& element : view) found.push_back(describe(element[std::string("a")]));
  EXPECT_EQ(found, (std::vector<std::string>{describe(counting(ArrayType::DOUBLE, {0, 0})),
                                             describe(kFactory.createScalar(uint8_t{5}))}));
  const char* none = "Invalid field name: there is no 'c'";
  const Array before = array;
  EXPECT_FAILURE(103, none, StructElement(view[0])[std::string("c")]);
  EXPECT_FAILURE(103, none, array[0]["c"] = Array());
  EXPECT_TRUE(array.sharesWith(before));
}

TEST(Views, OfValueObjects) {
  using Id = ZorvanPropertyIdentifier;
  const ClassInfo info =
      kFactory.createClassInfo(std::string("pkg.C"), {std::string("pkg.C.p"), std::string("q")});
  Array array = kFactory.createValueObjectArray({2, 1}, info, true);
  array[1][Id("pkg.C.p")] = kFactory.createScalar(4.0);
  const ValueObjectArray view(array);
  EXPECT_EQ(view.getClassInfo().getClassIdentifier(), ZorvanClassIdentifier("pkg.C"));
  EXPECT_TRUE(view.hasArrayProperty(Id("q")));
  EXPECT_TRUE(view.hasArrayProperty(Id("pkg.C.q")));
  EXPECT_FALSE(view.hasArrayProperty(Id("other.C.q")));
  EXPECT_FALSE(view.hasArrayProperty(Id("r")));
  Array column = kFactory.createCellArray({2, 1});
  column[1] = kFactory.createScalar(4.0);
  EXPECT_EQ(view[Id("p")], column);
  const Array constArray = array;
  const ValueObject element = constArray[1];
  const std::vector<Property> properties = element.getProperties();
  ASSERT_EQ(properties.size(), 2u);
  EXPECT_EQ(properties[0].getIdentifier(), Id("pkg.C.p"));
  EXPECT_EQ(properties[0].castToArray(), kFactory.createScalar(4.0));
  const ValueObjectArray bare(kFactory.createValueObjectArray({1, 1}, info, false));
  EXPECT_FALSE(bare.hasArrayProperty(Id("p")));
  const char* other = "Invalid field name: an object of class 'pkg.C' has no property of class 'D'";
  EXPECT_FAILURE(103, "Invalid field name: there is no 'r'", element[Id("r")]);
  EXPECT_FAILURE(103, other, view[Id("D.p")]);
  EXPECT_FAILURE(103, other, array[0][Id("D.p")] = Array());
}

TEST(Views, OfHandlesEnumerationsAndSparseMatrices) {
  const Array handles = kFactory.createHandleArray({1, 2}, std::string("H"), {7, UINT64_MAX});
  EXPECT_EQ(HandleObjectRef(handles[1]).getReference(), UINT64_MAX);
  EXPECT_EQ(HandleObjectRef(handles[1]).getClassIdentifier(), ZorvanClassIdentifier("H"));
  const Array days = kFactory.createEnumerationArray({1, 2}, std::string("Days"), {"Mo", "Tu"});
  EXPECT_EQ(Enumeration(days[1]).getMemberName(), "Tu");
  EXPECT_EQ(days[1].getType(), ArrayType::ENUMERATION);
  const Array values = counting(ArrayType::DOUBLE, {1, 2});
  const Array sparse =
      kFactory.createSparseArray(ArrayType::SPARSE_DOUBLE, 3, 2, {2, 0}, {0, 1, 2}, values);
  EXPECT_TRUE(isSparse(sparse));
  EXPECT_FALSE(isSparse(values));
  EXPECT_EQ(SparseArray(sparse).getRows(), (std::vector<size_t>{2, 0}));
  EXPECT_EQ(SparseArray(sparse).getNumberOfNonZeros(), 2u);
  EXPECT_EQ(describe(SparseArray(sparse).getValues()), describe(values));
}

}  // namespace
}  // namespace foundation::zorvandata
