#include "to_array/column_texts.h"

#include "to_array/column_arrow_texts.h"
#include "to_array/column_objects.h"
#include "to_array/encoder.h"
#include "util/reference.h"
#include "zorvandata/array_impl.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayType;
using foundation::zorvandata::Buffer;
using foundation::zorvandata::Dimensions;
using foundation::zorvandata::TapeBuilder;
using foundation::zorvandata::Texts;
using PythonUtil::PyObjectWithGuard;

namespace {

// The texts that are all there is on a tape, which tells them as string arrays do.
Array takeTexts(const TapeBuilder& tape, size_t count, bool areRepeated) {
  Buffer bytes = Buffer::uninitialized(tape.textSize());
  tape.copyText(reinterpret_cast<uint8_t*>(bytes.mutableData()));
  Texts texts(count, Buffer::copyOf(tape.textLengths().data(), tape.textLengths().size()),
              std::move(bytes), areRepeated);
  return makeArray(ArrayType::ZORVAN_STRING, Dimensions(count, 1), std::move(texts));
}

}  // namespace

std::optional<Array> textsOfList(const PyObjectWithGuard& list, const PandasObjects* objects) {
  // How far ahead objects are fetched into the cache, in which long lists of them are not.
  constexpr size_t kAhead = 8;
  const auto count = static_cast<size_t>(PyList_Size(list.get()));
  // Borrowed: no Python code runs before a text fails.
  const auto itemAt = [&list](size_t i) {
    return PyList_GetItem(list.get(), static_cast<Py_ssize_t>(i));
  };
  Encoder encoder;
  TapeBuilder& tape = encoder.tape();
  tape.openStrings(Dimensions(count, 1));
  for (size_t i = 0; i < count; ++i) {
    if (i + kAhead < count) __builtin_prefetch(itemAt(i + kAhead));
    PyObject* item = itemAt(i);
    const bool isText = Py_TYPE(item) == &PyUnicode_Type || (!objects && PyUnicode_Check(item));
    if (!isText && objects && !objects->isMissing(item)) return std::nullopt;
    isText ? encoder.appendStringElement(item) : tape.stringElement("");
  }
  return takeTexts(tape, count, tape.texts().hasRepeated());
}

Array convertTextColumn(PyObject* series) {
  if (std::optional<Texts> texts = readArrowTexts(series)) {
    const Dimensions dims(texts->size(), 1);
    return makeArray(ArrayType::ZORVAN_STRING, dims, std::move(*texts));
  }
  return *textsOfList(listOfItems(series), nullptr);
}

}  // namespace PythonZorvanDataArray::detail
