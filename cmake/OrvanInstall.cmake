# `cmake --install`: headers, the three libraries, a CMake package
# (find_package(OrvanCore CONFIG) gives Orvan::Core, Orvan::Utils and
# Orvan::TraductionInterface) and a pkg-config file.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(ORVAN_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/OrvanCore)

set_target_properties(Orvan_Utils PROPERTIES EXPORT_NAME Utils)
set_target_properties(Orvan_TraductionInterface PROPERTIES EXPORT_NAME TraductionInterface)
set_target_properties(Orvan_Core PROPERTIES EXPORT_NAME Core)

install(TARGETS Orvan_Utils Orvan_TraductionInterface Orvan_Core
  EXPORT OrvanCoreTargets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})

foreach(library Utils TraductionInterface Core)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/src/${library}/include/
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
    FILES_MATCHING PATTERN "*.h")
endforeach()
install(FILES ${PROJECT_BINARY_DIR}/src/Core/generated/include/Core/Version.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/Core)

install(EXPORT OrvanCoreTargets NAMESPACE Orvan:: DESTINATION ${ORVAN_PACKAGE_DIR})

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/OrvanCoreConfig.cmake.in
  ${PROJECT_BINARY_DIR}/OrvanCoreConfig.cmake
  INSTALL_DESTINATION ${ORVAN_PACKAGE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/OrvanCoreConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/OrvanCoreConfig.cmake
  ${PROJECT_BINARY_DIR}/OrvanCoreConfigVersion.cmake
  DESTINATION ${ORVAN_PACKAGE_DIR})

# The pkg-config file finds the prefix from its own place, however deep the
# library directory is (lib, lib64, lib/x86_64-linux-gnu). Absolute
# directories are written as they are, and the file is then not relocatable.
set(ORVAN_PC_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
if(IS_ABSOLUTE "${ORVAN_PC_DIR}")
  set(ORVAN_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
else()
  string(REGEX REPLACE "[^/]+" ".." ORVAN_PC_PREFIX_FROM_PCFILEDIR "${ORVAN_PC_DIR}")
  set(ORVAN_PC_PREFIX "\${pcfiledir}/${ORVAN_PC_PREFIX_FROM_PCFILEDIR}")
endif()
foreach(kind LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${kind}}")
    set(ORVAN_PC_${kind} "${CMAKE_INSTALL_${kind}}")
  else()
    set(ORVAN_PC_${kind} "\${prefix}/${CMAKE_INSTALL_${kind}}")
  endif()
endforeach()
configure_file(${CMAKE_CURRENT_LIST_DIR}/orvan-core.pc.in ${PROJECT_BINARY_DIR}/orvan-core.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/orvan-core.pc DESTINATION ${ORVAN_PC_DIR})

# A format definition for lnav, so that the file logger's lines show with
# their level and time in the viewer.
install(FILES ${PROJECT_SOURCE_DIR}/tools/lnav/orvan_log.json DESTINATION ${CMAKE_INSTALL_DATADIR}/orvan/lnav)
