#include "zorvandata/items.h"

#include <algorithm>

#include "zorvandata/array_impl.h"
#include "zorvandata/exception.h"
#include "zorvandata/limits.h"

namespace foundation::zorvandata {
namespace {

const Array& emptyDouble() {
  static const Array array = makeDense(ArrayType::DOUBLE, Dimensions(), Buffer());
  return array;
}

int depthOf(TapeReader& reader);

// Of the deepest item behind a head.
int depthOfItems(const ContainerHead& head, TapeReader& reader) {
  const bool areValues = head.grid && head.type != ArrayType::CELL;
  int depth = 0;
  forEachItem(head, reader, [&](TapeReader& items) {
    // The values of a name lie in a cell, which is no array of its own.
    depth = std::max(depth, areValues ? depthOfItems(ContainerHead(items), items) : depthOf(items));
  });
  return depth;
}

// How many levels of arrays an item is; moves past it.
int depthOf(TapeReader& reader) {
  if (isContainer(reader.peek())) {
    const ContainerHead head(reader);
    return 1 + depthOfItems(head, reader);
  }
  const uint8_t kind = reader.peek();
  if (kind == kind::kChild) {
    reader.kind();
    return reader.child().impl().depth();
  }
  reader.skip();
  return kind == kind::kDense || kind == kind::kStrings ? 1 : 0;
}

// Values that a tape has in line are no level of their own in a cell either.
int depthOf(const Array& array) {
  const ArrayType type = array.getType();
  const bool isText = type == ArrayType::CHAR && array.dimensions().isRow();
  const bool isNumber =
      (isDense(type) || type == ArrayType::ZORVAN_STRING) && array.dimensions().isScalar();
  return isText || isNumber ? 0 : array.impl().depth();
}

void checkDepth(const Array& value) {
  if (depthOf(value) >= kMaxNesting) throw NestingTooDeepException();
}

}  // namespace

// The last item that was asked for, and every so manieth.
struct TapeItems::Marks {
  std::vector<TapeReader> each;
  size_t index = 0;
  TapeReader reader;
};

TapeItems::TapeItems(std::shared_ptr<const Tape> tape, const TapeReader& first, bool isRun,
                     size_t count)
    : tape_(std::move(tape)), first_(first), isRun_(isRun), count_(count) {
  first_.moveToTape(*tape_);
}

TapeReader TapeItems::at(size_t i) const {
  if (!marks_) marks_ = std::make_shared<Marks>(Marks{{first_}, 0, first_});
  Marks& marks = *marks_;
  if (i < marks.index || i - marks.index > kStep) {
    const size_t mark = std::min(i / kStep, marks.each.size() - 1);
    if (mark * kStep > marks.index || i < marks.index) {
      marks.index = mark * kStep;
      marks.reader = marks.each[mark];
    }
  }
  while (marks.index < i) {
    if (isRun_) marks.reader.moveTo(first_.mark());
    marks.reader.skip();
    ++marks.index;
    if (marks.index == marks.each.size() * kStep) marks.each.push_back(marks.reader);
  }
  if (isRun_) marks.reader.moveTo(first_.mark());
  return marks.reader;
}

Items::Items(size_t count) : arrays_(count, emptyDouble()) {}

Items::Items(std::vector<Array> arrays) : arrays_(std::move(arrays)) {
  for (const Array& array : arrays_) checkDepth(array);
}

Array Items::get(size_t i) const {
  if (parts_.empty()) return arrays_[i];
  const size_t size = parts_.front().size();
  return parts_[i / size].get(i % size);
}

void Items::set(size_t i, const Array& value) {
  checkDepth(value);
  takeOffTape();
  arrays_[i] = value;
}

void Items::append(const Array& value) {
  checkDepth(value);
  takeOffTape();
  arrays_.push_back(value);
}

void Items::reserve(size_t count) {
  takeOffTape();
  arrays_.reserve(count);
}

int Items::depth() const {
  int depth = 0;
  for (const Array& array : arrays_) depth = std::max(depth, depthOf(array));
  for (const TapeItems& part : parts_) {
    part.forEach([&depth](TapeReader& reader) { depth = std::max(depth, depthOf(reader)); });
  }
  return depth;
}

void Items::takeOffTape() {
  if (parts_.empty()) return;
  std::vector<Array> arrays;
  arrays.reserve(size());
  for (const TapeItems& part : parts_) {
    part.forEach([&arrays](TapeReader& reader) { arrays.push_back(reader.array()); });
  }
  arrays_ = std::move(arrays);
  parts_.clear();
}

}  // namespace foundation::zorvandata
