#include "message/array_decoder.h"

#include <google/protobuf/wire_format_lite.h>

#include <cstring>
#include <memory>
#include <optional>

#include "message/array_fields.h"
#include "message/fields.h"
#include "zorvandata/array_impl.h"
#include "zorvandata/exception.h"
#include "zorvandata/item_column.h"
#include "zorvandata/limits.h"
#include "zorvandata/text.h"

namespace foundation::protobuf {
namespace {

using namespace zorvandata;   // NOLINT: the vocabulary of this file
using namespace array_field;  // NOLINT: the vocabulary of this file
using google::protobuf::internal::WireFormatLite;

[[noreturn]] void malformed(const char* details) { throw MalformedMessageException(details); }

void require(bool holds, const char* details) {
  if (!holds) malformed(details);
}

ArrayType checkedType(uint64_t code) {
  if (code > INT32_MAX || !isKnownCode(static_cast<int64_t>(code))) throw EArrayUnknownDataType();
  return static_cast<ArrayType>(code);
}

// Whether elements of the type may travel by the columns of their fields.
bool isRecordType(ArrayType type) {
  return type == ArrayType::STRUCT || type == ArrayType::VALUE_OBJECT || type == ArrayType::CELL;
}

// Takes the texts of a message one by one.
class TextCursor {
 public:
  explicit TextCursor(const ArrayFields& fields)
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
      malformed("items of this type do not travel as integers");
  }
}

// Takes fixed-size values off the front of a column.
const char* take(std::string_view& column, size_t size) {
  require(column.size() >= size, "a column of numbers is too short");
  const char* value = column.data();
  column.remove_prefix(size);
  return value;
}

void checkLogicals(ArrayType type, std::string_view elements) {
  if (type != ArrayType::LOGICAL) return;
  unsigned char all = 0;
  for (const char flag : elements) all |= static_cast<unsigned char>(flag);
  require(all <= 1, "a logical is not 0 or 1");
}

Buffer allPresent(size_t count) {
  Buffer bits = Buffer::uninitialized((count + 7) / 8);
  std::memset(bits.mutableData(), 0xFF, bits.size());
  return bits;
}

// Values that a few bytes stand for are made once and shared.
const std::shared_ptr<const Layout>& noNames() {
  static const auto layout = makeLayout("", {});
  return layout;
}
const Array& unknownScalar() {
  static const Array array = makeArray(ArrayType::UNKNOWN, Dimensions::scalar(), ItemList());
  return array;
}
// A 1-by-1 struct or value object with nothing in it.
const Array& emptyRecord(ArrayType type) {
  static const Array record =
      makeArray(ArrayType::STRUCT, Dimensions::scalar(), ItemList(), noNames());
  static const Array object =
      makeArray(ArrayType::VALUE_OBJECT, Dimensions::scalar(), ItemList(), noNames());
  return type == ArrayType::STRUCT ? record : object;
}

// The texts of a message, all of them.
TextColumn textColumn(const ArrayFields& fields, size_t count, ArrayType type, Buffer bytes) {
  Buffer offsets = Buffer::uninitialized((count + 1) * sizeof(int64_t));
  Buffer present;
  auto* next = reinterpret_cast<int64_t*>(offsets.mutableData());
  *next = 0;
  const std::string_view codes = fields.textLen.bytes();
  VarintCursor lengths(codes);
  // Of numbers below 128, each is a byte.
  const bool areBytes = codes.size() == count && isAscii(codes);
  for (size_t i = 0; i < count; ++i) {
    const uint64_t length = areBytes ? static_cast<unsigned char>(codes[i]) : lengths.next();
    if (length == 0) {
      require(type == ArrayType::ZORVAN_STRING, "a char row is missing");
      if (present.size() == 0) present = allPresent(count);
      present.mutableData()[i / 8] &= ~(std::byte{1} << (i % 8));
    }
    // Each is held against the text before they are added up.
    require(length <= fields.text.size() + 1, "a text is longer than its column");
    next[1] = next[0] + static_cast<int64_t>(length ? length - 1 : 0);
    ++next;
  }
  require((areBytes || lengths.atEnd()) && static_cast<uint64_t>(*next) == fields.text.size(),
          "the dimensions do not match the texts");
  return TextColumn::checked(type == ArrayType::CHAR ? type : ArrayType::ZORVAN_STRING,
                             std::move(offsets), std::move(bytes), std::move(present));
}

class Decoder {
 public:
  explicit Decoder(std::shared_ptr<const void> owner) : owner_(std::move(owner)) {}

  Array array(const ArrayBytes& message) {
    ArrayFields fields;
    readFields(message, 1, fields);
    return assemble(checkedType(fields.type), readDimensions(fields), fields);
  }

  // Appends an array to a list; no array is made of a value that lies inline there.
  void appendTo(ItemList& list, const ArrayBytes& message, int depth, bool ofObject = false) {
    ArrayFields fields;
    readFields(message, depth, fields);
    const ArrayType type = checkedType(fields.type);
    const Dimensions dims = readDimensions(fields);
    const size_t size = fields.elements.size();
    if (isInline(type, dims) && size == dims.elements() * elementSize(type)) {
      type == ArrayType::CHAR ? appendRow(list, fields.elements)
                              : appendScalar(list, type, fields.elements.data());
    } else if (ofObject && (type == ArrayType::DOUBLE || type == ArrayType::COMPLEX_DOUBLE)) {
      // The times of dates and durations, which are read once and made into something else.
      checkPayload(type, dims, fields.elements);
      list.append(makeDense(type, dims, kept(fields.elements)));
    } else {
      list.append(assemble(type, dims, fields));
    }
  }

 private:
  void readFields(const ArrayBytes& message, int depth, ArrayFields& fields) {
    // One level more than arrays may have: the innermost may be a value that lies inline.
    if (depth > kMaxNesting + 1) throw NestingTooDeepException();
    FieldReader reader(message.bytes);
    while (reader.next()) {
      if (reader.number() == kChildren && reader.isMessage()) {
        if (fields.children.size() == 0) fields.children = ItemList(arena());
        appendTo(fields.children, {reader.bytes(), reader.cut()}, depth + 1,
                 fields.type == codeOf(ArrayType::VALUE_OBJECT));
      } else {
        readField(reader, fields);
      }
    }
    require(message.cut || !reader.broken(), "its fields break off");
  }

  // Whether a list holds such an array without an object for it: a scalar, a short text.
  static bool isInline(ArrayType type, const Dimensions& dims) {
    constexpr size_t kShort = 256;
    if (type == ArrayType::CHAR) return dims.isRow() && dims.elements() <= kShort;
    return isDense(type) && dims.isScalar();
  }

  static void appendRow(ItemList& list, std::string_view elements) {
    std::u16string units(elements.size() / sizeof(char16_t), u'\0');
    if (!units.empty()) std::memcpy(units.data(), elements.data(), elements.size());
    list.appendText(toUtf8(units));
  }

  Array assemble(ArrayType type, const Dimensions& dims, ArrayFields& fields) {
    if (isDense(type)) return makeDense(type, dims, denseBuffer(type, dims, fields.elements));
    if (isSparse(type)) return sparse(type, dims, fields);
    const size_t count = dims.elements();
    switch (type) {
      case ArrayType::ZORVAN_STRING:
        return makeArray(type, dims, texts(fields, count, ArrayType::ZORVAN_STRING));
      case ArrayType::ENUMERATION:
        return makeArray(type, dims, texts(fields, count, type), layout(fields));
      case ArrayType::HANDLE_OBJECT_REF:
        return makeArray(type, dims, references(fields, count), layout(fields));
      case ArrayType::CELL:
        return makeArray(type, dims, items(fields, count));
      case ArrayType::UNKNOWN:
        return dims.isScalar() ? unknownScalar() : makeArray(type, dims, ItemList());
      default:
        return named(type, dims, fields);
    }
  }

  static Dimensions readDimensions(const ArrayFields& fields) {
    const std::string_view extents = fields.dims.bytes();
    if (extents.empty()) return Dimensions::scalar();
    VarintCursor cursor(extents);
    const size_t first = cursor.next();
    if (cursor.atEnd()) return Dimensions::row(first);
    const size_t second = cursor.next();
    return cursor.atEnd() ? Dimensions(first, second) : Dimensions(readVarints(extents));
  }

  static void checkPayload(ArrayType type, const Dimensions& dims, std::string_view elements) {
    size_t bytes = 0;
    if (__builtin_mul_overflow(dims.elements(), elementSize(type), &bytes) ||
        bytes != elements.size()) {
      throw InvalidDimensionsException("they do not match the payload");
    }
  }

  static Buffer denseBuffer(ArrayType type, const Dimensions& dims, std::string_view elements) {
    checkPayload(type, dims, elements);
    checkLogicals(type, elements);
    return Buffer::copyOf(elements.data(), elements.size());
  }

  static Array sparse(ArrayType type, const Dimensions& dims, const ArrayFields& fields) {
    const ArrayType valueType = sparseValueType(type);
    SparseContent content;
    content.rows = readVarints(fields.rows.bytes());
    content.columnStarts = readVarints(fields.colStarts.bytes());
    require(!content.columnStarts.empty(), "a sparse array has no column starts");
    content.values = denseBuffer(valueType, Dimensions::row(content.rows.size()), fields.elements);
    return makeSparse(type, dims, std::move(content));
  }

  std::shared_ptr<const Layout> layout(ArrayFields& fields) {
    checkUtf8(fields.className);
    if (fields.className.empty() && fields.names.empty()) return noNames();
    // Objects of one class follow each other.
    if (lastLayout_->className != fields.className || lastLayout_->names != fields.names) {
      lastLayout_ = makeLayout(std::string(fields.className), std::move(fields.names));
    }
    return lastLayout_;
  }

  // Structs and objects: every name has an item in every element.
  Array named(ArrayType type, const Dimensions& dims, ArrayFields& fields) {
    require(!fields.itemType || !isRecordType(checkedType(*fields.itemType)),
            "only a cell can hold records");
    size_t count = 0;
    if (__builtin_mul_overflow(fields.names.size(), dims.elements(), &count)) {
      throw InvalidDimensionsException("they do not match the payload");
    }
    ItemList values = items(fields, count);
    const bool isEmpty = dims.isScalar() && count == 0 && fields.className.empty();
    if (isEmpty && type != ArrayType::OBJECT) return emptyRecord(type);
    return makeArray(type, dims, std::move(values), layout(fields));
  }

  ItemList references(const ArrayFields& fields, size_t count) {
    ItemList list(arena());
    VarintCursor refs(fields.refs.bytes());
    while (!refs.atEnd()) list.appendScalar(uint64_t{refs.next()});
    require(list.size() == count, "the dimensions do not match the references");
    return list;
  }

  ItemList items(ArrayFields& fields, size_t count) {
    ItemList list = fields.itemType        ? uniform(checkedType(*fields.itemType), fields, count)
                    : fields.kinds.empty() ? std::move(fields.children)
                                           : mixed(fields);
    require(list.size() == count, "the dimensions do not match the items");
    return list;
  }

  ItemList uniform(ArrayType type, ArrayFields& fields, size_t count) {
    if (isRecordType(type)) return records(type, fields, count);
    if (type == ArrayType::CHAR || type == ArrayType::ZORVAN_STRING) {
      return texts(fields, count, type);
    }
    require(isDense(type), "items of this type do not lie in columns");
    return fields.elements.empty() ? integers(type, fields, count) : scalars(type, fields.elements);
  }

  ItemList texts(const ArrayFields& fields, size_t count, ArrayType type) {
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

  // Each element's position among a few short texts.
  ItemList repeatedTexts(const ArrayFields& fields, size_t count, ArrayType type) {
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

  ItemList integers(ArrayType type, const ArrayFields& fields, size_t count) {
    const bool is64Bits = type == ArrayType::INT64 || type == ArrayType::UINT64;
    VarintCursor values(fields.ints.bytes());
    if (is64Bits && count >= kColumnFrom && count <= fields.ints.bytes().size()) {
      Buffer elements = Buffer::uninitialized(count * sizeof(int64_t));
      auto* out = reinterpret_cast<int64_t*>(elements.mutableData());
      for (size_t i = 0; i < count; ++i) out[i] = WireFormatLite::ZigZagDecode64(values.next());
      require(values.atEnd(), "the dimensions do not match the items");
      return makeColumn(ScalarColumn{type, std::move(elements)});
    }
    ItemList list(arena());
    while (!values.atEnd()) appendInt(list, type, values.next());
    return list;
  }

  ItemList scalars(ArrayType type, std::string_view elements) {
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

  static void appendScalar(ItemList& list, ArrayType type, const char* value) {
    if (type == ArrayType::LOGICAL) require(*value == 0 || *value == 1, "a logical is not 0 or 1");
    list.appendScalar(type, value);
  }

  ItemList mixed(const ArrayFields& fields) {
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

  // One cell of `count` items a field.
  ItemList records(ArrayType type, ArrayFields& fields, size_t count) {
    const bool ofCells = type == ArrayType::CELL;
    const size_t width = fields.children.size();
    require(width > 0 && (ofCells || width == fields.names.size()),
            "records need one column a name");
    FieldColumns columns;
    columns.fields.reserve(width);
    for (const Item& child : fields.children) columns.fields.push_back(column(child, count));
    const Dimensions dims(count, ofCells ? width : 1);
    return makeColumn(RecordColumn{
        makeArray(type, dims, makeColumn(std::move(columns)), ofCells ? nullptr : layout(fields))});
  }

  static ItemList column(const Item& child, size_t count) {
    const bool isCell =
        child.form() == Item::Form::kArray && child.array().type() == ArrayType::CELL;
    require(isCell && child.array().elements() == count, "a column of records has another length");
    const ItemList& items = child.array().items();
    require(!items.column() || !items.column()->as<RecordColumn>(),
            "a column of records holds records");
    return items;
  }

  // Bytes of the message for a column.
  Buffer kept(std::string_view bytes) const {
    constexpr size_t kWorthLending = 4096;
    return owner_ && bytes.size() >= kWorthLending
               ? Buffer::lent(owner_, bytes.data(), bytes.size())
               : Buffer::copyOf(bytes.data(), bytes.size());
  }

  const std::shared_ptr<Arena>& arena() {
    if (!arena_) arena_ = std::make_shared<Arena>();
    return arena_;
  }

  std::shared_ptr<const void> owner_;
  std::shared_ptr<Arena> arena_;
  std::shared_ptr<const Layout> lastLayout_ = noNames();
};

}  // namespace

Array decodeArray(const ArrayBytes& array) { return Decoder(nullptr).array(array); }

ItemList decodeEach(const std::vector<ArrayBytes>& arrays, std::shared_ptr<const void> owner) {
  Decoder decoder(std::move(owner));
  ItemList items;
  items.reserve(arrays.size());
  for (const ArrayBytes& array : arrays) decoder.appendTo(items, array, 1);
  return items;
}

}  // namespace foundation::protobuf
