#include "textures/place2d_texture.h"

#include <algorithm>
#include <cmath>

#include "textures/noise_functions.h"
#include "textures/place2d_run.h"
#include "textures/tx2d.h"

ORVO_REGISTER_NODE(TdnPlace2dTx)

// Every input the pipeline reads affects the placed coordinate, the placed
// filter size and the transform test. The vertex inputs are declared for
// the engine to fill and are read by nothing here.
ORVO_DEPENDENCIES(TdnPlace2dTx) {
    Tattribute* inputs[] = {&UvCoord,  &UvFilterSize, &Coverage, &TranslateFrame, &RotateFrame,
                            &MirrorU,  &MirrorV,      &Stagger,  &WrapU,          &WrapV,
                            &RepeatUV, &Offset,       &RotateUV, &NoiseUV,        &Fast};
    for (Tattribute* input : inputs) {
        affectsAll(m, *input, OutUV);
        affectsAll(m, *input, OutUvFilterSize);
        affectsAll(m, *input, DoTransform);
    }
}

namespace {

// One axis of step 9: the coverage, translate frame and wrap, then the
// range test, then repeat and offset. False when the sample falls outside.
inline bool placeAxis(float& x, bool wrap, float c, float t, float r, float o) {
    if (c >= 1.0f) {
        x = c == 1.0f ? x - t : (x - t) / c;
        if (wrap) {
            x = x * r + o;
            return true;
        }
    } else if (!wrap) {
        x = (x - t) / c;
    } else {
        // A negative x lands in 1 .. 2 here, and the tests below bring it
        // back only as far as the coverage asks.
        if (x > 1.0f)
            x = x - std::floor(x);
        else if (x < 0.0f)
            x = x - std::floor(x) + 1.0f;
        x = x - (t - std::floor(t));
        if (x > c)
            x = x - 1.0f;
        else if (x < 0.0f)
            x = x + 1.0f;
        x = x / c;
    }
    if (x < 0.0f || x > 1.0f)
        return false;
    x = x * r + o;
    return true;
}

// Whether a whole number (a floor) is odd, negative ones included.
inline bool isOdd(float whole) {
    return std::fmod(whole, 2.0f) != 0.0f;
}

inline void turnAboutCentre(float& u, float& v, float c, float s) {
    const float du = u - 0.5f, dv = v - 0.5f;
    u = du * c - dv * s + 0.5f;
    v = du * s + dv * c + 0.5f;
}

} // namespace

TdnPlace2dTx::Rotation TdnPlace2dTx::Rotation::of(double angle) {
    const float a = float(angle);
    return {std::cos(a), std::sin(a), a != 0.0f};
}

bool TdnPlace2dTx::placeFilterSize(const Params& p, const Rotation& frame, const Rotation& uvr,
                                   bool transform, float u, float v, float fu, float fv,
                                   float outSize[2]) {
    // 1 to 3: an outside sample, the fast path and a coverage that shows
    // nothing all pass the filter size through unscaled.
    outSize[0] = fu;
    outSize[1] = fv;
    if (TdnTx2D::isOutside(u, v) || (p.fast && !transform) || p.coverage[0] <= 0.0f ||
        p.coverage[1] <= 0.0f)
        return false;

    // 4. Filter scale.
    const float su = p.coverage[0] < 1e-6f ? p.repeat[0] * 1e6f : p.repeat[0] / p.coverage[0];
    const float sv = p.coverage[1] < 1e-6f ? p.repeat[1] * 1e6f : p.repeat[1] / p.coverage[1];

    // 5. Filter size: the rotated footprint's box, with the unrotated area.
    if (!frame.on && !uvr.on) {
        outSize[0] = su * fu;
        outSize[1] = sv * fv;
        return true;
    }
    float m[4];
    footprintMatrix(frame, uvr, su, sv, m);
    const float m00 = m[0], m01 = m[1], m10 = m[2], m11 = m[3];
    const float a = std::fabs(m00 * fu) + std::fabs(m01 * fv);
    const float b = std::fabs(m10 * fu) + std::fabs(m11 * fv);
    const float k =
        std::sqrt(std::fabs(su * sv * fu * fv) / (std::max(b, 1e-6f) * std::max(a, 1e-6f)));
    outSize[0] = a * k;
    outSize[1] = b * k;
    return true;
}

void TdnPlace2dTx::place(const Params& p, const Rotation& frame, const Rotation& uvr, bool noise,
                         bool transform, float u, float v, float fu, float fv, float outUV[2],
                         float outSize[2]) {
    const float marker = TdnTx2D::kOutside;
    if (!placeFilterSize(p, frame, uvr, transform, u, v, fu, fv, outSize)) {
        // Outside, or an empty coverage: the marker. The fast path keeps
        // the coordinate.
        const bool keep = !TdnTx2D::isOutside(u, v) && p.fast && !transform;
        outUV[0] = keep ? u : marker;
        outUV[1] = keep ? v : marker;
        return;
    }

    // 6. Noise, both from the coordinate before the change.
    if (noise) {
        const float nu = Tnoise::noise2(u, v);
        const float nv = Tnoise::noise2(u + 0.5f, v + 0.5f);
        u += nu * p.noise[0];
        v += nv * p.noise[1];
    }
    // 7. The top edge belongs to the tile, not to the next repeat.
    if (u == 1.0f)
        u = 0.9999f;
    if (v == 1.0f)
        v = 0.9999f;
    // 8. Frame rotation about the centre.
    if (frame.on)
        turnAboutCentre(u, v, frame.c, frame.s);
    // 9. Coverage, translation, wrap, repeat and offset; U first.
    if (!placeAxis(u, p.wrap[0], p.coverage[0], p.translate[0], p.repeat[0], p.offset[0]) ||
        !placeAxis(v, p.wrap[1], p.coverage[1], p.translate[1], p.repeat[1], p.offset[1])) {
        outUV[0] = outUV[1] = marker;
        return;
    }
    // 10. Stagger odd rows, 11. mirror odd tiles: both see v before it is
    // mirrored, and the U mirror sees the staggered u.
    if (p.stagger && isOdd(std::floor(v)))
        u += 0.5f;
    if (p.mirror[0]) {
        const float f = std::floor(u);
        if (isOdd(f))
            u = 2.0f * f + 1.0f - u;
    }
    if (p.mirror[1]) {
        const float f = std::floor(v);
        if (isOdd(f))
            v = 2.0f * f + 1.0f - v;
    }
    // 12. UV rotation about the centre.
    if (uvr.on)
        turnAboutCentre(u, v, uvr.c, uvr.s);
    outUV[0] = u;
    outUV[1] = v;
}

bool TdnPlace2dTx::computeDoTransform(const Params& p, double rotateFrame, double rotateUV) {
    // No absolute values on angles, noise, offset and translation: negative
    // ones pass as no transform at all.
    const bool still =
        p.fast && !p.wrap[0] && !p.wrap[1] && !p.mirror[0] && !p.mirror[1] && !p.stagger &&
        rotateFrame < 1e-10 && rotateUV < 1e-10 && p.noise[0] < 1e-5f && p.noise[1] < 1e-5f &&
        p.offset[0] < 1e-5f && p.offset[1] < 1e-5f && p.translate[0] < 1e-5f &&
        p.translate[1] < 1e-5f && std::fabs(p.coverage[0] - 1.0f) <= 1e-5f &&
        std::fabs(p.coverage[1] - 1.0f) <= 1e-5f && std::fabs(p.repeat[0] - 1.0f) <= 1e-5f &&
        std::fabs(p.repeat[1] - 1.0f) <= 1e-5f;
    return !still;
}

bool TdnPlace2dTx::computePlug(const Tplug& plug, TdataBlock& block) {
    if (!computesAttribute(plug.attribute()))
        return TshadingDependNode::computePlug(plug, block);
    // The placement's own rule for a scalar call: the distance from the
    // first element to the last in strides (at least one), which is one less
    // than elementCount() when the block holds several.
    const uint32_t stride = block.elementStride();
    const unsigned count =
        stride ? unsigned((block.lastElement() - block.firstElement()) / stride) : 1u;
    return vectorComputePlug(plug, block, 0, std::max(1u, count));
}

void TdnPlace2dTx::groupedAttrs(const Tattribute* attribute, TattributeArray& out) {
    out.clear();
    if (attribute &&
        (attribute == &aOutUV || attribute->isDescendentOf(aOutUV) ||
         attribute == &aOutUvFilterSize || attribute->isDescendentOf(aOutUvFilterSize)))
        out = {&aOutUV, &aOutUvFilterSize};
}

namespace {
// A constant handle holds one angle for the batch: its cosine and sine are
// made once. A varying one gets a record per sample, made before the sample
// loop; equal neighbours share one evaluation.
void fillRotations(const TvectorDataHandle& angles, unsigned from, unsigned n,
                   TdnPlace2dTx::Rotation* out) {
    double previous = 0.0;
    for (unsigned j = 0; j < n; ++j) {
        const double a = angles[int(from + j)].asDouble();
        out[j] = j > 0 && a == previous ? out[j - 1] : TdnPlace2dTx::Rotation::of(a);
        previous = a;
    }
}

// The usual batch: every placement setting the same for all samples, no
// noise. The run kernel places a chunk at a time; only the coordinates in
// and the values out are walked a sample at a time.
void placeInRuns(const TplaceRun& settings, const TvectorDataHandle& uv,
                 const TvectorDataHandle& size, const TvectorDataHandle& outUV,
                 const TvectorDataHandle& outSize, unsigned count, bool filterOnly) {
    constexpr unsigned kChunk = 64;
    static_assert(kChunk % kRunLanes == 0);
    alignas(64) float u[kChunk], v[kChunk], fu[kChunk], fv[kChunk];
    alignas(64) float placedU[kChunk], placedV[kChunk], sizeU[kChunk], sizeV[kChunk];
    TplaceRun run = settings;
    run.u = u;
    run.v = v;
    run.sizeU = fu;
    run.sizeV = fv;
    run.outU = filterOnly ? nullptr : placedU;
    run.outV = filterOnly ? nullptr : placedV;
    run.outSizeU = sizeU;
    run.outSizeV = sizeV;
    std::byte* uvOut = static_cast<std::byte*>(outUV.first().address());
    std::byte* sizeOut = static_cast<std::byte*>(outSize.first().address());
    for (unsigned base = 0; base < count; base += kChunk) {
        const unsigned n = std::min(kChunk, count - base);
        OrvoGatherPairs(uv, base, n, u, v);
        OrvoGatherPairs(size, base, n, fu, fv);
        run.count = n;
        OrvoPlaceRun(run);
        for (unsigned j = 0; j < n; ++j) {
            const size_t i = base + j;
            float* s = reinterpret_cast<float*>(sizeOut + i * outSize.stride());
            s[0] = sizeU[j];
            s[1] = sizeV[j];
            if (filterOnly)
                continue;
            float* c = reinterpret_cast<float*>(uvOut + i * outUV.stride());
            c[0] = placedU[j];
            c[1] = placedV[j];
        }
    }
    // What writing each value through its handle would have marked.
    TdataHandle(outSize.first()).setClean();
    if (!filterOnly)
        TdataHandle(outUV.first()).setClean();
}
} // namespace

bool TdnPlace2dTx::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                                     unsigned count) {
    if (!computesAttribute(plug.attribute()))
        return TshadingDependNode::computePlug(plug, block);
    if (plug.attribute() == &aDoTransform) {
        const TvectorDataHandle out = block.vectorOutputValue(aDoTransform, first);
        for (unsigned i = 0; i < count; ++i) {
            TdataHandle h = out[int(i)];
            h.as<bool>() = fDoTransform;
            h.setClean();
        }
        return true;
    }
    const TvectorDataHandle uv = block.vectorInputValue(aUvCoord, first, count);
    const TvectorDataHandle size = block.vectorInputValue(aUvFilterSize, first, count);
    const TvectorDataHandle coverage = block.vectorInputValue(aCoverage, first, count);
    const TvectorDataHandle translate = block.vectorInputValue(aTranslateFrame, first, count);
    const TvectorDataHandle rotateFrame = block.vectorInputValue(aRotateFrame, first, count);
    const TvectorDataHandle mirrorU = block.vectorInputValue(aMirrorU, first, count);
    const TvectorDataHandle mirrorV = block.vectorInputValue(aMirrorV, first, count);
    const TvectorDataHandle stagger = block.vectorInputValue(aStagger, first, count);
    const TvectorDataHandle wrapU = block.vectorInputValue(aWrapU, first, count);
    const TvectorDataHandle wrapV = block.vectorInputValue(aWrapV, first, count);
    const TvectorDataHandle repeat = block.vectorInputValue(aRepeatUV, first, count);
    const TvectorDataHandle offset = block.vectorInputValue(aOffset, first, count);
    const TvectorDataHandle rotateUV = block.vectorInputValue(aRotateUV, first, count);
    const TvectorDataHandle noise = block.vectorInputValue(aNoiseUV, first, count);
    const TvectorDataHandle fast = block.vectorInputValue(aFast, first, count);
    const TvectorDataHandle outUV = block.vectorOutputValue(aOutUV, first);
    const TvectorDataHandle outSize = block.vectorOutputValue(aOutUvFilterSize, first);

    auto noiseAt = [&](int i) {
        const float* n = noise[i].asFloats();
        return std::fabs(n[0]) > 1e-5f || std::fabs(n[1]) > 1e-5f;
    };
    // Per batch: constant angles and noise once; varying ones per sample in
    // stack records, a chunk of samples at a time.
    constexpr unsigned kChunk = 64;
    Rotation frameRecords[kChunk], uvRecords[kChunk];
    bool noiseRecords[kChunk];
    const Rotation frameOnce = Rotation::of(rotateFrame[0].asDouble());
    const Rotation uvOnce = Rotation::of(rotateUV[0].asDouble());
    const bool noiseOnce = noiseAt(0);

    auto paramsAt = [&](int i) {
        Params p;
        const float* c = coverage[i].asFloats();
        const float* t = translate[i].asFloats();
        const float* r = repeat[i].asFloats();
        const float* o = offset[i].asFloats();
        const float* nz = noise[i].asFloats();
        for (int a = 0; a < 2; ++a) {
            p.coverage[a] = c[a];
            p.translate[a] = t[a];
            p.repeat[a] = r[a];
            p.offset[a] = o[a];
            p.noise[a] = nz[a];
        }
        p.wrap[0] = wrapU[i].asBool();
        p.wrap[1] = wrapV[i].asBool();
        p.mirror[0] = mirrorU[i].asBool();
        p.mirror[1] = mirrorV[i].asBool();
        p.stagger = stagger[i].asBool();
        p.fast = fast[i].asBool();
        return p;
    };
    // Placement attributes are rarely connected: then one record of them
    // serves the batch.
    const bool paramsConstant = coverage.isConstant() && translate.isConstant() &&
                                repeat.isConstant() && offset.isConstant() && noise.isConstant() &&
                                wrapU.isConstant() && wrapV.isConstant() && mirrorU.isConstant() &&
                                mirrorV.isConstant() && stagger.isConstant() && fast.isConstant();
    const Params paramsOnce = paramsAt(0);
    Params varying; // this sample's, when they vary
    // A reader of the filter size alone (a texture reads it apart from the
    // coordinate) needs only steps 1 to 5.
    const Tattribute* asked = plug.attribute();
    const bool filterOnly = asked == &aOutUvFilterSize || asked->isDescendentOf(aOutUvFilterSize);

    if (paramsConstant && !noiseOnce && rotateFrame.isConstant() && rotateUV.isConstant()) {
        TplaceRun settings;
        settings.params = paramsOnce;
        settings.frame = frameOnce;
        settings.uv = uvOnce;
        settings.transform = fDoTransform;
        placeInRuns(settings, uv, size, outUV, outSize, count, filterOnly);
        return true;
    }
    for (unsigned base = 0; base < count; base += kChunk) {
        const unsigned n = std::min(kChunk, count - base);
        if (!rotateFrame.isConstant())
            fillRotations(rotateFrame, base, n, frameRecords);
        if (!rotateUV.isConstant())
            fillRotations(rotateUV, base, n, uvRecords);
        if (!noise.isConstant())
            for (unsigned j = 0; j < n; ++j)
                noiseRecords[j] = noiseAt(int(base + j));
        if (filterOnly) {
            for (unsigned j = 0; j < n; ++j) {
                const int i = int(base + j);
                const float* in = uv[i].asFloats();
                const float* fs = size[i].asFloats();
                float scaled[2];
                if (!paramsConstant)
                    varying = paramsAt(i);
                placeFilterSize(paramsConstant ? paramsOnce : varying,
                                rotateFrame.isConstant() ? frameOnce : frameRecords[j],
                                rotateUV.isConstant() ? uvOnce : uvRecords[j], fDoTransform, in[0],
                                in[1], fs[0], fs[1], scaled);
                outSize[i].set(2, scaled);
            }
            continue;
        }
        for (unsigned j = 0; j < n; ++j) {
            const int i = int(base + j);
            const float* in = uv[i].asFloats();
            const float* fs = size[i].asFloats();
            float placed[2], scaled[2];
            if (!paramsConstant)
                varying = paramsAt(i);
            place(paramsConstant ? paramsOnce : varying,
                  rotateFrame.isConstant() ? frameOnce : frameRecords[j],
                  rotateUV.isConstant() ? uvOnce : uvRecords[j],
                  noise.isConstant() ? noiseOnce : noiseRecords[j], fDoTransform, in[0], in[1],
                  fs[0], fs[1], placed, scaled);
            outUV[i].set(2, placed);
            outSize[i].set(2, scaled);
        }
    }
    return true;
}

TdnPlace2dTx::Params TdnPlace2dTx::currentParams() {
    Params p;
    const T2Float c{coverageU(), coverageV()};
    p.coverage[0] = c.x;
    p.coverage[1] = c.y;
    p.translate[0] = translateFrameU();
    p.translate[1] = translateFrameV();
    const T2Float r = getRepeatUV(), o = getOffsetUV(), n = getNoiseUV();
    p.repeat[0] = r.x;
    p.repeat[1] = r.y;
    p.offset[0] = o.x;
    p.offset[1] = o.y;
    p.noise[0] = n.x;
    p.noise[1] = n.y;
    p.wrap[0] = getWrapU();
    p.wrap[1] = getWrapV();
    p.mirror[0] = getMirrorU();
    p.mirror[1] = getMirrorV();
    p.stagger = getStagger();
    p.fast = forceGetDatablock().inputValue(aFast).asBool();
    return p;
}

void TdnPlace2dTx::shadingNodeOnDemand(Tplug&, TdataBlock& block) {
    Params p;
    const float* c = block.inputValue(aCoverage).asFloats();
    const float* t = block.inputValue(aTranslateFrame).asFloats();
    const float* r = block.inputValue(aRepeatUV).asFloats();
    const float* o = block.inputValue(aOffset).asFloats();
    const float* n = block.inputValue(aNoiseUV).asFloats();
    for (int a = 0; a < 2; ++a) {
        p.coverage[a] = c[a];
        p.translate[a] = t[a];
        p.repeat[a] = r[a];
        p.offset[a] = o[a];
        p.noise[a] = n[a];
    }
    p.wrap[0] = block.inputValue(aWrapU).asBool();
    p.wrap[1] = block.inputValue(aWrapV).asBool();
    p.mirror[0] = block.inputValue(aMirrorU).asBool();
    p.mirror[1] = block.inputValue(aMirrorV).asBool();
    p.stagger = block.inputValue(aStagger).asBool();
    p.fast = block.inputValue(aFast).asBool();
    fDoTransform = computeDoTransform(p, block.inputValue(aRotateFrame).asDouble(),
                                      block.inputValue(aRotateUV).asDouble());
}

void TdnPlace2dTx::mapToTxUV(const TdoubleArray& uIn, const TdoubleArray& vIn, TdoubleArray& uOut,
                             TdoubleArray& vOut, T2Float& filterSize) {
    if (uIn.size() != vIn.size())
        return;
    const Params p = currentParams();
    const Rotation frame = Rotation::of(rotateFrame());
    const Rotation uvr = Rotation::of(getRotateUV());
    const bool noise = noiseOn(p);
    const float* fs = forceGetDatablock().inputValue(aUvFilterSize).asFloats();
    const float fu = fs[0], fv = fs[1];
    uOut.resize(uIn.size());
    vOut.resize(vIn.size());
    float placed[2], scaled[2];
    for (size_t i = 0; i < uIn.size(); ++i) {
        place(p, frame, uvr, noise, fDoTransform, float(uIn[i]), float(vIn[i]), fu, fv, placed,
              scaled);
        uOut[i] = placed[0];
        vOut[i] = placed[1];
    }
    // The filter size does not depend on where a sample lies, unless it lies
    // outside: any inside coordinate gives it.
    place(p, frame, uvr, false, fDoTransform, 0.5f, 0.5f, fu, fv, placed, scaled);
    filterSize = {scaled[0], scaled[1]};
}

// ---------------------------------------------------------------- accessors

float TdnPlace2dTx::coverageU() {
    return forceGetDatablock().inputValue(aCoverageU).asFloat();
}
float TdnPlace2dTx::coverageV() {
    return forceGetDatablock().inputValue(aCoverageV).asFloat();
}
float TdnPlace2dTx::translateFrameU() {
    return forceGetDatablock().inputValue(aTranslateFrameU).asFloat();
}
float TdnPlace2dTx::translateFrameV() {
    return forceGetDatablock().inputValue(aTranslateFrameV).asFloat();
}
double TdnPlace2dTx::rotateFrame() {
    return forceGetDatablock().inputValue(aRotateFrame).asDouble();
}
bool TdnPlace2dTx::getMirrorU() {
    return forceGetDatablock().inputValue(aMirrorU).asBool();
}
bool TdnPlace2dTx::getMirrorV() {
    return forceGetDatablock().inputValue(aMirrorV).asBool();
}
T2Float TdnPlace2dTx::getRepeatUV() {
    const float* r = forceGetDatablock().inputValue(aRepeatUV).asFloats();
    return {r[0], r[1]};
}
T2Float TdnPlace2dTx::getOffsetUV() {
    const float* o = forceGetDatablock().inputValue(aOffset).asFloats();
    return {o[0], o[1]};
}
double TdnPlace2dTx::getRotateUV() {
    return forceGetDatablock().inputValue(aRotateUV).asDouble();
}
T2Float TdnPlace2dTx::getNoiseUV() {
    const float* n = forceGetDatablock().inputValue(aNoiseUV).asFloats();
    return {n[0], n[1]};
}
bool TdnPlace2dTx::getStagger() {
    return forceGetDatablock().inputValue(aStagger).asBool();
}
bool TdnPlace2dTx::getWrapU() {
    return forceGetDatablock().inputValue(aWrapU).asBool();
}
bool TdnPlace2dTx::getWrapV() {
    return forceGetDatablock().inputValue(aWrapV).asBool();
}

template <class V>
void TdnPlace2dTx::setValue(const Tattribute& a, V value) {
    // Through the graph when there is one, so that what depends on the value
    // is dirtied.
    if (graph())
        graph()->setPlugValue(Tplug(this, &a), &value);
    else
        setAttributeValue(&a, &value);
}

void TdnPlace2dTx::setMirrorU(bool on) {
    setValue(aMirrorU, on);
}
void TdnPlace2dTx::setMirrorV(bool on) {
    setValue(aMirrorV, on);
}
void TdnPlace2dTx::setRotateFrame(double angle) {
    setValue(aRotateFrame, angle);
}
void TdnPlace2dTx::setRotateUV(double angle) {
    setValue(aRotateUV, angle);
}
void TdnPlace2dTx::setStagger(bool on) {
    setValue(aStagger, on);
}
