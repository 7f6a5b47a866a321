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

void TvolumeRamp::valueAt01(float x, float* out) const {
    const unsigned n = header ? header->count : 0u;
    auto entry = [&](unsigned k) {
        return header->data + size_t(k) * header->stride + valueAt;
    };
    auto position = [&](unsigned k) {
        float p;
        std::memcpy(&p, entry(k) + positionAt, sizeof p);
        return p;
    };
    auto value = [&](unsigned k, float* v) {
        std::memcpy(v, entry(k) + dataAt, sizeof(float) * size_t(width));
    };
    if (n == 0) {
        std::fill(out, out + width, fallback);
        return;
    }
    // The entries at or below x and at or above it, and for a spline the
    // ones beyond each: the list is small and kept in the user's order.
    int low = -1, high = -1;
    for (unsigned k = 0; k < n; ++k) {
        const float p = position(k);
        if (p <= x && (low < 0 || p > position(unsigned(low))))
            low = int(k);
        if (p >= x && (high < 0 || p < position(unsigned(high))))
            high = int(k);
    }
    if (low < 0 || high < 0 || low == high) {
        value(unsigned(low < 0 ? high : low), out);
        return;
    }
    const float p0 = position(unsigned(low)), p1 = position(unsigned(high));
    float a[3], c[3];
    value(unsigned(low), a);
    value(unsigned(high), c);
    if (p1 <= p0) {
        std::copy(a, a + width, out);
        return;
    }
    const float t = (x - p0) / (p1 - p0);
    int16_t interp;
    std::memcpy(&interp, entry(unsigned(low)) + interpAt, sizeof interp);
    switch (interp) {
    case K::kNone:
        std::copy(a, a + width, out);
        return;
    case K::kSmooth: {
        const float w = t * t * (3.0f - 2.0f * t);
        for (int k = 0; k < width; ++k)
            out[k] = a[k] + (c[k] - a[k]) * w;
        return;
    }
    case K::kSpline: {
        // Catmull-Rom through the neighbours; a missing one is mirrored.
        int before = -1, after = -1;
        for (unsigned k = 0; k < n; ++k) {
            const float p = position(k);
            if (p < p0 && (before < 0 || p > position(unsigned(before))))
                before = int(k);
            if (p > p1 && (after < 0 || p < position(unsigned(after))))
                after = int(k);
        }
        float b0[3], b3[3];
        if (before >= 0)
            value(unsigned(before), b0);
        if (after >= 0)
            value(unsigned(after), b3);
        for (int k = 0; k < width; ++k) {
            const float v0 = before >= 0 ? b0[k] : 2.0f * a[k] - c[k];
            const float v3 = after >= 0 ? b3[k] : 2.0f * c[k] - a[k];
            const float t2 = t * t, t3 = t2 * t;
            out[k] = 0.5f * (2.0f * a[k] + (c[k] - v0) * t +
                             (2.0f * v0 - 5.0f * a[k] + 4.0f * c[k] - v3) * t2 +
                             (3.0f * a[k] - 3.0f * c[k] + v3 - v0) * t3);
        }
        return;
    }
    default:
        for (int k = 0; k < width; ++k)
            out[k] = a[k] + (c[k] - a[k]) * t;
        return;
    }
}

T3Float TvolumeRamp::colorAtPoint(float x) const {
    float v[3];
    valueAt01(x, v);
    return {v[0], v[1], v[2]};
}

float TvolumeRamp::valueAtPoint(float x) const {
    float v[3];
    valueAt01(x, v);
    return v[0];
}

TvolumeRamp TvolumeLightShape::colorRamp(TdataBlock& block, unsigned e) const {
    return TvolumeRamp::of(block, e, aColorRange, aColorRangePosition, aColorRangeColor,
                           aColorRangeInterp, 3);
}

TvolumeRamp TvolumeLightShape::penumbraRamp(TdataBlock& block, unsigned e) const {
    return TvolumeRamp::of(block, e, aPenumbra, aPenumbraPosition, aPenumbraFloatValue,
                           aPenumbraInterp, 1);
}

TvolumeRamp TvolumeRamp::of(TdataBlock& block, unsigned e, const Tattribute& list,
                            const Tattribute& position, const Tattribute& value,
                            const Tattribute& interp, int width) {
    TvolumeRamp r;
    r.header = block.vectorInputValue(list, e, 1)[0].asMultiHeader();
    r.valueAt = TmultiBuilder::valueOffset(list);
    r.positionAt = position.offsetInParent();
    r.dataAt = value.offsetInParent();
    r.interpAt = interp.offsetInParent();
    r.width = width;
    return r;
}

// ---------------------------------------------------------------- the shapes

bool TvolumeLightShape::inside(const T3Float& p) {
    return p.x > -1.0f && p.x < 1.0f && p.y > -1.0f && p.y < 1.0f && p.z > -1.0f && p.z < 1.0f;
}

bool TvolumeLightShape::computeVolumeLight(const TvolumeRamp& colorRamp,
                                           const TvolumeRamp& penumbraRamp, const T3Float& p,
                                           int lightShape, float arc, int direction,
                                           float coneEndRadius, T3Float& outDirection,
                                           T3Float& outColor) {
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
        const TvolumeRamp colors = colorRamp(b.block, b.first + i);
        const TvolumeRamp penumbra = penumbraRamp(b.block, b.first + i);
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
