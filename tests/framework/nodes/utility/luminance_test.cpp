#include <gtest/gtest.h>

#include "framework/nodes/utility/luminance.h"
#include "framework/nodes/utility/utility_test_support.h"

namespace {

using orvo_test::evalFloats;
using orvo_test::setWords;

TEST(Luminance, WeightsRedGreenBlue) {
    TdependGraph g;
    g.createNode("luminance", "lu");
    // 0.3 * 1 + 0.59 * 0.5 + 0.11 * 0.25 = 0.3 + 0.295 + 0.0275.
    setWords(g, "lu.value", {"1", "0.5", "0.25"});
    EXPECT_NEAR(evalFloats(g, "lu.outValue")[0], 0.6225f, 1e-6f);
    // Each weight on its own.
    setWords(g, "lu.value", {"0", "1", "0"});
    EXPECT_NEAR(evalFloats(g, "lu.outValue")[0], 0.59f, 1e-6f);
    setWords(g, "lu.value", {"0", "0", "1"});
    EXPECT_NEAR(evalFloats(g, "lu.outValue")[0], 0.11f, 1e-6f);
    // The value is limited to [0, 1]: (2, -1, 0) is held at (1, 0, 0).
    setWords(g, "lu.value", {"2", "-1", "0"});
    EXPECT_NEAR(evalFloats(g, "lu.outValue")[0], 0.3f, 1e-6f);
}

} // namespace
