# SPDX-License-Identifier: Apache-2.0
set(ZONM_ARCH "" CACHE STRING
  "Processor to compile for, as -march takes it (x86-64-v3, native); empty for the platform's baseline")

set(ZONM_SOURCES
  src/elementwise/matrix_sums.cpp
  src/frame/attach.cpp
  src/frame/generated/exports.cpp
  src/frame/version.cpp
  src/products/matrix_product.cpp
  src/solvers/lu_back_subst.cpp
  src/solvers/lu_decomp.cpp
)
list(TRANSFORM ZONM_SOURCES PREPEND ${PROJECT_SOURCE_DIR}/)

# The same bits everywhere: no contraction, and never the x87. The other two change no result.
set(ZONM_ARITHMETIC -ffp-contract=off -fno-math-errno -fno-trapping-math)
if(CMAKE_SIZEOF_VOID_P EQUAL 4 AND CMAKE_SYSTEM_PROCESSOR MATCHES "x86|i[3-6]86")
  list(APPEND ZONM_ARITHMETIC -msse2 -mfpmath=sse)
endif()
if(ZONM_ARCH)
  list(APPEND ZONM_ARITHMETIC -march=${ZONM_ARCH})
endif()

# The products are written in an order in which registers suffice; this pass of GCC would put off
# the arithmetic to the stores and spill.
set_source_files_properties(${PROJECT_SOURCE_DIR}/src/products/matrix_product.cpp PROPERTIES
  COMPILE_OPTIONS $<$<CXX_COMPILER_ID:GNU>:-fno-tree-ter>)

# One set of objects serves the shared and the static library.
add_library(zonm_objects OBJECT ${ZONM_SOURCES})
target_compile_features(zonm_objects PUBLIC cxx_std_20)
set_target_properties(zonm_objects PROPERTIES
  CXX_EXTENSIONS OFF
  POSITION_INDEPENDENT_CODE ON
  CXX_VISIBILITY_PRESET hidden
  VISIBILITY_INLINES_HIDDEN ON)
target_include_directories(zonm_objects PRIVATE
  ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/include)
target_compile_definitions(zonm_objects PRIVATE ZONM_BUILDING)
target_compile_options(zonm_objects PRIVATE
  -Wall -Wextra -Wpedantic -Wshadow -Wno-psabi
  ${ZONM_ARITHMETIC}
  # Nothing of the C++ run-time library is needed.
  -fno-exceptions -fno-rtti -fno-threadsafe-statics)

# As a part of a project without a build type it is optimised all the same.
if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
  target_compile_options(zonm_objects PRIVATE -O3 -DNDEBUG)
endif()

set(ZONM_LIBRARIES)
if(ZONM_SHARED)
  add_library(zonm SHARED $<TARGET_OBJECTS:zonm_objects>)
  list(APPEND ZONM_LIBRARIES zonm)
  add_library(zonm::zonm ALIAS zonm)
endif()
if(ZONM_STATIC)
  add_library(zonm_static STATIC $<TARGET_OBJECTS:zonm_objects>)
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
