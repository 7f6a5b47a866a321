// Transmission, refracted rays and the light they bring back: the steps
// every classic material shares, and lambert's use of them.

#include "materials/refraction.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "materials/lambert.h"
#include "materials/ray_scratch.h"

namespace {

// The steps keep one triple a sample on the stack: runs longer than this go
// a part at a time.
constexpr unsigned kRun = 256;

unsigned slotsOf(bool aberration) {
    return aberration ? 3u : 1u;
}

unsigned countSlots(const TvectorDataHandle& aberration, unsigned count) {
    unsigned slots = 0;
    for (unsigned i = 0; i < count; ++i)
        slots += slotsOf(aberration[int(i)].asBool());
    return slots;
}

// The colour filter of each chromatic aberration slot.
const Tspectrum kSlotFilter[3] = {kRedSpectrum, kGreenSpectrum, kBlueSpectrum};

void transmissionRun(TdependNode& node, const TrefractionAttributes& a, TdataBlock& block,
                     unsigned first, unsigned count, const T3Float* transparency, int pass) {
    const TvectorDataHandle hide = block.vectorInputValue(*a.hideSource, first, count);
    T3Float transmission[kRun];
    for (unsigned i = 0; i < count; ++i)
        transmission[i] = hide[int(i)].asBool() ? T3Float{1.0f, 1.0f, 1.0f} : transparency[i];

    if (TraySampler* sampler = OrvoRaySamplerOf(block, *a.raySampler, first, count)) {
        const TvectorDataHandle aberration =
            block.vectorInputValue(*a.chromaticAberration, first, count);
        OrvoWithRayScratch(*sampler, countSlots(aberration, count), [&](TrayScratch& s) {
            OrvoFormRefractiveRays(a, block, first, count, transparency, s.slotOfRay, s.rayCount,
                                   s.rays, s.colours, s.transmissions);
            if (s.rayCount <= 0)
                return;
            sampler->traceRays(&node, unsigned(s.rayCount), s.rays, s.colours, s.transmissions);
            const short* slot = s.slotOfRay;
            for (unsigned i = 0; i < count; ++i) {
                const bool split = aberration[int(i)].asBool();
                const unsigned n = slotsOf(split);
                for (unsigned k = 0; k < n; ++k) {
                    if (slot[k] < 0)
                        continue;
                    const Tspectrum& through = s.transmissions[slot[k]];
                    if (split) {
                        // Each slot carries one channel at its own index.
                        transmission[i][int(k)] *= through[int(k)];
                    } else {
                        for (int ch = 0; ch < 3; ++ch)
                            transmission[i][ch] *= through[ch];
                    }
                }
                slot += n;
            }
        });
    }

    const TvectorDataHandle outTransparency = block.vectorOutputValue(*a.outTransparency, first);
    for (unsigned i = 0; i < count; ++i)
        outTransparency[int(i)].set(transmission[i]);
    if (pass == kRenderPassShadow)
        return; // the shadow pass writes the matte from the lights
    const TvectorDataHandle mode = block.vectorInputValue(*a.matteOpacityMode, first, count);
    const TvectorDataHandle gain = block.vectorInputValue(*a.matteOpacity, first, count);
    const TvectorDataHandle outMatte = block.vectorOutputValue(*a.outMatteOpacity, first);
    using K = TdnKernel<TdnLambert>;
    for (unsigned i = 0; i < count; ++i) {
        const int e = int(i);
        const float g = gain[e].asFloat();
        const T3Float& t = transmission[i];
        switch (mode[e].asShort()) {
        case K::kBlackHoleM: {
            const float m = TdnLambert::kBlackHoleMatte;
            outMatte[e].set(T3Float{m, m, m});
            break;
        }
        case K::kSolidMatte:
            outMatte[e].set(T3Float{g, g, g});
            break;
        default:
            outMatte[e].set(T3Float{(1.0f - t.x) * g, (1.0f - t.y) * g, (1.0f - t.z) * g});
            break;
        }
    }
}

} // namespace

void OrvoComputeTransmission(TdependNode& node, const TrefractionAttributes& a, TdataBlock& block,
                             unsigned first, unsigned count, const T3Float* transparency,
                             int pass) {
    for (unsigned done = 0; done < count; done += kRun)
        transmissionRun(node, a, block, first + done, std::min(kRun, count - done),
                        transparency + done, pass);
}

// ---------------------------------------------------------------- rays

void OrvoFormRefractiveRays(const TrefractionAttributes& a, TdataBlock& block, unsigned first,
                            unsigned count, const T3Float* transparency, short* slotOfRay,
                            short& rayCount, TgenericRay** rays, Tspectrum* colours,
                            Tspectrum* transmissions) {
    const TvectorDataHandle refractions = block.vectorInputValue(*a.refractions, first, count);
    const TvectorDataHandle hide = block.vectorInputValue(*a.hideSource, first, count);
    const TvectorDataHandle medium = block.vectorInputValue(*a.mediumRefractiveIndex, first, count);
    const TvectorDataHandle depth = block.vectorInputValue(*a.rayDepth, first, count);
    const TvectorDataHandle limit = block.vectorInputValue(*a.refractionLimit, first, count);
    const TvectorDataHandle index = block.vectorInputValue(*a.refractiveIndex, first, count);
    const TvectorDataHandle thickness = block.vectorInputValue(*a.surfaceThickness, first, count);
    const TvectorDataHandle direction = block.vectorInputValue(*a.rayDirection, first, count);
    const TvectorDataHandle normal = block.vectorInputValue(*a.normalCamera, first, count);
    const TvectorDataHandle aberration =
        block.vectorInputValue(*a.chromaticAberration, first, count);
    const TvectorDataHandle point = block.vectorInputValue(*a.pointCamera, first, count);
    const TvectorDataHandle primitive = block.vectorInputValue(*a.primitiveId, first, count);
    const TvectorDataHandle object = block.vectorInputValue(*a.objectId, first, count);
    const TvectorDataHandle instance = block.vectorInputValue(*a.rayInstance, first, count);
    constexpr float kOpaqueTransparency = TdnLambert::kOpaqueTransparency;

    rayCount = 0;
    short* slot = slotOfRay;
    for (unsigned i = 0; i < count; ++i) {
        const int e = int(i);
        const unsigned slots = slotsOf(aberration[e].asBool());
        const float n1 = medium[e].asFloat();
        const T3Float& tr = transparency[i];
        const bool seeThrough = tr[0] > kOpaqueTransparency || tr[1] > kOpaqueTransparency ||
                                tr[2] > kOpaqueTransparency;
        if (!refractions[e].asBool() || hide[e].asBool() ||
            !(std::fabs(double(n1) - TdnLambert::kUnknownMedium) > 0.001) ||
            !(depth[e].asShort() < limit[e].asShort()) || !seeThrough) {
            slot += slots;
            continue;
        }
        const float* I = direction[e].asFloat3();
        const float* N = normal[e].asFloat3();
        const float raw = index[e].asFloat();
        float n2 = raw;
        const float th = thickness[e].asFloat();
        if (th != 0.0f) {
            // A thin shell bends rays only a little, more at grazing angles.
            const float c = float(double(I[0]) * N[0] + double(I[1]) * N[1] + double(I[2]) * N[2]);
            const float b = c < 0.0f ? 1.0f + c : 1.0f - c;
            n2 = std::clamp(1.0f + (n2 - 1.0f) * (2.0f * b * b * th + th), 0.01f, 3.0f);
        }
        if (n1 == n2)
            n2 = 1.0f; // leaving the medium: back to air
        const float cosI = -(I[0] * N[0] + I[1] * N[1] + I[2] * N[2]);
        for (unsigned k = 0; k < slots; ++k) {
            const float nk = n2 + TdnLambert::kAberrationStep * float(k);
            const float eta = n1 / nk;
            const float x = 1.0f - (1.0f - cosI * cosI) * eta * eta;
            TgenericRay& ray = *rays[rayCount];
            if (x < 0.0f) {
                // Total internal reflection: the ray stays in this medium.
                for (int a = 0; a < 3; ++a)
                    ray.direction[a] = I[a] + 2.0f * cosI * N[a];
                ray.medium = raw;
            } else {
                const float s = eta * std::fabs(cosI) - std::sqrt(x);
                for (int a = 0; a < 3; ++a)
                    ray.direction[a] = eta * I[a] + s * N[a];
                ray.medium = nk;
            }
            const float* p = point[e].asFloat3();
            for (int a = 0; a < 3; ++a)
                ray.origin[a] = p[a];
            ray.maxDistance = std::numeric_limits<float>::max();
            ray.depth = int32_t(depth[e].asShort()) + 1;
            ray.primitiveId = primitive[e].asInt();
            ray.objectId = object[e].as<void*>();
            ray.instance = instance[e].asInt();
            colours[rayCount] = kBlackSpectrum;
            transmissions[rayCount] = kWhiteSpectrum;
            slot[k] = rayCount++;
        }
        slot += slots;
    }
}

void OrvoAccumulateRefraction(TdependNode& node, const TrefractionAttributes& a, TdataBlock& block,
                              unsigned first, unsigned count, const T3Float* transparency,
                              T3Float* accumulated) {
    TraySampler* sampler = OrvoRaySamplerOf(block, *a.raySampler, first, count);
    if (!sampler)
        return;
    for (unsigned done = 0; done < count; done += kRun) {
        const unsigned from = first + done, n = std::min(kRun, count - done);
        const TvectorDataHandle refractions = block.vectorInputValue(*a.refractions, from, n);
        const TvectorDataHandle hide = block.vectorInputValue(*a.hideSource, from, n);
        auto refracting = [&](unsigned i) {
            return refractions[int(i)].asBool() && !hide[int(i)].asBool();
        };
        bool any = false;
        for (unsigned i = 0; i < n && !any; ++i)
            any = refracting(i);
        if (!any)
            continue;
        const TvectorDataHandle aberration =
            block.vectorInputValue(*a.chromaticAberration, from, n);
        const TvectorDataHandle thickness = block.vectorInputValue(*a.surfaceThickness, from, n);
        const TvectorDataHandle absorbance = block.vectorInputValue(*a.lightAbsorbance, from, n);
        const TvectorDataHandle depth = block.vectorInputValue(*a.transparencyDepth, from, n);
        T3Float* sums = accumulated + done;
        const T3Float* tr = transparency + done;
        OrvoWithRayScratch(*sampler, countSlots(aberration, n), [&](TrayScratch& s) {
            OrvoFormRefractiveRays(a, block, from, n, tr, s.slotOfRay, s.rayCount, s.rays,
                                   s.colours, s.transmissions);
            if (s.rayCount > 0)
                sampler->traceRays(&node, unsigned(s.rayCount), s.rays, s.colours, s.transmissions);
            const short* slot = s.slotOfRay;
            for (unsigned i = 0; i < n; ++i) {
                const int e = int(i);
                const bool split = aberration[e].asBool();
                const unsigned slots = slotsOf(split);
                Tspectrum sum;
                for (unsigned k = 0; k < slots; ++k) {
                    if (slot[k] < 0)
                        continue;
                    float distance = s.rays[slot[k]]->maxDistance;
                    const float th = thickness[e].asFloat();
                    if (th != 0.0f)
                        distance = std::min(th, distance);
                    // Light fades along the way through the medium, and ends
                    // at the transparency depth.
                    double g = 1.0;
                    const float absorb = absorbance[e].asFloat();
                    if (absorb != 0.0f)
                        g = 1.0 / std::exp(double(distance) / 100.0 * double(absorb));
                    const float td = depth[e].asFloat();
                    if (td != 0.0f) {
                        if (td >= distance) {
                            const double q = (double(td) - double(distance)) / double(td);
                            g *= q * q;
                        } else {
                            g = 0.0;
                        }
                    }
                    if (g <= 1e-6)
                        g = 0.0;
                    Tspectrum colour = s.colours[slot[k]];
                    if (split)
                        colour *= kSlotFilter[k];
                    sum += colour * float(g);
                }
                for (int ch = 0; ch < 3; ++ch)
                    sums[i][ch] += sum[ch] * tr[i][ch];
                slot += slots;
            }
            // Where no ray was made, the background shows through: once a
            // slot, so a sample split three ways gets it three times.
            Tspectrum background;
            sampler->backgroundColor(background);
            if (unsigned(s.rayCount) >= n || background == kBlackSpectrum)
                return;
            slot = s.slotOfRay;
            for (unsigned i = 0; i < n; ++i) {
                const unsigned slots = slotsOf(aberration[int(i)].asBool());
                if (refracting(i)) {
                    for (unsigned k = 0; k < slots; ++k)
                        if (slot[k] < 0)
                            for (int ch = 0; ch < 3; ++ch)
                                sums[i][ch] += background[ch] * tr[i][ch];
                }
                slot += slots;
            }
        });
    }
}

// ---------------------------------------------------------------- lambert's

void TdnLambert::transparencies(TdataBlock& block, unsigned first, unsigned count, T3Float* out) {
    const TvectorDataHandle transparency = block.vectorInputValue(aTransparency, first, count);
    for (unsigned i = 0; i < count; ++i) {
        const float* t = transparency[int(i)].asFloat3();
        out[i] = T3Float{t[0], t[1], t[2]};
    }
}

void TdnLambert::computeTransparency(const Tplug&, TdataBlock& block, unsigned first,
                                     unsigned count) {
    const int pass = OrvoRenderPass();
    for (unsigned done = 0; done < count; done += kChunk) {
        const unsigned n = std::min(kChunk, count - done);
        T3Float transparency[kChunk];
        transparencies(block, first + done, n, transparency);
        OrvoComputeTransmission(*this, OrvoRefractionAttributesOf<TdnLambert>(), block,
                                first + done, n, transparency, pass);
    }
}

void TdnLambert::accumulateRefraction(TdataBlock& block, unsigned first, unsigned count,
                                      T3Float* accumulated) {
    for (unsigned done = 0; done < count; done += kChunk) {
        const unsigned n = std::min(kChunk, count - done);
        T3Float transparency[kChunk];
        transparencies(block, first + done, n, transparency);
        OrvoAccumulateRefraction(*this, OrvoRefractionAttributesOf<TdnLambert>(), block,
                                 first + done, n, transparency, accumulated + done);
    }
}
