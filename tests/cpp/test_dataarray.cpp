#include <gtest/gtest.h>

#include <sstream>

#include "dataarray/array_predicates.h"
#include "dataarray/print.h"
#include "sample_arrays.h"
#include "zorvandata/visitor.h"

namespace PythonZorvanDataArray::detail {
namespace {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayFactory;
using foundation::zorvandata::ArrayType;

class CountingFlushes : public std::stringbuf {
 public:
  int flushes = 0;
  int sync() override {
    ++flushes;
    return 0;
  }
};

TEST(Print, TypeCodeOfTypesAndArrays) {
  CountingFlushes text;
  std::ostream out(&text);
  printArrayTypeAsInt(ArrayType::COMPLEX_UINT64, out);
  printArrayTypeAsInt(ArrayFactory().createScalar(2.5), out);
  printArrayTypeAsInt(Array(), out);
  EXPECT_EQ(text.str(), "ArrayType: 23\nArrayType: 4\nArrayType: 0\n");
  EXPECT_EQ(text.flushes, 3);
}

TEST(Print, ComparisonListsTheTypesInOrder) {
  std::ostringstream out;
  printComparisonArrayTypesAsInt(out);
  EXPECT_EQ(out.str(), R"(   Compare to: 
       LOGICAL: 1
       CHAR: 2
       ZORVAN_STRING: 3
       DOUBLE: 4
       SINGLE: 5
       INT8: 6
       UINT8: 7
       INT16: 8
       UINT16: 9
       INT32: 10
       UINT32: 11
       INT64: 12
       UINT64: 13
       COMPLEX_DOUBLE: 14
       COMPLEX_SINGLE: 15
       COMPLEX_INT8: 16
       COMPLEX_UINT8: 17
       COMPLEX_INT16: 18
       COMPLEX_UINT16: 19
       COMPLEX_INT32: 20
       COMPLEX_UINT32: 21
       COMPLEX_INT64: 22
       COMPLEX_UINT64: 23
       CELL: 24
       STRUCT: 25
       VALUE_OBJECT: 27
)");
}

TEST(Print, VisitorPrintsWhatItVisits) {
  const ArrayFactory factory;
  const std::pair<Array, std::string> cases[] = {
      {sample::counting(ArrayType::DOUBLE, {2, 3}), "DOUBLE, 2-by-3\n"},
      {sample::counting(ArrayType::COMPLEX_INT8, {1, 0, 4}), "COMPLEX_INT8, 1-by-0-by-4\n"},
      {factory.createCharArray("text"), "CHAR, 1-by-4\n"},
      {sample::strings({1, 1}, {}), "ZORVAN_STRING, 1-by-1\n"},
      {factory.createCellArray({0, 0}), "CELL, 0-by-0\n"},
      {sample::record({}), "STRUCT, 1-by-1\n"},
      {factory.createHandleArray({1, 1}, std::string("H"), {1}), "HANDLE_OBJECT_REF, 1-by-1\n"},
  };
  for (const auto& [array, text] : cases) {
    std::ostringstream out;
    applyVisitor(array, PrintVisitor(out));
    EXPECT_EQ(out.str(), text);
  }
  std::ostringstream out;
  EXPECT_THROW(applyVisitor(Array(), PrintVisitor(out)),
               foundation::zorvandata::EArrayUnknownDataType);
  EXPECT_EQ(out.str(), "");
}

TEST(Predicates, HoldForTheCodesOfTheirRange) {
  const struct {
    const char* name;
    bool (*holds)(ArrayType);
    int first, last;
  } cases[] = {{"arithmetic", isArithmeticType, 4, 23},
               {"real floating point", isRealFloatingPointType, 4, 5},
               {"real integer", isRealIntegerType, 6, 13},
               {"complex", isComplexType, 14, 23}};
  for (const auto& predicate : cases) {
    for (int code = 0; code <= 32; ++code) {
      EXPECT_EQ(predicate.holds(static_cast<ArrayType>(code)),
                predicate.first <= code && code <= predicate.last)
          << predicate.name << ' ' << code;
    }
  }
  EXPECT_TRUE(isWithinRangeInclusive(ArrayType::CELL, ArrayType::CELL, ArrayType::CELL));
  EXPECT_FALSE(isWithinRangeInclusive(ArrayType::CELL, ArrayType::STRUCT, ArrayType::CHAR));
}

TEST(Predicates, ValidArraysAreEngagedAndTyped) {
  EXPECT_FALSE(isValidArr(std::nullopt));
  EXPECT_FALSE(isValidArr(Array()));
  EXPECT_TRUE(isValidArr(ArrayFactory().createCellArray({0, 0})));
}

TEST(Predicates, StorageInDictionaries) {
  const ArrayFactory factory;
  const struct {
    const char* name;
    Array array;
    bool combined, asCell;
  } cases[] = {
      {"string", sample::strings({1, 2}, {}), true, false},
      {"no string", sample::strings({0, 0}, {}), true, false},
      {"double", factory.createScalar(1.0), true, false},
      {"empty double", sample::counting(ArrayType::DOUBLE, {0, 0}), true, false},
      {"cell", factory.createCellArray({1, 1}), true, true},
      {"empty cell", factory.createCellArray({0, 0}), true, true},
      {"single", factory.createScalar(1.0f), false, true},
      {"empty single", sample::counting(ArrayType::SINGLE, {0, 3}), true, false},
      {"int8", factory.createScalar(int8_t{1}), false, true},
      {"empty uint64", sample::counting(ArrayType::UINT64, {1, 0}), true, false},
      {"complex", sample::counting(ArrayType::COMPLEX_DOUBLE, {1, 1}), false, true},
      {"empty complex", sample::counting(ArrayType::COMPLEX_UINT64, {0, 0}), true, false},
      {"logical", factory.createScalar(true), false, true},
      {"empty logical", sample::counting(ArrayType::LOGICAL, {0, 0}), false, true},
      {"char", factory.createCharArray("a"), false, true},
      {"empty char", factory.createCharArray(""), false, true},
      {"struct", sample::record({}), false, true},
      {"object", factory.createHandleArray({1, 1}, std::string("H"), {1}), false, true},
      {"no array", Array(), false, true},
  };
  for (const auto& row : cases) {
    EXPECT_EQ(shouldBeMarkedCombined(row.array), row.combined) << row.name;
    EXPECT_EQ(shouldBeStoredAsCell(row.array), row.asCell) << row.name;
  }
}

}  // namespace
}  // namespace PythonZorvanDataArray::detail
