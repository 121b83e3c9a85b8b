// Which converter belongs to which Python type: the whole list of what can be sent.
//
// The keys are full type names. "<buffer>" is none but the key of the converter that everything
// else falls back to; no class reaches it by its name. The types that the encoder takes by
// themselves stand here for their names alone: whoever else bears one of them is not what it says.
#include "to_array/buffer_converters.h"
#include "to_array/bytes_converters.h"
#include "to_array/converter_factory.h"
#include "to_array/date_time_converters.h"
#include "to_array/date_time_objects.h"
#include "to_array/duration_converters.h"
#include "to_array/nd_py_array_converters.h"
#include "to_array/pandas_objects.h"
#include "to_array/py_data_frame_to_table.h"
#include "to_array/py_dictionary_to_dictionary.h"
#include "to_array/py_object_to_object.h"
#include "to_array/scalar_converters.h"
#include "to_array/set_converter.h"
#include "types/zorvan_dictionary_type.h"
#include "types/zorvan_object_type.h"

namespace PythonZorvanDataArray::detail {
namespace {

using Entry = ConvertToZorvanDataArrayFactory::Entry;

template <class Converter>
Entry use(bool (*isReal)(PyObject*) = nullptr) {
  return {std::make_shared<const Converter>(), isReal};
}

bool isNone(PyObject* obj) { return obj == Py_None; }
bool isZorvanObject(PyObject* obj) { return zorvanObjectRecord(obj) != nullptr; }
bool isNever(PyObject*) { return false; }

const Entry kByItself{nullptr, isNever};

#define ZORVAN_IS(name, type) \
  bool name(PyObject* obj) { return Py_TYPE(obj) == &(type); }
ZORVAN_IS(isComplexNumber, PyComplex_Type)
ZORVAN_IS(isBytes, PyBytes_Type)
ZORVAN_IS(isByteArray, PyByteArray_Type)
ZORVAN_IS(isSet, PySet_Type)
ZORVAN_IS(isMemoryView, PyMemoryView_Type)
#undef ZORVAN_IS

}  // namespace

ConvertToZorvanDataArrayFactory::ConverterMap ConvertToZorvanDataArrayFactory::initConverterMap() {
  return {
      {"float", kByItself},
      {"int", kByItself},
      {"bool", kByItself},
      {"str", kByItself},
      {"dict", kByItself},
      {"list", kByItself},
      {"tuple", kByItself},
      {"complex", use<PyComplexToDouble>(isComplexNumber)},
      {"bytes", use<PyBytesToUint8>(isBytes)},
      {"bytearray", use<PyByteArrayToUint8>(isByteArray)},
      {"set", use<PySetToCell>(isSet)},
      {"NoneType", use<PyNoneToError>(isNone)},
      {"memoryview", use<BufferProtocolObjectToBuffer>(isMemoryView)},
      {"datetime.datetime", use<PyDatetimeToDatetime>(isDatetime)},
      {"numpy.datetime64", use<PyNumpyDatetime64ScalarToDatetime>(isNumpyDatetime64)},
      {"datetime.timedelta", use<PyTimedeltaToDuration>(isTimedelta)},
      {"numpy.timedelta64", use<PyNumpyTimedelta64ToDuration>(isNumpyTimedelta64)},
      {"pandas.DataFrame", use<PyDataFrameToTable>(isPandasDataFrame)},
      {"pandas.core.frame.DataFrame", use<PyDataFrameToTable>(isPandasDataFrame)},
      {"pandas.Timestamp", use<PyDatetimeToDatetime>(isPandasTimestamp)},
      {"pandas._libs.tslibs.timestamps.Timestamp", use<PyDatetimeToDatetime>(isPandasTimestamp)},
      {"pandas.Timedelta", use<PyTimedeltaToDuration>(isPandasTimedelta)},
      {"pandas._libs.tslibs.timedeltas.Timedelta", use<PyTimedeltaToDuration>(isPandasTimedelta)},
      {"zorvan.object", use<PyObjectToObject>(isZorvanObject)},
      {"zorvan.dictionary", use<PyDictionaryToDictionary>(isZorvanDictionary)},
      {"zorvan.double", use<NdPyDoubleToDouble>()},
      {"zorvan.single", use<NdPySingleToSingle>()},
      {"zorvan.int8", use<NdPyInt8ToInt8>()},
      {"zorvan.int16", use<NdPyInt16ToInt16>()},
      {"zorvan.int32", use<NdPyInt32ToInt32>()},
      {"zorvan.int64", use<NdPyInt64ToInt64>()},
      {"zorvan.uint8", use<NdPyUint8ToUint8>()},
      {"zorvan.uint16", use<NdPyUint16ToUint16>()},
      {"zorvan.uint32", use<NdPyUint32ToUint32>()},
      {"zorvan.uint64", use<NdPyUint64ToUint64>()},
      {"zorvan.logical", use<NdPyLogicalToLogical>()},
      {"<buffer>", use<BufferProtocolObjectToBuffer>(isNever)},
      {"numpy.ndarray", use<NumpyNDArrayObjectToBuffer>()},
  };
}

}  // namespace PythonZorvanDataArray::detail
