#include "sample_arrays.h"

#include <optional>
#include <sstream>

#include "wire.h"

namespace sample {

using namespace foundation::zorvandata;  // NOLINT: the vocabulary of this file

namespace {

const ArrayFactory kFactory;

template <class Bytes>
void putHex(std::ostream& out, const Bytes& bytes, size_t size) {
  static const char* digits = "0123456789abcdef";
  const auto* data = reinterpret_cast<const unsigned char*>(bytes);
  for (size_t i = 0; i < size; ++i) out << digits[data[i] >> 4] << digits[data[i] & 15];
}

void putElements(std::ostream& out, const Array& array) {
  const ArrayType type = array.getType();
  const ArrayImpl& impl = array.impl();
  if (isDense(type)) return putHex(out, impl.buffer().data(), impl.buffer().size());
  if (isSparse(type)) {
    for (const size_t row : impl.sparse().rows) out << row << ' ';
    out << '|';
    for (const size_t start : impl.sparse().columnStarts) out << start << ' ';
    return putHex(out, impl.sparse().values.data(), impl.sparse().values.size());
  }
  if (type == ArrayType::ZORVAN_STRING || type == ArrayType::ENUMERATION) {
    return impl.texts().forEach([&out](const auto& text) {
      out << (text ? "text:" : "missing");
      if (text) putHex(out, text->data(), text->size());
      out << ' ';
    });
  }
  if (type == ArrayType::HANDLE_OBJECT_REF) {
    return putHex(out, impl.buffer().data(), impl.buffer().size());
  }
  for (size_t i = 0; i < impl.items().size(); ++i) out << describe(impl.items().get(i)) << ' ';
}

Array object() {
  const ClassInfo info = kFactory.createClassInfo(
      ZorvanClassIdentifier("pkg.Thing"), {std::string("pkg.Thing.data"), std::string("tz")});
  Array array = kFactory.createValueObjectArray({2, 1}, info, true);
  array[0]["data"] = counting(ArrayType::COMPLEX_DOUBLE, {2, 2});
  array[1]["tz"] = kFactory.createCharArray("UTC");
  return array;
}

std::vector<Sample> texts() {
  const std::u16string odd = {u'a', 0xD800, u'\0', 0xDC00, 0xD83D, 0xDE00, 0xFFFF, 0x7FF, 0x800};
  return {
      {"char row", kFactory.createCharArray(odd)},
      {"char matrix", dense<char16_t>(ArrayType::CHAR, {2, 2}, {0xDC00, u'b', 0xD800, u'd'})},
      {"long char row in a cell", cell({kFactory.createCharArray(std::u16string(5000, 0xD801))})},
      {"strings", strings({2, 3}, {odd, std::nullopt, u"", u"x", odd + odd, std::nullopt})},
      {"missing string", strings({1, 1}, {std::nullopt})},
      {"no strings", strings({3, 0}, {})},
      {"cell of texts", cell({kFactory.createCharArray(odd), kFactory.createCharArray("")})},
      {"cell of strings", cell({strings({1, 1}, {odd}), strings({1, 1}, {std::nullopt})})},
  };
}

std::vector<Sample> numbers() {
  constexpr uint64_t kOdd[] = {0x7FF8000000001234, 0xFFF0000000000001, 0x8000000000000000,
                               0x7FF0000000000000, 1};
  const std::vector<uint64_t> bits(std::begin(kOdd), std::end(kOdd));
  std::vector<Sample> samples = {
      {"odd doubles", dense(ArrayType::DOUBLE, {5, 1}, bits)},
      {"odd complex doubles",
       dense<uint64_t>(ArrayType::COMPLEX_DOUBLE, {1, 2}, {bits[0], bits[2], bits[1], bits[3]})},
      {"odd singles",
       dense<uint32_t>(ArrayType::SINGLE, {1, 3}, {0x7FC01234, 0xFF800001, 1u << 31})},
      {"widest integers", cell({kFactory.createScalar(INT64_MIN), kFactory.createScalar(INT64_MAX),
                                kFactory.createScalar(UINT64_MAX), kFactory.createScalar(true),
                                kFactory.createScalar(int8_t{-128}), kFactory.createScalar(1.5)})},
      {"cell of odd doubles", cell({dense<uint64_t>(ArrayType::DOUBLE, {1, 1}, {bits[0]}),
                                    dense<uint64_t>(ArrayType::DOUBLE, {1, 1}, {bits[2]})})},
  };
  for (int code = 1; code <= codeOf(ArrayType::COMPLEX_UINT64); ++code) {
    const auto type = static_cast<ArrayType>(code);
    if (!isDense(type)) continue;
    for (const ArrayDimensions& dims :
         {ArrayDimensions{0, 0}, {0, 3}, {1, 0}, {1, 1}, {2, 3}, {2, 3, 2}, {1, 1, 1}, {2, 0, 5}}) {
      samples.push_back({std::string(nameOf(type)), counting(type, dims)});
    }
    const Array scalar = counting(type, {1, 1});
    samples.push_back({std::string("cell of ") + nameOf(type), cell({scalar, scalar})});
    samples.push_back({std::string("cell with ") + nameOf(type),
                       cell({scalar, kFactory.createCharArray("x"), scalar})});
  }
  return samples;
}

std::vector<Sample> containers() {
  const Array one = kFactory.createScalar(1.0);
  const Array text = kFactory.createCharArray("t");
  Array structs = kFactory.createStructArray({2, 2}, {"b", "a"});
  structs[3]["a"] = one;
  structs[0]["b"] = text;
  const Array record1 = record({{"x", one}, {"y", text}});
  const Array record2 = record({{"x", strings({1, 1}, {std::nullopt})}, {"y", structs}});
  return {
      {"no array", Array()},
      {"cell", cell({one, text, Array(), counting(ArrayType::INT8, {2, 2}), cell({})})},
      {"cell of untouched elements", kFactory.createCellArray({2, 1, 2})},
      {"empty cell", kFactory.createCellArray({0, 3})},
      {"nested cells", nested(20, one)},
      {"struct without fields", kFactory.createStructArray({2, 3}, {})},
      {"empty struct with fields", kFactory.createStructArray({0, 3}, {"f", "g"})},
      {"structs", structs},
      {"cell of one record", cell({record1})},
      {"records", cell({record1, record2, record1})},
      {"records of records", cell({record({{"r", record1}}), record({{"r", record2}})})},
      {"records of different fields", cell({record1, record({{"y", text}, {"x", one}})})},
      {"structs without fields", cell({record({}), record({})})},
  };
}

// A cell of as many elements as it takes for texts to be told by their numbers.
template <class Make>
Array many(const Make& make) {
  constexpr int kMany = 40;
  std::vector<Array> elements;
  elements.reserve(kMany);
  for (int i = 0; i < kMany; ++i) elements.push_back(make(i));
  return cell(elements);
}

std::vector<Sample> lists() {
  const auto number = [](int i) { return kFactory.createScalar(i * 0.1); };
  const auto text = [](int i) { return kFactory.createCharArray(std::u16string(i % 3, 0xD800)); };
  const auto string = [](int i) {
    return i % 4 ? strings({1, 1}, {std::nullopt}) : strings({1, 1}, {u"\u00E9"});
  };
  return {
      {"many doubles", many(number)},
      {"many logicals", many([](int i) { return kFactory.createScalar(i % 2 == 0); })},
      {"many integers",
       many([](int i) { return kFactory.createScalar((INT64_MIN >> (3 * i % 64)) + (i % 2)); })},
      {"many unsigned",
       many([](int i) { return kFactory.createScalar(UINT64_MAX >> (3 * i % 64)); })},
      {"many singles",
       many([](int i) { return kFactory.createScalar(0.5F * static_cast<float>(i)); })},
      {"many texts", many(text)},
      {"many strings", many(string)},
      {"many matrices", many([](int i) {
         return counting(ArrayType::UINT16, {2, size_t{1} + (i % 3)});
       })},
      {"a misfit at the end", many([&](int i) { return i < 39 ? number(i) : text(i); })},
      {"rows", many([&](int i) {
         return cell({number(i), text(i), string(i)});
       })},
      {"rows of rows", many([&](int i) {
         return cell({cell({number(i)}), number(i)});
       })},
      {"many records", many([&](int i) {
         return record({{"x", number(i)}, {"y", text(i)}});
       })},
      {"many objects", many([](int) { return object(); })},
  };
}

// From here on payloads are aligned and arrays do not lie on tapes.
std::vector<Sample> longOnes() {
  const std::vector<Array> numbers(600, kFactory.createScalar(2.5));
  std::vector<std::optional<std::u16string>> texts;
  for (char16_t i = 0; i < 3000; ++i) texts.push_back(std::u16string(i % 5, i));
  Array structs = kFactory.createStructArray({1, 2}, {"f"});
  structs[1]["f"] = counting(ArrayType::UINT8, {4096, 1});
  return {
      {"long matrix", counting(ArrayType::COMPLEX_SINGLE, {64, 9})},
      {"long matrices", cell({counting(ArrayType::INT8, {4095, 1}), structs,
                              cell({counting(ArrayType::LOGICAL, {4097, 1})})})},
      {"long list of doubles", cell(numbers)},
      {"long string array", strings({1000, 3}, texts)},
  };
}

std::vector<Sample> rarities() {
  const auto sparse = [](ArrayType type, ArrayType values) {
    return kFactory.createSparseArray(type, 3, 4, {0, 2, 1}, {0, 2, 2, 3, 3},
                                      counting(values, {1, 3}));
  };
  return {
      {"value objects", object()},
      {"bare value object", kFactory.createValueObjectScalar(ClassInfo(std::string("Bare")))},
      {"handles", kFactory.createHandleArray({1, 2}, std::string("h.Class"), {0, UINT64_MAX})},
      {"enumeration", kFactory.createEnumerationArray({2, 1}, std::string("Days"), {"Mon", "Tue"})},
      {"sparse logical", sparse(ArrayType::SPARSE_LOGICAL, ArrayType::LOGICAL)},
      {"sparse double", sparse(ArrayType::SPARSE_DOUBLE, ArrayType::DOUBLE)},
      {"sparse complex", sparse(ArrayType::SPARSE_COMPLEX_DOUBLE, ArrayType::COMPLEX_DOUBLE)},
      {"empty sparse", kFactory.createArray(ArrayType::SPARSE_DOUBLE, {5, 0})},
      {"cell of rarities", cell({object(), sparse(ArrayType::SPARSE_DOUBLE, ArrayType::DOUBLE)})},
  };
}

}  // namespace

std::string describe(const Array& array) {
  std::ostringstream out;
  out << '(' << nameOf(array.getType());
  for (const size_t extent : array.getDimensions()) out << ' ' << extent;
  if (const auto& layout = array.impl().layout()) {
    out << " class:" << layout->className;
    for (const std::string& name : layout->names) out << " name:" << name;
  }
  out << " = ";
  putElements(out, array);
  out << ')';
  return out.str();
}

Array counting(ArrayType type, const ArrayDimensions& dims) {
  const size_t bytes = Dimensions(dims).elements() * elementSize(type);
  std::string data(bytes, '\0');
  for (size_t i = 0; i < bytes; ++i) {
    data[i] = static_cast<char>(type == ArrayType::LOGICAL ? i % 3 == 0 : 37 * i + 1);
  }
  return kFactory.createArrayWithData(type, dims, data.data(), bytes);
}

Array cell(const std::vector<Array>& elements) {
  return kFactory.createCellArray({1, elements.size()}, elements);
}

Array strings(const ArrayDimensions& dims,
              const std::vector<std::optional<std::u16string>>& elements) {
  TextsBuilder texts;
  for (const auto& text : elements) {
    texts.append(text ? std::optional<std::string>(toUtf8(*text)) : std::nullopt);
  }
  const Dimensions all(dims);
  while (texts.size() < all.elements()) texts.append(std::nullopt);
  return makeArray(ArrayType::ZORVAN_STRING, all, texts.finish());
}

Array record(const std::vector<std::pair<std::string, Array>>& fields) {
  std::vector<std::string> names;
  names.reserve(fields.size());
  for (const auto& field : fields) names.push_back(field.first);
  Array array = kFactory.createStructArray({1, 1}, names);
  for (const auto& [name, value] : fields) array[0][name.c_str()] = value;
  return array;
}

Array nested(int levels, Array innermost) {
  while (levels-- > 0) innermost = cell({innermost});
  return innermost;
}

std::string plainMessage(const Array& array, Form form) {
  using wire::bytes;
  using wire::varint;
  const ArrayImpl& impl = array.impl();
  const ArrayType type = array.getType();
  const auto numbers = [](const auto& values) {
    std::string all;
    for (const uint64_t value : values) all += varint(value);
    return all;
  };
  const auto content = [](const Buffer& buffer) {
    return std::string(reinterpret_cast<const char*>(buffer.data()), buffer.size());
  };
  std::string message = wire::number(1, static_cast<uint64_t>(codeOf(type)));
  if (!array.dimensions().isScalar()) message += bytes(2, numbers(array.getDimensions()));
  if (isDense(type)) return message + bytes(3, content(impl.buffer()));
  if (isSparse(type)) {
    return message + bytes(10, numbers(impl.sparse().rows)) +
           bytes(3, content(impl.sparse().values)) + bytes(11, numbers(impl.sparse().columnStarts));
  }
  if (impl.layout()) {
    for (const std::string& name : impl.layout()->names) message += bytes(5, name);
    if (!impl.layout()->className.empty()) message += bytes(6, impl.layout()->className);
  }
  if (type == ArrayType::UNKNOWN) return message;
  if (type == ArrayType::HANDLE_OBJECT_REF) {
    const auto* references = reinterpret_cast<const uint64_t*>(impl.buffer().data());
    return message + bytes(12, numbers(std::vector(references, references + impl.elements())));
  }
  if (type == ArrayType::ZORVAN_STRING || type == ArrayType::ENUMERATION) {
    std::string codes;
    std::string joined;
    impl.texts().forEach([&](const auto& text) {
      codes += varint(text ? 2 * (text->size() + 1) : 0);
      joined += text.value_or("");
    });
    return message + bytes(8, codes) + (joined.empty() ? "" : bytes(9, joined));
  }
  std::string items;
  for (size_t i = 0; i < impl.items().size(); ++i) {
    items += bytes(form == Form::kChildren ? 4 : 9, plainMessage(impl.items().get(i), form));
  }
  if (form == Form::kChildren) return message + items;
  const size_t count = impl.items().size();
  return message + bytes(7, items + bytes(1, "\x18" + varint(count) + std::string(count, '\0')));
}

std::vector<Sample> everyKind() {
  std::vector<Sample> all;
  for (const auto& group : {numbers(), texts(), containers(), lists(), longOnes(), rarities()}) {
    all.insert(all.end(), group.begin(), group.end());
  }
  return all;
}

}  // namespace sample
