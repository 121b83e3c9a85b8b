#include "zorvandata/tape.h"

#include <algorithm>
#include <vector>

#include "zorvandata/array_impl.h"
#include "zorvandata/tape_reader.h"
#include "zorvandata/texts.h"

namespace foundation::zorvandata {

// Where some of the numbered texts stand, so many codes apart: between two of those that are
// numbered there may be any number of others.
struct Tape::NumberedTexts {
  static constexpr size_t kStep = 16;
  struct Mark {
    uint32_t index;
    uint32_t code;
    uint32_t text;
  };
  std::vector<Mark> marks;
};

std::shared_ptr<const Tape> Tape::share() const {
  checkTexts();
  if (auto self = weak_from_this().lock()) return self;
  if (!shared_) {
    auto copy = std::make_shared<Tape>(*this);
    if (lender) copy->owner = lender->hold();
    copy->lender = nullptr;
    shared_ = std::move(copy);
  }
  return shared_;
}

void Tape::checkTexts() const {
  if (isTextChecked) return;
  zorvandata::checkTexts(textLengths, text);
  isTextChecked = true;
}

std::string_view Tape::numberedText(size_t index) const {
  using Mark = NumberedTexts::Mark;
  const auto* begin = reinterpret_cast<const uint8_t*>(textLengths.data());
  const uint8_t* end = begin + textLengths.size();
  // Calls found(code, text) for each numbered text from a place on, until it returns true.
  const auto forEachFrom = [&](size_t code, size_t at, const auto& found) {
    for (const uint8_t* next = begin + code; next != end;) {
      const uint8_t* here = next;
      const uint64_t value = readVarint(next);
      if (TapeReader::isNumber(value) || TapeReader::isMissing(value)) continue;
      const size_t length = TapeReader::lengthOf(value);
      if (takesNumber(length) && found(here - begin, at, length)) return;
      at += length;
    }
  };
  if (!numbered_) {
    auto numbered = std::make_shared<NumberedTexts>();
    std::vector<Mark>& marks = numbered->marks;
    uint32_t count = 0;
    forEachFrom(0, 0, [&](std::ptrdiff_t code, size_t at, size_t) {
      const auto place = static_cast<uint32_t>(code);
      if (marks.empty() || place - marks.back().code >= NumberedTexts::kStep) {
        marks.push_back({count, place, static_cast<uint32_t>(at)});
      }
      ++count;
      return false;
    });
    numbered_ = std::move(numbered);
  }
  const auto isBefore = [](size_t wanted, const Mark& mark) { return wanted < mark.index; };
  const std::vector<Mark>& marks = numbered_->marks;
  const Mark& mark = *(std::upper_bound(marks.begin(), marks.end(), index, isBefore) - 1);
  std::string_view result;
  size_t left = index - mark.index;
  forEachFrom(mark.code, mark.text, [&](std::ptrdiff_t, size_t at, size_t length) {
    result = text.substr(at, length);
    return left-- == 0;
  });
  return result;
}

std::shared_ptr<const Layout> Tape::layout(uint64_t shape) const {
  std::shared_ptr<const Layout>& known = layouts_[shape];
  if (!known) {
    ShapeReader reader(*this, shape);
    auto layout = std::make_shared<Layout>();
    layout->className = reader.className();
    layout->names.reserve(reader.names());
    for (size_t i = reader.names(); i > 0; --i) layout->names.emplace_back(reader.next());
    known = std::move(layout);
  }
  return known;
}

ShapeReader::ShapeReader(const Tape& tape, uint64_t shape) {
  if (shape == 0) return;
  at_ = reinterpret_cast<const uint8_t*>(tape.shapes.data()) + tape.shapeOffsets[shape - 1];
  className_ = next();
  names_ = readVarint(at_);
}

std::string_view ShapeReader::next() {
  const uint64_t length = readVarint(at_);
  const std::string_view name(reinterpret_cast<const char*>(at_), length);
  at_ += length;
  return name;
}

}  // namespace foundation::zorvandata
