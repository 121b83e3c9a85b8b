#include "tape_values.h"

#include <gtest/gtest.h>

#include <cstring>
#include <iterator>
#include <type_traits>

#include "zorvandata/array_impl.h"
#include "zorvandata/exception.h"
#include "zorvandata/tape_check.h"
#include "zorvandata/text.h"

namespace values {

using namespace foundation::zorvandata;  // NOLINT: the vocabulary of this file

namespace {

Value denseValue(ArrayType type, std::vector<size_t> dims, const void* elements, size_t size) {
  Value value;
  value.type = type;
  value.dims = std::move(dims);
  value.elements.assign(static_cast<const char*>(elements), size);
  return value;
}

}  // namespace

Value charRow(std::u16string_view units) {
  return denseValue(ArrayType::CHAR, {1, units.size()}, units.data(), 2 * units.size());
}

Value number(double value) { return denseValue(ArrayType::DOUBLE, {1, 1}, &value, sizeof(value)); }

Value cell(std::vector<Value> items) {
  Value value;
  value.dims = {1, items.size()};
  value.items = std::move(items);
  return value;
}

Array toArray(const Value& value) {
  const Dimensions dims(value.dims);
  if (isDense(value.type)) {
    return makeDense(value.type, dims,
                     Buffer::copyOf(value.elements.data(), value.elements.size()));
  }
  if (value.type == ArrayType::ZORVAN_STRING) {
    TextsBuilder texts;
    for (const auto& text : value.texts) texts.append(text);
    return makeArray(value.type, dims, texts.finish());
  }
  std::vector<Array> items;
  for (const Value& item : value.items) items.push_back(toArray(item));
  const auto layout =
      value.type == ArrayType::CELL ? nullptr : makeLayout(value.className, value.names);
  return makeArray(value.type, dims, Items(std::move(items)), layout);
}

Value valueOf(const Array& array) {
  const ArrayImpl& impl = array.impl();
  Value value;
  value.type = impl.type();
  value.dims = impl.dimensions().toVector();
  if (isDense(value.type)) {
    value.elements.assign(reinterpret_cast<const char*>(impl.buffer().data()),
                          impl.buffer().size());
  } else if (value.type == ArrayType::ZORVAN_STRING) {
    impl.texts().forEach([&](const auto& text) { value.texts.emplace_back(text); });
  } else {
    // From the end, which a tape is not made for.
    value.items.resize(impl.items().size());
    for (size_t i = value.items.size(); i-- > 0;) value.items[i] = valueOf(impl.items().get(i));
  }
  if (impl.layout()) value.className = impl.layout()->className;
  if (impl.layout()) value.names = impl.layout()->names;
  return value;
}

Value read(TapeReader& reader) {
  static_assert(std::has_unique_object_representations_v<TapeReader>);
  TapeReader skipped = reader;
  skipped.skip();
  const ArrayType type = reader.type();
  Value value;
  if (isContainer(reader.peek())) {
    const ContainerHead head(reader);
    value.type = head.type;
    value.dims = head.dimensions().toVector();
    if (head.type != ArrayType::CELL) {
      ShapeReader shape(reader.tape(), head.shape);
      value.className = shape.className();
      for (size_t i = shape.names(); i > 0; --i) value.names.emplace_back(shape.next());
    }
    forEachItem(head, reader, [&](TapeReader& items) {
      Value item = read(items);
      if (head.type == ArrayType::CELL || !head.grid) return value.items.push_back(std::move(item));
      for (Value& one : item.items) value.items.push_back(std::move(one));
    });
  } else {
    value = valueOf(reader.array());
  }
  EXPECT_EQ(value.type, type);
  EXPECT_EQ(std::memcmp(&skipped, &reader, sizeof(reader)), 0);
  return value;
}

// ---- writing ----

namespace {

// Elements of one kind without element(), as loops over them may.
size_t putUniform(TapeBuilder& builder, const Value* item, const Value* end) {
  const uint8_t kind = builder.uniformKind();
  const Value* at = item;
  for (; at != end && kindOf(at->type) == kind; ++at) {
    const Dimensions dims(at->dims);
    if (at->type == ArrayType::DOUBLE && dims.isScalar()) {
      double value = 0;
      std::memcpy(&value, at->elements.data(), sizeof(value));
      builder.putReal(value);
    } else if (at->type == ArrayType::CHAR && dims.isRow()) {
      builder.texts().append(
          toUtf8({reinterpret_cast<const char16_t*>(at->elements.data()), dims[1]}));
    } else {
      break;
    }
  }
  builder.countElements(static_cast<size_t>(at - item));
  return static_cast<size_t>(at - item);
}

void buildItems(TapeBuilder& builder, const Value* items, size_t count) {
  for (size_t i = 0; i < count;) {
    if (count % 2 == 0) i += putUniform(builder, items + i, items + count);
    if (i == count) break;
    builder.element();
    build(builder, items[i++]);
  }
  builder.closeCell();
}

void buildRecord(TapeBuilder& builder, const Value& value, const Dimensions& dims) {
  ShapeBytes bytes(value.className, value.names.size());
  for (const std::string& name : value.names) bytes.add(name);
  const uint64_t shape = builder.shape(bytes.bytes());
  if (dims.isScalar()) {
    builder.openRecord(value.type, shape);
    for (const Value& item : value.items) build(builder, item);
    builder.closeRecord();
  } else {
    builder.openRecords(value.type, shape, dims);
    for (size_t i = 0; i < value.names.size(); ++i) {
      builder.openCell(dims.elements());
      buildItems(builder, value.items.data() + i * dims.elements(), dims.elements());
    }
  }
}

}  // namespace

void build(TapeBuilder& builder, const Value& value) {
  const Dimensions dims(value.dims);
  if (value.type == ArrayType::CELL) {
    dims.isRow() ? builder.openCell(dims.elements()) : builder.openGrid(dims);
    return buildItems(builder, value.items.data(), value.items.size());
  }
  if (!value.names.empty() || !value.className.empty() || value.type == ArrayType::STRUCT) {
    return buildRecord(builder, value, dims);
  }
  if (value.type == ArrayType::CHAR && dims.isRow()) {
    const std::string text =
        toUtf8({reinterpret_cast<const char16_t*>(value.elements.data()), dims[1]});
    // Lent or not: nobody can tell from the tape.
    if (text.size() <= kLongestNumberedText) return builder.text(text);
    return builder.lentText(value.type, Buffer::copyOf(text.data(), text.size()));
  }
  if (value.type == ArrayType::ZORVAN_STRING && dims.isScalar())
    return builder.string(value.texts[0]);
  if (value.type == ArrayType::ZORVAN_STRING) {
    builder.openStrings(dims);
    for (const auto& text : value.texts) builder.stringElement(text);
    return;
  }
  if (isDense(value.type) && !dims.isScalar() && value.elements.size() < kDenseBelow) {
    value.elements.copy(reinterpret_cast<char*>(builder.dense(value.type, dims)),
                        value.elements.size());
    return;
  }
  builder.array(toArray(value));
}

// ---- random values ----

Value Generator::any(size_t depth) {
  const auto numberType = [this] { return static_cast<ArrayType>(4 + below(20)); };
  switch (below(depth > 0 ? 12 : 7)) {
    case 0:
    case 1:
      return dense(numberType(), {1, 1});
    case 2:
      return dense(ArrayType::LOGICAL, {1, 1});
    case 3:
      return dense(ArrayType::CHAR, {1, below(60) == 0 ? 300 : below(6)});
    case 4:
      return strings({1, 1});
    case 5:
      return below(4) > 0 ? dense(numberType(), dims()) : dense(ArrayType::CHAR, {2, below(4)});
    case 6:
      return below(20) > 0 ? strings(dims()) : dense(ArrayType::DOUBLE, {600, 1});
    case 7:
    case 8:
      return record(depth);
    default: {
      Value value;
      value.dims = below(4) > 0 ? row() : dims();
      return items(std::move(value), nullptr, depth);
    }
  }
}

Value Generator::record(size_t depth) {
  Value value;
  value.type = static_cast<ArrayType>(codeOf(ArrayType::STRUCT) + below(3));
  if (below(3) == 0) value.dims = dims();
  if (value.type != ArrayType::STRUCT) value.className = "pkg.Thing";
  for (const char* name : {"a", "b", "long name"}) {
    if (below(3) > 0) value.names.emplace_back(name);
  }
  return items(std::move(value), nullptr, depth);
}

Value Generator::like(const Value& other, size_t depth) {
  if (below(14) == 0) return any(depth);
  Value value = other;
  if (value.type == ArrayType::ZORVAN_STRING) return strings(value.dims);
  if (isDense(value.type)) {
    if (value.type == ArrayType::CHAR && value.dims[0] == 1) value.dims[1] = below(6);
    return dense(value.type, value.dims);
  }
  if (value.type == ArrayType::CELL && value.dims[0] == 1) {
    value.dims = row();
  } else if (value.dims[0] != 1) {
    value.dims = dims();
  }
  value.items.clear();
  return items(std::move(value), &other, depth);
}

std::vector<size_t> Generator::dims() {
  if (below(3) > 0) return {below(4), below(3)};
  return {1 + below(2), below(3), 1 + below(2)};
}

Value Generator::items(Value value, const Value* pattern, size_t depth) {
  const size_t within = depth > 0 ? depth - 1 : 0;
  const size_t elements = Dimensions(value.dims).elements();
  const size_t columns = value.type == ArrayType::CELL ? 1 : value.names.size();
  for (size_t i = 0; i < elements * columns; ++i) {
    const size_t column = i / elements;
    if (i % elements > 0) {
      value.items.push_back(like(value.items[column * elements], within));
    } else if (pattern && !pattern->items.empty()) {
      value.items.push_back(like(pattern->items[column * pattern->items.size() / columns], within));
    } else {
      value.items.push_back(any(within));
    }
  }
  return value;
}

Value Generator::dense(ArrayType type, std::vector<size_t> dims) {
  constexpr char16_t kUnits[] = {u'a', 0xD83D, 0xDE00, u'\0', 0xE9, 0x20AC};
  Value value = denseValue(type, std::move(dims), "", 0);
  const ArrayType part = isComplex(type) ? realTypeOf(type) : type;
  const size_t parts = Dimensions(value.dims).elements() * (isComplex(type) ? 2 : 1);
  for (size_t i = 0; i < parts; ++i) {
    uint64_t bits = below(4) > 0 ? below(200) : random_();
    const double real = bits % 50 == 0 ? -0.0 : static_cast<double>(bits >> 41) / 8;
    const auto single = static_cast<float>(real);
    const void* element = &bits;
    if (part == ArrayType::DOUBLE) element = &real;
    if (part == ArrayType::SINGLE) element = &single;
    if (part == ArrayType::CHAR) element = &kUnits[bits % std::size(kUnits)];
    if (part == ArrayType::LOGICAL) bits &= 1;
    value.elements.append(static_cast<const char*>(element), elementSize(part));
  }
  return value;
}

Value Generator::strings(std::vector<size_t> dims) {
  Value value;
  value.type = ArrayType::ZORVAN_STRING;
  value.dims = std::move(dims);
  for (size_t i = Dimensions(value.dims).elements(); i > 0; --i) {
    value.texts.emplace_back("text " + std::to_string(below(9)));
    if (below(5) == 0) value.texts.back().reset();
  }
  return value;
}

// ---- streams ----

namespace {

constexpr std::string_view Tape::*kMembers[kStreams] = {
    &Tape::kinds, &Tape::counts,      &Tape::ints, &Tape::reals,
    &Tape::dense, &Tape::textLengths, &Tape::text, &Tape::shapes};

}  // namespace

Streams streamsOf(const Tape& tape) {
  Streams streams;
  for (size_t i = 0; i < kStreams; ++i) {
    const std::string_view stream = tape.*kMembers[i];
    streams[i] = std::vector<char>(stream.begin(), stream.end());
  }
  return streams;
}

Tape received(const Streams& streams, std::shared_ptr<const Children> children) {
  Tape tape;
  for (size_t i = 0; i < kStreams; ++i) tape.*kMembers[i] = {streams[i].data(), streams[i].size()};
  tape.children = std::move(children);
  return tape;
}

size_t check(Tape& tape, size_t children, int level) {
  struct Counting final : ChildChecker {
    void next(int) override {
      if (left-- == 0) throw MalformedMessageException("no such child");
    }
    size_t left = 0;
  } counting;
  counting.left = children;
  return checkTape(tape, level, counting);
}

std::shared_ptr<const Tape> written(const std::function<void(TapeBuilder&)>& write) {
  TapeBuilder builder;
  write(builder);
  return builder.finish();
}

size_t sizeOf(const Streams& streams) {
  size_t size = 0;
  for (const auto& stream : streams) size += stream.size();
  return size;
}

void expectSound(const Tape& tape) {
  TapeReader reader(tape);
  const Value value = read(reader);
  ASSERT_EQ(valueOf(TapeReader(tape).array()), value);
  const auto again = written([&](TapeBuilder& builder) {
    TapeReader copied(tape);
    builder.copy(copied);
  });
  ASSERT_EQ(streamsOf(*written([&](TapeBuilder& builder) { builder.array(toArray(value)); })),
            streamsOf(*again));
  const Streams streams = streamsOf(*again);
  Tape checked = received(streams, again->children);
  ASSERT_EQ(check(checked, kAnyChildren), value.items.size());
}

std::string describeKinds(std::string_view kinds) {
  std::string described;
  const auto* at = reinterpret_cast<const uint8_t*>(kinds.data());
  for (const uint8_t* end = at + kinds.size(); at != end;) {
    const uint8_t kind = *at++;
    if (!described.empty()) described += ' ';
    described += kind == kind::kRun    ? "RUN"
                 : kind == kind::kGrid ? "GRID"
                                       : nameOf(static_cast<ArrayType>(kind));
    const bool hasNumber = isContainer(kind) && kind != kind::kGrid;
    if (hasNumber) described += " " + std::to_string(readVarint(at));
  }
  return described;
}

}  // namespace values
