// A pandas.DataFrame becomes a scalar value object of class "table", or "timetable" when it has a
// datetime column: the first one then gives the row times. See table_image.h for both and
// column_converter.h for the columns.
//
// An index other than the default one goes over as leading columns, which `reset_index` makes.
// Names that several columns share get the suffixes _1, _2, ... A frame with the default index gets
// its new names itself: they are assigned to the caller's object.
#pragma once

#include "to_array/convert_to_zorvan_data_array.h"

namespace PythonZorvanDataArray::detail {

// UnicodeDecodeError for a column name without a text; for columns see there. What pandas raises
// passes through.
class PyDataFrameToTable final : public ConvertToZorvanDataArray {
 public:
  void append(Encoder& to, PyObject* obj, const Options& options) const override;
};

}  // namespace PythonZorvanDataArray::detail
