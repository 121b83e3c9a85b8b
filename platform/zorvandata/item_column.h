// Columns: how a list holds many elements of one kind in a few allocations. They never change once
// made and are shared by all lists that hold them.
#pragma once

#include <cstring>
#include <memory>
#include <string_view>
#include <variant>
#include <vector>

#include "zorvandata/array.h"
#include "zorvandata/buffer.h"
#include "zorvandata/growing_bytes.h"
#include "zorvandata/item_list.h"

namespace foundation::zorvandata {

// Fewer elements are as well kept one by one.
constexpr size_t kColumnFrom = 16;

// 1-by-1 arrays of one dense type other than char, end to end.
struct ScalarColumn {
  ArrayType type;
  Buffer elements;  // of any alignment

  size_t size() const { return elements.size() / elementSize(type); }
  Item operator[](size_t i) const {
    return Item::ofScalar(type, elements.data() + i * elementSize(type));
  }
  int depth() const { return 0; }
};

// Texts end to end, laid out as Arrow lays out its large strings.
struct TextColumn {
  ArrayType type;        // CHAR or ZORVAN_STRING
  Buffer offsets;        // int64, one more than there are texts; each from the start of `bytes`
  Buffer bytes;          // UTF-8 of text.h
  Buffer present;        // a bit each, the least significant first; empty when no text is missing
  bool isAscii = false;  // known to be nothing else

  // The column of texts whose offsets ascend within the bytes; throws InvalidTextException when one
  // of them is no such UTF-8.
  static TextColumn checkedTexts(ArrayType type, Buffer offsets, Buffer bytes, Buffer present = {});
  // The column of bytes that are known to be UTF-8; throws InvalidTextException when the offsets do
  // not ascend within them.
  static TextColumn checkedOffsets(ArrayType type, Buffer offsets, Buffer bytes);

  size_t size() const { return offsets.size() / sizeof(int64_t) - 1; }
  Item operator[](size_t i) const;
  int depth() const { return 0; }

  const int64_t* offset() const { return reinterpret_cast<const int64_t*>(offsets.data()); }
  bool isMissing(size_t i) const;
  std::string_view text(size_t i) const {
    const int64_t* at = offset() + i;
    return {reinterpret_cast<const char*>(bytes.data()) + at[0],
            static_cast<size_t>(at[1] - at[0])};
  }
  // All texts, end to end.
  std::string_view all() const;
  // At least as many bytes as the longest text has, and less than twice as many.
  size_t longest() const;
};

// Longer texts are not kept as repeated ones: a few bytes would stand for too many.
constexpr size_t kLongestRepeated = 255;

// Few short texts that come again and again.
struct RepeatedTextColumn {
  TextColumn distinct;
  Buffer positions;  // uint32, of each element in `distinct`

  size_t size() const { return positions.size() / sizeof(uint32_t); }
  const uint32_t* position() const { return reinterpret_cast<const uint32_t*>(positions.data()); }
  Item operator[](size_t i) const { return distinct[position()[i]]; }
  int depth() const { return 0; }
};

struct FieldColumns;

// The elements of a struct or object array, each as a 1-by-1 array, or the rows of a cell matrix,
// each as a 1-by-N cell: records of which every field is a column.
struct RecordColumn {
  Array records;

  // What the records hold their values as; NULL where it is something else.
  const FieldColumns* fields() const;
  size_t size() const;
  Item operator[](size_t i) const;
  int depth() const;
};

// Columns of one length, one after the other: what an array of records holds.
struct FieldColumns {
  std::vector<ItemList> fields;  // at least one

  size_t size() const { return fields.size() * fields.front().size(); }
  Item operator[](size_t i) const {
    const size_t length = fields.front().size();
    return fields[i / length][i % length];
  }
  int depth() const;
};

class ItemColumn {
 public:
  template <class Column>
  explicit ItemColumn(Column column) : kind_(std::move(column)) {}

  // The column if it is of the kind, else NULL.
  template <class Column>
  const Column* as() const {
    return std::get_if<Column>(&kind_);
  }
  template <class Visitor>
  decltype(auto) visit(Visitor&& visitor) const {
    return std::visit(std::forward<Visitor>(visitor), kind_);
  }

 private:
  std::variant<ScalarColumn, TextColumn, RepeatedTextColumn, RecordColumn, FieldColumns> kind_;
};

// A list that is the column. NestingTooDeepException when its elements lie deeper than kMaxNesting
// allows.
template <class Column>
ItemList makeColumn(Column column) {
  return ItemList(std::make_shared<const ItemColumn>(std::move(column)));
}

// Whether that many rows of as many values each are better kept by columns than row by row.
constexpr bool isTall(size_t rows, size_t values) {
  constexpr size_t kWidest = 32;
  return values >= 1 && values <= kWidest && rows >= 2 * values && rows >= kColumnFrom;
}

// Gathers a column of texts.
class TextColumnBuilder {
 public:
  TextColumnBuilder(ArrayType type, size_t count);
  // Exactly `count` times: a text of at most 4 GiB, valid UTF-8 as text.h has it.
  void append(std::string_view utf8) {
    bytes_.append(utf8.data(), utf8.size());
    *++next_ = static_cast<int64_t>(bytes_.size());
  }
  TextColumn finish();

 private:
  ArrayType type_;
  Buffer offsets_;
  int64_t* next_;
  GrowingBytes bytes_;
};

}  // namespace foundation::zorvandata
