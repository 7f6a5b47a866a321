// The file texture: texels read exactly, frames and UV tiles, the filters
// on a small image worked out by hand, the BOT cache shared between nodes,
// and one warning per render for a file that is not there.

#include "textures/file_texture.h"

#include <gtest/gtest.h>

#include <OpenImageIO/imageio.h>

#include <cmath>
#include <thread>

#include "host/python.h"
#include "support/message_capture.h"
#include "support/temp_folder.h"
#include "textures/pyramid_inventory.h"
#include "textures/texture_test_support.h"

namespace {

using orvo_test::eval;
using orvo_test::set;

// sRGB's decoding curve, as the standard gives it.
double srgb(double byte) {
    const double c = byte / 255.0;
    return c <= 0.04045 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4);
}

// Writes an image, rows top first as files hold them.
template <class T>
void writeImage(const std::string& path, int w, int h, int channels, const std::vector<T>& px) {
    auto out = OIIO::ImageOutput::create(path);
    ASSERT_TRUE(out) << path;
    const OIIO::TypeDesc type =
        std::is_same_v<T, float> ? OIIO::TypeDesc::FLOAT : OIIO::TypeDesc::UINT8;
    ASSERT_TRUE(out->open(path, OIIO::ImageSpec(w, h, channels, type))) << path;
    ASSERT_TRUE(out->write_image(type, px.data()));
    out->close();
}

void solid(const std::string& path, uint8_t r, uint8_t g, uint8_t b) {
    writeImage<uint8_t>(path, 1, 1, 3, {r, g, b});
}

// A file node "t" with its coordinate and filter size set directly.
struct FileNode {
    TdependGraph g;
    TdnFileTexture* node = nullptr;

    FileNode() {
        node = static_cast<TdnFileTexture*>(g.createNode("file", "t"));
        set(g, "t.defaultColor", std::vector<double>{0.25, 0.5, 0.75});
    }
    void file(const std::string& name) {
        set(g, "t.fileTextureName", std::vector<std::string>{name});
    }
    std::vector<float> at(double u, double v, double size = 0.0) {
        set(g, "t.uvFilterSize", std::vector<double>{size, size});
        set(g, "t.uvCoord", std::vector<double>{u, v});
        std::vector<float> c = eval(g, "t.outColor");
        c.push_back(eval(g, "t.outAlpha").at(0));
        return c;
    }
};

void expectColour(const std::vector<float>& got, double r, double g, double b,
                  const std::string& what, double tolerance = 2e-6) {
    ASSERT_GE(got.size(), 3u) << what;
    EXPECT_NEAR(got[0], r, tolerance) << what << " red";
    EXPECT_NEAR(got[1], g, tolerance) << what << " green";
    EXPECT_NEAR(got[2], b, tolerance) << what << " blue";
}

} // namespace

TEST(FileTexture, TexelsAtTheirCentresWithTheFilterOff) {
    TempFolder dir;
    // 2 by 2, top row first in the file: red, green / blue, (128, 64, 0).
    const std::string png = dir.file("rgb.png");
    writeImage<uint8_t>(png, 2, 2, 3, {255, 0, 0, 0, 255, 0, 0, 0, 255, 128, 64, 0});
    FileNode f;
    f.file(png);
    set(f.g, "t.filterType", std::vector<std::string>{"Off"});
    // v = 0 is the image's bottom: the file's second row.
    expectColour(f.at(0.25, 0.25), 0, 0, 1, "bottom left is blue");
    // 128 -> ((128/255 + 0.055) / 1.055)^2.4 = 0.2158605; 64 -> 0.0512695.
    expectColour(f.at(0.75, 0.25), 0.2158605, 0.0512695, 0, "bottom right, decoded", 1e-6);
    expectColour(f.at(0.25, 0.75), 1, 0, 0, "top left is red");
    expectColour(f.at(0.7, 0.9), 0, 1, 0, "anywhere in the top right texel");
    EXPECT_FLOAT_EQ(f.at(0.75, 0.75).at(3), 1.0f) << "no alpha in the file: 1";
    EXPECT_EQ(eval(f.g, "t.outSize"), (std::vector<float>{2, 2}));
    EXPECT_EQ(f.g.evaluateToWords(f.g.findPlug("t.fileHasAlpha")),
              std::vector<std::string>{"false"});

    // With alpha: 128 of 255 is 0.5019608, the transparency its complement.
    const std::string rgba = dir.file("rgba.png");
    writeImage<uint8_t>(rgba, 1, 1, 4, {255, 255, 255, 128});
    f.file(rgba);
    EXPECT_NEAR(f.at(0.5, 0.5).at(3), 128.0 / 255.0, 1e-6);
    expectColour(eval(f.g, "t.outTransparency"), 1 - 128.0 / 255.0, 1 - 128.0 / 255.0,
                 1 - 128.0 / 255.0, "transparency", 1e-6);
    EXPECT_EQ(f.g.evaluateToWords(f.g.findPlug("t.fileHasAlpha")),
              std::vector<std::string>{"true"});

    // A float file is linear: read as it stands, then clamped by the default
    // HDR mapping; Linear with exposure 1 doubles it.
    const std::string exr = dir.file("hdr.exr");
    writeImage<float>(exr, 1, 1, 3, {2.0f, 0.5f, 0.25f});
    f.file(exr);
    expectColour(f.at(0.5, 0.5), 1.0, 0.5, 0.25, "clamped");
    set(f.g, "t.hdrMapping", std::vector<std::string>{"Linear"});
    set(f.g, "t.exposure", std::vector<double>{1.0});
    expectColour(f.at(0.5, 0.5), 4.0, 1.0, 0.5, "linear, exposure 1");
}

TEST(FileTexture, FramesAndUvTiles) {
    TempFolder dir;
    solid(dir.file("anim.3.png"), 255, 0, 0);
    solid(dir.file("anim.4.png"), 0, 255, 0);
    FileNode f;
    f.file(dir.file("anim.1.png"));
    set(f.g, "t.useFrameExtension", std::vector<std::string>{"true"});
    // Frame 3 + offset 1 = 4: green.
    set(f.g, "t.frameExtension", std::vector<double>{3});
    set(f.g, "t.frameOffset", std::vector<double>{1});
    expectColour(f.at(0.5, 0.5), 0, 1, 0, "frame 4");
    set(f.g, "t.frameOffset", std::vector<double>{0});
    expectColour(f.at(0.5, 0.5), 1, 0, 0, "frame 3");
    // In a render, a hook that sets the next frame between frames is heard.
    f.node->incrementReferenceCount(nullptr);
    expectColour(f.at(0.5, 0.5), 1, 0, 0, "frame 3, rendering");
    set(f.g, "t.frameExtension", std::vector<double>{4});
    expectColour(f.at(0.5, 0.5), 0, 1, 0, "frame 4, rendering");
    f.node->decrementReferenceCount();
    // A padded name keeps its padding.
    solid(dir.file("pad.0012.png"), 0, 0, 255);
    f.file(dir.file("pad.0001.png"));
    set(f.g, "t.frameExtension", std::vector<double>{12});
    expectColour(f.at(0.5, 0.5), 0, 0, 1, "frame 12 as 0012");

    // UDIM: 1001 + u + 10 v.
    solid(dir.file("u.1001.png"), 255, 0, 0);
    solid(dir.file("u.1002.png"), 0, 255, 0);
    solid(dir.file("u.1011.png"), 0, 0, 255);
    FileNode t;
    t.file(dir.file("u.1002.png")); // any tile names the set
    set(t.g, "t.uvTilingMode", std::vector<std::string>{"UDIM (Mari)"});
    expectColour(t.at(0.5, 0.5), 1, 0, 0, "1001");
    expectColour(t.at(1.5, 0.5), 0, 1, 0, "1002");
    expectColour(t.at(0.5, 1.5), 0, 0, 1, "1011");
    expectColour(t.at(1.5, 1.5), 0.25, 0.5, 0.75, "no 1012: the default colour");
    expectColour(t.at(-0.5, 0.5), 0.25, 0.5, 0.75, "left of every tile");

    // 0-based and 1-based tags: u1_v1 is the first tile of the 1-based set.
    solid(dir.file("z_u0_v0.png"), 255, 0, 0);
    solid(dir.file("z_u1_v0.png"), 0, 255, 0);
    solid(dir.file("o_u1_v1.png"), 0, 0, 255);
    solid(dir.file("o_u1_v2.png"), 255, 255, 0);
    FileNode z;
    z.file(dir.file("z_u0_v0.png"));
    set(z.g, "t.uvTilingMode", std::vector<double>{1});
    expectColour(z.at(1.25, 0.75), 0, 1, 0, "u1 v0");
    z.file(dir.file("o_u1_v1.png"));
    set(z.g, "t.uvTilingMode", std::vector<double>{2});
    expectColour(z.at(0.5, 0.5), 0, 0, 1, "1-based first tile");
    expectColour(z.at(0.5, 1.5), 1, 1, 0, "1-based u1 v2");

    // Explicit tiles: the base file at the base position, the others where
    // they are put.
    FileNode e;
    e.file(dir.file("u.1001.png"));
    set(e.g, "t.uvTilingMode", std::vector<std::string>{"Explicit Tiles"});
    set(e.g, "t.baseExplicitUvTilePosition", std::vector<double>{2, 0});
    set(e.g, "t.explicitUvTiles[0].explicitUvTileName",
        std::vector<std::string>{dir.file("u.1011.png")});
    set(e.g, "t.explicitUvTiles[0].explicitUvTilePosition", std::vector<double>{5, 3});
    expectColour(e.at(2.5, 0.5), 1, 0, 0, "base tile at (2, 0)");
    expectColour(e.at(5.5, 3.5), 0, 0, 1, "explicit tile at (5, 3)");
    expectColour(e.at(0.5, 0.5), 0.25, 0.5, 0.75, "nothing at (0, 0)");
}

TEST(FileTexture, FiltersOnAFourByFourImage) {
    TempFolder dir;
    // Grey texel (x, y), y from the bottom: 16 x + 64 y.
    std::vector<uint8_t> px;
    for (int row = 0; row < 4; ++row)
        for (int x = 0; x < 4; ++x)
            px.push_back(uint8_t(16 * x + 64 * (3 - row)));
    const std::string png = dir.file("ramp.png");
    writeImage<uint8_t>(png, 4, 4, 1, px);
    FileNode f;
    f.file(png);
    // Footprint = 0.5 (filter size) * 1 (filter) * 1 (filterWidth) = 0.5 in UV.
    set(f.g, "t.filterWidth", std::vector<double>{1.0});
    auto filter = [&](const char* type, double u, double v, double size = 0.5) {
        set(f.g, "t.filterType", std::vector<std::string>{type});
        return f.at(u, v, size).at(0);
    };
    // Box: half the footprint to each side, 1 texel. At u = v = 0.5 (texel
    // 1.5) it covers texels 1 and 2 whole: mean 16 * 1.5 + 64 * 1.5 = 120.
    EXPECT_NEAR(filter("Box", 0.5, 0.5), srgb(120), 1e-5);
    // At u = 0.375 (texel 1.0): [0, 2] covers half of 0, all of 1, half of
    // 2: x mean (0 * .5 + 1 + 2 * .5) / 2 = 1 -> 16 + 96 = 112.
    EXPECT_NEAR(filter("Box", 0.375, 0.5), srgb(112), 1e-5);
    // At u = 0.0625 (texel -0.25): [-1.25, 0.75] covers .75 of texel -1,
    // texel 0, .25 of texel 1. Wrapped, -1 is 3: (3 * .75 + 1 * .25) / 2 =
    // 1.25 -> 20 + 96 = 116; clamped, -1 is 0: .25 / 2 = .125 -> 2 + 96 = 98.
    EXPECT_NEAR(filter("Box", 0.0625, 0.5), srgb(116), 1e-5);
    set(f.g, "t.wrapU", std::vector<std::string>{"false"});
    EXPECT_NEAR(filter("Box", 0.0625, 0.5), srgb(98), 1e-5);
    set(f.g, "t.wrapU", std::vector<std::string>{"true"});

    // Quadratic: 1 - t^2 over a whole footprint (2 texels) to each side. At
    // u = 0.4375 (texel 1.25) texels 0..3 lie .625, .125, .375, .875 radii
    // away: weights .609375, .984375, .859375, .234375 (sum 2.6875), x mean
    // (0.984375 + 1.71875 + 0.703125) / 2.6875 = 1.2674419 -> 20.27907; v at
    // the centre gives 96.
    EXPECT_NEAR(filter("Quadratic", 0.4375, 0.5), srgb(116.27907), 1e-5);
    // Quartic at the same place: (1 - t^2)^2 = .371338, .968994, .738525,
    // .054932 (sum 2.133789): x mean (0.968994 + 1.47705 + 0.164795) /
    // 2.133789 = 1.2235698 -> 19.577117.
    EXPECT_NEAR(filter("Quartic", 0.4375, 0.5), srgb(115.577117), 1e-4);
    // Gaussian, exp(-4.5 t^2): .172422, .932102, .531096, .031895 (sum
    // 1.667515): x mean (0.932102 + 1.062192 + 0.095685) / 1.667515 =
    // 1.2533494 -> 20.053591.
    EXPECT_NEAR(filter("Gaussian", 0.4375, 0.5), srgb(116.053591), 1e-4);

    // Mipmap with a footprint of the whole texture reads level 0, the
    // average by fours: level 1 is 40, 72, 168, 200, level 0 (480 + 2) >> 2 =
    // 120.
    EXPECT_NEAR(filter("Mipmap", 0.3, 0.8, 1.0), srgb(120), 1e-5);
    // Off reads the top level's texel whatever the footprint: texel (2, 1)
    // is 32 + 64 = 96.
    EXPECT_NEAR(filter("Off", 0.625, 0.375, 1.0), srgb(96), 1e-6);

    // preFilter, radius 1: a Gaussian of deviation 0.5 over one texel each
    // side, weights e^-2 = 0.135335 : 1 : 0.135335, normalised 0.106507 :
    // 0.786986 : 0.106507. On a row 0, 0, 255, 0 texel 1 becomes 255 *
    // 0.106507 = 27.16 -> 27, texel 2 255 * 0.786986 = 200.68 -> 201; the
    // single row stays as it is down the columns.
    const std::string row = dir.file("row.png");
    writeImage<uint8_t>(row, 4, 1, 1, {0, 0, 255, 0});
    FileNode p;
    p.file(row);
    set(p.g, "t.filterType", std::vector<std::string>{"Off"});
    set(p.g, "t.preFilter", std::vector<std::string>{"true"});
    set(p.g, "t.preFilterRadius", std::vector<double>{1.0});
    EXPECT_NEAR(p.at(0.375, 0.5).at(0), srgb(27), 1e-6);
    EXPECT_NEAR(p.at(0.625, 0.5).at(0), srgb(201), 1e-6);
}

TEST(FileTexture, MissingFileWarnsOncePerRenderAcrossThreads) {
    orvo_test::MessageCapture capture;
    FileNode f;
    f.file("/nonexistent/orvo/missing.png");
    auto render = [&] {
        f.node->shadingNodeInit(nullptr);
        // Each thread shades batches of 64 in a block of its own, as render
        // threads do.
        auto batches = [&] {
            TordinaryDataBlock block(f.node, 64);
            for (unsigned i = 0; i < 64; ++i) {
                auto* uv = static_cast<float*>(block.valueAddress(TdnTx2D::aUvCoord, i));
                uv[0] = uv[1] = 0.5f;
            }
            const Tplug plug(f.node, &TdnTx2D::aOutColor);
            for (int batch = 0; batch < 50; ++batch) {
                f.node->vectorComputePlug(plug, block, 0, 64);
                const auto* c =
                    static_cast<const float*>(block.valueAddress(TdnTx2D::aOutColor, 63));
                // A fresh block holds the attribute's default, 0.5 grey.
                EXPECT_EQ(c[2], 0.5f) << "the default colour";
            }
        };
        std::thread a(batches), b(batches);
        a.join();
        b.join();
    };
    render();
    ASSERT_EQ(capture.count(TcommandEngine::Severity::Warning), 1u) << capture.text();
    EXPECT_TRUE(capture.contains("t")) << capture.text();
    EXPECT_TRUE(capture.contains("/nonexistent/orvo/missing.png")) << capture.text();
    render();
    EXPECT_EQ(capture.count(TcommandEngine::Severity::Warning), 2u) << "once more, next render";

    // Loading disabled: no warning, the default colour.
    capture.clear();
    TdnFileTexture::disableFileTextureLoad();
    f.node->shadingNodeInit(nullptr);
    expectColour(f.at(0.5, 0.5), 0.25, 0.5, 0.75, "load disabled");
    TdnFileTexture::enableFileTextureLoad();
    EXPECT_EQ(capture.count(TcommandEngine::Severity::Warning), 0u) << capture.text();

    // A Ptex name has its own warning.
    f.file("/nonexistent/orvo/head.ptx");
    expectColour(f.at(0.5, 0.5), 0.25, 0.5, 0.75, "ptex");
    EXPECT_EQ(capture.count(TcommandEngine::Severity::Warning), 1u);
    EXPECT_TRUE(capture.contains("Ptex")) << capture.text();
}

TEST(FileTexture, CachedNodesOnOneFileShareOneBotFile) {
    TempFolder dir;
    const std::string png = dir.file("shared.png");
    writeImage<uint8_t>(png, 2, 1, 3, {10, 20, 30, 200, 100, 50});
    TdependGraph g;
    auto* a = static_cast<TdnFileTexture*>(g.createNode("file", "a"));
    auto* b = static_cast<TdnFileTexture*>(g.createNode("file", "b"));
    for (const char* n : {"a", "b"}) {
        set(g, std::string(n) + ".fileTextureName", std::vector<std::string>{png});
        set(g, std::string(n) + ".useCache", std::vector<std::string>{"true"});
        set(g, std::string(n) + ".filterType", std::vector<std::string>{"Off"});
    }
    const size_t before = TpyramidInventory::count(false);
    Tpyramid* pa = a->currentPyramid();
    Tpyramid* pb = b->currentPyramid();
    ASSERT_NE(pa, nullptr);
    EXPECT_EQ(pa, pb) << "one pyramid for the file";
    EXPECT_TRUE(pa->isBOT()) << "moved to a block ordered file";
    EXPECT_EQ(TpyramidInventory::count(false), before + 1);
    // Read back through the block cache: texel (1, 0) is (200, 100, 50).
    set(g, "b.uvCoord", std::vector<double>{0.75, 0.5});
    expectColour(eval(g, "b.outColor"), srgb(200), srgb(100), srgb(50), "from the BOT", 1e-6);

    // disableFileLoad: a node takes the pyramid another has loaded, and
    // reads nothing itself, quietly.
    orvo_test::MessageCapture capture;
    const std::string other = dir.file("other.png");
    writeImage<uint8_t>(other, 1, 1, 3, {1, 2, 3});
    auto* c = static_cast<TdnFileTexture*>(g.createNode("file", "c"));
    auto* d = static_cast<TdnFileTexture*>(g.createNode("file", "d"));
    set(g, "c.fileTextureName", std::vector<std::string>{png});
    set(g, "d.fileTextureName", std::vector<std::string>{other});
    for (const char* n : {"c", "d"})
        set(g, std::string(n) + ".disableFileLoad", std::vector<std::string>{"true"});
    EXPECT_EQ(c->currentPyramid(), pa);
    EXPECT_EQ(d->currentPyramid(), nullptr);
    EXPECT_EQ(TpyramidInventory::count(false), before + 1);
    EXPECT_EQ(capture.count(TcommandEngine::Severity::Warning), 0u) << capture.text();
    TpyramidInventory::unregisterPyramid(pa);
}

TEST(FileTexture, NameResolverScript) {
    Tstring error;
    const Tstring module = "orvo.app.general.fileTexturePathResolver";
    auto pattern = [&](const char* name, bool frames, int mode) {
        const auto r =
            TpythonInterpreter::call(module, "getFilePatternString", {name, frames, mode}, &error);
        return r && r->asString() ? *r->asString() : "error: " + error;
    };
    EXPECT_EQ(pattern("/a/wood.1013.png", false, 3), "/a/wood.<UDIM>.png");
    EXPECT_EQ(pattern("/a/wood.1013.0042.exr", true, 3), "/a/wood.<UDIM>.<f4>.exr");
    EXPECT_EQ(pattern("/a/skin_u2_v0.tif", false, 1), "/a/skin_u<u>_v<v>.tif");
    EXPECT_EQ(pattern("/a/skin_u2_v1.tif", false, 2), "/a/skin_u<U>_v<V>.tif");
    EXPECT_EQ(pattern("/a/clip.7.png", true, 0), "/a/clip.<f>.png");
    EXPECT_EQ(pattern("/a/clip.png", true, 0), "/a/clip.<f>.png");
    // 1012 is u 1, v 1; 1-based u3 v2 is (2, 1).
    const auto uv = TpythonInterpreter::call(
        module, "computeUVForFiles",
        {TpythonValue::List{"/a/w.1012.png", "/a/w.1001.png"}, "/a/w.<UDIM>.png"}, &error);
    ASSERT_TRUE(uv && uv->asList()) << error;
    ASSERT_EQ(uv->asList()->size(), 2u);
    const auto& first = *(*uv->asList())[0].asList();
    EXPECT_EQ(first[0].asNumber(), 1.0);
    EXPECT_EQ(first[1].asNumber(), 1.0);
    const auto one =
        TpythonInterpreter::call(module, "computeUVForFiles",
                                 {TpythonValue::List{"s_u3_v2.png"}, "s_u<U>_v<V>.png"}, &error);
    ASSERT_TRUE(one && one->asList()) << error;
    EXPECT_EQ((*(*one->asList())[0].asList())[0].asNumber(), 2.0);
    EXPECT_EQ((*(*one->asList())[0].asList())[1].asNumber(), 1.0);
}
