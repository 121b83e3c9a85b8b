#include "message/message_writer.h"

#include "zorvandata/array_impl.h"

namespace foundation::protobuf {
namespace {

using namespace zorvandata;   // NOLINT: the vocabulary of this file
using namespace array_field;  // NOLINT: the vocabulary of this file

// A tag and a length of a byte each.
constexpr size_t kPaddingHead = 2;

Size numbersSize(const std::vector<size_t>& values) {
  Size size;
  for (const size_t value : values) size += varintSize(value);
  return size;
}

Size dimsSize(const Dimensions& dims) {
  Size size;
  for (size_t i = 0; i < dims.count(); ++i) size += varintSize(dims[i]);
  return size;
}

Size referencesSize(const ArrayImpl& array) {
  const auto* references = reinterpret_cast<const uint64_t*>(array.buffer().data());
  Size size;
  for (size_t i = 0; i < array.elements(); ++i) size += varintSize(references[i]);
  return size;
}

// The items of a container as the one cell of a tape.
void buildItems(const Items& items, TapeBuilder& tape) {
  tape.openCell(items.size());
  for (size_t i = 0; i < items.size(); ++i) {
    tape.element();
    tape.array(items.get(i));
  }
  tape.closeCell();
}

}  // namespace

Size payloadSize(size_t content) {
  Size size = fieldSize(content);
  if (content >= kAlignedFrom) size += 2 * kPaddingHead + kAlignment - 1;
  return size;
}

Size tapeSize(const TapeBuilder& tape) {
  Size size = streamSize(tape.kinds().size());
  size += streamSize(tape.counts().size());
  size += streamSize(tape.ints().size());
  if (tape.reals().size() > 0) size += payloadSize(tape.reals().size());
  size += streamSize(tape.denseElements().size());
  size += streamSize(tape.textLengths().size());
  size += streamSize(tape.textSize());
  size += streamSize(tape.shapes().size());
  for (const Array& child : tape.children()) size += fieldSize(arraySize(child));
  return size;
}

Size arraySize(const Array& array) {
  const ArrayImpl& impl = array.impl();
  const ArrayType type = impl.type();
  Size size = numberSize(static_cast<uint64_t>(codeOf(type)));
  if (!impl.dimensions().isScalar()) size += fieldSize(dimsSize(impl.dimensions()));
  if (isDense(type)) return size + payloadSize(impl.buffer().size());
  if (isSparse(type)) {
    const SparseContent& sparse = impl.sparse();
    return size + fieldSize(numbersSize(sparse.rows)) +
           fieldSize(numbersSize(sparse.columnStarts)) + payloadSize(sparse.values.size());
  }
  if (impl.layout()) {
    size += streamSize(impl.layout()->className.size());
    for (const std::string& name : impl.layout()->names) size += fieldSize(name.size());
  }
  switch (type) {
    case ArrayType::ZORVAN_STRING:
    case ArrayType::ENUMERATION:
      return size + streamSize(impl.texts().codes().size()) +
             streamSize(impl.texts().bytes().size());
    case ArrayType::HANDLE_OBJECT_REF:
      return size + fieldSize(referencesSize(impl));
    case ArrayType::UNKNOWN:
      return size;
    default: {
      TapeBuilder tape;
      buildItems(impl.items(), tape);
      return size + fieldSize(tapeSize(tape));
    }
  }
}

size_t MessageWriter::padBefore(size_t size) {
  const size_t head = kPaddingHead + 1 + varintSize(size);
  const auto at = static_cast<size_t>(out_ - begin_) + head;
  const size_t bytes = (kAlignment - at % kAlignment) % kAlignment;
  padding(bytes);
  return bytes;
}

void MessageWriter::padding(size_t size) {
  nested(kPadding, size);
  std::memset(out_, 0, size);
  out_ += size;
}

void MessageWriter::tape(const TapeBuilder& tape) {
  stream(tape_field::kKinds, tape.kinds());
  stream(tape_field::kCounts, tape.counts());
  stream(tape_field::kInts, tape.ints());
  if (const ByteStream& reals = tape.reals(); reals.size() > 0) {
    payload(tape_field::kReals, reals.size(),
            [&reals](uint8_t* out) { std::memcpy(out, reals.data(), reals.size()); });
  }
  stream(tape_field::kDense, tape.denseElements());
  stream(tape_field::kTextLen, tape.textLengths());
  if (const size_t size = tape.textSize(); size > 0) {
    nested(tape_field::kText, size);
    tape.copyText(out_);
    out_ += size;
  }
  stream(tape_field::kShapes, tape.shapes());
  for (const Array& child : tape.children()) {
    nested(tape_field::kChildren, arraySize(child));
    array(child);
  }
}

void MessageWriter::array(const Array& array) {
  const ArrayImpl& impl = array.impl();
  const ArrayType type = impl.type();
  const auto buffer = [this](int field, const Buffer& content) {
    payload(field, content.size(), [&content](uint8_t* out) { content.copyTo(out); });
  };
  const auto numbers = [this](int field, const std::vector<size_t>& values) {
    nested(field, numbersSize(values));
    for (const size_t value : values) varint(value);
  };
  number(kType, static_cast<uint64_t>(codeOf(type)));
  if (const Dimensions& dims = impl.dimensions(); !dims.isScalar()) {
    nested(kDims, dimsSize(dims));
    for (size_t i = 0; i < dims.count(); ++i) varint(dims[i]);
  }
  if (isDense(type)) return buffer(kElements, impl.buffer());
  if (isSparse(type)) {
    numbers(kRows, impl.sparse().rows);
    numbers(kColStarts, impl.sparse().columnStarts);
    return buffer(kElements, impl.sparse().values);
  }
  if (impl.layout()) {
    for (const std::string& name : impl.layout()->names) bytes(kNames, name);
    if (!impl.layout()->className.empty()) bytes(kClassName, impl.layout()->className);
  }
  switch (type) {
    case ArrayType::ZORVAN_STRING:
    case ArrayType::ENUMERATION:
      for (const auto& [field, content] :
           {std::pair(kTextLen, &impl.texts().codes()), std::pair(kText, &impl.texts().bytes())}) {
        if (content->size() == 0) continue;
        nested(field, content->size());
        content->copyTo(out_);
        out_ += content->size();
      }
      return;
    case ArrayType::HANDLE_OBJECT_REF: {
      const auto* references = reinterpret_cast<const uint64_t*>(impl.buffer().data());
      nested(kRef, referencesSize(impl));
      for (size_t i = 0; i < impl.elements(); ++i) varint(references[i]);
      return;
    }
    case ArrayType::UNKNOWN:
      return;
    default: {
      TapeBuilder items;
      buildItems(impl.items(), items);
      nested(array_field::kTape, tapeSize(items));
      return tape(items);
    }
  }
}

}  // namespace foundation::protobuf
