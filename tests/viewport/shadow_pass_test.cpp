// The viewport's shadow pass: the depth texture a light's pass leaves for a
// scene of two squares, worked out from the light's box.

#include <gtest/gtest.h>

#include <GL/gl.h>

#include <sstream>

#include "host/draw/port.h"
#include "host/graph.h"
#include "host/qsl/interpreter.h"
#include "viewport/shadow_pass.h"

namespace {

// A horizontal square at height y over x in [x0, x1], z in [-1, 1].
void square(float y, float x0, float x1) {
    glBegin(GL_QUADS);
    glVertex3f(x0, y, -1);
    glVertex3f(x1, y, -1);
    glVertex3f(x1, y, 1);
    glVertex3f(x0, y, 1);
    glEnd();
}

} // namespace

TEST(ShadowPass, DepthTextureHoldsTheNearestSurfaceSeenFromTheLight) {
    TdependGraph g;
    std::ostringstream out;
    // A sun straight down (its -Z turned onto world -Y) with depth maps of
    // 32 texels, and a second one without: it casts no map.
    qsl::Interpreter(g, out).runText(
        "node transform sun\nset sun.rotate -90 0 0\n"
        "node directionalLight sunShape -parent sun\n"
        "set sunShape.useDepthMapShadows true\nset sunShape.dmapResolution 32\n"
        "node transform other\nnode directionalLight otherShape -parent other\n",
        "scene.qsl");
    T3dPort port(64, 64);
    TshadowPassProcess pass;
    // Mesa offers depth textures and their comparison.
    EXPECT_EQ(pass.checkExtensions(port), TshadowPassProcess::kSGIXshadows);

    // The scene in a sphere of radius 2 about the origin: the light sits 4
    // above it, its box 2 wide each way, from 2 to 6 along the light.
    pass.getAllShadowingLights(g, T4dDblMatrix::identity(), {0, 0, 0}, 2.0);
    ASSERT_EQ(pass.lights().size(), 1u);
    TlightInfoShadowPass& light = pass.lights()[0];
    pass.updateDepthMap(port, light, [] {
        square(1.0f, -1.0f, 1.0f);  // 3 from the light: depth (3 - 2) / 4 = 0.25
        square(-1.0f, -1.0f, 1.5f); // 5 from the light: 0.75 where the other leaves it
    });
    ASSERT_EQ(light.resolution, 32u);
    ASSERT_NE(light.depthTexture, 0u);

    std::vector<float> depth(32 * 32, -1.0f);
    glBindTexture(GL_TEXTURE_2D, light.depthTexture);
    glGetTexImage(GL_TEXTURE_2D, 0, GL_DEPTH_COMPONENT, GL_FLOAT, depth.data());
    // Texel column i covers x from -2 + i / 8 to -2 + (i + 1) / 8.
    const auto at = [&](unsigned i) {
        return depth[16 * 32 + i];
    };
    EXPECT_NEAR(at(16), 0.25f, 1e-3f); // x = 0.06: the upper square hides the lower
    EXPECT_NEAR(at(9), 0.25f, 1e-3f);  // x = -0.81
    EXPECT_NEAR(at(26), 0.75f, 1e-3f); // x = 1.31: only the lower square
    EXPECT_NEAR(at(2), 1.0f, 1e-3f);   // x = -1.69: nothing, the far end of the box
    EXPECT_NEAR(at(30), 1.0f, 1e-3f);  // x = 1.81
    // The light's clip space: the centre of the upper square at depth 0.25,
    // z from -1 (near) to 1 (far): -0.5.
    const T4dDblMatrix clip = TshadowPassProcess::computeProjectionMatrix(light);
    const T3dDblVector p = clip.transformPoint({0, 1, 0});
    EXPECT_NEAR(p.z, -0.5, 1e-9);
    EXPECT_NEAR(p.x, 0.0, 1e-9);
}

// A sun straight down -Z over a floor at z = -1 (x and y from -2 to 2),
// with a card at z = 1 over its quarter x in [-1, 0], y in [-1, 1]. The
// floor is drawn white and unlit through the pass's lookup, alpha tested at
// 0.5, seen straight down through a box 4 wide: 16 pixels a unit.
// Returns the red of pixel (x, y) in scene units.
struct LookupScene {
    std::vector<uint8_t> rgba;
    int at(float x, float y) const {
        const unsigned column = unsigned((x + 2.0f) * 16.0f), row = unsigned((2.0f - y) * 16.0f);
        return rgba[(row * 64 + column) * 4];
    }
};

static void quadAtZ(float z, float x0, float x1, float y0, float y1) {
    glBegin(GL_QUADS);
    glVertex3f(x0, y0, z);
    glVertex3f(x1, y0, z);
    glVertex3f(x1, y1, z);
    glVertex3f(x0, y1, z);
    glEnd();
}

static LookupScene drawThroughLookup(bool hideShadowExtensions,
                                     TshadowPassProcess::Path& pathTaken) {
    TdependGraph g;
    std::ostringstream out;
    qsl::Interpreter(g, out).runText("node transform sun\n"
                                     "node directionalLight sunShape -parent sun\n"
                                     "set sunShape.useDepthMapShadows true\n"
                                     "set sunShape.dmapResolution 64\n",
                                     "scene.qsl");
    T3dPort port(64, 64);
    if (hideShadowExtensions) {
        port.hideExtension("GL_ARB_shadow");
        port.hideExtension("GL_SGIX_shadow");
    }
    TshadowPassProcess pass;
    pathTaken = pass.checkExtensions(port);
    pass.getAllShadowingLights(g, T4dDblMatrix::identity(), {0, 0, 0}, 2.0);
    EXPECT_EQ(pass.lights().size(), 1u);
    LookupScene scene;
    if (pass.lights().size() != 1)
        return scene;
    TlightInfoShadowPass& light = pass.lights()[0];
    pass.updateDepthMap(port, light, [] {
        quadAtZ(1.0f, -1.0f, 0.0f, -1.0f, 1.0f);
        quadAtZ(-1.0f, -2.0f, 2.0f, -2.0f, 2.0f);
    });
    port.clear({0, 0, 0, 1});
    glMatrixMode(GL_PROJECTION);
    glLoadIdentity();
    glOrtho(-2, 2, -2, 2, -10, 10);
    glMatrixMode(GL_MODELVIEW);
    glLoadIdentity();
    glDisable(GL_LIGHTING);
    glColor4f(1, 1, 1, 1);
    pass.bindDMapTextures(light);
    pass.configTexgen(light);
    pass.configCombiners();
    glEnable(GL_ALPHA_TEST);
    glAlphaFunc(GL_GREATER, 0.5f);
    quadAtZ(-1.0f, -2.0f, 2.0f, -2.0f, 2.0f);
    glDisable(GL_ALPHA_TEST);
    pass.disableTexgen();
    pass.disableCombiners();
    scene.rgba = port.readPixels();
    return scene;
}

TEST(ShadowPass, BothLookupsTellTheShadowFromTheLight) {
    for (const bool hidden : {false, true}) {
        TshadowPassProcess::Path path = TshadowPassProcess::kNoShadows;
        const LookupScene s = drawThroughLookup(hidden, path);
        // Without the comparison extensions the pass falls to combiners.
        EXPECT_EQ(path, hidden ? TshadowPassProcess::kTextureCombiners
                               : TshadowPassProcess::kSGIXshadows);
        ASSERT_EQ(s.rgba.size(), 64u * 64u * 4u);
        EXPECT_EQ(s.at(-0.5f, 0.0f), 0) << hidden;    // under the card
        EXPECT_EQ(s.at(-0.9f, 0.9f), 0) << hidden;    // near its corner
        EXPECT_EQ(s.at(1.0f, 0.0f), 255) << hidden;   // beside it
        EXPECT_EQ(s.at(-1.5f, 0.0f), 255) << hidden;  // on its other side
        EXPECT_EQ(s.at(-0.5f, 1.5f), 255) << hidden;  // beyond its far edge
        EXPECT_EQ(s.at(-0.5f, -1.5f), 255) << hidden; // and its near edge
    }
}
