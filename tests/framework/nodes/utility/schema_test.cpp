// The identity and schema of every arithmetic and colour utility type,
// written out here from the description of the types and checked against
// what the registry holds.

#include <cctype>

#include <gtest/gtest.h>

#include "framework/nodes/utility/blend_colors.h"
#include "framework/nodes/utility/clamp_color.h"
#include "framework/nodes/utility/condition.h"
#include "framework/nodes/utility/contrast.h"
#include "framework/nodes/utility/gamma_correct.h"
#include "framework/nodes/utility/hsv_to_rgb.h"
#include "framework/nodes/utility/luminance.h"
#include "framework/nodes/utility/multiply_divide.h"
#include "framework/nodes/utility/plus_minus_average.h"
#include "framework/nodes/utility/reverse.h"
#include "framework/nodes/utility/rgb_to_hsv.h"
#include "framework/nodes/utility/set_range.h"
#include "framework/nodes/utility/surface_luminance.h"
#include "framework/nodes/utility/utility_test_support.h"
#include "framework/nodes/utility/vector_product.h"
#include "host/debug.h"

namespace {

using namespace TattrFlag;
using Words = std::vector<std::string>;

// ---------------------------------------------------------------- flag shapes

// A fresh attribute is readable, writable, storable and cached, with the
// host's bits 4 and 6.
constexpr uint64_t kFresh =
    kReadable | kWritable | kHostFlag4 | kStorable | kHostFlag6 | kCachedInternally;

enum class Shape {
    Input,          // keyable leaf: set 0x80 and 0x800000000000
    InputParent,    // compound parent: set 0x800000000000
    Colour,         // colour compound parent: also 0x400000
    Output,         // clear 0x2022
    ImplicitSample, // clear 0x2020, set 8
    ImplicitLight,  // clear 1 and 32, set 8
    Record,         // a field of the light data record: its own class's flags
};

uint64_t shapeFlags(Shape s) {
    switch (s) {
    case Shape::Input:
        return kFresh | kKeyable | kHostFlag47;
    case Shape::InputParent:
        return kFresh | kHostFlag47;
    case Shape::Colour:
        return kFresh | kHostFlag47 | kUsedAsColor;
    case Shape::Output:
        return kFresh & ~uint64_t(0x2022);
    case Shape::ImplicitSample:
        return (kFresh & ~uint64_t(0x2020)) | kHidden;
    case Shape::ImplicitLight:
        return (kFresh & ~(kReadable | kStorable)) | kHidden;
    case Shape::Record:
        return 0;
    }
    return 0;
}

constexpr uint64_t kLimits = kHasLowerLimit | kHasUpperLimit;

// ---------------------------------------------------------------- table rows

struct Field {
    std::string label;
    std::string constant;
    int value;
};

struct Attr {
    std::string longName;
    std::string shortName;
    std::string className;
    Words defaults; // empty where no default is told
    Shape shape;
    uint64_t extra = 0; // array bits, limits, hostFlag8
    std::vector<Field> fields = {};
};
using Rows = std::vector<Attr>;

Rows operator+(Rows a, const Rows& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

Rows leaf(std::string l, std::string s, std::string cls, Words defaults, Shape shape,
          uint64_t extra = 0) {
    return {Attr{l, s, cls, defaults, shape, extra}};
}

// A compound and its children, named by appending each suffix letter (in
// lower case for the short names).
Rows compound(std::string l, std::string s, std::string suffixes, Words defaults, Shape parent,
              Shape child, uint64_t parentExtra = 0, uint64_t childExtra = 0,
              std::string cls = "Tattribute3Float") {
    Rows rows{Attr{l, s, cls, defaults, parent, parentExtra}};
    for (size_t i = 0; i < suffixes.size(); ++i) {
        const char c = suffixes[i];
        const char lower = char(std::tolower(static_cast<unsigned char>(c)));
        rows.push_back(Attr{l + c, s + lower, "TattributeFloat",
                            defaults.empty() ? Words{} : Words{defaults[i]}, child, childExtra});
    }
    return rows;
}

Rows input3(std::string l, std::string s, std::string suffixes, Words defaults) {
    return compound(l, s, suffixes, defaults, Shape::InputParent, Shape::Input);
}
Rows colour3(std::string l, std::string s, Words defaults) {
    return compound(l, s, "RGB", defaults, Shape::Colour, Shape::Input);
}
Rows output3(std::string l, std::string s, std::string suffixes, Words defaults = {"0", "0", "0"}) {
    return compound(l, s, suffixes, defaults, Shape::Output, Shape::Output);
}
Rows enumRow(std::string l, std::string s, int def, std::vector<Field> fields) {
    return {Attr{l, s, "TattributeEnum", {std::to_string(def)}, Shape::Input, 0, fields}};
}

// renderPassMode, last on the colour utilities.
Rows renderPassMode() {
    return enumRow(
        "renderPassMode", "arp", 1,
        {{"Pass through", "kPassThrough", 0},
         {"Apply to Render Passes", "kApplyToRenderPasses", 1},
         {"No Contribution", "kNoContribution", 2},
         {"Write Shader Result to Beauty Passes", "kWriteShaderResultToBeautyPasses", 3}});
}

const Words kZero3{"0", "0", "0"};

struct Type {
    std::string className;
    std::string typeName;
    std::string tag;
    int api;
    std::string apiString;
    bool shading; // TshadingDependNode, else TdependNode
    std::string classification;
    Rows attributes;
    // Outputs of a node with default inputs, worked out by hand.
    std::vector<std::pair<std::string, Words>> defaultOutputs;
    Tmetaclass* (*meta)();
    TdependNode* (*construct)(Tmetaclass*);
    TdependNode* (*constructInPlace)(Tmetaclass*, void*);
};

template <class T>
Type typeOf(std::string cls, std::string name, std::string tag, int api, std::string apiString,
            bool shading, std::string classification, Rows rows,
            std::vector<std::pair<std::string, Words>> outputs) {
    return Type{cls,
                name,
                tag,
                api,
                apiString,
                shading,
                classification,
                rows,
                outputs,
                &T::sTypeof,
                [](Tmetaclass* m) -> TdependNode* { return T::construct(m); },
                [](Tmetaclass* m, void* where) -> TdependNode* {
                    return T::constructInPlace(m, where);
                }};
}

const std::vector<Type>& types() {
    static const std::vector<Type> table = {
        typeOf<TdnReverse>("TdnReverse", "reverse", "RRVS", 464, "kReverse", false,
                           "utility/general:drawdb/shader/operation/reverse",
                           input3("input", "i", "XYZ", kZero3) + output3("output", "o", "XYZ"),
                           // 1 - 0 per component.
                           {{"output", {"1", "1", "1"}}}),
        typeOf<TdnMultiplyDivide>(
            "TdnMultiplyDivide", "multiplyDivide", "RMDI", 444, "kMultiplyDivide", true,
            "utility/general:drawdb/shader/operation/multiplyDivide",
            // TattributeEnumOf is the host's name for the same class.
            enumRow("operation", "op", 1,
                    {{"No operation", "kNone", 0},
                     {"Multiply", "kMultiply", 1},
                     {"Divide", "kDivide", 2},
                     {"Power", "kPower", 3}}) +
                input3("input1", "i1", "XYZ", kZero3) +
                input3("input2", "i2", "XYZ", {"1", "1", "1"}) + output3("output", "o", "XYZ"),
            // 0 * 1.
            {{"output", kZero3}}),
        typeOf<TdnPlusMinusAverage>(
            "TdnPlusMinusAverage", "plusMinusAverage", "RPMA", 457, "kPlusMinusAverage", true,
            "utility/general:drawdb/shader/operation/plusMinusAverage",
            enumRow("operation", "op", 1,
                    {{"No operation", "kNone", 0},
                     {"Sum", "kSum", 1},
                     {"Subtract", "kSubtract", 2},
                     {"Average", "kAverage", 3}}) +
                leaf("input1D", "i1", "TattributeFloat", {"0"}, Shape::Input, kArray) +
                compound("input2D", "i2", "xy", {"0", "0"}, Shape::InputParent, Shape::Input,
                         kArray, kArrayDescendant, "Tattribute2Float") +
                compound("input3D", "i3", "xyz", kZero3, Shape::InputParent, Shape::Input, kArray,
                         kArrayDescendant) +
                leaf("output1D", "o1", "TattributeFloat", {"0"}, Shape::Output) +
                compound("output2D", "o2", "xy", {"0", "0"}, Shape::Output, Shape::Output, 0, 0,
                         "Tattribute2Float") +
                output3("output3D", "o3", "xyz"),
            // Empty arrays.
            {{"output1D", {"0"}}, {"output2D", {"0", "0"}}, {"output3D", kZero3}}),
        typeOf<TdnSetRange>(
            "TdnSetRange", "setRange", "RRNG", 470, "kSetRange", false,
            "utility/general:drawdb/shader/operation/setRange",
            input3("value", "v", "XYZ", kZero3) + input3("min", "n", "XYZ", kZero3) +
                input3("max", "m", "XYZ", kZero3) + input3("oldMin", "on", "XYZ", kZero3) +
                input3("oldMax", "om", "XYZ", kZero3) + output3("outValue", "o", "XYZ"),
            // oldMin = oldMax: the value 0 passes.
            {{"outValue", kZero3}}),
        typeOf<TdnClampColor>("TdnClampColor", "clamp", "RCL3", 39, "kClampColor", false,
                              "utility/color:drawdb/shader/operation/clamp",
                              input3("min", "mn", "RGB", kZero3) +
                                  input3("max", "mx", "RGB", kZero3) +
                                  input3("input", "ip", "RGB", kZero3) +
                                  output3("output", "op", "RGB") + renderPassMode(),
                              {{"output", kZero3}}),
        typeOf<TdnContrast>("TdnContrast", "contrast", "RCON", 38, "kContrast", false,
                            "utility/color:drawdb/shader/operation/contrast",
                            input3("value", "v", "XYZ", kZero3) +
                                input3("contrast", "c", "XYZ", {"2", "2", "2"}) +
                                compound("bias", "b", "XYZ", {"0.5", "0.5", "0.5"},
                                         Shape::InputParent, Shape::Input, kLimits, kLimits) +
                                output3("outValue", "o", "XYZ") + renderPassMode(),
                            // v = 0^1 = 0 < 0.5: (2 * 0)^2 * 0.5 = 0.
                            {{"outValue", kZero3}}),
        typeOf<TdnGammaCorrect>("TdnGammaCorrect", "gammaCorrect", "RGAM", 333, "kGammaCorrect",
                                false, "utility/color:drawdb/shader/operation/gammaCorrect",
                                input3("value", "v", "XYZ", kZero3) +
                                    input3("gamma", "g", "XYZ", {"1", "1", "1"}) +
                                    output3("outValue", "o", "XYZ") + renderPassMode(),
                                {{"outValue", kZero3}}),
        typeOf<TdnRgbToHsv>("TdnRgbToHsv", "rgbToHsv", "RR2H", 465, "kRgbToHsv", false,
                            "utility/color:drawdb/shader/operation/rgbToHsv",
                            colour3("inRgb", "i", {}) + output3("outHsv", "o", "HSV") +
                                renderPassMode(),
                            // Black: no spread, no saturation, value 0.
                            {{"outHsv", kZero3}}),
        typeOf<TdnHsvToRgb>("TdnHsvToRgb", "hsvToRgb", "RH2R", 357, "kHsvToRgb", false,
                            "utility/color:drawdb/shader/operation/hsvToRgb",
                            compound("inHsv", "i", "HSV", {}, Shape::Colour, Shape::Input) +
                                output3("outRgb", "o", "RGB") + renderPassMode(),
                            // No saturation: grey of value 0.
                            {{"outRgb", kZero3}}),
        typeOf<TdnLuminance>(
            "TdnLuminance", "luminance", "RLUM", 381, "kLuminance", false,
            "utility/color:drawdb/shader/operation/luminance",
            compound("value", "v", "RGB", kZero3, Shape::Colour, Shape::Input, kLimits, kLimits) +
                leaf("outValue", "o", "TattributeFloat", {"0"}, Shape::Output) + renderPassMode(),
            {{"outValue", {"0"}}}),
        typeOf<TdnSurfaceLuminance>(
            "TdnSurfaceLuminance", "surfaceLuminance", "RSLU", 483, "kSurfaceLuminance", false,
            "utility/color:drawdb/shader/operation/surfaceLuminance",
            compound("normalCamera", "n", "XYZ", {"0", "0", "1"}, Shape::ImplicitSample,
                     Shape::ImplicitSample) +
                leaf("lightDataArray", "ltd", "TattributeLightData", {}, Shape::ImplicitLight,
                     kArray) +
                compound("lightDirection", "ld", "XYZ", {}, Shape::Record, Shape::Record) +
                compound("lightIntensity", "li", "RGB", {}, Shape::Record, Shape::Record) +
                leaf("lightAmbient", "la", "TattributeBoolean", {"true"}, Shape::Record) +
                leaf("lightDiffuse", "ldf", "TattributeBoolean", {"true"}, Shape::Record) +
                leaf("lightSpecular", "ls", "TattributeBoolean", {"false"}, Shape::Record) +
                leaf("lightShadowFraction", "lsf", "TattributeFloat", {}, Shape::Record) +
                leaf("preShadowIntensity", "psi", "TattributeFloat", {}, Shape::Record) +
                leaf("lightBlindData", "lbd", "TattributeAddr", {}, Shape::Record) +
                leaf("outValue", "o", "TattributeFloat", {"0"}, Shape::Output),
            // No lights.
            {{"outValue", {"0"}}}),
        typeOf<TdnBlendColors>("TdnBlendColors", "blendColors", "RBL2", 31, "kBlendColors", false,
                               "utility/color:drawdb/shader/operation/blendColors",
                               leaf("blender", "b", "TattributeFloat", {}, Shape::Input) +
                                   colour3("color1", "c1", {}) +
                                   colour3("color2", "c2", {"0", "0", "1"}) +
                                   output3("output", "op", "RGB") + renderPassMode(),
                               // Blender 0: all of color2.
                               {{"output", {"0", "0", "1"}}}),
        typeOf<TdnCondition>("TdnCondition", "condition", "RCND", 37, "kCondition", false,
                             "utility/general:drawdb/shader/operation/condition",
                             enumRow("operation", "op", 0,
                                     {{"Equal", "kEqual", 0},
                                      {"Not Equal", "kNotEqual", 1},
                                      {"Greater Than", "kGreaterThan", 2},
                                      {"Greater or Equal", "kGreaterEqual", 3},
                                      {"Less Than", "kLessThan", 4},
                                      {"Less or Equal", "kLessEqual", 5}}) +
                                 leaf("firstTerm", "ft", "TattributeFloat", {"0"}, Shape::Input) +
                                 leaf("secondTerm", "st", "TattributeFloat", {"0"}, Shape::Input) +
                                 input3("colorIfTrue", "ct", "RGB", kZero3) +
                                 input3("colorIfFalse", "cf", "RGB", {"1", "1", "1"}) +
                                 output3("outColor", "oc", "RGB"),
                             // 0 equals 0: colorIfTrue.
                             {{"outColor", kZero3}}),
        typeOf<TdnVectorProduct>(
            "TdnVectorProduct", "vectorProduct", "RVEC", 529, "kVectorProduct", true,
            "utility/general:drawdb/shader/operation/vectorProduct",
            enumRow("operation", "op", 1,
                    {{"No operation", "kNone", 0},
                     {"Dot Product", "kDotProduct", 1},
                     {"Cross Product", "kCrossProduct", 2},
                     {"Vector Matrix Product", "kVectorMatrix", 3},
                     {"Point Matrix Product", "kPointMatrix", 4}}) +
                input3("input1", "i1", "XYZ", kZero3) + input3("input2", "i2", "XYZ", kZero3) +
                leaf("matrix", "m", "TattributeFltMatrix", {}, Shape::Input, kHostFlag8) +
                leaf("normalizeOutput", "no", "TattributeBoolean", {"false"}, Shape::Input) +
                output3("output", "o", "XYZ", {"1", "0", "0"}),
            // Dot product of zero vectors, not normalised.
            {{"output", kZero3}}),
    };
    return table;
}

// The default of an attribute as words.
Words defaultWords(const Tattribute& a) {
    alignas(16) unsigned char value[256] = {};
    a.constructValue(value);
    a.writeDefault(value);
    Words words;
    a.formatValue(value, words);
    a.destroyValue(value);
    return words;
}

class UtilitySchema : public testing::TestWithParam<size_t> {
protected:
    const Type& type() const { return types()[GetParam()]; }
};

TEST_P(UtilitySchema, IdentityInTheRegistry) {
    const Type& t = type();
    TdependNodeClass* record = TdependGraph::findNodeType(t.typeName);
    ASSERT_NE(record, nullptr) << t.typeName;
    EXPECT_EQ(record->typeName(), t.typeName);
    ASSERT_NE(record->iffTag(), nullptr);
    EXPECT_EQ(record->iffTag()->value(), TiffTag::make(t.tag.c_str()));
    EXPECT_EQ(record->apiType, t.api);
    EXPECT_EQ(record->apiTypeString, t.apiString);
    EXPECT_EQ(TapiTypeTable::name(t.api), t.apiString);
    EXPECT_EQ(record->classification, t.classification);
    EXPECT_EQ(TclassificationMgr::classification(t.typeName), t.classification);
    EXPECT_EQ(record->flags(), 32u);

    Tmetaclass* meta = record->metaclass();
    ASSERT_NE(meta, nullptr);
    EXPECT_EQ(meta, t.meta());
    EXPECT_EQ(std::string(meta->typeName()), t.typeName);
    EXPECT_EQ(meta->iffTag(), TiffTag::make(t.tag.c_str()));
    EXPECT_EQ(meta->parent(0), t.shading ? TshadingDependNode::sTypeof() : TdependNode::sTypeof());
    EXPECT_EQ(meta->parent(1), t.shading ? TshadingNodeTmeta() : nullptr);
}

TEST_P(UtilitySchema, AttributesInSchemaOrder) {
    const Type& t = type();
    TdependNodeClass* record = TdependGraph::findNodeType(t.typeName);
    ASSERT_NE(record, nullptr);
    TdependNodeVS* vs = record->vsData();
    ASSERT_TRUE(vs->initializeClass());
    const TattributeList& list = vs->attributes();
    // Every node's message plug comes first; the type's own follow.
    ASSERT_EQ(list.size(), t.attributes.size() + 1) << t.typeName;
    EXPECT_EQ(list[0], &TdependNode::aMessage);
    for (size_t i = 0; i < t.attributes.size(); ++i) {
        const Attr& want = t.attributes[i];
        const Tattribute& a = *list[i + 1];
        const std::string where = t.typeName + "." + want.longName;
        EXPECT_EQ(a.longName(), want.longName) << t.typeName << " #" << i;
        EXPECT_EQ(a.shortName(), want.shortName) << where;
        EXPECT_EQ(std::string(a.className()), want.className) << where;
        EXPECT_EQ(a.nodeNameString(), "n_" + t.typeName) << where;
        EXPECT_EQ(a.index(), i + 1) << where;
        if (want.shape == Shape::Record) {
            EXPECT_TRUE(a.isArrayDescendant()) << where;
        } else {
            EXPECT_EQ(a.flags(), shapeFlags(want.shape) | want.extra)
                << where << std::hex << " flags 0x" << a.flags();
        }
        if (!want.defaults.empty()) {
            EXPECT_EQ(defaultWords(a), want.defaults) << where;
        }
        if (want.extra & kLimits) {
            EXPECT_EQ(a.minValue(), 0.0) << where;
            EXPECT_EQ(a.maxValue(), 1.0) << where;
        }
        if (!want.fields.empty()) {
            const auto* e = dynamic_cast<const TattributeEnum*>(&a);
            ASSERT_NE(e, nullptr) << where;
            ASSERT_EQ(e->fields().size(), want.fields.size()) << where;
            for (size_t f = 0; f < want.fields.size(); ++f) {
                EXPECT_EQ(e->fields()[f].label, want.fields[f].label) << where;
                EXPECT_EQ(e->fields()[f].constantName, want.fields[f].constant) << where;
                EXPECT_EQ(e->fields()[f].value, want.fields[f].value) << where;
            }
        }
    }
}

TEST_P(UtilitySchema, ConstructsWithDefaultsAndEveryOutputComputes) {
    const Type& t = type();
    orvo_test::MessageCapture messages;
    TdependGraph g;
    TdependNode* node = g.createNode(t.typeName, "n");
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(node->typeName(), t.typeName);
    EXPECT_EQ(node->apiType(), t.api);
    EXPECT_EQ(node->apiTypeString(), t.apiString);
    EXPECT_NE(node->cast(t.meta()), nullptr);
    EXPECT_EQ(node->cast(t.shading ? TshadingNodeTmeta() : TshadingDependNode::sTypeof()) !=
                  nullptr,
              t.shading);
    // The class name shows in the footprint trace.
    Footprint fp;
    Footprint::sTrace() = true;
    node->footprint(fp);
    Footprint::sTrace() = false;
    EXPECT_NE(fp.trace.find("Measure Footprint of " + t.className), std::string::npos) << fp.trace;

    for (const Tattribute* a : node->vsData()->attributes()) {
        if (!a->computeModifies())
            continue;
        const std::string plug = "n." + a->longName();
        Words words;
        EXPECT_NO_THROW(words = g.evaluateToWords(g.findPlug(plug))) << plug;
        EXPECT_EQ(int(words.size()), a->numericCount()) << plug;
    }
    for (const auto& [output, expected] : t.defaultOutputs)
        EXPECT_EQ(g.evaluateToWords(g.findPlug("n." + output)), expected) << output;
    EXPECT_TRUE(messages.messages().empty());

    // A plug that is not an output goes to the base, which computes nothing.
    const Tplug input(node, node->vsData()->attributes()[0]);
    TordinaryDataBlock block(node, 1);
    EXPECT_FALSE(node->computePlug(input, block));
    EXPECT_FALSE(node->vectorComputePlug(input, block, 0, 1));
}

TEST_P(UtilitySchema, ConstructRefusesUnrelatedMetaclasses) {
    const Type& t = type();
    Tmetaclass* unrelated =
        t.typeName == "reverse" ? TdnMultiplyDivide::sTypeof() : TdnReverse::sTypeof();
    EXPECT_EQ(t.construct(unrelated), nullptr);
    EXPECT_EQ(t.construct(nullptr), nullptr);
    EXPECT_EQ(t.construct(TdependNode::sTypeof()), nullptr);
    alignas(64) static unsigned char storage[4096];
    EXPECT_EQ(t.constructInPlace(unrelated, storage), nullptr);
    TdependNode* made = t.construct(t.meta());
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(made->typeName(), t.typeName);
    delete made;
}

std::string typeNameOf(const testing::TestParamInfo<size_t>& info) {
    return types()[info.param].typeName;
}

INSTANTIATE_TEST_SUITE_P(Utilities, UtilitySchema, testing::Range<size_t>(0, 14), typeNameOf);

TEST(UtilitySchema, TableCoversFourteenTypes) {
    EXPECT_EQ(types().size(), 14u);
}

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
