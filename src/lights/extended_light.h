#pragma once

// A light with an extent: a flat polygon that shines from its front side.
// It answers what a material needs of it beyond a direction: how much of
// the polygon a surface point sees, weighted by the cosine at the point
// (the polygon's form factor times 2 pi: the sum over its edges of the
// angle each edge spans times the normal's share of that edge's plane),
// and the direction within it that a mirror direction comes closest to.

#include <vector>

#include "host/types.h"

class TextendedLight {
public:
    void removeAllVertices() { fVertices.clear(); }
    void addVertex(const T3Float& v) { fVertices.push_back(v); }
    const std::vector<T3Float>& vertices() const { return fVertices; }
    // The side the polygon shines toward.
    void setNormal(const T3Float& n) { fNormal = n; }
    const T3Float& normal() const { return fNormal; }
    void setName(const Tstring& name) { fName = name; }
    const Tstring& name() const { return fName; }

    // Sum over the edges of the angle the edge spans at `point` times the
    // cosine between `normal` and the edge's plane: 2 pi times the share of
    // the cosine-weighted hemisphere the polygon covers. 0 for a point
    // behind the polygon. `flag` is not used by a flat polygon.
    float integrateLambertianReflectance(const T3Float& point, const T3Float& normal,
                                         bool flag) const;
    // The unit direction from `point` to where the ray along `reflected`
    // meets the polygon's plane, held within the polygon (a parallelogram
    // of its first three corners). The direction to the centre when the
    // ray never meets the plane.
    T3Float maxPhongSpecularDirection(const T3Float& point, const T3Float& reflected) const;

private:
    std::vector<T3Float> fVertices;
    T3Float fNormal{0.0f, 0.0f, -1.0f};
    Tstring fName;
};
