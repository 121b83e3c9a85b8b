// What is read of the engine's table: its variables and the names of its rows, made sure of.
//
// All throws PythonErrorSet with a Python error pending, which says what of the image is wrong.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "zorvandata/array.h"

namespace PythonZorvanDataArray::detail {

// Texts are UTF-8 as the data-array library stores it.
struct TableVariable {
  std::string name;
  foundation::zorvandata::Array values;
};

struct TableImage {
  std::vector<TableVariable> variables;
  std::vector<std::string> rowNames;  // none when the table has none
};

// Reads an array of value objects of class "table", which must have exactly one element.
TableImage readTable(const foundation::zorvandata::Array& table);

// What textsOf reads.
inline constexpr std::initializer_list<foundation::zorvandata::ArrayType> kTextTypes = {
    foundation::zorvandata::ArrayType::CELL, foundation::zorvandata::ArrayType::ZORVAN_STRING};

// The texts of a cell array of texts or a string array; `owner` and `what` name them in an error.
std::vector<std::string> textsOf(const foundation::zorvandata::Array& texts, const char* owner,
                                 const char* what);

// The class of an array of value objects; empty for all other arrays. Valid while the array is.
std::string_view valueObjectClass(const foundation::zorvandata::Array& array);

// A property of the only object in an array, which must have one of the types if any are given.
foundation::zorvandata::Array propertyOf(
    const foundation::zorvandata::Array& object, const char* name,
    std::initializer_list<foundation::zorvandata::ArrayType> types = {});

// A ValueError.
[[noreturn]] void throwTableError(const std::string& text);

}  // namespace PythonZorvanDataArray::detail
