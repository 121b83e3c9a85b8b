// The tape: how nested values lie in memory and, stream for stream, how they travel.
//
// A tape is written once, front to back, while a value is walked (tape_builder.h), and read once,
// front to back (tape_reader.h). What is on it needs no array object and no memory of its own. It
// holds one item, a 1-by-n cell; docs/wire-format.md has the grammar of its kinds.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <unordered_map>

#include "zorvandata/array.h"
#include "zorvandata/short_vector.h"

namespace foundation::zorvandata {

// A byte of `kinds`. The kinds of 1-by-1 numbers, of texts, cells, structs and objects are the
// codes of their array types.
namespace kind {
enum : uint8_t {
  kChild = 0,    // the next of the children
  kRun = 64,     // a cell whose elements all have the kinds of the one item that follows
  kGrid = 65,    // a cell, struct or object with extents of its own follows
  kDense = 66,   // a dense array of the type that follows
  kStrings = 67  // a string array
};
}  // namespace kind

constexpr uint8_t kindOf(ArrayType type) { return static_cast<uint8_t>(type); }

// The type of the item of which the kinds begin here; not of a child.
constexpr ArrayType typeOf(const uint8_t* kinds) {
  if (*kinds == kind::kDense) return static_cast<ArrayType>(kinds[1]);
  if (*kinds == kind::kStrings) return ArrayType::ZORVAN_STRING;
  const uint8_t type = *kinds == kind::kGrid ? kinds[1] : *kinds;
  return type == kind::kRun ? ArrayType::CELL : static_cast<ArrayType>(type);
}

// So many bytes of kinds may be read for each byte of values that an element of a run has.
constexpr size_t kKindsAValue = 4;

// Texts that are not empty and not longer than this take a number, by which they can stand again;
// numbers go round.
constexpr size_t kLongestNumberedText = 255;
constexpr size_t kTextNumbers = 1024;
constexpr bool takesNumber(size_t length) { return length - 1 < kLongestNumberedText; }

// Arrays of a tape that do not lie on it.
class Children {
 public:
  virtual ~Children() = default;
  // The array at a position, which moves on to the next one; 0 is the position of the first. What
  // is made may refer to the bytes of the tape and hold it.
  virtual Array take(size_t& position, const struct Tape& tape) const = 0;
  virtual void skip(size_t& position) const = 0;
};

// Keeps bytes of somebody else as they are.
class Lender {
 public:
  virtual ~Lender() = default;
  // What has to be held to keep them so beyond the lender's own life; throws.
  virtual std::shared_ptr<const void> hold() const = 0;
};

struct Layout;

// The streams of a tape: bytes of a message, or of a builder, that are known to follow the grammar.
struct Tape : std::enable_shared_from_this<Tape> {
  std::string_view kinds;
  std::string_view counts;       // varints
  std::string_view ints;         // zigzag varints
  std::string_view reals;        // doubles, at any address
  std::string_view dense;        // elements of small dense arrays, at any address
  std::string_view textLengths;  // varints, see docs/wire-format.md
  std::string_view text;         // the texts end to end
  std::string_view shapes;       // names, one shape after the other
  std::shared_ptr<const Children> children;
  ShortVector<uint32_t, 8> shapeOffsets;  // where each shape begins in `shapes`

  // Whether some text is told by its number.
  bool repeatsTexts = false;
  // Whether all text is known to be of the kind that text.h has; otherwise each reader checks what
  // it reads.
  mutable bool isTextChecked = false;

  // What keeps the streams: a lender, who lives as long as this tape does, or an owner.
  const Lender* lender = nullptr;
  std::shared_ptr<const void> owner;
  std::shared_ptr<const void> kindsOwner;  // where kinds do not stand in the message

  // This tape, or a copy of it, for as long as somebody holds it. All its texts are checked: throws
  // InvalidTextException.
  std::shared_ptr<const Tape> share() const;
  // Throws InvalidTextException.
  void checkTexts() const;
  // Shape number `shape` as the layout of an array.
  std::shared_ptr<const Layout> layout(uint64_t shape) const;
  // The spelled-out text that was the `index`-th to take a number, counted from zero.
  std::string_view numberedText(size_t index) const;

 private:
  struct NumberedTexts;

  mutable std::shared_ptr<const Tape> shared_;
  mutable std::shared_ptr<const NumberedTexts> numbered_;
  mutable std::unordered_map<uint64_t, std::shared_ptr<const Layout>> layouts_;  // that were asked
};

// Steps over the class and the names of one shape.
class ShapeReader {
 public:
  ShapeReader(const Tape& tape, uint64_t shape);

  std::string_view className() const { return className_; }
  size_t names() const { return names_; }
  // The next name, which must be there.
  std::string_view next();

 private:
  const uint8_t* at_ = nullptr;
  std::string_view className_;
  size_t names_ = 0;
};

}  // namespace foundation::zorvandata
