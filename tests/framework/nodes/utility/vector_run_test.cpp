// A run of N elements through vectorComputePlug must leave a block exactly as
// N runs of one through computePlug, one element at a time, do: for every
// node type that computes in runs, every output, and on a run that starts
// inside the block.

#include <cmath>
#include <cstring>

#include <gtest/gtest.h>

#include "framework/nodes/utility/plus_minus_average.h"
#include "framework/nodes/utility/utility_test_support.h"

namespace {

using orvo_test::MessageCapture;

// Values that hit the edge cases: zeros, near zeros, negatives, hue limits.
constexpr float kPool[] = {0.0f,   1.0f, -1.0f,  0.5f,   2.0f, 0.25f, 1e-6f, 3.0f,
                           -0.75f, 0.8f, 360.0f, 400.0f, 1.0f, 0.0f,  0.3f};
constexpr int kPoolSize = int(sizeof kPool / sizeof kPool[0]);

float pick(unsigned element, unsigned attribute, int salt = 0) {
    return kPool[(element * 5 + attribute * 3 + unsigned(salt) * 7) % kPoolSize];
}

bool isLeafInput(const Tattribute& a) {
    return a.numChildren() == 0 && !a.isComputed() && !a.isArray() && !a.isArrayDescendant();
}

// Gives every input leaf of every element a value, and the arrays of
// plusMinusAverage a varying number of elements.
void fill(TordinaryDataBlock& block, TdependNode* node, unsigned n) {
    const TattributeList& attributes = node->vsData()->attributes();
    for (unsigned e = 0; e < n; ++e) {
        for (const Tattribute* a : attributes) {
            void* at = block.valueAddress(*a, e);
            if (a->isComputed() && a->numChildren() == 0 && at) {
                // Outputs start from a sentinel, so that what a run does not
                // write stays visible.
                a->numericSet(at, 0, 7.5);
                continue;
            }
            if (!isLeafInput(*a))
                continue;
            if (const auto* en = dynamic_cast<const TattributeEnum*>(a)) {
                // Each field, and one value that is none of them.
                const unsigned k = (e + a->index()) % unsigned(en->fields().size() + 1);
                a->numericSet(at, 0, k < en->fields().size() ? en->fields()[k].value : 99);
            } else {
                for (int i = 0; i < a->numericCount(); ++i)
                    a->numericSet(at, i, pick(e, a->index(), i));
            }
        }
        for (const Tattribute* a : attributes) {
            if (!a->isArray())
                continue;
            block.setCurrentIndex(e);
            for (unsigned k = 0; k < e % 4; ++k) {
                Tplug p(node, a);
                p.setMultiIndex(a, k * 2);
                float* v = block.elementValue(p, true).asFloats();
                for (int c = 0; c < a->numericCount(); ++c)
                    v[c] = pick(e + k, a->index(), c);
            }
        }
    }
    block.setCurrentIndex(0);
}

// Same bits, or both not a number.
bool sameFloat(float a, float b) {
    return std::memcmp(&a, &b, sizeof a) == 0 || (std::isnan(a) && std::isnan(b));
}

void expectSameBlocks(TordinaryDataBlock& run, TordinaryDataBlock& ones, TdependNode* node,
                      unsigned n, const std::string& what) {
    for (unsigned e = 0; e < n; ++e)
        for (const Tattribute* a : node->vsData()->attributes()) {
            if (a->numChildren() != 0 || a->isArray() || a->isArrayDescendant())
                continue;
            const int count = a->numericCount();
            for (int i = 0; i < count; ++i) {
                const float x = float(a->numericGet(run.valueAddress(*a, e), i));
                const float y = float(a->numericGet(ones.valueAddress(*a, e), i));
                EXPECT_TRUE(sameFloat(x, y)) << what << " element " << e << " " << a->longName()
                                             << "[" << i << "]: " << x << " vs " << y;
            }
        }
}

class VectorRun : public testing::TestWithParam<const char*> {};

TEST_P(VectorRun, EqualsRunsOfOne) {
    MessageCapture quiet; // divide-by-zero and zero-length messages
    TdependGraph g;
    TdependNode* node = g.createNode(GetParam(), "n");
    const unsigned n = 29;
    for (const Tattribute* out : node->vsData()->attributes()) {
        if (!out->computeModifies())
            continue;
        // Every computed plug, parents and single children alike, over the
        // inner elements [2, n - 1).
        TordinaryDataBlock run(node, n), ones(node, n);
        fill(run, node, n);
        fill(ones, node, n);
        const Tplug plug(node, out);
        EXPECT_TRUE(node->vectorComputePlug(plug, run, 2, n - 3)) << out->longName();
        for (unsigned e = 2; e < n - 1; ++e) {
            ones.setCurrentIndex(e);
            EXPECT_TRUE(node->computePlug(plug, ones)) << out->longName();
        }
        expectSameBlocks(run, ones, node, n, std::string(GetParam()) + "." + out->longName());
        // The elements outside the run keep their sentinel outputs.
        const void* before = run.valueAddress(*out, 1);
        const void* after = run.valueAddress(*out, n - 1);
        if (before && out->numChildren() == 0) {
            EXPECT_EQ(out->numericGet(before, 0), 7.5) << out->longName();
            EXPECT_EQ(out->numericGet(after, 0), 7.5) << out->longName();
        }
    }
}

INSTANTIATE_TEST_SUITE_P(UtilityNodes, VectorRun,
                         testing::Values("reverse", "multiplyDivide", "plusMinusAverage",
                                         "setRange", "clamp", "contrast", "gammaCorrect",
                                         "rgbToHsv", "hsvToRgb", "luminance", "blendColors",
                                         "condition", "vectorProduct"));

} // namespace
