#include "message/item_encoder.h"

#include "message/span_encoder.h"
#include "zorvandata/item_column.h"

namespace foundation::protobuf {
namespace {

using namespace zorvandata;   // NOLINT: the vocabulary of this file
using namespace array_field;  // NOLINT: the vocabulary of this file
using google::protobuf::internal::WireFormatLite;

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

template <class Sink>
void putColumn(Sink& sink, const ScalarColumn& column) {
  if (!isInt64(column.type)) {
    const size_t size = column.elements.size();
    return sink.sized(kElements, size, [&] { sink.buffer(column.elements); });
  }
  const std::byte* values = column.elements.data();
  sink.nested(kInts, [&] {
    sink.varints(column.size(), [values](size_t i) {
      int64_t value = 0;
      std::memcpy(&value, values + i * sizeof(value), sizeof(value));
      return WireFormatLite::ZigZagEncode64(value);
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
      sink.template each<uint8_t>(count, [=](size_t i) { return offsets[i + 1] - offsets[i] + 1; });
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

}  // namespace

template <class Sink>
void putString(Sink& sink, const Item& item) {
  putSpanTexts(sink, {&item, 1});
}

template <class Sink>
void putTexts(Sink& sink, const ItemList& items) {
  if (const ItemColumn* column = items.column()) {
    if (const auto* texts = column->as<TextColumn>()) return putColumn(sink, *texts);
    if (const auto* texts = column->as<RepeatedTextColumn>()) return putColumn(sink, *texts);
  }
  putSpanTexts(sink, SingleItems(items).span());
}

template <class Sink>
void putItems(Sink& sink, const ItemList& items, bool ofCell) {
  const ItemColumn* column = items.column();
  const auto* records = column && ofCell ? column->as<RecordColumn>() : nullptr;
  if (records && records->fields()) {
    putRecordHead(sink, records->records.impl());
    return putColumn(sink, *records->fields());
  }
  if (column && putUniform<ScalarColumn>(sink, *column)) return;
  if (column && putUniform<TextColumn>(sink, *column)) return;
  if (column && putUniform<RepeatedTextColumn>(sink, *column)) return;
  putSpan(sink, SingleItems(items).span(), ofCell);
}

template void putItems(MeasuringSink&, const ItemList&, bool);
template void putItems(WritingSink&, const ItemList&, bool);
template void putTexts(MeasuringSink&, const ItemList&);
template void putTexts(WritingSink&, const ItemList&);
template void putString(MeasuringSink&, const Item&);
template void putString(WritingSink&, const Item&);

}  // namespace foundation::protobuf
