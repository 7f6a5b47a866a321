// The placement's run kernel, compiled once for each vector target (the
// include below brings the file back in with each target's definitions);
// the first call picks the best target the processor has. Built with
// -ffp-contract=off, so that a multiply and an add stay two roundings as in
// the one-sample code.

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "textures/place2d_run.cpp"
#include <hwy/foreach_target.h> // IWYU pragma: keep

#include <hwy/highway.h>

#include <cmath>

#include "textures/place2d_run.h"
#include "textures/tx2d.h"

HWY_BEFORE_NAMESPACE();
namespace orvo_place_run {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;
using D = hn::ScalableTag<float>;
using V = hn::Vec<D>;
using M = hn::Mask<D>;

// std::max(a, b): b where a < b, else a (a NaN in b gives a).
HWY_INLINE V MaxOf(V a, V b) {
    return hn::IfThenElse(hn::Lt(a, b), b, a);
}

// Whether a whole number is odd: its half is not whole. An infinity or a
// NaN counts as odd, as the remainder of dividing it by 2 is a NaN.
HWY_INLINE M IsOdd(D d, V whole) {
    const V half = hn::Mul(whole, hn::Set(d, 0.5f));
    // Not(Eq), not Ne: Ne is false for a NaN on some targets.
    return hn::Or(hn::Not(hn::Eq(hn::Floor(half), half)), hn::IsInf(whole));
}

HWY_INLINE void TurnAboutCentre(D d, V& u, V& v, float cosine, float sine) {
    const V centre = hn::Set(d, 0.5f), c = hn::Set(d, cosine), s = hn::Set(d, sine);
    const V du = hn::Sub(u, centre), dv = hn::Sub(v, centre);
    u = hn::Add(hn::Sub(hn::Mul(du, c), hn::Mul(dv, s)), centre);
    v = hn::Add(hn::Add(hn::Mul(du, s), hn::Mul(dv, c)), centre);
}

// One axis of the coverage, translate frame, wrap, range test, repeat and
// offset. Clears `inside` in the lanes that fall outside.
HWY_INLINE V PlaceAxis(D d, V x, bool wrap, float c, float t, float r, float o, M& inside) {
    const V vc = hn::Set(d, c), vt = hn::Set(d, t), one = hn::Set(d, 1.0f), zero = hn::Zero(d);
    const V vr = hn::Set(d, r), vo = hn::Set(d, o);
    if (c >= 1.0f) {
        x = c == 1.0f ? hn::Sub(x, vt) : hn::Div(hn::Sub(x, vt), vc);
        if (wrap)
            return hn::Add(hn::Mul(x, vr), vo);
    } else if (!wrap) {
        x = hn::Div(hn::Sub(x, vt), vc);
    } else {
        const V whole = hn::Floor(x);
        x = hn::IfThenElse(hn::Gt(x, one), hn::Sub(x, whole),
                           hn::IfThenElse(hn::Lt(x, zero), hn::Add(hn::Sub(x, whole), one), x));
        x = hn::Sub(x, hn::Set(d, t - std::floor(t)));
        x = hn::IfThenElse(hn::Gt(x, vc), hn::Sub(x, one),
                           hn::IfThenElse(hn::Lt(x, zero), hn::Add(x, one), x));
        x = hn::Div(x, vc);
    }
    inside = hn::AndNot(hn::Or(hn::Lt(x, zero), hn::Gt(x, one)), inside);
    return hn::Add(hn::Mul(x, vr), vo);
}

void Place(const TplaceRun& run) {
    const D d;
    const size_t lanes = hn::Lanes(d);
    const TdnPlace2dTx::Params& p = run.params;
    const V marker = hn::Set(d, TdnTx2D::kOutside);
    const V one = hn::Set(d, 1.0f);
    // A coverage that shows nothing, or the fast path without a transform:
    // the filter size passes through, and the coordinate too on the fast
    // path.
    const bool passThrough =
        (p.fast && !run.transform) || p.coverage[0] <= 0.0f || p.coverage[1] <= 0.0f;
    const bool keep = p.fast && !run.transform;
    // The filter scale, and the rotated footprint's matrix.
    const float su = p.coverage[0] < 1e-6f ? p.repeat[0] * 1e6f : p.repeat[0] / p.coverage[0];
    const float sv = p.coverage[1] < 1e-6f ? p.repeat[1] * 1e6f : p.repeat[1] / p.coverage[1];
    const bool turned = run.frame.on || run.uv.on;
    float m[4];
    TdnPlace2dTx::footprintMatrix(run.frame, run.uv, su, sv, m);
    const float m00 = m[0], m01 = m[1], m10 = m[2], m11 = m[3];
    const float area = su * sv;

    for (size_t i = 0; i < run.count; i += lanes) {
        V u = hn::LoadU(d, run.u + i), v = hn::LoadU(d, run.v + i);
        const V fu = hn::LoadU(d, run.sizeU + i), fv = hn::LoadU(d, run.sizeV + i);
        const M outside = hn::And(hn::Le(u, marker), hn::Le(v, marker));
        if (passThrough) {
            hn::StoreU(fu, d, run.outSizeU + i);
            hn::StoreU(fv, d, run.outSizeV + i);
            if (run.outU) {
                hn::StoreU(keep ? hn::IfThenElse(outside, marker, u) : marker, d, run.outU + i);
                hn::StoreU(keep ? hn::IfThenElse(outside, marker, v) : marker, d, run.outV + i);
            }
            continue;
        }
        // The filter size; an outside sample keeps its own.
        V sizeU, sizeV;
        if (!turned) {
            sizeU = hn::Mul(hn::Set(d, su), fu);
            sizeV = hn::Mul(hn::Set(d, sv), fv);
        } else {
            const V a = hn::Add(hn::Abs(hn::Mul(hn::Set(d, m00), fu)),
                                hn::Abs(hn::Mul(hn::Set(d, m01), fv)));
            const V b = hn::Add(hn::Abs(hn::Mul(hn::Set(d, m10), fu)),
                                hn::Abs(hn::Mul(hn::Set(d, m11), fv)));
            const V tiny = hn::Set(d, 1e-6f);
            const V k = hn::Sqrt(hn::Div(hn::Abs(hn::Mul(hn::Mul(hn::Set(d, area), fu), fv)),
                                         hn::Mul(MaxOf(b, tiny), MaxOf(a, tiny))));
            sizeU = hn::Mul(a, k);
            sizeV = hn::Mul(b, k);
        }
        hn::StoreU(hn::IfThenElse(outside, fu, sizeU), d, run.outSizeU + i);
        hn::StoreU(hn::IfThenElse(outside, fv, sizeV), d, run.outSizeV + i);
        if (!run.outU)
            continue;

        // The top edge belongs to the tile, not to the next repeat.
        const V edge = hn::Set(d, 0.9999f);
        u = hn::IfThenElse(hn::Eq(u, one), edge, u);
        v = hn::IfThenElse(hn::Eq(v, one), edge, v);
        if (run.frame.on)
            TurnAboutCentre(d, u, v, run.frame.c, run.frame.s);
        M inside = hn::Not(outside);
        u = PlaceAxis(d, u, p.wrap[0], p.coverage[0], p.translate[0], p.repeat[0], p.offset[0],
                      inside);
        v = PlaceAxis(d, v, p.wrap[1], p.coverage[1], p.translate[1], p.repeat[1], p.offset[1],
                      inside);
        // Stagger odd rows, then mirror odd tiles: both see v before it is
        // mirrored, and the U mirror sees the staggered u.
        if (p.stagger)
            u = hn::IfThenElse(IsOdd(d, hn::Floor(v)), hn::Add(u, hn::Set(d, 0.5f)), u);
        if (p.mirror[0]) {
            const V f = hn::Floor(u);
            u = hn::IfThenElse(IsOdd(d, f), hn::Sub(hn::Add(hn::Add(f, f), one), u), u);
        }
        if (p.mirror[1]) {
            const V f = hn::Floor(v);
            v = hn::IfThenElse(IsOdd(d, f), hn::Sub(hn::Add(hn::Add(f, f), one), v), v);
        }
        if (run.uv.on)
            TurnAboutCentre(d, u, v, run.uv.c, run.uv.s);
        hn::StoreU(hn::IfThenElse(inside, u, marker), d, run.outU + i);
        hn::StoreU(hn::IfThenElse(inside, v, marker), d, run.outV + i);
    }
}

} // namespace HWY_NAMESPACE
} // namespace orvo_place_run
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace orvo_place_run {
HWY_EXPORT(Place);
} // namespace orvo_place_run

void OrvoPlaceRun(const TplaceRun& run) {
    HWY_DYNAMIC_DISPATCH(orvo_place_run::Place)(run);
}
#endif
