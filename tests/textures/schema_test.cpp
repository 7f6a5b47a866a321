// The identity and schema of the placement and of every procedural 2D
// texture, written out here from the description of the types and checked
// against what the registry holds.

#include <gtest/gtest.h>

#include <cmath>
#include <optional>

#include "host/graph.h"
#include "textures/tx2d.h"

namespace {

using namespace TattrFlag;
using Words = std::vector<std::string>;
using Limit = std::optional<double>;

constexpr uint64_t kFresh =
    kReadable | kWritable | kHostFlag4 | kStorable | kHostFlag6 | kCachedInternally;
constexpr uint64_t kInput = kFresh | kKeyable | kHostFlag47;
constexpr uint64_t kParent = kFresh | kHostFlag47;
constexpr uint64_t kColour = kParent | kUsedAsColor;
constexpr uint64_t kOutput = kFresh & ~uint64_t(0x2022);
constexpr uint64_t kSample = (kFresh & ~uint64_t(0x2020)) | kHidden;

struct Attr {
    std::string longName, shortName, className;
    Words defaults; // empty where no default is told
    uint64_t flags;
    Limit min = {}, max = {}, softMax = {};
    std::vector<std::string> labels = {}; // enum fields, valued 0, 1, ...
};
using Rows = std::vector<Attr>;

Rows operator+(Rows a, const Rows& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

uint64_t withLimits(uint64_t flags, Limit min, Limit max) {
    return flags | (min ? kHasLowerLimit : 0) | (max ? kHasUpperLimit : 0);
}

Rows leaf(std::string l, std::string s, std::string cls, Words def, uint64_t flags, Limit min = {},
          Limit max = {}, Limit softMax = {}) {
    return {Attr{l, s, cls, def, withLimits(flags, min, max), min, max, softMax}};
}
Rows real(std::string l, std::string s, double def, Limit min = {}, Limit max = {},
          Limit softMax = {}) {
    return leaf(l, s, "TattributeFloat", {OrvoFormatFloat(float(def))}, kInput, min, max, softMax);
}
Rows flag(std::string l, std::string s, bool def) {
    return leaf(l, s, "TattributeBoolean", {def ? "true" : "false"}, kInput);
}
Rows enumeration(std::string l, std::string s, int def, std::vector<std::string> labels) {
    Rows r = leaf(l, s, "TattributeEnum", {std::to_string(def)}, kInput);
    r[0].labels = std::move(labels);
    return r;
}
// A compound and its children; child names are given in full.
Rows compound(std::string l, std::string s, std::string cls, uint64_t parentFlags,
              uint64_t childFlags, std::vector<std::pair<std::string, std::string>> children,
              Words def, Limit min = {}, Limit max = {}, Limit softMax = {}) {
    Rows rows{Attr{l, s, cls, def, parentFlags}};
    for (size_t i = 0; i < children.size(); ++i)
        rows.push_back(Attr{children[i].first, children[i].second, "TattributeFloat",
                            def.empty() ? Words{} : Words{def[i]}, withLimits(childFlags, min, max),
                            min, max, softMax});
    return rows;
}
Rows colour(std::string l, std::string s, Words def, Limit min = {}, Limit max = {}) {
    return compound(l, s, "Tattribute3Float", kColour, kInput,
                    {{l + "R", s + "r"}, {l + "G", s + "g"}, {l + "B", s + "b"}}, def, min, max);
}
Rows pair(std::string l, std::string s, uint64_t parentFlags, uint64_t childFlags,
          std::pair<std::string, std::string> a, std::pair<std::string, std::string> b, Words def,
          Limit min = {}, Limit softMax = {}) {
    return compound(l, s, "Tattribute2Float", parentFlags, childFlags, {a, b}, def, min, {},
                    softMax);
}

Rows coordinateAndFilter() {
    return pair("uvCoord", "uv", kSample, kSample, {"uCoord", "u"}, {"vCoord", "v"}, {"0", "0"}) +
           pair("uvFilterSize", "fs", kSample, kSample, {"uvFilterSizeX", "fsx"},
                {"uvFilterSizeY", "fsy"}, {"0", "0"});
}

// What every 2D texture starts with.
Rows texture2d() {
    return coordinateAndFilter() + real("filter", "f", 1.0, 0.0, {}, 1.0) +
           real("filterOffset", "fo", 0.0, {}, {}, 1.0) + flag("invert", "i", false) +
           flag("alphaIsLuminance", "ail", false) +
           colour("colorGain", "cg", {"1", "1", "1"}, 0.0, 2.0) +
           colour("colorOffset", "co", {"0", "0", "0"}, 0.0, 2.0) +
           real("alphaGain", "ag", 1.0, {}, {}, 2.0) + real("alphaOffset", "ao", 0.0, {}, {}, 2.0) +
           colour("defaultColor", "dc", {"0.5", "0.5", "0.5"}, 0.0, 1.0) +
           compound("outColor", "oc", "Tattribute3Float", kOutput | kUsedAsColor, kOutput,
                    {{"outColorR", "ocr"}, {"outColorG", "ocg"}, {"outColorB", "ocb"}},
                    {"0", "0", "0"}) +
           leaf("outAlpha", "oa", "TattributeFloat", {}, kOutput);
}

struct Type {
    std::string typeName, tag, apiString, classification;
    int api;
    Rows attributes;
};

const std::vector<Type>& types() {
    static const std::vector<Type> table = {
        {"place2dTexture", "RPL2", "kPlace2dTexture",
         "utility/general/placement:drawdb/shader/operation/place2dTexture", 447,
         coordinateAndFilter() +
             pair("vertexUvOne", "vt1", kSample, kSample, {"vertexUvOneU", "vt1u"},
                  {"vertexUvOneV", "vt1v"}, {"0", "0"}) +
             pair("vertexUvTwo", "vt2", kSample, kSample, {"vertexUvTwoU", "vt2u"},
                  {"vertexUvTwoV", "vt2v"}, {"0", "0"}) +
             pair("vertexUvThree", "vt3", kSample, kSample, {"vertexUvThreeU", "vt3u"},
                  {"vertexUvThreeV", "vt3v"}, {"0", "0"}) +
             compound("vertexCameraOne", "vc1", "Tattribute3Float", kSample, kSample,
                      {{"vertexCameraOneX", "vc1x"},
                       {"vertexCameraOneY", "vc1y"},
                       {"vertexCameraOneZ", "vc1z"}},
                      {"0", "0", "0"}) +
             pair("coverage", "c", kParent, kInput, {"coverageU", "cu"}, {"coverageV", "cv"},
                  {"1", "1"}, 0.0, 1.0) +
             pair("translateFrame", "tf", kParent, kInput, {"translateFrameU", "tfu"},
                  {"translateFrameV", "tfv"}, {"0", "0"}) +
             leaf("rotateFrame", "rf", "TattributeDoubleAngle", {"0"}, kInput, {}, {}, 2.0 * M_PI) +
             flag("mirrorU", "mu", false) + flag("mirrorV", "mv", false) +
             flag("stagger", "s", false) + flag("wrapU", "wu", true) + flag("wrapV", "wv", true) +
             pair("repeatUV", "re", kParent, kInput, {"repeatU", "reu"}, {"repeatV", "rev"},
                  {"1", "1"}) +
             pair("offset", "of", kParent, kInput, {"offsetU", "ofu"}, {"offsetV", "ofv"},
                  {"0", "0"}) +
             leaf("rotateUV", "r", "TattributeDoubleAngle", {"0"}, kInput, {}, {}, 2.0 * M_PI) +
             pair("noiseUV", "n", kParent, kInput, {"noiseU", "nu"}, {"noiseV", "nv"}, {"0", "0"}) +
             flag("fast", "fa", false) +
             pair("outUV", "o", kOutput, kOutput, {"outU", "ou"}, {"outV", "ov"}, {"0", "0"}) +
             pair("outUvFilterSize", "ofs", kOutput, kOutput, {"outUvFilterSizeX", "ofsx"},
                  {"outUvFilterSizeY", "ofsy"}, {}) +
             leaf("doTransform", "do", "TattributeBoolean", {}, kOutput)},
        {"checker", "RTCH", "kChecker", "texture/2d:drawdb/shader/texture/2d/checker", 487,
         texture2d() + colour("color1", "c1", {"1", "1", "1"}) +
             colour("color2", "c2", {"0", "0", "0"}) + real("contrast", "ct", 1.0, 0.0, 1.0)},
        {"grid", "RTGR", "kGrid", "texture/2d:drawdb/shader/texture/2d/grid", 490,
         texture2d() + colour("fillerColor", "fc", {"0", "0", "0"}) +
             colour("lineColor", "lc", {"1", "1", "1"}) + real("contrast", "c", 1.0, 0.0, 1.0) +
             real("uWidth", "uw", 0.1, 0.0, 1.0) + real("vWidth", "vw", 0.1, 0.0, 1.0)},
        {"bulge", "RTBU", "kBulge", "texture/2d:drawdb/shader/texture/2d/bulge", 486,
         texture2d() + real("uWidth", "uw", 0.1, 0.0, 1.0) + real("vWidth", "vw", 0.1, 0.0, 1.0)},
        {"ramp", "RTRA", "kRamp", "texture/2d:drawdb/shader/texture/2d/ramp", 497,
         texture2d() +
             enumeration("type", "t", 0,
                         {"V Ramp", "U Ramp", "Diagonal Ramp", "Radial Ramp", "Circular Ramp",
                          "Box Ramp", "UV Ramp", "Four Corner Ramp", "Tartan Ramp"}) +
             enumeration("interpolation", "in", 1,
                         {"None", "Linear", "Exponential Up", "Exponential Down", "Smooth", "Bump",
                          "Spike"}) +
             leaf("colorEntryList", "cel", "TattributeCompound", {}, kParent | kArray) +
             leaf("position", "ep", "TattributeFloat", {"0"}, kInput | kArrayDescendant, 0.0, 1.0) +
             compound("color", "ec", "Tattribute3Float", kColour | kArrayDescendant,
                      kInput | kArrayDescendant,
                      {{"colorR", "ecr"}, {"colorG", "ecg"}, {"colorB", "ecb"}}, {"1", "0", "0"}) +
             real("uWave", "uw", 0.0, 0.0) + real("vWave", "vw", 0.0, 0.0) +
             real("noise", "n", 0.0, 0.0) + real("noiseFreq", "nf", 0.5, 0.0) +
             real("hueNoise", "hn", 0.0, 0.0) + real("satNoise", "sn", 0.0, 0.0) +
             real("valNoise", "vn", 0.0, 0.0) + real("hueNoiseFreq", "hnf", 0.5, 0.0) +
             real("satNoiseFreq", "snf", 0.5, 0.0) + real("valNoiseFreq", "vnf", 0.5, 0.0)},
        {"fractal", "RTFR", "kFractal", "texture/2d:drawdb/shader/texture/2d/fractal", 489,
         texture2d() + real("amplitude", "a", 1.0, 0.0) + real("ratio", "ra", 0.707, 0.0, 1.0) +
             real("threshold", "th", 0.0, 0.0) + real("levelMin", "lmn", 0.0, 0.0, 25.0) +
             real("levelMax", "lmx", 9.0, 0.0, 25.0) + real("frequencyRatio", "fr", 2.0) +
             real("bias", "bs", 0.0) + flag("inflection", "in", false) +
             flag("animated", "an", false) + real("timeRatio", "tr", 2.0) +
             real("time", "ti", 0.0, 0.0, 100.0)},
        {"noise", "RTN2", "kNoise", "texture/2d:drawdb/shader/texture/2d/noise", 491,
         texture2d() + real("amplitude", "a", 1.0, 0.0) + real("ratio", "ra", 0.707, 0.0) +
             real("threshold", "th", 0.0, 0.0) +
             leaf("depthMax", "dm", "TattributeInt16", {"3"}, kInput, 1.0, 80.0) +
             real("frequency", "fq", 8.0) + real("frequencyRatio", "fr", 2.0) +
             flag("inflection", "in", false) + real("time", "ti", 0.0) +
             enumeration("noiseType", "nty", 1,
                         {"Perlin Noise", "Billow", "Wave", "Wispy", "SpaceTime"}) +
             real("density", "d", 1.0, 0.0) + real("spottyness", "sp", 0.1, 0.0) +
             real("sizeRand", "sr", 0.0, 0.0) + real("randomness", "rn", 1.0, 0.0) +
             enumeration("falloff", "fof", 2, {"Linear", "Smooth", "Fast", "Bubble"}) +
             leaf("numWaves", "nw", "TattributeInt16", {"5"}, kInput, 1.0) +
             real("implode", "imp", 0.0) +
             pair("implodeCenter", "imc", kParent, kInput, {"implodeCenterU", "imcu"},
                  {"implodeCenterV", "imcv"}, {"0.5", "0.5"})},
        {"mountain", "RTMO", "kMountain", "texture/2d:drawdb/shader/texture/2d/mountain", 495,
         texture2d() + colour("snowColor", "sc", {"1", "1", "1"}) +
             colour("rockColor", "rc", {OrvoFormatFloat(0.262f), OrvoFormatFloat(0.102f), "0"}) +
             real("amplitude", "a", 1.0, 0.0) + real("snowRoughness", "sr", 0.4, 0.0, 1.0) +
             real("rockRoughness", "rr", 0.707, 0.0, 1.0) + real("boundary", "bo", 1.0, 0.0, 1.0) +
             real("snowAltitude", "sa", 0.5, 0.0) + real("snowDropoff", "sd", 2.0, 0.0) +
             real("snowSlope", "ss", 0.8, 0.0) + real("depthMax", "dmx", 20.0, 0.0, 40.0)},
    };
    return table;
}

Words defaultWords(const Tattribute& a) {
    alignas(16) unsigned char value[256] = {};
    a.constructValue(value);
    a.writeDefault(value);
    Words words;
    a.formatValue(value, words);
    a.destroyValue(value);
    return words;
}

class TextureSchema : public testing::TestWithParam<size_t> {
protected:
    const Type& type() const { return types()[GetParam()]; }
};

TEST_P(TextureSchema, Identity) {
    const Type& t = type();
    TdependNodeClass* record = TdependGraph::findNodeType(t.typeName);
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->iffTag()->value(), TiffTag::make(t.tag.c_str()));
    EXPECT_EQ(record->apiType, t.api);
    EXPECT_EQ(record->apiTypeString, t.apiString);
    EXPECT_EQ(record->classification, t.classification);
    Tmetaclass* meta = record->metaclass();
    const bool placement = t.typeName == "place2dTexture";
    EXPECT_EQ(meta->parent(0), placement ? TshadingDependNode::sTypeof() : TdnTx2D::sTypeof());
    EXPECT_EQ(meta->parent(1), TshadingNodeTmeta());
    EXPECT_EQ(meta->istype(TtextureMethods::sTypeof()), !placement);
}

TEST_P(TextureSchema, AttributesInSchemaOrder) {
    const Type& t = type();
    TdependNodeVS* vs = TdependGraph::findNodeType(t.typeName)->vsData();
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
        EXPECT_EQ(a.flags(), want.flags) << where << std::hex << " flags 0x" << a.flags();
        if (!want.defaults.empty()) {
            EXPECT_EQ(defaultWords(a), want.defaults) << where;
        }
        EXPECT_EQ(a.minValue(), want.min) << where;
        EXPECT_EQ(a.maxValue(), want.max) << where;
        if (want.softMax) {
            ASSERT_TRUE(a.softMaxValue()) << where;
            EXPECT_NEAR(*a.softMaxValue(), *want.softMax, 1e-12) << where;
        }
        if (!want.labels.empty()) {
            const auto* e = dynamic_cast<const TattributeEnum*>(&a);
            ASSERT_NE(e, nullptr) << where;
            ASSERT_EQ(e->fields().size(), want.labels.size()) << where;
            for (size_t f = 0; f < want.labels.size(); ++f) {
                EXPECT_EQ(e->fields()[f].label, want.labels[f]) << where;
                EXPECT_EQ(e->fields()[f].value, int(f)) << where;
            }
        }
        // The texture base's attributes carry its string; each type's own,
        // the type's.
        const bool inherited = i < texture2d().size() && t.typeName != "place2dTexture";
        EXPECT_EQ(a.nodeNameString(), inherited ? "n_texture2d" : "n_" + t.typeName) << where;
    }
}

std::string typeNameOf(const testing::TestParamInfo<size_t>& info) {
    return types()[info.param].typeName;
}

INSTANTIATE_TEST_SUITE_P(Textures, TextureSchema, testing::Range(size_t(0), types().size()),
                         typeNameOf);

} // namespace
