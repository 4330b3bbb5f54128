# SPDX-License-Identifier: Apache-2.0
# Builds tests/consumer against an installed copy, as a subdirectory and through pkg-config.
# In: SUBDIRECTORY (whether), ZONM_SOURCE, ZONM_BUILD (a built tree), WORK (scratch), CC, CXX, FLAGS, GENERATOR, EXAMPLES
function(run)
  execute_process(COMMAND ${ARGV} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT result EQUAL 0)
    list(JOIN ARGV " " command)
    message(FATAL_ERROR "failed: ${command}\n${output}")
  endif()
endfunction()

file(REMOVE_RECURSE ${WORK})
set(compilers -DCMAKE_C_COMPILER=${CC} -DCMAKE_CXX_COMPILER=${CXX}
  -DCMAKE_C_FLAGS=${FLAGS} -DCMAKE_CXX_FLAGS=${FLAGS})

# consumer(NAME OPTION...): the project of a user, configured, built and run.
function(consumer name)
  run(${CMAKE_COMMAND} -G ${GENERATOR} -S ${ZONM_SOURCE}/tests/consumer -B ${WORK}/${name} ${compilers} ${ARGN})
  run(${CMAKE_COMMAND} --build ${WORK}/${name})
  run(${CMAKE_CTEST_COMMAND} --test-dir ${WORK}/${name} --no-tests=error)
endfunction()

# An installed copy that is moved afterwards still works, also with the components named.
run(${CMAKE_COMMAND} --install ${ZONM_BUILD} --prefix ${WORK}/installed)
file(RENAME ${WORK}/installed ${WORK}/moved)
consumer(find_package -DCMAKE_PREFIX_PATH=${WORK}/moved "-DZONM_COMPONENTS=shared\\;static")

# A component that there is not is refused with the reason.
execute_process(
  COMMAND ${CMAKE_COMMAND} -G ${GENERATOR} -S ${ZONM_SOURCE}/tests/consumer -B ${WORK}/no_component
    ${compilers} -DCMAKE_PREFIX_PATH=${WORK}/moved -DZONM_COMPONENTS=headers
  RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
string(REGEX REPLACE "[ \n]+" " " output "${output}")
if(result EQUAL 0 OR NOT output MATCHES "no component 'headers'")
  message(FATAL_ERROR "an unknown component is not refused with a reason:\n${output}")
endif()

if(SUBDIRECTORY)
  # As a subdirectory: without a build type the library is optimised all the same, static alone suffices
  # for zonm::zonm, and what the parent installs holds nothing of it. (Built without optimisation, for time.)
  run(${CMAKE_COMMAND} -G ${GENERATOR} -S ${ZONM_SOURCE}/tests/consumer -B ${WORK}/subdirectory ${compilers}
    -DZONM_SOURCE_TREE=${ZONM_SOURCE} -DZONM_SHARED=OFF -DCMAKE_EXPORT_COMPILE_COMMANDS=ON)
  file(STRINGS ${WORK}/subdirectory/compile_commands.json plain REGEX "\"command\".*matrix_sums\\.cpp")
  foreach(command IN LISTS plain)
    if(NOT command MATCHES " -O3 ")
      message(FATAL_ERROR "not optimised as a subdirectory: ${command}")
    endif()
  endforeach()
  if(NOT plain)
    message(FATAL_ERROR "the subdirectory's compile commands are not found")
  endif()
  consumer(subdirectory -DCMAKE_BUILD_TYPE=Debug)
  run(${CMAKE_COMMAND} --install ${WORK}/subdirectory --prefix ${WORK}/parent)
  file(GLOB_RECURSE installed RELATIVE ${WORK}/parent ${WORK}/parent/*)
  if(NOT installed STREQUAL "consumer.c")
    message(FATAL_ERROR "the parent installs what it did not ask for: ${installed}")
  endif()
endif()

# The examples against the installed copy.
if(EXAMPLES AND SUBDIRECTORY)
  run(${CMAKE_COMMAND} -G ${GENERATOR} -S ${ZONM_SOURCE}/examples -B ${WORK}/examples ${compilers}
    -DCMAKE_PREFIX_PATH=${WORK}/moved)
  run(${CMAKE_COMMAND} --build ${WORK}/examples --target readme solve sums trend)
  run(${WORK}/examples/solve)
endif()

file(GLOB_RECURSE pc ${WORK}/moved/*/zonm.pc)
get_filename_component(pc_dir ${pc} DIRECTORY)
get_filename_component(lib_dir ${pc_dir} DIRECTORY)
set(ENV{PKG_CONFIG_PATH} ${pc_dir})
separate_arguments(flags UNIX_COMMAND "${FLAGS}")
foreach(language c cpp)
  if(language STREQUAL "c")
    set(compiler ${CC} -std=c99)
  else()
    set(compiler ${CXX} -std=c++20)
  endif()
  execute_process(COMMAND pkg-config --cflags --libs zonm
    OUTPUT_VARIABLE options OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  separate_arguments(options UNIX_COMMAND "${options}")
  run(${compiler} ${flags} ${ZONM_SOURCE}/tests/consumer/consumer.${language} ${options}
    -Wl,-rpath,${lib_dir} -o ${WORK}/pkgconfig_${language})
  run(${WORK}/pkgconfig_${language})
endforeach()
