#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "host/env.h"
#include "materials/lambert_test_support.h"

// The lambert's attributes are what scene files and every classic material
// rely on: names, order, classes, defaults, and which are filled by the
// shading engine.

namespace {

struct Row {
    const char* longName;
    const char* shortName;
    const char* className;
};

// Declaration order, compound children after their parent.
const Row kSchema[] = {
    {"objectId", "oi", "TattributeAddr"},
    {"primitiveId", "pi", "TattributeInt32"},
    {"raySampler", "rtr", "TattributeAddr"},
    {"rayDepth", "rd", "TattributeInt16"},
    {"rayInstance", "ryi", "TattributeInt32"},
    {"refractionLimit", "rdl", "TattributeInt16"},
    {"refractiveIndex", "rfi", "TattributeFloat"},
    {"mediumRefractiveIndex", "mrfi", "TattributeFloat"},
    {"refractions", "rfc", "TattributeBoolean"},
    {"diffuse", "dc", "TattributeFloat"},
    {"rayDirection", "rad", "Tattribute3Float"},
    {"rayDirectionX", "rdx", "TattributeFloat"},
    {"rayDirectionY", "rdy", "TattributeFloat"},
    {"rayDirectionZ", "rdz", "TattributeFloat"},
    {"color", "c", "Tattribute3Float"},
    {"colorR", "cr", "TattributeFloat"},
    {"colorG", "cg", "TattributeFloat"},
    {"colorB", "cb", "TattributeFloat"},
    {"transparency", "it", "Tattribute3Float"},
    {"transparencyR", "itr", "TattributeFloat"},
    {"transparencyG", "itg", "TattributeFloat"},
    {"transparencyB", "itb", "TattributeFloat"},
    {"ambientColor", "ambc", "Tattribute3Float"},
    {"ambientColorR", "acr", "TattributeFloat"},
    {"ambientColorG", "acg", "TattributeFloat"},
    {"ambientColorB", "acb", "TattributeFloat"},
    {"incandescence", "ic", "Tattribute3Float"},
    {"incandescenceR", "ir", "TattributeFloat"},
    {"incandescenceG", "ig", "TattributeFloat"},
    {"incandescenceB", "ib", "TattributeFloat"},
    {"translucence", "tc", "TattributeFloat"},
    {"translucenceFocus", "tcf", "TattributeFloat"},
    {"translucenceDepth", "trsd", "TattributeFloat"},
    {"opacityDepth", "opad", "TattributeFloat"},
    {"glowIntensity", "gi", "TattributeFloat"},
    {"vrOverwriteDefaults", "vrod", "TattributeBoolean"},
    {"vrFillObject", "vrfo", "TattributeEnum"},
    {"vrEdgeWeight", "vrew", "TattributeDouble"},
    {"vrEdgeColor", "vrec", "Tattribute3Float"},
    {"vrEdgeColorR", "vecr", "TattributeFloat"},
    {"vrEdgeColorG", "vecg", "TattributeFloat"},
    {"vrEdgeColorB", "vecb", "TattributeFloat"},
    {"vrEdgeStyle", "vres", "TattributeEnum"},
    {"vrEdgePriority", "vrep", "TattributeInt32"},
    {"vrHiddenEdges", "vrhe", "TattributeBoolean"},
    {"vrHiddenEdgesOnTransparent", "vrht", "TattributeBoolean"},
    {"vrOutlinesAtIntersections", "vroi", "TattributeBoolean"},
    {"materialAlphaGain", "maga", "TattributeFloat"},
    {"hideSource", "hs", "TattributeBoolean"},
    {"surfaceThickness", "thik", "TattributeFloat"},
    {"shadowAttenuation", "fakc", "TattributeFloat"},
    {"transparencyDepth", "trdp", "TattributeFloat"},
    {"lightAbsorbance", "absb", "TattributeFloat"},
    {"chromaticAberration", "crab", "TattributeBoolean"},
    {"outColor", "oc", "Tattribute3Float"},
    {"outColorR", "ocr", "TattributeFloat"},
    {"outColorG", "ocg", "TattributeFloat"},
    {"outColorB", "ocb", "TattributeFloat"},
    {"outTransparency", "ot", "Tattribute3Float"},
    {"outTransparencyR", "otr", "TattributeFloat"},
    {"outTransparencyG", "otg", "TattributeFloat"},
    {"outTransparencyB", "otb", "TattributeFloat"},
    {"outGlowColor", "ogc", "Tattribute3Float"},
    {"outGlowColorR", "ogr", "TattributeFloat"},
    {"outGlowColorG", "ogg", "TattributeFloat"},
    {"outGlowColorB", "ogb", "TattributeFloat"},
    {"pointCamera", "pc", "Tattribute3Float"},
    {"pointCameraX", "px", "TattributeFloat"},
    {"pointCameraY", "py", "TattributeFloat"},
    {"pointCameraZ", "pz", "TattributeFloat"},
    {"normalCamera", "n", "Tattribute3Float"},
    {"normalCameraX", "nx", "TattributeFloat"},
    {"normalCameraY", "ny", "TattributeFloat"},
    {"normalCameraZ", "nz", "TattributeFloat"},
    {"lightDataArray", "ltd", "TattributeLightData"},
};
// The light record's fields follow lightDataArray; then these.
const Row kAfterLights[] = {
    {"matteOpacityMode", "mom", "TattributeEnum"},
    {"matteOpacity", "mog", "TattributeFloat"},
    {"outMatteOpacity", "omo", "Tattribute3Float"},
    {"outMatteOpacityR", "omor", "TattributeFloat"},
    {"outMatteOpacityG", "omog", "TattributeFloat"},
    {"outMatteOpacityB", "omob", "TattributeFloat"},
    {"hardwareShader", "hws", "Tattribute3Float"},
    {"hardwareShaderR", "hwr", "TattributeFloat"},
    {"hardwareShaderG", "hwg", "TattributeFloat"},
    {"hardwareShaderB", "hwb", "TattributeFloat"},
};

TEST(LambertSchema, AttributesInDeclarationOrder) {
    TdnLambert::sVsData()->initializeClass();
    const TattributeList& list = TdnLambert::sVsData()->attributes();
    ASSERT_EQ(list[0]->longName(), "message");
    size_t at = 1;
    auto expectRow = [&](const Row& row) {
        ASSERT_LT(at, list.size());
        const Tattribute* a = list[at++];
        EXPECT_EQ(a->longName(), row.longName);
        EXPECT_EQ(a->shortName(), row.shortName) << row.longName;
        EXPECT_STREQ(a->className(), row.className) << row.longName;
        EXPECT_EQ(a->nodeNameString(), "n_lambert") << row.longName;
    };
    for (const Row& row : kSchema)
        expectRow(row);
    const Tattribute* lights = list[at - 1];
    EXPECT_TRUE(lights->isArray());
    // The record's fields: lightDirection (3), lightIntensity (3), ambient,
    // diffuse, specular, shadow fraction, pre-shadow intensity, blind data.
    at += 14;
    EXPECT_EQ(list[at - 1]->longName(), "lightBlindData");
    for (const Row& row : kAfterLights)
        expectRow(row);
    EXPECT_EQ(at, list.size());
    // The static names that differ from the long names.
    EXPECT_EQ(TdnLambert::aDiffuseCoeff.longName(), "diffuse");
    EXPECT_EQ(TdnLambert::aRtRefractedColor.longName(), "refractions");
    EXPECT_EQ(TdnLambert::aLightData.longName(), "lightDataArray");
}

TEST(LambertSchema, DefaultsRangesAndEngineInputs) {
    lambert_test::OneLambert l;
    auto value = [&](const std::string& plug) {
        return l.g.evaluateToWords(l.g.findPlug("l." + plug));
    };
    using W = std::vector<std::string>;
    EXPECT_EQ(value("refractionLimit"), W({"6"}));
    EXPECT_EQ(value("diffuse"), W({"0.800000012"}));
    EXPECT_EQ(value("rayDirection"), W({"0", "0", "1"}));
    EXPECT_EQ(value("color"), W({"0.5", "0.5", "0.5"}));
    EXPECT_EQ(value("vrEdgeColor"), W({"0.5", "0.5", "0.5"}));
    EXPECT_EQ(value("pointCamera"), W({"1", "1", "1"}));
    EXPECT_EQ(value("normalCamera"), W({"1", "1", "1"}));
    EXPECT_EQ(value("translucenceFocus"), W({"0.5"}));
    EXPECT_EQ(value("vrOutlinesAtIntersections"), W({"true"}));
    EXPECT_EQ(value("shadowAttenuation"), W({"0.5"}));
    EXPECT_EQ(value("matteOpacity"), W({"1"}));
    // Hard limits clamp what is set.
    l.set("refractiveIndex", {0});
    EXPECT_EQ(value("refractiveIndex"), W({"0.00999999978"}));
    l.set("translucenceFocus", {2});
    EXPECT_EQ(value("translucenceFocus"), W({"1"}));

    // What the shading engine fills per sample is hidden, and neither
    // stored nor keyed.
    for (const char* name : {"objectId", "primitiveId", "raySampler", "rayDepth", "rayInstance",
                             "mediumRefractiveIndex", "rayDirection", "rayDirectionZ",
                             "pointCamera", "pointCameraX", "normalCamera", "lightDataArray"}) {
        const Tattribute* a = TdnLambert::sVsData()->findAttribute(name);
        ASSERT_NE(a, nullptr) << name;
        EXPECT_TRUE(a->isHidden()) << name;
        EXPECT_FALSE(a->isStorable()) << name;
        EXPECT_FALSE(a->isKeyable()) << name;
    }
    EXPECT_TRUE(TdnLambert::aColor.isStorable());
    EXPECT_FALSE(TdnLambert::aOutColor.isWritable());
    EXPECT_EQ(TdnLambert::aMatteOpacityMode.fields().size(), 3u);
    EXPECT_EQ(TdnLambert::aMatteOpacityMode.fieldByLabel("Opacity Gain")->value,
              TdnLambert::kOpacityGain);
    EXPECT_EQ(TdnLambert::aVRFillObject.fieldByLabel("No Fill")->value, 8);
    EXPECT_EQ(TdnLambert::aVREdgeStyle.fieldByLabel("No Edges")->value, 3);
}

TEST(LambertSchema, TheMaterialsLightRecordDefaults) {
    lambert_test::OneLambert l;
    l.set("lightDataArray[2].preShadowIntensity", {0.5});
    auto value = [&](const std::string& field) {
        return l.g.evaluateToWords(l.g.findPlug("l.lightDataArray[2]." + field));
    };
    using W = std::vector<std::string>;
    EXPECT_EQ(value("lightDirection"), W({"1", "1", "1"}));
    EXPECT_EQ(value("lightIntensity"), W({"1", "1", "1"}));
    EXPECT_EQ(value("lightAmbient"), W({"true"}));
    EXPECT_EQ(value("lightDiffuse"), W({"true"}));
    EXPECT_EQ(value("lightSpecular"), W({"false"}));
}

// Any value of the variable, the empty one included, asks for the old
// default of 0.
TEST(LambertSchema, OldTranslucenceDepthDefaultFromTheEnvironment) {
    const char* name = "ORVO_USE_OLD_TRANSLUCENCE_DEPTH_DEFAULT";
    ::unsetenv(name);
    OrvoEnvRefresh();
    EXPECT_EQ(TdnLambert::translucenceDepthDefault(), 0.5f);
    for (const char* v : {"1", "0", ""}) {
        ::setenv(name, v, 1);
        OrvoEnvRefresh();
        EXPECT_EQ(TdnLambert::translucenceDepthDefault(), 0.0f) << "'" << v << "'";
    }
    ::unsetenv(name);
    OrvoEnvRefresh();
}

} // namespace
