#include <gtest/gtest.h>

#include <GL/gl.h>

#include "host/draw/port.h"
#include "host/draw/texture_object.h"
#include "host/pixel_map.h"

// The offscreen port draws with real fixed-function GL: these draw small
// pictures and check the bytes read back against values worked out from
// the lighting equation.

namespace {

// RGBA of pixel (x, y), y from the top.
std::array<int, 4> at(const std::vector<uint8_t>& rgba, unsigned width, unsigned x, unsigned y) {
    const uint8_t* p = &rgba[(size_t(y) * width + x) * 4];
    return {p[0], p[1], p[2], p[3]};
}

void expectNear(const std::array<int, 4>& got, const std::array<int, 4>& want) {
    for (int c = 0; c < 4; ++c)
        EXPECT_NEAR(got[c], want[c], 1) << "channel " << c;
}

// An orthographic view of [-1, 1] square, and a quad over x in [x0, x1].
void quad(float x0, float x1, bool texture = false) {
    glMatrixMode(GL_PROJECTION);
    glLoadIdentity();
    glOrtho(-1, 1, -1, 1, -1, 1);
    glMatrixMode(GL_MODELVIEW);
    glLoadIdentity();
    glBegin(GL_QUADS);
    glNormal3f(0, 0, 1);
    if (texture)
        glTexCoord2f(0, 0);
    glVertex3f(x0, -1, 0);
    if (texture)
        glTexCoord2f(1, 0);
    glVertex3f(x1, -1, 0);
    if (texture)
        glTexCoord2f(1, 1);
    glVertex3f(x1, 1, 0);
    if (texture)
        glTexCoord2f(0, 1);
    glVertex3f(x0, 1, 0);
    glEnd();
}

} // namespace

TEST(Port, ClearsAndDrawsUnlitColour) {
    T3dPort port(4, 4);
    EXPECT_TRUE(port.isCurrent());
    port.clear({0.2f, 0.4f, 0.6f, 1.0f});
    port.setCurrentColor({1.0f, 0.0f, 0.0f, 1.0f});
    quad(-1, 0); // the left half
    const auto rgba = port.readPixels();
    ASSERT_EQ(rgba.size(), 64u);
    // 0.2, 0.4, 0.6 of 255.
    expectNear(at(rgba, 4, 3, 0), {51, 102, 153, 255});
    expectNear(at(rgba, 4, 0, 3), {255, 0, 0, 255});
    expectNear(at(rgba, 4, 1, 1), {255, 0, 0, 255});
    expectNear(at(rgba, 4, 2, 1), {51, 102, 153, 255});

    // Whole extension names only.
    EXPECT_FALSE(port.hasExtension("GL_ARB"));
    EXPECT_FALSE(port.hasExtension(""));
}

TEST(Port, MaterialColoursFollowTheLightingEquation) {
    T3dPort port(2, 2);
    port.clear({0, 0, 0, 1});
    // One white light straight down the view axis, no global ambient.
    glEnable(GL_LIGHTING);
    glEnable(GL_LIGHT0);
    const GLfloat direction[4] = {0, 0, 1, 0};
    const GLfloat white[4] = {1, 1, 1, 1};
    const GLfloat none[4] = {0, 0, 0, 1};
    glLightfv(GL_LIGHT0, GL_POSITION, direction);
    glLightfv(GL_LIGHT0, GL_DIFFUSE, white);
    glLightfv(GL_LIGHT0, GL_SPECULAR, white);
    glLightModelfv(GL_LIGHT_MODEL_AMBIENT, none);

    port.setAmbientColor({0, 0, 0, 1});
    port.setDiffuseColor({0.5f, 0.25f, 1.0f, 1.0f});
    port.setEmissionColor({0.1f, 0.0f, 0.0f, 1.0f});
    port.setSpecularColor({0.25f, 0.0f, 0.0f, 1.0f});
    port.setShininess(10.0f);
    quad(-1, 1);
    // Normal, light and half vector all along z: N.L = N.H = 1, so
    // red = 0.1 emission + 0.5 diffuse + 0.25 specular = 0.85 -> 216.75,
    // green 0.25 -> 63.75, blue 1 -> 255.
    expectNear(at(port.readPixels(), 2, 0, 0), {217, 64, 255, 255});
    EXPECT_EQ(port.diffuseColor(), (TportColor{0.5f, 0.25f, 1.0f, 1.0f}));
}

TEST(Port, BlendsWithSourceAlpha) {
    T3dPort port(2, 2);
    port.clear({0, 0, 1, 1});
    port.setAlphaBlend(true);
    port.setCurrentColor({1, 0, 0, 0.25f});
    quad(-1, 1);
    // 0.25 red over blue: red 0.25 -> 63.75, blue 0.75 -> 191.25; alpha
    // blends alike, 0.25 * 0.25 + 0.75 * 1 = 0.8125 -> 207.19.
    expectNear(at(port.readPixels(), 2, 1, 1), {64, 0, 191, 207});
}

TEST(TextureObject, UploadsPixelMapsBottomRowFirst) {
    T3dPort port(4, 4);
    port.clear({0, 0, 0, 1});
    // Bottom row red, green; top row blue, white.
    TpixelMap map(2, 2, 3);
    map.setRGBA(0, 0, 255, 0, 0, 255);
    map.setRGBA(1, 0, 0, 255, 0, 255);
    map.setRGBA(0, 1, 0, 0, 255, 255);
    map.setRGBA(1, 1, 255, 255, 255, 255);
    TglTextureObject texture;
    texture.texImage2D(port, map);
    ASSERT_TRUE(texture.loaded());
    EXPECT_EQ(texture.format(), 3u);
    texture.setFilter(true, GL_NEAREST, GL_NEAREST);
    ASSERT_TRUE(texture.apply());
    port.setCurrentColor({1, 1, 1, 1});
    quad(-1, 1, true);
    const auto rgba = port.readPixels();
    // Read top-down: the top-left quarter is the map's top-left pixel.
    expectNear(at(rgba, 4, 0, 0), {0, 0, 255, 255});
    expectNear(at(rgba, 4, 3, 0), {255, 255, 255, 255});
    expectNear(at(rgba, 4, 0, 3), {255, 0, 0, 255});
    expectNear(at(rgba, 4, 3, 3), {0, 255, 0, 255});
}

TEST(TextureObject, ScalesDownToItsLimitAndOutlivesItsPort) {
    TglTextureObject texture;
    {
        T3dPort port(2, 2);
        TpixelMap map(8, 6, 4);
        std::fill_n(map.data(), 8 * 6 * 4, uint8_t(128));
        texture.setSizeLimit(4);
        texture.texImage2D(port, map);
        // Halved once: 4 by 3.
        EXPECT_EQ(texture.width(), 4u);
        EXPECT_EQ(texture.height(), 3u);
        EXPECT_EQ(texture.format(), 4u);
    }
    // The context went with the port: nothing left to bind or free.
    EXPECT_FALSE(texture.apply());
}
