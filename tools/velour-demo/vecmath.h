// The little vector algebra the scene needs. Matrices are column-major, as
// glUniformMatrix4fv takes them without transposing.
#pragma once

#include <cmath>

namespace demo {

struct Vec3 {
    float x = 0, y = 0, z = 0;
};

inline Vec3 operator-(Vec3 a, Vec3 b) {
    return {a.x - b.x, a.y - b.y, a.z - b.z};
}
inline float dot(Vec3 a, Vec3 b) {
    return a.x * b.x + a.y * b.y + a.z * b.z;
}
inline Vec3 cross(Vec3 a, Vec3 b) {
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
inline Vec3 normalize(Vec3 a) {
    const float len = std::sqrt(dot(a, a));
    return {a.x / len, a.y / len, a.z / len};
}

struct Mat4 {
    float m[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

    float& at(int row, int col) { return m[col * 4 + row]; }
    float at(int row, int col) const { return m[col * 4 + row]; }
};

inline Mat4 operator*(const Mat4& a, const Mat4& b) {
    Mat4 r;
    for (int col = 0; col < 4; ++col) {
        for (int row = 0; row < 4; ++row) {
            float s = 0;
            for (int k = 0; k < 4; ++k) s += a.at(row, k) * b.at(k, col);
            r.at(row, col) = s;
        }
    }
    return r;
}

inline Mat4 translate(float x, float y, float z) {
    Mat4 r;
    const float by[3] = {x, y, z};
    for (int row = 0; row < 3; ++row) r.at(row, 3) = by[row];
    return r;
}

inline Mat4 scale(float x, float y, float z) {
    Mat4 r;
    const float by[3] = {x, y, z};
    for (int i = 0; i < 3; ++i) r.at(i, i) = by[i];
    return r;
}

// A rotation that turns axis `from` towards axis `to`.
inline Mat4 rotatePlane(int from, int to, float radians) {
    Mat4 r;
    const float c = std::cos(radians), s = std::sin(radians);
    r.at(from, from) = c;
    r.at(from, to) = -s;
    r.at(to, from) = s;
    r.at(to, to) = c;
    return r;
}

inline Mat4 rotateX(float radians) {
    return rotatePlane(1, 2, radians);
}

inline Mat4 rotateY(float radians) {
    return rotatePlane(2, 0, radians);
}

inline Mat4 perspective(float fovYRadians, float aspect, float zNear, float zFar) {
    Mat4 r;
    const float f = 1.0f / std::tan(fovYRadians / 2);
    r.at(0, 0) = f / aspect;
    r.at(1, 1) = f;
    r.at(2, 2) = (zFar + zNear) / (zNear - zFar);
    r.at(2, 3) = 2 * zFar * zNear / (zNear - zFar);
    r.at(3, 2) = -1;
    r.at(3, 3) = 0;
    return r;
}

inline Mat4 ortho(float left, float right, float bottom, float top, float zNear, float zFar) {
    Mat4 r;
    r.at(0, 0) = 2 / (right - left);
    r.at(1, 1) = 2 / (top - bottom);
    r.at(2, 2) = -2 / (zFar - zNear);
    r.at(0, 3) = -(right + left) / (right - left);
    r.at(1, 3) = -(top + bottom) / (top - bottom);
    r.at(2, 3) = -(zFar + zNear) / (zFar - zNear);
    return r;
}

inline Mat4 lookAt(Vec3 eye, Vec3 target, Vec3 up) {
    const Vec3 f = normalize(target - eye);
    const Vec3 s = normalize(cross(f, up));
    const Vec3 u = cross(s, f);
    // The rows of the rotation are the camera's right, up and backward axes.
    const Vec3 axes[3] = {s, u, Vec3{-f.x, -f.y, -f.z}};
    Mat4 r;
    for (int row = 0; row < 3; ++row) {
        r.at(row, 0) = axes[row].x;
        r.at(row, 1) = axes[row].y;
        r.at(row, 2) = axes[row].z;
        r.at(row, 3) = -dot(axes[row], eye);
    }
    return r;
}

}  // namespace demo
