#include "zorvandata/elements.h"

#include "zorvandata/array_impl.h"
#include "zorvandata/exception.h"
#include "zorvandata/text.h"
#include "zorvandata/typed_array.h"

namespace foundation::zorvandata {

using detail::readField;

namespace detail {

void checkType(const Array& array, ArrayType type) {
  if (array.getType() == type) return;
  throw InvalidArrayTypeException(std::string("expected ") + nameOf(type) + ", found " +
                                  nameOf(array.getType()));
}

void checkIndex(const Array& array, size_t index) {
  if (index >= array.getNumberOfElements()) throw EArrayIndexOutOfRange();
}

template <>
std::optional<std::u16string> readElement<std::optional<std::u16string>>(const Array& array,
                                                                         size_t index) {
  checkType(array, ArrayType::ZORVAN_STRING);
  const auto utf8 = array.impl().texts()[index];
  if (!utf8) return std::nullopt;
  return toUtf16(*utf8);
}

template <>
Array readElement<Array>(const Array& array, size_t index) {
  checkType(array, ArrayType::CELL);
  return array.impl().items().get(index);
}

void writeDenseElement(Array& array, ArrayType type, size_t index, const void* value) {
  checkType(array, type);
  const size_t size = elementSize(type);
  std::memcpy(array.mutableImpl().buffer().mutableData() + index * size, value, size);
}

void writeElement(Array& array, size_t index, const Array& value) {
  checkType(array, ArrayType::CELL);
  // `value` may be `array` itself.
  const Array held = value;  // NOLINT(performance-unnecessary-copy-initialization)
  array.mutableImpl().items().set(index, held);
}

void writeElement(Array& array, size_t index, const std::optional<std::u16string>& value) {
  checkType(array, ArrayType::ZORVAN_STRING);
  Texts& texts = array.mutableImpl().texts();
  if (value) {
    texts = texts.with(index, toUtf8(*value));
  } else {
    texts = texts.with(index, std::nullopt);
  }
}

namespace {

const Layout& namesOf(const Array& array) {
  const ArrayType type = array.getType();
  if (type != ArrayType::STRUCT && type != ArrayType::VALUE_OBJECT && type != ArrayType::OBJECT) {
    throw InvalidArrayTypeException(std::string("elements of ") + nameOf(type) +
                                    " arrays have no fields or properties");
  }
  return *array.impl().layout();
}

bool isOfClass(const Layout& layout, const ZorvanPropertyIdentifier& property) {
  return property.getClassName().empty() || property.getClassName() == layout.className;
}

bool has(const Layout& layout, const ZorvanPropertyIdentifier& property) {
  return isOfClass(layout, property) &&
         layout.find(property.getPropertyName()) < layout.names.size();
}

// The position of a name; throws InvalidFieldNameException.
size_t position(const Layout& layout, const std::string& name) {
  const size_t field = layout.find(name);
  if (field == layout.names.size()) throw InvalidFieldNameException("there is no '" + name + "'");
  return field;
}

void checkClass(const Layout& layout, const ZorvanPropertyIdentifier& property) {
  if (isOfClass(layout, property)) return;
  throw InvalidFieldNameException("an object of class '" + layout.className +
                                  "' has no property of class '" + property.getClassName() + "'");
}

ClassInfo classInfoOf(const Layout& layout) {
  std::vector<ZorvanPropertyIdentifier> properties;
  for (const std::string& name : layout.names) {
    properties.emplace_back(layout.className + "." + name);
  }
  return ClassInfo(ZorvanClassIdentifier(layout.className), std::move(properties));
}

}  // namespace

Array readField(const Array& array, size_t index, const std::string& name) {
  const size_t field = position(namesOf(array), name);
  return array.impl().items().get(array.impl().itemIndex(field, index));
}

void writeField(Array& array, size_t index, const std::string& name, const Array& value) {
  const Layout& layout = namesOf(array);
  const size_t field =
      array.getType() == ArrayType::STRUCT ? position(layout, name) : layout.find(name);
  const bool isNew = field == layout.names.size();
  // `value` may be `array` itself.
  const Array held = value;  // NOLINT(performance-unnecessary-copy-initialization)
  ArrayImpl& impl = array.mutableImpl();
  if (isNew) impl.addName(name);
  impl.items().set(impl.itemIndex(field, index), held);
}

void copyElement(Array& to, size_t toIndex, const Array& from, size_t fromIndex) {
  const ArrayType type = from.getType();
  if (isDense(type)) {
    const Buffer element = Buffer::copyOf(
        from.impl().buffer().data() + fromIndex * elementSize(type), elementSize(type));
    writeDenseElement(to, type, toIndex, element.data());
  } else if (type == ArrayType::ZORVAN_STRING) {
    writeElement(to, toIndex, readElement<std::optional<std::u16string>>(from, fromIndex));
  } else {
    writeElement(to, toIndex, readElement<Array>(from, fromIndex));
  }
}

void checkPropertyClass(const Array& objects, const ZorvanPropertyIdentifier& property) {
  checkClass(namesOf(objects), property);
}

Array elementAsArray(const Array& array, size_t index) {
  checkIndex(array, index);
  const ArrayImpl& impl = array.impl();
  const ArrayType type = impl.type();
  if (isDense(type)) return makeScalar(type, impl.buffer().data() + index * elementSize(type));
  switch (type) {
    case ArrayType::CELL:
      return impl.items().get(index);
    case ArrayType::ZORVAN_STRING:
    case ArrayType::ENUMERATION:
      return makeArray(type, Dimensions::scalar(), Texts::of({impl.texts()[index]}), impl.layout());
    case ArrayType::HANDLE_OBJECT_REF:
      return makeArray(
          type, Dimensions::scalar(),
          Buffer::copyOf(impl.buffer().data() + index * sizeof(uint64_t), sizeof(uint64_t)),
          impl.layout());
    default:
      break;
  }
  const size_t names = impl.layout() ? impl.layout()->names.size() : 0;
  std::vector<Array> fields;
  fields.reserve(names);
  for (size_t i = 0; i < names; ++i) fields.push_back(impl.items().get(impl.itemIndex(i, index)));
  return makeArray(type, Dimensions::scalar(), Items(std::move(fields)), impl.layout());
}

}  // namespace detail

ZORVANStringReferenceExt::operator std::u16string() const {
  if (!value_) throw MissingStringException();
  return *value_;
}

ArrayReferenceExt::operator CharArray() const { return CharArray(Array(*this)); }
ArrayReferenceExt::operator StructArray() const { return StructArray(Array(*this)); }
ArrayReferenceExt::operator ValueObjectArray() const { return ValueObjectArray(Array(*this)); }
ArrayReferenceExt::operator ZORVANStringReferenceExt() const {
  return ZORVANStringReferenceExt(
      detail::readElement<std::optional<std::u16string>>(*array_, index_));
}

Array ArrayReferenceExt::operator[](const ZorvanFieldIdentifier& field) const {
  return readField(*array_, index_, field.getString());
}

Array ArrayReferenceExt::operator[](const ZorvanPropertyIdentifier& property) const {
  return detail::readElement<ValueObject>(*array_, index_)[property];
}

std::u16string castToString(const ArrayReferenceExt& element) {
  const Array text = element.asArray();
  if (text.getType() == ArrayType::CHAR) return CharArray(text).toUTF16();
  return ZORVANStringReferenceExt(text[0]);
}

std::string CharArray::toAscii() const { return narrowAscii(toUTF16()); }

std::vector<ZorvanFieldIdentifier> StructElement::getFieldNames() const {
  return StructArray(array_).getFieldNames();
}
Array StructElement::operator[](const ZorvanFieldIdentifier& field) const {
  return readField(array_, index_, field.getString());
}

std::vector<ZorvanFieldIdentifier> StructArray::getFieldNames() const {
  const std::vector<std::string>& names = impl().layout()->names;
  return std::vector<ZorvanFieldIdentifier>(names.begin(), names.end());
}

ClassInfo ValueObject::getClassInfo() const { return detail::classInfoOf(*array_.impl().layout()); }

bool ValueObject::hasProperty(const ZorvanPropertyIdentifier& property) const {
  return detail::has(*array_.impl().layout(), property);
}

Array ValueObject::operator[](const ZorvanPropertyIdentifier& property) const {
  detail::checkClass(*array_.impl().layout(), property);
  return readField(array_, index_, property.getPropertyName());
}

std::vector<Property> ValueObject::getProperties() const {
  std::vector<Property> properties;
  const ClassInfo info = getClassInfo();
  for (const ZorvanPropertyIdentifier& id : info.getProperties()) {
    properties.emplace_back(id, (*this)[id]);
  }
  return properties;
}

ClassInfo ValueObjectArray::getClassInfo() const { return detail::classInfoOf(*impl().layout()); }

bool ValueObjectArray::hasArrayProperty(const ZorvanPropertyIdentifier& property) const {
  return detail::has(*impl().layout(), property);
}

Array ValueObjectArray::operator[](const ZorvanPropertyIdentifier& property) const {
  const Layout& layout = *impl().layout();
  detail::checkClass(layout, property);
  const size_t field = detail::position(layout, property.getPropertyName());
  const size_t count = getNumberOfElements();
  if (count == 1) return impl().items().get(field);
  std::vector<Array> values;
  values.reserve(count);
  for (size_t i = 0; i < count; ++i) {
    values.push_back(impl().items().get(impl().itemIndex(field, i)));
  }
  return makeArray(ArrayType::CELL, dimensions(), Items(std::move(values)));
}

HandleObjectRef HandleObjectRef::of(const Array& array, size_t index) {
  return {array.impl().layout()->className,
          reinterpret_cast<const uint64_t*>(array.impl().buffer().data())[index]};
}

Enumeration Enumeration::of(const Array& array, size_t index) {
  return {array.impl().layout()->className, std::string(*array.impl().texts()[index])};
}

SparseArray::SparseArray(Array array) : Array(std::move(array)) {
  if (!isSparse(getType())) throw InvalidArrayTypeException("expected a sparse array");
}

Array SparseArray::getValues() const {
  return makeDense(sparseValueType(getType()), Dimensions::row(getRows().size()),
                   impl().sparse().values);
}

}  // namespace foundation::zorvandata
