# The shared library as it is shipped: SONAME, exports and installation.
include(CMakePackageConfigHelpers)

# Installed files belong to a component, and a component becomes a package (cmake/Packages.cmake). A file
# without one is for developers who use the library.
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME dev)

target_link_libraries(fluviafs PRIVATE Threads::Threads ${FLUVIA_DEPENDENCIES})
target_include_directories(fluviafs INTERFACE
  $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}/api> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
set_target_properties(fluviafs PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION 0)
add_library(fluviafs::fluviafs ALIAS fluviafs)
# Worker threads run until the process ends: the code they run must stay mapped after dlclose().
target_link_options(fluviafs PRIVATE -Wl,-z,nodelete)

# Only the C interface is exported; scripts/checks/exports compares the result with the list.
set(FLUVIA_VERSION_SCRIPT ${CMAKE_CURRENT_SOURCE_DIR}/api/fluviafs.map)
target_link_options(fluviafs PRIVATE -Wl,--version-script=${FLUVIA_VERSION_SCRIPT})
set_target_properties(fluviafs PROPERTIES LINK_DEPENDS ${FLUVIA_VERSION_SCRIPT})

set(FLUVIA_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/fluviafs)
install(TARGETS fluviafs EXPORT fluviafsTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev)
install(FILES api/fluviafs.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT fluviafsTargets NAMESPACE fluviafs:: DESTINATION ${FLUVIA_PACKAGE_DIR})

configure_package_config_file(cmake/fluviafsConfig.cmake.in fluviafsConfig.cmake
  INSTALL_DESTINATION ${FLUVIA_PACKAGE_DIR} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(fluviafsConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/fluviafsConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/fluviafsConfigVersion.cmake DESTINATION ${FLUVIA_PACKAGE_DIR})

file(RELATIVE_PATH FLUVIA_PC_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
file(RELATIVE_PATH FLUVIA_PC_INCLUDEDIR ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_INCLUDEDIR})
file(RELATIVE_PATH FLUVIA_PC_LIBDIR ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_LIBDIR})
configure_file(cmake/fluviafs.pc.in fluviafs.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/fluviafs.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

include(cmake/Documents.cmake)
