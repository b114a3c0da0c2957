# 32-bit ARM, hard float, with the sysroot of scripts/arm-sysroot. Tests run in qemu.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)

set(FLUVIA_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../../build/arm-sysroot
    CACHE PATH "The target's libraries and headers")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES FLUVIA_SYSROOT)
get_filename_component(CMAKE_SYSROOT ${FLUVIA_SYSROOT} ABSOLUTE)
if(NOT EXISTS ${CMAKE_SYSROOT}/stamp)
  message(FATAL_ERROR "${CMAKE_SYSROOT} is missing: run scripts/arm-sysroot")
endif()

set(FLUVIA_TRIPLET arm-linux-gnueabihf)
set(CMAKE_C_COMPILER ${FLUVIA_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${FLUVIA_TRIPLET}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${FLUVIA_TRIPLET})
# Uses the target's own loader rather than qemu's -L, which would show programs the sysroot's folders in place
# of the machine's, "/" among them.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm;${CMAKE_SYSROOT}/lib/ld-linux-armhf.so.3;--library-path
    ${CMAKE_SYSROOT}/lib/${FLUVIA_TRIPLET}:${CMAKE_SYSROOT}/usr/lib/${FLUVIA_TRIPLET})

# Programs of this machine, everything else of the target.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_DIR} "")
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR} ${CMAKE_SYSROOT}/usr/lib/${FLUVIA_TRIPLET}/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig)
