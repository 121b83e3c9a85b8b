// Writes single items that lie in a row: in columns wherever they are alike.
#pragma once

#include <string_view>

#include "message/fields.h"
#include "message/sinks.h"
#include "zorvandata/array_impl.h"

namespace foundation::protobuf {

// Items in a row.
struct ItemSpan {
  const zorvandata::Item* first;
  size_t count;

  const zorvandata::Item& operator[](size_t i) const { return first[i]; }
  const zorvandata::Item* begin() const { return first; }
  const zorvandata::Item* end() const { return first + count; }
};

// Whether many scalars of the type travel as varints.
inline bool isInt64(zorvandata::ArrayType type) {
  return type == zorvandata::ArrayType::INT64 || type == zorvandata::ArrayType::UINT64;
}

// The elements of an array other than a text one. Only those of a cell may be records: the names of
// a struct or an object are its own.
template <class Sink>
void putSpan(Sink& sink, const ItemSpan& items, bool mayBeRecords);

// The lengths and the bytes of all texts among the items.
template <class Sink>
void putSpanTexts(Sink& sink, const ItemSpan& items);

// The fields' values of a struct or object array's element, or the elements of a cell matrix's row.
template <class Sink>
void putRecord(Sink& sink, const zorvandata::Item& record);

template <class Sink>
void putEnum(Sink& sink, int field, zorvandata::ArrayType type) {
  sink.number(field, static_cast<uint64_t>(type));
}

template <class Sink>
void putText(Sink& sink, int field, std::string_view text) {
  sink.sized(field, text.size(), [&] { sink.bytes(text.data(), text.size()); });
}

// What every message begins with; of a matrix,
template <class Sink>
void putHead(Sink& sink, zorvandata::ArrayType type, size_t rows, size_t columns) {
  putEnum(sink, array_field::kType, type);
  if (rows == 1 && columns == 1) return;
  sink.sized(array_field::kDims, varintSize(rows) + varintSize(columns), [&] {
    sink.varint(rows);
    sink.varint(columns);
  });
}

// or of any array.
template <class Sink>
void putHead(Sink& sink, zorvandata::ArrayType type, const zorvandata::Dimensions& dims) {
  if (dims.count() == 2) return putHead(sink, type, dims[0], dims[1]);
  putEnum(sink, array_field::kType, type);
  sink.nested(array_field::kDims, [&] {
    for (size_t i = 0; i < dims.count(); ++i) sink.varint(dims[i]);
  });
}

// The class and the names of a struct or object array.
template <class Sink>
void putNames(Sink& sink, const zorvandata::Layout& layout) {
  if (!layout.className.empty()) putText(sink, array_field::kClassName, layout.className);
  for (const std::string& name : layout.names) putText(sink, array_field::kNames, name);
}

// The values of one field as a cell; a column of records holds no records itself, or else a few
// bytes could stand for any number of them.
template <class Sink, class PutValues>
void putField(Sink& sink, size_t count, const PutValues& putValues) {
  sink.nested(array_field::kChildren, [&] {
    putHead(sink, zorvandata::ArrayType::CELL, 1, count);
    putValues();
  });
}

template <class Sink>
void putRecordHead(Sink& sink, const zorvandata::ArrayImpl& records) {
  putEnum(sink, array_field::kItemType, records.type());
  if (records.layout()) putNames(sink, *records.layout());
}

}  // namespace foundation::protobuf
