#include "zorvandata/tape_builder.h"

#include <algorithm>
#include <complex>

#include "zorvandata/array_impl.h"
#include "zorvandata/exception.h"
#include "zorvandata/limits.h"
#include "zorvandata/seeded_hash.h"
#include "zorvandata/tape_reader.h"
#include "zorvandata/text.h"

namespace foundation::zorvandata {
namespace {

constexpr uint8_t kCell = kindOf(ArrayType::CELL);
constexpr uint8_t kStruct = kindOf(ArrayType::STRUCT);

bool isRecord(uint8_t kind) { return kind >= kStruct && kind <= kindOf(ArrayType::VALUE_OBJECT); }

template <class T>
T read(const void* element) {
  T value;
  std::memcpy(&value, element, sizeof(T));
  return value;
}

// An integer, or a part of a complex one, as `ints` have it.
int64_t integerOf(ArrayType type, const void* element) {
  switch (type) {
    case ArrayType::LOGICAL:
      return read<uint8_t>(element) != 0;
    case ArrayType::INT8:
      return read<int8_t>(element);
    case ArrayType::UINT8:
      return read<uint8_t>(element);
    case ArrayType::INT16:
      return read<int16_t>(element);
    case ArrayType::UINT16:
      return read<uint16_t>(element);
    case ArrayType::INT32:
      return read<int32_t>(element);
    case ArrayType::UINT32:
      return read<uint32_t>(element);
    default:
      return read<int64_t>(element);
  }
}

}  // namespace

void TapeBuilder::requireLevel() const {
  if (depth_ >= kMaxNesting) throw NestingTooDeepException();
}

void TapeBuilder::enter() {
  requireLevel();
  ++depth_;
}

void TapeBuilder::lentText(ArrayType type, Buffer utf8) {
  putKind(kindOf(type));
  texts_.appendLength(utf8.size());
  lentSize_ += utf8.size();
  lentTexts_.push_back({text_.size(), std::move(utf8)});
}

void TapeBuilder::scalar(ArrayType type, const void* element) {
  putKind(kindOf(type));
  switch (type) {
    case ArrayType::DOUBLE:
      return putReal(read<double>(element));
    case ArrayType::SINGLE:
      return putReal(static_cast<double>(read<float>(element)));
    case ArrayType::COMPLEX_DOUBLE: {
      const auto value = read<std::complex<double>>(element);
      putReal(value.real());
      return putReal(value.imag());
    }
    case ArrayType::COMPLEX_SINGLE: {
      const auto value = read<std::complex<float>>(element);
      putReal(static_cast<double>(value.real()));
      return putReal(static_cast<double>(value.imag()));
    }
    default:
      break;
  }
  if (!isComplex(type)) return putInteger(integerOf(type, element));
  const ArrayType part = realTypeOf(type);
  putInteger(integerOf(part, element));
  putInteger(integerOf(part, static_cast<const char*>(element) + elementSize(part)));
}

uint8_t* TapeBuilder::dense(ArrayType type, const Dimensions& dims) {
  requireLevel();
  putKind(kind::kDense);
  putKind(kindOf(type));
  putExtents(dims);
  const size_t size = dims.elements() * elementSize(type);
  uint8_t* out = dense_.room(size);
  dense_.moveEnd(out + size);
  return out;
}

void TapeBuilder::child(const Array& array) {
  requireLevel();
  putKind(kind::kChild);
  children_.push_back(array);
}

void TapeBuilder::denseArray(const Array& array) {
  const ArrayType type = array.getType();
  const Dimensions& dims = array.dimensions();
  const Buffer& buffer = array.impl().buffer();
  if (type == ArrayType::CHAR && dims.isRow()) {
    const auto* units = reinterpret_cast<const char16_t*>(buffer.data());
    const std::string utf8 = toUtf8({units, dims.elements()});
    return text(utf8);
  }
  if (type != ArrayType::CHAR && dims.isScalar()) return scalar(type, buffer.data());
  if (buffer.size() >= kDenseBelow) return child(array);
  buffer.copyTo(dense(type, dims));
}

void TapeBuilder::stringArray(const Array& array) {
  const Texts& texts = array.impl().texts();
  if (array.dimensions().isScalar()) return string(texts[0]);
  if (texts.codes().size() + texts.bytes().size() >= kDenseBelow) return child(array);
  openStrings(array.dimensions());
  texts.forEach([this](const auto& text) { stringElement(text); });
}

void TapeBuilder::openStrings(const Dimensions& dims) {
  requireLevel();
  putKind(kind::kStrings);
  putExtents(dims);
}

void TapeBuilder::array(const Array& array) {
  const ArrayType type = array.getType();
  if (isDense(type)) return denseArray(array);
  switch (type) {
    case ArrayType::ZORVAN_STRING:
      return stringArray(array);
    case ArrayType::CELL:
    case ArrayType::STRUCT:
    case ArrayType::OBJECT:
    case ArrayType::VALUE_OBJECT:
      return container(array);
    default:
      return child(array);
  }
}

void TapeBuilder::container(const Array& array) {
  const ArrayImpl& impl = array.impl();
  const Items& items = impl.items();
  const Dimensions& dims = impl.dimensions();
  const size_t partSize = items.onTape().empty() ? 0 : items.onTape().front().size();
  // One by one, in order; those of a tape without arrays for them.
  size_t next = 0;
  std::optional<TapeReader> reader;
  const auto item = [&] {
    if (items.onTape().empty()) return this->array(items.get(next++));
    const TapeItems& part = items.onTape()[next / partSize];
    if (next++ % partSize == 0) reader.emplace(part.first());
    if (part.isRun()) reader->moveTo(part.first().mark());
    copy(*reader);
  };
  const auto cell = [&](size_t count, const Dimensions* grid) {
    openCell(count, grid);
    for (size_t i = 0; i < count; ++i) {
      element();
      item();
    }
    closeCell();
  };
  if (impl.type() == ArrayType::CELL) {
    return cell(dims.elements(), dims.isRow() ? nullptr : &dims);
  }
  const Layout& layout = *impl.layout();
  ShapeBytes bytes(layout.className, layout.names.size());
  for (const std::string& name : layout.names) bytes.add(name);
  const uint64_t number = shape(bytes.bytes());
  if (dims.isScalar()) {
    openRecord(impl.type(), number);
    for (size_t i = 0; i < layout.names.size(); ++i) item();
    closeRecord();
  } else {
    openRecords(impl.type(), number, dims);
    for (size_t i = 0; i < layout.names.size(); ++i) cell(dims.elements(), nullptr);
  }
}

void TapeBuilder::copy(TapeReader& reader) {
  const uint8_t next = reader.peek();
  if (isContainer(next)) return copyContainer(reader);
  const auto type = static_cast<ArrayType>(next);
  if (next == kind::kChild) {
    reader.kind();
    return array(reader.child());
  }
  if (type == ArrayType::CHAR || type == ArrayType::ZORVAN_STRING) {
    reader.kind();
    const auto utf8 = reader.text();
    return type == ArrayType::CHAR ? text(*utf8) : string(utf8);
  }
  if (next < kind::kRun && !isComplex(type)) {
    reader.kind();
    putKind(next);
    const bool isReal = type == ArrayType::DOUBLE || type == ArrayType::SINGLE;
    return isReal ? putReal(reader.real()) : putInteger(reader.integer());
  }
  array(reader.array());
}

void TapeBuilder::copyContainer(TapeReader& reader) {
  const Tape& tape = reader.tape();
  const ContainerHead head(reader);
  if (head.type == ArrayType::CELL) {
    openCell(head.items, head.grid && !head.grid->isRow() ? &*head.grid : nullptr);
    forEachItem(head, reader, [this](TapeReader& items) {
      element();
      copy(items);
    });
    return closeCell();
  }
  ShapeReader names(tape, head.shape);
  ShapeBytes bytes(names.className(), names.names());
  for (size_t i = names.names(); i > 0; --i) bytes.add(names.next());
  const uint64_t number = shape(bytes.bytes());
  const auto copyItem = [this](TapeReader& items) { copy(items); };
  if (head.grid && !head.grid->isScalar()) {
    openRecords(head.type, number, *head.grid);
    return forEachItem(head, reader, copyItem);
  }
  openRecord(head.type, number);
  forEachItem(head, reader, [&](TapeReader& items) {
    if (!head.grid) return copy(items);
    // The one value of a name.
    const ContainerHead values(items);
    forEachItem(values, items, copyItem);
  });
  closeRecord();
}

void TapeBuilder::putExtents(const Dimensions& dims) {
  if (dims.isRow()) {
    putCount(0);
    return putCount(dims[1]);
  }
  if (dims.count() == 2 && dims[1] == 1) {
    putCount(1);
    return putCount(dims[0]);
  }
  putCount(dims.count());
  for (size_t i = 0; i < dims.count(); ++i) putCount(dims[i]);
}

void TapeBuilder::putKind(uint8_t kind, uint64_t number) {
  if (isMatching_) {
    const uint8_t* at = kinds_.data() + position_;
    if (*at++ == kind && readVarint(at) == number) {
      position_ = static_cast<size_t>(at - kinds_.data());
      return;
    }
    widen();
  }
  kinds_.push(kind);
  putKindsNumber(number);
}

void TapeBuilder::openCell(size_t count, const Dimensions* grid) {
  enter();
  if (grid) {
    putKind(kind::kGrid);
    putExtents(*grid);
  }
  if (isMatching_) {
    if (matchCell(count, grid != nullptr)) return;
    widen();
  }
  const size_t start = kinds_.size();
  const bool isRun = count >= 2;
  frames_.push_back({start, start + 1, 0, 0, count, counts_.size(),
                     isRun ? Mode::kFirst : Mode::kPlain, grid != nullptr, false});
  if (!isRun) return putKind(kCell, count);
  kinds_.push(kind::kRun);
  if (!grid) putCount(count);
}

// Whether a cell goes with the pattern; it is open then.
bool TapeBuilder::matchCell(size_t count, bool isGrid) {
  const uint8_t* at = kinds_.data() + position_;
  const auto positionOf = [this](const uint8_t* kinds) {
    return static_cast<size_t>(kinds - kinds_.data());
  };
  if (*at == kind::kRun) {
    const uint64_t length = readVarint(++at);
    if (count == 0 && !mayStayUnread(length)) return false;
    const size_t pattern = positionOf(at);
    frames_.push_back({position_, pattern, pattern + length, 0, count, counts_.size(),
                       Mode::kMatching, isGrid, true});
    if (!isGrid) putCount(count);
    return true;
  }
  if (*at++ != kCell || readVarint(at) != count) return false;
  position_ = positionOf(at);
  frames_.push_back({0, 0, 0, 0, count, 0, Mode::kPlain, isGrid, false});
  return true;
}

// Whether a cell without elements may go with a run of so many kinds. No values pay for them, so
// there must not be many more of them than there are values: at a misfit all are written out.
bool TapeBuilder::mayStayUnread(uint64_t kinds) {
  constexpr size_t kSome = 4096;
  unread_ += kinds;
  return unread_ <= kSome + counts_.size() + ints_.size() + reals_.size() + dense_.size() +
                        textLengths_.size() + textSize();
}

// The first element is whole: the others are compared with it from now on, if that is allowed.
void TapeBuilder::endFirst(Frame& frame) {
  if (!isRepeatable(frame.pattern)) return makePlain(frame);
  uint8_t length[kLongestVarint];
  const auto size =
      static_cast<size_t>(writeVarint(kinds_.size() - frame.pattern, length) - length);
  kinds_.insert(frame.pattern, length, size);
  frame.pattern += size;
  frame.patternEnd = kinds_.size();
  frame.mode = Mode::kMatching;
  isMatching_ = true;
  position_ = frame.pattern;
  unread_ = 0;
}

uint8_t TapeBuilder::uniformKindOfRun() {
  Frame& frame = frames_.back();
  if (frame.mode == Mode::kFirst && frame.begun == 0) return 0;
  const uint8_t kind = kinds_.data()[frame.pattern];
  if (kind == kind::kChild || kind >= kCell) return 0;
  if (frame.mode == Mode::kFirst) endFirst(frame);
  position_ = frame.patternEnd;
  return kind;
}

void TapeBuilder::closeCell() {
  Frame& frame = frames_.back();
  if (frame.mode == Mode::kFirst) endFirst(frame);
  if (frame.mode == Mode::kMatching) {
    position_ = frame.patternEnd;
    isMatching_ = frame.isInPattern;
  }
  frames_.pop_back();
  leave();
}

void TapeBuilder::openRecord(ArrayType type, uint64_t shape) {
  enter();
  putKind(kindOf(type), shape);
  lastShape_ = shape;
}

void TapeBuilder::openRecords(ArrayType type, uint64_t shape, const Dimensions& dims) {
  // The cells of values that follow stand for the level of the records.
  requireLevel();
  putKind(kind::kGrid);
  putExtents(dims);
  putKind(kindOf(type), shape);
}

// Of a cell of which one element is there and may be all of a run that says nothing.
void TapeBuilder::makePlain(Frame& frame) {
  const std::string pattern(kinds_.bytes().substr(frame.pattern));
  kinds_.truncate(frame.start);
  kinds_.push(kCell);
  putKindsNumber(frame.count);
  kinds_.append(pattern.data(), pattern.size());
  frame.mode = Mode::kPlain;
  if (!frame.isGrid) removeCount(frames_.size() - 1);
}

void TapeBuilder::removeCount(size_t index) {
  const size_t position = frames_[index].countAt;
  const size_t size = varintSize(frames_[index].count);
  counts_.erase(position, size);
  for (size_t i = index + 1; i < frames_.size(); ++i) {
    if (frames_[i].countAt > position) frames_[i].countAt -= size;
  }
}

// Something does not go with the pattern at the position: from here on kinds are written.
void TapeBuilder::widen() {
  size_t outermost = frames_.size() - 1;
  while (frames_[outermost].mode != Mode::kMatching || frames_[outermost].isInPattern) --outermost;
  const size_t base = frames_[outermost].start;
  const std::string old(kinds_.bytes().substr(base));
  kinds_.truncate(base);
  size_t from = base;  // where old kinds are that have not been copied
  const auto copyOld = [&](size_t begin, size_t end) {
    kinds_.append(old.data() + (begin - base), end - begin);
  };
  for (size_t i = outermost; i < frames_.size(); ++i) {
    Frame& frame = frames_[i];
    if (frame.mode != Mode::kMatching) continue;
    copyOld(from, frame.start);
    const size_t pattern = std::exchange(frame.pattern, kinds_.size() + 1);
    const size_t end = frame.patternEnd;
    frame.start = kinds_.size();
    frame.isInPattern = false;
    if (frame.begun <= 1 && frame.count >= 2) {
      frame.mode = Mode::kFirst;
      kinds_.push(kind::kRun);
    } else {
      frame.mode = Mode::kPlain;
      kinds_.push(kCell);
      putKindsNumber(frame.count);
      for (size_t done = 1; done < frame.begun; ++done) copyOld(pattern, end);
      if (!frame.isGrid) removeCount(i);
    }
    from = pattern;
  }
  copyOld(from, position_);
  isMatching_ = false;
}

// Whether elements may be read again and again from the kinds of one, which end where all kinds do:
// each must use values enough, or a short message could stand for any number of objects.
bool TapeBuilder::isRepeatable(size_t pattern) const {
  const uint8_t* at = kinds_.data() + pattern;
  const uint8_t* end = kinds_.data() + kinds_.size();
  size_t values = 0;
  size_t skipped = 0;
  while (at != end) {
    const uint8_t kind = *at++;
    if (kind == kCell || isRecord(kind)) {
      readVarint(at);
      continue;
    }
    ++values;
    if (kind == kind::kDense) ++at;
    if (kind != kind::kRun) continue;
    const uint64_t length = readVarint(at);
    at += length;
    skipped += length;
  }
  return static_cast<size_t>(end - kinds_.data()) - pattern - skipped <= kKindsAValue * values;
}

std::string_view TapeBuilder::shapeBytes(uint64_t number) const {
  const size_t from = shapeOffsets_[number - 1];
  const size_t to = number < shapeOffsets_.size() ? shapeOffsets_[number] : shapes_.size();
  return shapes_.bytes().substr(from, to - from);
}

// Where a shape stands in the table, or would.
size_t TapeBuilder::shapeSlot(std::string_view bytes) const {
  size_t at = seededHash(bytes) & (shapeTable_.size() - 1);
  while (shapeTable_[at] != 0 && shapeBytes(shapeTable_[at]) != bytes) {
    at = (at + 1) & (shapeTable_.size() - 1);
  }
  return at;
}

uint64_t TapeBuilder::shape(std::string_view bytes) {
  constexpr size_t kFew = 8;  // are as well compared one by one
  if (bytes.size() == 2 && bytes[0] == 0 && bytes[1] == 0) return 0;
  const size_t count = shapeOffsets_.size();
  if (count < kFew) {
    for (uint64_t number = 1; number <= count; ++number) {
      if (shapeBytes(number) == bytes) return number;
    }
  } else {
    if (shapeTable_.size() < 2 * (count + 1)) {
      shapeTable_.assign(std::max(4 * kFew, 2 * shapeTable_.size()), 0);
      for (uint64_t number = 1; number <= count; ++number) {
        shapeTable_[shapeSlot(shapeBytes(number))] = static_cast<uint32_t>(number);
      }
    }
    uint32_t& known = shapeTable_[shapeSlot(bytes)];
    if (known != 0) return known;
    known = static_cast<uint32_t>(count + 1);
  }
  if (shapes_.size() + bytes.size() > UINT32_MAX) throw std::bad_alloc();
  shapeOffsets_.push_back(static_cast<uint32_t>(shapes_.size()));
  shapes_.append(bytes.data(), bytes.size());
  return count + 1;
}

uint64_t TapeBuilder::expectedShape() const {
  if (!isMatching_ || position_ == kinds_.size()) return lastShape_;
  const uint8_t* at = kinds_.data() + position_;
  return *at++ == kStruct ? readVarint(at) : lastShape_;
}

void TapeBuilder::settle() {
  for (; settled_ < children_.size(); ++settled_) {
    Array& child = children_[settled_];
    if (isDense(child.getType()) && !child.impl().buffer().isSettled()) {
      child = makeDense(child.getType(), child.dimensions(), child.impl().buffer().settled());
    }
  }
}

void TapeBuilder::copyText(uint8_t* out) const {
  size_t from = 0;
  for (const LentText& lent : lentTexts_) {
    std::memcpy(out, text_.data() + from, lent.position - from);
    out += lent.position - from;
    lent.bytes.copyTo(out);
    out += lent.bytes.size();
    from = lent.position;
  }
  if (text_.size() > from) std::memcpy(out, text_.data() + from, text_.size() - from);
}

ArrayType TapeBuilder::outermostType() const {
  const uint8_t* kinds = kinds_.data();
  return *kinds == kind::kChild ? children_.front().getType() : typeOf(kinds);
}

namespace {

class OwnChildren final : public Children {
 public:
  explicit OwnChildren(std::vector<Array> arrays) : arrays_(std::move(arrays)) {}
  Array take(size_t& position, const Tape&) const override { return arrays_[position++]; }
  void skip(size_t& position) const override { ++position; }

 private:
  std::vector<Array> arrays_;
};

}  // namespace

std::shared_ptr<const Tape> TapeBuilder::finish() {
  auto tape = std::make_shared<Tape>();
  std::vector<uint32_t>().swap(shapeTable_);
  const size_t size = kinds_.size() + counts_.size() + ints_.size() + reals_.size() +
                      dense_.size() + textLengths_.size() + textSize() + shapes_.size();
  Buffer buffer = Buffer::uninitialized(size);
  const auto storage = buffer.toStorage();
  auto* out = reinterpret_cast<char*>(const_cast<std::byte*>(storage->data()));
  const auto place = [&out](const ByteStream& stream) {
    std::memcpy(out, stream.data(), stream.size());
    const std::string_view placed(out, stream.size());
    out += stream.size();
    return placed;
  };
  tape->kinds = place(kinds_);
  tape->counts = place(counts_);
  tape->ints = place(ints_);
  tape->reals = place(reals_);
  tape->dense = place(dense_);
  tape->textLengths = place(textLengths_);
  tape->shapes = place(shapes_);
  copyText(reinterpret_cast<uint8_t*>(out));
  tape->text = {out, textSize()};
  tape->shapeOffsets.reserve(shapeOffsets_.size());
  for (const uint32_t offset : shapeOffsets_) tape->shapeOffsets.push_back(offset);
  tape->repeatsTexts = texts_.hasRepeated();
  tape->isTextChecked = true;
  tape->owner = storage;
  if (!children_.empty()) tape->children = std::make_shared<OwnChildren>(std::move(children_));
  return tape;
}

ShapeBytes::ShapeBytes(std::string_view className, size_t names) {
  putNumber(className.size());
  bytes_.append(className.data(), className.size());
  putNumber(names);
}

ShapeBytes::ShapeBytes(std::string_view className, std::initializer_list<std::string_view> names)
    : ShapeBytes(className, names.size()) {
  for (const std::string_view name : names) add(name);
}

void ShapeBytes::add(std::string_view name) {
  putNumber(name.size());
  bytes_.append(name.data(), name.size());
}

}  // namespace foundation::zorvandata
