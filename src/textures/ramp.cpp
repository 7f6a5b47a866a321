#include "textures/ramp.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "framework/nodes/utility/render_utilities.h"
#include "textures/noise_functions.h"

ORVO_REGISTER_NODE(TdnRamp)

ORVO_DEPENDENCIES(TdnRamp) {
    Tattribute* inputs[] = {&Type,         &Interpolation, &ColorEntryList, &UWave,    &VWave,
                            &Noise,        &NoiseFreq,     &HueNoise,       &SatNoise, &ValNoise,
                            &HueNoiseFreq, &SatNoiseFreq,  &ValNoiseFreq};
    for (Tattribute* input : inputs) {
        affectsAll(m, *input, TdnTx2D::aOutColor);
        affectsAll(m, *input, TdnTx2D::aOutAlpha);
    }
}

namespace {

using K = TdnKernel<TdnRamp>;
constexpr float kPi = 3.14159265358979323846f;
constexpr float kActive = 1e-5f;

// The entries as a block holds them: the array's elements, read in place.
struct BlockEntries {
    const TmultiHeader* header = nullptr;
    uint32_t valueAt = 0, positionAt = 0, colourAt = 0;

    unsigned count() const { return header ? header->count : 0u; }
    const std::byte* value(unsigned k) const {
        return header->data + size_t(k) * header->stride + valueAt;
    }
    unsigned index(unsigned k) const {
        uint32_t i;
        std::memcpy(&i, header->data + size_t(k) * header->stride, sizeof i);
        return i;
    }
    float position(unsigned k) const {
        float p;
        std::memcpy(&p, value(k) + positionAt, sizeof p);
        return p;
    }
    T3Float colour(unsigned k) const {
        T3Float c;
        std::memcpy(&c, value(k) + colourAt, sizeof c);
        return c;
    }
};

// What an empty list reads as: black at 0 and white at 1.
struct DefaultEntries {
    unsigned count() const { return 2; }
    unsigned index(unsigned k) const { return k; }
    float position(unsigned k) const { return float(k); }
    T3Float colour(unsigned k) const {
        const float c = float(k);
        return {c, c, c};
    }
};

// The entries of a bake: positions as the node holds them, colours through
// their connections, one array of colours per entry.
struct BakedEntries {
    struct Entry {
        unsigned index;
        float position;
        T4dDblVectorArray colours;
    };
    std::vector<Entry> entries;
    size_t element = 0;

    unsigned count() const { return unsigned(entries.size()); }
    unsigned index(unsigned k) const { return entries[k].index; }
    float position(unsigned k) const { return entries[k].position; }
    T3Float colour(unsigned k) const {
        const T4dDblVector& c = entries[k].colours[element];
        return {float(c.x), float(c.y), float(c.z)};
    }
};

// The colour at ramp position x: the entries just below and just above x,
// mixed by the interpolation. The list is scanned as it stands: it is small
// and not sorted, which keeps every position free to be animated.
template <class Entries>
T3Float rampAt(const Entries& e, float x, int16_t interpolation) {
    const unsigned n = e.count();
    if (n == 0)
        return {};
    if (n == 1)
        return e.colour(0);
    float lowPosition = -1.0f, highPosition = 2.0f;
    int low = -1, high = -1;
    for (unsigned k = 0; k < n; ++k) {
        const float p = std::clamp(e.position(k), 0.0f, 1.0f);
        // Strict tests: among equal positions the first scanned stays.
        if (p <= x && p > lowPosition) {
            lowPosition = p;
            low = int(k);
        }
        if (p >= x && p < highPosition) {
            highPosition = p;
            high = int(k);
        }
    }
    if (low < 0)
        return e.colour(unsigned(high));
    const T3Float lo = e.colour(unsigned(low));
    if (high < 0 || lowPosition == highPosition)
        return lo;
    const T3Float hi = e.colour(unsigned(high));
    const float t = (x - lowPosition) / (highPosition - lowPosition);
    const float w = TdnRamp::interpolationWeight(interpolation, t,
                                                 (hi.x - lo.x) + (hi.y - lo.y) + (hi.z - lo.z));
    return {lo.x + (hi.x - lo.x) * w, lo.y + (hi.y - lo.y) * w, lo.z + (hi.z - lo.z) * w};
}

// The colour of a sample at (us, vs), before the colour effects.
template <class Entries>
T3Float rampPattern(const Entries& e, const TdnRamp::Params& p, float us, float vs) {
    float u = us, v = vs;
    if (p.noise >= kActive) {
        const float n = Tnoise::noise2(u * p.noiseFreq, v * p.noiseFreq) * p.noise;
        u += n;
        v += n;
    }
    if (p.vWave >= kActive)
        v += std::sin(u * 2.0f * kPi) * p.vWave;
    if (p.uWave >= kActive)
        u -= std::sin(v * 2.0f * kPi) * p.uWave;
    const bool hueOn = p.hueNoise >= kActive, satOn = p.satNoise >= kActive,
               valOn = p.valNoise >= kActive;
    const float hue =
        hueOn ? Tnoise::noise2(u * p.hueNoiseFreq, v * p.hueNoiseFreq) * p.hueNoise : 0.0f;
    const float sat =
        satOn ? Tnoise::noise2(u * p.satNoiseFreq, v * p.satNoiseFreq) * p.satNoise : 0.0f;
    const float val =
        valOn ? Tnoise::noise2(u * p.valNoiseFreq, v * p.valNoiseFreq) * p.valNoise : 0.0f;
    u = TdnTx2D::fract1(u);
    v = TdnTx2D::fract1(v);

    auto ramp = [&](float x) {
        return rampAt(e, x, p.interpolation);
    };
    T3Float c;
    switch (p.type) {
    case K::kVRamp:
        c = ramp(v);
        break;
    case K::kURamp:
        c = ramp(u);
        break;
    case K::kDiagRamp:
        c = ramp((u + v) / 2.0f);
        break;
    case K::kRadialRamp: {
        const float y = u - 0.5f, z = v - 0.5f;
        const bool centre = std::fabs(y) <= 1e-5f && std::fabs(z) <= 1e-5f;
        c = ramp(centre ? 0.0f : std::atan2(y, z) / (2.0f * kPi) + 0.5f);
        break;
    }
    case K::kCircularRamp: {
        const float a = (u - 0.5f) * 1.414f, b = (v - 0.5f) * 1.414f;
        c = ramp(std::sqrt(a * a + b * b));
        break;
    }
    case K::kBoxRamp:
        c = ramp(2.0f * std::max(std::fabs(u - 0.5f), std::fabs(v - 0.5f)));
        break;
    case K::kUVRamp: {
        const T3Float a = ramp(2.0f * std::fabs(v - 0.5f)), b = ramp(2.0f * std::fabs(u - 0.5f));
        c = {a.x * b.x, a.y * b.y, a.z * b.z};
        break;
    }
    case K::kFourRamp: {
        // By array index, not by position; a missing corner is black.
        T3Float corner[4] = {};
        for (unsigned k = 0; k < e.count(); ++k)
            if (e.index(k) < 4)
                corner[e.index(k)] = e.colour(k);
        const float w[4] = {(1.0f - u) * (1.0f - v), u * (1.0f - v), (1.0f - u) * v, u * v};
        for (int ch = 0; ch < 3; ++ch)
            c[ch] = corner[0][ch] * w[0] + corner[1][ch] * w[1] + corner[2][ch] * w[2] +
                    corner[3][ch] * w[3];
        break;
    }
    case K::kTartanRamp:
    default: {
        const T3Float a = ramp(2.0f * std::fabs(v - 0.5f)), b = ramp(2.0f * std::fabs(u - 0.5f));
        c = {(a.x + b.x) / 2.0f, (a.y + b.y) / 2.0f, (a.z + b.z) / 2.0f};
        break;
    }
    }

    if (hueOn || satOn || valOn) {
        T3Float hsv;
        TrenderUtilities::RGBtoHSV(c, hsv);
        hsv.x += hue * 360.0f;
        if (hsv.x > 360.0f)
            hsv.x -= 360.0f;
        else if (hsv.x < 0.0f)
            hsv.x += 360.0f;
        hsv.y = std::clamp(hsv.y + sat, 0.0f, 1.0f);
        hsv.z = std::clamp(hsv.z + val, 0.0f, 1.0f);
        TrenderUtilities::HSVtoRGB(hsv, c);
    }
    return c;
}

} // namespace

float TdnRamp::interpolationWeight(int16_t interpolation, float t, float difference) {
    switch (interpolation) {
    case K::kNoInterp:
        return 0.0f;
    case K::kExpUpInterp:
        return t * t;
    case K::kExpDnInterp:
        return 1.0f - (1.0f - t) * (1.0f - t);
    case K::kSmoothInterp:
        return (std::cos((t + 1.0f) * kPi) + 1.0f) / 2.0f;
    case K::kBumpInterp:
        return difference <= 0.0f ? 1.0f + std::sin((t - 1.0f) * kPi / 2.0f)
                                  : std::sin(t * kPi / 2.0f);
    case K::kSpikeInterp:
        return difference >= 0.0f ? 1.0f + std::sin((t - 1.0f) * kPi / 2.0f)
                                  : std::sin(t * kPi / 2.0f);
    case K::kLinearInterp:
    default:
        return t;
    }
}

bool TdnRamp::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                                unsigned count) {
    if (!isTextureOutput(plug.attribute()))
        return TshadingDependNode::computePlug(plug, block);
    const Samples s(block, first, count);
    const TvectorDataHandle type = block.vectorInputValue(aType, first, count);
    const TvectorDataHandle interpolation = block.vectorInputValue(aInterpolation, first, count);
    const TvectorDataHandle list = block.vectorInputValue(aColorEntryList, first, count);
    const TvectorDataHandle uWave = block.vectorInputValue(aUWave, first, count);
    const TvectorDataHandle vWave = block.vectorInputValue(aVWave, first, count);
    const TvectorDataHandle noise = block.vectorInputValue(aNoise, first, count);
    const TvectorDataHandle noiseFreq = block.vectorInputValue(aNoiseFreq, first, count);
    const TvectorDataHandle hueNoise = block.vectorInputValue(aHueNoise, first, count);
    const TvectorDataHandle satNoise = block.vectorInputValue(aSatNoise, first, count);
    const TvectorDataHandle valNoise = block.vectorInputValue(aValNoise, first, count);
    const TvectorDataHandle hueFreq = block.vectorInputValue(aHueNoiseFreq, first, count);
    const TvectorDataHandle satFreq = block.vectorInputValue(aSatNoiseFreq, first, count);
    const TvectorDataHandle valFreq = block.vectorInputValue(aValNoiseFreq, first, count);

    BlockEntries entries;
    entries.valueAt = TmultiBuilder::valueOffset(aColorEntryList);
    entries.positionAt = aPosition.offsetInParent();
    entries.colourAt = aColor.offsetInParent();
    for (unsigned n = 0; n < count; ++n) {
        const int i = int(n);
        if (s.outside(i))
            continue;
        Params p;
        p.type = type[i].asShort();
        p.interpolation = interpolation[i].asShort();
        p.uWave = uWave[i].asFloat();
        p.vWave = vWave[i].asFloat();
        p.noise = noise[i].asFloat();
        p.noiseFreq = noiseFreq[i].asFloat();
        p.hueNoise = hueNoise[i].asFloat();
        p.satNoise = satNoise[i].asFloat();
        p.valNoise = valNoise[i].asFloat();
        p.hueNoiseFreq = hueFreq[i].asFloat();
        p.satNoiseFreq = satFreq[i].asFloat();
        p.valNoiseFreq = valFreq[i].asFloat();
        entries.header = list.isNull() ? nullptr : list[i].asMultiHeader();
        const T3Float c = entries.count() ? rampPattern(entries, p, s.u(i), s.v(i))
                                          : rampPattern(DefaultEntries{}, p, s.u(i), s.v(i));
        // Alpha is always the luminance; alphaIsLuminance is not consulted.
        s.finishWithAlpha(i, c, luminance(c));
    }
    return true;
}

void TdnRamp::addDefaultValuesIfEmpty() {
    TordinaryDataBlock& block = forceGetDatablock();
    const TmultiHeader* h = block.inputValue(aColorEntryList).asMultiHeader();
    if (h && h->count > 0)
        return;
    for (unsigned k = 0; k < 2; ++k) {
        const float position = float(k);
        const float colour[3] = {position, position, position};
        const Tplug at = buildPlug(this, aPosition, int(k));
        const Tplug col = buildPlug(this, aColor, int(k));
        if (graph()) {
            graph()->setPlugValue(at, &position);
            graph()->setPlugValue(col, colour);
        } else {
            block.elementValue(at, true).set(position);
            block.elementValue(col, true).set(3, colour);
        }
    }
}

void TdnRamp::mapUVtoClr(TplugArray& plugs, T4dDblVectorArray* colors, TdoubleArray* reserved,
                         TdoubleArray* alphas, const TdoubleArray* u, const TdoubleArray* v) {
    Bake b;
    if (!beginBake(plugs, u, v, b))
        return TtextureMethods::mapUVtoClr(plugs, colors, reserved, alphas, u, v);
    addDefaultValuesIfEmpty();
    Params p;
    p.type = forceGetDatablock().inputValue(aType).asShort();
    p.interpolation = forceGetDatablock().inputValue(aInterpolation).asShort();
    p.uWave = plainFloat(aUWave);
    p.vWave = plainFloat(aVWave);
    p.noise = plainFloat(aNoise);
    p.noiseFreq = plainFloat(aNoiseFreq);
    p.hueNoise = plainFloat(aHueNoise);
    p.satNoise = plainFloat(aSatNoise);
    p.valNoise = plainFloat(aValNoise);
    p.hueNoiseFreq = plainFloat(aHueNoiseFreq);
    p.satNoiseFreq = plainFloat(aSatNoiseFreq);
    p.valNoiseFreq = plainFloat(aValNoiseFreq);

    // Each entry's colour through its connection, at the coordinates as given.
    BakedEntries entries;
    TuInt32Array indices;
    getExistingMultiAttributeIndices(Tplug(this, &aColorEntryList), indices);
    for (uint32_t index : indices) {
        BakedEntries::Entry e{index, 0.0f, {}};
        e.position =
            forceGetDatablock().inputValue(buildPlug(this, aPosition, int(index))).asFloat();
        bakeColor(plugs, aColor, int(index), b, e.colours);
        entries.entries.push_back(std::move(e));
    }
    sizeOutputs(b, colors, alphas);
    for (size_t k = 0; k < b.count; ++k) {
        if (b.outside(k)) {
            bakeDefault(b, k, colors, alphas);
            continue;
        }
        entries.element = k;
        const T3Float c = rampPattern(entries, p, b.uAt(k), b.vAt(k));
        bakeFinish(b, k, c, luminance(c), false, colors, alphas);
    }
}
