#include "message/array_encoder.h"

#include "message/fields.h"
#include "message/item_encoder.h"
#include "message/span_encoder.h"
#include "zorvandata/text.h"

namespace foundation::protobuf {
namespace {

using namespace zorvandata;   // NOLINT: the vocabulary of this file
using namespace array_field;  // NOLINT: the vocabulary of this file
using Form = Item::Form;

template <class Sink>
void putCounts(Sink& sink, int field, const std::vector<size_t>& values) {
  sink.nested(field, [&] {
    for (const size_t value : values) sink.varint(value);
  });
}

template <class Sink>
void putSparse(Sink& sink, const SparseContent& content) {
  putCounts(sink, kRows, content.rows);
  putCounts(sink, kColStarts, content.columnStarts);
  sink.sized(kElements, content.values.size(), [&] { sink.buffer(content.values); });
}

template <class Sink>
void putReferences(Sink& sink, const ItemList& items) {
  sink.nested(kRef, [&] {
    for (const Item& item : items) sink.varint(item.scalar<uint64_t>());
  });
}

// The type and the bytes of a scalar, both behind a tag and a number of one byte.
template <class Sink>
void putScalar(Sink& sink, const Item& item) {
  const size_t size = elementSize(item.type());
  putHead(sink, item.type(), 1, 1);
  sink.sized(kElements, size, [&] { sink.bytes(item.scalarData(), size); });
}
size_t sizeOfScalar(const Item& item) { return 4 + elementSize(item.type()); }

// A char row that is stored as UTF-8.
template <class Sink>
void putCharRow(Sink& sink, std::string_view utf8) {
  const size_t units = sink.choice([&] { return utf16Length(utf8); });
  putHead(sink, ArrayType::CHAR, 1, units);
  sink.sized(kElements, units * sizeof(char16_t), [&] {
    if (units == utf8.size()) {  // only ASCII text has as many units as bytes
      return sink.template each<char16_t>(units, [utf8](size_t i) { return utf8[i]; });
    }
    const std::u16string text = toUtf16(utf8);
    sink.bytes(text.data(), text.size() * sizeof(char16_t));
  });
}

// One element of a struct or object array, or one row of a cell matrix.
template <class Sink>
void putElement(Sink& sink, const Item& item) {
  const ArrayImpl& array = item.array();
  const bool isRow = array.type() == ArrayType::CELL;
  putHead(sink, array.type(), 1, isRow ? array.dimensions()[1] : 1);
  if (array.layout()) putNames(sink, *array.layout());
  putRecord(sink, item);
}

template <class Sink>
void putItem(Sink& sink, const Item& item) {
  switch (item.form()) {
    case Form::kEmpty:
      return putHead(sink, ArrayType::DOUBLE, 0, 0);
    case Form::kScalar:
      return putScalar(sink, item);
    case Form::kText:
      return putCharRow(sink, item.utf8());
    case Form::kString:
    case Form::kMissing:
      putHead(sink, ArrayType::ZORVAN_STRING, 1, 1);
      return putString(sink, item);
    case Form::kElement:
      return putElement(sink, item);
    case Form::kArray:
      return putArray(sink, item.array());
  }
}

}  // namespace

template <class Sink>
void putNested(Sink& sink, int field, const Item& item) {
  if (item.form() == Form::kScalar) {
    sink.sized(field, sizeOfScalar(item), [&] { putScalar(sink, item); });
  } else {
    sink.nested(field, [&] { putItem(sink, item); });
  }
}

template <class Sink>
void putArray(Sink& sink, const ArrayImpl& array) {
  const ArrayType type = array.type();
  putHead(sink, type, array.dimensions());
  if (isDense(type)) {
    return sink.sized(kElements, array.buffer().size(), [&] { sink.buffer(array.buffer()); });
  }
  if (isSparse(type)) return putSparse(sink, array.sparse());
  if (array.layout()) putNames(sink, *array.layout());
  if (type == ArrayType::HANDLE_OBJECT_REF) return putReferences(sink, array.items());
  if (type == ArrayType::ZORVAN_STRING || type == ArrayType::ENUMERATION) {
    return putTexts(sink, array.items());
  }
  putItems(sink, array.items(), type == ArrayType::CELL);
}

template void putNested(MeasuringSink&, int, const Item&);
template void putNested(WritingSink&, int, const Item&);
template void putArray(MeasuringSink&, const ArrayImpl&);
template void putArray(WritingSink&, const ArrayImpl&);

}  // namespace foundation::protobuf
