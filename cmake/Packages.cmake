# Debian packages by CPack: scripts/make-debs makes them.
option(FLUVIA_PACKAGES "Make Debian packages (cpack)" OFF)
if(NOT FLUVIA_PACKAGES)
  return()
endif()

# Code that faces the network is hardened as in Debian's own packages. scripts/abi reads the debug information
# of the library; for the programs it would double the compile time.
target_compile_options(fluviafs_objects PRIVATE -g -fstack-protector-strong -D_FORTIFY_SOURCE=2)

get_target_property(soversion fluviafs SOVERSION)
set(FLUVIA_RUNTIME_PACKAGE libfluviafs${soversion})
set(FLUVIA_DEV_PACKAGE libfluviafs-dev)
set(FLUVIA_TOOLS_PACKAGE fluviafs-tools)
set(FLUVIA_GSTREAMER_PACKAGE gstreamer1.0-fluvia)
set(components runtime dev tools)
if(TARGET gstfluvia)
  list(APPEND components gstreamer)
endif()

set(FLUVIA_MAINTAINER "libfluviafs maintainers <maintainers@fluviafs.example>")
set(release 1)
set(PACKAGING ${CMAKE_CURRENT_SOURCE_DIR}/packaging)
set(PACKAGING_MADE ${CMAKE_CURRENT_BINARY_DIR}/packaging)

# Fields of every package. A version without a date in CHANGELOG.md is not released.
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/CHANGELOG.md)
file(STRINGS CHANGELOG.md headings REGEX "^## ")
list(GET headings 0 heading)
if(heading MATCHES "^## ${PROJECT_VERSION}, ([0-9-]+)$")
  set(FLUVIA_DISTRIBUTION bookworm)
  set(moment ${CMAKE_MATCH_1})
else()
  set(FLUVIA_DISTRIBUTION UNRELEASED)
  file(TIMESTAMP CHANGELOG.md moment "%Y-%m-%dT%H:%M:%SZ" UTC)
endif()
execute_process(COMMAND ${CMAKE_COMMAND} -E env LC_ALL=C date --utc --rfc-email --date=${moment}
                OUTPUT_VARIABLE FLUVIA_PACKAGE_DATE OUTPUT_STRIP_TRAILING_WHITESPACE
                COMMAND_ERROR_IS_FATAL ANY)
set(FLUVIA_PACKAGE_VERSION ${PROJECT_VERSION}-${release})
configure_file(${PACKAGING}/changelog.Debian.in ${PACKAGING_MADE}/changelog.Debian @ONLY)
configure_file(CHANGELOG.md ${PACKAGING_MADE}/changelog COPYONLY)

foreach(component ${components})
  string(TOUPPER ${component} upper)
  set(package ${FLUVIA_${upper}_PACKAGE})
  install(FILES ${PACKAGING}/copyright ${PACKAGING_MADE}/changelog ${PACKAGING_MADE}/changelog.Debian
          DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT ${component})
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${package})
  set(CPACK_DEBIAN_${upper}_PACKAGE_SHLIBDEPS ON)
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_COMPONENTS_ALL ${components})
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_PRE_BUILD_SCRIPTS ${PACKAGING}/compress.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${PACKAGING}/finish.cmake)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SOURCE fluviafs)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${release})
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE "${FLUVIA_DEBIAN_ARCHITECTURE}")
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${FLUVIA_MAINTAINER}")
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
# The library itself, so that dpkg-shlibdeps finds it for the programs linked with it, and the libraries of
# the target if it is another machine.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_CURRENT_BINARY_DIR})
if(CMAKE_SYSROOT)
  list(APPEND CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
       ${CMAKE_SYSROOT}/lib/${CMAKE_LIBRARY_ARCHITECTURE} ${CMAKE_SYSROOT}/usr/lib/${CMAKE_LIBRARY_ARCHITECTURE})
endif()

# The first line of a description is its summary; CPack would put the project's before it.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(summary "file-like access to local files and HTTP resources")
set(about "libfluviafs gives programs one file-like C interface (open, read, seek, size)
over local files and HTTP or HTTPS resources. It keeps data ahead of the
reader, reconnects where the reader needs it, and shares one download between
all handles on the same URL.
.")
# dpkg-shlibdeps knows which functions are called, but not with which options.
set(on_curl "libcurl4 (>= 7.87.0)")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS ${on_curl})
# For the reason see SECURITY.md. Debian 12 has no such version, so the packages only suggest it.
set(newer_expat "libexpat1 (>= 2.7.1)")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SUGGESTS ${newer_expat})
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "${summary} - shared library
${about}
This package has the shared library.")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PACKAGING}/shlibs ${PACKAGING}/symbols ${PACKAGING}/triggers)

set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "${FLUVIA_RUNTIME_PACKAGE} (= ${FLUVIA_PACKAGE_VERSION})")
set(CPACK_DEBIAN_DEV_DESCRIPTION "${summary} - development files
${about}
This package has the header and what pkg-config and CMake need to find the
library.")

set(on_runtime "${FLUVIA_RUNTIME_PACKAGE} (>= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION video)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${on_runtime}, ${on_curl}")
set(CPACK_DEBIAN_TOOLS_PACKAGE_SUGGESTS ${newer_expat})
set(CPACK_DEBIAN_TOOLS_PACKAGE_RECOMMENDS fuse3)
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "${summary} - command line
${about}
This package has fluvia, which streams, describes and checks sources, and
fluvia-mount, which shows them as files of a folder.")

set(CPACK_DEBIAN_GSTREAMER_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_GSTREAMER_PACKAGE_DEPENDS ${on_runtime})
set(CPACK_DEBIAN_GSTREAMER_DESCRIPTION "${summary} - GStreamer plugin
${about}
This package has fluviasrc, a source element for GStreamer.")

include(CPack)
