// Writes a tape, front to back, while a value is walked.
//
// A cell of two or more elements begins as a run: the kinds of its first element are a template,
// with which those of the others are compared instead of written. At the first misfit the template
// is written once for every element already done, and the cell goes on element by element. Values
// are never touched, and nothing is walked twice.
//
//   builder.openCell(2);
//   builder.element();  builder.real(1.5);
//   builder.element();  builder.text("a");
//   builder.closeCell();
//
// A builder that has thrown is good for nothing more. Not thread-safe.
#pragma once

#include <initializer_list>
#include <string_view>
#include <vector>

#include "zorvandata/array.h"
#include "zorvandata/buffer.h"
#include "zorvandata/byte_stream.h"
#include "zorvandata/short_vector.h"
#include "zorvandata/tape.h"
#include "zorvandata/texts.h"
#include "zorvandata/varints.h"

namespace foundation::zorvandata {

class TapeReader;

// Dense arrays with less payload lie on the tape, others are its children.
constexpr size_t kDenseBelow = 4096;
// Texts of so many bytes and more are lent to the tape where they can be.
constexpr size_t kLentTextFrom = 16384;

class TapeBuilder {
 public:
  // A text of which the bytes are not on the tape.
  struct LentText {
    size_t position;  // among the bytes that are
    Buffer bytes;
  };

  // Values. Text is of the kind that text.h has.
  void real(double value) {
    putKind(kindOf(ArrayType::DOUBLE));
    putReal(value);
  }
  void integer(int64_t value) {
    putKind(kindOf(ArrayType::INT64));
    putInteger(value);
  }
  void logical(bool value) {
    putKind(kindOf(ArrayType::LOGICAL));
    putInteger(value);
  }
  void text(std::string_view utf8) {
    putKind(kindOf(ArrayType::CHAR));
    texts_.append(utf8);
  }
  // Nothing is a missing one.
  void string(std::optional<std::string_view> utf8) {
    putKind(kindOf(ArrayType::ZORVAN_STRING));
    utf8 ? texts_.append(*utf8) : texts_.appendMissing();
  }
  // A char row (or string) that stays where it is until the tape is written.
  void lentText(ArrayType type, Buffer utf8);
  // A 1-by-1 number or logical from the bytes of its element.
  void scalar(ArrayType type, const void* element);
  void complexReal(double real, double imaginary) {
    putKind(kindOf(ArrayType::COMPLEX_DOUBLE));
    putReal(real);
    putReal(imaginary);
  }
  // A dense array of little payload: its elements are to be written to the result.
  uint8_t* dense(ArrayType type, const Dimensions& dims);
  // Any array, in the form that suits it. NestingTooDeepException.
  void array(const Array& array);
  // The next item of another tape; moves past it.
  void copy(TapeReader& reader);

  // A 1-by-count cell: so many times element() and a value, then closeCell().
  void openCell(size_t count) { openCell(count, nullptr); }
  // A cell of other extents.
  void openGrid(const Dimensions& dims) { openCell(dims.elements(), &dims); }
  // Before each of the elements.
  void element() {
    Frame& frame = frames_.back();
    if (frame.mode == Mode::kMatching) {
      ++frame.begun;
      position_ = frame.pattern;
    } else if (frame.mode == Mode::kFirst) {
      if (frame.begun++ > 0) endFirst(frame);
    }
  }
  void closeCell();

  // A 1-by-1 struct or object: as many values as the shape has names, then closeRecord().
  void openRecord(ArrayType type, uint64_t shape);
  // Of other extents: then for each name a cell of its values in all elements, by openCell. There
  // is nothing to close.
  void openRecords(ArrayType type, uint64_t shape, const Dimensions& dims);
  void closeRecord() { leave(); }

  // A string array: then so many times string texts by stringElement().
  void openStrings(const Dimensions& dims);
  void stringElement(std::optional<std::string_view> utf8) {
    utf8 ? texts_.append(*utf8) : texts_.appendMissing();
  }

  // For loops over elements of one kind: the kind that the elements of the open cell have so far if
  // it is that of a number or text, 0 otherwise or where it is not known yet. While elements are of
  // that kind their values may be put without element() and without kinds, if they are counted.
  uint8_t uniformKind() {
    return frames_.back().mode == Mode::kPlain ? uint8_t{0} : uniformKindOfRun();
  }
  void countElements(size_t count) { frames_.back().begun += count; }
  ByteStream& realStream() { return reals_; }
  ByteStream& intStream() { return ints_; }
  void putReal(double value) {
    uint8_t* out = reals_.room(sizeof(value));
    std::memcpy(out, &value, sizeof(value));
    reals_.moveEnd(out + sizeof(value));
  }
  void putInteger(int64_t value) {
    ints_.moveEnd(writeVarint(zigzag(value), ints_.room(kLongestVarint)));
  }
  TextSink& texts() { return texts_; }

  // The number of a shape: of its bytes as they stand in `shapes` (ShapeBytes).
  uint64_t shape(std::string_view bytes);
  // The shape that a struct would have to have to be like the ones before it, 0 for none known.
  uint64_t expectedShape() const;
  // How many cells, structs and objects are open.
  int depth() const { return depth_; }

  // Copies what children, so far, refer to in memory that others may change.
  void settle();

  // What was written.
  const ByteStream& kinds() const { return kinds_; }
  const ByteStream& counts() const { return counts_; }
  const ByteStream& ints() const { return ints_; }
  const ByteStream& reals() const { return reals_; }
  const ByteStream& denseElements() const { return dense_; }
  const ByteStream& textLengths() const { return textLengths_; }
  const ByteStream& shapes() const { return shapes_; }
  const std::vector<Array>& children() const { return children_; }
  size_t textSize() const { return text_.size() + lentSize_; }
  void copyText(uint8_t* out) const;
  // The type of the one item.
  ArrayType outermostType() const;

  // A tape of its own with all that was written, which the builder then has no more.
  std::shared_ptr<const Tape> finish();

 private:
  enum class Mode : uint8_t {
    kPlain,    // kinds are written, or compared, element by element
    kFirst,    // the first element of a run is being written
    kMatching  // elements are compared with the pattern
  };
  struct Frame {
    size_t start;       // where the run's own kind stands
    size_t pattern;     // where the kinds of its elements do,
    size_t patternEnd;  // and where they end, once they are known
    size_t begun;       // how many elements
    size_t count;       // how many there will be
    size_t countAt;     // where that stands in the counts
    Mode mode;
    bool isGrid;
    bool isInPattern;  // the run itself is compared with a pattern around it
  };

  void putKind(uint8_t kind) {
    if (__builtin_expect(isMatching_, 0)) {
      if (kinds_.data()[position_] == kind) {
        ++position_;
        return;
      }
      widen();
    }
    kinds_.push(kind);
  }
  void putCount(uint64_t count) {
    counts_.moveEnd(writeVarint(count, counts_.room(kLongestVarint)));
  }
  void putKindsNumber(uint64_t number) {
    kinds_.moveEnd(writeVarint(number, kinds_.room(kLongestVarint)));
  }
  // A kind with a number behind it.
  void putKind(uint8_t kind, uint64_t number);
  void putExtents(const Dimensions& dims);
  void openCell(size_t count, const Dimensions* grid);
  bool matchCell(size_t count, bool isGrid);
  bool mayStayUnread(uint64_t kinds);
  void endFirst(Frame& frame);
  void makePlain(Frame& frame);
  uint8_t uniformKindOfRun();
  void removeCount(size_t frame);
  void widen();
  bool isRepeatable(size_t pattern) const;
  std::string_view shapeBytes(uint64_t number) const;
  size_t shapeSlot(std::string_view bytes) const;
  void child(const Array& array);
  void denseArray(const Array& array);
  void stringArray(const Array& array);
  void container(const Array& array);
  void copyContainer(TapeReader& reader);
  void requireLevel() const;  // for one item more; throws NestingTooDeepException
  void enter();
  void leave() { --depth_; }

  ShortByteStream<64> kinds_;
  ShortByteStream<32> counts_;
  ShortByteStream<64> ints_;
  ShortByteStream<128> reals_;
  ShortByteStream<128> dense_;
  ShortByteStream<32> textLengths_;
  ShortByteStream<128> text_;
  ShortByteStream<64> shapes_;
  TextSink texts_{textLengths_, text_};
  ShortVector<Frame, 4> frames_;
  ShortVector<uint32_t, 8> shapeOffsets_;
  std::vector<uint32_t> shapeTable_;  // of shape numbers, by the hash of their bytes
  std::vector<Array> children_;
  std::vector<LentText> lentTexts_;
  size_t lentSize_ = 0;
  size_t settled_ = 0;
  size_t position_ = 0;  // in `kinds`, while elements are compared
  uint64_t lastShape_ = 0;
  size_t unread_ = 0;  // kinds that runs without elements would take if they were written out
  int depth_ = 0;
  bool isMatching_ = false;
};

// The bytes of a shape: its class and names, in the order in which they are added.
class ShapeBytes {
 public:
  ShapeBytes(std::string_view className, size_t names);
  ShapeBytes(std::string_view className, std::initializer_list<std::string_view> names);

  // Nonempty, of the kind that text.h has, and not there yet.
  void add(std::string_view name);
  std::string_view bytes() const { return bytes_.bytes(); }

 private:
  void putNumber(uint64_t number) {
    bytes_.moveEnd(writeVarint(number, bytes_.room(kLongestVarint)));
  }

  ShortByteStream<256> bytes_;
};

}  // namespace foundation::zorvandata
