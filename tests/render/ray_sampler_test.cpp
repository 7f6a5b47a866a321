#include <gtest/gtest.h>

#include <array>

#include <cfloat>
#include <cmath>

#include "host/scene/render_layer.h"
#include "render/render_frame.h"
#include "render/scene_text.h"

// The ray sampler as materials and lights call it, on a render thread of a
// frame: a small square in front of a large plane, each a flat colour (a
// checker whose two colours are alike), and a background behind.

namespace {

const char* kSquareBeforeAWall = R"(
set cameraShape1.backgroundColor 0.05 0.06 0.07
node transform square
set square.translate 0 0 -2
set square.rotate 90 0 0
node mesh squareShape -parent square
set squareShape.primitive plane
node checker squareColour
set squareColour.color1 0.2 0.4 0.6
set squareColour.color2 0.2 0.4 0.6
node shadingEngine squareSG
connect squareColour.outColor squareSG.surfaceShader
member squareSG squareShape
node transform wall
set wall.translate 0 0 -5
set wall.rotate 90 0 0
node mesh wallShape -parent wall
set wallShape.primitive plane
set wallShape.width 100
set wallShape.depth 100
node checker wallColour
set wallColour.color1 0.9 0.1 0.1
set wallColour.color2 0.9 0.1 0.1
node shadingEngine wallSG
connect wallColour.outColor wallSG.surfaceShader
member wallSG wallShape
)";

TgenericRay ray(T3Float origin, T3Float direction, int depth = 1) {
    TgenericRay r;
    r.origin[0] = origin.x;
    r.origin[1] = origin.y;
    r.origin[2] = origin.z;
    r.direction[0] = direction.x;
    r.direction[1] = direction.y;
    r.direction[2] = direction.z;
    r.depth = depth;
    return r;
}

void expectColour(const Tspectrum& c, float r, float g, float b, const char* what) {
    EXPECT_NEAR(c.r, r, 1e-5f) << what;
    EXPECT_NEAR(c.g, g, 1e-5f) << what;
    EXPECT_NEAR(c.b, b, 1e-5f) << what;
}

class RaySampler : public ::testing::Test {
protected:
    void SetUp() override {
        graph = sceneFromText(std::string(kUnitCamera) + kSquareBeforeAWall, "rays.qsl");
        scene = std::make_unique<TrenderScene>(*graph, "rays.qsl", 8, 8);
        setup = std::make_unique<TrenderFrameSetup>(*graph, *scene, "rays.qsl", 10);
        thread = std::make_unique<TrenderWorker>(setup->prototype());
        tracer = std::make_unique<TrayTracer>(*scene, *thread, TsamplingSettings());
        TrayTracer::setCurrent(tracer.get());
    }
    void TearDown() override {
        TrayTracer::setCurrent(nullptr);
        tracer.reset();
        thread.reset();
        setup.reset();
    }
    TraySampler& sampler() { return setup->sampler(); }

    std::unique_ptr<TdependGraph> graph;
    std::unique_ptr<TrenderScene> scene;
    std::unique_ptr<TrenderFrameSetup> setup;
    std::unique_ptr<TrenderWorker> thread;
    std::unique_ptr<TrayTracer> tracer;
};

TEST_F(RaySampler, ReflectionAndRefractionRaysShadeWhatTheyHit) {
    TgenericRay rays[5] = {
        ray({0, 0, 0}, {0, 0, -3}),                   // the square, 2 away
        ray({0, 0, 0}, {3, 0, -5}),                   // past the square to the wall
        ray({0, 0, 0}, {0, 0, 1}),                    // away from everything
        ray({0, 0, 0}, {0, 0, -1}, 11),               // deeper than the sampler goes
        ray({0.2f, 0.1f, -3.0f}, {0.0f, 0.0f, 1.0f}), // the square from behind
    };
    TgenericRay* pointers[5] = {&rays[0], &rays[1], &rays[2], &rays[3], &rays[4]};
    Tspectrum colours[5], transmissions[5];
    uint8_t hits[5] = {9, 9, 9, 9, 9};
    sampler().traceRays(nullptr, 5, pointers, colours, transmissions, hits);

    expectColour(colours[0], 0.2f, 0.4f, 0.6f, "square");
    expectColour(transmissions[0], 0, 0, 0, "an opaque square lets nothing through");
    EXPECT_EQ(hits[0], 1);
    // The hit distance is a true distance, whatever the direction's length.
    EXPECT_NEAR(rays[0].maxDistance, 2.0f, 1e-4f);

    expectColour(colours[1], 0.9f, 0.1f, 0.1f, "wall");
    EXPECT_NEAR(rays[1].maxDistance, std::sqrt(34.0f), 1e-4f);

    expectColour(colours[2], 0.05f, 0.06f, 0.07f, "background");
    expectColour(transmissions[2], 1, 1, 1, "nothing in the way");
    EXPECT_EQ(hits[2], 0);
    EXPECT_EQ(rays[2].maxDistance, FLT_MAX);

    expectColour(colours[3], 0, 0, 0, "too deep");
    expectColour(transmissions[3], 1, 1, 1, "too deep");
    EXPECT_EQ(hits[3], 0);

    expectColour(colours[4], 0.2f, 0.4f, 0.6f, "back of the square");
    EXPECT_NEAR(rays[4].maxDistance, 1.0f, 1e-4f);

    Tspectrum background;
    sampler().backgroundColor(background);
    expectColour(background, 0.05f, 0.06f, 0.07f, "camera background");
    // The ray too deep was not traced.
    EXPECT_EQ(sampler().raysTraced(), 4u);
    // Two surfaces and the back of one were shaded.
    EXPECT_EQ(tracer->samplesShaded(), 3u);
}

TEST_F(RaySampler, ShadowRaysAreStoppedByOpaqueSurfacesWithinTheirReach) {
    TgenericRay rays[4] = {
        ray({0, 0, -3}, {0, 0, 1}),  // through the square
        ray({0, 0, -3}, {0, 0, 1}),  // the same, ending short of it
        ray({0, 0, -3}, {-1, 0, 0}), // along the gap between square and wall
        ray({0, 0, -3}, {0, 0, 1}, 3),
    };
    rays[0].maxDistance = 10.0f;
    rays[1].maxDistance = 0.5f;
    rays[2].maxDistance = 100.0f;
    rays[3].maxDistance = 10.0f;
    TgenericRay* pointers[4] = {&rays[0], &rays[1], &rays[2], &rays[3]};
    float transmission[12];
    float fraction[4];
    for (int i = 0; i < 12; ++i)
        transmission[i] = 1.0f;
    for (float& f : fraction)
        f = 1.0f;
    sampler().traceShadowRays(nullptr, 4, pointers, transmission, fraction, 2, nullptr);
    for (int k = 0; k < 3; ++k) {
        EXPECT_EQ(transmission[k], 0.0f) << "blocked, channel " << k;
        EXPECT_EQ(transmission[3 + k], 1.0f) << "short of the square, channel " << k;
        EXPECT_EQ(transmission[6 + k], 1.0f) << "in the clear, channel " << k;
        EXPECT_EQ(transmission[9 + k], 1.0f) << "deeper than the limit, channel " << k;
    }
    EXPECT_EQ(fraction[1], 1.0f);
    // An opaque surface stops a shadow ray without being shaded.
    EXPECT_EQ(tracer->samplesShaded(), 0u);
}

} // namespace

namespace {

// Nodes read the sampler and the camera from the frame: set for the frame,
// back to their defaults after it.
TEST(FrameSetup, FrameValuesReachTheNodesForTheFrameOnly) {
    auto graph = sceneFromText(std::string(kUnitCamera) + kRayTracingOn + R"(
set camera1.translate 1 2 3
node transform lamp
node light lampShape -parent lamp
node lambert paint
)");
    TrenderScene scene(*graph, "frame.qsl", 4, 4);
    auto read = [&](const char* plug) {
        return graph->evaluate(graph->findPlug(plug));
    };
    {
        TrenderFrameSetup setup(*graph, scene, "frame.qsl", 10);
        EXPECT_EQ(read("paint.raySampler").as<void*>(),
                  static_cast<void*>(static_cast<TraySampler*>(&setup.sampler())));
        EXPECT_EQ(read("lampShape.raySampler").as<void*>(),
                  static_cast<void*>(static_cast<TraySampler*>(&setup.sampler())));
        const auto& toWorld = read("lampShape.eyeToWorld").as<T4dFltMatrix>();
        EXPECT_FLOAT_EQ(toWorld.m[3][0], 1.0f);
        EXPECT_FLOAT_EQ(toWorld.m[3][1], 2.0f);
        EXPECT_FLOAT_EQ(toWorld.m[3][2], 3.0f);
        const auto& toEye = read("lampShape.worldToEye").as<T4dFltMatrix>();
        EXPECT_FLOAT_EQ(toEye.m[3][2], -3.0f);
    }
    EXPECT_EQ(read("paint.raySampler").as<void*>(), nullptr);
    EXPECT_FLOAT_EQ(read("lampShape.eyeToWorld").as<T4dFltMatrix>().m[3][0], 0.0f);

    // With ray tracing off no node gets a sampler, nor does the render
    // thread: nothing can trace a ray.
    graph->setPlugValue(graph->findPlug("defaultRenderQuality.enableRaytracing"),
                        std::array<bool, 1>{false}.data());
    TrenderFrameSetup off(*graph, scene, "frame.qsl", 10);
    EXPECT_FALSE(off.rayTracing());
    EXPECT_EQ(read("paint.raySampler").as<void*>(), nullptr);
    EXPECT_EQ(read("lampShape.raySampler").as<void*>(), nullptr);
    EXPECT_EQ(off.prototype().raySampler(), nullptr);
}

// Whether a frame traces rays is the scene's render quality's to say: the
// quality the globals link to, as the frame's layer sees it. Off unless a
// scene turns it on.
TEST(FrameSetup, RayTracingFollowsTheScenesRenderQuality) {
    auto graph = sceneFromText(std::string(kUnitCamera) + R"(
node renderLayerManager manager
node renderLayer defaultRenderLayer
node renderLayer quick
connect defaultRenderLayer.message manager.defaultRenderLayer
)");
    auto tracesRays = [&](const char* layerName) {
        TrenderView view;
        view.layer = dynamic_cast<const TdnRenderLayer*>(graph->findNode(layerName));
        TrenderScene scene(*graph, "quality.qsl", 4, 4, view);
        TrenderFrameSetup setup(*graph, scene, "quality.qsl", 10);
        return setup.prototype().frameConstants()->rayTracing();
    };
    EXPECT_FALSE(tracesRays("defaultRenderLayer"));
    qsl::Interpreter(*graph).runText("set defaultRenderQuality.enableRaytracing true\n"
                                     "connect defaultRenderQuality.enableRaytracing "
                                     "quick.adjustments[0].plug\n"
                                     "set quick.adjustments[0].value \"false\"\n",
                                     "quality.qsl");
    EXPECT_TRUE(tracesRays("defaultRenderLayer"));
    EXPECT_FALSE(tracesRays("quick"));
    // Another quality linked to the globals is the one that counts.
    qsl::Interpreter(*graph).runText("node renderQuality draft\n"
                                     "connect draft.message defaultRenderGlobals.quality\n",
                                     "quality.qsl");
    EXPECT_FALSE(tracesRays("defaultRenderLayer"));
}

} // namespace

namespace {

// A shadow ray that leaves a closed surface inwards (as one from a facet
// near the shadow terminator does, when the smooth normal still faces the
// light) meets its own object from inside first: that hit does not shadow.
// The same ray from anywhere else is stopped by the box.
TEST(ShadowRays, TheirOwnObjectSeenFromInsideDoesNotShadow) {
    auto graph = sceneFromText(std::string(kUnitCamera) + R"(
node transform crate
set crate.translate 0 0 -5
node mesh crateShape -parent crate
set crateShape.primitive box
)",
                               "crate.qsl");
    TrenderScene scene(*graph, "crate.qsl", 8, 8);
    TrenderFrameSetup setup(*graph, scene, "crate.qsl", 10);
    TrenderWorker thread(setup.prototype());
    TrayTracer tracer(scene, thread, TsamplingSettings());
    TrayTracer::setCurrent(&tracer);

    // From the middle of the top face, a little downwards: through the
    // box's inside to its side at x = 0.5.
    TgenericRay rays[2] = {ray({0, 0.5f, -5}, {1, -0.1f, 0}), ray({0, 0.5f, -5}, {1, -0.1f, 0})};
    rays[0].objectId = static_cast<TrenderGroupBase*>(&scene.object(0));
    rays[1].objectId = nullptr;
    rays[0].maxDistance = rays[1].maxDistance = 100.0f;
    TgenericRay* pointers[2] = {&rays[0], &rays[1]};
    float transmission[6] = {1, 1, 1, 1, 1, 1};
    float fraction[2] = {1, 1};
    setup.sampler().traceShadowRays(nullptr, 2, pointers, transmission, fraction, 5, nullptr);
    TrayTracer::setCurrent(nullptr);
    EXPECT_EQ(transmission[0], 1.0f) << "leaving its own box";
    EXPECT_EQ(transmission[3], 0.0f) << "inside someone else's box";
}

} // namespace
