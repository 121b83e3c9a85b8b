// What cells, structs and objects hold: arrays one by one, or items of a tape.
#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "zorvandata/array.h"
#include "zorvandata/tape_reader.h"

namespace foundation::zorvandata {

// Items of a tape: the ones behind a head. Made of them are arrays only as they are asked for.
// Holds the tape.
class TapeItems {
 public:
  TapeItems(std::shared_ptr<const Tape> tape, const TapeReader& first, bool isRun, size_t count);

  size_t size() const { return count_; }
  // The item as an array; quickest in order.
  Array get(size_t i) const { return at(i).arrayHere(); }
  // The reader at an item.
  TapeReader at(size_t i) const;
  // As behind a head.
  template <class Read>
  void forEach(const Read& read) const {
    TapeReader reader = first_;
    for (size_t i = 0; i < count_; ++i) {
      if (isRun_) reader.moveTo(first_.mark());
      read(reader);
    }
  }
  bool isRun() const { return isRun_; }
  const TapeReader& first() const { return first_; }
  const std::shared_ptr<const Tape>& tape() const { return tape_; }

 private:
  // Every so manieth item has a mark, so that marks take no more memory than items do.
  static constexpr size_t kStep = 64;
  struct Marks;

  std::shared_ptr<const Tape> tape_;
  TapeReader first_;
  bool isRun_;
  size_t count_;
  mutable std::shared_ptr<Marks> marks_;
};

class Items {
 public:
  Items() = default;
  // `count` 0-by-0 doubles.
  explicit Items(size_t count);
  explicit Items(std::vector<Array> arrays);
  explicit Items(TapeItems onTape) { parts_.push_back(std::move(onTape)); }
  // Of the same number each, one after the other.
  explicit Items(std::vector<TapeItems> parts) : parts_(std::move(parts)) {}

  size_t size() const {
    return parts_.empty() ? arrays_.size() : parts_.size() * parts_.front().size();
  }
  Array get(size_t i) const;
  // Takes items off their tape. NestingTooDeepException when the value is too deep.
  void set(size_t i, const Array& value);
  void append(const Array& value);
  void reserve(size_t count);

  // Of the deepest item, 0 for none: how many levels of arrays it is.
  int depth() const;
  // The items on a tape, in order; none for arrays one by one.
  const std::vector<TapeItems>& onTape() const { return parts_; }

 private:
  void takeOffTape();

  std::vector<Array> arrays_;
  std::vector<TapeItems> parts_;
};

}  // namespace foundation::zorvandata
