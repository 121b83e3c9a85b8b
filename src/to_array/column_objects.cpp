#include "to_array/column_objects.h"

#include <cmath>
#include <cstring>
#include <memory>
#include <vector>

#include "dataarray/array_predicates.h"
#include "to_array/column_converter.h"
#include "to_array/column_texts.h"
#include "util/message_catalogue.h"
#include "util/reference.h"
#include "zorvandata/array_impl.h"
#include "zorvandata/text.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayType;
using foundation::zorvandata::Buffer;
using foundation::zorvandata::ContainerHead;
using foundation::zorvandata::Dimensions;
using foundation::zorvandata::elementSize;
using foundation::zorvandata::Items;
using foundation::zorvandata::kindOf;
using foundation::zorvandata::Tape;
using foundation::zorvandata::TapeBuilder;
using foundation::zorvandata::TapeReader;
using PythonUtil::checked;
using PythonUtil::PyObjectWithGuard;
using PythonUtil::PythonErrorSet;

namespace {

// What a walk over the items finds.
struct Survey {
  bool isHeterogeneous = false;
  bool hasGap = false;    // after the first item
  bool arePlain = false;  // all but gaps
};

Survey hasNanOrHeterogeneous(const PyObjectWithGuard& list, const PandasObjects& pandas) {
  // Borrowed from a list that nobody else has.
  PyObject* first = PyList_GetItem(list.get(), 0);
  const Py_ssize_t count = PyList_Size(list.get());
  Survey survey;
  survey.arePlain = isPlain(first);
  for (Py_ssize_t i = 1; i < count; ++i) {
    PyObject* item = PyList_GetItem(list.get(), i);
    if (Py_TYPE(item) == Py_TYPE(first)) continue;
    if (pandas.isMissing(item)) {
      survey.hasGap = true;
      continue;
    }
    survey.isHeterogeneous = true;
    survey.arePlain = survey.arePlain && isPlain(item);
    if (!survey.arePlain) break;
  }
  return survey;
}

// Errors that say more than that an item cannot be converted.
bool isErrorToKeep() {
  return !PyErr_ExceptionMatches(PyExc_Exception) || PyErr_ExceptionMatches(PyExc_OverflowError) ||
         PyErr_ExceptionMatches(PyExc_MemoryError) || PyErr_ExceptionMatches(PyExc_RecursionError);
}

// False where a gap has no way over.
bool appendGap(TapeBuilder& tape, ArrayType type) {
  const float nan = std::nanf("");
  if (type == ArrayType::DOUBLE) tape.real(std::nan(""));
  if (type == ArrayType::SINGLE) tape.scalar(type, &nan);
  if (type == ArrayType::ZORVAN_STRING) tape.string("");
  return isRealFloatingPointType(type) || type == ArrayType::ZORVAN_STRING;
}

// The items after the first one, of which the type is given: of numbers and texts that the column
// may become, otherwise UNKNOWN.
void appendOthers(Encoder& to, const PyObjectWithGuard& list, ArrayType type) {
  const PandasObjects& pandas = pandasObjects();
  const ConversionOptions options = getOptionsWithinTable();
  const auto count = static_cast<size_t>(PyList_Size(list.get()));
  for (size_t i = 1; i < count; ++i) {
    const PyObjectWithGuard item = listItem(list, i);
    to.tape().element();
    if (pandas.isMissing(item.get()) && appendGap(to.tape(), type)) continue;
    try {
      to.append(item.get(), options);
    } catch (const PythonErrorSet&) {
      if (isErrorToKeep()) throw;
      refuseColumnItem(item.get());
    }
  }
}

// Whether the items of a cell all have the kinds of the first one.
bool areAlike(const ContainerHead& cell) { return cell.isRun || cell.items == 1; }

// The cell on the tape, of which the first item is a number of the type, as a dense column; absent
// when others are something else.
std::optional<Array> numbersOf(const Tape& tape, ArrayType type) {
  TapeReader reader(tape);
  const ContainerHead cell(reader);
  if (!areAlike(cell)) return std::nullopt;
  const size_t parts = isComplex(type) ? 2 : 1;
  const size_t partSize = elementSize(type) / parts;
  const bool isSingle = type == ArrayType::SINGLE || type == ArrayType::COMPLEX_SINGLE;
  Buffer buffer = Buffer::uninitialized(cell.items * elementSize(type));
  std::byte* out = buffer.mutableData();
  if (type == ArrayType::DOUBLE || type == ArrayType::COMPLEX_DOUBLE) {
    std::memcpy(out, tape.reals.data(), buffer.size());
    return makeDense(type, Dimensions(cell.items, 1), std::move(buffer));
  }
  // Values only: the kinds are known.
  for (size_t i = 0; i < cell.items * parts; ++i, out += partSize) {
    const auto single = isSingle ? static_cast<float>(reader.real()) : 0;
    const int64_t integer = isSingle ? 0 : reader.integer();
    // Little-endian: the low bytes are those of the narrower type.
    std::memcpy(out, isSingle ? static_cast<const void*>(&single) : &integer, partSize);
  }
  return makeDense(type, Dimensions(cell.items, 1), std::move(buffer));
}

// The texts that follow the time in a date or duration; false when they are something else.
bool readTexts(TapeReader& object, std::vector<std::string_view>& texts) {
  texts.clear();
  const size_t values = ContainerHead(object).items;
  const auto type = static_cast<ArrayType>(object.kind());
  object.reals(elementSize(type) / sizeof(double));
  while (texts.size() + 1 < values) {
    if (object.kind() != kindOf(ArrayType::CHAR)) return false;
    texts.push_back(*object.text());
  }
  return true;
}

// The cell on the tape, of which the first item is a value object, as one date or duration of them
// all; absent when they do not make one. They first hold their times: all else must be the same.
std::optional<Array> timesOf(const Tape& tape) {
  TapeReader reader(tape);
  const ContainerHead cell(reader);
  TapeReader first = reader;
  const ContainerHead object(first);
  const auto layout = tape.layout(object.shape);
  const bool isTime = layout->className == "datetime" || layout->className == "duration";
  if (!areAlike(cell) || !isTime || object.items == 0) return std::nullopt;
  const auto type = static_cast<ArrayType>(first.peek());
  if (type != ArrayType::DOUBLE && type != ArrayType::COMPLEX_DOUBLE) return std::nullopt;

  first = reader;
  std::vector<std::string_view> common;
  std::vector<std::string_view> texts;
  bool areSame = readTexts(first, common);
  if (areSame) {
    forEachItem(cell, reader, [&](TapeReader& each) {
      areSame = readTexts(each, texts) && texts == common && areSame;
    });
  }
  if (!areSame) return std::nullopt;
  std::vector<Array> values = {makeDense(type, Dimensions(cell.items, 1),
                                         Buffer::copyOf(tape.reals.data(), tape.reals.size()))};
  for (const std::string_view text : common) {
    values.push_back(foundation::zorvandata::makeCharRow(foundation::zorvandata::toUtf16(text)));
  }
  return makeArray(ArrayType::VALUE_OBJECT, Dimensions::scalar(), Items(std::move(values)), layout);
}

// pandas decides what a gap among integers is as a floating-point number.
Array makeFloats(PyObject* series) {
  return convertNumpyNumbers(checked(PyObject_CallMethod(series, "astype", "s", "float")).get());
}

// Absent when an item is no text, or is one that cannot be converted: convertItems tells of it.
std::optional<Array> makeTexts(const PyObjectWithGuard& list) {
  if (Py_TYPE(PyList_GetItem(list.get(), 0)) != &PyUnicode_Type) return std::nullopt;
  try {
    return textsOfList(list, &pandasObjects());
  } catch (const PythonErrorSet&) {
    if (isErrorToKeep()) throw;
    PyErr_Clear();
    return std::nullopt;
  }
}

// Each item is converted once, into a cell, and that made into something else where it can be.
Array convertItems(FrameColumns& columns, PyObject* series, const PyObjectWithGuard& list,
                   const Survey& survey) {
  // Frames nest, so it is not on the stack.
  const auto encoder = std::make_unique<Encoder>(columns.encoder());
  TapeBuilder& tape = encoder->tape();
  tape.openGrid(Dimensions(static_cast<size_t>(PyList_Size(list.get())), 1));
  const size_t head = tape.kinds().size();
  tape.element();
  const PyObjectWithGuard first = listItem(list, 0);
  encoder->append(first.get(), getOptionsWithinTable());
  // The kinds of the first item begin behind those of the head.
  const auto type = static_cast<ArrayType>(tape.kinds().data()[head]);

  // One number or bool, rather than something that has elements, be it only one.
  const bool areNumbers = !survey.isHeterogeneous && isDense(type) && type != ArrayType::CHAR &&
                          !PySequence_Check(first.get());
  if (areNumbers && survey.hasGap && isRealIntegerType(type)) return makeFloats(series);
  const bool areTexts = !survey.isHeterogeneous && type == ArrayType::ZORVAN_STRING;
  appendOthers(*encoder, list, areNumbers || areTexts ? type : ArrayType::UNKNOWN);
  tape.closeCell();
  const auto items = tape.finish();
  std::optional<Array> column;
  if (areNumbers) column = numbersOf(*items, type);
  if (!survey.isHeterogeneous && type == ArrayType::VALUE_OBJECT) column = timesOf(*items);
  return column ? std::move(*column) : TapeReader(*items).arrayHere();
}

}  // namespace

PyObjectWithGuard listOfItems(PyObject* series) {
  const auto objects = checked(PyObject_CallMethod(series, "to_numpy", "s", "object"));
  auto list = resultOf(objects.get(), "tolist");
  if (PyList_Check(list.get())) return list;
  PythonUtil::raise(PyExc_TypeError, "'tolist' of pandas.DataFrame column gave no list");
}

Array convertObjectColumn(FrameColumns& columns, PyObject* series) {
  const PandasObjects& pandas = pandasObjects();
  const PyObjectWithGuard list = listOfItems(series);
  if (PyList_Size(list.get()) == 0) {
    PythonUtil::raise(PyExc_IndexError, formatMessage(UnableToRetrieveObject, 0));
  }
  if (std::optional<Array> texts = makeTexts(list)) return std::move(*texts);
  const Survey survey = hasNanOrHeterogeneous(list, pandas);
  if (!survey.arePlain) columns.beforeForeignCode();
  return convertItems(columns, series, list, survey);
}

}  // namespace PythonZorvanDataArray::detail
