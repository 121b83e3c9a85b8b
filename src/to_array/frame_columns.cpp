#include "to_array/frame_columns.h"

#include "zorvandata/array_impl.h"
#include "zorvandata/tape_reader.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayType;
using foundation::zorvandata::Items;
using foundation::zorvandata::TapeBuilder;
using foundation::zorvandata::TapeReader;

namespace {

bool holdsArrays(const Array& array) {
  if (array.getType() != ArrayType::CELL && array.getType() != ArrayType::VALUE_OBJECT)
    return false;
  const Items& items = array.impl().items();
  return items.onTape().empty() ? items.size() > 0
                                : items.onTape().front().tape()->children != nullptr;
}

// The array with all that it is made of as nobody else can change it.
Array settled(const Array& array) {
  if (isDense(array.getType())) {
    return makeDense(array.getType(), array.dimensions(), array.impl().buffer().settled());
  }
  if (!holdsArrays(array)) return array;
  TapeBuilder copy;
  copy.array(array);
  copy.settle();
  return TapeReader(*copy.finish()).arrayHere();
}

}  // namespace

void FrameColumns::beforeForeignCode() {
  cell_->beforeForeignCode();
  for (; settled_ < arrays_.size(); ++settled_) arrays_[settled_] = settled(arrays_[settled_]);
}

}  // namespace PythonZorvanDataArray::detail
