#include "zorvandata/tape_reader.h"

#include <complex>
#include <string>

#include "zorvandata/array_impl.h"
#include "zorvandata/exception.h"
#include "zorvandata/items.h"
#include "zorvandata/tape_builder.h"
#include "zorvandata/text.h"

namespace foundation::zorvandata {
namespace {

const uint8_t* bytesOf(std::string_view stream) {
  return reinterpret_cast<const uint8_t*>(stream.data());
}

template <class T>
Array makeNumber(ArrayType type, T value) {
  return makeScalar(type, &value);
}

template <class T>
Array makeComplexInteger(ArrayType type, int64_t real, int64_t imaginary) {
  return makeNumber(type, std::complex<T>(static_cast<T>(real), static_cast<T>(imaginary)));
}

Array makeInteger(ArrayType type, int64_t value) {
  // Little-endian: the low bytes are those of the narrower type.
  return makeScalar(type, &value);
}

}  // namespace

TapeReader::TapeReader(const Tape& tape)
    : tape_(&tape),
      kinds_(bytesOf(tape.kinds)),
      counts_(bytesOf(tape.counts)),
      ints_(bytesOf(tape.ints)),
      reals_(tape.reals.data()),
      dense_(tape.dense.data()),
      textLengths_(bytesOf(tape.textLengths)),
      text_(tape.text.data()) {}

std::optional<std::string_view> TapeReader::text() {
  const uint64_t code = textCode();
  if (isNumber(code)) return numberedText(code);
  if (isMissing(code)) return std::nullopt;
  return spelled(code);
}

void TapeReader::skipText() {
  const uint64_t code = textCode();
  if (!isNumber(code) && !isMissing(code)) spelled(code);
}

std::optional<std::string_view> TapeReader::checkedText() {
  const auto utf8 = text();
  if (utf8 && !tape_->isTextChecked) checkUtf8(*utf8);
  return utf8;
}

Dimensions TapeReader::extents() {
  const uint64_t count = this->count();
  if (count == 0) return Dimensions::row(this->count());
  if (count == 1) return Dimensions(this->count(), 1);
  if (count == 2) {
    const size_t rows = this->count();
    return Dimensions(rows, this->count());
  }
  std::vector<size_t> extents(count);
  for (size_t& extent : extents) extent = this->count();
  return Dimensions(extents);
}

ArrayType TapeReader::type() const {
  if (peek() != kind::kChild) return typeOf(kinds_);
  TapeReader copy = *this;
  copy.kind();
  return copy.child().getType();
}

ContainerHead::ContainerHead(TapeReader& reader) {
  uint8_t next = reader.kind();
  if (next == kind::kGrid) {
    grid = reader.extents();
    next = reader.kind();
  }
  if (next == kind::kRun) {
    isRun = true;
    const uint64_t length = reader.number();
    end = reader.mark() + length;
    items = grid ? grid->elements() : reader.count();
  } else if (next == kindOf(ArrayType::CELL)) {
    items = reader.number();
  } else {
    type = static_cast<ArrayType>(next);
    shape = reader.number();
    items = ShapeReader(reader.tape(), shape).names();
  }
}

void TapeReader::skip() {
  if (isContainer(peek())) {
    const ContainerHead head(*this);
    if (head.isRun && mark() + 1 == head.end && peek() == kindOf(ArrayType::DOUBLE)) {
      reals(head.items);
      return moveTo(head.end);
    }
    return forEachItem(head, *this, [](TapeReader& items) { items.skip(); });
  }
  const uint8_t next = kind();
  const auto type = static_cast<ArrayType>(next);
  switch (next) {
    case kind::kChild:
      return tape_->children->skip(child_);
    case kind::kDense: {
      const auto elementType = static_cast<ArrayType>(kind());
      dense(extents().elements() * elementSize(elementType));
      return;
    }
    case kind::kStrings:
      for (size_t i = extents().elements(); i > 0; --i) skipText();
      return;
    default:
      break;
  }
  switch (type) {
    case ArrayType::CHAR:
    case ArrayType::ZORVAN_STRING:
      return skipText();
    case ArrayType::COMPLEX_DOUBLE:
    case ArrayType::COMPLEX_SINGLE:
      real();
      [[fallthrough]];
    case ArrayType::DOUBLE:
    case ArrayType::SINGLE:
      real();
      return;
    default:
      if (isComplex(type)) integer();
      integer();
  }
}

Array TapeReader::scalar(ArrayType type) {
  switch (type) {
    case ArrayType::DOUBLE:
      return makeNumber(type, real());
    case ArrayType::SINGLE:
      return makeNumber(type, static_cast<float>(real()));
    case ArrayType::COMPLEX_DOUBLE: {
      const double first = real();
      return makeNumber(type, std::complex<double>(first, real()));
    }
    case ArrayType::COMPLEX_SINGLE: {
      const auto first = static_cast<float>(real());
      return makeNumber(type, std::complex<float>(first, static_cast<float>(real())));
    }
    default:
      break;
  }
  const int64_t value = integer();
  if (!isComplex(type)) return makeInteger(type, value);
  const int64_t imaginary = integer();
  switch (elementSize(type) / 2) {
    case 1:
      return makeComplexInteger<int8_t>(type, value, imaginary);
    case 2:
      return makeComplexInteger<int16_t>(type, value, imaginary);
    case 4:
      return makeComplexInteger<int32_t>(type, value, imaginary);
    default:
      return makeComplexInteger<int64_t>(type, value, imaginary);
  }
}

Array TapeReader::container() const {
  TapeReader reader = *this;
  const ContainerHead head(reader);
  auto tape = tape_->share();
  const auto layout = head.type == ArrayType::CELL ? nullptr : tape_->layout(head.shape);
  if (!head.grid || head.type == ArrayType::CELL) {
    Items items(TapeItems(std::move(tape), reader, head.isRun, head.items));
    return makeArray(head.type, head.dimensions(), std::move(items), layout);
  }
  std::vector<TapeItems> fields;
  fields.reserve(head.items);
  for (size_t i = 0; i < head.items; ++i) {
    TapeReader values = reader;
    const ContainerHead field(values);
    fields.emplace_back(tape, values, field.isRun, field.items);
    reader.skip();
  }
  return makeArray(head.type, *head.grid, Items(std::move(fields)), layout);
}

Array TapeReader::arrayHere() const {
  if (isContainer(peek())) return container();
  TapeReader reader = *this;
  return reader.array();
}

Array TapeReader::array() {
  if (isContainer(peek())) {
    Array array = container();
    skip();
    return array;
  }
  const uint8_t next = kind();
  switch (next) {
    case kind::kChild:
      return child();
    case kind::kDense: {
      const auto type = static_cast<ArrayType>(kind());
      const Dimensions dims = extents();
      const size_t size = dims.elements() * elementSize(type);
      return makeDense(type, dims, Buffer::copyOf(dense(size), size));
    }
    case kind::kStrings: {
      const Dimensions dims = extents();
      TextsBuilder texts;
      for (size_t i = dims.elements(); i > 0; --i) texts.append(checkedText());
      return makeArray(ArrayType::ZORVAN_STRING, dims, texts.finish());
    }
    default:
      break;
  }
  const auto type = static_cast<ArrayType>(next);
  if (type == ArrayType::CHAR) return makeCharRow(toUtf16(*text()));
  if (type != ArrayType::ZORVAN_STRING) return scalar(type);
  return makeArray(type, Dimensions::scalar(), Texts::of({checkedText()}));
}

RecordReader::RecordReader(TapeReader& reader) {
  const ContainerHead head(reader);
  ShapeReader names(reader.tape(), head.shape);
  for (size_t i = head.items; i > 0; --i) {
    values_.push_back({names.next(), reader});
    reader.skip();
  }
}

RecordReader::RecordReader(const Array& record) : record_(record) {
  if (record.impl().items().onTape().empty() && record.impl().items().size() > 0) {
    TapeBuilder builder;
    builder.array(record);
    record_ = TapeReader(*builder.finish()).array();
  }
  const std::vector<TapeItems>& parts = record_.impl().items().onTape();
  size_t i = 0;
  for (const std::string& name : record_.impl().layout()->names) {
    values_.push_back({name, parts[i / parts.front().size()].at(i % parts.front().size())});
    ++i;
  }
}

const TapeReader* RecordReader::find(std::string_view name) const {
  for (const Value& value : values_) {
    if (value.name == name) return &value.reader;
  }
  return nullptr;
}

}  // namespace foundation::zorvandata
