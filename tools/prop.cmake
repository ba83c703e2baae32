add_executable(velour-prop ${CMAKE_CURRENT_LIST_DIR}/velour-prop.cpp)
target_link_libraries(velour-prop PRIVATE velour_platform)
