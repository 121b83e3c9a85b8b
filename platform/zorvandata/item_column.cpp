#include "zorvandata/item_column.h"

#include <algorithm>

#include "zorvandata/array_impl.h"
#include "zorvandata/exception.h"
#include "zorvandata/text.h"

namespace foundation::zorvandata {
namespace {

// All the differences of neighbours or-ed: negative when one of them is.
int64_t orOfDifferences(const int64_t* at, size_t count) {
  uint64_t all = 0;
  for (size_t i = 0; i < count; ++i) {
    all |= static_cast<uint64_t>(at[i + 1]) - static_cast<uint64_t>(at[i]);
  }
  return static_cast<int64_t>(all);
}

}  // namespace

TextColumn TextColumn::checkedOffsets(ArrayType type, Buffer offsets, Buffer bytes) {
  TextColumn column{type, std::move(offsets), std::move(bytes), {}};
  const int64_t* at = column.offset();
  const size_t count = column.size();
  const int64_t lengths = orOfDifferences(at, count);
  if (at[0] < 0 || lengths < 0 || lengths > UINT32_MAX ||
      at[count] > static_cast<int64_t>(column.bytes.size())) {
    throw InvalidTextException();
  }
  return column;
}

TextColumn TextColumn::checkedTexts(ArrayType type, Buffer offsets, Buffer bytes, Buffer present) {
  TextColumn column{type, std::move(offsets), std::move(bytes), std::move(present)};
  column.isAscii = zorvandata::isAscii(column.all());
  if (column.isAscii) return column;
  const size_t count = column.size();
  for (size_t i = 0; i < count; ++i) checkUtf8(column.text(i));
  return column;
}

size_t TextColumn::longest() const {
  return static_cast<size_t>(orOfDifferences(offset(), size()));
}

Item TextColumn::operator[](size_t i) const {
  if (isMissing(i)) return Item::missing();
  return Item::ofText(type == ArrayType::CHAR ? Item::Form::kText : Item::Form::kString, text(i));
}

bool TextColumn::isMissing(size_t i) const {
  return present.size() > 0 && (present.data()[i / 8] & (std::byte{1} << (i % 8))) == std::byte{0};
}

std::string_view TextColumn::all() const {
  const int64_t* at = offset();
  return {reinterpret_cast<const char*>(bytes.data()) + at[0],
          static_cast<size_t>(at[size()] - at[0])};
}

size_t RecordColumn::size() const {
  return records.getType() == ArrayType::CELL ? records.dimensions()[0]
                                              : records.getNumberOfElements();
}

Item RecordColumn::operator[](size_t i) const { return Item::ofElement(records.impl(), i); }

const FieldColumns* RecordColumn::fields() const {
  const ItemColumn* column = records.impl().items().column();
  return column ? column->as<FieldColumns>() : nullptr;
}

int RecordColumn::depth() const { return records.impl().depth(); }

int FieldColumns::depth() const {
  int depth = 0;
  for (const ItemList& field : fields) depth = std::max(depth, field.depth());
  return depth;
}

TextColumnBuilder::TextColumnBuilder(ArrayType type, size_t count)
    : type_(type),
      offsets_(Buffer::uninitialized((count + 1) * sizeof(int64_t))),
      next_(reinterpret_cast<int64_t*>(offsets_.mutableData())) {
  *next_ = 0;
}

TextColumn TextColumnBuilder::finish() { return {type_, std::move(offsets_), bytes_.finish(), {}}; }

}  // namespace foundation::zorvandata
