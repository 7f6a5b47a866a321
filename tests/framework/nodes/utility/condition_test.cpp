#include <tuple>

#include <gtest/gtest.h>

#include "framework/nodes/utility/condition.h"
#include "framework/nodes/utility/utility_test_support.h"

namespace {

using orvo_test::setWords;
using Words = std::vector<std::string>;

TEST(Condition, EachOperationSelectsTheColour) {
    TdependGraph g;
    g.createNode("condition", "cn");
    setWords(g, "cn.colorIfTrue", {"0.25", "0.5", "0.75"});
    const Words yes{"0.25", "0.5", "0.75"}, no{"1", "1", "1"};
    struct Case {
        const char* operation;
        const char* a;
        const char* b;
        bool expected;
    };
    const Case cases[] = {
        {"Equal", "1", "1.000005", true}, // within 1e-5
        {"Equal", "1", "1.0001", false},
        {"Not Equal", "1", "1.000005", false},
        {"Not Equal", "1", "1.0001", true},
        {"Greater Than", "2", "1", true},
        {"Greater Than", "1", "1", false},
        {"Greater or Equal", "1", "1", true},
        {"Greater or Equal", "0.5", "1", false},
        {"Less Than", "1", "2", true},
        {"Less Than", "2", "2", false},
        {"Less or Equal", "2", "2", true},
        {"Less or Equal", "3", "2", false},
        {"6", "1", "1", false}, // outside the enum: false
        {"-1", "1", "1", false},
    };
    for (const Case& c : cases) {
        setWords(g, "cn.operation", {c.operation});
        setWords(g, "cn.firstTerm", {c.a});
        setWords(g, "cn.secondTerm", {c.b});
        EXPECT_EQ(g.evaluateToWords(g.findPlug("cn.outColor")), c.expected ? yes : no)
            << c.operation << " " << c.a << " " << c.b;
    }
}

TEST(Condition, TheUnselectedBranchIsNeverEvaluated) {
    TdependGraph g;
    g.createNode("condition", "cn");
    TdependNode* whenTrue = g.createNode("reverse", "t");
    TdependNode* whenFalse = g.createNode("reverse", "f");
    g.connect(g.findPlug("t.output"), g.findPlug("cn.colorIfTrue"));
    g.connect(g.findPlug("f.output"), g.findPlug("cn.colorIfFalse"));
    setWords(g, "f.input", {"1", "1", "1"});
    // 0 == 0: the reverse of (0, 0, 0).
    EXPECT_EQ(g.evaluateToWords(g.findPlug("cn.outColor")), (Words{"1", "1", "1"}));
    EXPECT_EQ(g.computeCount(whenTrue), 1u);
    EXPECT_EQ(g.computeCount(whenFalse), 0u);
    // 1 == 0 is false: now the other branch, (1 - 1, ...).
    setWords(g, "cn.firstTerm", {"1"});
    EXPECT_EQ(g.evaluateToWords(g.findPlug("cn.outColor")), (Words{"0", "0", "0"}));
    EXPECT_EQ(g.computeCount(whenTrue), 1u);
    EXPECT_EQ(g.computeCount(whenFalse), 1u);
}

// A block that records the runs asked of each colour.
class RecordingBlock : public TordinaryDataBlock {
public:
    using TordinaryDataBlock::TordinaryDataBlock;
    using TordinaryDataBlock::vectorInputValue;
    TvectorDataHandle vectorInputValue(const Tattribute& a, unsigned first,
                                       unsigned count) override {
        if (&a == &TdnCondition::aColorIfTrue || &a == &TdnCondition::aColorIfFalse)
            runs.emplace_back(&a == &TdnCondition::aColorIfTrue, first, count);
        return TordinaryDataBlock::vectorInputValue(a, first, count);
    }
    std::vector<std::tuple<bool, unsigned, unsigned>> runs;
};

TEST(Condition, EachMaximalRunAsksForItsColourOnce) {
    TdependGraph g;
    auto* node = static_cast<TdnCondition*>(g.createNode("condition", "cn"));
    // Elements 1..6 of an 8 element block: firstTerm pattern T T F T F F
    // (equal to secondTerm 0 where true).
    const float terms[8] = {0, 0, 0, 5, 0, 5, 5, 0};
    RecordingBlock block(node, 8);
    for (unsigned e = 0; e < 8; ++e) {
        *static_cast<float*>(block.valueAddress(TdnCondition::aFirstTerm, e)) = terms[e];
        *static_cast<float*>(block.valueAddress(TdnCondition::aColorIfTrueR, e)) = float(e);
        *static_cast<float*>(block.valueAddress(TdnCondition::aOutColorR, e)) = -1.0f;
    }
    EXPECT_TRUE(node->vectorComputePlug(Tplug(node, &TdnCondition::aOutColor), block, 1, 6));
    using Run = std::tuple<bool, unsigned, unsigned>;
    EXPECT_EQ(block.runs, (std::vector<Run>{Run{true, 1, 2}, Run{true, 4, 1}, Run{false, 3, 1},
                                            Run{false, 5, 2}}));
    // True elements take their own colorIfTrue red (the element number),
    // false ones colorIfFalse red 1; elements 0 and 7 are outside the run.
    const float expected[8] = {-1, 1, 2, 1, 4, 1, 1, -1};
    for (unsigned e = 0; e < 8; ++e)
        EXPECT_EQ(*static_cast<float*>(block.valueAddress(TdnCondition::aOutColorR, e)),
                  expected[e])
            << e;
}

TEST(Condition, RunsLongerThanTheStackMaskStillSelectPerElement) {
    TdependGraph g;
    auto* node = static_cast<TdnCondition*>(g.createNode("condition", "cn"));
    const unsigned n = TdnCondition::kStackMaskSize + 3;
    TordinaryDataBlock block(node, n);
    // Odd elements differ from secondTerm 0: false, colorIfFalse (1, 1, 1).
    for (unsigned e = 0; e < n; ++e)
        *static_cast<float*>(block.valueAddress(TdnCondition::aFirstTerm, e)) = float(e % 2);
    EXPECT_TRUE(node->vectorComputePlug(Tplug(node, &TdnCondition::aOutColor), block, 0, n));
    for (unsigned e : {0u, 1u, n - 2, n - 1})
        EXPECT_EQ(*static_cast<float*>(block.valueAddress(TdnCondition::aOutColorG, e)),
                  float(e % 2))
            << e;
}

} // namespace
