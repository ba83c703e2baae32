#include "drv/UniformUtils.h"

#include <cstddef>
#include <cstdio>
#include <utility>

namespace velour::drv {

namespace {

void readUniform(GLuint program, GLint from, GLfloat* v) {
    drv::glGetUniformfv(program, from, v);
}
void readUniform(GLuint program, GLint from, GLint* v) {
    drv::glGetUniformiv(program, from, v);
}
void readUniform(GLuint program, GLint from, GLuint* v) {
    drv::glGetUniformuiv(program, from, v);
}

template <typename Set, typename T, std::size_t... I>
void writeEach(Set set, GLint to, const T* v, std::index_sequence<I...>) {
    set(to, v[I]...);
}

// Vectors read into a zeroed local and go back element by element.
template <typename T, std::size_t N, typename Set>
void assignVector(Set set, GLint to, GLuint program, GLint from) {
    T v[N] = {};
    readUniform(program, from, v);
    writeEach(set, to, v, std::make_index_sequence<N>{});
}

// Matrices read as N floats and go back with count 1, not transposed.
template <int N>
void assignMatrix(void (*set)(GLint, GLsizei, GLboolean, const GLfloat*), GLint to, GLuint program,
                  GLint from) {
    GLfloat v[N] = {};
    readUniform(program, from, v);
    set(to, 1, GL_FALSE, v);
}

}  // namespace

void UniformUtils::assignFloat(GLint to, GLuint program, GLint from) {
    assignVector<GLfloat, 1>(drv::glUniform1f, to, program, from);
}
void UniformUtils::assignFloatVec2(GLint to, GLuint program, GLint from) {
    assignVector<GLfloat, 2>(drv::glUniform2f, to, program, from);
}
void UniformUtils::assignFloatVec3(GLint to, GLuint program, GLint from) {
    assignVector<GLfloat, 3>(drv::glUniform3f, to, program, from);
}
void UniformUtils::assignFloatVec4(GLint to, GLuint program, GLint from) {
    assignVector<GLfloat, 4>(drv::glUniform4f, to, program, from);
}
void UniformUtils::assignInt(GLint to, GLuint program, GLint from) {
    assignVector<GLint, 1>(drv::glUniform1i, to, program, from);
}
void UniformUtils::assignIntVec2(GLint to, GLuint program, GLint from) {
    assignVector<GLint, 2>(drv::glUniform2i, to, program, from);
}
void UniformUtils::assignIntVec3(GLint to, GLuint program, GLint from) {
    assignVector<GLint, 3>(drv::glUniform3i, to, program, from);
}
void UniformUtils::assignIntVec4(GLint to, GLuint program, GLint from) {
    assignVector<GLint, 4>(drv::glUniform4i, to, program, from);
}
void UniformUtils::assignUnsignedInt(GLint to, GLuint program, GLint from) {
    assignVector<GLuint, 1>(drv::glUniform1ui, to, program, from);
}
void UniformUtils::assignUnsignedIntVec2(GLint to, GLuint program, GLint from) {
    assignVector<GLuint, 2>(drv::glUniform2ui, to, program, from);
}
void UniformUtils::assignUnsignedIntVec3(GLint to, GLuint program, GLint from) {
    assignVector<GLuint, 3>(drv::glUniform3ui, to, program, from);
}
void UniformUtils::assignUnsignedIntVec4(GLint to, GLuint program, GLint from) {
    assignVector<GLuint, 4>(drv::glUniform4ui, to, program, from);
}

void UniformUtils::assignMatrix2fv(GLint to, GLuint program, GLint from) {
    assignMatrix<4>(drv::glUniformMatrix2fv, to, program, from);
}
void UniformUtils::assignMatrix3fv(GLint to, GLuint program, GLint from) {
    assignMatrix<9>(drv::glUniformMatrix3fv, to, program, from);
}
void UniformUtils::assignMatrix4fv(GLint to, GLuint program, GLint from) {
    assignMatrix<16>(drv::glUniformMatrix4fv, to, program, from);
}
void UniformUtils::assignMatrix2x3fv(GLint to, GLuint program, GLint from) {
    assignMatrix<6>(drv::glUniformMatrix2x3fv, to, program, from);
}
void UniformUtils::assignMatrix3x2fv(GLint to, GLuint program, GLint from) {
    assignMatrix<6>(drv::glUniformMatrix3x2fv, to, program, from);
}
void UniformUtils::assignMatrix2x4fv(GLint to, GLuint program, GLint from) {
    assignMatrix<8>(drv::glUniformMatrix2x4fv, to, program, from);
}
void UniformUtils::assignMatrix4x2fv(GLint to, GLuint program, GLint from) {
    assignMatrix<8>(drv::glUniformMatrix4x2fv, to, program, from);
}
void UniformUtils::assignMatrix3x4fv(GLint to, GLuint program, GLint from) {
    assignMatrix<12>(drv::glUniformMatrix3x4fv, to, program, from);
}
void UniformUtils::assignMatrix4x3fv(GLint to, GLuint program, GLint from) {
    assignMatrix<12>(drv::glUniformMatrix4x3fv, to, program, from);
}
void UniformUtils::assignNone(GLint, GLuint, GLint) {}

UniformUtils::AssignFunction UniformUtils::getAssignFunction(GLenum type) {
    switch (type) {
        case GL_FLOAT:
            return assignFloat;
        case GL_FLOAT_VEC2:
            return assignFloatVec2;
        case GL_FLOAT_VEC3:
            return assignFloatVec3;
        case GL_FLOAT_VEC4:
            return assignFloatVec4;
        case GL_INT:
        case GL_SAMPLER_2D:
        case GL_SAMPLER_3D:
        case GL_SAMPLER_CUBE:
        case GL_SAMPLER_2D_SHADOW:
        case GL_SAMPLER_2D_ARRAY:
        case GL_SAMPLER_2D_ARRAY_SHADOW:
        case GL_SAMPLER_CUBE_SHADOW:
        case GL_SAMPLER_BUFFER:
        case GL_SAMPLER_CUBE_MAP_ARRAY:
        case GL_SAMPLER_CUBE_MAP_ARRAY_SHADOW:
        case GL_SAMPLER_2D_MULTISAMPLE:
        case GL_SAMPLER_2D_MULTISAMPLE_ARRAY:
        case GL_SAMPLER_EXTERNAL_OES:
        case GL_INT_SAMPLER_2D:
        case GL_INT_SAMPLER_3D:
        case GL_INT_SAMPLER_CUBE:
        case GL_INT_SAMPLER_2D_ARRAY:
        case GL_INT_SAMPLER_BUFFER:
        case GL_INT_SAMPLER_CUBE_MAP_ARRAY:
        case GL_INT_SAMPLER_2D_MULTISAMPLE:
        case GL_INT_SAMPLER_2D_MULTISAMPLE_ARRAY:
        case GL_UNSIGNED_INT_SAMPLER_2D:
        case GL_UNSIGNED_INT_SAMPLER_3D:
        case GL_UNSIGNED_INT_SAMPLER_CUBE:
        case GL_UNSIGNED_INT_SAMPLER_2D_ARRAY:
        case GL_UNSIGNED_INT_SAMPLER_BUFFER:
        case GL_UNSIGNED_INT_SAMPLER_CUBE_MAP_ARRAY:
        case GL_UNSIGNED_INT_SAMPLER_2D_MULTISAMPLE:
        case GL_UNSIGNED_INT_SAMPLER_2D_MULTISAMPLE_ARRAY:
        case GL_IMAGE_2D:
        case GL_IMAGE_3D:
        case GL_IMAGE_CUBE:
        case GL_IMAGE_2D_ARRAY:
        case GL_IMAGE_BUFFER:
        case GL_IMAGE_CUBE_MAP_ARRAY:
        case GL_INT_IMAGE_2D:
        case GL_INT_IMAGE_3D:
        case GL_INT_IMAGE_CUBE:
        case GL_INT_IMAGE_2D_ARRAY:
        case GL_INT_IMAGE_BUFFER:
        case GL_INT_IMAGE_CUBE_MAP_ARRAY:
        case GL_UNSIGNED_INT_IMAGE_2D:
        case GL_UNSIGNED_INT_IMAGE_3D:
        case GL_UNSIGNED_INT_IMAGE_CUBE:
        case GL_UNSIGNED_INT_IMAGE_2D_ARRAY:
        case GL_UNSIGNED_INT_IMAGE_BUFFER:
        case GL_UNSIGNED_INT_IMAGE_CUBE_MAP_ARRAY:
        case GL_UNSIGNED_INT_ATOMIC_COUNTER:
            return assignInt;
        case GL_INT_VEC2:
            return assignIntVec2;
        case GL_INT_VEC3:
            return assignIntVec3;
        case GL_INT_VEC4:
            return assignIntVec4;
        case GL_UNSIGNED_INT:
        case GL_BOOL:
            return assignUnsignedInt;
        case GL_UNSIGNED_INT_VEC2:
        case GL_BOOL_VEC2:
            return assignUnsignedIntVec2;
        case GL_UNSIGNED_INT_VEC3:
        case GL_BOOL_VEC3:
            return assignUnsignedIntVec3;
        case GL_UNSIGNED_INT_VEC4:
        case GL_BOOL_VEC4:
            return assignUnsignedIntVec4;
        case GL_FLOAT_MAT2:
            return assignMatrix2fv;
        case GL_FLOAT_MAT3:
            return assignMatrix3fv;
        case GL_FLOAT_MAT4:
            return assignMatrix4fv;
        case GL_FLOAT_MAT2x3:
            return assignMatrix2x3fv;
        case GL_FLOAT_MAT2x4:
            return assignMatrix2x4fv;
        case GL_FLOAT_MAT3x2:
            return assignMatrix3x2fv;
        case GL_FLOAT_MAT3x4:
            return assignMatrix3x4fv;
        case GL_FLOAT_MAT4x2:
            return assignMatrix4x2fv;
        case GL_FLOAT_MAT4x3:
            return assignMatrix4x3fv;
        default:
            std::fprintf(stderr,
                         "src/drv/UniformUtils(586): OpenGL Type %u not supported by uniform "
                         "assignment.\n",
                         type);
            return assignNone;
    }
}

}  // namespace velour::drv
