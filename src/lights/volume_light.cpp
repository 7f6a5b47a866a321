#include "lights/volume_light.h"
#include "shading/scratch.h"

#include <algorithm>
#include <cmath>
#include <cstring>

ORVO_REGISTER_NODE(TvolumeLightShape)

ORVO_DEPENDENCIES(TvolumeLightShape) {
    Tattribute* inputs[] = {&LightShape, &VolumeLightDir, &Arc,         &ConeEndRadius,
                            &ColorRange, &Penumbra,       &EmitAmbient, &LightAngle};
    for (Tattribute* input : inputs)
        affectsAll(m, *input, TlightShape::aLightData);
}

namespace {

using K = TdnKernel<TvolumeLightShape>;
constexpr double kDegrees = 0.017453292519943295;

} // namespace

// ---------------------------------------------------------------- ramps

Tramp TvolumeLightShape::colorRamp(TdataBlock& block, unsigned e) const {
    return Tramp(
        TrampData::of(aColorRange, aColorRangePosition, aColorRangeColor, aColorRangeInterp),
        block.vectorInputValue(aColorRange, e, 1)[0].asMultiHeader(), 1.0f);
}

Tramp TvolumeLightShape::penumbraRamp(TdataBlock& block, unsigned e) const {
    return Tramp(TrampData::of(aPenumbra, aPenumbraPosition, aPenumbraFloatValue, aPenumbraInterp),
                 block.vectorInputValue(aPenumbra, e, 1)[0].asMultiHeader(), 1.0f);
}

// ---------------------------------------------------------------- the shapes

bool TvolumeLightShape::inside(const T3Float& p) {
    return p.x > -1.0f && p.x < 1.0f && p.y > -1.0f && p.y < 1.0f && p.z > -1.0f && p.z < 1.0f;
}

bool TvolumeLightShape::computeVolumeLight(const Tramp& colorRamp, const Tramp& penumbraRamp,
                                           const T3Float& p, int lightShape, float arc,
                                           int direction, float coneEndRadius,
                                           T3Float& outDirection, T3Float& outColor) {
    auto dark = [&] {
        outColor = {};
        outDirection = {0.0f, 0.0f, 1.0f};
        return false;
    };
    // The wedge the arc leaves out, measured about Y from -Z.
    if (arc != 360.0f &&
        (arc == 0.0f || double(std::atan2(-p.x, -p.z)) > (double(arc) - 180.0) * kDegrees))
        return dark();
    T3Float d{0.0f, 0.0f, 1.0f};
    if (direction != K::kDownAxis) {
        d = p * -1.0f;
        const float length = OrvoLength(d);
        if (length > 1e-5f)
            d = d * (1.0f / length);
    }
    switch (lightShape) {
    case K::kBoxVolume: {
        // Each axis fades from 1 at the centre to 0 at the faces.
        auto m = [](float x) {
            return float((std::cos((1.0 - std::fabs(double(x)) + 1.0) * M_PI) + 1.0) * 0.5);
        };
        outColor = colorRamp.colorAtPoint(1.0f - (1.0f - m(p.x) * m(p.y) * m(p.z)));
        break;
    }
    case K::kSphereVolume: {
        const float r = OrvoLength(p);
        if (r > 1.0f)
            return dark();
        if (direction == K::kDownAxis)
            d = {0.0f, 0.0f, 1.0f};
        else if (r <= 1e-5f)
            d.y = 1.0f; // at the very centre there is no way out: up
        outColor = colorRamp.colorAtPoint(1.0f - r);
        break;
    }
    case K::kCylinderVolume: {
        const float r = std::sqrt(p.x * p.x + p.z * p.z);
        if (r > 1.0f)
            return dark();
        outColor =
            colorRamp.colorAtPoint(1.0f - std::fabs(p.y)) * penumbraRamp.valueAtPoint(1.0f - r);
        break;
    }
    case K::kConeVolume: {
        const float r = std::sqrt(p.x * p.x + p.z * p.z);
        // The cone is 1 across at y = -1 and coneEndRadius at y = 0.
        const float radius = (p.y + 1.0f) * coneEndRadius - p.y;
        if (p.y > 0.0f || r > radius)
            return dark();
        outColor =
            colorRamp.colorAtPoint(1.0f + p.y) * penumbraRamp.valueAtPoint(1.0f - r / radius);
        break;
    }
    default:
        return dark();
    }
    if (direction == K::kInward)
        d = d * -1.0f;
    outDirection = d;
    return true;
}

void TvolumeLightShape::analyse(TDNshadingEngine* engine, TSEnodeDescription* description,
                                void* option, TbitField64& fields) {
    TnonExtendedLightShape::analyse(engine, description, option, fields);
    analyseFog(fields);
}

// ---------------------------------------------------------------- compute

T3Float TvolumeLightShape::toEye(const T3Float& localDirection) const {
    return OrvoTransformVector(fWorldToEye, OrvoTransformVector(fLocalToWorld, localDirection));
}

void TvolumeLightShape::computeLightData(LightBatch& b) {
    TshadeScratch scratch;
    b.tint = ORVO_SCRATCH_ARRAY(scratch, T3Float, b.count);
    for (unsigned i = 0; i < b.count; ++i)
        b.tint[i] = {1.0f, 1.0f, 1.0f};
    TpointLightShape::computeLightData(b);
    // An ambient volume light adds to materials without a cosine.
    const TvectorDataHandle ambient = b.block.vectorInputValue(aEmitAmbient, b.first, b.count);
    for (unsigned i = 0; i < b.count; ++i)
        b.record(i).ambient = ambient[int(i)].asBool();
    b.tint = nullptr;
}

void TvolumeLightShape::illuminate(LightBatch& b) {
    TshadeScratch scratch;
    auto* fog = ORVO_SCRATCH_ARRAY(scratch, uint8_t, b.count);
    markFogSamples(b, fog);
    const TvectorDataHandle intensity = b.block.vectorInputValue(aIntensity, b.first, b.count);
    const TvectorDataHandle shape = b.block.vectorInputValue(aLightShape, b.first, b.count);
    const TvectorDataHandle arc = b.block.vectorInputValue(aArc, b.first, b.count);
    const TvectorDataHandle way = b.block.vectorInputValue(aVolumeLightDir, b.first, b.count);
    const TvectorDataHandle end = b.block.vectorInputValue(aConeEndRadius, b.first, b.count);
    const TvectorDataHandle near = b.block.vectorInputValue(aPointWorld, b.first, b.count);
    const TvectorDataHandle amount = b.block.vectorInputValue(aFogIntensity, b.first, b.count);
    for (unsigned i = 0; i < b.count; ++i) {
        const int e = int(i);
        const Tramp colors = colorRamp(b.block, b.first + i);
        const Tramp penumbra = penumbraRamp(b.block, b.first + i);
        auto at = [&](const T3Float& p, T3Float& direction, T3Float& colour) {
            return computeVolumeLight(colors, penumbra, p, shape[e].asShort(), arc[e].asFloat(),
                                      way[e].asShort(), end[e].asFloat(), direction, colour);
        };
        b.distance[i] = OrvoLength(fPosition - b.point(i));
        T3Float direction{0.0f, 0.0f, 1.0f}, colour{};
        if (fog[i]) {
            // The fog segment, in the light's space, sampled at its middle
            // and half way to each end.
            T3Float p1, p2;
            fogSegment(b, i, fWorldToLocal, p1, p2);
            const T3Float mid = (p1 + p2) * 0.5f;
            const T3Float q1 = (mid + p1) * 0.5f, q2 = (mid + p2) * 0.5f;
            T3Float sumDirection{}, sumColour{};
            for (const T3Float& q : {q1, mid, q2}) {
                T3Float d, c;
                if (inside(q) && at(q, d, c)) {
                    sumDirection = sumDirection + d;
                    sumColour = sumColour + c;
                }
            }
            b.direction[i] = toEye(sumDirection);
            b.tint[i] = sumColour;
            b.scalar[i] =
                (OrvoLength(q2 - q1) * 0.5f) / 3.0f * amount[e].asFloat() * intensity[e].asFloat();
            continue;
        }
        const float* w = near[e].asFloat3();
        const T3Float p = OrvoTransformPoint(fWorldToLocal, {w[0], w[1], w[2]});
        const bool lit = inside(p) && at(p, direction, colour);
        b.direction[i] = OrvoNormalizeIfLong(toEye(direction));
        b.tint[i] = colour;
        b.scalar[i] = lit ? intensity[e].asFloat() : 0.0f;
        if (!lit)
            b.skip[i] = 1;
    }
}

bool TvolumeLightShape::rayTracedShadows(LightBatch& b, Tspectrum* reflectance) {
    const int way = b.block.vectorInputValue(aVolumeLightDir, b.first, 1)[0].asShort();
    if (way != K::kDownAxis)
        return computeRtShadowPt(b, rayShadowRadius(b), reflectance);
    const float angle = b.block.vectorInputValue(aLightAngle, b.first, 1)[0].asFloat();
    return computeRtShadowDir(b, OrvoNormalizeIfLong(toEye({0.0f, 0.0f, 1.0f})), angle,
                              reflectance);
}
