// Values said plainly, for tests of tapes: written to them, read off them, and made at random.
#pragma once

#include <array>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "zorvandata/tape_builder.h"
#include "zorvandata/tape_reader.h"

namespace values {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayType;
using foundation::zorvandata::Children;
using foundation::zorvandata::Tape;
using foundation::zorvandata::TapeBuilder;
using foundation::zorvandata::TapeReader;

// Any array of a dense or string type, cell, struct or object.
struct Value {
  ArrayType type = ArrayType::CELL;
  std::vector<size_t> dims{1, 1};
  std::string elements;  // of a dense array, in memory
  std::vector<std::optional<std::string>> texts;
  std::string className;
  std::vector<std::string> names;
  std::vector<Value> items;

  auto members() const { return std::tie(type, dims, elements, texts, className, names, items); }
  bool operator==(const Value& other) const { return members() == other.members(); }
};

Value charRow(std::u16string_view units);
Value number(double value);
Value cell(std::vector<Value> items);

Array toArray(const Value& value);
Value valueOf(const Array& array);
// The next item, off the tape; expects that skip() ends where this does.
Value read(TapeReader& reader);
// With no array for what the builder has a function of its own for.
void build(TapeBuilder& builder, const Value& value);

// Random values, nested `depth` deep at most. Elements of cells are most often of the same kinds.
class Generator {
 public:
  explicit Generator(unsigned seed) : random_(seed) {}

  size_t below(size_t n) { return random_() % n; }
  Value any(size_t depth);
  // Most often of the same kinds as another one.
  Value like(const Value& other, size_t depth);

 private:
  std::vector<size_t> row() { return {1, below(5)}; }
  std::vector<size_t> dims();
  Value record(size_t depth);
  Value items(Value value, const Value* pattern, size_t depth);
  Value dense(ArrayType type, std::vector<size_t> dims);
  Value strings(std::vector<size_t> dims);

  std::mt19937_64 random_;
};

// ---- streams ----

enum Stream { kKinds, kCounts, kInts, kReals, kDense, kCodes, kText, kShapes, kStreams };
// With nothing behind their ends that a reader could take for theirs.
using Streams = std::array<std::vector<char>, kStreams>;

Streams streamsOf(const Tape& tape);
size_t sizeOf(const Streams& streams);
std::shared_ptr<const Tape> written(const std::function<void(TapeBuilder&)>& write);
// A tape over streams, as it is when it comes from elsewhere.
Tape received(const Streams& streams, std::shared_ptr<const Children> children = nullptr);
// Checks a tape that has so many children.
constexpr size_t kAnyChildren = SIZE_MAX;
size_t check(Tape& tape, size_t children, int level = 1);
// That all ways to read a tape that has been checked lead to the same.
void expectSound(const Tape& tape);
// Kinds as they follow one another, with the numbers behind them.
std::string describeKinds(std::string_view kinds);

}  // namespace values
