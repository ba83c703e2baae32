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
    r.at(0, 3) = x;
    r.at(1, 3) = y;
    r.at(2, 3) = z;
    return r;
}

inline Mat4 scale(float x, float y, float z) {
    Mat4 r;
    r.at(0, 0) = x;
    r.at(1, 1) = y;
    r.at(2, 2) = z;
    return r;
}

inline Mat4 rotateY(float radians) {
    Mat4 r;
    const float c = std::cos(radians), s = std::sin(radians);
    r.at(0, 0) = c;
    r.at(0, 2) = s;
    r.at(2, 0) = -s;
    r.at(2, 2) = c;
    return r;
}

inline Mat4 rotateX(float radians) {
    Mat4 r;
    const float c = std::cos(radians), s = std::sin(radians);
    r.at(1, 1) = c;
    r.at(1, 2) = -s;
    r.at(2, 1) = s;
    r.at(2, 2) = c;
    return r;
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
    Mat4 r;
    r.at(0, 0) = s.x;
    r.at(0, 1) = s.y;
    r.at(0, 2) = s.z;
    r.at(1, 0) = u.x;
    r.at(1, 1) = u.y;
    r.at(1, 2) = u.z;
    r.at(2, 0) = -f.x;
    r.at(2, 1) = -f.y;
    r.at(2, 2) = -f.z;
    r.at(0, 3) = -dot(s, eye);
    r.at(1, 3) = -dot(u, eye);
    r.at(2, 3) = dot(f, eye);
    return r;
}

}  // namespace demo
