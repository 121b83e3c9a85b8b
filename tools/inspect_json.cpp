#include "inspect_json.h"

#include "inspect_text.h"
#include "zorvandata/visitor.h"

namespace tools {
namespace {

using namespace foundation::zorvandata;  // NOLINT(google-build-using-namespace)
using foundation::protobuf::common::EngineError;
using foundation::protobuf::common::Envelope;

template <class WriteElement>
void writeList(std::ostream& out, size_t count, WriteElement writeElement) {
  out << '[';
  for (size_t i = 0; i < count; ++i) {
    if (i) out << ',';
    writeElement(i);
  }
  out << ']';
}

// An object in the making; it ends with its scope.
class JsonObject {
 public:
  explicit JsonObject(std::ostream& out) : out_(out) { out_ << '{'; }
  JsonObject(const JsonObject&) = delete;
  JsonObject& operator=(const JsonObject&) = delete;
  ~JsonObject() { out_ << '}'; }

  // Starts a member, whose value the caller writes to the stream returned.
  std::ostream& member(std::string_view name) {
    if (!first_) out_ << ',';
    first_ = false;
    writeText(out_, name);
    return out_ << ':';
  }
  void text(std::string_view name, std::string_view utf8) { writeText(member(name), utf8); }
  void texts(std::string_view name, const std::vector<std::string>& values) {
    std::ostream& out = member(name);
    writeList(out, values.size(), [&](size_t i) { writeText(out, values[i]); });
  }
  template <class Integer>
  void numbers(std::string_view name, const std::vector<Integer>& values) {
    std::ostream& out = member(name);
    writeList(out, values.size(), [&](size_t i) { writeNumber(out, values[i]); });
  }

 private:
  std::ostream& out_;
  bool first_ = true;
};

void writeArray(std::ostream& out, const Array& array);

template <class T>
void writeElement(std::ostream& out, T value) {
  const bool quoted = std::is_floating_point_v<T> && !std::isfinite(static_cast<double>(value));
  if (quoted) out << '"';
  writeNumber(out, value);
  if (quoted) out << '"';
}

template <class T>
void writeElement(std::ostream& out, std::complex<T> value) {
  out << '[';
  writeElement(out, value.real());
  out << ',';
  writeElement(out, value.imag());
  out << ']';
}

void writeElement(std::ostream& out, bool value) { out << (value ? "true" : "false"); }

void writeElement(std::ostream& out, const std::optional<std::u16string>& value) {
  if (value) {
    writeText(out, *value);
  } else {
    out << "null";
  }
}

void writeElement(std::ostream& out, const Array& value) { writeArray(out, value); }

void writeElement(std::ostream& out, const Enumeration& value) {
  writeText(out, value.getMemberName());
}

// Elements without names are all alike and take no room in a message, so a short one may claim any
// number of them; beyond this many the dimensions alone tell.
constexpr size_t kMostNameless = 1000;

// Structs and objects: the names, then each element as an object of its own.
void writeRecords(JsonObject& object, std::string_view namesMember, const Array& array) {
  const ArrayImpl& impl = array.impl();
  const std::vector<std::string>& names = impl.layout()->names;
  object.texts(namesMember, names);
  if (names.empty() && impl.elements() > kMostNameless) return;
  std::ostream& out = object.member("elements");
  writeList(out, impl.elements(), [&](size_t element) {
    JsonObject record(out);
    for (size_t field = 0; field < names.size(); ++field) {
      writeArray(record.member(names[field]), impl.items().get(impl.itemIndex(field, element)));
    }
  });
}

// Writes the members that follow type, class and dimensions.
class ContentWriter {
 public:
  explicit ContentWriter(JsonObject& object) : object_(object) {}

  template <class T>
  void operator()(const TypedArray<T>& view) const {
    std::ostream& out = object_.member("elements");
    writeList(out, view.getNumberOfElements(), [&](size_t i) { writeElement(out, T(view[i])); });
  }
  void operator()(const CharArray& view) const {
    writeText(object_.member("text"), view.toUTF16());
  }
  void operator()(const TypedArray<char16_t>& view) const { (*this)(CharArray(view)); }
  void operator()(const TypedArray<StructElement>& view) const {
    writeRecords(object_, "fields", view);
  }
  void operator()(const TypedArray<ValueObject>& view) const {
    writeRecords(object_, "properties", view);
  }
  void operator()(const TypedArray<HandleObjectRef>& view) const {
    std::ostream& out = object_.member("ref");
    writeList(out, view.getNumberOfElements(),
              [&](size_t i) { writeNumber(out, view[i].getReference()); });
  }

 private:
  JsonObject& object_;
};

// Row and column of each stored value, counted from zero.
void writeSparse(JsonObject& object, const SparseArray& array) {
  const std::vector<size_t>& starts = array.getColumnStarts();
  std::vector<size_t> columns;
  columns.reserve(array.getNumberOfNonZeros());
  for (size_t column = 0; column + 1 < starts.size(); ++column) {
    columns.insert(columns.end(), starts[column + 1] - starts[column], column);
  }
  object.numbers("rows", array.getRows());
  object.numbers("columns", columns);
  applyVisitor(array.getValues(), ContentWriter(object));
}

void writeArray(std::ostream& out, const Array& array) {
  const ArrayType type = array.getType();
  const Layout* layout = array.impl().layout().get();
  JsonObject object(out);
  object.text("type", nameOf(type));
  if (layout && type != ArrayType::STRUCT) object.text("class", layout->className);
  object.numbers("dims", array.getDimensions());
  if (isSparse(type)) {
    writeSparse(object, SparseArray(array));
  } else if (type == ArrayType::OBJECT) {
    writeRecords(object, "properties", array);
  } else if (type != ArrayType::UNKNOWN) {
    applyVisitor(array, ContentWriter(object));
  }
}

void writeError(std::ostream& out, const EngineError& error) {
  JsonObject object(out);
  object.text("message", error.message);
  if (error.identifier) {
    object.text("identifier", *error.identifier);
  } else {
    object.member("identifier") << "null";
  }
  std::ostream& stack = object.member("stack");
  writeList(stack, error.stack.size(), [&](size_t i) {
    JsonObject frame(stack);
    frame.text("file", error.stack[i].file);
    frame.text("function_name", error.stack[i].functionName);
    writeNumber(frame.member("line"), error.stack[i].line);
  });
}

}  // namespace

void writeJson(std::ostream& out, std::string_view messageName, const Envelope& envelope) {
  {
    JsonObject object(out);
    object.text("message", messageName);
    if (envelope.nargout) writeNumber(object.member("nargout"), *envelope.nargout);
    const Items& arrays = envelope.arrays.impl().items();
    object.member("arrays");
    writeList(out, arrays.size(), [&](size_t i) { writeArray(out, arrays.get(i)); });
    if (envelope.error) writeError(object.member("error"), *envelope.error);
  }
  out << '\n';
}

}  // namespace tools
