# SPDX-License-Identifier: Apache-2.0
# Builds tests/consumer against an installed copy, as a subdirectory and through pkg-config.
# In: SUBDIRECTORY (whether), ZONM_SOURCE, ZONM_BUILD (a built tree), WORK (scratch), CC, CXX, FLAGS, GENERATOR
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

# An installed copy that is moved afterwards still works.
run(${CMAKE_COMMAND} --install ${ZONM_BUILD} --prefix ${WORK}/installed)
file(RENAME ${WORK}/installed ${WORK}/moved)
run(${CMAKE_COMMAND} -G ${GENERATOR} -S ${ZONM_SOURCE}/tests/consumer -B ${WORK}/find_package
  ${compilers} -DCMAKE_PREFIX_PATH=${WORK}/moved)
run(${CMAKE_COMMAND} --build ${WORK}/find_package)
run(${CMAKE_CTEST_COMMAND} --test-dir ${WORK}/find_package)

if(SUBDIRECTORY)
  run(${CMAKE_COMMAND} -G ${GENERATOR} -S ${ZONM_SOURCE}/tests/consumer -B ${WORK}/subdirectory
    ${compilers} -DZONM_SOURCE_TREE=${ZONM_SOURCE} -DCMAKE_BUILD_TYPE=Debug)
  run(${CMAKE_COMMAND} --build ${WORK}/subdirectory)
  run(${CMAKE_CTEST_COMMAND} --test-dir ${WORK}/subdirectory)
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
