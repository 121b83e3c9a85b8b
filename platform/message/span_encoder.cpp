#include "message/span_encoder.h"

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

}  // namespace

template <class Sink>
void putSpanTexts(Sink& sink, const ItemSpan& items) {
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

namespace {

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
    if (kindOf(item) == kChildKind) putNested(sink, kChildren, item);
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
  if (columns & kHasTexts) putSpanTexts(sink, items);
  if (columns & kHasChildren) putChildren(sink, items);
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

}  // namespace

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
      return putSpanTexts(sink, items);
    case kAsMixed:
      return putMixed(sink, items);
    case kAsRecords:
      return putRecords(sink, items);
    default:
      return putChildren(sink, items);
  }
}

template <class Sink>
void putRecord(Sink& sink, const Item& record) {
  std::vector<Item> values(fieldsOf(record));
  for (size_t field = 0; field < values.size(); ++field) values[field] = fieldOf(record, field);
  putSpan(sink, {values.data(), values.size()}, record.type() == ArrayType::CELL);
}

template void putSpan(MeasuringSink&, const ItemSpan&, bool);
template void putSpan(WritingSink&, const ItemSpan&, bool);
template void putSpanTexts(MeasuringSink&, const ItemSpan&);
template void putSpanTexts(WritingSink&, const ItemSpan&);
template void putRecord(MeasuringSink&, const Item&);
template void putRecord(WritingSink&, const Item&);

}  // namespace foundation::protobuf
