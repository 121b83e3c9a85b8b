// Reads a tape item by item. A reader is a position: copies of it are read independently of each
// other. Nothing is checked, so the tape must be one that follows the grammar (tape_check.h), and
// live as long as its readers.
#pragma once

#include <cstring>
#include <optional>
#include <string_view>

#include "zorvandata/dimensions.h"
#include "zorvandata/tape.h"
#include "zorvandata/varints.h"

namespace foundation::zorvandata {

class TapeReader {
 public:
  // At the one item of the tape.
  explicit TapeReader(const Tape& tape);

  const Tape& tape() const { return *tape_; }
  // Another tape over the same bytes takes the place of this one.
  void moveToTape(const Tape& tape) { tape_ = &tape; }

  // The kind of what comes next, and what stands behind it in `kinds`.
  uint8_t peek() const { return *kinds_; }
  uint8_t kind() { return *kinds_++; }
  uint64_t number() { return readVarint(kinds_); }

  // The next value of each stream.
  uint64_t count() { return readVarint(counts_); }
  int64_t integer() { return unzigzag(readVarint(ints_)); }
  double real() {
    double value = 0;
    std::memcpy(&value, reals_, sizeof(value));
    reals_ += sizeof(value);
    return value;
  }
  const char* dense(size_t bytes) { return std::exchange(dense_, dense_ + bytes); }
  // A text, which may be missing.
  std::optional<std::string_view> text();
  Array child() { return tape_->children->take(child_, *tape_); }
  Dimensions extents();

  // The parts of a text, for readers that know what stood before: a number twice, plus one, or
  // twice a length plus one, which is 0 for a missing text.
  uint64_t textCode() { return readVarint(textLengths_); }
  static bool isNumber(uint64_t code) { return (code & 1) != 0; }
  static bool isMissing(uint64_t code) { return code == 0; }
  static size_t lengthOf(uint64_t code) { return static_cast<size_t>(code / 2 - 1); }
  // The bytes of a text that is spelled out.
  std::string_view spelled(uint64_t code) {
    const size_t length = lengthOf(code);
    if (takesNumber(length)) ++numbered_;
    return {std::exchange(text_, text_ + length), length};
  }
  // How many texts took a number so far.
  size_t numberedTexts() const { return numbered_; }
  // Of the text that a number stands for here: how many took a number before it; and its bytes.
  size_t serialOf(uint64_t code) const {
    const size_t last = numbered_ - 1;
    return last - (last - static_cast<size_t>(code / 2)) % kTextNumbers;
  }
  std::string_view numberedText(uint64_t code) const { return tape_->numberedText(serialOf(code)); }

  // Where the kinds of a run's element begin; every element is read from there.
  const uint8_t* mark() const { return kinds_; }
  void moveTo(const uint8_t* mark) { kinds_ = mark; }

  // Calls put(i, value) for the next integers: a loop that keeps the position to itself.
  template <class Put>
  void integers(size_t count, const Put& put) {
    const uint8_t* at = ints_;
    for (size_t i = 0; i < count; ++i) put(i, unzigzag(readVarint(at)));
    ints_ = at;
  }
  // Doubles in a row.
  const char* reals(size_t count) { return std::exchange(reals_, reals_ + count * sizeof(double)); }

  // Moves past an item.
  void skip();
  // The next item as an array: one that refers to the tape if it has items itself.
  Array array();
  // The same without moving past it: the items of a container are not stepped over.
  Array arrayHere() const;
  // The array type of the next item; of a child that of the array.
  ArrayType type() const;

 private:
  Array container() const;
  Array scalar(ArrayType type);
  std::optional<std::string_view> checkedText();
  void skipText();
  const Tape* tape_;
  const uint8_t* kinds_;
  const uint8_t* counts_;
  const uint8_t* ints_;
  const char* reals_;
  const char* dense_;
  const uint8_t* textLengths_;
  const char* text_;
  size_t child_ = 0;
  size_t numbered_ = 0;
};

// The head of a cell, struct or object on the tape, read off it: what follows are its items.
struct ContainerHead {
  // Reads the head of the next item, which must be a container.
  explicit ContainerHead(TapeReader& reader);

  Dimensions dimensions() const {
    if (grid) return *grid;
    return type == ArrayType::CELL ? Dimensions::row(items) : Dimensions::scalar();
  }

  ArrayType type = ArrayType::CELL;
  bool isRun = false;              // the items all have the kinds of one
  std::optional<Dimensions> grid;  // extents of its own
  uint64_t shape = 0;              // of a struct or object
  size_t items = 0;
  const uint8_t* end = nullptr;  // of the kinds of a run
};

constexpr bool isContainer(uint8_t kind) {
  return (kind >= kindOf(ArrayType::CELL) && kind <= kindOf(ArrayType::VALUE_OBJECT)) ||
         kind == kind::kRun || kind == kind::kGrid;
}

// Calls read(reader) for each of the items behind a head; every call moves past one item.
template <class Read>
void forEachItem(const ContainerHead& head, TapeReader& reader, const Read& read) {
  if (!head.isRun) {
    for (size_t i = 0; i < head.items; ++i) read(reader);
    return;
  }
  const uint8_t* items = reader.mark();
  for (size_t i = 0; i < head.items; ++i) {
    reader.moveTo(items);
    read(reader);
  }
  reader.moveTo(head.end);
}

// The values of one struct or object by their names.
class RecordReader {
 public:
  // The next item of a reader, which must be a struct or object of one element; moves past it.
  explicit RecordReader(TapeReader& reader);
  // An array of one element, which is held.
  explicit RecordReader(const Array& record);

  // The reader at the value of a name; NULL when there is none.
  const TapeReader* find(std::string_view name) const;

 private:
  struct Value {
    std::string_view name;
    TapeReader reader;
  };

  Array record_;  // of type UNKNOWN where the record is an item of a tape
  ShortVector<Value, 4> values_;
};

}  // namespace foundation::zorvandata
