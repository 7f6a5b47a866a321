#include <gtest/gtest.h>

#include "framework/nodes/utility/multiply_divide.h"
#include "framework/nodes/utility/utility_test_support.h"

namespace {

using orvo_test::evalFloats;
using orvo_test::MessageCapture;
using orvo_test::setWords;
using Words = std::vector<std::string>;
using Severity = TcommandEngine::Severity;

TEST(MultiplyDivide, EachOperationComponentByComponent) {
    MessageCapture messages;
    TdependGraph g;
    g.createNode("multiplyDivide", "md");
    setWords(g, "md.input1", {"2", "-3", "0.5"});
    setWords(g, "md.input2", {"4", "2", "8"});
    // Multiply (the default): 2*4, -3*2, 0.5*8.
    EXPECT_EQ(g.evaluateToWords(g.findPlug("md.output")), (Words{"8", "-6", "4"}));
    // Divide: 2/4, -3/2, 0.5/8.
    setWords(g, "md.operation", {"Divide"});
    EXPECT_EQ(g.evaluateToWords(g.findPlug("md.output")), (Words{"0.5", "-1.5", "0.0625"}));
    // Power: 2^4, (-3)^2, 0.5^8 = 1/256.
    setWords(g, "md.operation", {"3"});
    EXPECT_EQ(g.evaluateToWords(g.findPlug("md.output")), (Words{"16", "9", "0.00390625"}));
    // No operation, and a value outside the enum: input1 passes.
    setWords(g, "md.operation", {"0"});
    EXPECT_EQ(g.evaluateToWords(g.findPlug("md.output")), (Words{"2", "-3", "0.5"}));
    setWords(g, "md.operation", {"7"});
    EXPECT_EQ(g.evaluateToWords(g.findPlug("md.outputZ")), (Words{"0.5"}));
    EXPECT_TRUE(messages.messages().empty());
}

TEST(MultiplyDivide, DivideByZeroGivesTheConstantAndWarnsOncePerEvaluation) {
    MessageCapture messages;
    TdependGraph g;
    g.createNode("multiplyDivide", "md");
    setWords(g, "md.operation", {"Divide"});
    // 0/0 and 5/1e-6 both count as division by zero (|divisor| <= 1e-5);
    // 7/2 = 3.5 is an ordinary quotient.
    setWords(g, "md.input1", {"0", "5", "7"});
    setWords(g, "md.input2", {"0", "1e-6", "2"});
    EXPECT_EQ(g.evaluateToWords(g.findPlug("md.output")), (Words{"100000", "100000", "3.5"}));
    ASSERT_EQ(messages.messages().size(), 1u);
    EXPECT_EQ(messages.messages()[0].first, Severity::Warning);
    EXPECT_NE(messages.messages()[0].second.find("md"), std::string::npos);

    // A divisor just above the tolerance divides: 1 / 2e-5 = 50000.
    setWords(g, "md.input1", {"1", "5", "7"});
    setWords(g, "md.input2", {"2e-5", "0", "2"});
    const std::vector<float> out = evalFloats(g, "md.output");
    EXPECT_FLOAT_EQ(out[0], 50000.0f);
    EXPECT_EQ(out[1], 100000.0f);
    // A new evaluation may warn again, once.
    EXPECT_EQ(messages.count(Severity::Warning), 2u);
}

TEST(MultiplyDivide, VectorRunKeepsTheWarningFlagUntilClearedByScalarOrOnDemand) {
    MessageCapture messages;
    TdependGraph g;
    auto* node = static_cast<TdnMultiplyDivide*>(g.createNode("multiplyDivide", "md"));
    const unsigned n = 4;
    TordinaryDataBlock block(node, n);
    for (unsigned i = 0; i < n; ++i) {
        *static_cast<int16_t*>(block.valueAddress(TdnMultiplyDivide::aOperation, i)) =
            TdnMultiplyDivide::kDivide;
        *static_cast<float*>(block.valueAddress(TdnMultiplyDivide::aInput2X, i)) = 0.0f;
    }
    const Tplug output(node, &TdnMultiplyDivide::aOutput);
    // Four samples divide by zero: one warning for the run.
    EXPECT_TRUE(node->vectorComputePlug(output, block, 0, n));
    EXPECT_EQ(messages.count(Severity::Warning), 1u);
    // The flag stays set across runs of the same render.
    node->vectorComputePlug(output, block, 0, n);
    EXPECT_EQ(messages.count(Severity::Warning), 1u);
    // A new render clears it.
    Tplug plug = output;
    node->shadingNodeOnDemand(plug, block);
    node->vectorComputePlug(output, block, 0, n);
    EXPECT_EQ(messages.count(Severity::Warning), 2u);
    // So does a scalar evaluation.
    block.setCurrentIndex(2);
    EXPECT_TRUE(node->computePlug(output, block));
    EXPECT_EQ(messages.count(Severity::Warning), 3u);
    EXPECT_EQ(*static_cast<float*>(block.valueAddress(TdnMultiplyDivide::aOutputX, 2)), 100000.0f);
}

} // namespace
