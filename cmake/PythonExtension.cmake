# add_abi3_module(<name> <source>...)
#
# An extension module for the stable ABI of CPython 3.11: one file serves 3.11 and every later
# version. It is installed at the top of the site-packages directory and exports PyInit_* only.

set(PYTHON_STABLE_ABI 0x030B0000)
set(EXTENSION_SYMBOLS ${CMAKE_CURRENT_LIST_DIR}/extension.map)

function(add_abi3_module name)
  Python_add_library(${name} MODULE ${ARGN})
  target_compile_definitions(${name} PRIVATE Py_LIMITED_API=${PYTHON_STABLE_ABI})
  set_target_properties(${name} PROPERTIES PREFIX "" SUFFIX ".abi3.so"
                                           LINK_DEPENDS ${EXTENSION_SYMBOLS})
  target_link_options(${name} PRIVATE LINKER:--version-script=${EXTENSION_SYMBOLS})
  install(TARGETS ${name} LIBRARY DESTINATION .)
endfunction()
