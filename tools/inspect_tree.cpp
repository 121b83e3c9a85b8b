#include "inspect_tree.h"

#include "inspect_text.h"
#include "zorvandata/visitor.h"

namespace tools {
namespace {

using namespace foundation::zorvandata;  // NOLINT(google-build-using-namespace)
using foundation::protobuf::common::EngineError;
using foundation::protobuf::common::Envelope;

constexpr size_t kShownElements = 10;
constexpr size_t kShownCharacters = 60;

std::string indentOf(int depth) { return std::string(2 * static_cast<size_t>(depth), ' '); }
std::string indexLabel(size_t i) { return "[" + std::to_string(i) + "]"; }
std::string countNote(size_t count) { return "... (" + std::to_string(count) + " in all)"; }

// Does not part a pair of surrogates.
size_t previewLength(std::u16string_view text) {
  if (text.size() <= kShownCharacters) return text.size();
  const bool partsPair = (text[kShownCharacters] & 0xFC00) == 0xDC00;
  return kShownCharacters - (partsPair ? 1 : 0);
}

void writePreview(std::ostream& out, std::u16string_view text) {
  const std::u16string_view shown = text.substr(0, previewLength(text));
  writeText(out, shown);
  if (shown.size() < text.size()) out << countNote(text.size());
}

template <class T>
void writeElement(std::ostream& out, T value) {
  writeNumber(out, value);
}

template <class T>
void writeElement(std::ostream& out, std::complex<T> value) {
  writeNumber(out, value.real());
  if (!std::signbit(static_cast<double>(value.imag()))) out << '+';
  writeNumber(out, value.imag());
  out << 'i';
}

void writeElement(std::ostream& out, bool value) { out << (value ? "true" : "false"); }

void writeElement(std::ostream& out, const std::optional<std::u16string>& value) {
  if (value) {
    writePreview(out, *value);
  } else {
    out << "<missing>";
  }
}

void writeElement(std::ostream& out, const HandleObjectRef& value) {
  out << '#' << value.getReference();
}

void writeElement(std::ostream& out, const Enumeration& value) {
  writeEscaped(out, readable(value.getMemberName()));
}

void writeArray(std::ostream& out, int depth, const std::string& label, const Array& array);

// Writes the lines of what an array holds, one level below its own.
void writeRecords(std::ostream& out, int depth, const Array& array) {
  const ArrayImpl& impl = array.impl();
  const std::vector<std::string>& names = impl.layout()->names;
  const size_t shown = names.empty() ? 0 : std::min(impl.elements(), kShownElements);
  for (size_t element = 0; element < shown; ++element) {
    const std::string prefix = impl.elements() == 1 ? "." : indexLabel(element) + ".";
    for (size_t field = 0; field < names.size(); ++field) {
      writeArray(out, depth, prefix + names[field],
                 impl.items().get(impl.itemIndex(field, element)));
    }
  }
  if (impl.elements() > kShownElements) {
    out << indentOf(depth) << countNote(impl.elements()) << '\n';
  }
}

void writeItems(std::ostream& out, int depth, const Items& items) {
  for (size_t i = 0; i < std::min(items.size(), kShownElements); ++i) {
    writeArray(out, depth, indexLabel(i), items.get(i));
  }
  if (items.size() > kShownElements) out << indentOf(depth) << countNote(items.size()) << '\n';
}

// Ends an array's line with a preview of its elements, or with the lines of what it holds.
class ContentWriter {
 public:
  ContentWriter(std::ostream& out, int depth) : out_(out), depth_(depth) {}

  template <class T>
  void operator()(const TypedArray<T>& view) const {
    const size_t count = view.getNumberOfElements();
    if (count) out_ << ':';
    for (size_t i = 0; i < std::min(count, kShownElements); ++i) {
      out_ << ' ';
      writeElement(out_, T(view[i]));
    }
    if (count > kShownElements) out_ << ' ' << countNote(count);
    out_ << '\n';
  }
  void operator()(const TypedArray<char16_t>& view) const {
    out_ << ": ";
    writePreview(out_, CharArray(view).toUTF16());
    out_ << '\n';
  }
  void operator()(const TypedArray<Array>& view) const {
    out_ << '\n';
    writeItems(out_, depth_ + 1, view.impl().items());
  }
  void operator()(const TypedArray<StructElement>& view) const { records(view); }
  void operator()(const TypedArray<ValueObject>& view) const { records(view); }
  void records(const Array& array) const {
    out_ << '\n';
    writeRecords(out_, depth_ + 1, array);
  }

 private:
  std::ostream& out_;
  int depth_;
};

// How many values are stored, and the first of them.
void writeSparse(std::ostream& out, int depth, const SparseArray& array) {
  out << ", " << array.getNumberOfNonZeros() << " stored";
  applyVisitor(array.getValues(), ContentWriter(out, depth));
}

void writeArray(std::ostream& out, int depth, const std::string& label, const Array& array) {
  const ArrayType type = array.getType();
  const Layout* layout = array.impl().layout().get();
  out << indentOf(depth);
  writeEscaped(out, readable(label));
  out << ' ' << nameOf(type) << ' ';
  const Dimensions& dims = array.dimensions();
  for (size_t i = 0; i < dims.count(); ++i) out << (i ? "x" : "") << dims[i];
  if (layout && !layout->className.empty()) {
    out << " of class ";
    writeEscaped(out, readable(layout->className));
  }
  const ContentWriter content(out, depth);
  if (isSparse(type)) {
    writeSparse(out, depth, SparseArray(array));
  } else if (type == ArrayType::OBJECT) {
    content.records(array);
  } else if (type == ArrayType::UNKNOWN) {
    out << '\n';
  } else {
    applyVisitor(array, content);
  }
}

void writeError(std::ostream& out, const EngineError& error) {
  out << indentOf(1) << "error ";
  writeText(out, error.message);
  if (error.identifier) {
    out << ", identifier ";
    writeText(out, *error.identifier);
  }
  out << '\n';
  for (const auto& frame : error.stack) {
    out << indentOf(2) << "in ";
    writeText(out, frame.functionName);
    out << ", file ";
    writeText(out, frame.file);
    out << ", line " << frame.line << '\n';
  }
}

}  // namespace

void writeTree(std::ostream& out, std::string_view messageName, const Envelope& envelope) {
  out << messageName;
  if (envelope.nargout) out << ", nargout " << *envelope.nargout;
  out << '\n';
  writeItems(out, 1, envelope.arrays.impl().items());
  if (envelope.error) writeError(out, *envelope.error);
}

}  // namespace tools
