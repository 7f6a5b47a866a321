// The snapshot of a render's settings, taken from scenes, and the names it
// gives: each naming scheme, padding, renumbering, cameras, layers, passes
// and pass folders, worked out by hand from the rules.

#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>

#include "framework/render_info.h"
#include "host/env.h"
#include "host/graph.h"
#include "host/qsl/interpreter.h"
#include "host/scene/render_layer.h"
#include "settings/common_render_globals.h"

namespace {

constexpr const char* kOneCamera = "node transform cam1\nnode camera camShape1 -parent cam1\n";
constexpr const char* kTwoCameras = "node transform camA\nnode camera camAShape -parent camA\n"
                                    "node transform camB\nnode camera camBShape -parent camB\n";
// A default layer and closeUp, both renderable; closeUp is not current.
constexpr const char* kLayers = "node renderLayerManager manager\n"
                                "node renderLayer defaultRenderLayer\n"
                                "node renderLayer closeUp\n"
                                "connect defaultRenderLayer.message manager.defaultRenderLayer\n";

class Snapshot : public ::testing::Test {
protected:
    void run(const std::string& text) { qsl::Interpreter(graph, out).runText(text, "ball.qsl"); }
    TrenderInfo& info() { return *TrenderInfo::getRenderInfo(graph); }
    TcommonRenderGlobalsData take(const std::string& layer = "") {
        TcommonRenderGlobalsData data;
        info().setCommonRenderGlobals(data, this->layer(layer));
        return data;
    }
    TdnRenderLayer* layer(const std::string& name) {
        return name.empty() ? nullptr : dynamic_cast<TdnRenderLayer*>(graph.findNode(name));
    }
    // The name of frame `time` through camera "cam1" (or `camera`).
    std::string nameAt(const std::string& settings, double time,
                       const std::string& camera = "cam1") {
        TdependGraph fresh;
        qsl::Interpreter(fresh, out).runText(std::string(kOneCamera) + settings, "ball.qsl");
        TcommonRenderGlobalsData data;
        TrenderInfo::getRenderInfo(fresh)->setCommonRenderGlobals(data, nullptr);
        return data.getImageName(0, time, "ball", camera, nullptr);
    }

    TdependGraph graph;
    std::ostringstream out;
};

TEST_F(Snapshot, EachNamingScheme) {
    const std::string on = "set defaultRenderGlobals.animation true\n";
    const std::string before = on + "set defaultRenderGlobals.putFrameBeforeExt true\n";
    struct Case {
        std::string settings, name;
    };
    const Case cases[] = {
        // Animation off: "name.ext", or "name" without an extension.
        {"", "ball.iff"},
        {"set defaultRenderGlobals.outFormatControl 1\n", "ball"},
        // On: the frame after the extension unless it goes before it.
        {on, "ball.iff.0007"},
        {before, "ball.0007.iff"},
        {before + "set defaultRenderGlobals.periodInExt 2\n", "ball_0007.iff"},
        {before + "set defaultRenderGlobals.periodInExt 0\n", "ball0007.iff"},
        {on + "set defaultRenderGlobals.outFormatControl 1\n", "ball.0007"},
        // Movies hold every frame: no frame in the name.
        {on + "set defaultRenderGlobals.imageFormat 23\n", "ball.avi"},
        {on + "set defaultRenderGlobals.imageFormat 23\n"
              "set defaultRenderGlobals.outFormatControl 1\n",
         "ball"},
        // Illustrator writes a file a frame.
        {on + "set defaultRenderGlobals.imageFormat 61\n", "ball.ai.0007"},
        // The user's extension, and the prefix with its own tokens.
        {"set defaultRenderGlobals.outFormatControl 2\n"
         "set defaultRenderGlobals.outFormatExt \"tga\"\n",
         "ball.tga"},
        {before + "set defaultRenderGlobals.imageFilePrefix \"shots/<Scene>_%c\"\n",
         "shots/ball_cam1.0007.iff"},
        // A prefix with its own frame and extension gets neither again.
        {before + "set defaultRenderGlobals.imageFilePrefix \"%s_%3n.%e\"\n", "ball_007.iff"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(nameAt(c.settings, 7.0), c.name) << c.settings;
}

TEST_F(Snapshot, Padding) {
    const std::string before = "set defaultRenderGlobals.animation true\n"
                               "set defaultRenderGlobals.putFrameBeforeExt true\n";
    EXPECT_EQ(nameAt(before + "set defaultRenderGlobals.extensionPadding 0\n", 7.0), "ball.7.iff");
    EXPECT_EQ(nameAt(before + "set defaultRenderGlobals.extensionPadding 2\n", 123.0),
              "ball.123.iff");
    // The padding stops at 10.
    EXPECT_EQ(nameAt(before + "set defaultRenderGlobals.extensionPadding 20\n", 7.0),
              "ball.0000000007.iff");
    // -7 at width 4: the sign takes a place.
    EXPECT_EQ(nameAt(before, -7.0), "ball.-007.iff");
}

TEST_F(Snapshot, Renumbering) {
    const std::string before = "set defaultRenderGlobals.animation true\n"
                               "set defaultRenderGlobals.putFrameBeforeExt true\n";
    // A step of 0.5 from frame 10 numbers the frames 10, 11, 12:
    // (t - 10) / 0.5 * 1 + 10.
    const std::string half = before + "set defaultRenderGlobals.startFrame 10\n"
                                      "set defaultRenderGlobals.byFrameStep 0.5\n";
    EXPECT_EQ(nameAt(half, 10.0), "ball.0010.iff");
    EXPECT_EQ(nameAt(half, 10.5), "ball.0011.iff");
    EXPECT_EQ(nameAt(half, 11.0), "ball.0012.iff");
    // Backwards by 0.5 from 10: (9.5 - 10) / -0.5 * -1 + 10 = 9.
    EXPECT_EQ(nameAt(before + "set defaultRenderGlobals.startFrame 10\n"
                              "set defaultRenderGlobals.byFrameStep -0.5\n",
                     9.5),
              "ball.0009.iff");
    // Renumbering asked for: (5 - 1) / 2 * 10 + 100 = 120.
    const std::string asked = before + "set defaultRenderGlobals.byFrameStep 2\n"
                                       "set defaultRenderGlobals.modifyExtension true\n"
                                       "set defaultRenderGlobals.startExtension 100\n";
    EXPECT_EQ(nameAt(asked + "set defaultRenderGlobals.byExtension 10\n", 5.0), "ball.0120.iff");
    // A renumbering step under 1 becomes 1 (or -1): 4 / 2 * 1 + 100, 4 / 2 * -1 + 100.
    EXPECT_EQ(nameAt(asked + "set defaultRenderGlobals.byExtension 0.25\n", 5.0), "ball.0102.iff");
    EXPECT_EQ(nameAt(asked + "set defaultRenderGlobals.byExtension -0.5\n", 5.0), "ball.0098.iff");
    // Whole steps from a fractional start round: frame 2.5 is number 3.
    EXPECT_EQ(nameAt(before + "set defaultRenderGlobals.startFrame 1.5\n", 2.5), "ball.0003.iff");
    // Renumbering belongs to animation: off, the name has no frame at all.
    EXPECT_EQ(nameAt("set defaultRenderGlobals.byFrameStep 0.5\n", 2.5), "ball.iff");
}

TEST_F(Snapshot, CamerasLayersAndPasses) {
    run(std::string(kTwoCameras) + kLayers);
    // Two renderable cameras: a folder each.
    TcommonRenderGlobalsData data = take("closeUp");
    EXPECT_TRUE(data.multipleCameras);
    EXPECT_TRUE(data.multipleLayers);
    EXPECT_FALSE(data.multiplePasses);
    EXPECT_EQ(data.getImageName(0, 1, "ball", "camA", layer("closeUp")), "closeUp/camA/ball.iff");
    EXPECT_EQ(data.getRenderableCameraNames(layer("closeUp")),
              (std::vector<std::string>{"camA", "camB"}));

    // One camera, one layer: no folders.
    run("set camBShape.renderable false\nset closeUp.renderable false\n");
    data = take();
    EXPECT_FALSE(data.multipleCameras);
    EXPECT_FALSE(data.multipleLayers);
    EXPECT_EQ(data.getImageName(0, 1, "ball", "camA", layer("defaultRenderLayer")), "ball.iff");

    // Passes: the layer and the pass make one folder; one pass alone is
    // never named.
    run("set closeUp.renderable true\nset closeUp.diffuse true\n");
    data = take("closeUp");
    EXPECT_TRUE(data.multiplePasses);
    data.setPassName("diffuse");
    EXPECT_EQ(data.getImageName(0, 1, "ball", "camA", layer("closeUp")),
              "closeUp_diffuse/ball.iff");
    run("set closeUp.diffuse false\n");
    data = take("closeUp");
    data.setPassName("diffuse");
    EXPECT_EQ(data.passName, "");

    // A pass folder for one name: layer, camera, pass.
    run("set camBShape.renderable true\n");
    data = take("closeUp");
    EXPECT_EQ(data.getImageName(0, 1, "ball", "camB", layer("closeUp"), "", false, false,
                                "RenderPass=diffuse", false, true),
              "closeUp/camB/diffuse/ball.iff");
    EXPECT_FALSE(data.useRenderPassSubdirs);
    EXPECT_EQ(data.getImageName(0, 1, "ball", "camB", layer("closeUp")), "closeUp/camB/ball.iff");
}

TEST_F(Snapshot, AllImageNamesGoPassThenCameraThenField) {
    run(std::string(kTwoCameras) + kLayers + "set closeUp.diffuse true\n");
    TcommonRenderGlobalsData data = take("closeUp");
    const TstringArray passes{"beauty", "diffuse"};
    TstringArray names, labels;
    data.getAllImageNames(0, 1, "ball", layer("closeUp"), nullptr, &passes, names, labels);
    EXPECT_EQ(names,
              (TstringArray{"closeUp_beauty/camA/ball.iff", "closeUp_beauty/camB/ball.iff",
                            "closeUp_diffuse/camA/ball.iff", "closeUp_diffuse/camB/ball.iff"}));
    EXPECT_EQ(labels, (TstringArray{"closeUp_camA_beauty", "closeUp_camB_beauty",
                                    "closeUp_camA_diffuse", "closeUp_camB_diffuse"}));
    // Fields put their name with the camera: "camA_odd".
    const TstringArray fields{"odd", "even"};
    data.getAllImageNames(0, 1, "ball", layer("closeUp"), &fields, nullptr, names, labels);
    EXPECT_EQ(names.front(), "closeUp/camA_odd/ball.iff");
    EXPECT_EQ(names.size(), 4u);
}

TEST_F(Snapshot, ALayersAdjustmentsCount) {
    run(std::string(kOneCamera) + kLayers +
        "connect defaultRenderGlobals.imageFormat closeUp.adjustments[0].plug\n"
        "set closeUp.adjustments[0].value \"32\"\n"
        "connect defaultResolution.width closeUp.adjustments[1].plug\n"
        "set closeUp.adjustments[1].value \"320\"\n");
    TcommonRenderGlobalsData data = take("closeUp");
    EXPECT_EQ(data.outFormat, 32);
    EXPECT_EQ(data.width, 320);
    EXPECT_EQ(data.getImageName(0, 1, "ball", "cam1", layer("closeUp")), "closeUp/ball.png");
    data = take("defaultRenderLayer");
    EXPECT_EQ(data.outFormat, 7);
    EXPECT_EQ(data.width, 960);
    // The current layer is read through too.
    run("connect closeUp.message manager.currentRenderLayer\n");
    EXPECT_EQ(take().outFormat, 32);

    // A value adjusted on the default layer alone (the second layer) is
    // taken from the current layer (the third); the layer asked about
    // (the first) decides when it adjusts the value itself.
    run("node renderLayer plain\n"
        "connect defaultResolution.height defaultRenderLayer.adjustments[0].plug\n"
        "set defaultRenderLayer.adjustments[0].value \"100\"\n"
        "connect defaultResolution.height closeUp.adjustments[2].plug\n"
        "set closeUp.adjustments[2].value \"200\"\n");
    const Tplug height = graph.findPlug("defaultResolution.height");
    auto heightSeen = [&](const char* asked, const char* current) {
        return TrenderInfo::getDataFromPlug(height, layer(asked), layer("defaultRenderLayer"),
                                            layer(current))
            .asInt();
    };
    EXPECT_EQ(heightSeen("plain", "closeUp"), 200);
    EXPECT_EQ(heightSeen("plain", "plain"), 540);
    EXPECT_EQ(heightSeen("defaultRenderLayer", "closeUp"), 100);
    EXPECT_EQ(heightSeen("closeUp", "plain"), 200);
}

TEST_F(Snapshot, ResolutionAndBufferNames) {
    run(std::string(kOneCamera) + "set defaultResolution.pixelDensityUnits 1\n");
    TcommonRenderGlobalsData data = take();
    EXPECT_EQ(data.width, 960);
    EXPECT_EQ(data.height, 540);
    // 540 / 960 * 1.7777777 = 0.99999996; 72 pixels a cm are 182.88 an inch.
    EXPECT_NEAR(data.pixelAspectRatio, 0.99999996f, 1e-6f);
    EXPECT_NEAR(data.dotsPerInch, 182.88f, 1e-3f);
    EXPECT_EQ(data.bufferNamePattern, "<RenderPassType>:<RenderPass>.<Camera>");
    EXPECT_EQ(data.fixedBufferNamePattern, "<RenderPassType>:<RenderPass>.<Camera>");
    EXPECT_EQ(data.maxBufferNameLength, INT32_MAX);
    EXPECT_EQ(data.getBufferName(graph.findNode("camShape1"), nullptr, "cam1"), "");

    // Custom names; EXR through the custom format keeps channel names short.
    run("set defaultRenderGlobals.multiCamNamingMode 1\n"
        "set defaultRenderGlobals.bufferName \"%l_%n\"\n"
        "set defaultRenderGlobals.imageFormat 51\n"
        "set defaultRenderGlobals.imfPluginKey \"exr\"\n");
    data = take();
    EXPECT_EQ(data.bufferNamePattern, "%l_%n");
    EXPECT_EQ(data.fixedBufferNamePattern, "<RenderPassType>:<RenderPass>.%l_%n");
    EXPECT_EQ(data.maxBufferNameLength, 28);
    EXPECT_EQ(data.getMaxBufferNameLength(), 28);
}

TEST(SnapshotEnvironment, LongExrChannelNames) {
    ::setenv("ORVO_EXR_LONGNAME", "1", 1);
    OrvoEnvRefresh();
    {
        TdependGraph graph;
        std::ostringstream out;
        qsl::Interpreter(graph, out)
            .runText("set defaultRenderGlobals.imageFormat 51\n"
                     "set defaultRenderGlobals.imfPluginKey \"EXR\"\n",
                     "s.qsl");
        TcommonRenderGlobalsData data;
        TrenderInfo::getRenderInfo(graph)->setCommonRenderGlobals(data, nullptr);
        EXPECT_EQ(data.maxBufferNameLength, 252);
    }
    ::unsetenv("ORVO_EXR_LONGNAME");
    OrvoEnvRefresh();
}

TEST(SnapshotFormats, TablesOfTheSnapshot) {
    TcommonRenderGlobalsData d;
    auto extension = [&d](int format, const char* key = "") {
        d.outFormat = format;
        d.imfPluginKey = key;
        d.extension = "stored";
        return d.getFormatExtension();
    };
    EXPECT_EQ(extension(21), "mov"); // the node's own table says ".mv"
    EXPECT_EQ(extension(36), "iff");
    EXPECT_EQ(extension(40), "exr");
    EXPECT_EQ(extension(61), "ai");
    EXPECT_EQ(extension(50, "sony"), "tim");
    EXPECT_EQ(extension(50, "other"), "stored");
    EXPECT_EQ(extension(51, "tifu"), "tif");
    EXPECT_EQ(extension(51, "qntpal"), "yuv");
    EXPECT_EQ(extension(15), "stored");
    d.outFormatControl = 1;
    EXPECT_EQ(extension(32), "");
    d.outFormatControl = 2;
    d.outFormatExt = "pic";
    EXPECT_EQ(extension(32), "pic");

    d.outFormatControl = 0;
    auto imf = [&d](int format) {
        d.outFormat = format;
        d.imfPluginKey = "key";
        return d.getImfFormat();
    };
    EXPECT_EQ(imf(1), "pic");
    EXPECT_EQ(imf(21), "mov");
    EXPECT_EQ(imf(36), "psdLayered");
    EXPECT_EQ(imf(7), "");
    EXPECT_EQ(imf(62), "");
    EXPECT_EQ(imf(51), "key");
    EXPECT_EQ(imf(15), "UNKNOWN");

    for (int format : {21, 22, 23, 60, 62, 63})
        EXPECT_TRUE(TcommonRenderGlobalsData::isMultiframeFormat(format)) << format;
    for (int format : {0, 20, 24, 40, 59, 61, 64, -1})
        EXPECT_FALSE(TcommonRenderGlobalsData::isMultiframeFormat(format)) << format;
}

TEST(SnapshotFormats, SchemesByTextOrDigit) {
    TcommonRenderGlobalsData d;
    d.setImageFormat("name.#.ext");
    EXPECT_EQ(d.namingScheme, 2);
    EXPECT_EQ(d.namePattern, "%s.%0n.%e");
    d.setImageFormat("7");
    EXPECT_EQ(d.namingScheme, 6);
    d.setImageFormat("nonsense");
    EXPECT_EQ(d.namingScheme, 6);
    d.outFormat = 23;
    d.setImageFormat("2");
    EXPECT_EQ(d.namingScheme, 8);
    EXPECT_FALSE(d.frameInName);
}

} // namespace
