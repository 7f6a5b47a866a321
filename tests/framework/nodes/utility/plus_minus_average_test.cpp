#include <gtest/gtest.h>

#include "framework/nodes/utility/plus_minus_average.h"
#include "framework/nodes/utility/utility_test_support.h"

namespace {

using orvo_test::evalFloats;
using orvo_test::setWords;
using Words = std::vector<std::string>;

TEST(PlusMinusAverage, ScalarsBySumSubtractAverage) {
    TdependGraph g;
    g.createNode("plusMinusAverage", "pma");
    // Sparse indices: the elements are 10, 2, 4 in index order.
    setWords(g, "pma.input1D[0]", {"10"});
    setWords(g, "pma.input1D[3]", {"2"});
    setWords(g, "pma.input1D[7]", {"4"});
    EXPECT_EQ(g.evaluateToWords(g.findPlug("pma.output1D")), (Words{"16"}));
    setWords(g, "pma.operation", {"Subtract"});
    EXPECT_EQ(g.evaluateToWords(g.findPlug("pma.output1D")), (Words{"4"})); // 10 - 2 - 4
    setWords(g, "pma.operation", {"Average"});
    EXPECT_FLOAT_EQ(evalFloats(g, "pma.output1D")[0], 16.0f / 3.0f);
    // No operation, or one the node does not know: zero.
    setWords(g, "pma.operation", {"No operation"});
    EXPECT_EQ(g.evaluateToWords(g.findPlug("pma.output1D")), (Words{"0"}));
    setWords(g, "pma.operation", {"9"});
    EXPECT_EQ(g.evaluateToWords(g.findPlug("pma.output1D")), (Words{"0"}));
}

TEST(PlusMinusAverage, PairsAndTriplesPickTheirGroupByPlug) {
    TdependGraph g;
    g.createNode("plusMinusAverage", "pma");
    setWords(g, "pma.input2D[0]", {"1", "-1"});
    setWords(g, "pma.input2D[1]", {"0.5", "0.25"});
    setWords(g, "pma.input2D[2]", {"2", "2"});
    setWords(g, "pma.input3D[0]", {"1", "2", "3"});
    setWords(g, "pma.input3D[1]", {"4", "5", "6"});
    // Sum: (1+0.5+2, -1+0.25+2) and (1+4, 2+5, 3+6).
    EXPECT_EQ(g.evaluateToWords(g.findPlug("pma.output2D")), (Words{"3.5", "1.25"}));
    EXPECT_EQ(g.evaluateToWords(g.findPlug("pma.output3Dy")), (Words{"7"}));
    EXPECT_EQ(g.evaluateToWords(g.findPlug("pma.output3D")), (Words{"5", "7", "9"}));
    // Subtract: (1-0.5-2, -1-0.25-2) and (1-4, 2-5, 3-6).
    setWords(g, "pma.operation", {"2"});
    EXPECT_EQ(g.evaluateToWords(g.findPlug("pma.output2Dx")), (Words{"-1.5"}));
    EXPECT_EQ(g.evaluateToWords(g.findPlug("pma.output2D")), (Words{"-1.5", "-3.25"}));
    EXPECT_EQ(g.evaluateToWords(g.findPlug("pma.output3D")), (Words{"-3", "-3", "-3"}));
    // Average: (5, 7, 9) / 2.
    setWords(g, "pma.operation", {"3"});
    EXPECT_EQ(g.evaluateToWords(g.findPlug("pma.output3D")), (Words{"2.5", "3.5", "4.5"}));
    // The 1D array is empty.
    EXPECT_EQ(g.evaluateToWords(g.findPlug("pma.output1D")), (Words{"0"}));
}

TEST(PlusMinusAverage, EmptyGivesZeroAndSubtractingOneElementGivesIt) {
    TdependGraph g;
    g.createNode("plusMinusAverage", "pma");
    for (const char* op : {"1", "2", "3"}) {
        setWords(g, "pma.operation", {op});
        EXPECT_EQ(g.evaluateToWords(g.findPlug("pma.output3D")), (Words{"0", "0", "0"})) << op;
    }
    setWords(g, "pma.input3D[4]", {"1.5", "-2", "8"});
    setWords(g, "pma.operation", {"Subtract"});
    EXPECT_EQ(g.evaluateToWords(g.findPlug("pma.output3D")), (Words{"1.5", "-2", "8"}));
}

TEST(PlusMinusAverage, ArraysPullConnectedElementsAndDirtyOnlyTheirOwnOutput) {
    TdependGraph g;
    TdependNode* pma = g.createNode("plusMinusAverage", "pma");
    g.createNode("reverse", "rev");
    setWords(g, "rev.input", {"0.25", "0.5", "2"});
    g.connect(g.findPlug("rev.output"), g.findPlug("pma.input3D[1]"));
    setWords(g, "pma.input3D[0]", {"1", "1", "1"});
    // (1, 1, 1) + (1 - 0.25, 1 - 0.5, 1 - 2).
    EXPECT_EQ(g.evaluateToWords(g.findPlug("pma.output3D")), (Words{"1.75", "1.5", "0"}));
    EXPECT_EQ(g.computeCount(pma), 1u);
    // input1D feeds output1D only: output3D stays clean.
    setWords(g, "pma.input1D[0]", {"3"});
    g.evaluateToWords(g.findPlug("pma.output3D"));
    EXPECT_EQ(g.computeCount(pma), 1u);
    // The operation feeds every output.
    setWords(g, "pma.operation", {"Subtract"});
    EXPECT_EQ(g.evaluateToWords(g.findPlug("pma.output3D")), (Words{"0.25", "0.5", "2"}));
    EXPECT_EQ(g.computeCount(pma), 2u);
}

TEST(PlusMinusAverage, ChildrenOfAnElementAreSetAndConnectedOneByOne) {
    // A fresh graph: the children's places must be known before any whole
    // element has been set.
    TdependGraph g;
    g.createNode("plusMinusAverage", "pma");
    g.createNode("multiplyDivide", "md");
    setWords(g, "pma.input3D[0].input3Dy", {"7"});
    setWords(g, "pma.input2D[0].input2Dy", {"4"});
    EXPECT_EQ(g.evaluateToWords(g.findPlug("pma.output3D")), (Words{"0", "7", "0"}));
    EXPECT_EQ(g.evaluateToWords(g.findPlug("pma.output2D")), (Words{"0", "4"}));
    setWords(g, "pma.input3D[1]", {"1", "2", "3"});
    setWords(g, "pma.input3D[1].input3Dz", {"5"});
    // md.output = (2, 3, 4) * (1, 1, 1); its z drives input3D[0].z alone.
    setWords(g, "md.input1", {"2", "3", "4"});
    g.connect(g.findPlug("md.outputZ"), g.findPlug("pma.input3D[0].input3Dz"));
    // (0, 7, 4) + (1, 2, 5).
    EXPECT_EQ(g.evaluateToWords(g.findPlug("pma.output3D")), (Words{"1", "9", "9"}));
    EXPECT_EQ(g.evaluateToWords(g.findPlug("pma.input3D[0]")), (Words{"0", "7", "4"}));
}

TEST(PlusMinusAverage, ArrayElementsAreWrittenEvenAtTheirDefault) {
    TdependGraph g;
    TdependNode* pma = g.createNode("plusMinusAverage", "pma");
    for (const char* plug : {"pma.input1D[0]", "pma.input2D[0]", "pma.input3D[2].input3Dy"})
        EXPECT_TRUE(pma->shouldBeWritten(g.findPlug(plug), true, true)) << plug;
    // Other inputs follow the base: a value at its default is skipped...
    EXPECT_FALSE(pma->shouldBeWritten(g.findPlug("pma.operation"), true, true));
    EXPECT_TRUE(pma->shouldBeWritten(g.findPlug("pma.operation"), false, true));
    // ...and outputs are not stored at all.
    EXPECT_FALSE(pma->shouldBeWritten(g.findPlug("pma.output3D"), false, false));
}

} // namespace
