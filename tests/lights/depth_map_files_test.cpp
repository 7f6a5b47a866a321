// Depth files of a light's maps, their names, and a directional light
// shadowing through a map.

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <bit>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "host/app_mode.h"
#include "host/iff/iff_image_file.h"
#include "host/messages.h"
#include "lights/directional_light.h"
#include "lights/light_test_support.h"
#include "lights/shadow_map_support.h"
#include "support/temp_folder.h"

namespace fs = std::filesystem;

namespace {

using orvo_test::Batch;
using orvo_test::LightRig;
using orvo_test::MapRig;

class Messages {
public:
    Messages() {
        fPrevious =
            TcommandEngine::setSink([this](TcommandEngine::Severity s, const std::string& text) {
                if (s != TcommandEngine::Severity::Info)
                    fTexts.push_back(text);
            });
    }
    ~Messages() { TcommandEngine::setSink(fPrevious); }
    const std::vector<std::string>& texts() const { return fTexts; }

private:
    TcommandEngine::Sink fPrevious;
    std::vector<std::string> fTexts;
};

class DepthMapFiles : public ::testing::Test {
protected:
    std::string path(const std::string& name) const { return fDir.file(name); }

    // An orthographic map 4 x 4 whose buffers are `first` (and `mid`),
    // ready to be written or read into.
    static std::unique_ptr<TuseShadowMap> orthoMap(int size, float first, float mid) {
        auto map = std::make_unique<TuseShadowMap>(T3dFltPoint{0, 0, 0}, false, 0, mid != 0.0f);
        map->setFaceCamera(0, T4dFltMatrix(), orvo_test::scaleXY(0.5f, 0.5f));
        map->setDepthBuffers(
            0, size, size,
            orvo_test::depthBuffer(size, size, [&](int x, int) { return x ? first : 0.0f; }),
            mid != 0.0f ? orvo_test::depthBuffer(size, size, [&](int, int) { return mid; })
                        : nullptr);
        return map;
    }
    TdepthMapFiles files(const std::string& name) const {
        TdepthMapFiles f;
        f.directory = fDir.path.string() + "/";
        f.maps[0] = path(name + ".iff");
        f.mids[0] = path(name + "_mid.iff");
        return f;
    }

    TempFolder fDir{"orvo-dmaps"};
};

TEST_F(DepthMapFiles, AMapWrittenReadsBackAsItWas) {
    // Depths that are powers of two turn into 1/z and back exactly.
    auto written = orthoMap(4, 8.0f, 16.0f);
    ASSERT_EQ(written->writeZmap(0, path("m.iff"), path("m_mid.iff")), 0);
    auto read = orthoMap(4, 0.0f, 1.0f);
    read->setDepthBuffers(0, 4, 4, nullptr, nullptr);
    Messages messages;
    EXPECT_EQ(read->readZmap(0, true, "sun", "", files("m"), 4, 4), 1);
    EXPECT_TRUE(messages.texts().empty());
    EXPECT_EQ(read->loadedMapCount(), 2);
    for (int i = 0; i < 16; ++i) {
        EXPECT_EQ(read->depthBuffer(0)[i], i % 4 ? 8.0f : 0.0f) << i;
        EXPECT_EQ(read->midBuffer(0)[i], 16.0f) << i;
    }
    // The file holds 1/z: -1/8 in the camera looking down -Z.
    TiffImageFile file;
    ASSERT_EQ(file.open(path("m.iff"), "r"), 0);
    float texels[16];
    ASSERT_EQ(file.readDepth(texels), 0);
    EXPECT_EQ(texels[1], -0.125f);
    EXPECT_EQ(std::bit_cast<uint32_t>(texels[0]), 0u);
}

TEST_F(DepthMapFiles, BadMissingAndOtherSizedFiles) {
    auto map = orthoMap(4, 0.0f, 0.0f);
    map->setDepthBuffers(0, 4, 4, nullptr, nullptr);
    {
        // No file: nothing to say, the caller renders.
        Messages messages;
        EXPECT_EQ(map->readZmap(0, true, "sun", "", files("none"), 4, 4), 0);
        EXPECT_TRUE(messages.texts().empty());
    }
    {
        // A damaged file: one warning that names it; the light goes without.
        std::ofstream(path("bad.iff")) << "FOR4 not really";
        Messages messages;
        EXPECT_EQ(map->readZmap(0, true, "sun", "", files("bad"), 4, 4), -1);
        ASSERT_EQ(messages.texts().size(), 1u);
        EXPECT_NE(messages.texts()[0].find(path("bad.iff")), std::string::npos);
        EXPECT_EQ(map->depthBuffer(0), nullptr);
    }
    {
        // Another size, with no buffer rendered: adopted, with a warning.
        ASSERT_EQ(orthoMap(2, 4.0f, 0.0f)->writeZmap(0, path("small.iff"), ""), 0);
        Messages messages;
        EXPECT_EQ(map->readZmap(0, true, "sun", "", files("small"), 4, 4), 1);
        ASSERT_EQ(messages.texts().size(), 1u);
        EXPECT_NE(messages.texts()[0].find("2 x 2"), std::string::npos) << messages.texts()[0];
        EXPECT_EQ(map->bufferWidth(0), 2);
    }
}

TEST_F(DepthMapFiles, AReadCallbackRunsFirstAndAFailingOneIsAnError) {
    const std::string script = path("fetch.sh");
    std::ofstream(script) << "#!/bin/sh\necho \"$@\" > " << path("args.txt")
                          << "\n[ \"$1\" != \"mapname=fail\" ]\n";
    ::chmod(script.c_str(), 0755);
    auto map = orthoMap(4, 0.0f, 0.0f);
    map->setDepthBuffers(0, 4, 4, nullptr, nullptr);
    TdepthMapFiles f;
    f.directory = "maps/";
    f.maps[0] = "it's.iff";
    f.mids[0] = "mid.iff";
    f.currentExtension = f.readExtension = ".7";
    f.lastWrittenExtension = ".6";
    Messages messages;
    EXPECT_EQ(map->readZmap(0, true, "sun", script, f, 4, 4), 0); // ran; no file after it
    std::ifstream args(path("args.txt"));
    std::string line;
    std::getline(args, line);
    EXPECT_EQ(line, "mapname=it's.iff middistmapname=mid.iff lightname=sun pathname=maps/ "
                    "curranimextname=.7 readanimextname=.7 lastdumpanimextname=.6 0");
    f.maps[0] = "fail";
    EXPECT_EQ(map->readZmap(0, true, "sun", script, f, 4, 4), -1);
    EXPECT_NE(messages.texts().back().find("failed with status 1"), std::string::npos)
        << messages.texts().back();
}

TEST_F(DepthMapFiles, AFileFromALightThatMovedIsConvertedIntoTheMapsView) {
    // The file's camera stood 0.5 further back along its axis (world z = 0.5
    // where this map's is 0): a texel that saw depth 3 there sees 2.5 here.
    T4dFltMatrix fileCamera;
    fileCamera.m[3][2] = -0.5f;
    const float in[4] = {0.0f, -1.0f / 3.0f, 0.0f, 0.0f};
    float out[4];
    TuseShadowMap ortho({0, 0, 0}, false, 0, false);
    ASSERT_TRUE(ortho.iffBufferToZbuffer(2, 2, fileCamera, T4dFltMatrix(), in, out));
    EXPECT_FLOAT_EQ(out[1], 2.5f);
    EXPECT_EQ(out[0], 0.0f);
    // Perspective, on the axis (texel (1, 1) of 2 x 2 is the centre): 1/z
    // = 1/2.5.
    const float centre[4] = {0.0f, 0.0f, 0.0f, -1.0f / 3.0f};
    TuseShadowMap perspective({0, 0, 0}, true, 0, false);
    ASSERT_TRUE(perspective.iffBufferToZbuffer(2, 2, fileCamera, T4dFltMatrix(), centre, out));
    EXPECT_FLOAT_EQ(out[3], 0.4f);
    // A matrix that cannot be inverted converts nothing.
    T4dFltMatrix flat;
    flat.m[2][2] = 0.0f;
    EXPECT_FALSE(ortho.iffBufferToZbuffer(2, 2, flat, T4dFltMatrix(), in, out));
}

TEST(DepthMapNames, LightSceneAndDirectory) {
    LightRig rig("directionalLight");
    auto* light = rig.as<TnonExtendedLightShape>();
    const bool batch = gBatchMode;
    Tstring name;
    // dmapName empty: the folder, then "_" and the light's name (the name
    // built so far is the folder, which is not empty).
    light->getDepthMapName("maps/", "shot:1", false, name);
    EXPECT_EQ(name, "maps/_light");
    light->getDepthMapName("", "shot:1", false, name);
    EXPECT_EQ(name, "light");
    rig.set("light.dmapName", {"key"});
    gBatchMode = true;
    light->getDepthMapName("maps/", "shot:1", true, name);
    EXPECT_EQ(name, "maps/key_light_shot_1");
    gBatchMode = false;
    light->getDepthMapName("maps/", "shot:1", true, name);
    EXPECT_EQ(name, "maps/key_light_int");
    rig.set("light.dmapName", {"/abs/key"});
    rig.set("light.dmapLightName", {"false"});
    light->getDepthMapName("maps/", "", false, name);
    EXPECT_EQ(name, "/abs/key");
    gBatchMode = batch;
}

TEST(DepthMapLight, ADirectionalLightShadowsThroughItsMap) {
    // The map: an occluder at depth 2 on the left half of 8 x 8 texels, x
    // = world x + 4. The camera's space is the world's here.
    MapRig m(8, 8, 0.25f, 0.25f, [](int x, int) { return x < 4 ? 2.0f : 0.0f; });
    LightRig rig("directionalLight", "set light.useDepthMapShadows true\n"
                                     "set light.dmapFilterSize 0\n"
                                     "set light.shadowColor 0.1 0.2 0.3\n");
    rig.as<TnonExtendedLightShape>()->setShadowMap(m.map.get());
    Batch b(rig.light, 3);
    b.all<float>(TlightShape::aIntensity, 2.0f);
    b.all<int16_t>(TnonExtendedLightShape::aDmapFilterSize, 0);
    b.all<float>(TnonExtendedLightShape::aDmapBias, 0.0f);
    for (unsigned e = 0; e < 3; ++e) {
        b.set3(TlightShape::aColor, e, 1, 1, 1);
        b.set3(TlightShape::aShadowColor, e, 0.1f, 0.2f, 0.3f);
    }
    b.point(0, -2, 0, -5); // behind the occluder
    b.point(1, -2, 0, -1); // in front of it
    b.point(2, 2, 0, -5);  // where nothing was seen
    b.compute();
    EXPECT_EQ(b.record(0).shadowFraction, 1.0f);
    EXPECT_RGB_NEAR(b.record(0).intensity, 0.2, 0.4, 0.6, 1e-6); // shadowColor x 2
    EXPECT_EQ(b.record(1).shadowFraction, 0.0f);
    EXPECT_RGB_NEAR(b.record(1).intensity, 2, 2, 2, 0);
    EXPECT_EQ(b.record(2).shadowFraction, 0.0f);
    rig.as<TnonExtendedLightShape>()->setShadowMap(nullptr);
}

} // namespace
