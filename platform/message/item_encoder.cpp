#include "message/item_encoder.h"

#include <algorithm>
#include <array>

#include "message/array_encoder.h"
#include "message/fields.h"
#include "zorvandata/item_column.h"

namespace foundation::protobuf {
namespace {

using namespace zorvandata;   // NOLINT: the vocabulary of this file
using namespace array_field;  // NOLINT: the vocabulary of this file
using google::protobuf::internal::WireFormatLite;
using Form = Item::Form;

// Items in a row.
struct ItemSpan {
  const Item* first;
  size_t count;

  const Item& operator[](size_t i) const { return first[i]; }
  const Item* begin() const { return first; }
  const Item* end() const { return first + count; }
};

// How single items are laid out.
enum ItemsForm : size_t {
  kAsChildren,  // one nested message an item
  kAsElements,  // scalars of one type, end to end
  kAsInts,      // 64-bit integers of one type, as varints
  kAsTexts,     // char rows or strings
  kAsMixed,     // a kind byte an item, values in columns by kind
  kAsRecords,   // alike structs, objects or cells: one cell a field
};

constexpr bool isIntegerOrLogical(ArrayType type) {
  return type == ArrayType::LOGICAL || (type >= ArrayType::INT8 && type <= ArrayType::UINT64);
}

bool isInt64(ArrayType type) { return type == ArrayType::INT64 || type == ArrayType::UINT64; }

// By type code, the column that a mixed scalar or text goes to: that of its type or, where there is
// none, the children.
constexpr auto kKindOfType = [] {
  std::array<unsigned char, codeOf(ArrayType::SPARSE_COMPLEX_DOUBLE) + 1> kinds{};
  for (int code = 0; code < static_cast<int>(kinds.size()); ++code) {
    const auto type = static_cast<ArrayType>(code);
    const bool hasColumn = isIntegerOrLogical(type) || type == ArrayType::DOUBLE ||
                           type == ArrayType::COMPLEX_DOUBLE || type == ArrayType::CHAR ||
                           type == ArrayType::ZORVAN_STRING;
    kinds[static_cast<size_t>(code)] = hasColumn ? static_cast<unsigned char>(code) : kChildKind;
  }
  return kinds;
}();

unsigned char kindOf(const Item& item) {
  const bool isInline = item.form() == Form::kScalar || item.form() == Form::kText ||
                        item.form() == Form::kString || item.form() == Form::kMissing;
  return isInline ? kKindOfType[static_cast<size_t>(codeOf(item.type()))] : kChildKind;
}

bool isNumber(const Item& item) { return item.form() == Form::kScalar; }
bool isReal(const Item& item) {
  return isNumber(item) &&
         (item.type() == ArrayType::DOUBLE || item.type() == ArrayType::COMPLEX_DOUBLE);
}
bool isInt(const Item& item) { return isNumber(item) && isIntegerOrLogical(item.type()); }
bool isRow(const Item& item) { return item.form() == Form::kText; }
bool isString(const Item& item) {
  return item.form() == Form::kString || item.form() == Form::kMissing;
}

// Records: elements with names, and rows of cells.

size_t fieldsOf(const Item& record) {
  const ArrayImpl& array = record.array();
  return array.type() != ArrayType::CELL   ? array.layout()->names.size()
         : record.form() == Form::kElement ? array.dimensions()[1]
                                           : array.elements();
}

Item fieldOf(const Item& record, size_t field) {
  const ArrayImpl& array = record.array();
  if (record.form() == Form::kArray) return array.items()[field];
  const size_t records = array.type() == ArrayType::CELL ? array.dimensions()[0] : array.elements();
  return array.items()[field * records + record.element()];
}

bool isRecord(const Item& item) {
  if (item.form() != Form::kElement && item.form() != Form::kArray) return false;
  const ArrayImpl& array = item.array();
  switch (array.type()) {
    case ArrayType::CELL:
      return item.form() == Form::kElement || array.dimensions().isRow();
    case ArrayType::STRUCT:
    case ArrayType::VALUE_OBJECT:
      return !array.layout()->names.empty() &&
             (item.form() == Form::kElement || array.dimensions().isScalar());
    default:
      return false;
  }
}

bool isLike(const Item& record, const Item& other) {
  if (!isRecord(other) || other.array().type() != record.array().type()) return false;
  if (record.array().type() == ArrayType::CELL) return fieldsOf(record) == fieldsOf(other);
  const auto& layout = record.array().layout();
  const auto& otherLayout = other.array().layout();
  return layout == otherLayout || *layout == *otherLayout;
}

bool areRecords(const ItemSpan& items) {
  if (items.count < 2 || !isRecord(items[0])) return false;
  const bool ofCells = items[0].array().type() == ArrayType::CELL;
  if (ofCells && !isTall(items.count, fieldsOf(items[0]))) return false;
  return std::all_of(items.begin() + 1, items.end(),
                     [&](const Item& item) { return isLike(items[0], item); });
}

ItemsForm chooseForm(const ItemSpan& items, bool mayBeRecords) {
  const auto all = [&](auto&& holds) { return std::all_of(items.begin(), items.end(), holds); };
  const Item& first = items[0];
  if (isNumber(first)) {
    const ArrayType type = first.type();
    if (all([type](const Item& i) { return isNumber(i) && i.type() == type; })) {
      return isInt64(type) ? kAsInts : kAsElements;
    }
  } else if (isRow(first)) {
    if (all(isRow)) return kAsTexts;
  } else if (isString(first)) {
    if (all(isString)) return kAsTexts;
  } else if (mayBeRecords && areRecords(items)) {
    return kAsRecords;
  }
  return all([](const Item& i) { return kindOf(i) == kChildKind; }) ? kAsChildren : kAsMixed;
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
void putText(Sink& sink, int field, std::string_view text) {
  sink.sized(field, text.size(), [&] { sink.bytes(text.data(), text.size()); });
}

// Single items.

// The lengths and the bytes of all texts among the items.
template <class Sink>
void putItemTexts(Sink& sink, const ItemSpan& items) {
  sink.nested(kTextLen, [&] {
    for (const Item& item : items) {
      if (item.form() == Form::kMissing) {
        sink.varint(0);
      } else if (isRow(item) || isString(item)) {
        sink.varint(item.utf8().size() + 1);
      }
    }
  });
  sink.nested(kText, [&] {
    for (const Item& item : items) {
      if (isRow(item) || item.form() == Form::kString) {
        sink.bytes(item.utf8().data(), item.utf8().size());
      }
    }
  });
}

template <class Sink>
void putInts(Sink& sink, const ItemSpan& items) {
  sink.nested(kInts, [&] {
    for (const Item& item : items) {
      if (isInt(item)) sink.varint(zigZag(item));
    }
  });
}

template <class Sink>
void putReals(Sink& sink, const ItemSpan& items) {
  sink.nested(kReals, [&] {
    for (const Item& item : items) {
      if (isReal(item)) sink.bytes(item.scalarData(), elementSize(item.type()));
    }
  });
}

template <class Sink>
void putElements(Sink& sink, const ItemSpan& items) {
  const size_t size = elementSize(items[0].type());
  sink.sized(kElements, items.count * size, [&] {
    for (const Item& item : items) sink.bytes(item.scalarData(), size);
  });
}

template <class Sink>
void putChildren(Sink& sink, const ItemSpan& items) {
  for (const Item& item : items) {
    if (kindOf(item) == kChildKind) sink.nested(kChildren, [&] { putItem(sink, item); });
  }
}

enum ColumnBits : size_t { kHasInts = 1, kHasReals = 2, kHasTexts = 4, kHasChildren = 8 };

size_t columnsOf(const ItemSpan& items) {
  size_t columns = 0;
  for (const Item& item : items) {
    columns |= kindOf(item) == kChildKind ? kHasChildren
               : !isNumber(item)          ? kHasTexts
               : isInt(item)              ? kHasInts
                                          : kHasReals;
  }
  return columns;
}

template <class Sink>
void putMixed(Sink& sink, const ItemSpan& items) {
  sink.sized(kKinds, items.count, [&] {
    for (const Item& item : items) {
      const unsigned char kind = kindOf(item);
      sink.bytes(&kind, 1);
    }
  });
  const size_t columns = sink.choice([&] { return columnsOf(items); });
  if (columns & kHasInts) putInts(sink, items);
  if (columns & kHasReals) putReals(sink, items);
  if (columns & kHasTexts) putItemTexts(sink, items);
  if (columns & kHasChildren) putChildren(sink, items);
}

template <class Sink>
void putSpan(Sink& sink, const ItemSpan& items, bool mayBeRecords);

// The values of one field as a cell; a column of records holds no records itself, or else a few
// bytes could stand for any number of them.
template <class Sink, class PutValues>
void putField(Sink& sink, size_t count, const PutValues& putValues) {
  sink.nested(kChildren, [&] {
    putHead(sink, ArrayType::CELL, Dimensions::row(count));
    putValues();
  });
}

template <class Sink>
void putRecordHead(Sink& sink, const ArrayImpl& records) {
  putEnum(sink, kItemType, records.type());
  if (records.layout()) putNames(sink, *records.layout());
}

template <class Sink>
void putRecords(Sink& sink, const ItemSpan& records) {
  putRecordHead(sink, records[0].array());
  std::vector<Item> values(records.count);
  const size_t fields = fieldsOf(records[0]);
  for (size_t field = 0; field < fields; ++field) {
    for (size_t i = 0; i < records.count; ++i) values[i] = fieldOf(records[i], field);
    putField(sink, records.count, [&] { putSpan(sink, {values.data(), values.size()}, false); });
  }
}

template <class Sink>
void putSpan(Sink& sink, const ItemSpan& items, bool mayBeRecords) {
  if (items.count == 0) return;
  const auto form = sink.choice([&] { return chooseForm(items, mayBeRecords); });
  if (form == kAsElements || form == kAsInts || form == kAsTexts) {
    putEnum(sink, kItemType, items[0].type());
  }
  switch (form) {
    case kAsElements:
      return putElements(sink, items);
    case kAsInts:
      return putInts(sink, items);
    case kAsTexts:
      return putItemTexts(sink, items);
    case kAsMixed:
      return putMixed(sink, items);
    case kAsRecords:
      return putRecords(sink, items);
    default:
      return putChildren(sink, items);
  }
}

// The items of a list, taken out one by one if it is a column.
class SingleItems {
 public:
  explicit SingleItems(const ItemList& list) : span_{list.slots(), list.size()} {
    if (span_.first) return;
    gathered_.assign(list.begin(), list.end());
    span_.first = gathered_.data();
  }
  const ItemSpan& span() const { return span_; }

 private:
  std::vector<Item> gathered_;
  ItemSpan span_;
};

// Columns.

template <class Sink>
void putColumn(Sink& sink, const ScalarColumn& column) {
  if (!isInt64(column.type)) {
    const size_t size = column.elements.size();
    return sink.sized(kElements, size, [&] { sink.buffer(column.elements); });
  }
  sink.nested(kInts, [&] {
    sink.varints(column.size(), [&column](size_t i) {
      return WireFormatLite::ZigZagEncode64(column.value<int64_t>(i));
    });
  });
}

template <class Sink>
void putLengths(Sink& sink, const TextColumn& column) {
  const int64_t* offsets = column.offset();
  const size_t count = column.size();
  const bool anyMissing = column.present.size() > 0;
  const size_t isShort = sink.choice([&] { return !anyMissing && column.longest() < 0x7F; });
  if (isShort) {  // a byte each
    return sink.sized(kTextLen, count, [&] {
      sink.eachByte(count, [=](size_t i) { return offsets[i + 1] - offsets[i] + 1; });
    });
  }
  sink.nested(kTextLen, [&] {
    sink.varints(count, [&, anyMissing, offsets](size_t i) {
      if (anyMissing && column.isMissing(i)) return uint64_t{0};
      return static_cast<uint64_t>(offsets[i + 1] - offsets[i] + 1);
    });
  });
}

template <class Sink>
void putColumn(Sink& sink, const TextColumn& column) {
  putLengths(sink, column);
  putText(sink, kText, column.all());
}

template <class Sink>
void putColumn(Sink& sink, const RepeatedTextColumn& column) {
  putColumn(sink, column.distinct);
  const uint32_t* positions = column.position();
  sink.nested(kTextIndex, [&] {
    sink.varints(column.size(), [positions](size_t i) { return uint64_t{positions[i]}; });
  });
}

template <class Sink>
void putColumn(Sink& sink, const FieldColumns& columns) {
  const size_t count = columns.fields.front().size();
  for (const ItemList& field : columns.fields) {
    putField(sink, count, [&] { putItems(sink, field, false); });
  }
}

ArrayType typeOf(const ScalarColumn& column) { return column.type; }
ArrayType typeOf(const TextColumn& column) { return column.type; }
ArrayType typeOf(const RepeatedTextColumn& column) { return column.distinct.type; }

// False when the column is of another kind.
template <class Kind, class Sink>
bool putUniform(Sink& sink, const ItemColumn& column) {
  const auto* uniform = column.as<Kind>();
  if (!uniform) return false;
  putEnum(sink, kItemType, typeOf(*uniform));
  putColumn(sink, *uniform);
  return true;
}

// The records' own columns; NULL where they hold their values in another way.
const FieldColumns* fieldColumns(const ItemColumn* column) {
  const auto* records = column ? column->as<RecordColumn>() : nullptr;
  const ItemColumn* fields = records ? records->records.impl().items().column() : nullptr;
  return fields ? fields->as<FieldColumns>() : nullptr;
}

}  // namespace

template <class Sink>
void putHead(Sink& sink, ArrayType type, const Dimensions& dims) {
  putEnum(sink, kType, type);
  if (dims.isScalar()) return;
  sink.nested(kDims, [&] {
    for (size_t i = 0; i < dims.count(); ++i) sink.varint(dims[i]);
  });
}

template <class Sink>
void putNames(Sink& sink, const Layout& layout) {
  if (!layout.className.empty()) putText(sink, kClassName, layout.className);
  for (const std::string& name : layout.names) putText(sink, kNames, name);
}

template <class Sink>
void putString(Sink& sink, const Item& item) {
  putItemTexts(sink, {&item, 1});
}

template <class Sink>
void putTexts(Sink& sink, const ItemList& items) {
  if (const ItemColumn* column = items.column()) {
    if (const auto* texts = column->as<TextColumn>()) return putColumn(sink, *texts);
    if (const auto* texts = column->as<RepeatedTextColumn>()) return putColumn(sink, *texts);
  }
  putItemTexts(sink, SingleItems(items).span());
}

template <class Sink>
void putRecord(Sink& sink, const Item& record) {
  std::vector<Item> values(fieldsOf(record));
  for (size_t field = 0; field < values.size(); ++field) values[field] = fieldOf(record, field);
  putSpan(sink, {values.data(), values.size()}, record.type() == ArrayType::CELL);
}

template <class Sink>
void putItems(Sink& sink, const ItemList& items, bool ofCell) {
  const ItemColumn* column = items.column();
  const FieldColumns* fields = ofCell ? fieldColumns(column) : nullptr;
  if (fields) {
    putRecordHead(sink, column->as<RecordColumn>()->records.impl());
    return putColumn(sink, *fields);
  }
  if (column && putUniform<ScalarColumn>(sink, *column)) return;
  if (column && putUniform<TextColumn>(sink, *column)) return;
  if (column && putUniform<RepeatedTextColumn>(sink, *column)) return;
  putSpan(sink, SingleItems(items).span(), ofCell);
}

#define ZORVAN_FOR(Sink)                                      \
  template void putItems(Sink&, const ItemList&, bool);       \
  template void putTexts(Sink&, const ItemList&);             \
  template void putString(Sink&, const Item&);                \
  template void putHead(Sink&, ArrayType, const Dimensions&); \
  template void putNames(Sink&, const Layout&);               \
  template void putRecord(Sink&, const Item&);
ZORVAN_FOR(MeasuringSink)
ZORVAN_FOR(WritingSink)
#undef ZORVAN_FOR

}  // namespace foundation::protobuf
