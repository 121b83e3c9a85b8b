// What has to stand before the module can convert anything. Runs with the interpreter lock held;
// throws std::runtime_error with the reason, and a Python error may then be pending too.
#pragma once

namespace PythonZorvanDataArray {

// Readies the module's own types, then binds the package of multi-dimensional arrays.
void initPythonZorvanDataArray();

namespace detail {

// Makes zorvan.object, zorvan.dictionary and its iterator, and adds the first two to the package
// zorvan. Does nothing once it has succeeded.
void initZorvanObjectTypes();

}  // namespace detail
}  // namespace PythonZorvanDataArray
