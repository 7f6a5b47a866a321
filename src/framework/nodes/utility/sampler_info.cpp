#include "framework/nodes/utility/sampler_info.h"

#include <algorithm>
#include <cmath>

ORVO_REGISTER_NODE(TdnSamplerInfo)

ORVO_DEPENDENCIES(TdnSamplerInfo) {
    affectsAll(m, RayDirection, FacingRatio);
    affectsAll(m, NormalCamera, FacingRatio);
}

namespace {
// Normalised in place; a zero vector stays zero.
void normalise(float* v) {
    const float length = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
    if (length > 0.0f)
        for (int k = 0; k < 3; ++k)
            v[k] /= length;
}
} // namespace

bool TdnSamplerInfo::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                                       unsigned count) {
    if (plug.attribute() != &aFacingRatio)
        return TshadingDependNode::computePlug(plug, block);
    const TvectorDataHandle ray = block.vectorInputValue(aRayDirection, first, count);
    const TvectorDataHandle normal = block.vectorInputValue(aNormalCamera, first, count);
    const TvectorDataHandle out = block.vectorOutputValue(aFacingRatio, first);
    // Normalised in the sample's own storage, so that what reads them next
    // sees unit vectors; a value shared by the run (the constant block, read
    // by every thread) is normalised in a copy instead.
    for (unsigned n = 0; n < count; ++n) {
        const int i = int(n);
        float r[3], nc[3];
        std::copy_n(ray[i].asFloat3(), 3, r);
        std::copy_n(normal[i].asFloat3(), 3, nc);
        normalise(r);
        normalise(nc);
        if (!ray.isConstant())
            std::copy_n(r, 3, ray[i].asFloat3());
        if (!normal.isConstant())
            std::copy_n(nc, 3, normal[i].asFloat3());
        out[i].set(std::max(0.0f, -(r[0] * nc[0] + r[1] * nc[1] + r[2] * nc[2])));
    }
    return true;
}
