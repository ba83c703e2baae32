# 32-bit ARM Linux (armhf) with Debian's cross compiler, so that pointer width,
# alignment and struct layouts are those of the 32-bit devices. Libraries come
# from the cross toolchain (/usr/arm-linux-gnueabihf) and from the folder that
# scripts/armhf-sysroot.sh fills; programs (Python for the code generator) come
# from the host.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
# GCC notes every call whose argument passing changed in GCC 7.1; that matters
# only when linking with code from a compiler older than that, never here.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)

if(NOT VELOUR_ARMHF_SYSROOT)
  get_filename_component(VELOUR_ARMHF_SYSROOT
    "${CMAKE_CURRENT_LIST_DIR}/../../build-armhf-sysroot" ABSOLUTE)
endif()
# try_compile projects read this file again and need the folder too.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES VELOUR_ARMHF_SYSROOT)

# Searches for libraries, headers and packages look only here, so that nothing
# of the host's x86-64 folders can be picked up.
set(CMAKE_FIND_ROOT_PATH "${VELOUR_ARMHF_SYSROOT}" /usr/arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The Khronos headers are included as <EGL/egl.h> without a folder of their own
# on the command line; the sysroot links them in beside the armhf headers.
set(CMAKE_C_STANDARD_INCLUDE_DIRECTORIES "${VELOUR_ARMHF_SYSROOT}/usr/include")
set(CMAKE_CXX_STANDARD_INCLUDE_DIRECTORIES "${VELOUR_ARMHF_SYSROOT}/usr/include")

# pkg-config reads the sysroot's files only, and its paths lead into it.
set(ENV{PKG_CONFIG_LIBDIR}
  "${VELOUR_ARMHF_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig:${VELOUR_ARMHF_SYSROOT}/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${VELOUR_ARMHF_SYSROOT}")

# libutils names libcutils and libbacktrace, and libbacktrace p7zip's 7z.so,
# through run paths of their own, which the linker reads on the host, not in
# the sysroot: it is told both folders.
set(VELOUR_ARMHF_RPATH_LINK
  "-Wl,-rpath-link,${VELOUR_ARMHF_SYSROOT}/usr/lib/arm-linux-gnueabihf/android"
  "-Wl,-rpath-link,${VELOUR_ARMHF_SYSROOT}/usr/lib/p7zip")
string(JOIN " " VELOUR_ARMHF_RPATH_LINK ${VELOUR_ARMHF_RPATH_LINK})
set(CMAKE_EXE_LINKER_FLAGS_INIT "${VELOUR_ARMHF_RPATH_LINK}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${VELOUR_ARMHF_RPATH_LINK}")
