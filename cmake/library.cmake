# SPDX-License-Identifier: Apache-2.0
set(ZONM_ARCH "" CACHE STRING
  "Processor to compile for, as -march takes it (x86-64-v3, native); empty for the platform's baseline")

# The same bits everywhere: no contraction, no value-changing mode, and never the x87. These options
# stand behind the user's and undo what is undone; no trap and no errno changes no result.
set(ZONM_ARITHMETIC -fno-fast-math -fno-associative-math -fno-reciprocal-math
  -fno-finite-math-only -fsigned-zeros -ffp-contract=off)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # In Clang the first of them is part of -fno-fast-math, and by itself would bring traps back.
  list(APPEND ZONM_ARITHMETIC -fno-unsafe-math-optimizations -fno-single-precision-constant)
endif()
list(APPEND ZONM_ARITHMETIC -fno-math-errno -fno-trapping-math)
# Where these are in force at link time, GCC and Clang add a start-up file that flushes denormals in
# the whole process. For a build type that says -Ofast there is no such undoing.
set(ZONM_LINKING -fno-fast-math -fno-unsafe-math-optimizations)
string(TOUPPER "${CMAKE_BUILD_TYPE}" ZONM_TYPE)
foreach(language C CXX)
  if("${CMAKE_${language}_FLAGS} ${CMAKE_${language}_FLAGS_${ZONM_TYPE}}" MATCHES "-Ofast|-ffast-math")
    message(FATAL_ERROR "zonm must not be compiled with ${CMAKE_MATCH_0}: results would change")
  endif()
endforeach()
if(CMAKE_SIZEOF_VOID_P EQUAL 4 AND CMAKE_SYSTEM_PROCESSOR MATCHES "x86|AMD64|i[3-6]86")
  list(APPEND ZONM_ARITHMETIC -msse2 -mfpmath=sse)
  # Callers keep the stack to 4 bytes there, as the platform's oldest convention has it.
  set(ZONM_CALLED -mstackrealign)
endif()
if(ZONM_ARCH)
  list(APPEND ZONM_ARITHMETIC -march=${ZONM_ARCH})
endif()

# GCC's straight-line vectoriser takes a double that was rounded to float and widened again for the
# double that it came from: units with 32f arithmetic do without it.
set(ZONM_ROUNDING $<$<CXX_COMPILER_ID:GNU>:-fno-tree-slp-vectorize>)

# Where the processor has fused operations, it also forms alternating ones (vfmaddsub) in spite of
# -ffp-contract=off: there 64f does without it too.
include(CheckCXXSourceCompiles)
set(CMAKE_REQUIRED_FLAGS ${ZONM_ARITHMETIC})
list(FILTER CMAKE_REQUIRED_FLAGS INCLUDE REGEX "^-m")
list(JOIN CMAKE_REQUIRED_FLAGS " " CMAKE_REQUIRED_FLAGS)
check_cxx_source_compiles("#if !defined(__FMA__) && !defined(__FP_FAST_FMA)
#error
#endif
int main() {}" ZONM_HAS_FUSED_OPERATIONS)
unset(CMAKE_REQUIRED_FLAGS)
set(ZONM_UNFUSED)
if(ZONM_HAS_FUSED_OPERATIONS)
  set(ZONM_UNFUSED ${ZONM_ROUNDING})
endif()

# These families have their packs by hand. GCC's vectorisers would only multiply the code of what is
# left: loops over tables, over wide steps, and over the few objects that fill no register. Copies of
# element tables gain by them.
file(GLOB with_packs CONFIGURE_DEPENDS
  ${PROJECT_SOURCE_DIR}/src/elementwise/*.cpp ${PROJECT_SOURCE_DIR}/src/products/*.cpp)
list(FILTER with_packs EXCLUDE REGEX "/copy\\.cpp$")
set_source_files_properties(${with_packs} PROPERTIES
  COMPILE_OPTIONS $<$<CXX_COMPILER_ID:GNU>:-fno-tree-vectorize>)

# The products are written in an order in which registers suffice; this pass of GCC would put off
# the arithmetic to the stores and spill.
set_source_files_properties(${PROJECT_SOURCE_DIR}/src/products/matrix_product.cpp PROPERTIES
  COMPILE_OPTIONS $<$<CXX_COMPILER_ID:GNU>:-fno-tree-ter>)

# The loops of the general eigenproblems run over a few elements: widened and unrolled, as -O3 does,
# they are larger and slower.
foreach(family eigen_values eigen_vectors)
  set_source_files_properties(${PROJECT_SOURCE_DIR}/src/eigen/${family}.cpp PROPERTIES
    COMPILE_OPTIONS $<$<AND:$<CXX_COMPILER_ID:GNU>,$<CONFIG:Release>>:-O2>)
endforeach()

# One set of objects serves the shared and the static library. In an object library all units get
# the same options and definitions.
function(zonm_objects name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;OPTIONS;DEFINITIONS")
  add_library(${name} OBJECT ${arg_SOURCES})
  target_compile_features(${name} PUBLIC cxx_std_20)
  set_target_properties(${name} PROPERTIES
    CXX_EXTENSIONS OFF
    POSITION_INDEPENDENT_CODE ON
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
  target_include_directories(${name} PRIVATE
    ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/include)
  target_compile_definitions(${name} PRIVATE ZONM_BUILDING ${arg_DEFINITIONS})
  target_compile_options(${name} PRIVATE
    -Wall -Wextra -Wpedantic -Wshadow -Wno-psabi
    ${ZONM_ARITHMETIC} ${ZONM_CALLED}
    # Nothing of the C++ run-time library is needed.
    -fno-exceptions -fno-rtti -fno-threadsafe-statics
    ${arg_OPTIONS})
  # As a part of a project without a build type it is optimised all the same.
  if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
    target_compile_options(${name} PRIVATE -O3 -DNDEBUG)
  endif()
endfunction()

# A family is a file src/<subsystem>/<family>.cpp, compiled once per element type; the fixed-size
# kit has one type only.
file(GLOB ZONM_FRAME CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/frame/*.cpp)
file(GLOB ZONM_FAMILIES CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/*/*.cpp)
list(REMOVE_ITEM ZONM_FAMILIES ${ZONM_FRAME})
set(ZONM_FAMILIES_64F ${ZONM_FAMILIES})
list(FILTER ZONM_FAMILIES_64F EXCLUDE REGEX "/src/graphics/")

zonm_objects(zonm_frame SOURCES ${ZONM_FRAME} DEFINITIONS ZONM_VERSION="${PROJECT_VERSION}"
  ZONM_MAJOR=${PROJECT_VERSION_MAJOR} ZONM_MINOR=${PROJECT_VERSION_MINOR}
  ZONM_PATCH=${PROJECT_VERSION_PATCH})
zonm_objects(zonm_families_32f SOURCES ${ZONM_FAMILIES} DEFINITIONS ZONM_ELEMENT=32
  OPTIONS ${ZONM_ROUNDING})
zonm_objects(zonm_families_64f SOURCES ${ZONM_FAMILIES_64F} DEFINITIONS ZONM_ELEMENT=64
  OPTIONS ${ZONM_UNFUSED})
set(ZONM_OBJECTS $<TARGET_OBJECTS:zonm_frame>
  $<TARGET_OBJECTS:zonm_families_32f> $<TARGET_OBJECTS:zonm_families_64f>)

set(ZONM_LIBRARIES)
if(ZONM_SHARED)
  add_library(zonm SHARED ${ZONM_OBJECTS})
  list(APPEND ZONM_LIBRARIES zonm)
  add_library(zonm::zonm ALIAS zonm)
endif()
if(ZONM_STATIC)
  add_library(zonm_static STATIC ${ZONM_OBJECTS})
  list(APPEND ZONM_LIBRARIES zonm_static)
  add_library(zonm::static ALIAS zonm_static)
  set_target_properties(zonm_static PROPERTIES OUTPUT_NAME zonm EXPORT_NAME static)
  target_compile_definitions(zonm_static INTERFACE ZONM_STATIC)
  if(NOT ZONM_SHARED)
    add_library(zonm::zonm ALIAS zonm_static)
  endif()
endif()
# Linked as C, and only with what is used: the C++ run-time library is not even named.
foreach(library ${ZONM_LIBRARIES})
  set_target_properties(${library} PROPERTIES LINKER_LANGUAGE C)
  target_include_directories(${library} INTERFACE $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>)
  target_link_libraries(${library} PRIVATE m)
  target_link_options(${library} PRIVATE ${ZONM_LINKING})
endforeach()

if(ZONM_SHARED)
  set_target_properties(zonm PROPERTIES
    VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
  if(WIN32)
    set_target_properties(zonm PROPERTIES PREFIX "")
    target_sources(zonm PRIVATE ${PROJECT_SOURCE_DIR}/src/frame/generated/zonm.def)
  else()
    set(ZONM_MAP ${PROJECT_SOURCE_DIR}/src/frame/generated/zonm.map)
    target_link_options(zonm PRIVATE
      -Wl,--version-script=${ZONM_MAP} -Wl,-z,now -Wl,-z,relro -Wl,--as-needed)
    set_target_properties(zonm PROPERTIES LINK_DEPENDS ${ZONM_MAP})
  endif()
endif()
