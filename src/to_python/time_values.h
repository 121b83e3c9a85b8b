// Value objects, such as those of the classes datetime and duration, and their properties, made
// sure of.
//
// A function that finds fault sets a Python error: ValueError for an object that is not scalar or
// lacks a property, TypeError for a property of the wrong type. `className` is for the texts.
#pragma once

#include <initializer_list>
#include <optional>

#include "zorvandata/array_impl.h"

namespace PythonZorvanDataArray::detail {

// Whether the array of value objects has exactly one element.
bool isOneObject(const foundation::zorvandata::Array& array, const char* className);

// One of an array's value objects, which must outlive it.
struct ObjectElement {
  const foundation::zorvandata::ArrayImpl& objects;
  size_t element = 0;
};

// The position of a property among the array's items: not an array, which most values of a long
// list can do without. Nothing, and no error, when there is no such property.
std::optional<size_t> findProperty(const ObjectElement& object, const char* name);

// Likewise for a property that must be there and have one of the types.
std::optional<size_t> typedProperty(const ObjectElement& object, const char* className,
                                    const char* name,
                                    std::initializer_list<foundation::zorvandata::ArrayType> types);

}  // namespace PythonZorvanDataArray::detail
