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

// A char row that is stored as UTF-8.
template <class Sink>
void putCharRow(Sink& sink, std::string_view utf8) {
  const size_t units = sink.choice([&] { return utf16Length(utf8); });
  putHead(sink, ArrayType::CHAR, Dimensions::row(units));
  sink.sized(kElements, units * sizeof(char16_t), [&] {
    const std::u16string text = toUtf16(utf8);
    sink.bytes(text.data(), text.size() * sizeof(char16_t));
  });
}

// One element of a struct or object array, or one row of a cell matrix.
template <class Sink>
void putElement(Sink& sink, const Item& item) {
  const ArrayImpl& array = item.array();
  const bool isRow = array.type() == ArrayType::CELL;
  putHead(sink, array.type(),
          isRow ? Dimensions::row(array.dimensions()[1]) : Dimensions::scalar());
  if (array.layout()) putNames(sink, *array.layout());
  putRecord(sink, item);
}

}  // namespace

template <class Sink>
void putItem(Sink& sink, const Item& item) {
  switch (item.form()) {
    case Form::kEmpty:
      return putHead(sink, ArrayType::DOUBLE, Dimensions());
    case Form::kScalar: {
      const size_t size = elementSize(item.type());
      putHead(sink, item.type(), Dimensions::scalar());
      return sink.sized(kElements, size, [&] { sink.bytes(item.scalarData(), size); });
    }
    case Form::kText:
      return putCharRow(sink, item.utf8());
    case Form::kString:
    case Form::kMissing:
      putHead(sink, ArrayType::ZORVAN_STRING, Dimensions::scalar());
      return putString(sink, item);
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

template void putItem(MeasuringSink&, const Item&);
template void putItem(WritingSink&, const Item&);
template void putArray(MeasuringSink&, const ArrayImpl&);
template void putArray(WritingSink&, const ArrayImpl&);

}  // namespace foundation::protobuf
