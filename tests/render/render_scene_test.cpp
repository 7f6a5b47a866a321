#include <gtest/gtest.h>

#include "render/render_error.h"
#include "render/render_scene.h"
#include "render/scene_text.h"
#include "shading/shading_engine.h"

namespace {

void expectVector(const T3Float& v, float x, float y, float z, const char* what) {
    EXPECT_NEAR(v.x, x, 1e-5f) << what;
    EXPECT_NEAR(v.y, y, 1e-5f) << what;
    EXPECT_NEAR(v.z, z, 1e-5f) << what;
}

TEST(RenderScene, NoCameraIsAnErrorNamingTheFile) {
    auto graph = sceneFromText(kSquareAtDepth2, "scenes/empty_view.qsl");
    try {
        TrenderScene scene(*graph, "scenes/empty_view.qsl", 8, 8);
        FAIL() << "a scene without a camera rendered";
    } catch (const TrenderError& e) {
        const std::string message = e.what();
        EXPECT_NE(message.find("scenes/empty_view.qsl"), std::string::npos) << message;
        EXPECT_NE(message.find("camera"), std::string::npos) << message;
    }
}

// The square faces the camera at depth 2: the ray through (x, y, -1) meets
// it at (2x, 2y, -2), where u = (2x + 2) / 4 and v = (2y + 2) / 4.
TEST(RenderScene, HitsCarryThePointNormalAndUvOfTheSurface) {
    MessageCapture quiet;
    auto graph = sceneFromText(std::string(kUnitCamera) + kSquareAtDepth2);
    TrenderScene scene(*graph, "test.qsl", 8, 8);
    ASSERT_EQ(scene.objects().size(), 1u);
    EXPECT_EQ(scene.triangleCount(), 2u);

    Thit hit;
    const T3Float eye{0, 0, 0};
    ASSERT_TRUE(scene.intersect(eye, {0.5f, 0.25f, -1.0f}, 0.1f, 1e4f, hit));
    EXPECT_NEAR(hit.distance, 2.0f, 1e-5f);
    const TsurfacePoint s = scene.surfacePoint(hit, eye, {0.5f, 0.25f, -1.0f});
    expectVector(s.point, 1.0f, 0.5f, -2.0f, "point");
    expectVector(s.normal, 0, 0, 1, "normal");
    expectVector(s.triangleNormal, 0, 0, 1, "triangle normal");
    EXPECT_FALSE(s.flipped);
    EXPECT_NEAR(s.uv.x, 0.75f, 1e-5f);
    EXPECT_NEAR(s.uv.y, 0.625f, 1e-5f);
    // Four units of surface for one unit of u, and of v.
    expectVector(s.dPdu, 4, 0, 0, "dP/du");
    expectVector(s.dPdv, 0, 4, 0, "dP/dv");
    expectVector(s.tangentU, 1, 0, 0, "tangent u");
    expectVector(s.tangentV, 0, 1, 0, "tangent v");

    // Missing the square, or stopping short of it, finds nothing.
    EXPECT_FALSE(scene.intersect(eye, {1.5f, 0.0f, -1.0f}, 0.1f, 1e4f, hit));
    EXPECT_FALSE(scene.intersect(eye, {0.0f, 0.0f, -1.0f}, 0.1f, 1.9f, hit));
}

TEST(RenderScene, TheBackOfASurfaceTurnsItsNormalsToTheRay) {
    MessageCapture quiet;
    auto graph = sceneFromText(std::string(kUnitCamera) + kSquareAtDepth2);
    TrenderScene scene(*graph, "test.qsl", 8, 8);
    Thit hit;
    const T3Float behind{0.0f, 0.0f, -5.0f};
    ASSERT_TRUE(scene.intersect(behind, {0, 0, 1}, 0.0f, 1e4f, hit));
    EXPECT_NEAR(hit.distance, 3.0f, 1e-5f);
    const TsurfacePoint s = scene.surfacePoint(hit, behind, {0, 0, 1});
    EXPECT_TRUE(s.flipped);
    expectVector(s.normal, 0, 0, -1, "normal");
    expectVector(s.triangleNormal, 0, 0, -1, "triangle normal");
}

// A mirroring scale turns the triangles' winding around; the surface's
// front must stay where its normals say.
TEST(RenderScene, MirroredObjectsKeepTheirFront) {
    MessageCapture quiet;
    auto graph =
        sceneFromText(std::string(kUnitCamera) + kSquareAtDepth2 + "set square.scale -1 1 1\n");
    TrenderScene scene(*graph, "test.qsl", 8, 8);
    Thit hit;
    ASSERT_TRUE(scene.intersect({0, 0, 0}, {0.5f, 0.0f, -1.0f}, 0.1f, 1e4f, hit));
    const TsurfacePoint s = scene.surfacePoint(hit, {0, 0, 0}, {0.5f, 0.0f, -1.0f});
    EXPECT_FALSE(s.flipped);
    expectVector(s.normal, 0, 0, 1, "normal");
    // u now runs along -X.
    EXPECT_NEAR(s.uv.x, 0.25f, 1e-5f);
}

// The camera moved back by 3 and the square by 1: the scene is kept in the
// camera's space, so the square stands at depth 6 there.
TEST(RenderScene, GeometryIsInTheCamerasSpace) {
    MessageCapture quiet;
    auto graph = sceneFromText(std::string(kUnitCamera) + kSquareAtDepth2 +
                               "set camera1.translate 0 0 3\nset square.translate 1 0 -3\n");
    TrenderScene scene(*graph, "test.qsl", 8, 8);
    Thit hit;
    ASSERT_TRUE(scene.intersect({0, 0, 0}, {0.0f, 0.0f, -1.0f}, 0.1f, 1e4f, hit));
    EXPECT_NEAR(hit.distance, 6.0f, 1e-5f);
    const TsurfacePoint s = scene.surfacePoint(hit, {0, 0, 0}, {0, 0, -1});
    // x = 0 in the camera is x = -1 on the square: u = (-1 + 2) / 4.
    EXPECT_NEAR(s.uv.x, 0.25f, 1e-5f);
    const T4dDblMatrix& toWorld = scene.eyeToWorld();
    const T3dDblVector world = toWorld.transformPoint({0, 0, -6});
    EXPECT_NEAR(world.z, -3.0, 1e-9);
}

TEST(RenderScene, EachInstanceIsAnObjectAndHiddenOnesAreLeftOut) {
    MessageCapture quiet;
    auto graph = sceneFromText(std::string(kUnitCamera) + kSquareAtDepth2 + R"(
node transform left
set left.translate -3 0 -2
set left.rotate 90 0 0
parent -add squareShape left
node transform hidden
node mesh hiddenShape -parent hidden
set hiddenShape.primitive box
set hidden.visibility false
)");
    TrenderScene scene(*graph, "test.qsl", 8, 8);
    ASSERT_EQ(scene.objects().size(), 2u);
    EXPECT_NE(scene.object(0).name(), scene.object(1).name());
    EXPECT_EQ(scene.object(0).index(), 0u);
    EXPECT_EQ(scene.object(1).objectId(), 1u);
    Thit hit;
    // The instance under `left` stands 3 to the left at depth 2.
    ASSERT_TRUE(scene.intersect({0, 0, 0}, {-1.5f, 0.0f, -1.0f}, 0.1f, 1e4f, hit));
    EXPECT_EQ(scene.object(hit.object).path().transform()->name(), "left");
}

TEST(RenderScene, ShadingGroupsAndTheDefaultMaterial) {
    MessageCapture messages;
    auto graph = sceneFromText(std::string(kUnitCamera) + kSquareAtDepth2 + R"(
node transform b
node mesh bShape -parent b
set bShape.primitive sphere
node transform c
node mesh cShape -parent c
set cShape.primitive box
node checker board
node shadingEngine paintedSG
connect board.outColor paintedSG.surfaceShader
member paintedSG squareShape
node shadingEngine bareSG
member bareSG bShape
disconnect lambert1.outColor bareSG.surfaceShader
)");
    TrenderScene scene(*graph, "test.qsl", 8, 8);
    ASSERT_EQ(scene.objects().size(), 3u);
    EXPECT_EQ(scene.object(0).engine(), graph->findNode("paintedSG"));
    EXPECT_EQ(scene.object(1).engine(), nullptr);
    EXPECT_EQ(scene.object(2).engine(), nullptr);
    ASSERT_EQ(scene.engines().size(), 1u);
    EXPECT_TRUE(messages.contains("shading group 'bareSG' has no surface shader"));
    EXPECT_TRUE(messages.contains("'cShape' is in no shading group"));
    EXPECT_TRUE(messages.contains("test.qsl"));
}

} // namespace

namespace {

// An object's place among its group's members picks its row of lights.
TEST(RenderScene, ObjectsKnowTheirPlaceAmongTheirGroupsMembers) {
    MessageCapture quiet;
    auto graph = sceneFromText(std::string(kUnitCamera) + kSquareAtDepth2 + R"(
node transform group1
node transform inner -parent group1
node mesh innerShape -parent inner
set innerShape.primitive sphere
node checker board
node shadingEngine sg
connect board.outColor sg.surfaceShader
member sg group1
member sg squareShape
)");
    TrenderScene scene(*graph, "test.qsl", 8, 8);
    ASSERT_EQ(scene.objects().size(), 2u);
    // The DAG order: the square first, then the sphere under the group; the
    // group joined the set first and brought the sphere with it.
    EXPECT_EQ(scene.object(0).name(), "squareShape");
    EXPECT_EQ(scene.object(0).objectIndex(), 1);
    EXPECT_EQ(scene.object(1).objectIndex(), 0);
}

} // namespace

namespace {

// Shadow rays asked together: a blocker (the square at depth 2, in no
// group: the default material stops light) and a pane a light may pass
// (a second square at depth 1, 2 wide, shaded, not opaque).
TEST(RenderScene, ShadowRaysAskedTogetherTellWhatLiesOnThem) {
    MessageCapture quiet;
    auto graph = sceneFromText(std::string(kUnitCamera) + kSquareAtDepth2 + R"(
node transform pane
set pane.translate 0 0 -1
set pane.rotate 90 0 0
node mesh paneShape -parent pane
set paneShape.primitive plane
set paneShape.width 2
set paneShape.depth 2
node checker board
node shadingEngine paneSG
connect board.outColor paneSG.surfaceShader
member paneSG paneShape
)");
    TrenderScene scene(*graph, "test.qsl", 8, 8);
    ASSERT_EQ(scene.objects().size(), 2u);
    ASSERT_EQ(scene.object(1).name(), "paneShape");
    EXPECT_FALSE(scene.bulkShadows()) << "roles are not set yet";
    scene.object(1).setOpaque(false);
    scene.setShadowRoles();
    if (!scene.bulkShadows())
        GTEST_SKIP() << "the ray tracing kernel has no filter functions";

    auto ray = [](T3Float origin, T3Float direction, float far, int leaving = -1) {
        TrayQuery q;
        q.origin = origin;
        q.direction = direction;
        q.near = 1e-3f;
        q.far = far;
        q.leaving = leaving;
        return q;
    };
    const T3Float forward{0, 0, -1}, back{0, 0, 1};
    const std::vector<TrayQuery> rays = {
        // Through the pane (depth 1) to the square (depth 2): the pane
        // comes first, so the ray must be followed and shaded.
        ray({0.3f, 0.2f, 0}, forward, 100.0f),
        // Beside the pane (it is 2 wide): the square alone.
        ray({1.5f, 0, 0}, forward, 100.0f),
        // The pane alone: the ray stops at depth 1.5.
        ray({0.3f, 0.2f, 0}, forward, 1.5f),
        // Stopping short of both, and missing both.
        ray({1.5f, 0, 0}, forward, 0.5f),
        ray({9, 0, 0}, forward, 100.0f),
        // From behind the square toward it: its back stops the ray, unless
        // the ray leaves the square itself; then the pane is next.
        ray({1.5f, 0, -2.5f}, back, 100.0f),
        ray({1.5f, 0, -2.5f}, back, 100.0f, 0),
        ray({0.3f, 0.2f, -2.5f}, back, 100.0f, 0),
        // Leaving the pane does not pass the square's back.
        ray({1.5f, 0, -2.5f}, back, 100.0f, 1),
    };
    const std::vector<TshadowReach> expected = {
        TshadowReach::Crossed, TshadowReach::Blocked, TshadowReach::Crossed,
        TshadowReach::Clear,   TshadowReach::Clear,   TshadowReach::Blocked,
        TshadowReach::Clear,   TshadowReach::Crossed, TshadowReach::Blocked,
    };
    std::vector<TshadowReach> reach(rays.size(), TshadowReach::Clear);
    scene.shadowReach(unsigned(rays.size()), rays.data(), reach.data());
    for (size_t i = 0; i < rays.size(); ++i)
        EXPECT_EQ(int(reach[i]), int(expected[i])) << "ray " << i;

    // Every ray of a large call is answered: 200 rays across the chunks the
    // kernel takes at a time, alternating between the square and nothing.
    std::vector<TrayQuery> many;
    for (int i = 0; i < 200; ++i)
        many.push_back(ray({i % 2 ? 9.0f : 1.5f, 0, 0}, forward, 100.0f));
    std::vector<TshadowReach> answers(many.size(), TshadowReach::Crossed);
    scene.shadowReach(unsigned(many.size()), many.data(), answers.data());
    for (int i = 0; i < 200; ++i)
        ASSERT_EQ(int(answers[size_t(i)]), int(i % 2 ? TshadowReach::Clear : TshadowReach::Blocked))
            << "ray " << i;

    // Nearest hits asked together equal those asked one at a time.
    std::vector<Thit> hits(rays.size());
    std::vector<uint8_t> found(rays.size());
    scene.intersect(unsigned(rays.size()), rays.data(), hits.data(), found.data(), true);
    for (size_t i = 0; i < rays.size(); ++i) {
        Thit one;
        const bool alone =
            scene.intersect(rays[i].origin, rays[i].direction, rays[i].near, rays[i].far, one);
        ASSERT_EQ(bool(found[i]), alone) << "ray " << i;
        if (alone) {
            EXPECT_EQ(hits[i].object, one.object) << "ray " << i;
            EXPECT_EQ(hits[i].primitive, one.primitive) << "ray " << i;
            EXPECT_FLOAT_EQ(hits[i].distance, one.distance) << "ray " << i;
        }
    }
}

} // namespace
