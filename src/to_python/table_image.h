// What is read of the engine's table: its variables and the names of its rows, made sure of.
//
// A function that returns nothing has set a Python error, which says what of the image is wrong.
#pragma once

#include <initializer_list>
#include <optional>
#include <string>
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
std::optional<TableImage> readTable(const foundation::zorvandata::Array& table);

// What textsOf reads.
inline constexpr std::initializer_list<foundation::zorvandata::ArrayType> kTextTypes = {
    foundation::zorvandata::ArrayType::CELL, foundation::zorvandata::ArrayType::ZORVAN_STRING};

// The texts of a cell array of texts or a string array; `owner` and `what` name them in an error.
std::optional<std::vector<std::string>> textsOf(const foundation::zorvandata::Array& texts,
                                                const char* owner, const char* what);

// The class of an array of value objects; empty for all other arrays.
const std::string& valueObjectClass(const foundation::zorvandata::Array& array);

// A property of the only object in an array, which must have one of the types if any are given.
std::optional<foundation::zorvandata::Array> propertyOf(
    const foundation::zorvandata::Array& object, const char* name,
    std::initializer_list<foundation::zorvandata::ArrayType> types = {});

// A ValueError.
void setTableError(const std::string& text);

}  // namespace PythonZorvanDataArray::detail
