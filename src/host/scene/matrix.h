#pragma once

// Double precision matrices and vectors of the scene model. Matrices follow
// the float T4dFltMatrix: row vectors, a point p maps to p * M, and the
// translation sits in the last row. A child's world matrix is therefore
// local * parent's world.

#include <cmath>

#include "host/types.h"

struct T3dDblVector {
    double x = 0.0, y = 0.0, z = 0.0;

    double& operator[](int i) { return (&x)[i]; }
    double operator[](int i) const { return (&x)[i]; }
    friend T3dDblVector operator+(const T3dDblVector& a, const T3dDblVector& b) {
        return {a.x + b.x, a.y + b.y, a.z + b.z};
    }
    friend T3dDblVector operator-(const T3dDblVector& a, const T3dDblVector& b) {
        return {a.x - b.x, a.y - b.y, a.z - b.z};
    }
    friend T3dDblVector operator*(const T3dDblVector& a, double s) {
        return {a.x * s, a.y * s, a.z * s};
    }
    double dot(const T3dDblVector& b) const { return x * b.x + y * b.y + z * b.z; }
    T3dDblVector cross(const T3dDblVector& b) const {
        return {y * b.z - z * b.y, z * b.x - x * b.z, x * b.y - y * b.x};
    }
    double length() const { return std::sqrt(dot(*this)); }
};

struct T4dDblMatrix {
    double m[4][4] = {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}};

    static T4dDblMatrix identity() { return {}; }
    static T4dDblMatrix translation(const T3dDblVector& t);
    static T4dDblMatrix scaling(const T3dDblVector& s);
    // A rotation by `radians` about the X (axis 0), Y (1) or Z (2) axis,
    // counter-clockwise looking down the axis towards the origin.
    static T4dDblMatrix rotation(int axis, double radians);
    static T4dDblMatrix fromFloat(const T4dFltMatrix& f);

    friend T4dDblMatrix operator*(const T4dDblMatrix& a, const T4dDblMatrix& b);
    // The inverse; a singular matrix gives the identity, as a transform
    // scaled to nothing has no meaningful inverse to offer.
    T4dDblMatrix inverse() const;
    T4dFltMatrix asFloat() const;
    bool isIdentity(double tolerance = 0.0) const;

    T3dDblVector transformPoint(const T3dDblVector& p) const;
    // Leaves out the translation.
    T3dDblVector transformVector(const T3dDblVector& v) const;
    T3dDblVector translationPart() const { return {m[3][0], m[3][1], m[3][2]}; }
};

// Float versions for the arrays a ray tracer consumes.
inline T3Float operator+(const T3Float& a, const T3Float& b) {
    return {a.x + b.x, a.y + b.y, a.z + b.z};
}
inline T3Float operator-(const T3Float& a, const T3Float& b) {
    return {a.x - b.x, a.y - b.y, a.z - b.z};
}
inline T3Float operator*(const T3Float& a, float s) {
    return {a.x * s, a.y * s, a.z * s};
}
inline float OrvoDot(const T3Float& a, const T3Float& b) {
    return a.x * b.x + a.y * b.y + a.z * b.z;
}
inline T3Float OrvoCross(const T3Float& a, const T3Float& b) {
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
inline float OrvoLength(const T3Float& a) {
    return std::sqrt(OrvoDot(a, a));
}
