// The words of every conversion error, by name.
//
// A message is a NULL-terminated list of text pieces; values stand between them. Whoever detects a
// condition chooses the message and the exception class, and builds the text with `formatMessage`:
//
//   formatMessage(IndexExceedsDim, 7)  ->  "index 7 exceeds matrix dimensions"
//
// All of it is constant for the life of the process. `formatMessage` may throw std::bad_alloc.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <type_traits>

namespace PythonZorvanDataArray::detail {

using MessagePieces = const char* const[];

inline constexpr MessagePieces ArrayIsEmpty = {"array is empty", nullptr};
inline constexpr MessagePieces ArrayIsNull = {"array is null", nullptr};
inline constexpr MessagePieces AttributeNotRetrieved = {"unable to retrieve attribute '", "'",
                                                        nullptr};
inline constexpr MessagePieces CannotIterateOverDictionary = {
    "unable to iterate over zorvan.dictionary object", nullptr};
inline constexpr MessagePieces CannotIterateOverType = {"unable to iterate over '", "' object",
                                                        nullptr};
inline constexpr MessagePieces CapsuleIsNull = {"capsule is null", nullptr};
inline constexpr MessagePieces CapsuleUnableToRetrieveObject = {
    "capsule unable to retrieve object contents", nullptr};
inline constexpr MessagePieces CellArrayFromZorvan = {
    "cell arrays returned from ZORVAN must be 1-by-N or M-by-1", nullptr};
inline constexpr MessagePieces ChainMapContentsNotRetrieved = {
    "unable to retrieve contents of ChainMap object", nullptr};
inline constexpr MessagePieces ChainMapLengthUnexpected = {
    "length of 'maps' in ChainMap object is ", "; a value of 1 or greater is expected", nullptr};
inline constexpr MessagePieces CharArrayFromZorvan = {
    "char arrays returned from ZORVAN must be 1-by-N or M-by-1", nullptr};
inline constexpr MessagePieces CompareObjectOnly = {
    "comparison of objects of type '", "' with objects of another type not supported", nullptr};
inline constexpr MessagePieces EmptyStructFieldName = {"field name passed to ZORVAN is empty",
                                                       nullptr};
inline constexpr MessagePieces GeneralErrorWithText = {"error occurred: '", "'", nullptr};
inline constexpr MessagePieces IndexExceedsDim = {"index ", " exceeds matrix dimensions", nullptr};
inline constexpr MessagePieces InvalidNumberOfElements = {
    "invalid number of elements in object to be converted to a ZORVAN dictionary: ", "", nullptr};
inline constexpr MessagePieces InvalidRowTimesIndexTimeTable = {
    "invalid 'RowTimes' index in timetable for conversion to pandas.DataFrame object", nullptr};
inline constexpr MessagePieces InvalidStructFieldName = {
    "field name is not a valid ZORVAN identifier: '", "'", nullptr};
inline constexpr MessagePieces KeyValueDimsMustMatch = {
    "dimensions of the key and value must be the same, or the value must be scalar", nullptr};
inline constexpr MessagePieces KwargsNotDict = {"keyword argument object is not a dict", nullptr};
inline constexpr MessagePieces MethodNotCalled = {"unable to call method '", "'", nullptr};
inline constexpr MessagePieces NaTNotSupported = {
    "conversion of ZORVAN datetime scalar 'NaT' to Python not supported", nullptr};
inline constexpr MessagePieces NoDataAttributeInUserDict = {
    "unable to find 'data' attribute in UserDict object", nullptr};
inline constexpr MessagePieces NonTextFieldName = {
    "field name of Python dict object passed to ZORVAN must be a nonempty string", nullptr};
inline constexpr MessagePieces NoneNotSupported = {"passing 'None' to ZORVAN not supported",
                                                   nullptr};
inline constexpr MessagePieces NullNotSupported = {
    "passing null Python object pointer to ZORVAN not supported", nullptr};
inline constexpr MessagePieces NumIndexNotEqualToNumDim = {
    "number of indices (", ") not equal to the number of dimensions (", ")", nullptr};
inline constexpr MessagePieces ObjectCantBeGreaterEqual = {
    "'", "' does not support 'greater than or equal to' comparison", nullptr};
inline constexpr MessagePieces ObjectCantBeGreaterThan = {
    "'", "' does not support 'greater than' comparison", nullptr};
inline constexpr MessagePieces ObjectCantBeLessEqual = {
    "'", "' does not support 'less than or equal to' comparison", nullptr};
inline constexpr MessagePieces ObjectCantBeLessThan = {
    "'", "' does not support 'less than' comparison", nullptr};
inline constexpr MessagePieces PropertyNotFoundInObject = {"unable to find property '", "' in '",
                                                           "' object", nullptr};
inline constexpr MessagePieces RecurDictNotSupported = {
    "passing recursive dict to ZORVAN not supported", nullptr};
inline constexpr MessagePieces RecurListNotSupported = {
    "passing recursive list to ZORVAN not supported", nullptr};
inline constexpr MessagePieces SparseNotSupported = {
    "conversion of ZORVAN sparse array to Python not supported", nullptr};
inline constexpr MessagePieces StringArrayFromZorvan = {
    "string arrays returned from ZORVAN must be 1-by-N or M-by-1 ", nullptr};
inline constexpr MessagePieces StructArrayFromZorvan = {
    "only a scalar struct can be returned from ZORVAN", nullptr};
inline constexpr MessagePieces TimeZoneUnsupportedInPython = {
    "conversion of ZORVAN datetime object with time zone '", "' to Python not supported", nullptr};
inline constexpr MessagePieces TypeNotConvertibleToZORVANDictionary = {
    "conversion of object of type '", "' to a ZORVAN dictionary not supported", nullptr};
inline constexpr MessagePieces TypeNotConvertibleToZORVANDotDictionary = {
    "conversion of object of type '", "' to a zorvan.dictionary not supported", nullptr};
inline constexpr MessagePieces UnableToConvertDataFrameColumnName = {
    "unable to convert pandas.DataFrame column names to ZORVAN", nullptr};
inline constexpr MessagePieces UnableToCreateDataFrame = {
    "unable to create pandas.DataFrame object", nullptr};
inline constexpr MessagePieces UnableToCreateObject = {"unable to create object; details: ", "",
                                                       nullptr};
inline constexpr MessagePieces UnableToFlattenMultiDimensionalColumn = {
    "unable to flatten multidimensional array", nullptr};
inline constexpr MessagePieces UnableToRetrieveObject = {"unable to retrieve object at position ",
                                                         "", nullptr};
inline constexpr MessagePieces UnableToSetItem = {"unable to set element at offset ", "", nullptr};
inline constexpr MessagePieces UnexpectedKey = {"unexpected key", nullptr};
inline constexpr MessagePieces UnexpectedTimeZoneFormat = {
    "time zone of ZORVAN datetime object does not match the expected format '", "'", nullptr};
inline constexpr MessagePieces UnexpectedTimeZoneTypeAsInt = {
    "conversion of ZORVAN datetime object with time zone with type '", "' to Python not supported",
    nullptr};
inline constexpr MessagePieces UnexpectedTimeZoneTypeAsStr = {
    "conversion of ZORVAN datetime object with time zone with type '", "' to Python not supported",
    nullptr};
inline constexpr MessagePieces UnexpectedTypePassedToVisitor = {"unexpected type passed to visitor",
                                                                nullptr};
inline constexpr MessagePieces UnexpectedValue = {"unexpected value", nullptr};
inline constexpr MessagePieces UninitializedDictionary = {
    "field in zorvan.dictionary object has not been initialized", nullptr};
inline constexpr MessagePieces UnspecifiedTypeNotConvertibleToZORVANDotDictionary = {
    "conversion of this dictionary to a zorvan.dictionary not supported", nullptr};
inline constexpr MessagePieces UnsupportedDataFrameColumnTypeError = {
    "conversion of pandas.DataFrame '", "' column type to ZORVAN is not supported", nullptr};
inline constexpr MessagePieces UnsupportedHandleObjectReference = {
    "custom ZORVAN object conversion not supported. Extract the custom ZORVAN object's properties "
    "and manually convert each property to an equivalent Python object",
    nullptr};
inline constexpr MessagePieces UnsupportedInputArrayTypeError = {
    "conversion of ZORVAN '", "' array to Python is not supported", nullptr};
inline constexpr MessagePieces UnsupportedNestedTableConversion = {
    "conversion of this nested ZORVAN table is not supported. Use 'splitvars' to flatten it",
    nullptr};
inline constexpr MessagePieces UnsupportedNestedTimeTableConversion = {
    "conversion of this nested ZORVAN timetable is not supported. Use 'splitvars' to flatten it",
    nullptr};
inline constexpr MessagePieces UnsupportedPythonData = {"conversion of Python data type '",
                                                        "' to ZORVAN not supported", nullptr};
inline constexpr MessagePieces UnsupportedZorvanType = {"conversion of ZORVAN data type ",
                                                        " to Python not supported", nullptr};

// The text form of one value: integers in decimal, names as they are.
template <typename Value>
std::string messageValueText(const Value& value) {
  if constexpr (std::is_integral_v<Value>) {
    return std::to_string(value);
  } else {
    return std::string(std::string_view(value));
  }
}

// Piece 1, value 1, piece 2, value 2, ... The number of values is checked when this is compiled.
template <std::size_t pieceSlots, typename... Values>
std::string formatMessage(const char* const (&pieces)[pieceSlots], const Values&... values) {
  static_assert(sizeof...(Values) + 2 == pieceSlots, "one value between each two pieces");
  const char* const* piece = pieces;
  std::string text = *piece;
  ((text.append(messageValueText(values)).append(*++piece)), ...);
  return text;
}

}  // namespace PythonZorvanDataArray::detail
