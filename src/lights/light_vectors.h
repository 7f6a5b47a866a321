#pragma once

// The small vector types of the light interface that materials call through
// a light record's blind data: a float vector with its axes, a float point
// with its w, and the double direction that a directional light keeps.

#include "host/scene/matrix.h"
#include "host/types.h"

struct T3dFltVector : T3Float {
    constexpr T3dFltVector() = default;
    constexpr T3dFltVector(float x, float y, float z) : T3Float{x, y, z} {}
    constexpr T3dFltVector(const T3Float& v) : T3Float(v) {} // NOLINT: a vector is three floats

    static const T3dFltVector xAxis;
    static const T3dFltVector yAxis;
    static const T3dFltVector zAxis;
};
inline constexpr T3dFltVector T3dFltVector::xAxis{1.0f, 0.0f, 0.0f};
inline constexpr T3dFltVector T3dFltVector::yAxis{0.0f, 1.0f, 0.0f};
inline constexpr T3dFltVector T3dFltVector::zAxis{0.0f, 0.0f, 1.0f};

struct T4dFltPoint {
    float x = 0.0f;
    float y = 0.0f;
    float z = 0.0f;
    float w = 1.0f;

    constexpr T4dFltPoint() = default;
    constexpr T4dFltPoint(float px, float py, float pz, float pw = 1.0f)
        : x(px), y(py), z(pz), w(pw) {}
    constexpr T4dFltPoint(const T3Float& p) : x(p.x), y(p.y), z(p.z) {} // NOLINT
    constexpr T3Float xyz() const { return {x, y, z}; }
};

struct T4dDblVector {
    double x = 0.0;
    double y = 0.0;
    double z = 0.0;
    double w = 0.0;
};

// Row-vector transforms by a float matrix (p * M), as every matrix of the
// scene model is laid out: a point takes the translation row, a vector not.
inline T3Float OrvoTransformPoint(const T4dFltMatrix& m, const T3Float& p) {
    T3Float r;
    for (int j = 0; j < 3; ++j)
        r[j] = p.x * m.m[0][j] + p.y * m.m[1][j] + p.z * m.m[2][j] + m.m[3][j];
    return r;
}
inline T3Float OrvoTransformVector(const T4dFltMatrix& m, const T3Float& v) {
    T3Float r;
    for (int j = 0; j < 3; ++j)
        r[j] = v.x * m.m[0][j] + v.y * m.m[1][j] + v.z * m.m[2][j];
    return r;
}
// `v` divided by its length when that exceeds 1e-6; a shorter vector has no
// direction to speak of and is left as it is.
inline T3Float OrvoNormalizeIfLong(const T3Float& v) {
    const float length = OrvoLength(v);
    return length > 1e-6f ? v * (1.0f / length) : v;
}

struct T4dDblPoint {
    double x = 0.0;
    double y = 0.0;
    double z = 0.0;
    double w = 1.0;
};
