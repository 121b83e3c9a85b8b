// The columns of a frame that are arrays already.
#pragma once

#include <memory>
#include <vector>

#include "to_array/encoder.h"
#include "zorvandata/array.h"

namespace PythonZorvanDataArray::detail {

class FrameColumns {
 public:
  // `to` takes the frame, and must outlive this.
  explicit FrameColumns(Encoder& to) : cell_(std::make_unique<Encoder>(to, kLevels)) {}

  // The value that items of a column are within.
  Encoder& encoder() { return *cell_; }
  void append(foundation::zorvandata::Array column) { arrays_.push_back(std::move(column)); }
  const std::vector<foundation::zorvandata::Array>& arrays() const { return arrays_; }

  // Before Python code runs that is neither the interpreter's own nor pandas': copies what columns
  // and values so far have lent, so that what is sent are the values as they were.
  void beforeForeignCode();

 private:
  // A column lies this deep: in the object, its image, the variables.
  static constexpr int kLevels = 3;

  std::unique_ptr<Encoder> cell_;  // nothing is appended to it; frames nest, so not on the stack
  std::vector<foundation::zorvandata::Array> arrays_;
  size_t settled_ = 0;
};

}  // namespace PythonZorvanDataArray::detail
