# The platform log: Android's liblog on a device, Debian's build of it on a host.
if(ANDROID)
  find_library(VELOUR_LIBLOG log REQUIRED)
else()
  find_library(VELOUR_LIBLOG NAMES log
    PATHS /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android
    NO_DEFAULT_PATH REQUIRED)
endif()
find_path(PICOJSON_INCLUDE_DIR picojson.h REQUIRED)
