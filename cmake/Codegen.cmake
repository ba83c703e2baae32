# The tables, wrappers, look-up chains and the fake driver are generated at
# build time from codegen/names.txt and the installed Khronos files.
set(VELOUR_GENERATED_DIR ${CMAKE_BINARY_DIR}/generated)
set(VELOUR_GENERATED_SOURCES
  ${VELOUR_GENERATED_DIR}/velour/gl_types.h
  ${VELOUR_GENERATED_DIR}/velour/entry_points.h
  ${VELOUR_GENERATED_DIR}/velour/hook_thunks.h
  ${VELOUR_GENERATED_DIR}/tables.cpp
  ${VELOUR_GENERATED_DIR}/wrappers.cpp
  ${VELOUR_GENERATED_DIR}/lookup.cpp
  ${VELOUR_GENERATED_DIR}/fake_driver.h
  ${VELOUR_GENERATED_DIR}/fake_driver.cpp)
set(VELOUR_CODEGEN_INPUTS
  ${CMAKE_SOURCE_DIR}/codegen/generate.py
  ${CMAKE_SOURCE_DIR}/codegen/registry.py
  ${CMAKE_SOURCE_DIR}/codegen/names.txt
  ${CMAKE_SOURCE_DIR}/codegen/supplement.txt)
add_custom_command(
  OUTPUT ${VELOUR_GENERATED_SOURCES}
  COMMAND ${Python3_EXECUTABLE} ${CMAKE_SOURCE_DIR}/codegen/generate.py
          --names ${CMAKE_SOURCE_DIR}/codegen/names.txt
          --supplement ${CMAKE_SOURCE_DIR}/codegen/supplement.txt
          --gl-xml ${VELOUR_GL_XML}
          --egl-include ${VELOUR_EGL_INCLUDE}
          --out ${VELOUR_GENERATED_DIR}
  DEPENDS ${VELOUR_CODEGEN_INPUTS}
  COMMENT "Generating entry-point tables and wrappers"
  VERBATIM)
add_custom_target(velour_codegen DEPENDS ${VELOUR_GENERATED_SOURCES})
