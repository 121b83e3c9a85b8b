#include "message/array_encoder.h"

#include "message/fields.h"
#include "zorvandata/text.h"

namespace foundation::protobuf {
namespace {

using namespace zorvandata;   // NOLINT: the vocabulary of this file
using namespace array_field;  // NOLINT: the vocabulary of this file
using google::protobuf::internal::WireFormatLite;
using Form = Item::Form;

// Items that lie in a row, or are pointed to.
struct ItemSpan {
  const Item* first;
  const Item* const* pointers;
  size_t count;

  const Item& operator[](size_t i) const { return pointers ? *pointers[i] : first[i]; }
};

ItemSpan spanOf(const ItemList& list) { return {list.begin(), nullptr, list.size()}; }

// How a list of items is laid out.
enum ItemsForm : size_t {
  kAsChildren,  // one nested message an item
  kAsElements,  // scalars of one type, end to end
  kAsInts,      // 64-bit integers of one type, as varints
  kAsTexts,     // char rows
  kAsStrings,   // strings
  kAsMixed,     // a kind byte an item, values in columns by kind
  kAsRecords,   // scalar structs with the same fields: one cell a field
};

bool isIntegerOrLogical(ArrayType type) {
  return type == ArrayType::LOGICAL || (type >= ArrayType::INT8 && type <= ArrayType::UINT64);
}

bool isInt64(ArrayType type) { return type == ArrayType::INT64 || type == ArrayType::UINT64; }

// The column that a mixed item goes to.
unsigned char kindOf(const Item& item) {
  switch (item.form()) {
    case Form::kText:
    case Form::kString:
    case Form::kMissing:
      return static_cast<unsigned char>(item.type());
    case Form::kScalar: {
      const ArrayType type = item.type();
      const bool hasColumn = isIntegerOrLogical(type) || type == ArrayType::DOUBLE ||
                             type == ArrayType::COMPLEX_DOUBLE;
      return hasColumn ? static_cast<unsigned char>(type) : kChildKind;
    }
    default:
      return kChildKind;
  }
}

bool isRecord(const Item& item) {
  if (item.form() == Form::kElement) return !item.array().layout()->names.empty();
  return item.form() == Form::kArray && item.array().type() == ArrayType::STRUCT &&
         item.array().dimensions().isScalar() && !item.array().layout()->names.empty();
}

const Item& fieldOf(const Item& record, size_t field) {
  const ArrayImpl& structs = record.array();
  const size_t element = record.form() == Form::kElement ? record.element() : 0;
  return structs.items()[structs.itemIndex(field, element)];
}

bool areRecords(const ItemSpan& items) {
  if (items.count < 2 || !isRecord(items[0])) return false;
  const auto& layout = items[0].array().layout();
  for (size_t i = 1; i < items.count; ++i) {
    if (!isRecord(items[i])) return false;
    const auto& other = items[i].array().layout();
    if (other != layout && !(*other == *layout)) return false;
  }
  return true;
}

template <class Predicate>
bool all(const ItemSpan& items, Predicate&& holds) {
  for (size_t i = 0; i < items.count; ++i) {
    if (!holds(items[i])) return false;
  }
  return true;
}

ItemsForm chooseForm(const ItemSpan& items, bool mayBeRecords) {
  const Form form = items[0].form();
  if (form == Form::kScalar) {
    const ArrayType type = items[0].type();
    const bool uniform =
        all(items, [type](const Item& i) { return i.form() == Form::kScalar && i.type() == type; });
    if (uniform) return isInt64(type) ? kAsInts : kAsElements;
  } else if (form == Form::kText) {
    if (all(items, [](const Item& i) { return i.form() == Form::kText; })) return kAsTexts;
  } else if (form == Form::kString || form == Form::kMissing) {
    if (all(items, [](const Item& i) {
          return i.form() == Form::kString || i.form() == Form::kMissing;
        })) {
      return kAsStrings;
    }
  } else if (mayBeRecords && areRecords(items)) {
    return kAsRecords;
  }
  return all(items, [](const Item& i) { return kindOf(i) == kChildKind; }) ? kAsChildren : kAsMixed;
}

uint64_t zigZag(const Item& item) {
  const auto encode = [](int64_t value) { return WireFormatLite::ZigZagEncode64(value); };
  switch (item.type()) {
    case ArrayType::LOGICAL:
      return encode(item.scalar<bool>());
    case ArrayType::INT8:
      return encode(item.scalar<int8_t>());
    case ArrayType::UINT8:
      return encode(item.scalar<uint8_t>());
    case ArrayType::INT16:
      return encode(item.scalar<int16_t>());
    case ArrayType::UINT16:
      return encode(item.scalar<uint16_t>());
    case ArrayType::INT32:
      return encode(item.scalar<int32_t>());
    case ArrayType::UINT32:
      return encode(item.scalar<uint32_t>());
    default:  // the two 64-bit types, the unsigned one by its bits
      return encode(item.scalar<int64_t>());
  }
}

template <class Sink>
void putEnum(Sink& sink, int field, ArrayType type) {
  sink.tag(field);
  sink.varint(static_cast<uint64_t>(type));
}

template <class Sink>
void putHead(Sink& sink, ArrayType type, const Dimensions& dims) {
  putEnum(sink, kType, type);
  if (dims.isScalar()) return;
  sink.nested(kDims, [&] {
    for (size_t i = 0; i < dims.count(); ++i) sink.varint(dims[i]);
  });
}

template <class Sink>
void putText(Sink& sink, int field, std::string_view text) {
  sink.nested(field, [&] { sink.bytes(text.data(), text.size()); });
}

template <class Sink>
void putVarints(Sink& sink, int field, const std::vector<size_t>& values) {
  sink.nested(field, [&] {
    for (const size_t value : values) sink.varint(value);
  });
}

// The lengths and the bytes of all texts among the items.
template <class Sink>
void putTexts(Sink& sink, const ItemSpan& items) {
  const auto isText = [](const Item& item) {
    return item.form() == Form::kText || item.form() == Form::kString;
  };
  sink.nested(kTextLen, [&] {
    for (size_t i = 0; i < items.count; ++i) {
      if (isText(items[i])) {
        sink.varint(items[i].utf8().size() + 1);
      } else if (items[i].form() == Form::kMissing) {
        sink.varint(0);
      }
    }
  });
  sink.nested(kText, [&] {
    for (size_t i = 0; i < items.count; ++i) {
      if (isText(items[i])) sink.bytes(items[i].utf8().data(), items[i].utf8().size());
    }
  });
}

template <class Sink>
void putInts(Sink& sink, const ItemSpan& items) {
  sink.nested(kInts, [&] {
    for (size_t i = 0; i < items.count; ++i) {
      if (items[i].form() == Form::kScalar && isIntegerOrLogical(items[i].type())) {
        sink.varint(zigZag(items[i]));
      }
    }
  });
}

template <class Sink>
void putElements(Sink& sink, const ItemSpan& items) {
  const size_t size = elementSize(items[0].type());
  sink.nested(kElements, [&] {
    for (size_t i = 0; i < items.count; ++i) sink.bytes(items[i].scalarData(), size);
  });
}

template <class Sink>
void putChildren(Sink& sink, const ItemSpan& items) {
  for (size_t i = 0; i < items.count; ++i) {
    if (kindOf(items[i]) != kChildKind) continue;
    sink.nested(kChildren, [&] { putItem(sink, items[i]); });
  }
}

enum ColumnBits : size_t { kHasInts = 1, kHasReals = 2, kHasTexts = 4 };

size_t columnsOf(const ItemSpan& items) {
  size_t columns = 0;
  for (size_t i = 0; i < items.count; ++i) {
    const unsigned char kind = kindOf(items[i]);
    if (kind == kChildKind) continue;
    const auto type = static_cast<ArrayType>(kind);
    columns |= isIntegerOrLogical(type)           ? kHasInts
               : items[i].form() == Form::kScalar ? kHasReals
                                                  : kHasTexts;
  }
  return columns;
}

template <class Sink>
void putReals(Sink& sink, const ItemSpan& items) {
  sink.nested(kReals, [&] {
    for (size_t i = 0; i < items.count; ++i) {
      if (items[i].form() != Form::kScalar) continue;
      const ArrayType type = items[i].type();
      if (type == ArrayType::DOUBLE || type == ArrayType::COMPLEX_DOUBLE) {
        sink.bytes(items[i].scalarData(), elementSize(type));
      }
    }
  });
}

template <class Sink>
void putMixed(Sink& sink, const ItemSpan& items) {
  sink.nested(kKinds, [&] {
    for (size_t i = 0; i < items.count; ++i) {
      const unsigned char kind = kindOf(items[i]);
      sink.bytes(&kind, 1);
    }
  });
  const size_t columns = sink.choice([&] { return columnsOf(items); });
  if (columns & kHasInts) putInts(sink, items);
  if (columns & kHasReals) putReals(sink, items);
  if (columns & kHasTexts) putTexts(sink, items);
  putChildren(sink, items);
}

// Only a cell may hold records: the names of a struct or an object are its own. A column of records
// may not, or a few bytes could stand for any number of structs.
template <class Sink>
void putItems(Sink& sink, const ItemSpan& items, bool mayBeRecords);

template <class Sink>
void putNames(Sink& sink, const Layout& layout) {
  if (!layout.className.empty()) putText(sink, kClassName, layout.className);
  for (const std::string& name : layout.names) putText(sink, kNames, name);
}

template <class Sink>
void putRecords(Sink& sink, const ItemSpan& records) {
  const size_t names = records[0].array().layout()->names.size();
  putNames(sink, *records[0].array().layout());
  std::vector<const Item*> column(records.count);
  for (size_t field = 0; field < names; ++field) {
    for (size_t i = 0; i < records.count; ++i) column[i] = &fieldOf(records[i], field);
    sink.nested(kChildren, [&] {
      putHead(sink, ArrayType::CELL, Dimensions::row(records.count));
      putItems(sink, {nullptr, column.data(), column.size()}, false);
    });
  }
}

template <class Sink>
void putItems(Sink& sink, const ItemSpan& items, bool mayBeRecords) {
  if (items.count == 0) return;
  switch (sink.choice([&] { return chooseForm(items, mayBeRecords); })) {
    case kAsElements:
      putEnum(sink, kItemType, items[0].type());
      return putElements(sink, items);
    case kAsInts:
      putEnum(sink, kItemType, items[0].type());
      return putInts(sink, items);
    case kAsTexts:
    case kAsStrings:
      putEnum(sink, kItemType, items[0].type());
      return putTexts(sink, items);
    case kAsMixed:
      return putMixed(sink, items);
    case kAsRecords:
      putEnum(sink, kItemType, ArrayType::STRUCT);
      return putRecords(sink, items);
    default:
      return putChildren(sink, items);
  }
}

template <class Sink>
void putSparse(Sink& sink, const SparseContent& content) {
  putVarints(sink, kRows, content.rows);
  putVarints(sink, kColStarts, content.columnStarts);
  sink.nested(kElements, [&] { sink.buffer(content.values); });
}

template <class Sink>
void putReferences(Sink& sink, const ItemList& items) {
  sink.nested(kRef, [&] {
    for (const Item& item : items) sink.varint(item.scalar<uint64_t>());
  });
}

// A char row that is stored as UTF-8.
template <class Sink>
void putCharRow(Sink& sink, std::string_view utf8) {
  const size_t units = sink.choice([&] { return utf16Length(utf8); });
  putHead(sink, ArrayType::CHAR, Dimensions::row(units));
  sink.nested(kElements, [&] {
    const std::u16string text = toUtf16(utf8);
    sink.bytes(text.data(), text.size() * sizeof(char16_t));
  });
}

// One element of a struct array as a struct of its own.
template <class Sink>
void putElement(Sink& sink, const Item& item) {
  const Layout& layout = *item.array().layout();
  putHead(sink, ArrayType::STRUCT, Dimensions::scalar());
  putNames(sink, layout);
  std::vector<const Item*> fields(layout.names.size());
  for (size_t field = 0; field < fields.size(); ++field) fields[field] = &fieldOf(item, field);
  putItems(sink, {nullptr, fields.data(), fields.size()}, false);
}

}  // namespace

template <class Sink>
void putItem(Sink& sink, const Item& item) {
  switch (item.form()) {
    case Form::kEmpty:
      return putHead(sink, ArrayType::DOUBLE, Dimensions());
    case Form::kScalar:
      putHead(sink, item.type(), Dimensions::scalar());
      return sink.nested(kElements,
                         [&] { sink.bytes(item.scalarData(), elementSize(item.type())); });
    case Form::kText:
      return putCharRow(sink, item.utf8());
    case Form::kString:
    case Form::kMissing:
      putHead(sink, ArrayType::ZORVAN_STRING, Dimensions::scalar());
      return putTexts(sink, {&item, nullptr, 1});
    case Form::kElement:
      return putElement(sink, item);
    case Form::kArray:
      return putArray(sink, item.array());
  }
}

template <class Sink>
void putArray(Sink& sink, const ArrayImpl& array) {
  const ArrayType type = array.type();
  putHead(sink, type, array.dimensions());
  if (isDense(type)) return sink.nested(kElements, [&] { sink.buffer(array.buffer()); });
  if (isSparse(type)) return putSparse(sink, array.sparse());
  if (array.layout()) putNames(sink, *array.layout());
  if (type == ArrayType::HANDLE_OBJECT_REF) return putReferences(sink, array.items());
  if (type == ArrayType::ZORVAN_STRING || type == ArrayType::ENUMERATION) {
    return putTexts(sink, spanOf(array.items()));
  }
  putItems(sink, spanOf(array.items()), type == ArrayType::CELL);
}

template void putItem(MeasuringSink&, const Item&);
template void putItem(WritingSink&, const Item&);
template void putArray(MeasuringSink&, const ArrayImpl&);
template void putArray(WritingSink&, const ArrayImpl&);

}  // namespace foundation::protobuf
