#include "message/array_message.h"

#include <algorithm>
#include <optional>
#include <vector>

#include "message/field_reader.h"
#include "message/fields.h"
#include "zorvandata/array_impl.h"
#include "zorvandata/distinct_names.h"
#include "zorvandata/exception.h"
#include "zorvandata/limits.h"
#include "zorvandata/require.h"
#include "zorvandata/tape_check.h"
#include "zorvandata/text.h"

namespace foundation::protobuf {
namespace {

using namespace zorvandata;   // NOLINT: the vocabulary of this file
using namespace array_field;  // NOLINT: the vocabulary of this file

// Reads fields that stand once, each at its place in a table of views.
template <size_t kCount>
class Fields {
 public:
  bool has(int field) const { return (seen_ >> field & 1) != 0; }
  std::string_view operator[](int field) const { return views_[static_cast<size_t>(field)]; }
  // The field must be one of bytes, and not stand twice; one that is cut does not count.
  void put(const FieldReader& reader) {
    require(reader.isMessage(), "a field has another wire type");
    if (reader.cut()) return;
    mark(reader.number());
    views_[static_cast<size_t>(reader.number())] = reader.bytes();
  }
  void mark(int field) {
    require(!has(field), "a field stands twice");
    seen_ |= 1u << field;
  }
  void markAgain(int field) { seen_ |= 1u << field; }
  unsigned seen() const { return seen_; }

 private:
  std::string_view views_[kCount + 1];
  unsigned seen_ = 0;
};

void checkPadding(const FieldReader& reader) {
  require(reader.number() != kPadding || reader.isMessage(), "a field has another wire type");
}

struct ArrayFields : Fields<kRef> {
  ArrayType type = ArrayType::UNKNOWN;
  size_t elements = 0;
  size_t names = 0;
  size_t children = 0;
};

// Numbers of a packed field.
class Numbers {
 public:
  explicit Numbers(std::string_view bytes) : cursor_(bytes) {}
  bool atEnd() const { return cursor_.atEnd(); }
  uint64_t next() {
    uint64_t value = 0;
    require(cursor_.readVarint(value), "a field of numbers breaks off");
    return value;
  }

 private:
  ByteCursor cursor_;
};

// How many by the dimensions. Of these there may be any number, so they are not gathered before
// somebody needs them.
size_t elementsOf(Numbers extents) {
  size_t product = 1;
  bool isEmpty = false;
  while (!extents.atEnd()) {
    const size_t extent = extents.next();
    isEmpty = isEmpty || extent == 0;
    product = Dimensions(product, std::max(extent, size_t{1})).elements();
  }
  return isEmpty ? 0 : product;
}

std::vector<size_t> numbersOf(std::string_view bytes) {
  std::vector<size_t> values;
  for (Numbers numbers(bytes); !numbers.atEnd();) values.push_back(numbers.next());
  return values;
}

Dimensions dimensionsOf(const ArrayFields& fields) {
  Numbers extents(fields[kDims]);
  if (extents.atEnd()) return Dimensions::scalar();
  const size_t first = extents.next();
  if (extents.atEnd()) return Dimensions(1, first);
  const size_t second = extents.next();
  if (extents.atEnd()) return Dimensions(first, second);
  return Dimensions(numbersOf(fields[kDims]));
}

ArrayType typeOf(uint64_t code) {
  if (code > INT32_MAX || !isKnownCode(static_cast<int64_t>(code))) throw EArrayUnknownDataType();
  return static_cast<ArrayType>(code);
}

// The fields that a type uses besides its type, dimensions and padding.
unsigned usedFields(ArrayType type) {
  const auto set = [](std::initializer_list<int> fields) {
    unsigned bits = 0;
    for (const int field : fields) bits |= 1u << field;
    return bits;
  };
  if (isDense(type)) return set({kElements});
  if (isSparse(type)) return set({kElements, kRows, kColStarts});
  switch (type) {
    case ArrayType::ZORVAN_STRING:
      return set({kTextLen, kText});
    case ArrayType::CELL:
      return set({kChildren, kTape});
    case ArrayType::STRUCT:
      return set({kNames, kChildren, kTape});
    case ArrayType::OBJECT:
    case ArrayType::VALUE_OBJECT:
      return set({kClassName, kNames, kChildren, kTape});
    case ArrayType::HANDLE_OBJECT_REF:
      return set({kClassName, kRef});
    case ArrayType::ENUMERATION:
      return set({kClassName, kTextLen, kText});
    default:
      return 0;
  }
}

void readFields(const MessageBytes& message, ArrayFields& fields) {
  FieldReader reader(message.bytes);
  while (reader.next()) {
    const int number = reader.number();
    if (number == kType) {
      require(reader.isVarint(), "a field has another wire type");
      fields.mark(kType);
      fields.type = typeOf(reader.value());
    } else if (number == kNames || number == kChildren) {
      require(reader.isMessage(), "a field has another wire type");
      if (number == kNames && reader.cut()) continue;
      ++(number == kNames ? fields.names : fields.children);
      fields.markAgain(number);
    } else if (number <= kRef) {
      fields.put(reader);
    } else {
      checkPadding(reader);
    }
  }
  require(message.cut || !reader.broken(), "its fields break off");
  constexpr unsigned kAlways = 1u << kType | 1u << kDims;
  require((fields.seen() & ~(usedFields(fields.type) | kAlways)) == 0,
          "a field stands that its type does not use");
  fields.elements = elementsOf(Numbers(fields[kDims]));
}

void checkPayload(ArrayType type, size_t count, std::string_view elements) {
  size_t bytes = 0;
  if (__builtin_mul_overflow(count, elementSize(type), &bytes) || bytes != elements.size()) {
    throw InvalidDimensionsException("they do not match the payload");
  }
  if (type == ArrayType::LOGICAL) checkLogicals(elements);
}

void checkSparse(const ArrayFields& fields) {
  const Dimensions dims = dimensionsOf(fields);
  require(dims.count() == 2, "a sparse array has two dimensions");
  Numbers rows(fields[kRows]);
  Numbers starts(fields[kColStarts]);
  uint64_t from = starts.next();
  require(from == 0, "column starts begin elsewhere");
  for (uint64_t column = 0; column < dims[1]; ++column) {
    const uint64_t to = starts.next();
    require(to >= from, "column starts do not ascend");
    for (uint64_t least = 0; from < to; ++from) {
      const uint64_t row = rows.next();
      require(row >= least && row < dims[0], "the rows of a column do not ascend");
      least = row + 1;
    }
  }
  require(starts.atEnd() && rows.atEnd(), "the sparse array's parts do not fit together");
  checkPayload(sparseValueType(fields.type), from, fields[kElements]);
}

// Whether any of the codes is a number.
bool areRepeated(std::string_view codes) {
  unsigned char all = 0;
  for (const char byte : codes) all |= static_cast<unsigned char>(byte);
  if (all < 0x80) return (all & 1) != 0;
  for (Numbers numbers(codes); !numbers.atEnd();) {
    if (TapeReader::isNumber(numbers.next())) return true;
  }
  return false;
}

// Texts of an array; `mayMiss` is true for strings.
void checkTexts(const ArrayFields& fields, bool mayMiss) {
  checkTextCodes(fields[kTextLen], fields[kText], fields.elements, mayMiss);
  zorvandata::checkTexts(fields[kTextLen], fields[kText]);
}

// The next repeated field of that number, which must be there, from a position on that moves past
// it.
MessageBytes nextField(const MessageBytes& message, int field, size_t& position) {
  FieldReader reader(message.bytes.substr(position));
  while (reader.next() && !(reader.number() == field && reader.isMessage())) continue;
  position = message.bytes.size() - reader.left();
  return {reader.bytes(), reader.cut()};
}

// Calls read(MessageBytes) for every repeated field of that number.
template <class Read>
void forEachField(const MessageBytes& message, int field, const Read& read) {
  FieldReader reader(message.bytes);
  while (reader.next()) {
    if (reader.number() == field && reader.isMessage())
      read(MessageBytes{reader.bytes(), reader.cut()});
  }
}

// Class and names, which were made sure of.
std::shared_ptr<const Layout> layoutOf(const MessageBytes& message, const ArrayFields& fields) {
  auto layout = std::make_shared<Layout>();
  layout->className = fields[kClassName];
  layout->names.reserve(fields.names);
  forEachField(message, kNames, [&layout](const MessageBytes& name) {
    if (!name.cut) layout->names.emplace_back(name.bytes);
  });
  return layout;
}

void checkNames(const MessageBytes& message, const ArrayFields& fields) {
  checkUtf8(fields[kClassName]);
  forEachField(message, kNames, [](const MessageBytes& name) {
    if (name.cut) return;
    if (name.bytes.empty()) throw InvalidFieldNameException("a name is empty");
    checkUtf8(name.bytes);
  });
  const bool areDistinct = zorvandata::areDistinct(0, fields.names, [&message](size_t& position) {
    return nextField(message, kNames, position).bytes;
  });
  if (!areDistinct) throw InvalidFieldNameException("a name stands twice");
}

// Where the items of an array are that was made sure of but for them.
struct ItemsPlace {
  size_t count = 0;
  std::optional<std::string_view> tape;  // otherwise they are children
};

ItemsPlace itemsPlace(const MessageBytes& message, const ArrayFields& fields) {
  size_t count = fields.elements;
  if (fields.type != ArrayType::CELL) {
    checkNames(message, fields);
    if (__builtin_mul_overflow(count, fields.names, &count)) {
      throw InvalidDimensionsException("they do not match the items");
    }
  }
  if (fields.has(kTape)) {
    require(fields.children == 0, "items lie both in children and on a tape");
    return {count, fields[kTape]};
  }
  require(fields.children == count, "the dimensions do not match the items");
  return {count, std::nullopt};
}

// Arrays that lie in a field of a message.
class MessageChildren final : public Children {
 public:
  MessageChildren(std::string_view message, int field) : message_(message), field_(field) {}

  Array take(size_t& position, const Tape& tape) const override {
    return makeArray(next(position), tape.share());
  }
  void skip(size_t& position) const override { next(position); }
  MessageBytes next(size_t& position) const {
    return nextField({message_, false}, field_, position);
  }

 private:
  std::string_view message_;
  int field_;
};

class ChildrenOfTape final : public ChildChecker {
 public:
  // `areChecked` for those that were made sure of before.
  ChildrenOfTape(std::string_view message, size_t count, bool areChecked)
      : source_(message, tape_field::kChildren), left_(count), areChecked_(areChecked) {}

  const MessageChildren& source() const { return source_; }
  size_t left() const { return left_; }
  void next(int level) override {
    require(left_ > 0, "a tape has too few children");
    --left_;
    if (!areChecked_) checkArray(source_.next(position_), level);
  }

 private:
  MessageChildren source_;
  size_t left_;
  bool areChecked_;
  size_t position_ = 0;
};

// Of the message's own bytes if they lie at an address that elements may have.
Buffer bufferOf(std::string_view elements, size_t size, const std::shared_ptr<const Tape>& owner) {
  const bool isAligned = reinterpret_cast<uintptr_t>(elements.data()) % size == 0;
  if (!isAligned || elements.size() < kAlignedFrom) {
    return Buffer::copyOf(elements.data(), elements.size());
  }
  return Buffer::lent(owner, elements.data(), elements.size());
}

// The streams of a tape; returns how many children it has. Takes no room on the stack while these
// are made sure of.
[[gnu::noinline]] size_t fillStreams(const MessageBytes& message, Tape& tape) {
  Fields<tape_field::kChildren> fields;
  FieldReader reader(message.bytes);
  size_t children = 0;
  while (reader.next()) {
    if (reader.number() == tape_field::kChildren) {
      require(reader.isMessage(), "a field has another wire type");
      ++children;
    } else if (reader.number() < tape_field::kChildren) {
      fields.put(reader);
    } else {
      checkPadding(reader);
    }
  }
  require(message.cut || !reader.broken(), "its fields break off");
  tape.kinds = fields[tape_field::kKinds];
  tape.counts = fields[tape_field::kCounts];
  tape.ints = fields[tape_field::kInts];
  tape.reals = fields[tape_field::kReals];
  tape.dense = fields[tape_field::kDense];
  tape.textLengths = fields[tape_field::kTextLen];
  tape.text = fields[tape_field::kText];
  tape.shapes = fields[tape_field::kShapes];
  return children;
}

// Of arrays within arrays each would check all within it again, were its children not known.
size_t fillTape(const MessageBytes& message, int level, bool areChildrenChecked, Tape& tape) {
  const size_t children = fillStreams(message, tape);
  ChildrenOfTape checker(message.bytes, children, areChildrenChecked);
  const size_t count = checkTape(tape, level, checker);
  require(checker.left() == 0, "a tape has too many children");
  if (children > 0) tape.children = std::make_shared<MessageChildren>(checker.source());
  return count;
}

// All of an array but its items. Takes no room on the stack while these are made sure of.
[[gnu::noinline]] std::optional<ItemsPlace> checkAllButItems(const MessageBytes& message) {
  ArrayFields fields;
  readFields(message, fields);
  const ArrayType type = fields.type;
  if (isDense(type)) {
    checkPayload(type, fields.elements, fields[kElements]);
  } else if (isSparse(type)) {
    checkSparse(fields);
  } else if (type == ArrayType::ZORVAN_STRING || type == ArrayType::ENUMERATION) {
    checkUtf8(fields[kClassName]);
    checkTexts(fields, type == ArrayType::ZORVAN_STRING);
  } else if (type == ArrayType::HANDLE_OBJECT_REF) {
    checkUtf8(fields[kClassName]);
    Numbers references(fields[kRef]);
    for (size_t i = fields.elements; i > 0; --i) references.next();
    require(references.atEnd(), "the dimensions do not match the references");
  } else if (type != ArrayType::UNKNOWN) {
    return itemsPlace(message, fields);
  }
  return std::nullopt;
}

Items itemsOf(const MessageBytes& message, const ArrayFields& fields,
              const std::shared_ptr<const Tape>& owner) {
  auto tape = std::make_shared<Tape>();
  if (fields.has(array_field::kTape)) {
    fillTape({fields[array_field::kTape], false}, 1, true, *tape);
  } else {
    readChildren(message, kChildren, fields.children, *tape);
  }
  tape->checkTexts();
  tape->owner = owner;
  TapeReader reader(*tape);
  const ContainerHead head(reader);
  return Items(TapeItems(tape, reader, head.isRun, head.items));
}

}  // namespace

void checkArray(const MessageBytes& message, int level) {
  if (level > kMaxNesting) throw NestingTooDeepException();
  const std::optional<ItemsPlace> items = checkAllButItems(message);
  if (!items) return;
  if (!items->tape) return checkArrays(message, kChildren, level + 1);
  const auto tape = std::make_unique<Tape>();
  require(readTape({*items->tape, false}, level, *tape) == items->count,
          "the dimensions do not match the items");
}

void checkArrays(const MessageBytes& message, int field, int level) {
  forEachField(message, field, [level](const MessageBytes& array) { checkArray(array, level); });
}

Array makeArray(const MessageBytes& message, const std::shared_ptr<const Tape>& owner) {
  ArrayFields fields;
  readFields(message, fields);
  const ArrayType type = fields.type;
  const Dimensions dims = dimensionsOf(fields);
  if (isDense(type)) {
    return makeDense(type, dims, bufferOf(fields[kElements], elementSize(type), owner));
  }
  if (isSparse(type)) {
    return makeSparse(type, dims,
                      {numbersOf(fields[kRows]), numbersOf(fields[kColStarts]),
                       Buffer::copyOf(fields[kElements].data(), fields[kElements].size())});
  }
  switch (type) {
    case ArrayType::ZORVAN_STRING:
    case ArrayType::ENUMERATION: {
      const auto lent = [&owner](std::string_view bytes) {
        return bytes.size() < kAlignedFrom ? Buffer::copyOf(bytes.data(), bytes.size())
                                           : Buffer::lent(owner, bytes.data(), bytes.size());
      };
      Texts texts(dims.elements(), lent(fields[kTextLen]), lent(fields[kText]),
                  areRepeated(fields[kTextLen]));
      auto layout = type == ArrayType::ENUMERATION ? layoutOf(message, fields) : nullptr;
      return zorvandata::makeArray(type, dims, std::move(texts), std::move(layout));
    }
    case ArrayType::HANDLE_OBJECT_REF: {
      const std::vector<uint64_t> references = numbersOf(fields[kRef]);
      return zorvandata::makeArray(
          type, dims, Buffer::copyOf(references.data(), references.size() * sizeof(uint64_t)),
          layoutOf(message, fields));
    }
    case ArrayType::UNKNOWN:
      return zorvandata::makeArray(type, dims, Items());
    case ArrayType::CELL:
      return zorvandata::makeArray(type, dims, itemsOf(message, fields, owner));
    default:
      return zorvandata::makeArray(type, dims, itemsOf(message, fields, owner),
                                   layoutOf(message, fields));
  }
}

size_t readTape(const MessageBytes& message, int level, Tape& tape) {
  return fillTape(message, level, false, tape);
}

void readChildren(const MessageBytes& message, int field, size_t count, Tape& tape) {
  uint8_t head[1 + kLongestVarint] = {kindOf(ArrayType::CELL)};
  const auto size = static_cast<size_t>(writeVarint(count, head + 1) - head);
  auto kinds = std::make_shared<std::string>();
  kinds->reserve(size + count);
  kinds->append(reinterpret_cast<const char*>(head), size);
  kinds->append(count, static_cast<char>(kind::kChild));
  tape.kinds = *kinds;
  tape.kindsOwner = std::move(kinds);
  tape.children = std::make_shared<MessageChildren>(message.bytes, field);
}

}  // namespace foundation::protobuf
