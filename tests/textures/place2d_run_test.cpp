#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "textures/place2d_run.h"
#include "textures/run_kernel_support.h"

namespace {

using orvo_test::bitsOf;
using Params = TdnPlace2dTx::Params;
using Rotation = TdnPlace2dTx::Rotation;
using PlaceRunTargets = orvo_test::RunKernelTargets;

using orvo_test::padded;

struct Case {
    std::string name;
    Params params;
    double frameAngle = 0.0, uvAngle = 0.0;
    bool transform = true;
};

// Every branch of the placement with settings the same for the whole run:
// each coverage case (above, at and below 1, empty) with and without wrap,
// translation, repeat and offset, stagger and both mirrors, the two
// rotations alone and together, and the fast path with and without a
// transform.
std::vector<Case> cases() {
    std::vector<Case> out;
    auto add = [&](const std::string& name, auto change, double frame = 0.0, double uv = 0.0,
                   bool transform = true) {
        Case c{name, Params{}, frame, uv, transform};
        change(c.params);
        out.push_back(c);
    };
    add("default", [](Params&) {});
    add("repeat 4 offset", [](Params& p) {
        p.repeat[0] = p.repeat[1] = 4.0f;
        p.offset[0] = 0.3f;
        p.offset[1] = -0.7f;
    });
    add("coverage above 1", [](Params& p) {
        p.coverage[0] = 1.5f;
        p.coverage[1] = 2.0f;
        p.translate[0] = 0.2f;
    });
    add("coverage above 1 unwrapped", [](Params& p) {
        p.coverage[0] = 1.5f;
        p.wrap[0] = p.wrap[1] = false;
    });
    add("coverage below 1 wrapped", [](Params& p) {
        p.coverage[0] = 0.5f;
        p.coverage[1] = 0.3f;
        p.translate[0] = 0.25f;
        p.translate[1] = -1.6f;
        p.repeat[0] = 3.0f;
    });
    add("coverage below 1 unwrapped", [](Params& p) {
        p.coverage[0] = 0.5f;
        p.wrap[0] = false;
        p.translate[0] = 0.1f;
    });
    add("tiny coverage", [](Params& p) { p.coverage[0] = 1e-7f; });
    add("empty coverage", [](Params& p) { p.coverage[1] = 0.0f; });
    add("stagger and mirrors", [](Params& p) {
        p.repeat[0] = 3.0f;
        p.repeat[1] = 5.0f;
        p.offset[0] = -2.25f;
        p.stagger = true;
        p.mirror[0] = p.mirror[1] = true;
    });
    add(
        "frame rotated", [](Params& p) { p.repeat[0] = 2.0f; }, 0.7);
    add(
        "uv rotated", [](Params& p) { p.mirror[0] = true; }, 0.0, -1.2);
    add(
        "both rotated", [](Params& p) { p.coverage[0] = 0.8f; }, 2.5, 0.4);
    add(
        "fast, no transform", [](Params& p) { p.fast = true; }, 0.0, 0.0, false);
    add("fast with a transform", [](Params& p) {
        p.fast = true;
        p.repeat[1] = 2.0f;
    });
    return out;
}

TEST_F(PlaceRunTargets, PlacementIsTheOneSamplePlacementBitForBit) {
    const float kNan = std::numeric_limits<float>::quiet_NaN();
    const float kInf = std::numeric_limits<float>::infinity();
    const std::vector<float> coords = {-1e7f,   -3.25f, -1.0f, -0.5f, -0.0f, 0.0f, 0.1f, 0.5f,
                                       0.9999f, 1.0f,   1.25f, 2.0f,  7.5f,  1e9f, kNan, kInf};
    const std::vector<float> sizes = {0.0f, 0.01f, -0.2f, 3.0f};
    std::vector<float> u, v, fu, fv;
    for (float a : coords)
        for (float b : coords)
            for (float s : sizes) {
                u.push_back(a);
                v.push_back(b);
                fu.push_back(s);
                fv.push_back(0.5f * s + 0.001f);
            }
    // The outside marker itself, which passes through.
    u.push_back(-1e7f);
    v.push_back(-2e7f);
    fu.push_back(0.1f);
    fv.push_back(0.1f);
    const unsigned n = unsigned(u.size());
    u = padded(u);
    v = padded(v);
    fu = padded(fu);
    fv = padded(fv);
    forEachTarget([&](const char* target) {
        for (const Case& c : cases()) {
            for (bool filterOnly : {false, true}) {
                TplaceRun run;
                run.count = n;
                run.u = u.data();
                run.v = v.data();
                run.sizeU = fu.data();
                run.sizeV = fv.data();
                run.params = c.params;
                run.frame = Rotation::of(c.frameAngle);
                run.uv = Rotation::of(c.uvAngle);
                run.transform = c.transform;
                std::vector<float> out[4];
                for (auto& o : out)
                    o.assign(u.size(), -2.0f);
                run.outU = filterOnly ? nullptr : out[0].data();
                run.outV = filterOnly ? nullptr : out[1].data();
                run.outSizeU = out[2].data();
                run.outSizeV = out[3].data();
                OrvoPlaceRun(run);
                unsigned wrong = 0;
                for (unsigned i = 0; i < n; ++i) {
                    float placed[2], size[2];
                    TdnPlace2dTx::place(c.params, run.frame, run.uv, false, c.transform, u[i], v[i],
                                        fu[i], fv[i], placed, size);
                    const bool same = bitsOf(out[2][i]) == bitsOf(size[0]) &&
                                      bitsOf(out[3][i]) == bitsOf(size[1]) &&
                                      (filterOnly || (bitsOf(out[0][i]) == bitsOf(placed[0]) &&
                                                      bitsOf(out[1][i]) == bitsOf(placed[1])));
                    if (!same && ++wrong <= 3)
                        ADD_FAILURE() << target << ", " << c.name << ": at " << u[i] << ", " << v[i]
                                      << " size " << fu[i] << " gives " << out[0][i] << ", "
                                      << out[1][i] << " size " << out[2][i] << ", " << out[3][i]
                                      << " against " << placed[0] << ", " << placed[1] << " size "
                                      << size[0] << ", " << size[1];
                }
                EXPECT_EQ(wrong, 0u) << target << ", " << c.name;
            }
        }
    });
}

} // namespace
