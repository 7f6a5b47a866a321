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
