# The configuration file tool. It validates through the shared library so that
# it accepts exactly what the layer does; the ini reader and the .dat codec are
# hidden in the library, so their sources are built in again here.
add_executable(velour-dat
  ${CMAKE_CURRENT_LIST_DIR}/velour-dat.cpp
  ${CMAKE_SOURCE_DIR}/src/utils/base64.cpp
  ${CMAKE_SOURCE_DIR}/src/utils/ini.cpp)
target_include_directories(velour-dat PRIVATE ${CMAKE_SOURCE_DIR}/include ${PICOJSON_INCLUDE_DIR})
target_link_libraries(velour-dat PRIVATE velour)
