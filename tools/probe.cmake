add_executable(velour-probe velour-probe.cpp)
target_link_libraries(velour-probe PRIVATE velour_fake_driver velour_platform ${CMAKE_DL_LIBS})
target_compile_definitions(velour-probe PRIVATE VELOUR_LIBRARY_PATH="$<TARGET_FILE:velour>")
add_dependencies(velour-probe velour)
