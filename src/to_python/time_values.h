// Value objects, such as those of the classes datetime and duration, and their properties, made
// sure of. What finds fault throws PythonErrorSet: ValueError for an object that is not scalar or
// lacks a property, TypeError for a property of the wrong type. `className` is for the texts.
#pragma once

#include <initializer_list>

#include "zorvandata/array.h"
#include "zorvandata/tape_reader.h"

namespace PythonZorvanDataArray::detail {

// The array of value objects has exactly one element.
void requireOneObject(const foundation::zorvandata::Array& array, const char* className);

// The value of a property that must be there and have one of the types.
foundation::zorvandata::TapeReader requireProperty(
    const foundation::zorvandata::RecordReader& object, const char* className, const char* name,
    std::initializer_list<foundation::zorvandata::ArrayType> types);

}  // namespace PythonZorvanDataArray::detail
