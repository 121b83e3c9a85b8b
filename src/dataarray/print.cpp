#include "dataarray/print.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayType;
using foundation::zorvandata::codeOf;
using foundation::zorvandata::nameOf;

void printArrayTypeAsInt(ArrayType type, std::ostream& out) {
  out << "ArrayType: " << codeOf(type) << std::endl;
}

void printArrayTypeAsInt(const Array& array, std::ostream& out) {
  printArrayTypeAsInt(array.getType(), out);
}

void printComparisonArrayTypesAsInt(std::ostream& out) {
  out << "   Compare to: \n";
  for (int code = codeOf(ArrayType::LOGICAL); code <= codeOf(ArrayType::VALUE_OBJECT); ++code) {
    const auto type = static_cast<ArrayType>(code);
    if (type == ArrayType::OBJECT) continue;
    out << "       " << nameOf(type) << ": " << code << '\n';
  }
}

void PrintVisitor::print(const Array& array) const {
  out_ << nameOf(array.getType());
  const char* separator = ", ";
  for (const size_t extent : array.getDimensions()) {
    out_ << separator << extent;
    separator = "-by-";
  }
  out_ << '\n';
}

}  // namespace PythonZorvanDataArray::detail
