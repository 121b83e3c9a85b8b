// The one door to the Python C API: nothing else includes Python.h.
//
// All code is written against the stable ABI of CPython 3.11, so that one built module serves every
// later version. The limited API consists of macros as well as functions, and a macro leaves no
// symbol behind by which a use of the full API could be found later: hence the check right here.
#pragma once

#ifndef Py_LIMITED_API
#define Py_LIMITED_API 0x030B0000
#endif

#if Py_LIMITED_API != 0x030B0000
#error "Py_LIMITED_API must be 0x030B0000, the stable ABI of CPython 3.11"
#endif

#ifndef PY_SSIZE_T_CLEAN
#define PY_SSIZE_T_CLEAN
#endif

#include <Python.h>
