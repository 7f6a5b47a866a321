// The texture a material info shows: files drawn as they are (and shared),
// networks baked through the shading engine, and the listening that keeps
// a texture current without redoing work an edit does not call for.

#include <gtest/gtest.h>

#include <OpenImageIO/imageio.h>

#include <climits>
#include <sstream>

#include "host/draw/accessor.h"
#include "host/draw/port.h"
#include "host/graph.h"
#include "host/qsl/interpreter.h"
#include "host/scene/dag.h"
#include "shading/shading_engine.h"
#include "support/message_capture.h"
#include "support/temp_folder.h"
#include "viewport/material_info.h"
#include "viewport/material_texture.h"

namespace {

struct Scene {
    TdependGraph g;
    std::ostringstream out;
    T3dPort port{4, 4};
    TdagPath object;

    explicit Scene(const std::string& text) {
        qsl::Interpreter(g, out).runText(text, "scene.qsl");
        if (auto* m = dynamic_cast<TdagObject*>(g.findNode("m")))
            object = m->firstPath();
    }
    void run(const std::string& line) { qsl::Interpreter(g, out).runText(line, "edit.qsl"); }
    TmaterialInfo& info(const char* group) {
        auto* engine =
            static_cast<TDNshadingEngine*>(g.findNode(group)->cast(TDNshadingEngine::sTypeof()));
        return TmaterialInfo::ensureShadingEngineHasInfo(*engine);
    }
};

// A lambert on mesh m in group sg, its colour from `texture`.
std::string textured(const std::string& texture) {
    return texture +
           "\nnode lambert paint\nconnect tex.outColor paint.color\nnode shadingEngine sg\n"
           "connect paint.outColor sg.surfaceShader\nnode transform t\nnode mesh m -parent t\n"
           "member sg m\n";
}

// RGBA of pixel (x, y) of a map, y from the bottom.
std::array<int, 4> rgba(const TpixelMap& map, unsigned x, unsigned y) {
    const uint8_t* p = map.pixel(x, y);
    return {p[TpixelMap::kRed], p[TpixelMap::kGreen], p[TpixelMap::kBlue], p[TpixelMap::kAlpha]};
}

void writePng(const std::string& path, unsigned width, unsigned height,
              const std::vector<uint8_t>& rgbaTopDown) {
    auto out = OIIO::ImageOutput::create(path);
    ASSERT_TRUE(
        out && out->open(path, OIIO::ImageSpec(int(width), int(height), 4, OIIO::TypeDesc::UINT8)));
    ASSERT_TRUE(out->write_image(OIIO::TypeDesc::UINT8, rgbaTopDown.data()));
    out->close();
}

} // namespace

TEST(MaterialTexture, BakesANetworkAtPixelCentres) {
    // A checker of red and blue: colour1 where u and v lie on the same side
    // of 0.5, colour2 elsewhere.
    Scene s(textured("node checker tex\nset tex.color1 1 0 0\nset tex.color2 0 0 1"));
    const Tplug plug(s.g.findNode("tex"), s.g.findNode("tex")->findAttribute("outColor"));
    TpixelMap map;
    T2Float lo, hi;
    ASSERT_TRUE(TbaseAccessor::appConvertSolidTx({}, {}, plug, 4, 2, false, map, lo, hi));
    ASSERT_EQ(map.width(), 4u);
    ASSERT_EQ(map.height(), 2u);
    // Row 0 is v = 0.25: u = 0.125 and 0.375 red, 0.625 and 0.875 blue.
    EXPECT_EQ(rgba(map, 0, 0), (std::array<int, 4>{255, 0, 0, 255}));
    EXPECT_EQ(rgba(map, 1, 0), (std::array<int, 4>{255, 0, 0, 255}));
    EXPECT_EQ(rgba(map, 2, 0), (std::array<int, 4>{0, 0, 255, 255}));
    // Row 1 is v = 0.75: the other way round.
    EXPECT_EQ(rgba(map, 0, 1), (std::array<int, 4>{0, 0, 255, 255}));
    EXPECT_EQ(rgba(map, 3, 1), (std::array<int, 4>{255, 0, 0, 255}));
    // The bake leaves no shading group of its own behind.
    EXPECT_EQ(s.g.findNode("shadingEngine1"), nullptr);
}

TEST(MaterialTexture, AnUpstreamEditRebakesAndAnUnrelatedOneDoesNot) {
    Scene s(textured("node place2dTexture place\nnode checker tex\n"
                     "connect place.outUV tex.uvCoord\nset tex.color1 1 0 0\n"
                     "node lambert other\nset other.color 0 1 0"));
    TmaterialInfo& info = s.info("sg");
    TmaterialTexture* texture = info.materialTexture();
    ASSERT_NE(texture, nullptr);
    ASSERT_EQ(texture->kind(), TmaterialTexture::kSwatch);
    ASSERT_TRUE(texture->textureObject(s.port, s.object));
    EXPECT_EQ(texture->computeCount(), 1u);
    EXPECT_FALSE(texture->isDirty());
    // A second draw finds it current.
    texture->textureObject(s.port, s.object);
    EXPECT_EQ(texture->computeCount(), 1u);

    // A node the texture does not read: nothing to redo.
    s.run("set other.color 0 0 1");
    EXPECT_FALSE(texture->isDirty());
    texture->textureObject(s.port, s.object);
    EXPECT_EQ(texture->computeCount(), 1u);

    // The placement upstream of the checker: stale, and the next draw bakes.
    s.run("set place.repeatUV 4 4");
    EXPECT_TRUE(texture->isDirty());
    texture->textureObject(s.port, s.object);
    EXPECT_EQ(texture->computeCount(), 2u);
    // And the texture node itself.
    s.run("set tex.color2 0 1 0");
    EXPECT_TRUE(texture->isDirty());
    texture->textureObject(s.port, s.object);
    EXPECT_EQ(texture->computeCount(), 3u);
}

TEST(MaterialTexture, FilesAreDrawnDirectlyAndShared) {
    TempFolder folder;
    const std::string path = folder.file("tile.png");
    // 2 by 1: red with alpha 128, then opaque green.
    writePng(path, 2, 1, {255, 0, 0, 128, 0, 255, 0, 255});
    Scene s(textured("node file tex\nset tex.fileTextureName \"" + path + "\"") +
            "node lambert paint2\nconnect tex.outColor paint2.color\nnode shadingEngine sg2\n"
            "connect paint2.outColor sg2.surfaceShader\n");
    TmaterialTexture* first = s.info("sg").materialTexture();
    TmaterialTexture* second = s.info("sg2").materialTexture();
    ASSERT_TRUE(first && second);
    EXPECT_EQ(first->kind(), TmaterialTexture::kFile);
    const TsharedGlTextureObject a = first->textureObject(s.port, s.object);
    ASSERT_TRUE(a);
    EXPECT_EQ(a->width(), 2u);
    EXPECT_EQ(a->height(), 1u);
    // The second info showing the same file takes the first one's texture.
    EXPECT_EQ(second->textureObject(s.port, s.object), a);
    EXPECT_EQ(second->computeCount(), 0u);
    // Its alpha is not wanted (the transparency is not connected from the
    // file): the texture is drawn opaque, so the info's object is opaque.
    EXPECT_FALSE(s.info("sg").hasTransparency(&s.port, s.object, {}));

    // Placement edits change the texture matrix, not the image.
    s.run("set tex.repeatUV 2 4");
    EXPECT_FALSE(first->isDirty());
    float rotate, scaleU, scaleV, offsetU, offsetV, angle;
    first->getTextureTransform(s.object, rotate, scaleU, scaleV, offsetU, offsetV, angle);
    // coverage 1 over repeat: 1/2 and 1/4.
    EXPECT_FLOAT_EQ(scaleU, 0.5f);
    EXPECT_FLOAT_EQ(scaleV, 0.25f);

    // A coverage below 1 cannot be drawn as a plain texture: it is baked.
    s.run("set tex.coverage 0.5 1");
    first->textureObject(s.port, s.object);
    EXPECT_EQ(first->kind(), TmaterialTexture::kConvertSolid);
}

TEST(MaterialTexture, CycleSlotsCountFramesFromTheStartOfTheCycle) {
    bool inside = false;
    // Frames 1 to 10 by 3 hold 1, 4, 7 and 10 in slots 0 to 3.
    EXPECT_EQ(TmaterialTexture::cycleSlot(7, 1, 10, 3, inside), 2); // (7 - 1) / 3
    EXPECT_TRUE(inside);
    EXPECT_EQ(TmaterialTexture::cycleSlot(10, 1, 10, 3, inside), 3);
    EXPECT_EQ(TmaterialTexture::cycleSlot(3, 1, 10, 3, inside), 0); // 2 / 3 rounds down
    // An increment of 0 counts as 1: every frame its own slot.
    EXPECT_EQ(TmaterialTexture::cycleSlot(7, 1, 10, 0, inside), 6);
    EXPECT_EQ(TmaterialTexture::cycleSlot(10, 1, 10, 0, inside), 9);
    // Counting down: 10, 7, 4, 1.
    EXPECT_EQ(TmaterialTexture::cycleSlot(4, 10, 1, -3, inside), 2); // (4 - 10) / -3
    EXPECT_TRUE(inside);
    // The widest cycle 32 bits hold: 2^32 - 1 frames would not fit a slot
    // number, counted in 64 bits and held to the largest int.
    EXPECT_EQ(TmaterialTexture::cycleSlot(0, INT_MIN, INT_MAX, 1, inside), INT_MAX);
    EXPECT_EQ(TmaterialTexture::cycleSlot(-5, -9, 9, 2, inside), 2); // -4 / 2
    // Outside the cycle: no slot of its own, the first one.
    EXPECT_EQ(TmaterialTexture::cycleSlot(12, 1, 10, 3, inside), 0);
    EXPECT_FALSE(inside);
    EXPECT_EQ(TmaterialTexture::cycleSlot(0, 1, 10, 3, inside), 0);
    EXPECT_FALSE(inside);
}

TEST(MaterialTexture, UvTilesAreOneTextureEachInTheirOwnPlace) {
    TempFolder folder;
    const std::string red = folder.file("red.png"), blue = folder.file("blue.png"),
                      green = folder.file("green.png");
    writePng(red, 2, 2, std::vector<uint8_t>(16, 255));
    writePng(blue, 4, 2, std::vector<uint8_t>(32, 128));
    writePng(green, 1, 1, {0, 255, 0, 255});
    Scene s(textured("node file tex\nset tex.uvTilingMode \"Explicit Tiles\"\n"
                     "set tex.explicitUvTiles[0].explicitUvTileName \"" +
                     red +
                     "\"\n"
                     "set tex.explicitUvTiles[1].explicitUvTileName \"" +
                     blue +
                     "\"\n"
                     "set tex.explicitUvTiles[1].explicitUvTilePosition 1 0\n"));
    TmaterialTexture* texture = s.info("sg").materialTexture();
    ASSERT_TRUE(texture);
    ASSERT_EQ(texture->kind(), TmaterialTexture::kFile);
    TevaluateTextureInfo pieces;
    texture->textureObject(s.port, s.object, &pieces);
    EXPECT_TRUE(texture->tileSources());
    EXPECT_EQ(texture->tileCount(), 2);
    ASSERT_EQ(pieces.tileSources.size(), 2u);
    // Each tile's image in the place its entry gives.
    EXPECT_EQ(pieces.tileSources[0]->width(), 2u);
    EXPECT_EQ(pieces.tileSources[1]->width(), 4u);
    EXPECT_EQ(pieces.tilePositions[0], std::make_pair(0, 0));
    EXPECT_EQ(pieces.tilePositions[1], std::make_pair(1, 0));
    EXPECT_FALSE(texture->isDirty());
    // A texture in tiles is not shared as one image.
    EXPECT_EQ(texture->find(*texture, red), nullptr);

    // A third tile: the count changed, so the images are stale and read
    // again, three now.
    s.run("set tex.explicitUvTiles[2].explicitUvTileName \"" + green +
          "\"\nset tex.explicitUvTiles[2].explicitUvTilePosition 0 1\n");
    EXPECT_TRUE(texture->isDirty());
    const unsigned before = texture->computeCount();
    texture->textureObject(s.port, s.object, &pieces);
    EXPECT_EQ(texture->tileCount(), 3);
    EXPECT_EQ(texture->computeCount(), before + 3);
    ASSERT_EQ(pieces.tileSources.size(), 3u);
    EXPECT_EQ(pieces.tilePositions[2], std::make_pair(0, 1));
    // Drawn again with nothing changed: nothing is read.
    texture->textureObject(s.port, s.object, &pieces);
    EXPECT_EQ(texture->computeCount(), before + 3);
}

TEST(MaterialTexture, FilesAreReadIntoTheRenderingSpace) {
    TempFolder folder;
    const std::string path = folder.file("grey.png");
    // Two sRGB greys: 188 and 64.
    writePng(path, 2, 1, {188, 188, 188, 255, 64, 64, 64, 255});
    const auto texels = [](const TglTextureObject& t) {
        std::vector<uint8_t> rgba(size_t(t.width()) * t.height() * 4);
        glBindTexture(GL_TEXTURE_2D, t.name());
        glGetTexImage(GL_TEXTURE_2D, 0, GL_RGBA, GL_UNSIGNED_BYTE, rgba.data());
        return rgba;
    };
    {
        Scene s(textured("node file tex\nset tex.fileTextureName \"" + path + "\""));
        const TsharedGlTextureObject t =
            s.info("sg").materialTexture()->textureObject(s.port, s.object);
        ASSERT_TRUE(t);
        // The PNG rule reads 8-bit files as sRGB; the rendering space is
        // linear: ((188 / 255 + 0.055) / 1.055)^2.4 = 0.5029, 128 of 255,
        // and ((64 / 255 + 0.055) / 1.055)^2.4 = 0.0513, 13.
        const std::vector<uint8_t> rgba = texels(*t);
        EXPECT_EQ(rgba[0], 128);
        EXPECT_EQ(rgba[2], 128);
        EXPECT_EQ(rgba[4], 13);
    }
    {
        // Colour management off on the node: the bytes go in as they are.
        Scene s(textured("node file tex\nset tex.fileTextureName \"" + path +
                         "\"\nset tex.colorManagementEnabled false"));
        const TsharedGlTextureObject t =
            s.info("sg").materialTexture()->textureObject(s.port, s.object);
        ASSERT_TRUE(t);
        const std::vector<uint8_t> rgba = texels(*t);
        EXPECT_EQ(rgba[0], 188);
        EXPECT_EQ(rgba[4], 64);
    }
}

TEST(MaterialTexture, CyclingHoldsOneTextureAFrameOfTheCycle) {
    TempFolder folder;
    // Frames 1, 3 and 5 of a cycle from 1 to 5 by 2, told apart by width.
    writePng(folder.file("anim.1.png"), 1, 1, std::vector<uint8_t>(4, 255));
    writePng(folder.file("anim.3.png"), 3, 1, std::vector<uint8_t>(12, 255));
    writePng(folder.file("anim.5.png"), 5, 1, std::vector<uint8_t>(20, 255));
    Scene s(textured("node file tex\nset tex.fileTextureName \"" + folder.file("anim.1.png") +
                     "\"\nset tex.useFrameExtension true\nset tex.useHardwareTextureCycling true\n"
                     "set tex.startCycleExtension 1\nset tex.endCycleExtension 5\n"
                     "set tex.byCycleIncrement 2\nset tex.frameExtension 3\n"));
    TmaterialTexture* texture = s.info("sg").materialTexture();
    ASSERT_TRUE(texture);
    const TsharedGlTextureObject three = texture->textureObject(s.port, s.object);
    ASSERT_TRUE(three);
    EXPECT_TRUE(texture->hasState(TmaterialTexture::kCycling));
    EXPECT_EQ(three->width(), 3u); // slot (3 - 1) / 2 = 1: frame 2 x 1 + 1 = 3
    s.run("set tex.frameExtension 5");
    EXPECT_EQ(texture->textureObject(s.port, s.object)->width(), 5u);
    // Frame 4 shares slot (4 - 1) / 2 = 1 with frame 3: held, nothing read.
    s.run("set tex.frameExtension 4");
    EXPECT_EQ(texture->textureObject(s.port, s.object), three);
    EXPECT_EQ(texture->computeCount(), 2u);
    // Outside the cycle: the first slot, frame 1.
    s.run("set tex.frameExtension 9");
    EXPECT_EQ(texture->textureObject(s.port, s.object)->width(), 1u);
    EXPECT_EQ(texture->computeCount(), 3u);
    // A new range empties the slots: frame 3 by 1 from 3 is slot 0, read again.
    s.run("set tex.startCycleExtension 3\nset tex.byCycleIncrement 1\nset tex.frameExtension 3");
    const TsharedGlTextureObject again = texture->textureObject(s.port, s.object);
    EXPECT_NE(again, three);
    EXPECT_EQ(again->width(), 3u);
    EXPECT_EQ(texture->computeCount(), 4u);
}

TEST(MaterialTexture, TilesThatCannotBeFoundAreWarnedOfOnce) {
    TempFolder folder;
    orvo_test::MessageCapture messages;
    Scene s(textured("node file tex\nset tex.uvTilingMode \"UDIM (Mari)\"\n"
                     "set tex.fileTextureName \"" +
                     folder.file("none.1001.png") + "\""));
    TmaterialTexture* texture = s.info("sg").materialTexture();
    ASSERT_TRUE(texture);
    TevaluateTextureInfo pieces;
    EXPECT_EQ(texture->textureObject(s.port, s.object, &pieces), nullptr);
    EXPECT_FALSE(pieces.tiled());
    texture->textureObject(s.port, s.object, &pieces);
    ASSERT_EQ(messages.count(TcommandEngine::Severity::Warning), 1u);
    const std::string text = messages.messages()[0].second;
    EXPECT_NE(text.find("tex: no file found for '" + folder.file("none.1001.png")),
              std::string::npos)
        << text;
}
