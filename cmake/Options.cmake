# The compile options of every target of the project, and the libraries it uses.
option(FLUVIA_TESTS "Build the tests" ON)
option(FLUVIA_WERROR "Warnings are errors" ON)
option(FLUVIA_PAUSE_POINTS "Compile the named pause points that tests use to force interleavings" OFF)
option(FLUVIA_CHECK_INVARIANTS "Check the buffer queue's invariants whenever its lock is given back" OFF)
set(FLUVIA_LIBRARY_OPTIONS "" CACHE STRING "Compile options of the library alone, for the processor of a device")
set(FLUVIA_SANITIZE "" CACHE STRING "Sanitizers, as -fsanitize= takes them")
option(FLUVIA_SANITIZE_TESTS "The code of the tests is sanitized too" ON)
option(FLUVIA_PRECOMPILE_TESTS "The headers that most tests include are read once for all of them" OFF)

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 99)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

set(THREADS_PREFER_PTHREAD_FLAG ON)
find_package(Threads REQUIRED)
# 7.87: CURLOPT_QUICK_EXIT; 7.85: CURLOPT_REDIR_PROTOCOLS_STR.
find_package(CURL 7.87.0 REQUIRED)
find_package(OpenSSL REQUIRED)
# 2.4.0: it can limit how far entities expand.
find_package(EXPAT 2.4.0 REQUIRED)
if(EXPAT_VERSION_STRING VERSION_LESS 2.7.1)
  message(STATUS "expat ${EXPAT_VERSION_STRING}: 2.7.1 or newer is recommended, see SECURITY.md")
endif()
# Command lines of the programs; the library does not use it.
find_package(CLI11 REQUIRED)
set(FLUVIA_DEPENDENCIES CURL::libcurl OpenSSL::Crypto EXPAT::EXPAT)

add_library(fluvia_options INTERFACE)
# Offsets and sizes are 64 bits on every target.
target_compile_definitions(fluvia_options INTERFACE _FILE_OFFSET_BITS=64 _GNU_SOURCE)
target_compile_options(fluvia_options INTERFACE -Wall -Wextra -Wshadow -Wconversion
  $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>)
if(FLUVIA_WERROR)
  target_compile_options(fluvia_options INTERFACE -Werror)
endif()
if(CMAKE_CXX_COMPILER_ID MATCHES Clang)
  target_compile_options(fluvia_options INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-Wthread-safety>)
endif()
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^arm" AND CMAKE_CXX_COMPILER_ID STREQUAL GNU)
  # Notes about GCC 7's change in passing 64-bit arguments; no older compiler is in use.
  add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-Wno-psabi>)
endif()
if(FLUVIA_PAUSE_POINTS)
  target_compile_definitions(fluvia_options INTERFACE FLUVIA_PAUSE_POINTS)
endif()
# A debug build and one with a sanitizer check invariants.
if(FLUVIA_CHECK_INVARIANTS OR FLUVIA_SANITIZE OR CMAKE_BUILD_TYPE STREQUAL "Debug")
  target_compile_definitions(fluvia_options INTERFACE FLUVIA_CHECK_INVARIANTS)
endif()
if(FLUVIA_SANITIZE)
  add_compile_options(-fsanitize=${FLUVIA_SANITIZE} -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${FLUVIA_SANITIZE})
  if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    # The instrumentation makes GCC 12 report uninitialised members in the standard library's own code; the
    # other builds keep the warning.
    add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-Wno-maybe-uninitialized>)
  endif()
  if(FLUVIA_SANITIZE MATCHES undefined)
    add_compile_options(-fno-sanitize-recover=undefined)
  endif()
  # GCC defines these itself.
  if(CMAKE_CXX_COMPILER_ID MATCHES Clang)
    foreach(sanitizer address thread)
      if(FLUVIA_SANITIZE MATCHES ${sanitizer})
        string(TOUPPER ${sanitizer} SANITIZER)
        add_compile_definitions(__SANITIZE_${SANITIZER}__)
      endif()
    endforeach()
  endif()
endif()

find_program(CCACHE ccache)
if(CCACHE)
  set(CMAKE_C_COMPILER_LAUNCHER ${CCACHE})
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE})
  if(FLUVIA_PRECOMPILE_TESTS)
    # ccache cannot check two things through a precompiled header: __TIME__ and the like, which nothing here
    # uses, and macros defined before it, which the command line defines for all.
    set(CMAKE_CXX_COMPILER_LAUNCHER env CCACHE_SLOPPINESS=pch_defines,time_macros ${CCACHE})
  endif()
endif()
