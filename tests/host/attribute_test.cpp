#include <gtest/gtest.h>

#include <cstring>

#include "host/attribute.h"

namespace {

TEST(AttributeLayout, CompoundChildrenLieAtTheirAlignment) {
    Tattribute3Float colour("color", "c");
    TattributeFloat r("colorR", "cr"), g("colorG", "cg"), b("colorB", "cb");
    colour.addChild(r);
    colour.addChild(g);
    colour.addChild(b);
    colour.assignOffsets();
    EXPECT_EQ(r.offsetInParent(), 0u);
    EXPECT_EQ(g.offsetInParent(), 4u);
    EXPECT_EQ(b.offsetInParent(), 8u);
    EXPECT_EQ(colour.dataSize(), 12u);
    EXPECT_EQ(colour.dataAlignment(), 4u);

    // A byte then a double: the double aligns to 8 and the size rounds up.
    TattributeCompound mixed("mixed", "mx");
    TattributeBoolean flag("flag", "f");
    TattributeDouble value("value", "v");
    mixed.addChild(flag);
    mixed.addChild(value);
    EXPECT_EQ(mixed.dataSize(), 16u);
    EXPECT_EQ(value.offsetInParent(), 8u);
}

TEST(AttributeLayout, LightDataMatchesTheRecord) {
    TattributeLightData light("lightDataArray", "ltd");
    EXPECT_EQ(light.dataSize(), sizeof(TlightData));
    const auto& c = light.children();
    ASSERT_EQ(c.size(), 8u);
    EXPECT_EQ(c[0]->longName(), "lightDirection");
    EXPECT_EQ(c[0]->offsetInParent(), offsetof(TlightData, direction));
    EXPECT_EQ(c[1]->offsetInParent(), offsetof(TlightData, intensity));
    EXPECT_EQ(c[2]->offsetInParent(), offsetof(TlightData, ambient));
    EXPECT_EQ(c[3]->offsetInParent(), offsetof(TlightData, diffuse));
    EXPECT_EQ(c[4]->offsetInParent(), offsetof(TlightData, specular));
    EXPECT_EQ(c[5]->offsetInParent(), offsetof(TlightData, shadowFraction));
    EXPECT_EQ(c[6]->offsetInParent(), offsetof(TlightData, preShadowIntensity));
    EXPECT_EQ(c[7]->offsetInParent(), offsetof(TlightData, blindData));
    EXPECT_EQ(c[3]->shortName(), "ldf");
    EXPECT_EQ(c[6]->longName(), "preShadowIntensity");
    EXPECT_EQ(c[6]->shortName(), "psi");

    TlightData record{};
    light.writeDefault(&record);
    EXPECT_TRUE(record.ambient);
    EXPECT_TRUE(record.diffuse);
    EXPECT_FALSE(record.specular);
    EXPECT_EQ(record.direction[2], 1.0f);
}

TEST(AttributeFlags, SchemaShapesSetTheDocumentedBits) {
    TattributeFloat input("input", "i");
    input.input();
    EXPECT_EQ(input.flags(), TattrFlag::kDefault | 0x80 | 0x800000000000);
    EXPECT_EQ(input.disconnectOption(), 1u);

    TattributeFloat output("output", "o");
    output.output();
    EXPECT_EQ(output.flags(), TattrFlag::kDefault & ~uint64_t(0x2022));
    EXPECT_FALSE(output.isWritable());
    EXPECT_TRUE(output.isComputed());

    TattributeFloat sample("normalCamera", "n");
    sample.implicitSample();
    EXPECT_EQ(sample.flags(), (TattrFlag::kDefault & ~uint64_t(0x2020)) | 0x8);

    TattributeFloat light("lightDirection", "ld");
    light.implicitLight();
    EXPECT_EQ(light.flags(), (TattrFlag::kDefault & ~uint64_t(0x21)) | 0x8);

    TattributeFloat limited("bias", "b");
    limited.range(0.0, 1.0);
    EXPECT_TRUE(limited.hasFlag(TattrFlag::kHasLowerLimit));
    EXPECT_TRUE(limited.hasFlag(TattrFlag::kHasUpperLimit));
}

TEST(AttributeValues, ParseChecksCountsKindsAndLimits) {
    TattributeFloat bias("bias", "b");
    bias.range(0.0, 1.0);
    float f = 0.0f;
    EXPECT_EQ(bias.parseValue({"0.25"}, &f), "");
    EXPECT_EQ(f, 0.25f);
    EXPECT_EQ(bias.parseValue({"7"}, &f), ""); // clamped to the hard limit
    EXPECT_EQ(f, 1.0f);
    EXPECT_NE(bias.parseValue({"x"}, &f), "");
    EXPECT_NE(bias.parseValue({"1", "2"}, &f), "");

    TattributeBoolean on("on", "on");
    bool b = false;
    EXPECT_EQ(on.parseValue({"true"}, &b), "");
    EXPECT_TRUE(b);
    EXPECT_NE(on.parseValue({"maybe"}, &b), "");

    TattributeInt16 count("count", "cnt");
    int16_t s = 0;
    EXPECT_NE(count.parseValue({"2.5"}, &s), "");
    EXPECT_EQ(count.parseValue({"-3"}, &s), "");
    EXPECT_EQ(s, -3);

    TattributeEnum op("operation", "op");
    op.addField("No operation", "kNone", 0).addField("Multiply", "kMultiply", 1);
    int16_t e = 0;
    EXPECT_EQ(op.parseValue({"Multiply"}, &e), "");
    EXPECT_EQ(e, 1);
    EXPECT_EQ(op.parseValue({"kNone"}, &e), "");
    EXPECT_EQ(e, 0);
    EXPECT_EQ(op.parseValue({"1"}, &e), "");
    EXPECT_EQ(e, 1);
    const std::string error = op.parseValue({"Divide"}, &e);
    EXPECT_NE(error.find("\"Multiply\" (1)"), std::string::npos) << error;

    // A bad word in a compound leaves the whole value as it was.
    Tattribute3Float v("value", "v");
    TattributeFloat x("valueX", "vx"), y("valueY", "vy"), z("valueZ", "vz");
    v.addChild(x);
    v.addChild(y);
    v.addChild(z);
    float xyz[3] = {1, 2, 3};
    EXPECT_NE(v.parseValue({"4", "oops", "6"}, xyz), "");
    EXPECT_EQ(xyz[0], 1.0f);
    EXPECT_EQ(v.parseValue({"4", "5", "6"}, xyz), "");
    EXPECT_EQ(xyz[2], 6.0f);

    TattributeFltMatrix m("matrix", "m");
    T4dFltMatrix value;
    std::vector<std::string> sixteen(16, "2");
    EXPECT_EQ(m.parseValue(sixteen, &value), "");
    EXPECT_EQ(value.m[3][3], 2.0f);
    EXPECT_NE(m.parseValue({"1", "2"}, &value), "");
}

TEST(AttributeValues, TypedValuesAreObjects) {
    TattributeTyped name("fileTextureName", "ftn", TdataString::sTypeof());
    EXPECT_TRUE(name.hasFlag(TattrFlag::kValueIsObject));
    alignas(Tdata) unsigned char a[sizeof(Tdata)], b[sizeof(Tdata)];
    name.constructValue(a);
    name.constructValue(b);
    EXPECT_EQ(name.parseValue({"wood grain.tif"}, a), "");
    name.copyValue(b, a);
    EXPECT_TRUE(name.equalValues(a, b));
    std::vector<std::string> words;
    name.formatValue(b, words);
    EXPECT_EQ(words, std::vector<std::string>{"\"wood grain.tif\""});
    name.destroyValue(a);
    name.destroyValue(b); // the sanitizer build catches a leak or double free
}

TEST(AttributeList, ClashesAreRefusedAndLookupTakesBothNames) {
    TattributeFloat a("input", "i"), b("input", "x"), c("other", "i"), d("other", "o");
    TattributeList list;
    EXPECT_TRUE(list.addAttribute(&a));
    EXPECT_FALSE(list.addAttribute(&b));
    EXPECT_FALSE(list.addAttribute(&c));
    EXPECT_TRUE(list.addAttribute(&d));
    EXPECT_EQ(list.size(), 2u);
    EXPECT_EQ(list.findAttribute("i"), &a);
    EXPECT_EQ(list.findAttribute("other"), &d);
    EXPECT_EQ(list.findAttribute("nothing"), nullptr);
}

TEST(DependencyMatrix, AffectorsAndAffecteesAreInverse) {
    TattributeFloat in1("in1", "a"), in2("in2", "b"), out("out", "c");
    in1.setIndex(0);
    in2.setIndex(1);
    out.setIndex(2);
    TdependencyMatrix m;
    m.resize(3);
    m.attributeAffects(in1, out);
    m.attributeAffects(in2, out);
    TbitFieldFixedN set;
    m.allAffectors(2, set);
    EXPECT_TRUE(set.test(0));
    EXPECT_TRUE(set.test(1));
    EXPECT_FALSE(set.test(2));
    m.allAffectees(0, set);
    EXPECT_EQ(set.count(), 1u);
    EXPECT_TRUE(set.test(2));
    m.allAffectees(2, set);
    EXPECT_FALSE(set.any());
}

} // namespace
