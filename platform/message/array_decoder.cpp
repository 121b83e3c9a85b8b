#include "message/array_decoder.h"

#include <memory>
#include <optional>

#include "message/array_fields.h"
#include "message/decoding_checks.h"
#include "message/fields.h"
#include "message/item_decoder.h"
#include "zorvandata/array_impl.h"
#include "zorvandata/exception.h"
#include "zorvandata/item_column.h"
#include "zorvandata/limits.h"
#include "zorvandata/text.h"

namespace foundation::protobuf {
namespace {

using namespace zorvandata;   // NOLINT: the vocabulary of this file
using namespace array_field;  // NOLINT: the vocabulary of this file

// Whether elements of the type may travel by the columns of their fields.
bool isRecordType(ArrayType type) {
  return type == ArrayType::STRUCT || type == ArrayType::VALUE_OBJECT || type == ArrayType::CELL;
}

// Values that a few bytes stand for are made once and shared.
const std::shared_ptr<const Layout>& noNames() {
  static const auto layout = makeLayout("", {});
  return layout;
}
const Array& unknownScalar() {
  static const Array array = makeArray(ArrayType::UNKNOWN, Dimensions::scalar(), ItemList());
  return array;
}
// A 1-by-1 struct or value object with nothing in it.
const Array& emptyRecord(ArrayType type) {
  static const Array record =
      makeArray(ArrayType::STRUCT, Dimensions::scalar(), ItemList(), noNames());
  static const Array object =
      makeArray(ArrayType::VALUE_OBJECT, Dimensions::scalar(), ItemList(), noNames());
  return type == ArrayType::STRUCT ? record : object;
}

class Decoder {
 public:
  Decoder(std::shared_ptr<const void> owner, size_t messageSize)
      : items_(std::move(owner), messageSize) {}

  Array array(const ArrayBytes& message) {
    ArrayFields fields;
    readFields(message, 1, fields);
    return assemble(checkedType(fields.type), readDimensions(fields), fields);
  }

  // Appends an array to a list; no array is made of a value that lies inline there.
  void appendTo(ItemList& list, const ArrayBytes& message, int depth, bool ofObject = false) {
    ArrayFields fields;
    readFields(message, depth, fields);
    const ArrayType type = checkedType(fields.type);
    const Dimensions dims = readDimensions(fields);
    const size_t size = fields.elements.size();
    if (isInline(type, dims) && size == dims.elements() * elementSize(type)) {
      type == ArrayType::CHAR ? ItemDecoder::appendRow(list, fields.elements)
                              : ItemDecoder::appendScalar(list, type, fields.elements.data());
    } else if (ofObject && (type == ArrayType::DOUBLE || type == ArrayType::COMPLEX_DOUBLE)) {
      // The times of dates and durations, which are read once and made into something else.
      checkPayload(type, dims, fields.elements);
      list.append(makeDense(type, dims, items_.kept(fields.elements)));
    } else {
      list.append(assemble(type, dims, fields));
    }
  }

 private:
  void readFields(const ArrayBytes& message, int depth, ArrayFields& fields) {
    // One level more than arrays may have: the innermost may be a value that lies inline.
    if (depth > kMaxNesting + 1) throw NestingTooDeepException();
    FieldReader reader(message.bytes);
    while (reader.next()) {
      if (reader.number() == kChildren && reader.isMessage()) {
        ItemList& children = fields.items().children;
        if (children.size() == 0) children = ItemList(items_.arena());
        appendTo(children, {reader.bytes(), reader.cut()}, depth + 1,
                 fields.type == codeOf(ArrayType::VALUE_OBJECT));
      } else {
        readField(reader, fields);
      }
    }
    require(message.cut || !reader.broken(), "its fields break off");
  }

  // Whether a list holds such an array without an object for it: a scalar, a short text.
  static bool isInline(ArrayType type, const Dimensions& dims) {
    constexpr size_t kShort = 256;
    if (type == ArrayType::CHAR) return dims.isRow() && dims.elements() <= kShort;
    return isDense(type) && dims.isScalar();
  }

  Array assemble(ArrayType type, const Dimensions& dims, ArrayFields& fields) {
    if (isDense(type)) return makeDense(type, dims, denseBuffer(type, dims, fields.elements));
    if (isSparse(type)) return sparse(type, dims, fields);
    const size_t count = dims.elements();
    ItemFields& parts = fields.items();
    switch (type) {
      case ArrayType::ZORVAN_STRING:
        return makeArray(type, dims, items_.texts(parts, count, ArrayType::ZORVAN_STRING));
      case ArrayType::ENUMERATION:
        return makeArray(type, dims, items_.texts(parts, count, type), layout(parts));
      case ArrayType::HANDLE_OBJECT_REF:
        return makeArray(type, dims, items_.references(parts, count), layout(parts));
      case ArrayType::CELL:
        return makeArray(type, dims, items(fields, count));
      case ArrayType::UNKNOWN:
        return dims.isScalar() ? unknownScalar() : makeArray(type, dims, ItemList());
      default:
        return named(type, dims, fields);
    }
  }

  static Dimensions readDimensions(const ArrayFields& fields) {
    const std::string_view extents = fields.dims.bytes();
    if (extents.empty()) return Dimensions::scalar();
    VarintCursor cursor(extents);
    const size_t first = cursor.next();
    if (cursor.atEnd()) return Dimensions::row(first);
    const size_t second = cursor.next();
    return cursor.atEnd() ? Dimensions(first, second) : Dimensions(readVarints(extents));
  }

  static void checkPayload(ArrayType type, const Dimensions& dims, std::string_view elements) {
    size_t bytes = 0;
    if (__builtin_mul_overflow(dims.elements(), elementSize(type), &bytes) ||
        bytes != elements.size()) {
      throw InvalidDimensionsException("they do not match the payload");
    }
  }

  static Buffer denseBuffer(ArrayType type, const Dimensions& dims, std::string_view elements) {
    checkPayload(type, dims, elements);
    checkLogicals(type, elements);
    return Buffer::copyOf(elements.data(), elements.size());
  }

  static Array sparse(ArrayType type, const Dimensions& dims, ArrayFields& fields) {
    const ItemFields& parts = fields.items();
    const ArrayType valueType = sparseValueType(type);
    SparseContent content;
    content.rows = readVarints(parts.rows.bytes());
    content.columnStarts = readVarints(parts.colStarts.bytes());
    require(!content.columnStarts.empty(), "a sparse array has no column starts");
    content.values = denseBuffer(valueType, Dimensions::row(content.rows.size()), fields.elements);
    return makeSparse(type, dims, std::move(content));
  }

  std::shared_ptr<const Layout> layout(ItemFields& fields) {
    checkUtf8(fields.className);
    if (fields.className.empty() && fields.names.empty()) return noNames();
    // Objects of one class follow each other.
    if (lastLayout_->className != fields.className || lastLayout_->names != fields.names) {
      lastLayout_ = makeLayout(std::string(fields.className), std::move(fields.names));
    }
    return lastLayout_;
  }

  // Structs and objects: every name has an item in every element.
  Array named(ArrayType type, const Dimensions& dims, ArrayFields& fields) {
    ItemFields& parts = fields.items();
    require(!parts.itemType || !isRecordType(checkedType(*parts.itemType)),
            "only a cell can hold records");
    size_t count = 0;
    if (__builtin_mul_overflow(parts.names.size(), dims.elements(), &count)) {
      throw InvalidDimensionsException("they do not match the payload");
    }
    ItemList values = items(fields, count);
    const bool isEmpty = dims.isScalar() && count == 0 && parts.className.empty();
    if (isEmpty && type != ArrayType::OBJECT) return emptyRecord(type);
    return makeArray(type, dims, std::move(values), layout(parts));
  }

  ItemList items(ArrayFields& fields, size_t count) {
    ItemFields& parts = fields.items();
    ItemList list = parts.itemType        ? uniform(checkedType(*parts.itemType), fields, count)
                    : parts.kinds.empty() ? std::move(parts.children)
                                          : items_.mixed(parts);
    require(list.size() == count, "the dimensions do not match the items");
    return list;
  }

  ItemList uniform(ArrayType type, ArrayFields& fields, size_t count) {
    ItemFields& parts = fields.items();
    if (isRecordType(type)) return records(type, parts, count);
    if (type == ArrayType::CHAR || type == ArrayType::ZORVAN_STRING) {
      return items_.texts(parts, count, type);
    }
    require(isDense(type), "items of this type do not lie in columns");
    return fields.elements.empty() ? items_.integers(type, parts, count)
                                   : items_.scalars(type, fields.elements);
  }

  // One cell of `count` items a field.
  ItemList records(ArrayType type, ItemFields& fields, size_t count) {
    const bool ofCells = type == ArrayType::CELL;
    const size_t width = fields.children.size();
    require(width > 0 && (ofCells || width == fields.names.size()),
            "records need one column a name");
    FieldColumns columns;
    columns.fields.reserve(width);
    for (const Item& child : fields.children) columns.fields.push_back(column(child, count));
    const Dimensions dims(count, ofCells ? width : 1);
    return makeColumn(RecordColumn{
        makeArray(type, dims, makeColumn(std::move(columns)), ofCells ? nullptr : layout(fields))});
  }

  static ItemList column(const Item& child, size_t count) {
    const bool isCell =
        child.form() == Item::Form::kArray && child.array().type() == ArrayType::CELL;
    require(isCell && child.array().elements() == count, "a column of records has another length");
    const ItemList& items = child.array().items();
    require(!items.column() || !items.column()->as<RecordColumn>(),
            "a column of records holds records");
    return items;
  }

  ItemDecoder items_;
  std::shared_ptr<const Layout> lastLayout_ = noNames();
};

}  // namespace

Array decodeArray(const ArrayBytes& array) {
  return Decoder(nullptr, array.bytes.size()).array(array);
}

ItemList decodeEach(const ArrayMessages& arrays, std::shared_ptr<const void> owner) {
  size_t size = 0;
  for (const ArrayBytes& array : arrays) size += array.bytes.size();
  Decoder decoder(std::move(owner), size);
  ItemList items;
  items.reserve(arrays.size());
  for (const ArrayBytes& array : arrays) decoder.appendTo(items, array, 1);
  return items;
}

}  // namespace foundation::protobuf
