#include <cmath>

#include <gtest/gtest.h>

#include "framework/nodes/utility/utility_test_support.h"
#include "framework/nodes/utility/vector_product.h"

namespace {

using orvo_test::evalFloats;
using orvo_test::expectNear3;
using orvo_test::MessageCapture;
using orvo_test::setWords;
using Words = std::vector<std::string>;
using Severity = TcommandEngine::Severity;

TEST(VectorProduct, DotAndCross) {
    TdependGraph g;
    g.createNode("vectorProduct", "vp");
    setWords(g, "vp.input1", {"1", "2", "3"});
    setWords(g, "vp.input2", {"4", "-5", "6"});
    // 4 - 10 + 18, in all three components.
    EXPECT_EQ(g.evaluateToWords(g.findPlug("vp.output")), (Words{"12", "12", "12"}));
    // (2*6 - 3*(-5), 3*4 - 1*6, 1*(-5) - 2*4).
    setWords(g, "vp.operation", {"Cross Product"});
    EXPECT_EQ(g.evaluateToWords(g.findPlug("vp.output")), (Words{"27", "6", "-13"}));
}

TEST(VectorProduct, NormalisedDotIsTheCosine) {
    TdependGraph g;
    g.createNode("vectorProduct", "vp");
    setWords(g, "vp.normalizeOutput", {"true"});
    // (2, 0, 0) . (3, 3, 0) = 6 over |2| * |3 sqrt 2|: cos 45 degrees.
    setWords(g, "vp.input1", {"2", "0", "0"});
    setWords(g, "vp.input2", {"3", "3", "0"});
    const float c = std::sqrt(0.5f);
    expectNear3(evalFloats(g, "vp.output"), c, c, c, 1e-6f, "dot");
    // Cross (2,0,0) x (3,3,0) = (0, 0, 6), normalised by its own length.
    setWords(g, "vp.operation", {"2"});
    EXPECT_EQ(g.evaluateToWords(g.findPlug("vp.output")), (Words{"0", "0", "1"}));
    // No operation normalises input1: (3, 0, 4) / 5.
    setWords(g, "vp.operation", {"0"});
    setWords(g, "vp.input1", {"3", "0", "4"});
    expectNear3(evalFloats(g, "vp.output"), 0.6f, 0.0f, 0.8f, 1e-6f, "none");
}

TEST(VectorProduct, MatrixProductsAsVectorAndAsPoint) {
    TdependGraph g;
    g.createNode("vectorProduct", "vp");
    // Rows (0,1,0,0), (-1,0,0,0), (0,0,2,0), translation (10,20,30,1).
    setWords(g, "vp.matrix",
             {"0", "1", "0", "0", "-1", "0", "0", "0", "0", "0", "2", "0", "10", "20", "30", "1"});
    setWords(g, "vp.input1", {"1", "2", "3"});
    // Vector: 1*row0 + 2*row1 + 3*row2 = (-2, 1, 6).
    setWords(g, "vp.operation", {"Vector Matrix Product"});
    EXPECT_EQ(g.evaluateToWords(g.findPlug("vp.output")), (Words{"-2", "1", "6"}));
    // Point: plus the translation, (8, 21, 36); normalising does not apply.
    setWords(g, "vp.operation", {"Point Matrix Product"});
    setWords(g, "vp.normalizeOutput", {"true"});
    EXPECT_EQ(g.evaluateToWords(g.findPlug("vp.output")), (Words{"8", "21", "36"}));
    // The vector result normalised: (-2, 1, 6) / sqrt(41).
    setWords(g, "vp.operation", {"3"});
    const float l = std::sqrt(41.0f);
    expectNear3(evalFloats(g, "vp.output"), -2.0f / l, 1.0f / l, 6.0f / l, 1e-6f, "vector");
}

TEST(VectorProduct, ZeroLengthGivesZZeroAndReportsOncePerEvaluation) {
    MessageCapture messages;
    TdependGraph g;
    g.createNode("vectorProduct", "vp");
    setWords(g, "vp.normalizeOutput", {"true"});
    EXPECT_EQ(g.evaluateToWords(g.findPlug("vp.output")), (Words{"0", "0", "1"}));
    ASSERT_EQ(messages.messages().size(), 1u);
    EXPECT_EQ(messages.messages()[0].first, Severity::Error);
    EXPECT_EQ(messages.messages()[0].second,
              "vp: found a zero-length output vector. Result is unpredictable.");
    // Parallel vectors have a zero cross product.
    setWords(g, "vp.operation", {"Cross Product"});
    setWords(g, "vp.input1", {"1", "2", "3"});
    setWords(g, "vp.input2", {"2", "4", "6"});
    EXPECT_EQ(g.evaluateToWords(g.findPlug("vp.output")), (Words{"0", "0", "1"}));
    EXPECT_EQ(messages.count(Severity::Error), 2u);
}

TEST(VectorProduct, RunReadsInput2AtEachElementAndKeepsTheFlagForTheRun) {
    MessageCapture messages;
    TdependGraph g;
    auto* node = static_cast<TdnVectorProduct*>(g.createNode("vectorProduct", "vp"));
    const unsigned n = 5;
    TordinaryDataBlock block(node, n);
    // input1 = (1, 0, 0) throughout; input2 = (e, 0, 0): dot product e.
    for (unsigned e = 0; e < n; ++e) {
        *static_cast<float*>(block.valueAddress(TdnVectorProduct::aInput1X, e)) = 1.0f;
        *static_cast<float*>(block.valueAddress(TdnVectorProduct::aInput2X, e)) = float(e);
    }
    const Tplug out(node, &TdnVectorProduct::aOutput);
    EXPECT_TRUE(node->vectorComputePlug(out, block, 1, 3));
    for (unsigned e = 1; e < 4; ++e)
        EXPECT_EQ(*static_cast<float*>(block.valueAddress(TdnVectorProduct::aOutputY, e)),
                  float(e));
    // Normalised, element 0 has a zero input2: (0, 0, 1) and one error for
    // the run; the next run of the same render is silent.
    for (unsigned e = 0; e < n; ++e)
        *static_cast<bool*>(block.valueAddress(TdnVectorProduct::aNormalizeOutput, e)) = true;
    node->vectorComputePlug(out, block, 0, n);
    node->vectorComputePlug(out, block, 0, n);
    EXPECT_EQ(messages.count(Severity::Error), 1u);
    EXPECT_EQ(*static_cast<float*>(block.valueAddress(TdnVectorProduct::aOutputZ, 0)), 1.0f);
    EXPECT_EQ(*static_cast<float*>(block.valueAddress(TdnVectorProduct::aOutputX, 3)), 1.0f);
    Tplug plug = out;
    node->shadingNodeOnDemand(plug, block);
    node->vectorComputePlug(out, block, 0, n);
    EXPECT_EQ(messages.count(Severity::Error), 2u);
}

} // namespace
