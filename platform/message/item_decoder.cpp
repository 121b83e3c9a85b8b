#include "message/item_decoder.h"

#include <google/protobuf/wire_format_lite.h>

#include <cstring>
#include <optional>

#include "message/decoding_checks.h"
#include "message/fields.h"
#include "zorvandata/item_column.h"
#include "zorvandata/text.h"

namespace foundation::protobuf {

using namespace zorvandata;  // NOLINT: the vocabulary of this file
using google::protobuf::internal::WireFormatLite;

namespace {

// Takes the texts of a message one by one.
class TextCursor {
 public:
  explicit TextCursor(const ItemFields& fields)
      : lengths_(fields.textLen.bytes()), text_(fields.text) {}

  std::optional<std::string_view> next() {
    const uint64_t length = lengths_.next();
    if (length == 0) return std::nullopt;
    require(length - 1 <= text_.size(), "a text is longer than its column");
    const std::string_view taken = text_.substr(0, length - 1);
    checkUtf8(taken);
    text_.remove_prefix(length - 1);
    return taken;
  }
  std::string_view nextRow() {
    const auto text = next();
    require(text.has_value(), "a char row is missing");
    return *text;
  }
  bool atEnd() { return lengths_.atEnd() && text_.empty(); }

 private:
  VarintCursor lengths_;
  std::string_view text_;
};

template <class T>
void appendInt(ItemList& items, int64_t value) {
  const T narrow = static_cast<T>(value);
  // Unsigned 64-bit values travel by their bits.
  require(static_cast<int64_t>(narrow) == value, "an integer is out of its type's range");
  items.appendScalar(narrow);
}

void appendInt(ItemList& items, ArrayType type, uint64_t zigZag) {
  const int64_t value = WireFormatLite::ZigZagDecode64(zigZag);
  switch (type) {
    case ArrayType::LOGICAL:
      return appendInt<bool>(items, value);
    case ArrayType::INT8:
      return appendInt<int8_t>(items, value);
    case ArrayType::UINT8:
      return appendInt<uint8_t>(items, value);
    case ArrayType::INT16:
      return appendInt<int16_t>(items, value);
    case ArrayType::UINT16:
      return appendInt<uint16_t>(items, value);
    case ArrayType::INT32:
      return appendInt<int32_t>(items, value);
    case ArrayType::UINT32:
      return appendInt<uint32_t>(items, value);
    case ArrayType::INT64:
      return appendInt<int64_t>(items, value);
    case ArrayType::UINT64:
      return appendInt<uint64_t>(items, value);
    default:
      throw MalformedMessageException("items of this type do not travel as integers");
  }
}

// Takes fixed-size values off the front of a column.
const char* take(std::string_view& column, size_t size) {
  require(column.size() >= size, "a column of numbers is too short");
  const char* value = column.data();
  column.remove_prefix(size);
  return value;
}

Buffer allPresent(size_t count) {
  Buffer bits = Buffer::uninitialized((count + 7) / 8);
  std::memset(bits.mutableData(), 0xFF, bits.size());
  return bits;
}

// The offsets of texts whose lengths plus one are these bytes, none of them 0.
void sumLengths(std::string_view codes, int64_t* offsets) {
  int64_t sum = 0;
  for (size_t i = 0; i < codes.size(); ++i) {
    offsets[i] = sum;
    sum += static_cast<unsigned char>(codes[i]) - 1;
  }
  offsets[codes.size()] = sum;
}

// Likewise of lengths of any size, some of which may be missing; returns which are present.
Buffer sumLengths(std::string_view codes, size_t count, size_t mostBytes, bool mayMiss,
                  int64_t* offsets) {
  Buffer present;
  VarintCursor lengths(codes);
  offsets[0] = 0;
  for (size_t i = 0; i < count; ++i) {
    const uint64_t length = lengths.next();
    if (length == 0) {
      require(mayMiss, "a char row is missing");
      if (present.size() == 0) present = allPresent(count);
      present.mutableData()[i / 8] &= ~(std::byte{1} << (i % 8));
    }
    // Each is held against the text before they are added up.
    require(length <= mostBytes + 1, "a text is longer than its column");
    offsets[i + 1] = offsets[i] + static_cast<int64_t>(length ? length - 1 : 0);
  }
  require(lengths.atEnd(), "the dimensions do not match the texts");
  return present;
}

// The texts of a message, all of them.
TextColumn textColumn(const ItemFields& fields, size_t count, ArrayType type, Buffer bytes) {
  Buffer offsets = Buffer::uninitialized((count + 1) * sizeof(int64_t));
  auto* offset = reinterpret_cast<int64_t*>(offsets.mutableData());
  const std::string_view codes = fields.textLen.bytes();
  // Numbers from 1 to 127 are a byte each.
  const bool areBytes = codes.size() == count && isAscii(codes) && codes.find('\0') == codes.npos;
  Buffer present;
  if (areBytes) {
    sumLengths(codes, offset);
  } else {
    const bool mayMiss = type == ArrayType::ZORVAN_STRING;
    present = sumLengths(codes, count, fields.text.size(), mayMiss, offset);
  }
  require(static_cast<uint64_t>(offset[count]) == fields.text.size(),
          "the dimensions do not match the texts");
  return TextColumn::checkedTexts(type == ArrayType::CHAR ? type : ArrayType::ZORVAN_STRING,
                                  std::move(offsets), std::move(bytes), std::move(present));
}

// A short row of ASCII units, without a text of each form on the way; false for any other.
bool appendAsciiRow(ItemList& list, std::string_view elements) {
  constexpr size_t kShort = 64;
  char text[kShort];
  const size_t length = elements.size() / sizeof(char16_t);
  if (length > kShort) return false;
  char16_t all = 0;
  for (size_t i = 0; i < length; ++i) {
    char16_t unit = 0;
    std::memcpy(&unit, elements.data() + i * sizeof(unit), sizeof(unit));
    all |= unit;
    text[i] = static_cast<char>(unit);
  }
  if (all >= 0x80) return false;
  list.appendText({text, length});
  return true;
}

}  // namespace

void ItemDecoder::appendRow(ItemList& list, std::string_view elements) {
  if (appendAsciiRow(list, elements)) return;
  std::u16string units(elements.size() / sizeof(char16_t), u'\0');
  if (!units.empty()) std::memcpy(units.data(), elements.data(), elements.size());
  list.appendText(toUtf8(units));
}

ItemList ItemDecoder::texts(const ItemFields& fields, size_t count, ArrayType type) {
  if (!fields.textIndex.bytes().empty()) return repeatedTexts(fields, count, type);
  require(count <= fields.textLen.bytes().size(), "the dimensions do not match the texts");
  if (count >= kColumnFrom) {
    return makeColumn(textColumn(fields, count, type, kept(fields.text)));
  }
  ItemList list(arena());
  list.reserve(count);
  TextCursor texts(fields);
  for (size_t i = 0; i < count; ++i) {
    if (type == ArrayType::ZORVAN_STRING) {
      list.appendString(texts.next());
    } else if (type == ArrayType::CHAR) {
      list.appendText(texts.nextRow());
    } else {
      list.appendString(texts.nextRow());
    }
  }
  require(texts.atEnd(), "the dimensions do not match the texts");
  return list;
}

ItemList ItemDecoder::repeatedTexts(const ItemFields& fields, size_t count, ArrayType type) const {
  size_t texts = 0;
  for (VarintCursor lengths(fields.textLen.bytes()); !lengths.atEnd(); ++texts) {
    require(lengths.next() <= kLongestRepeated + 1, "a repeated text is too long");
  }
  require(count <= fields.textIndex.bytes().size() && texts <= UINT32_MAX,
          "the dimensions do not match the texts");
  RepeatedTextColumn column{textColumn(fields, texts, type, kept(fields.text)),
                            Buffer::uninitialized(count * sizeof(uint32_t))};
  auto* positions = reinterpret_cast<uint32_t*>(column.positions.mutableData());
  VarintCursor indices(fields.textIndex.bytes());
  for (size_t i = 0; i < count; ++i) {
    const uint64_t position = indices.next();
    require(position < texts, "a text's position is out of range");
    positions[i] = static_cast<uint32_t>(position);
  }
  require(indices.atEnd(), "the dimensions do not match the texts");
  return makeColumn(std::move(column));
}

ItemList ItemDecoder::integers(ArrayType type, const ItemFields& fields, size_t count) {
  const bool is64Bits = type == ArrayType::INT64 || type == ArrayType::UINT64;
  VarintCursor values(fields.ints.bytes());
  if (is64Bits && count >= kColumnFrom && count <= fields.ints.bytes().size()) {
    Buffer elements = Buffer::uninitialized(count * sizeof(int64_t));
    auto* out = reinterpret_cast<int64_t*>(elements.mutableData());
    values.take(count, [out](size_t i, uint64_t zigZag) {
      out[i] = WireFormatLite::ZigZagDecode64(zigZag);
    });
    require(values.atEnd(), "the dimensions do not match the items");
    return makeColumn(ScalarColumn{type, std::move(elements)});
  }
  ItemList list(arena());
  while (!values.atEnd()) appendInt(list, type, values.next());
  return list;
}

ItemList ItemDecoder::scalars(ArrayType type, std::string_view elements) {
  const size_t size = elementSize(type);
  require(elements.size() % size == 0, "the elements are no whole number of items");
  if (elements.size() / size >= kColumnFrom) {
    checkLogicals(type, elements);
    return makeColumn(ScalarColumn{type, kept(elements)});
  }
  ItemList list(arena());
  list.reserve(elements.size() / size);
  while (!elements.empty()) appendScalar(list, type, take(elements, size));
  return list;
}

void ItemDecoder::appendScalar(ItemList& list, ArrayType type, const char* value) {
  checkLogicals(type, {value, elementSize(type)});
  list.appendScalar(type, value);
}

ItemList ItemDecoder::mixed(const ItemFields& fields) {
  ItemList list(arena());
  list.reserve(fields.kinds.size());
  VarintCursor ints(fields.ints.bytes());
  std::string_view reals = fields.reals.bytes();
  TextCursor texts(fields);
  size_t child = 0;
  for (const char kind : fields.kinds) {
    const auto code = static_cast<unsigned char>(kind);
    const ArrayType type = checkedType(code);
    if (code == kChildKind) {
      require(child < fields.children.size(), "a child array is missing");
      list.append(fields.children, child++);
    } else if (type == ArrayType::CHAR) {
      list.appendText(texts.nextRow());
    } else if (type == ArrayType::ZORVAN_STRING) {
      list.appendString(texts.next());
    } else if (type == ArrayType::DOUBLE || type == ArrayType::COMPLEX_DOUBLE) {
      list.appendScalar(type, take(reals, elementSize(type)));
    } else {
      appendInt(list, type, ints.next());
    }
  }
  require(ints.atEnd() && reals.empty() && texts.atEnd() && child == fields.children.size(),
          "the columns hold more than the kinds ask for");
  return list;
}

ItemList ItemDecoder::references(const ItemFields& fields, size_t count) {
  ItemList list(arena());
  VarintCursor refs(fields.refs.bytes());
  while (!refs.atEnd()) list.appendScalar(uint64_t{refs.next()});
  require(list.size() == count, "the dimensions do not match the references");
  return list;
}

Buffer ItemDecoder::kept(std::string_view bytes) const {
  constexpr size_t kWorthLending = 4096;
  constexpr size_t kFairShare = 4;
  const bool isLent =
      owner_ && bytes.size() >= kWorthLending && bytes.size() >= messageSize_ / kFairShare;
  return isLent ? Buffer::lent(owner_, bytes.data(), bytes.size())
                : Buffer::copyOf(bytes.data(), bytes.size());
}

const std::shared_ptr<Arena>& ItemDecoder::arena() {
  if (!arena_) arena_ = std::make_shared<Arena>();
  return arena_;
}

}  // namespace foundation::protobuf
