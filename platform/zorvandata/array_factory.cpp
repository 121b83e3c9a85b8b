#include "zorvandata/array_factory.h"

#include "zorvandata/exception.h"
#include "zorvandata/typed_array.h"

namespace foundation::zorvandata {
namespace {

size_t denseBytes(ArrayType type, const Dimensions& dims) {
  size_t bytes = 0;
  if (__builtin_mul_overflow(dims.elements(), elementSize(type), &bytes)) {
    throw InvalidDimensionsException("the array would not fit into memory");
  }
  return bytes;
}

void checkCount(const Dimensions& dims, size_t given) {
  if (dims.elements() == given) return;
  throw InvalidDimensionsException("they ask for " + std::to_string(dims.elements()) +
                                   " elements, " + std::to_string(given) + " are given");
}

// `count` items for each of the names; throws when that many cannot be.
size_t itemCount(size_t names, const Dimensions& dims) {
  size_t count = 0;
  if (__builtin_mul_overflow(names, dims.elements(), &count) ||
      count > PTRDIFF_MAX / sizeof(Item)) {
    throw InvalidDimensionsException("the array would not fit into memory");
  }
  return count;
}

Array emptySparse(ArrayType type, const Dimensions& dims) {
  if (dims.count() != 2) throw InvalidDimensionsException("a sparse array has two dimensions");
  return makeSparse(type, dims, SparseContent{{}, std::vector<size_t>(dims[1] + 1), {}});
}

}  // namespace

Array ArrayFactory::createArray(ArrayType type, const ArrayDimensions& extents) const {
  const Dimensions dims(extents);
  if (isDense(type)) return makeArray(type, dims, Buffer::zeros(denseBytes(type, dims)));
  if (isSparse(type)) return emptySparse(type, dims);
  switch (type) {
    case ArrayType::CELL:
      return makeArray(type, dims, ItemList(itemCount(1, dims)));
    case ArrayType::STRUCT:
      return makeArray(type, dims, ItemList(), makeLayout("", {}));
    case ArrayType::ZORVAN_STRING: {
      ItemList texts(itemCount(1, dims));
      for (size_t i = 0; i < texts.size(); ++i) texts.setString(i, std::nullopt);
      return makeArray(type, dims, std::move(texts));
    }
    default:
      throw EArrayUnknownDataType();
  }
}

Array ArrayFactory::createArrayWithData(ArrayType type, const ArrayDimensions& extents,
                                        const void* data, size_t bytes) const {
  if (!isDense(type)) throw InvalidArrayTypeException("raw data is for numbers and characters");
  const Dimensions dims(extents);
  if (denseBytes(type, dims) != bytes) {
    throw InvalidDimensionsException("the byte count does not match them");
  }
  Buffer buffer = Buffer::copyOf(data, bytes);
  if (type == ArrayType::LOGICAL) {
    std::byte* flags = buffer.mutableData();
    for (size_t i = 0; i < bytes; ++i) flags[i] = std::byte(flags[i] != std::byte{0});
  }
  return makeArray(type, dims, std::move(buffer));
}

Array ArrayFactory::createCellArray(const ArrayDimensions& extents,
                                    const std::vector<Array>& elements) const {
  const Dimensions dims(extents);
  checkCount(dims, elements.size());
  ItemList items;
  items.reserve(elements.size());
  for (const Array& element : elements) items.append(element);
  return makeArray(ArrayType::CELL, dims, std::move(items));
}

Array ArrayFactory::createStructArray(const ArrayDimensions& extents,
                                      std::vector<std::string> fields) const {
  const Dimensions dims(extents);
  ItemList items(itemCount(fields.size(), dims));
  return makeArray(ArrayType::STRUCT, dims, std::move(items), makeLayout("", std::move(fields)));
}

template <>
Array ArrayFactory::createScalar(const std::string& utf8) const {
  checkUtf8(utf8);
  ItemList text;
  text.appendString(utf8);
  return makeArray(ArrayType::ZORVAN_STRING, Dimensions::scalar(), std::move(text));
}

template <>
Array ArrayFactory::createScalar(const std::u16string& text) const {
  return createScalar(toUtf8(text));
}

template <>
Array ArrayFactory::createScalar(const std::optional<std::u16string>& text) const {
  return text ? createScalar(*text) : createArray(ArrayType::ZORVAN_STRING, {1, 1});
}

Array ArrayFactory::createValueObjectArray(const ArrayDimensions& extents, const ClassInfo& info,
                                           bool withProperties) const {
  const Dimensions dims(extents);
  std::vector<std::string> names;
  if (withProperties) {
    for (const auto& property : info.getProperties()) names.push_back(property.getPropertyName());
  }
  ItemList items(itemCount(names.size(), dims));
  return makeArray(ArrayType::VALUE_OBJECT, dims, std::move(items),
                   makeLayout(info.getClassIdentifier().getClassName(), std::move(names)));
}

Array ArrayFactory::createHandleArray(const ArrayDimensions& extents,
                                      const ZorvanClassIdentifier& id,
                                      const std::vector<uint64_t>& references) const {
  const Dimensions dims(extents);
  checkCount(dims, references.size());
  ItemList items;
  for (const uint64_t reference : references) items.appendScalar(reference);
  return makeArray(ArrayType::HANDLE_OBJECT_REF, dims, std::move(items),
                   makeLayout(id.getClassName(), {}));
}

Array ArrayFactory::createEnumerationArray(const ArrayDimensions& extents,
                                           const ZorvanClassIdentifier& id,
                                           const std::vector<std::string>& members) const {
  const Dimensions dims(extents);
  checkCount(dims, members.size());
  ItemList items;
  for (const std::string& member : members) {
    checkUtf8(member);
    items.appendString(member);
  }
  return makeArray(ArrayType::ENUMERATION, dims, std::move(items),
                   makeLayout(id.getClassName(), {}));
}

Array ArrayFactory::createSparseArray(ArrayType type, size_t rowCount, size_t columnCount,
                                      std::vector<size_t> rows, std::vector<size_t> columnStarts,
                                      const Array& values) const {
  if (!isSparse(type)) throw InvalidArrayTypeException("expected a sparse type");
  detail::checkType(values, sparseValueType(type));
  return makeSparse(
      type, Dimensions(rowCount, columnCount),
      SparseContent{std::move(rows), std::move(columnStarts), values.impl().buffer()});
}

}  // namespace foundation::zorvandata
