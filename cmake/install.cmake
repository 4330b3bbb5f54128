# SPDX-License-Identifier: Apache-2.0
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

install(TARGETS ${ZONM_LIBRARIES} EXPORT zonm
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES ${PROJECT_SOURCE_DIR}/include/zonm.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES ${PROJECT_SOURCE_DIR}/zonm.json ${PROJECT_SOURCE_DIR}/zonm.schema.json
  DESTINATION ${CMAKE_INSTALL_DATADIR}/zonm)
install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})

set(ZONM_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/zonm)
install(EXPORT zonm NAMESPACE zonm:: FILE zonm-targets.cmake DESTINATION ${ZONM_PACKAGE_DIR})
configure_package_config_file(
  ${PROJECT_SOURCE_DIR}/cmake/zonm-config.cmake.in ${PROJECT_BINARY_DIR}/zonm-config.cmake
  INSTALL_DESTINATION ${ZONM_PACKAGE_DIR})
write_basic_package_version_file(
  ${PROJECT_BINARY_DIR}/zonm-config-version.cmake COMPATIBILITY SameMajorVersion)
install(
  FILES ${PROJECT_BINARY_DIR}/zonm-config.cmake ${PROJECT_BINARY_DIR}/zonm-config-version.cmake
  DESTINATION ${ZONM_PACKAGE_DIR})

# The prefix follows the file, so that an installed tree can be moved.
file(RELATIVE_PATH ZONM_PREFIX_FROM_PC
  /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
set(ZONM_PC_PRIVATE "Libs.private: -lm")
if(NOT ZONM_SHARED) # then what -lzonm finds needs it in every program
  set(ZONM_PC_PRIVATE "Libs.private:")
  set(ZONM_PC_STATIC " -lm")
  set(ZONM_PC_DEFINE " -DZONM_STATIC")
endif()
configure_file(${PROJECT_SOURCE_DIR}/cmake/zonm.pc.in ${PROJECT_BINARY_DIR}/zonm.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/zonm.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
