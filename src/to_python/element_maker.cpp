#include "to_python/element_maker.h"

#include "to_python/converter_factory.h"
#include "to_python/numeric_converters.h"
#include "to_python/text_converters.h"
#include "to_python/vectors.h"
#include "zorvandata/array_impl.h"
#include "zorvandata/text.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::ArrayType;
using foundation::zorvandata::Item;
using foundation::zorvandata::ItemColumn;
using foundation::zorvandata::ItemList;
using foundation::zorvandata::RepeatedTextColumn;
using foundation::zorvandata::ScalarColumn;
using foundation::zorvandata::TextColumn;
using PythonUtil::PyObjectWithGuard;

namespace {

bool isWithoutElements(const Item& item) {
  switch (item.form()) {
    case Item::Form::kEmpty:
      return true;
    case Item::Form::kText:
      return item.utf8().empty();
    case Item::Form::kArray:
      return item.array().elements() == 0;
    default:
      return false;
  }
}

Py_ssize_t charactersOf(std::string_view utf8) {
  Py_ssize_t count = 0;
  for (const char byte : utf8) count += (static_cast<unsigned char>(byte) & 0xC0) != 0x80;
  return count;
}

}  // namespace

PyObject* makeElement(const ItemList& items, size_t i, Empties empties) {
  return empties == Empties::kAsLists && isWithoutElements(items[i])
             ? PyList_New(0)
             : ConvertZDAToPyObjectFactory::convertElement(items, i);
}

PyObject* DecodedTexts::next(size_t i) {
  const std::string_view text = column_.text(i);
  if (i >= end_ && !decode(i)) return PyErr_Occurred() ? nullptr : makeText(text);
  const Py_ssize_t from = at_;
  at_ += charactersOf(text);
  return PyUnicode_Substring(chunk_.get(), from, at_);
}

bool DecodedTexts::decode(size_t first) {
  constexpr int64_t kChunk = int64_t{256} * 1024;
  const int64_t* offsets = column_.offset();
  size_t end = first + 1;
  while (end < column_.size() && offsets[end + 1] - offsets[first] <= kChunk) ++end;
  chunk_ = PyObjectWithGuard::owned(
      PyUnicode_DecodeUTF8(column_.text(first).data(),
                           static_cast<Py_ssize_t>(offsets[end] - offsets[first]), "strict"));
  at_ = 0;
  if (chunk_) {
    end_ = end;
  } else if (PyErr_ExceptionMatches(PyExc_UnicodeDecodeError)) {
    PyErr_Clear();  // a lone surrogate; the text that has it tells what is wrong
  }
  return static_cast<bool>(chunk_);
}

ElementMaker::ElementMaker(const ItemList& items, Empties empties)
    : items_(items), empties_(empties) {
  const ItemColumn* column = items.column();
  if (!column) return;
  if (const auto* scalars = column->as<ScalarColumn>()) {
    numbers_ = scalars->elements.data();
    kind_ = scalars->type == ArrayType::DOUBLE    ? Kind::kDouble
            : scalars->type == ArrayType::INT64   ? Kind::kInt64
            : scalars->type == ArrayType::LOGICAL ? Kind::kLogical
                                                  : Kind::kAny;
  } else if (const auto* texts = column->as<TextColumn>()) {
    texts_ = texts;
    kind_ = Kind::kTexts;
    const bool isAscii = texts->isAscii || foundation::zorvandata::isAscii(texts->all());
    if (!isAscii) decoded_.emplace_back(*texts);
  } else if (const auto* repeated = column->as<RepeatedTextColumn>()) {
    texts_ = &repeated->distinct;
    positions_ = repeated->position();
    kind_ = Kind::kRepeated;
    made_.resize(texts_->size());
  }
}

PyObject* ElementMaker::make(size_t i) {
  switch (kind_) {
    case Kind::kDouble:
      return convertNumericElem(number<double>(i));
    case Kind::kInt64:
      return convertNumericElem(number<int64_t>(i));
    case Kind::kLogical:
      return convertNumericElem(number<bool>(i));
    case Kind::kTexts:
      return makeText(*texts_, i);
    case Kind::kRepeated:
      return makeRepeated(i);
    case Kind::kAny:
      break;
  }
  return makeElement(items_, i, empties_);
}

// Numbers in loops of their own: nothing else is done for each.
PyObject* ElementMaker::makeAll() {
  const size_t count = items_.size();
  switch (kind_) {
    case Kind::kDouble:
      return makeList(count, [this](size_t i) { return convertNumericElem(number<double>(i)); });
    case Kind::kInt64:
      return makeList(count, [this](size_t i) { return convertNumericElem(number<int64_t>(i)); });
    case Kind::kLogical:
      return makeList(count, [this](size_t i) { return convertNumericElem(number<bool>(i)); });
    default:
      return makeList(count, [this](size_t i) { return make(i); });
  }
}

PyObject* ElementMaker::makeText(const TextColumn& column, size_t i) {
  if (column.isMissing(i)) return Py_NewRef(Py_None);
  const std::string_view text = column.text(i);
  const bool isEmptyRow = text.empty() && column.type == ArrayType::CHAR;
  if (isEmptyRow && empties_ == Empties::kAsLists) return PyList_New(0);
  const bool isCut = !decoded_.empty() && !text.empty();
  return isCut ? decoded_.front().next(i) : detail::makeText(text);
}

// Each distinct text is made once; empty lists are never shared.
PyObject* ElementMaker::makeRepeated(size_t i) {
  PyObjectWithGuard& made = made_[positions_[i]];
  if (!made) made = PyObjectWithGuard::owned(makeText(*texts_, positions_[i]));
  const bool isList = made && PyList_Check(made.get());
  return isList ? PyList_New(0) : Py_XNewRef(made.get());
}

}  // namespace PythonZorvanDataArray::detail
