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
