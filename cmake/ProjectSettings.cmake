# How every target of the project is compiled. Warnings are errors only where the developer asks for
# it (CMAKE_COMPILE_WARNING_AS_ERROR, set by the presets): a user's newer compiler may know more.

if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release CACHE STRING "Build type" FORCE)
endif()
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# Small calls cross many small functions of different folders.
if(NOT DEFINED CMAKE_INTERPROCEDURAL_OPTIMIZATION)
  include(CheckIPOSupported)
  check_ipo_supported(RESULT ipo_supported OUTPUT ipo_output LANGUAGES CXX)
  set(CMAKE_INTERPROCEDURAL_OPTIMIZATION_RELEASE ${ipo_supported})
endif()

add_compile_options(-Wall -Wextra -Wshadow)
# Results must not depend on which instructions the machine has: no fused multiplications.
add_compile_options(-ffp-contract=off)

# One folder is one static library: its name is the folder's, its sources are all there are in it.
function(add_folder_library name)
  file(GLOB sources CONFIGURE_DEPENDS "*.cpp")
  add_library(${name} STATIC ${sources})
endfunction()
