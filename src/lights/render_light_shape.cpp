#include "lights/render_light_shape.h"
#include "shading/scratch.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "host/scene/dag.h"

ORVO_REGISTER_NODE(TrenderLightShape)

ORVO_DEPENDENCIES(TrenderLightShape) {
    // Everything the light reads makes its record stale.
    Tattribute* inputs[] = {&TlightShape::aColor,
                            &TlightShape::aIntensity,
                            &TlightShape::aShadowColor,
                            &TlightShape::aPointCamera,
                            &TlightShape::aObjectId,
                            &TlightShape::aPrimitiveId,
                            &TlightShape::aRayDepth,
                            &TlightShape::aRayDepthLimit,
                            &TlightShape::aRaySampler,
                            &TlightShape::aUCoord,
                            &TlightShape::aVCoord,
                            &TlightShape::aUvFilterSize,
                            &TlightShape::aInfoBits,
                            &TlightShape::aRenderState,
                            &TlightShape::aNumShadowSamples,
                            &TlightShape::aUseRayTraceShadows,
                            &TlightShape::aEyeToWorld,
                            &TlightShape::aWorldToEye,
                            &RayInstance};
    for (Tattribute* input : inputs)
        affectsAll(m, *input, TlightShape::aLightData);
}

namespace {
std::atomic<bool> gPreviewFile{false};

// Sample field numbers of the needs mask that only ray tracing uses.
constexpr unsigned kRayDepthField = 36;
constexpr unsigned kRayInstanceField = 37;
constexpr unsigned kPrimitiveIdField = 45;
constexpr unsigned kRenderStateField = 52;

T4dFltMatrix blockMatrix(TdataBlock& block, const Tattribute& a) {
    const TdataHandle h = block.inputValue(a);
    return h.isNull() ? T4dFltMatrix{} : h.as<T4dFltMatrix>();
}
} // namespace

// ---------------------------------------------------------------- switches and flags

void TrenderLightShape::setPreviewFileMode(bool on) {
    gPreviewFile.store(on);
}
bool TrenderLightShape::previewFileMode() {
    return gPreviewFile.load();
}

bool TrenderLightShape::shadingFlag(unsigned bit) const {
    return bit < 128 &&
           ((fShadingFlags[bit >> 6].load(std::memory_order_relaxed) >> (bit & 63)) & 1u);
}

void TrenderLightShape::setShadingFlag(unsigned bit, bool on) {
    if (bit >= 128)
        return;
    const uint64_t mask = uint64_t(1) << (bit & 63);
    if (on)
        fShadingFlags[bit >> 6].fetch_or(mask, std::memory_order_relaxed);
    else
        fShadingFlags[bit >> 6].fetch_and(~mask, std::memory_order_relaxed);
}

int TrenderLightShape::integerValue(const TdataHandle& h) {
    int value = 0;
    integerValues(TvectorDataHandle(h), 1, &value);
    return value;
}

void TrenderLightShape::integerValues(const TvectorDataHandle& h, unsigned count, int* out) {
    if (count == 0)
        return;
    const TdataHandle first = h.first();
    if (first.isNull() || !first.attribute()) {
        std::fill(out, out + count, 0);
        return;
    }
    auto each = [&](auto read) {
        for (unsigned i = 0; i < count; ++i)
            out[i] = read(h[int(i)]);
    };
    switch (first.attribute()->kind()) {
    case TattrKind::Boolean:
        each([](const TdataHandle& v) { return v.asBool() ? 1 : 0; });
        break;
    case TattrKind::Char:
        each([](const TdataHandle& v) { return int(v.as<char>()); });
        break;
    case TattrKind::Int16:
    case TattrKind::Enum:
        each([](const TdataHandle& v) { return int(v.asShort()); });
        break;
    case TattrKind::Int32:
        each([](const TdataHandle& v) { return v.asInt(); });
        break;
    case TattrKind::Float:
        each([](const TdataHandle& v) { return int(v.asFloat()); });
        break;
    default:
        std::fill(out, out + count, 0);
        break;
    }
}

bool TrenderLightShape::isLightDataPlug(const Tplug& plug) {
    const Tattribute* a = plug.attribute();
    return a && (a == &aLightData || a->isDescendentOf(aLightData));
}

// ---------------------------------------------------------------- graph notifications

bool TrenderLightShape::refreshesViewportLight(const Tattribute* attribute) const {
    return attribute == &aUseRayTraceShadows;
}

void TrenderLightShape::setDirty(TmsgDirty& msg) {
    if (msg.plug && refreshesViewportLight(msg.plug->attribute())) {
        setShadingFlag(kRebuildGlLightFlag, true);
        markDirtyForRefresh();
    }
    TdnPattern::setDirty(msg);
}

bool TrenderLightShape::setCachedValue(const Tplug& plug, const TdataHandle& value) {
    if (refreshesViewportLight(plug.attribute())) {
        setShadingFlag(kRebuildGlLightFlag, true);
        markDirtyForRefresh();
    }
    return TdnPattern::setCachedValue(plug, value);
}

void TrenderLightShape::debug(TdebugOutput& out, const TdebugDetails& details) const {
    TdnPattern::debug(out, details);
    debugMembers(out);
}

void TrenderLightShape::debugMembers(TdebugOutput&) const {}

// ---------------------------------------------------------------- shading node

void TrenderLightShape::analyse(TDNshadingEngine* engine, TSEnodeDescription* description,
                                void* option, TbitField64& fields) {
    TshadingNode::analyse(engine, description, option, fields);
    if (OrvoRayTracingEnabled())
        return;
    // The refraction index (46) stays: unlike a material, a light never
    // asked for it.
    fields.clear(kRayDepthField);
    fields.clear(kRayInstanceField);
    fields.clear(kPrimitiveIdField);
    if (previewFileMode())
        fields.clear(kRenderStateField);
}

bool TrenderLightShape::hasInputNetwork() const {
    TdependGraph* g = graph();
    if (!g)
        return false;
    for (const Tattribute* a : vsData()->attributes()) {
        // A message carries a relation (a set, a link), not a value: its
        // branch is left out.
        bool message = false;
        for (const Tattribute* up = a; up && !message; up = up->parent())
            message = up->kind() == TattrKind::Message;
        if (message)
            continue;
        if (const Tattribute* array = a->arrayAncestor()) {
            TuInt32Array indices;
            getExistingMultiAttributeIndices(Tplug(this, array), indices);
            for (uint32_t index : indices) {
                Tplug element(this, a);
                element.setMultiIndex(array, index);
                if (!g->sourceOf(element).isNull())
                    return true;
            }
            continue;
        }
        if (!g->sourceOf(Tplug(this, a)).isNull())
            return true;
    }
    return false;
}

void TrenderLightShape::shadingNodeInit(TframeSampleData* frame) {
    TshadingNode::shadingNodeInit(frame);
    setShadingFlag(kInputNetworkFlag, false);
    setShadingFlag(kInputNetworkFlag, hasInputNetwork());
    // The matrices of this frame are made at the first compute of the frame.
    resetOnDemand();
}

void TrenderLightShape::shadingNodeOnDemand(Tplug& plug, TdataBlock& block) {
    TshadingNode::shadingNodeOnDemand(plug, block);
    const TdagPath path = firstPath();
    fLocalToWorld = path.inclusiveFltMatrix();
    fWorldToLocal = path.inclusiveFltMatrixInverse();
    fEyeToWorld = blockMatrix(block, aEyeToWorld);
    fWorldToEye = blockMatrix(block, aWorldToEye);
    const T3Float world = OrvoTransformPoint(fLocalToWorld, {0.0f, 0.0f, 0.0f});
    fPosition = OrvoTransformPoint(fWorldToEye, world);
    const T3Float axis = OrvoTransformVector(fLocalToWorld, {0.0f, 0.0f, -1.0f});
    fDirection = OrvoTransformVector(fWorldToEye, axis);
}

// ---------------------------------------------------------------- the light interface

float TrenderLightShape::integrateLambertianReflectance(const T3dFltVector& lightDirection,
                                                        const T4dFltPoint&,
                                                        const T3dFltVector& normal, bool) {
    return OrvoDot(lightDirection, normal);
}

T3dFltVector TrenderLightShape::maxPhongSpecularDirection(const T3dFltVector& lightDirection,
                                                          const T4dFltPoint&, const T3dFltVector&,
                                                          const T3dFltVector&,
                                                          const T3dFltVector*) {
    return lightDirection;
}

float TrenderLightShape::lightAttenuation(const T4dFltPoint&, const T3dFltVector&, bool) {
    return 1.0f;
}

float TrenderLightShape::hemisphereCoverage(const T3dFltVector& lightDirection,
                                            const T4dFltPoint& point, const T3dFltVector& normal,
                                            bool flag) {
    return integrateLambertianReflectance(lightDirection, point, normal, flag);
}

float TrenderLightShape::lightDistance(const T4dFltPoint& point) const {
    return OrvoLength(fPosition - point.xyz());
}

// ---------------------------------------------------------------- shadow eligibility

bool TrenderLightShape::batchGetsShadows(TdataBlock& block, unsigned first) const {
    bool eligible = true;
    if (const Tattribute* objectType = objectTypeAttribute())
        if (integerValue(block.vectorInputValue(*objectType, first, 1)[0]) == 4)
            eligible = (integerValue(block.vectorInputValue(aRenderState, first, 1)[0]) & 2) != 0;
    // Shadows exist only in the beauty pass and the shadow pass.
    const int pass = OrvoRenderPass();
    if (eligible && pass >= kRenderPassColor && pass <= kRenderPassSpecular)
        eligible = false;
    if (const Tattribute* receive = receiveShadowsAttribute())
        if (!integerValue(block.vectorInputValue(*receive, first, 1)[0]))
            return false;
    return eligible;
}

// ---------------------------------------------------------------- compute

bool TrenderLightShape::computePlug(const Tplug& plug, TdataBlock& block) {
    if (!isLightDataPlug(plug))
        return TdnPattern::computePlug(plug, block);
    // Outside a render there is no frame to prepare the light: an
    // evaluation through the graph does it each time. A render's blocks are
    // prepared by the engine and must not be touched by another thread.
    if (dynamic_cast<TordinaryDataBlock*>(&block)) {
        setShadingFlag(kInputNetworkFlag, hasInputNetwork());
        resetOnDemand();
    }
    return vectorComputePlug(plug, block, block.currentIndex(), 1);
}

bool TrenderLightShape::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                                          unsigned count) {
    if (!isLightDataPlug(plug))
        return TdependNode::vectorComputePlug(plug, block, first, count);
    if (count == 0)
        return true;
    ensureOnDemand(const_cast<Tplug&>(plug), block);
    TshadeScratch scratch;
    LightBatch b{block,
                 first,
                 count,
                 block.vectorOutputValue(aLightData, first),
                 block.vectorInputValue(aPointCamera, first, count),
                 ORVO_SCRATCH_ARRAY(scratch, T3Float, count),
                 ORVO_SCRATCH_ARRAY(scratch, float, count),
                 ORVO_SCRATCH_ARRAY(scratch, float, count),
                 ORVO_SCRATCH_ARRAY(scratch, T3Float, count),
                 ORVO_SCRATCH_ARRAY(scratch, uint8_t, count)};
    std::memset(b.skip, 0, count);
    for (unsigned i = 0; i < count; ++i) {
        b.direction[i] = {0.0f, 0.0f, 1.0f};
        b.scalar[i] = 0.0f;
        b.distance[i] = 0.0f;
        b.colour[i] = {};
    }
    b.sampler =
        static_cast<TraySampler*>(block.vectorInputValue(aRaySampler, first, 1)[0].as<void*>());
    computeLightData(b);
    block.setCurrentIndex(first);
    return true;
}

void TrenderLightShape::writeTextureCoordinates(LightBatch& b) {
    TshadeScratch scratch;
    auto* uv = ORVO_SCRATCH_ARRAY(scratch, T2Float, b.count);
    for (unsigned i = 0; i < b.count; ++i)
        uv[i] = {};
    const bool projected = projectTextureCoordinates(b, uv);
    // The coordinates go where the maps on the light's inputs read them. A
    // value the block keeps once for all samples (stride 0) is shared with
    // other batches and is not written.
    const TvectorDataHandle u = b.block.vectorOutputValue(aUCoord, b.first);
    const TvectorDataHandle v = b.block.vectorOutputValue(aVCoord, b.first);
    const TvectorDataHandle filter = b.block.vectorOutputValue(aUvFilterSize, b.first);
    const TvectorDataHandle info = b.block.vectorOutputValue(aInfoBits, b.first);
    for (unsigned i = 0; i < b.count; ++i) {
        const int e = int(i);
        if (projected && !b.skip[i]) {
            if (!u.isNull() && !u.isConstant())
                u[e].as<float>() = uv[i].x;
            if (!v.isNull() && !v.isConstant())
                v[e].as<float>() = uv[i].y;
        }
        if (!filter.isNull() && !filter.isConstant()) {
            float* f = filter[e].asFloats();
            f[0] = f[1] = 0.001f;
        }
        if (!info.isNull() && !info.isConstant())
            info[e].as<int32_t>() |= 8;
    }
    b.block.setCurrentIndex(b.first);
}

void TrenderLightShape::illuminate(LightBatch& b) {
    const TvectorDataHandle intensity = b.block.vectorInputValue(aIntensity, b.first, b.count);
    for (unsigned i = 0; i < b.count; ++i) {
        const T3Float l = fPosition - b.point(i);
        b.distance[i] = OrvoLength(l);
        b.direction[i] = b.distance[i] > 1e-6f ? l * (1.0f / b.distance[i]) : l;
        b.scalar[i] = intensity[int(i)].asFloat();
    }
}

bool TrenderLightShape::rayTracedShadows(LightBatch& b, Tspectrum* reflectance) {
    return computeRtShadowPt(b, rayShadowRadius(b), reflectance);
}

void TrenderLightShape::readEmitFlags(LightBatch& b, uint8_t* diffuse, uint8_t* specular) {
    std::memset(diffuse, 1, b.count);
    std::memset(specular, 1, b.count);
}

void TrenderLightShape::computeLightData(LightBatch& b) {
    b.shadows = batchGetsShadows(b.block, b.first);
    markSkipped(b);
    // 1. Coordinates for the maps on the light's inputs.
    if (shadingFlag(kInputNetworkFlag))
        writeTextureCoordinates(b);
    // 2. Intensity and direction.
    illuminate(b);
    // 3. Pre-shadow intensity and the unshadowed colour.
    const TvectorDataHandle color = b.block.vectorInputValue(aColor, b.first, b.count);
    for (unsigned i = 0; i < b.count; ++i) {
        TlightData& r = b.record(i);
        r.shadowFraction = 0.0f;
        if (b.skip[i]) {
            b.scalar[i] = 0.0f;
            r.preShadowIntensity = 0.0f;
            b.colour[i] = {};
            continue;
        }
        const T3Float rgb = b.tinted(color, i);
        r.preShadowIntensity = luminance(rgb) * b.scalar[i];
        b.colour[i] = rgb * b.scalar[i];
    }
    // 4. Depth map shadows replace the colour where they apply.
    depthMapShadows(b);
    // 5. Ray traced shadows.
    TshadeScratch scratch;
    if (b.sampler && b.shadows) {
        auto* reflectance = ORVO_SCRATCH_ARRAY(scratch, Tspectrum, b.count);
        if (rayTracedShadows(b, reflectance))
            interpolateLightAndShadow(b, b.colour, reflectance, b.skip);
    }
    // 6. The records.
    auto* diffuse = ORVO_SCRATCH_ARRAY(scratch, uint8_t, b.count);
    auto* specular = ORVO_SCRATCH_ARRAY(scratch, uint8_t, b.count);
    readEmitFlags(b, diffuse, specular);
    for (unsigned i = 0; i < b.count; ++i) {
        TlightData& r = b.record(i);
        const bool lit = !b.skip[i];
        std::memcpy(r.direction, &b.direction[i], sizeof r.direction);
        const T3Float c = lit ? b.colour[i] : T3Float{};
        std::memcpy(r.intensity, &c, sizeof r.intensity);
        r.ambient = false;
        r.diffuse = lit && diffuse[i];
        r.specular = lit && specular[i];
        r.blindData = blindData();
    }
}
