# Cross build for the unit: 32-bit ARM Linux with Debian's armhf ABI (ARMv7, hard float),
# compiled by Debian's arm-linux-gnueabihf cross compiler (g++-arm-linux-gnueabihf).
#
# The armhf libraries come from a sysroot, by default build/sysroot-armhf (made by
# scripts/armhf-sysroot), or from the machine's own multiarch packages when
# TRELVO_ARMHF_SYSROOT is set to "/" (dpkg --add-architecture armhf and the :armhf -dev
# packages). Programs the build runs, protoc above all, are the build machine's own: the
# host's protoc must be the version of the armhf libprotobuf it links (both Debian 12's).
# Test programs run under qemu-arm, with the sysroot as its library prefix.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)

if(NOT DEFINED TRELVO_ARMHF_SYSROOT)
  if(DEFINED ENV{TRELVO_ARMHF_SYSROOT})
    set(TRELVO_ARMHF_SYSROOT "$ENV{TRELVO_ARMHF_SYSROOT}")
  else()
    get_filename_component(TRELVO_ARMHF_SYSROOT "${CMAKE_CURRENT_LIST_DIR}/../build/sysroot-armhf" ABSOLUTE)
  endif()
endif()
set(TRELVO_ARMHF_SYSROOT "${TRELVO_ARMHF_SYSROOT}" CACHE PATH "armhf root the cross build links against (/ for multiarch)")
if(NOT EXISTS "${TRELVO_ARMHF_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig")
  message(FATAL_ERROR "No armhf libraries in ${TRELVO_ARMHF_SYSROOT}: run scripts/setup armhf")
endif()

if(TRELVO_ARMHF_SYSROOT STREQUAL "/")
  set(ENV{PKG_CONFIG_SYSROOT_DIR} "")
  set(_trelvo_prefix "")
  set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm-static)
else()
  set(CMAKE_SYSROOT "${TRELVO_ARMHF_SYSROOT}")
  set(ENV{PKG_CONFIG_SYSROOT_DIR} "${TRELVO_ARMHF_SYSROOT}")
  set(_trelvo_prefix "${TRELVO_ARMHF_SYSROOT}")
  set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm-static -L "${TRELVO_ARMHF_SYSROOT}")
endif()
# Only the armhf .pc files: never the build machine's.
set(ENV{PKG_CONFIG_LIBDIR} "${_trelvo_prefix}/usr/lib/arm-linux-gnueabihf/pkgconfig:${_trelvo_prefix}/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_PATH} "")

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
