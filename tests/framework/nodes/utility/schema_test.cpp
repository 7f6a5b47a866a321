// What each arithmetic and colour utility type's dependency table ties
// together: component-wise types pair children by suffix, the others tie
// every input to every output.

#include <gtest/gtest.h>

#include <string>

#include "host/graph.h"

namespace {

// ---------------------------------------------------------------- dependencies

bool affects(const char* type, const char* from, const char* to) {
    const TdependNodeVS* vs = TdependGraph::findNodeType(type)->vsData();
    const_cast<TdependNodeVS*>(vs)->initializeClass();
    const Tattribute* f = vs->findAttribute(from);
    const Tattribute* t = vs->findAttribute(to);
    EXPECT_TRUE(f && t) << type << " " << from << " " << to;
    return f && t && vs->dependencies().affects(f->index(), t->index());
}

TEST(UtilityDependencies, ComponentWiseTypesPairChildrenBySuffix) {
    struct Pair {
        const char* type;
        const char* in;
        const char* out;
        const char* sfx;
    };
    const Pair pairs[] = {
        {"reverse", "input", "output", "XYZ"},        {"setRange", "value", "outValue", "XYZ"},
        {"setRange", "oldMax", "outValue", "XYZ"},    {"clamp", "min", "output", "RGB"},
        {"clamp", "input", "output", "RGB"},          {"blendColors", "color1", "output", "RGB"},
        {"blendColors", "color2", "output", "RGB"},   {"contrast", "bias", "outValue", "XYZ"},
        {"gammaCorrect", "gamma", "outValue", "XYZ"},
    };
    for (const Pair& p : pairs) {
        const std::string in = p.in, out = p.out;
        EXPECT_TRUE(affects(p.type, p.in, p.out)) << p.type << " " << p.in;
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j)
                EXPECT_EQ(affects(p.type, (in + p.sfx[i]).c_str(), (out + p.sfx[j]).c_str()),
                          i == j)
                    << p.type << " " << in << p.sfx[i] << " -> " << out << p.sfx[j];
    }
    // A scalar input still reaches every channel.
    EXPECT_TRUE(affects("blendColors", "blender", "outputG"));
    EXPECT_TRUE(affects("clamp", "renderPassMode", "outputB"));
}

TEST(UtilityDependencies, OtherTypesTieEveryInputToEveryOutput) {
    EXPECT_TRUE(affects("multiplyDivide", "input1X", "outputZ"));
    EXPECT_TRUE(affects("multiplyDivide", "operation", "outputY"));
    EXPECT_TRUE(affects("rgbToHsv", "inRgbR", "outHsvV"));
    EXPECT_TRUE(affects("vectorProduct", "matrix", "outputX"));
    EXPECT_TRUE(affects("vectorProduct", "input2Z", "outputX"));
    EXPECT_TRUE(affects("condition", "secondTerm", "outColorB"));
    EXPECT_TRUE(affects("condition", "colorIfFalseR", "outColorG"));
    EXPECT_TRUE(affects("surfaceLuminance", "lightIntensity", "outValue"));
    EXPECT_TRUE(affects("surfaceLuminance", "normalCameraY", "outValue"));
    // plusMinusAverage: the operation feeds all; each array only its own output.
    EXPECT_TRUE(affects("plusMinusAverage", "operation", "output1D"));
    EXPECT_TRUE(affects("plusMinusAverage", "operation", "output2Dy"));
    EXPECT_TRUE(affects("plusMinusAverage", "operation", "output3Dz"));
    EXPECT_TRUE(affects("plusMinusAverage", "input3Dx", "output3Dz"));
    EXPECT_TRUE(affects("plusMinusAverage", "input2D", "output2D"));
    EXPECT_FALSE(affects("plusMinusAverage", "input1D", "output3D"));
    EXPECT_FALSE(affects("plusMinusAverage", "input3D", "output2Dx"));
    EXPECT_FALSE(affects("plusMinusAverage", "input2Dy", "output1D"));
}

} // namespace
