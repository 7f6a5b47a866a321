#include "framework/nodes/utility/surface_luminance.h"

#include "framework/nodes/utility/render_utilities.h"

ORVO_REGISTER_NODE(TdnSurfaceLuminance)

ORVO_DEPENDENCIES(TdnSurfaceLuminance) {
    affectsAll(m, NormalCamera, OutValue);
    affectsAll(m, LightDataArray, OutValue);
}

bool TdnSurfaceLuminance::computePlug(const Tplug& plug, TdataBlock& block) {
    if (!computesAttribute(plug.attribute()))
        return TdependNode::computePlug(plug, block);
    const float* normal = block.inputValue(aNormalCamera).asFloat3();
    TmultiHandle lights(block.inputValue(aLightDataArray));
    float sum[3] = {0.0f, 0.0f, 0.0f};
    for (unsigned k = 0; lights.jumpToArrayElement(k); ++k) {
        const TlightData& light = *lights.reference().asLightData();
        if (light.diffuse || light.specular) {
            // Lambert's cosine: only light arriving in front of the surface.
            const float d = normal[0] * light.direction[0] + normal[1] * light.direction[1] +
                            normal[2] * light.direction[2];
            if (d > 0.0f)
                for (int c = 0; c < 3; ++c)
                    sum[c] += d * light.intensity[c];
        } else if (light.ambient) {
            // Ambient light has no direction: it counts in full.
            for (int c = 0; c < 3; ++c)
                sum[c] += light.intensity[c];
        }
    }
    TdataHandle out = block.outputValue(aOutValue);
    out.as<float>() = TrenderUtilities::luminance(sum[0], sum[1], sum[2]);
    out.setClean();
    return true;
}
