#include <limits>
#include <vector>

#include <gtest/gtest.h>

#include "textures/checker.h"
#include "textures/checker_run.h"
#include "textures/run_kernel_support.h"

namespace {

using orvo_test::bitsOf;
using orvo_test::padded;

// Coordinates on and around every edge the board has (0, 0.5, 1, tile
// boundaries, the fraction's special cases), and filter sizes around each
// threshold of the box (a box of 1 and of 2, a = p).
const float kNan = std::numeric_limits<float>::quiet_NaN();
const float kInf = std::numeric_limits<float>::infinity();
const std::vector<float> kCoords = {-2.5f,      -1.0f,  -0.75f,  -0.5f, -1e-30f,    -0.0f,
                                    0.0f,       1e-30f, 0.1f,    0.25f, 0.4999999f, 0.5f,
                                    0.5000001f, 0.75f,  0.9999f, 1.0f,  1.0000001f, 1.5f,
                                    3.999f,     1e7f,   -1e7f,   1e30f, kNan,       kInf};
const std::vector<float> kSizes = {0.0f, 0.025f,  0.05f, 0.25f,   0.4999f, 0.5f,
                                   0.6f, 0.9999f, 1.0f,  1.0001f, -0.3f,   kNan};

// Each target the processor has against the checker's one-sample weights,
// mix and colour effects.
using CheckerRunTargets = orvo_test::RunKernelTargets;

TEST_F(CheckerRunTargets, WeightsAreTheOneSampleWeightsBitForBit) {
    struct Settings {
        float filter, offset, contrast;
    };
    const Settings settings[] = {
        {1.0f, 0.0f, 1.0f}, {0.5f, -0.05f, 0.5f}, {-2.0f, 0.1f, 1.0f}, {1.0f, 0.0f, 0.0f}};
    std::vector<float> u, v, sx, sy;
    for (float a : kCoords)
        for (float b : kCoords)
            for (float s : kSizes)
                for (float t : {0.0f, 0.3f, 1.2f}) {
                    u.push_back(a);
                    v.push_back(b);
                    sx.push_back(s);
                    sy.push_back(t);
                }
    const unsigned n = unsigned(u.size());
    u = padded(u);
    v = padded(v);
    sx = padded(sx);
    sy = padded(sy);
    forEachTarget([&](const char* target) {
        for (const Settings& set : settings) {
            std::vector<float> w1(u.size(), -1.0f), w2(u.size(), -1.0f);
            TcheckerWeightsRun run;
            run.count = n;
            run.u = u.data();
            run.v = v.data();
            run.sizeX = sx.data();
            run.sizeY = sy.data();
            run.filter = set.filter;
            run.filterOffset = set.offset;
            run.contrast = set.contrast;
            run.w1 = w1.data();
            run.w2 = w2.data();
            OrvoCheckerWeights(run);
            unsigned wrong = 0;
            for (unsigned i = 0; i < n; ++i) {
                const TdnChecker::Weights want = TdnChecker::weights(
                    u[i], v[i], sx[i], sy[i], set.filter, set.offset, set.contrast);
                if (bitsOf(w1[i]) != bitsOf(want.w1) || bitsOf(w2[i]) != bitsOf(want.w2)) {
                    if (++wrong <= 3)
                        ADD_FAILURE()
                            << target << ": at u " << u[i] << " v " << v[i] << " size " << sx[i]
                            << ", " << sy[i] << " filter " << set.filter << " gives " << w1[i]
                            << ", " << w2[i] << " against " << want.w1 << ", " << want.w2;
                }
            }
            EXPECT_EQ(wrong, 0u) << target;
        }
    });
}

TEST_F(CheckerRunTargets, MixIsTheOneSampleMixAndEffectsBitForBit) {
    // Weights on both sides of the threshold below which a colour is left
    // out, and ordinary ones.
    std::vector<float> w1, w2;
    const float kWeights[] = {0.0f, 9.99e-6f, 1e-5f, 0.25f, 0.5f, 0.7f, 0.9999901f, 1.0f};
    for (float a : kWeights)
        for (float b : kWeights) {
            w1.push_back(a);
            w2.push_back(b);
        }
    const unsigned n = unsigned(w1.size());
    w1 = padded(w1);
    w2 = padded(w2);
    // A colour that varies: a different value in each sample.
    std::vector<float> varying[3];
    for (int k = 0; k < 3; ++k)
        for (unsigned i = 0; i < w1.size(); ++i)
            varying[k].push_back(0.1f * float(k) + 0.037f * float(i));
    const float constant[3] = {0.2f, 0.4f, 1.0f};
    const float gain[3] = {2.0f, 1.0f, 0.5f}, offset[3] = {0.1f, 0.0f, -0.3f};

    forEachTarget([&](const char* target) {
        for (int flags = 0; flags < 16; ++flags) {
            const bool invert = flags & 1, luminance = flags & 2;
            const bool varies1 = flags & 4, varies2 = flags & 8;
            TcheckerMixRun run;
            run.count = n;
            run.w1 = w1.data();
            run.w2 = w2.data();
            auto colour = [&](TcheckerMixRun::Colour& c, bool varies, float scale) {
                c.varies = varies;
                for (int k = 0; k < 3; ++k) {
                    c.rgb[k] = constant[k] * scale;
                    c.channel[k] = varying[k].data();
                }
            };
            colour(run.colour1, varies1, 1.0f);
            colour(run.colour2, varies2, 0.5f);
            run.invert = invert;
            run.alphaIsLuminance = luminance;
            std::memcpy(run.gain, gain, sizeof gain);
            std::memcpy(run.offset, offset, sizeof offset);
            run.alphaGain = 0.5f;
            run.alphaOffset = 0.25f;
            std::vector<float> out[4];
            for (int k = 0; k < 4; ++k) {
                out[k].assign(w1.size(), -1.0f);
                run.out[k] = out[k].data();
            }
            OrvoCheckerMix(run);
            for (unsigned i = 0; i < n; ++i) {
                float c1[3], c2[3];
                for (int k = 0; k < 3; ++k) {
                    c1[k] = varies1 ? varying[k][i] : constant[k];
                    c2[k] = varies2 ? varying[k][i] : constant[k] * 0.5f;
                }
                T3Float c = TdnChecker::mix({w1[i], w2[i]}, c1, c2);
                float a = luminance ? TdnTx2D::luminance(c) : w1[i];
                TdnTx2D::colorEffects(invert, gain, offset, 0.5f, 0.25f, c, a);
                const float want[4] = {c.x, c.y, c.z, a};
                for (int k = 0; k < 4; ++k)
                    ASSERT_EQ(bitsOf(out[k][i]), bitsOf(want[k]))
                        << target << ": flags " << flags << ", weights " << w1[i] << ", " << w2[i]
                        << ", component " << k;
            }
        }
    });
}

} // namespace
