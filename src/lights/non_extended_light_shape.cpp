#include "lights/non_extended_light_shape.h"
#include "shading/sample.h"
#include "shading/scratch.h"

#include <algorithm>

#include "host/scene/render_layer.h"

ORVO_REGISTER_NODE(TnonExtendedLightShape)

ORVO_DEPENDENCIES(TnonExtendedLightShape) {
    // What the compute reads, the shadow map's filter and bias included; the
    // other settings make the map before the frame.
    Tattribute* inputs[] = {&LightRadius,
                            &UseDepthMapShadows,
                            &VolumeShadowSamples,
                            &FogShadowIntensity,
                            &ReceiveShadows,
                            &DmapFilterSize,
                            &DmapBias};
    for (Tattribute* input : inputs)
        affectsAll(m, *input, TlightShape::aLightData);
}

// ---------------------------------------------------------------- plain values

double TnonExtendedLightShape::plainValue(const Tattribute& a) const {
    return TdnRenderLayer::readValue(Tplug(this, &a), nullptr).number(0);
}

Tstring TnonExtendedLightShape::plainString(const Tattribute& a) const {
    const TplugValue value = TdnRenderLayer::readValue(Tplug(this, &a), nullptr);
    const Tstring* text = OrvoStringOf(*static_cast<const Tdata*>(value.address()));
    return text ? *text : Tstring();
}

bool TnonExtendedLightShape::setPlain(const Tattribute& a, const void* value) {
    const Tplug plug(this, &a);
    TdependGraph* g = graph();
    if (!g) {
        setAttributeValue(&a, value);
        return true;
    }
    if (!g->sourceOf(plug).isNull())
        return false;
    g->setPlugValue(plug, value);
    return true;
}

bool TnonExtendedLightShape::setPlainString(const Tattribute& a, const Tstring& value) {
    const Tdata data = OrvoMakeStringData(value);
    return setPlain(a, &data);
}

void TnonExtendedLightShape::turnOff(const Tattribute& a) {
    const bool off = false;
    if (plainValue(a) != 0.0)
        setPlain(a, &off);
}

// ---------------------------------------------------------------- notifications

bool TnonExtendedLightShape::setCachedValue(const Tplug& plug, const TdataHandle& value) {
    const bool result = TnonAmbientLightShape::setCachedValue(plug, value);
    // Only one kind of shadow at a time: the one just turned on wins.
    if (!value.isNull() && value.asBool()) {
        if (plug.attribute() == &aUseDepthMapShadows)
            turnOff(aUseRayTraceShadows);
        else if (plug.attribute() == &aUseRayTraceShadows)
            turnOff(aUseDepthMapShadows);
    }
    return result;
}

bool TnonExtendedLightShape::affectsShadows(const Tattribute* attribute) const {
    const Tattribute* depthMap[] = {
        &aLightRadius,      &aUseDepthMapShadows,  &aReuseDmap,
        &aUseMidDistDmap,   &aDmapFilterSize,      &aDmapResolution,
        &aDmapBias,         &aDmapFocus,           &aDmapWidthFocus,
        &aUseDmapAutoFocus, &aUseDmapAutoClipping, &aDmapNearClipPlane,
        &aDmapFarClipPlane, &aUseOnlySingleDmap,   &aUseXPlusDmap,
        &aUseXMinusDmap,    &aUseYPlusDmap,        &aUseYMinusDmap,
        &aUseZPlusDmap,     &aUseZMinusDmap,       &aDmapName,
        &aDmapUseMacro,     &aVolumeShadowSamples, &aFogShadowIntensity};
    return std::find(std::begin(depthMap), std::end(depthMap), attribute) != std::end(depthMap) ||
           TnonAmbientLightShape::affectsShadows(attribute);
}

bool TnonExtendedLightShape::refreshesViewportLight(const Tattribute* attribute) const {
    return attribute == &aUseDepthMapShadows || attribute == &aDmapResolution ||
           TnonAmbientLightShape::refreshesViewportLight(attribute);
}

void TnonExtendedLightShape::shadingNodeOnDemand(Tplug& plug, TdataBlock& block) {
    TnonAmbientLightShape::shadingNodeOnDemand(plug, block);
    fUseDepthMapShadows = useDepthMapShadows() ? 1 : 0;
    fFogObject = nullptr;
    if (const Tattribute* fog = fogGeometryAttribute())
        if (TdependGraph* g = graph())
            fFogObject = g->sourceOf(Tplug(this, fog)).node();
}

void TnonExtendedLightShape::fogSegment(LightBatch& b, unsigned i, const T4dFltMatrix& to,
                                        T3Float& near, T3Float& far) const {
    const unsigned e = b.first + i;
    const float* p1 = b.block.vectorInputValue(*fogNearAttribute(), e, 1)[0].asFloat3();
    const float* p2 = b.block.vectorInputValue(*fogFarAttribute(), e, 1)[0].asFloat3();
    near = OrvoTransformPoint(to, {p1[0], p1[1], p1[2]});
    far = OrvoTransformPoint(to, {p2[0], p2[1], p2[2]});
}

void TnonExtendedLightShape::analyseFog(TbitField64& fields) {
    const Tattribute* fog = fogGeometryAttribute();
    TdependGraph* g = graph();
    if (!fog || !g)
        return;
    if (g->sourceOf(Tplug(this, fog)).isNull()) {
        fields.clear(TsampleFields::farPointWorld);
        fields.clear(TsampleFields::objectType);
    } else if (useDepthMapShadows()) {
        fields.set(TsampleFields::rayInstance);
    }
}

bool TnonExtendedLightShape::markFogSamples(LightBatch& b, uint8_t* fog) const {
    std::fill(fog, fog + b.count, uint8_t(0));
    if (!fFogObject)
        return false;
    const TvectorDataHandle object = b.block.vectorInputValue(aObjectId, b.first, b.count);
    bool any = false;
    for (unsigned i = 0; i < b.count; ++i) {
        fog[i] = object[int(i)].as<void*>() == fFogObject;
        any = any || fog[i];
    }
    return any;
}

// ---------------------------------------------------------------- compute

float TnonExtendedLightShape::rayShadowRadius(LightBatch& b) const {
    return b.block.vectorInputValue(aLightRadius, b.first, 1)[0].asFloat();
}

void TnonExtendedLightShape::depthMapShadows(LightBatch& b) {
    if (!fShadowMap || !fUseDepthMapShadows || !b.shadows)
        return;
    // The shadow map marches volumeShadowSamples steps through fog: at least
    // one. A value the block keeps for all samples is not the batch's to write.
    const TvectorDataHandle steps =
        b.block.vectorInputValue(aVolumeShadowSamples, b.first, b.count);
    if (!steps.isNull() && !steps.isConstant())
        for (unsigned i = 0; i < b.count; ++i)
            if (steps[int(i)].asShort() < 1)
                steps[int(i)].as<int16_t>() = 1;
    TshadeScratch scratch;
    auto* fractions = ORVO_SCRATCH_ARRAY(scratch, float, b.count);
    std::fill(fractions, fractions + b.count, 0.0f);
    if (!sampleDepthMapShadows(b, fractions))
        return;
    const TvectorDataHandle color = b.block.vectorInputValue(aColor, b.first, b.count);
    const TvectorDataHandle shadow = b.block.vectorInputValue(aShadowColor, b.first, b.count);
    for (unsigned i = 0; i < b.count; ++i) {
        if (b.skip[i])
            continue;
        const float f = fractions[i];
        const T3Float c = b.tinted(color, i);
        const float* s = shadow[int(i)].asFloat3();
        b.record(i).shadowFraction = f;
        for (int k = 0; k < 3; ++k)
            b.colour[i][k] = (f * s[k] + (1.0f - f) * c[k]) * b.scalar[i];
        b.scalar[i] *= 1.0f - f;
    }
}
