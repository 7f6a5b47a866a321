// The material info of a shading group: the fixed-function colours it
// reduces a material to (worked out by hand from the reduction rules), the
// texture it finds, what it sets on a drawing port, and how it follows
// edits of the material.

#include <gtest/gtest.h>

#include <sstream>

#include "host/draw/port.h"
#include "host/graph.h"
#include "host/qsl/interpreter.h"
#include "host/scene/dag.h"
#include "shading/shading_engine.h"
#include "viewport/material_info.h"
#include "viewport/material_texture.h"

namespace {

// A scene of one shading group "sg" with the material given, on a mesh "m".
struct Scene {
    TdependGraph g;
    std::ostringstream out;
    T3dPort port{4, 4};
    TmaterialInfo* info = nullptr;
    TdagPath object;

    explicit Scene(const std::string& material, const std::string& more = "") {
        qsl::Interpreter(g, out).runText(
            material +
                "\nnode shadingEngine sg\nconnect paint.outColor sg.surfaceShader\n"
                "node transform t\nnode mesh m -parent t\nmember sg m\n" +
                more,
            "scene.qsl");
        auto* engine =
            static_cast<TDNshadingEngine*>(g.findNode("sg")->cast(TDNshadingEngine::sTypeof()));
        info = &TmaterialInfo::ensureShadingEngineHasInfo(*engine);
        object = dynamic_cast<TdagObject*>(g.findNode("m"))->firstPath();
    }
    void set(const std::string& line) { qsl::Interpreter(g, out).runText(line, "edit.qsl"); }
    bool evaluate() { return info->evaluateMaterial(&port, object, {}); }
};

void expectColour(const TportColor& got, const TportColor& want) {
    EXPECT_NEAR(got.r, want.r, 1e-6f);
    EXPECT_NEAR(got.g, want.g, 1e-6f);
    EXPECT_NEAR(got.b, want.b, 1e-6f);
    EXPECT_NEAR(got.a, want.a, 1e-6f);
}

TportColor diffuseOf(Scene& s) {
    TportColor c;
    EXPECT_TRUE(s.info->getDiffuse(c));
    return c;
}

float shininessOf(Scene& s) {
    float v = 0;
    EXPECT_TRUE(s.info->getShininess(v));
    return v;
}

} // namespace

TEST(MaterialInfo, ReducesALambertToColours) {
    Scene s("node lambert paint\nset paint.color 0.5 0.25 1\nset paint.diffuse 0.8\n"
            "set paint.transparency 0.3 0.3 0.3\nset paint.ambientColor 0.1 0.2 0.3\n"
            "set paint.incandescence 0.05 0 0");
    EXPECT_EQ(s.info->material(), s.g.findNode("paint"));
    // Nothing to read before a draw asks: no port yet, and stale.
    TportColor c;
    EXPECT_FALSE(s.info->getDiffuse(c));
    EXPECT_TRUE(s.info->hasState(TmaterialInfo::kStale | TmaterialInfo::kTextureable));
    ASSERT_TRUE(s.evaluate());

    // alpha = (1 - mean transparency 0.3) * gain 1 = 0.7; diffuse = colour * 0.8.
    expectColour(diffuseOf(s), {0.4f, 0.2f, 0.8f, 0.7f});
    ASSERT_TRUE(s.info->getAmbient(c));
    expectColour(c, {0.1f, 0.2f, 0.3f, 0.7f});
    ASSERT_TRUE(s.info->getEmission(c));
    expectColour(c, {0.05f, 0.0f, 0.0f, 1.0f});
    ASSERT_TRUE(s.info->getSpecular(c));
    expectColour(c, {0, 0, 0, 1});
    EXPECT_FLOAT_EQ(shininessOf(s), 1.0f);
    bool transparent = false;
    ASSERT_TRUE(s.info->getHasTransparency(transparent, false));
    EXPECT_TRUE(transparent);

    // An edit of the material makes the colours stale; the next draw
    // recomputes them. Gain 0.5 with no transparency: alpha 0.5, still
    // transparent.
    s.set("set paint.transparency 0 0 0\nset paint.materialAlphaGain 0.5");
    EXPECT_TRUE(s.info->hasState(TmaterialInfo::kStale));
    EXPECT_FALSE(s.info->getDiffuse(c));
    ASSERT_TRUE(s.evaluate());
    expectColour(diffuseOf(s), {0.4f, 0.2f, 0.8f, 0.5f});
    EXPECT_TRUE(s.info->hasState(TmaterialInfo::kTransparent));

    // Full transparency: alpha 0.
    s.set("set paint.materialAlphaGain 1\nset paint.transparency 1 1 1");
    ASSERT_TRUE(s.evaluate());
    EXPECT_FLOAT_EQ(diffuseOf(s).a, 0.0f);
}

TEST(MaterialInfo, SpecularMaterialsGiveShininessFromTheirHighlight) {
    {
        // cosinePower 20: 4 * 20 = 80.
        Scene s("node phong paint\nset paint.cosinePower 20\nset paint.specularColor 0.9 0.8 0.7");
        ASSERT_TRUE(s.evaluate());
        EXPECT_FLOAT_EQ(shininessOf(s), 80.0f);
        TportColor c;
        ASSERT_TRUE(s.info->getSpecular(c));
        expectColour(c, {0.9f, 0.8f, 0.7f, 1.0f});
        // Above 32: the card's limit of 128.
        s.set("set paint.cosinePower 33");
        ASSERT_TRUE(s.evaluate());
        EXPECT_FLOAT_EQ(shininessOf(s), 128.0f);
    }
    {
        // eccentricity 0.5: 4 / 0.5 = 8; below 1/32: 128.
        Scene s("node blinn paint\nset paint.eccentricity 0.5");
        ASSERT_TRUE(s.evaluate());
        EXPECT_FLOAT_EQ(shininessOf(s), 8.0f);
        s.set("set paint.eccentricity 0");
        ASSERT_TRUE(s.evaluate());
        EXPECT_FLOAT_EQ(shininessOf(s), 128.0f);
    }
    {
        // A Lambert-family material of neither family: no highlight.
        Scene s("node phongE paint\nset paint.specularColor 1 1 1");
        ASSERT_TRUE(s.evaluate());
        EXPECT_FLOAT_EQ(shininessOf(s), 1.0f);
        TportColor c;
        ASSERT_TRUE(s.info->getSpecular(c));
        expectColour(c, {0, 0, 0, 1});
    }
}

TEST(MaterialInfo, AConnectedColourBecomesTheTexture) {
    Scene s("node checker tex\nnode lambert paint\nconnect tex.outColor paint.color\n"
            "set paint.diffuse 0.5");
    // The colour is connected: the named default stands in, times diffuse.
    ASSERT_TRUE(s.evaluate());
    const TportColor g = TmaterialInfo::kDarkGreen;
    expectColour(diffuseOf(s), {0.0f, g.g * 0.5f, 0.0f, 1.0f});
    ASSERT_NE(s.info->materialTexture(), nullptr);
    EXPECT_EQ(s.info->materialTexture()->plug().node(), s.g.findNode("tex"));
    EXPECT_EQ(s.info->materialTexture()->kind(), TmaterialTexture::kSwatch);

    // A textured draw takes the texture's colour, white, lit as it is.
    ASSERT_TRUE(s.info->setMaterial(s.object, false));
    expectColour(s.port.diffuseColor(), {1, 1, 1, 1});
    EXPECT_TRUE(s.port.depthWrite());
    EXPECT_FALSE(s.port.alphaBlend());

    // Breaking the connection drops the texture.
    s.set("disconnect tex.outColor paint.color");
    EXPECT_EQ(s.info->materialTexture(), nullptr);
}

TEST(MaterialInfo, SeeThroughDrawsBlendAndLeaveDepthAlone) {
    Scene s("node lambert paint\nset paint.color 1 0 0\nset paint.diffuse 1\n"
            "set paint.transparency 0.5 0.5 0.5");
    ASSERT_TRUE(s.evaluate());
    ASSERT_TRUE(s.info->setMaterial(s.object, true));
    EXPECT_TRUE(s.port.alphaBlend());
    EXPECT_FALSE(s.port.depthWrite());
    expectColour(s.port.diffuseColor(), {1, 0, 0, 0.5f});
    // X-ray draws everything at the port's x-ray alpha.
    s.port.setFlags(T3dPort::kXray);
    ASSERT_TRUE(s.info->setMaterial(s.object, false));
    EXPECT_FLOAT_EQ(s.port.diffuseColor().a, T3dPort::fsXrayAlpha);
    // A wireframe port draws no material.
    s.port.setFlags(T3dPort::kWireframe);
    EXPECT_FALSE(s.info->setMaterial(s.object, false));
}

TEST(MaterialInfo, LosingTheMaterialRestoresTheDefaults) {
    Scene s("node lambert paint\nset paint.color 1 0 0");
    ASSERT_TRUE(s.evaluate());
    s.set("disconnect paint.message " + std::string("materialInfo1.material"));
    EXPECT_EQ(s.info->material(), nullptr);
    EXPECT_FALSE(s.info->hasState(TmaterialInfo::kStale));
    EXPECT_FALSE(s.info->hasState(TmaterialInfo::kTextureable));
    // No material: nothing to read, and a draw says so.
    TportColor c;
    EXPECT_FALSE(s.info->getDiffuse(c));
    // A new surface material on the group is picked up.
    s.set("node blinn other\ndisconnect paint.outColor sg.surfaceShader\n"
          "connect other.outColor sg.surfaceShader");
    EXPECT_EQ(s.info->material(), s.g.findNode("other"));
}
