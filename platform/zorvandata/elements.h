// Elements of struct, object, handle and enumeration arrays as values of their own. Each shares
// the array that it came from.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "zorvandata/array.h"
#include "zorvandata/identifiers.h"

namespace foundation::zorvandata {

// One element of a struct array.
class StructElement {
 public:
  static StructElement of(const Array& array, size_t index) { return {array, index}; }
  std::vector<ZorvanFieldIdentifier> getFieldNames() const;
  // Throws InvalidFieldNameException when there is no such field.
  Array operator[](const ZorvanFieldIdentifier& field) const;

 private:
  StructElement(Array array, size_t index) : array_(std::move(array)), index_(index) {}
  Array array_;
  size_t index_;
};

// One property of a value object.
class Property {
 public:
  Property(ZorvanPropertyIdentifier id, Array value)
      : id_(std::move(id)), value_(std::move(value)) {}
  const ZorvanPropertyIdentifier& getIdentifier() const { return id_; }
  const Array& castToArray() const { return value_; }

 private:
  ZorvanPropertyIdentifier id_;
  Array value_;
};

// One element of a value-object array.
class ValueObject {
 public:
  static ValueObject of(const Array& array, size_t index) { return {array, index}; }
  ClassInfo getClassInfo() const;
  bool hasProperty(const ZorvanPropertyIdentifier& property) const;
  // Throws InvalidFieldNameException when there is no such property.
  Array operator[](const ZorvanPropertyIdentifier& property) const;
  std::vector<Property> getProperties() const;

 private:
  ValueObject(Array array, size_t index) : array_(std::move(array)), index_(index) {}
  Array array_;
  size_t index_;
};

// Reference to an engine handle object: the class and a number that only the engine understands.
class HandleObjectRef {
 public:
  HandleObjectRef(ZorvanClassIdentifier classId, uint64_t reference)
      : class_(std::move(classId)), reference_(reference) {}
  static HandleObjectRef of(const Array& array, size_t index);
  const ZorvanClassIdentifier& getClassIdentifier() const { return class_; }
  uint64_t getReference() const { return reference_; }

 private:
  ZorvanClassIdentifier class_;
  uint64_t reference_;
};

// One element of an enumeration array: the class and the member's name.
class Enumeration {
 public:
  Enumeration(ZorvanClassIdentifier classId, std::string member)
      : class_(std::move(classId)), member_(std::move(member)) {}
  static Enumeration of(const Array& array, size_t index);
  const ZorvanClassIdentifier& getClassIdentifier() const { return class_; }
  const std::string& getMemberName() const { return member_; }

 private:
  ZorvanClassIdentifier class_;
  std::string member_;
};

}  // namespace foundation::zorvandata
