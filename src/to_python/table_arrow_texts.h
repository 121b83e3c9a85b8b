// Columns of texts in the form in which pandas keeps texts by default where it has Arrow, without
// an object for each text.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "util/py_object_guard.h"
#include "zorvandata/texts.h"

namespace PythonZorvanDataArray::detail {

// The texts as a pandas array, which may share their memory. Nothing when a list of str is the way:
// for few texts, where pandas keeps them otherwise, and for texts with lone surrogates, which
// cannot be had at all. Throws PythonErrorSet.
std::optional<PythonUtil::PyObjectWithGuard> makeArrowTexts(
    const foundation::zorvandata::Texts& texts);

// Likewise of `count` texts, each given by its position, an integer of any type, among others.
template <class Position>
std::optional<PythonUtil::PyObjectWithGuard> makeArrowTexts(
    const std::vector<std::string>& distinct, const Position* positions, size_t count);

}  // namespace PythonZorvanDataArray::detail
