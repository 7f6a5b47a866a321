#include "host/scene/matrix.h"

#include <algorithm>
#include <utility>

T4dDblMatrix T4dDblMatrix::translation(const T3dDblVector& t) {
    T4dDblMatrix r;
    r.m[3][0] = t.x;
    r.m[3][1] = t.y;
    r.m[3][2] = t.z;
    return r;
}

T4dDblMatrix T4dDblMatrix::scaling(const T3dDblVector& s) {
    T4dDblMatrix r;
    r.m[0][0] = s.x;
    r.m[1][1] = s.y;
    r.m[2][2] = s.z;
    return r;
}

T4dDblMatrix T4dDblMatrix::rotation(int axis, double radians) {
    // With row vectors, rotating (1, 0, 0) about Z by +90 degrees must give
    // (0, 1, 0): row 0 of the Z rotation is (c, s, 0).
    const double c = std::cos(radians), s = std::sin(radians);
    const int a = (axis + 1) % 3, b = (axis + 2) % 3;
    T4dDblMatrix r;
    r.m[a][a] = c;
    r.m[a][b] = s;
    r.m[b][a] = -s;
    r.m[b][b] = c;
    return r;
}

T4dDblMatrix T4dDblMatrix::fromFloat(const T4dFltMatrix& f) {
    T4dDblMatrix r;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            r.m[i][j] = f.m[i][j];
    return r;
}

T4dDblMatrix operator*(const T4dDblMatrix& a, const T4dDblMatrix& b) {
    T4dDblMatrix r;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) {
            double sum = 0.0;
            for (int k = 0; k < 4; ++k)
                sum += a.m[i][k] * b.m[k][j];
            r.m[i][j] = sum;
        }
    return r;
}

T4dDblMatrix T4dDblMatrix::inverse() const {
    // Gauss-Jordan with partial pivoting on [M | I].
    double a[4][8];
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) {
            a[i][j] = m[i][j];
            a[i][j + 4] = i == j ? 1.0 : 0.0;
        }
    for (int col = 0; col < 4; ++col) {
        int pivot = col;
        for (int r = col + 1; r < 4; ++r)
            if (std::abs(a[r][col]) > std::abs(a[pivot][col]))
                pivot = r;
        if (std::abs(a[pivot][col]) < 1e-300)
            return {};
        if (pivot != col)
            for (int j = 0; j < 8; ++j)
                std::swap(a[pivot][j], a[col][j]);
        const double inv = 1.0 / a[col][col];
        for (int j = 0; j < 8; ++j)
            a[col][j] *= inv;
        for (int r = 0; r < 4; ++r) {
            if (r == col || a[r][col] == 0.0)
                continue;
            const double f = a[r][col];
            for (int j = 0; j < 8; ++j)
                a[r][j] -= f * a[col][j];
        }
    }
    T4dDblMatrix r;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            r.m[i][j] = a[i][j + 4];
    return r;
}

T4dFltMatrix T4dDblMatrix::asFloat() const {
    T4dFltMatrix f;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            f.m[i][j] = float(m[i][j]);
    return f;
}

bool T4dDblMatrix::isIdentity(double tolerance) const {
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            if (std::abs(m[i][j] - (i == j ? 1.0 : 0.0)) > tolerance)
                return false;
    return true;
}

T3dDblVector T4dDblMatrix::transformPoint(const T3dDblVector& p) const {
    T3dDblVector r;
    double w = m[3][3];
    for (int j = 0; j < 3; ++j)
        r[j] = p.x * m[0][j] + p.y * m[1][j] + p.z * m[2][j] + m[3][j];
    w += p.x * m[0][3] + p.y * m[1][3] + p.z * m[2][3];
    if (w != 1.0 && w != 0.0)
        r = r * (1.0 / w);
    return r;
}

T3dDblVector T4dDblMatrix::transformVector(const T3dDblVector& v) const {
    T3dDblVector r;
    for (int j = 0; j < 3; ++j)
        r[j] = v.x * m[0][j] + v.y * m[1][j] + v.z * m[2][j];
    return r;
}
