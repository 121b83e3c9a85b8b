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
      count > PTRDIFF_MAX / sizeof(Array)) {
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
      return makeArray(type, dims, Items(itemCount(1, dims)));
    case ArrayType::STRUCT:
      return makeArray(type, dims, Items(), makeLayout("", {}));
    case ArrayType::ZORVAN_STRING:
      return makeArray(type, dims, Texts::missing(itemCount(1, dims)));
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
  return makeArray(ArrayType::CELL, dims, Items(elements));
}

Array ArrayFactory::createStructArray(const ArrayDimensions& extents,
                                      std::vector<std::string> fields) const {
  const Dimensions dims(extents);
  Items items(itemCount(fields.size(), dims));
  return makeArray(ArrayType::STRUCT, dims, std::move(items), makeLayout("", std::move(fields)));
}

template <>
Array ArrayFactory::createScalar(const std::string& utf8) const {
  checkUtf8(utf8);
  return makeArray(ArrayType::ZORVAN_STRING, Dimensions::scalar(), Texts::of({utf8}));
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
  Items items(itemCount(names.size(), dims));
  return makeArray(ArrayType::VALUE_OBJECT, dims, std::move(items),
                   makeLayout(info.getClassIdentifier().getClassName(), std::move(names)));
}

Array ArrayFactory::createHandleArray(const ArrayDimensions& extents,
                                      const ZorvanClassIdentifier& id,
                                      const std::vector<uint64_t>& references) const {
  const Dimensions dims(extents);
  checkCount(dims, references.size());
  return makeArray(ArrayType::HANDLE_OBJECT_REF, dims,
                   Buffer::copyOf(references.data(), references.size() * sizeof(uint64_t)),
                   makeLayout(id.getClassName(), {}));
}

Array ArrayFactory::createEnumerationArray(const ArrayDimensions& extents,
                                           const ZorvanClassIdentifier& id,
                                           const std::vector<std::string>& members) const {
  const Dimensions dims(extents);
  checkCount(dims, members.size());
  TextsBuilder names;
  for (const std::string& member : members) {
    checkUtf8(member);
    names.append(member);
  }
  return makeArray(ArrayType::ENUMERATION, dims, names.finish(), makeLayout(id.getClassName(), {}));
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
