#include "lights/extended_light.h"

#include <algorithm>
#include <cmath>

#include "lights/light_vectors.h"

float TextendedLight::integrateLambertianReflectance(const T3Float& point, const T3Float& normal,
                                                     bool) const {
    const size_t n = fVertices.size();
    if (n < 3)
        return 0.0f;
    // Light leaves the front only.
    if (OrvoDot(point - fVertices[0], fNormal) <= 0.0f)
        return 0.0f;
    // Each edge's plane through the point, oriented by the winding the
    // point sees; the direction to the centre is a normal that sees the
    // whole polygon, so it settles which winding that is.
    T3Float centre{};
    for (const T3Float& v : fVertices)
        centre = centre + v;
    const T3Float toCentre = OrvoNormalizeIfLong(centre * (1.0f / float(n)) - point);
    double sum = 0.0, reference = 0.0;
    for (size_t k = 0; k < n; ++k) {
        const T3Float a = OrvoNormalizeIfLong(fVertices[k] - point);
        const T3Float b = OrvoNormalizeIfLong(fVertices[(k + 1) % n] - point);
        const double angle = std::acos(std::clamp(double(OrvoDot(a, b)), -1.0, 1.0));
        const T3Float g = OrvoCross(a, b);
        const float length = OrvoLength(g);
        if (length <= 1e-12f)
            continue;
        sum += angle * double(OrvoDot(g, normal)) / double(length);
        reference += angle * double(OrvoDot(g, toCentre)) / double(length);
    }
    return float(reference < 0.0 ? -sum : sum);
}

T3Float TextendedLight::maxPhongSpecularDirection(const T3Float& point,
                                                  const T3Float& reflected) const {
    if (fVertices.size() < 3)
        return OrvoNormalizeIfLong(reflected);
    // The polygon as a centre and two half axes.
    const T3Float& v0 = fVertices[0];
    const T3Float& v1 = fVertices[1];
    const T3Float& v2 = fVertices[2];
    const T3Float centre = (v0 + v2) * 0.5f;
    const T3Float u = (v0 - v1) * 0.5f;
    const T3Float v = (v1 - v2) * 0.5f;
    const float denominator = OrvoDot(reflected, fNormal);
    T3Float target = centre;
    if (denominator != 0.0f) {
        const float t = OrvoDot(centre - point, fNormal) / denominator;
        if (t > 0.0f) {
            const T3Float hit = point + reflected * t - centre;
            const float uu = OrvoDot(u, u), vv = OrvoDot(v, v);
            const float s = uu > 0.0f ? std::clamp(OrvoDot(hit, u) / uu, -1.0f, 1.0f) : 0.0f;
            const float r = vv > 0.0f ? std::clamp(OrvoDot(hit, v) / vv, -1.0f, 1.0f) : 0.0f;
            target = centre + u * s + v * r;
        }
    }
    return OrvoNormalizeIfLong(target - point);
}
