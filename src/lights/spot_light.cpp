#include "lights/spot_light.h"
#include "shading/scratch.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

ORVO_REGISTER_NODE(TspotLightShape)

ORVO_DEPENDENCIES(TspotLightShape) {
    Tattribute* inputs[] = {&ConeAngle,       &PenumbraAngle,  &Dropoff,      &BarnDoors,
                            &LeftBarnDoor,    &RightBarnDoor,  &TopBarnDoor,  &BottomBarnDoor,
                            &UseDecayRegions, &StartDistance1, &EndDistance1, &StartDistance2,
                            &EndDistance2,    &StartDistance3, &EndDistance3, &FogSpread,
                            &FogIntensity,    &ObjectType,     &PointWorld,   &FarPointWorld,
                            &RayDirection,    &PsIllumSamples};
    for (Tattribute* input : inputs)
        affectsAll(m, *input, TlightShape::aLightData);
}

namespace {

// Angles are kept off 0 and pi, where the cone's cosines and sines would
// stop telling its inside from its outside.
constexpr double kMinAngle = 0.0001;
constexpr double kMaxAngle = 3.141492653589793;
// A penumbra this small is none: the rim is a hard edge.
constexpr double kNoPenumbra = 0.001;

double clampAngle(double a) {
    return std::clamp(a, kMinAngle, kMaxAngle);
}

enum Door { kLeft, kRight, kTop, kBottom };

} // namespace

// ---------------------------------------------------------------- the cone

void TspotLightShape::computeLimits(double coneAngle, double penumbraAngle, bool barnDoors,
                                    const double doors[4], Cone& cone) {
    const double c = coneAngle * 0.5;
    const double p = penumbraAngle;
    const double a = clampAngle(c);
    const double b = clampAngle(p + c);
    cone.cutoff = float(std::cos(a));
    cone.penumbra = float(std::cos(b));
    cone.tanConeAngle = float(std::tan(a));
    // Cutoff is always the lower cosine: the outer edge, where the light
    // reaches zero. An outward penumbra moves it out of the cone.
    if (std::fabs(p) <= kNoPenumbra)
        cone.penumbra = 0.0f;
    else if (p > 0.0)
        std::swap(cone.cutoff, cone.penumbra);
    if (!barnDoors)
        return;
    cone.leftCutoff = float(-std::sin(doors[kLeft]));
    cone.rightCutoff = float(std::sin(doors[kRight]));
    cone.topCutoff = float(std::sin(doors[kTop]));
    cone.bottomCutoff = float(-std::sin(doors[kBottom]));
    cone.coneCutoff = float(std::sin(a));
    cone.leftPenumbra = float(-std::sin(clampAngle(p + doors[kLeft])));
    cone.rightPenumbra = float(std::sin(clampAngle(p + doors[kRight])));
    cone.topPenumbra = float(std::sin(clampAngle(p + doors[kTop])));
    cone.bottomPenumbra = float(-std::sin(clampAngle(p + doors[kBottom])));
    cone.conePenumbra = float(std::sin(b));
    if (p > 0.0) {
        std::swap(cone.leftCutoff, cone.leftPenumbra);
        std::swap(cone.rightCutoff, cone.rightPenumbra);
        std::swap(cone.topCutoff, cone.topPenumbra);
        std::swap(cone.bottomCutoff, cone.bottomPenumbra);
        std::swap(cone.coneCutoff, cone.conePenumbra);
    }
}

bool TspotLightShape::calculateBarnDoorDropOff(const Cone& cone, const double doors[4],
                                               double coneAngle, float k, const T3Float& l,
                                               float& intensity) {
    const double half = coneAngle * 0.5;
    if (doors[kLeft] >= half && doors[kRight] >= half && doors[kTop] >= half &&
        doors[kBottom] >= half) {
        // The doors stand outside the cone: a plain cone with its penumbra.
        if (k < cone.cutoff) {
            intensity = 0.0f;
            return false;
        }
        if (k < cone.penumbra)
            intensity *= (k - cone.cutoff) / (cone.penumbra - cone.cutoff);
        return true;
    }
    // Where the sample lies across the beam, in the plane of the doors.
    const T3Float w = l * -1.0f + cone.shineAt * OrvoDot(l, cone.shineAt);
    const float x = OrvoDot(w, cone.right);
    const float y = OrvoDot(w, cone.up);
    if (x < cone.leftCutoff || x > cone.rightCutoff || y < cone.bottomCutoff ||
        y > cone.topCutoff || k < cone.cutoff) {
        intensity = 0.0f;
        return false;
    }
    if (cone.penumbra == 0.0f)
        return true;
    if (k < cone.penumbra)
        intensity *=
            (std::sqrt(1.0f - k * k) - cone.coneCutoff) / (cone.conePenumbra - cone.coneCutoff);
    if (x >= cone.rightPenumbra)
        intensity *= (x - cone.rightCutoff) / (cone.rightPenumbra - cone.rightCutoff);
    if (x <= cone.leftPenumbra)
        intensity *= (x - cone.leftCutoff) / (cone.leftPenumbra - cone.leftCutoff);
    if (y >= cone.topPenumbra)
        intensity *= (y - cone.topCutoff) / (cone.topPenumbra - cone.topCutoff);
    if (y <= cone.bottomPenumbra)
        intensity *= (y - cone.bottomCutoff) / (cone.bottomPenumbra - cone.bottomCutoff);
    return true;
}

bool TspotLightShape::inIlluminationRegion(float d, const float bounds[6]) {
    // The first region alone lights points within a unit of the light.
    return (d >= bounds[0] && d <= bounds[1]) || (d >= bounds[2] && d <= bounds[3] && d > 1.0f) ||
           (d >= bounds[4] && d <= bounds[5] && d > 1.0f);
}

float TspotLightShape::calculateLengthInRegion(float near, float far, float start, float end) {
    if ((start > near && start > far) || (near > end && far > end))
        return 0.0f;
    return std::min(end, far) - std::max(start, near);
}

void TspotLightShape::readDoors(TdataBlock& block, unsigned e, double doors[4]) const {
    const Tattribute* a[4] = {&aLeftBarnDoor, &aRightBarnDoor, &aTopBarnDoor, &aBottomBarnDoor};
    for (int k = 0; k < 4; ++k)
        doors[k] = block.vectorInputValue(*a[k], e, 1)[0].asDouble();
}

void TspotLightShape::readRegions(TdataBlock& block, unsigned e, float bounds[6]) const {
    const Tattribute* a[6] = {&aStartDistance1, &aEndDistance1,   &aStartDistance2,
                              &aEndDistance2,   &aStartDistance3, &aEndDistance3};
    for (int k = 0; k < 6; ++k)
        bounds[k] = block.vectorInputValue(*a[k], e, 1)[0].asFloat();
}

void TspotLightShape::shadingNodeOnDemand(Tplug& plug, TdataBlock& block) {
    TnonExtendedLightShape::shadingNodeOnDemand(plug, block);
    auto axis = [&](const T3Float& local) {
        const T3Float world = OrvoTransformVector(fLocalToWorld, local);
        return OrvoNormalizeIfLong(OrvoTransformVector(fWorldToEye, world));
    };
    fCone = Cone();
    fConeAngle = block.inputValue(aConeAngle).asDouble();
    readDoors(block, block.currentIndex(), fDoors);
    const bool doors = block.inputValue(aBarnDoors).asBool();
    fCone.shineAt = axis({0.0f, 0.0f, 1.0f});
    if (doors) {
        fCone.right = axis({1.0f, 0.0f, 0.0f});
        fCone.up = axis({0.0f, 1.0f, 0.0f});
    }
    computeLimits(fConeAngle, block.inputValue(aPenumbraAngle).asDouble(), doors, fDoors, fCone);
    recomputeConePoints();
}

void TspotLightShape::recomputeConePoints() {
    // The rim of the cone one unit down the axis.
    const double half = std::min(fConeAngle * 0.5, 1.5707);
    const double radius = std::tan(half);
    for (int k = 0; k < 20; ++k) {
        const double angle = 2.0 * M_PI * k / 20.0;
        fConePoints[k] = {radius * std::cos(angle), radius * std::sin(angle), -1.0, 1.0};
    }
}

bool TspotLightShape::affectsShadows(const Tattribute* attribute) const {
    return attribute == &aConeAngle || TnonExtendedLightShape::affectsShadows(attribute);
}

bool TspotLightShape::canSee(const T3Float& point, T3Float& position, T3Float& direction) const {
    T3Float v = point;
    const float squared = OrvoDot(v, v);
    if (squared > 1e-20f && std::fabs(squared - 1.0f) > 2e-10f)
        v = v * (1.0f / std::sqrt(squared));
    if (std::acos(std::clamp(double(-v.z), -1.0, 1.0)) > fConeAngle)
        return false;
    direction = v;
    position = {0.0f, 0.0f, 0.0f};
    return true;
}

bool TspotLightShape::visibleToLight(TdataBlock& block, const T3Float& point) const {
    const T3Float l = OrvoNormalizeIfLong(fPosition - point);
    const float k = OrvoDot(l, fCone.shineAt);
    if (!block.inputValue(aBarnDoors).asBool())
        return k >= fCone.cutoff;
    float intensity = 1.0f;
    return calculateBarnDoorDropOff(fCone, fDoors, fConeAngle, k, l, intensity);
}

void TspotLightShape::debugMembers(TdebugOutput& out) const {
    TnonExtendedLightShape::debugMembers(out);
    char line[200];
    auto print = [&](const char* format, auto... values) {
        std::snprintf(line, sizeof line, format, values...);
        out.write(line);
    };
    print("Spot views = %d\n", fSpotViews);
    out.write("Cone points\n");
    for (const T4dDblPoint& p : fConePoints)
        print("(%g, %g, %g, %g)\n", p.x, p.y, p.z, p.w);
    const Cone& c = fCone;
    print("Shine At         = (%g, %g, %g)\n", double(c.shineAt.x), double(c.shineAt.y),
          double(c.shineAt.z));
    print("Right            = (%g, %g, %g)\n", double(c.right.x), double(c.right.y),
          double(c.right.z));
    print("Up               = (%g, %g, %g)\n", double(c.up.x), double(c.up.y), double(c.up.z));
    print("Xformed Cutoff   = %g\n", double(c.cutoff));
    print("Xformed Penumbra = %g\n", double(c.penumbra));
    print("Left cutoff      = %g\n", double(c.leftCutoff));
    print("Right cutoff     = %g\n", double(c.rightCutoff));
    print("Top cutoff       = %g\n", double(c.topCutoff));
    print("Buttom cutoff    = %g\n", double(c.bottomCutoff));
    print("Cone cutoff      = %g\n", double(c.coneCutoff));
    print("Tan Cone Angle   = %g\n", double(c.tanConeAngle));
    print("Left penumbra    = %g\n", double(c.leftPenumbra));
    print("Right penumbra   = %g\n", double(c.rightPenumbra));
    print("Top Penumbra     = %g\n", double(c.topPenumbra));
    print("Bottom Penumbra  = %g\n", double(c.bottomPenumbra));
    print("Cone penumbra    = %g\n", double(c.conePenumbra));
}

void TspotLightShape::analyse(TDNshadingEngine* engine, TSEnodeDescription* description,
                              void* option, TbitField64& fields) {
    TnonExtendedLightShape::analyse(engine, description, option, fields);
    analyseFog(fields);
}

// ---------------------------------------------------------------- compute

bool TspotLightShape::projectTextureCoordinates(LightBatch& b, T2Float* uv) {
    const TvectorDataHandle world = b.block.vectorInputValue(aPointWorld, b.first, b.count);
    for (unsigned i = 0; i < b.count; ++i) {
        const float* w = world[int(i)].asFloat3();
        const T3Float q = OrvoTransformPoint(fWorldToLocal, {w[0], w[1], w[2]});
        // The cone's cross-section one unit down the axis, scaled to -1..1.
        float x = 1.0f, y = 1.0f;
        if (fCone.tanConeAngle != 0.0f) {
            x = q.x / fCone.tanConeAngle;
            y = q.y / fCone.tanConeAngle;
        }
        if (q.z != 0.0f) {
            x /= q.z;
            y /= q.z;
        }
        uv[i] = {(x + 1.0f) * 0.5f, (y + 1.0f) * 0.5f};
    }
    return true;
}

bool TspotLightShape::pointIntensity(TdataBlock& block, unsigned e, const T3Float& p, T3Float& l,
                                     float& d, float& intensity, bool& outsideRegions) const {
    l = fPosition - p;
    d = OrvoLength(l);
    if (d > 1e-6f)
        l = l * (1.0f / d);
    outsideRegions = false;
    if (block.vectorInputValue(aUseDecayRegions, e, 1)[0].asBool()) {
        float bounds[6];
        readRegions(block, e, bounds);
        outsideRegions = !inIlluminationRegion(d, bounds);
    }
    const float k = OrvoDot(l, fCone.shineAt);
    intensity = block.vectorInputValue(aIntensity, e, 1)[0].asFloat();
    if (block.vectorInputValue(aBarnDoors, e, 1)[0].asBool()) {
        // The doors darken the sample without taking it out of the light:
        // it keeps its record's flags, at no intensity.
        calculateBarnDoorDropOff(fCone, fDoors, fConeAngle, k, l, intensity);
        return true;
    }
    if (k < fCone.cutoff) {
        intensity = 0.0f;
        return false;
    }
    const double dropoff = block.vectorInputValue(aDropoff, e, 1)[0].asDouble();
    if (dropoff != 0.0)
        intensity *= float(std::pow(double(k), dropoff));
    if (k < fCone.penumbra)
        intensity *= (k - fCone.cutoff) / (fCone.penumbra - fCone.cutoff);
    return true;
}

void TspotLightShape::illuminate(LightBatch& b) {
    TshadeScratch scratch;
    auto* fog = ORVO_SCRATCH_ARRAY(scratch, uint8_t, b.count);
    markFogSamples(b, fog);
    const TvectorDataHandle rate = b.block.vectorInputValue(aDecayRate, b.first, b.count);
    const TvectorDataHandle type = b.block.vectorInputValue(aObjectType, b.first, b.count);
    const TvectorDataHandle particles = b.block.vectorInputValue(aPsIllumSamples, b.first, b.count);
    for (unsigned i = 0; i < b.count; ++i) {
        if (b.skip[i])
            continue;
        const unsigned e = b.first + i;
        if (fog[i]) {
            fogIntensity(b, i);
            continue;
        }
        const int samples = std::max(1, int(particles[int(i)].asShort()));
        if (integerValue(type[int(i)]) == 4 && samples > 1) {
            particleIntensity(b, i, samples);
            continue;
        }
        T3Float l;
        float d, intensity;
        bool outside;
        const bool inCone = pointIntensity(b.block, e, b.point(i), l, d, intensity, outside);
        b.direction[i] = l;
        b.distance[i] = d;
        if (!inCone || outside) {
            b.skip[i] = 1;
            b.scalar[i] = 0.0f;
            continue;
        }
        b.scalar[i] = d > 1.0f ? decay(intensity, d, rate[int(i)].asShort()) : intensity;
    }
}

void TspotLightShape::fogIntensity(LightBatch& b, unsigned i) {
    const unsigned e = b.first + i;
    const float* ray = b.block.vectorInputValue(aRayDirection, e, 1)[0].asFloat3();
    T3Float p1, p2;
    fogSegment(b, i, fWorldToEye, p1, p2);
    T3Float e1 = p1 - fPosition, e2 = p2 - fPosition;
    const float d1 = OrvoLength(e1), d2 = OrvoLength(e2);
    if (d1 != 0.0f)
        e1 = e1 * (1.0f / d1);
    if (d2 != 0.0f)
        e2 = e2 * (1.0f / d2);
    float s = std::fabs(OrvoDot({ray[0], ray[1], ray[2]}, fCone.shineAt));
    float m = std::min(d1, d2);
    switch (b.block.vectorInputValue(aDecayRate, e, 1)[0].asShort()) {
    case kNoDecay:
        m = 2.0f;
        break;
    case kQuadDecay:
        m = m * m;
        break;
    case kCubicDecay:
        m = m * m * m;
        break;
    default:
        break;
    }
    // The wider the segment opens as seen from the light, the more of the
    // cone it crosses.
    const float t =
        std::min(1.0f, (1.0f - (OrvoDot(e1, e2) + 1.0f) * 0.5f) / (2.0f - 2.0f * fCone.cutoff));
    b.direction[i] = OrvoNormalizeIfLong(fPosition - b.point(i));
    if (t < 0.0f) {
        b.skip[i] = 1;
        b.scalar[i] = 0.0f;
        return;
    }
    // Looking down the beam the fog glows brighter.
    const float g = fCone.cutoff * 0.5f + 0.2f;
    if (s < g || g >= 1.0f)
        s = 0.0f;
    else
        s = (s - g) * (1.0f - g) * 2.0f;
    const float spread = b.block.vectorInputValue(aFogSpread, e, 1)[0].asFloat();
    const float amount = b.block.vectorInputValue(aFogIntensity, e, 1)[0].asFloat();
    const float intensity = b.block.vectorInputValue(aIntensity, e, 1)[0].asFloat();
    float value = (std::pow(t, 1.0f / spread) + s) * amount * intensity / (m + 1.0f);
    if (b.block.vectorInputValue(aUseDecayRegions, e, 1)[0].asBool()) {
        float bounds[6];
        readRegions(b.block, e, bounds);
        const float lo = std::min(d1, d2), hi = std::max(d1, d2);
        float r = 0.0f;
        for (int k = 0; k < 3; ++k)
            r += calculateLengthInRegion(lo, hi, bounds[2 * k], bounds[2 * k + 1]);
        if (hi - lo != 0.0f)
            value *= r / (hi - lo);
    }
    // Fog stays lit even where its segment has no length in any region.
    b.scalar[i] = value;
}

void TspotLightShape::particleIntensity(LightBatch& b, unsigned i, int samples) {
    const unsigned e = b.first + i;
    T3Float p1, p2;
    fogSegment(b, i, fWorldToEye, p1, p2);
    const int rate = b.block.vectorInputValue(aDecayRate, e, 1)[0].asShort();
    T3Float directions{};
    float sum = 0.0f;
    // A particle stands for the segment its ray crosses: the light at
    // points spread evenly along it.
    for (int j = 0; j < samples; ++j) {
        const T3Float p = p1 + (p2 - p1) * ((float(j) + 0.5f) / float(samples));
        T3Float l;
        float d, f;
        bool outside;
        // Outside the cone the term is 0, and stays so.
        if (pointIntensity(b.block, e, p, l, d, f, outside) && !outside)
            f = decay(f, d, rate);
        directions = directions + l;
        sum += f;
    }
    b.scalar[i] = sum / float(samples);
    b.direction[i] = directions * (1.0f / float(samples));
}
