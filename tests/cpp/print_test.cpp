#include "dataarray/print.h"

#include <gtest/gtest.h>

#include <sstream>

#include "zorvandata/array_factory.h"
#include "zorvandata/visitor.h"

namespace PythonZorvanDataArray::detail {
namespace {

using foundation::zorvandata::ArrayFactory;
using foundation::zorvandata::ArrayType;

TEST(Print, TypeCode) {
  std::ostringstream out;
  printArrayTypeAsInt(ArrayType::VALUE_OBJECT, out);
  printArrayTypeAsInt(ArrayFactory().createCharArray("x"), out);
  EXPECT_EQ(out.str(), "ArrayType: 27\nArrayType: 2\n");
}

TEST(Print, ComparisonListsTheCommonTypesInOrder) {
  std::ostringstream out;
  printComparisonArrayTypesAsInt(out);
  const std::string text = out.str();
  EXPECT_EQ(text.find("   Compare to: \n       LOGICAL: 1\n       CHAR: 2\n"), 0U);
  EXPECT_NE(text.find("\n       ZORVAN_STRING: 3\n       DOUBLE: 4\n"), std::string::npos);
  const std::string end = "\n       CELL: 24\n       STRUCT: 25\n       VALUE_OBJECT: 27\n";
  EXPECT_EQ(text.rfind(end), text.size() - end.size());
}

TEST(Print, VisitorPrintsTypeAndDimensions) {
  std::ostringstream out;
  const PrintVisitor visitor(out);
  applyVisitor(ArrayFactory().createArray(ArrayType::COMPLEX_INT8, {2, 3, 4}), visitor);
  applyVisitor(ArrayFactory().createCellArray({1, 0}), visitor);
  EXPECT_EQ(out.str(), "COMPLEX_INT8, 2-by-3-by-4\nCELL, 1-by-0\n");
}

}  // namespace
}  // namespace PythonZorvanDataArray::detail
