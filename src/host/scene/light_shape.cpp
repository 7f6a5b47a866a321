#include "host/scene/light_shape.h"

#include <cmath>

#include "host/scene/render_layer.h"

ORVO_REGISTER_NODE(TlightShape)
ORVO_DEPENDENCIES(TlightShape) {}

namespace {
TplugValue plain(const TdependNode* node, const Tattribute& a) {
    return TdnRenderLayer::readValue(Tplug(node, &a), nullptr);
}
} // namespace

T3Float TlightShape::color() const {
    return plain(this, aColor).asFloat3();
}
float TlightShape::intensity() const {
    return plain(this, aIntensity).asFloat();
}
T3Float TlightShape::shadowColor() const {
    return plain(this, aShadowColor).asFloat3();
}
bool TlightShape::useRayTraceShadows() const {
    return plain(this, aUseRayTraceShadows).asBool();
}
int TlightShape::numShadowSamples() const {
    return plain(this, aNumShadowSamples).asInt();
}

bool TlightShape::canSee(const T3Float& point, T3Float& position, T3Float& direction) const {
    position = {0.0f, 0.0f, 0.0f};
    direction = point;
    // A point at the light itself has no direction: leave it as it is.
    if (const float length = OrvoLength(point); length > 1e-6f)
        direction = point * (1.0f / length);
    return true;
}

bool TlightShape::affectsShadows(const Tattribute* attribute) const {
    return attribute == &aUseRayTraceShadows || attribute == &aNumShadowSamples ||
           attribute == &aShadowColor || attribute == &aShadowColorR ||
           attribute == &aShadowColorG || attribute == &aShadowColorB;
}
