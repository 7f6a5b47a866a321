#include "effects/optical_fx.h"

#include <algorithm>
#include <cmath>

#include "host/graph.h"
#include "host/scene/dag.h"
#include "host/scene/light_shape.h"
#include "host/scene/matrix.h"
#include "host/scene/render_layer.h"

ORVO_REGISTER_NODE(TdnOpticalFX)
ORVO_DEPENDENCIES(TdnOpticalFX) {}

using namespace orvo::post;

namespace {

TplugValue valueOf(const TdependNode* node, const Tattribute& a) {
    return TdnRenderLayer::readValue(Tplug(const_cast<TdependNode*>(node), &a), nullptr);
}

void colourOf(const TdependNode* node, const Tattribute& a, float out[3]) {
    const T3Float c = valueOf(node, a).asFloat3();
    out[0] = c.x;
    out[1] = c.y;
    out[2] = c.z;
}

} // namespace

TlightShape* TdnOpticalFX::light() const {
    const Tplug source = Tplug(const_cast<TdnOpticalFX*>(this), &aLightConnection).source();
    if (source.isNull())
        return nullptr;
    return static_cast<TlightShape*>(source.node()->cast(TlightShape::sTypeof()));
}

bool TdnOpticalFX::reset(const T4dDblMatrix& worldToEye, const TpostView& view) {
    TopticalFXParams& p = fParams;
    const auto f = [this](const Tattribute& a) {
        return valueOf(this, a).asFloat();
    };
    p.active = valueOf(this, aActive).asBool();
    p.glowType = std::max(0, valueOf(this, aGlowType).asInt());
    p.haloType = std::max(0, valueOf(this, aHaloType).asInt());
    p.fogType = valueOf(this, aFogType).asInt();
    p.lensFlare = valueOf(this, aLensFlare).asBool();
    colourOf(this, aGlowColor, p.glowColor);
    colourOf(this, aHaloColor, p.haloColor);
    colourOf(this, aFogColor, p.fogColor);
    colourOf(this, aFlareColor, p.flareColor);
    p.flareIntensity = f(aFlareIntensity);
    p.flareNumCircles = f(aFlareNumCircles);
    p.flareMinSize = f(aFlareMinSize);
    p.flareMaxSize = f(aFlareMaxSize);
    p.flareColSpread = f(aFlareColSpread);
    p.flareFocus = f(aFlareFocus);
    p.flareVertical = f(aFlareVertical);
    p.flareHorizontal = f(aFlareHorizontal);
    p.flareLength = f(aFlareLength);
    p.hexagonFlare = valueOf(this, aHexagonFlare).asBool();
    p.glowIntensity = f(aGlowIntensity);
    p.haloIntensity = f(aHaloIntensity);
    p.fogIntensity = f(aFogIntensity);
    p.glowSpread = f(aGlowSpread);
    p.haloSpread = f(aHaloSpread);
    p.fogSpread = f(aFogSpread);
    p.glowNoise = f(aGlowNoise);
    p.fogNoise = f(aFogNoise);
    p.glowRadialNoise = f(aGlowRadialNoise);
    p.fogRadialNoise = f(aFogRadialNoise);
    p.glowStarLevel = f(aGlowStarLevel);
    p.fogStarlevel = f(aFogStarlevel);
    p.glowOpacity = f(aGlowOpacity);
    p.fogOpacity = f(aFogOpacity);
    p.radialFrequency = f(aRadialFrequency);
    p.starPoints = f(aStarPoints);
    p.rotation = f(aRotation);
    p.noiseUscale = f(aNoiseUscale);
    p.noiseVscale = f(aNoiseVscale);
    p.noiseUoffset = f(aNoiseUoffset);
    p.noiseVoffset = f(aNoiseVoffset);
    p.noiseThreshold = f(aNoiseThreshold);
    p.ignoreLight = valueOf(this, aIgnoreLight).asBool();
    p.glowVisibility = f(aGlowVisibility);
    colourOf(this, aLightColor, p.lightColor);
    colourOf(this, aVisibility, p.visibility);
    computeSpreads(p);
    fView = view;

    TlightShape* shape = light();
    if (!p.active || !shape)
        return false;
    // The light's colour in 0..255 steps: its own colour and intensity
    // (unless the effect ignores them), tinted by lightColor, and as much of
    // it as is visible.
    float base[3] = {1.0f, 1.0f, 1.0f};
    if (!p.ignoreLight) {
        colourOf(shape, TlightShape::aColor, base);
        const float intensity = valueOf(shape, TlightShape::aIntensity).asFloat();
        for (float& c : base)
            c *= intensity;
    }
    for (int c = 0; c < 3; ++c)
        fLight.colour[c] =
            std::max(0.0f, base[c] * p.lightColor[c] * p.visibility[c] * p.glowVisibility) * 255.0f;
    // The light's place: the origin of its first path, in eye space.
    const T4dDblMatrix toEye = shape->firstPath().inclusiveMatrix() * worldToEye;
    const double x = toEye.m[3][0], y = toEye.m[3][1], z = toEye.m[3][2];
    const double length = std::sqrt(x * x + y * y + z * z);
    if (length <= 0.0 || z >= 0.0) {
        fLight.toLight[0] = fLight.toLight[1] = 0.0f;
        fLight.toLight[2] = 1.0f; // behind the eye: nothing shows
        return false;
    }
    fLight.toLight[0] = float(x / length);
    fLight.toLight[1] = float(y / length);
    fLight.toLight[2] = float(z / length);
    fLight.px = float(x / -z / view.halfWidth);
    fLight.py = float(y / -z / view.halfHeight);
    return true;
}

bool TdnOpticalFX::addOpticalFXtoArray(const TpostImage& image) const {
    return addOpticalFX(fParams, fLight, fView, image);
}

bool TdnOpticalFX::addOpticalFXtoScanline(unsigned line, const TpostImage& image) const {
    if (line >= image.height)
        return false;
    return addOpticalFX(fParams, fLight, fView, image, line, line);
}

TpixelRect TdnOpticalFX::adjustViewport() const {
    return orvo::post::adjustViewport(fParams, fLight, fView);
}

TopticalFXarray TopticalFXarray::collect(TdependGraph& graph) {
    TopticalFXarray out;
    for (TdependNode* node : graph.nodes())
        if (auto* fx = static_cast<TdnOpticalFX*>(node->cast(TdnOpticalFX::sTypeof())))
            if (valueOf(fx, TdnOpticalFX::aActive).asBool())
                out.add(fx);
    return out;
}
