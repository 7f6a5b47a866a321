// The checker's run kernels. This file is compiled once for each vector
// target (the include below brings it back in with each target's
// definitions); the first call picks the best target the processor has.
// It builds with -ffp-contract=off: a multiply and an add stay two
// roundings on targets that have fused multiply-adds, as they are in the
// one-sample code.

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "textures/checker_run.cpp"
#include <hwy/foreach_target.h> // IWYU pragma: keep

#include <hwy/highway.h>

#include "textures/checker_run.h"

HWY_BEFORE_NAMESPACE();
namespace orvo_checker_run {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// std::max(a, b) lane by lane: b where a < b, else a. Not the processor's
// max, which differs from it when a lane holds a NaN.
template <class V>
HWY_INLINE V MaxOf(V a, V b) {
    return hn::IfThenElse(hn::Lt(a, b), b, a);
}

void Weights(const TcheckerWeightsRun& run) {
    const hn::ScalableTag<float> d;
    const size_t lanes = hn::Lanes(d);
    const auto zero = hn::Zero(d);
    const auto one = hn::Set(d, 1.0f);
    const auto two = hn::Set(d, 2.0f);
    const auto half = hn::Set(d, 0.5f);
    const auto tiny = hn::Set(d, 1e-8f);
    const auto filter = hn::Set(d, run.filter > 0.0f ? run.filter : 0.0f);
    const auto filterOffset = hn::Set(d, run.filterOffset);
    const auto contrast = hn::Set(d, run.contrast);
    for (size_t i = 0; i < run.count; i += lanes) {
        auto u = hn::LoadU(d, run.u + i);
        auto v = hn::LoadU(d, run.v + i);
        // u and v in 0 .. 1 stay as they are (so 1 stays 1), else their fraction.
        u = hn::IfThenElse(hn::And(hn::Ge(u, zero), hn::Le(u, one)), u, hn::Sub(u, hn::Floor(u)));
        v = hn::IfThenElse(hn::And(hn::Ge(v, zero), hn::Le(v, one)), v, hn::Sub(v, hn::Floor(v)));
        // The filter box, never quite zero.
        const auto a =
            MaxOf(tiny, hn::Mul(two, hn::Abs(hn::Add(hn::Mul(filter, hn::LoadU(d, run.sizeX + i)),
                                                     filterOffset))));
        const auto b =
            MaxOf(tiny, hn::Mul(two, hn::Abs(hn::Add(hn::Mul(filter, hn::LoadU(d, run.sizeY + i)),
                                                     filterOffset))));
        // Distances to the nearest square edge.
        const auto u2 = hn::Mul(two, u);
        const auto v2 = hn::Mul(two, v);
        auto p = hn::Sub(u2, hn::Floor(u2));
        auto q = hn::Sub(v2, hn::Floor(v2));
        p = hn::IfThenElse(hn::Gt(p, half), hn::Sub(one, p), p);
        q = hn::IfThenElse(hn::Gt(q, half), hn::Sub(one, q), q);
        // A box reaching over an edge loses contrast with its overlap.
        const auto overlap =
            hn::IfThenElse(hn::Gt(hn::Mul(p, b), hn::Mul(q, a)), hn::Div(hn::Mul(q, contrast), b),
                           hn::Div(hn::Mul(p, contrast), a));
        auto c = hn::IfThenElse(hn::Or(hn::Gt(a, p), hn::Gt(b, q)), overlap, contrast);
        const auto widest = MaxOf(a, b);
        c = hn::IfThenElse(hn::Gt(widest, one), MaxOf(zero, hn::Mul(c, hn::Sub(two, widest))),
                           MaxOf(zero, c));
        // A box of 2 or more on either axis sees the even mix.
        c = hn::IfThenElse(hn::And(hn::Lt(a, two), hn::Lt(b, two)), c, zero);
        const auto e = hn::Div(hn::Add(c, one), two);
        const auto first = hn::Or(hn::And(hn::Le(u, half), hn::Le(v, half)),
                                  hn::And(hn::Gt(u, half), hn::Gt(v, half)));
        const auto other = hn::Sub(one, e);
        hn::StoreU(hn::IfThenElse(first, e, other), d, run.w1 + i);
        hn::StoreU(hn::IfThenElse(first, other, e), d, run.w2 + i);
    }
}

void Mix(const TcheckerMixRun& run) {
    const hn::ScalableTag<float> d;
    using V = hn::Vec<decltype(d)>;
    const size_t lanes = hn::Lanes(d);
    const auto one = hn::Set(d, 1.0f);
    const auto unseen = hn::Set(d, 1e-5f);
    auto channel = [&](const TcheckerMixRun::Colour& colour, int k, size_t i) -> V {
        return colour.varies ? hn::LoadU(d, colour.channel[k] + i) : hn::Set(d, colour.rgb[k]);
    };
    for (size_t i = 0; i < run.count; i += lanes) {
        const auto w1 = hn::LoadU(d, run.w1 + i);
        const auto w2 = hn::LoadU(d, run.w2 + i);
        const auto only2 = hn::Lt(w1, unseen);
        const auto only1 = hn::Lt(w2, unseen);
        V c[3];
        for (int k = 0; k < 3; ++k) {
            const V c1 = channel(run.colour1, k, i);
            const V c2 = channel(run.colour2, k, i);
            const V both = hn::Add(hn::Mul(w1, c1), hn::Mul(w2, c2));
            c[k] = hn::IfThenElse(only2, c2, hn::IfThenElse(only1, c1, both));
        }
        // Alpha: the weight of color1, or the luminance of the pattern's
        // colour before the effects.
        V a = w1;
        if (run.alphaIsLuminance)
            a = hn::Add(hn::Add(hn::Mul(hn::Set(d, 0.3f), c[0]), hn::Mul(hn::Set(d, 0.59f), c[1])),
                        hn::Mul(hn::Set(d, 0.11f), c[2]));
        if (run.invert) {
            for (V& x : c)
                x = hn::Sub(one, x);
            a = hn::Sub(one, a);
        }
        for (int k = 0; k < 3; ++k)
            hn::StoreU(hn::Add(hn::Mul(c[k], hn::Set(d, run.gain[k])), hn::Set(d, run.offset[k])),
                       d, run.out[k] + i);
        hn::StoreU(hn::Add(hn::Mul(a, hn::Set(d, run.alphaGain)), hn::Set(d, run.alphaOffset)), d,
                   run.out[3] + i);
    }
}

} // namespace HWY_NAMESPACE
} // namespace orvo_checker_run
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace orvo_checker_run {
HWY_EXPORT(Weights);
HWY_EXPORT(Mix);
} // namespace orvo_checker_run

void OrvoCheckerWeights(const TcheckerWeightsRun& run) {
    HWY_DYNAMIC_DISPATCH(orvo_checker_run::Weights)(run);
}

void OrvoCheckerMix(const TcheckerMixRun& run) {
    HWY_DYNAMIC_DISPATCH(orvo_checker_run::Mix)(run);
}
#endif
