# The platform log: Android's liblog on a device, Debian's build of it on a host.
if(ANDROID)
  find_library(VELOUR_LIBLOG log REQUIRED)
else()
  find_library(VELOUR_LIBLOG NAMES log
    PATHS /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android
    NO_DEFAULT_PATH REQUIRED)
endif()
if(ANDROID)
  # picojson is header-only and the NDK has none: take the host's, from a
  # folder of its own, as adding the host's /usr/include would bring its C
  # library headers into a device build.
  find_file(VELOUR_HOST_PICOJSON picojson.h PATHS /usr/include
    NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH REQUIRED)
  file(COPY ${VELOUR_HOST_PICOJSON} DESTINATION ${CMAKE_BINARY_DIR}/host-include)
  set(PICOJSON_INCLUDE_DIR ${CMAKE_BINARY_DIR}/host-include)
else()
  find_path(PICOJSON_INCLUDE_DIR picojson.h REQUIRED)
endif()

# The host's pkg-config files describe host libraries: a cross build whose
# toolchain names no folder of its own (the NDK's) must not see them.
if(CMAKE_CROSSCOMPILING AND NOT DEFINED ENV{PKG_CONFIG_LIBDIR})
  set(ENV{PKG_CONFIG_LIBDIR} ${CMAKE_BINARY_DIR}/pkgconfig)
endif()

# Binder and libutils. A device build links the system's libraries, which the
# NDK does not ship: point CMAKE_FIND_ROOT_PATH at a platform build's output.
# A host takes AOSP's headers and libutils from Debian and builds its own
# binder (src/platform/binder).
add_library(velour_android_headers INTERFACE)
if(ANDROID)
  find_library(VELOUR_LIBUTILS utils REQUIRED)
  find_library(VELOUR_LIBBINDER binder REQUIRED)
else()
  find_library(VELOUR_LIBUTILS NAMES utils
    PATHS /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android
    NO_DEFAULT_PATH REQUIRED)
  find_path(VELOUR_ANDROID_INCLUDE_DIR binder/Parcel.h
    PATHS /usr/include/android NO_DEFAULT_PATH REQUIRED)
  target_include_directories(velour_android_headers SYSTEM INTERFACE ${VELOUR_ANDROID_INCLUDE_DIR})
  # libutils needs libbacktrace, which needs p7zip's 7z.so from a folder of its
  # own: the linker must be told where. At run time a host finds it through
  # libbacktrace's own path; under qemu-arm the armhf test preset's
  # LD_LIBRARY_PATH names it and the sysroot's Android libraries.
  find_path(VELOUR_P7ZIP_DIR 7z.so PATHS /usr/lib/p7zip NO_DEFAULT_PATH)
  if(VELOUR_P7ZIP_DIR)
    target_link_options(velour_android_headers INTERFACE "LINKER:-rpath-link,${VELOUR_P7ZIP_DIR}")
  endif()
endif()
