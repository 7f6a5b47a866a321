// Meshes from OBJ files, primitives and scene arrays: bounds, unit normals,
// UVs, tangents at right angles to the normals, and errors that name the
// file and leave the scene as it was.

#include "host/scene/mesh.h"
#include "test_paths.h"

#include <cmath>

#include "scene_test_support.h"

namespace {

const std::string kData = std::string(ORVO_TEST_DATA_DIR) + "/host/scene/data";

// What every built mesh must satisfy, whatever made it.
void expectWellFormed(const TmeshData& mesh) {
    ASSERT_EQ(mesh.normals.size(), mesh.vertexCount());
    ASSERT_EQ(mesh.uvs.size(), mesh.vertexCount());
    ASSERT_EQ(mesh.tangentsU.size(), mesh.vertexCount());
    ASSERT_EQ(mesh.tangentsV.size(), mesh.vertexCount());
    ASSERT_EQ(mesh.indices.size() % 3, 0u);
    for (uint32_t i : mesh.indices)
        ASSERT_LT(i, mesh.vertexCount());
    for (size_t v = 0; v < mesh.vertexCount(); ++v) {
        SCOPED_TRACE(v);
        const T3Float& n = mesh.normals[v];
        EXPECT_NEAR(OrvoLength(n), 1.0f, 1e-5f);
        EXPECT_NEAR(OrvoLength(mesh.tangentsU[v]), 1.0f, 1e-5f);
        EXPECT_NEAR(OrvoLength(mesh.tangentsV[v]), 1.0f, 1e-5f);
        EXPECT_NEAR(OrvoDot(n, mesh.tangentsU[v]), 0.0f, 1e-5f);
        EXPECT_NEAR(OrvoDot(n, mesh.tangentsV[v]), 0.0f, 1e-5f);
        EXPECT_GE(mesh.uvs[v].x, 0.0f);
        EXPECT_LE(mesh.uvs[v].x, 1.0f);
        EXPECT_GE(mesh.uvs[v].y, 0.0f);
        EXPECT_LE(mesh.uvs[v].y, 1.0f);
        for (int k = 0; k < 3; ++k) {
            EXPECT_GE(mesh.positions[v][k], mesh.boundsMin[k]);
            EXPECT_LE(mesh.positions[v][k], mesh.boundsMax[k]);
        }
    }
    // Triangles wind counter-clockwise seen from where the normals point.
    for (size_t t = 0; t < mesh.indices.size(); t += 3) {
        const uint32_t a = mesh.indices[t], b = mesh.indices[t + 1], c = mesh.indices[t + 2];
        const T3Float face =
            OrvoCross(mesh.positions[b] - mesh.positions[a], mesh.positions[c] - mesh.positions[a]);
        if (OrvoLength(face) > 1e-9f) {
            EXPECT_GT(OrvoDot(face, mesh.normals[a] + mesh.normals[b] + mesh.normals[c]), 0.0f)
                << "triangle " << t / 3;
        }
    }
}

TEST(MeshObj, ReadsFacesUvsAndNormalsFromTheFile) {
    TdependGraph graph;
    // The scene sits in the data folder, so the relative name resolves there.
    runScene(graph,
             "node transform t\nnode mesh m -parent t\nset m.fileName \"quad_and_triangle.obj\"\n",
             kData + "/scene.qsl");
    auto* mesh = static_cast<Tmesh*>(graph.findNode("m"));
    EXPECT_EQ(mesh->resolvedFileName(), kData + "/quad_and_triangle.obj");
    const auto built = mesh->mesh();
    expectWellFormed(*built);
    // The quad splits in two, the triangle stays one; 4 + 3 distinct corners.
    EXPECT_EQ(built->triangleCount(), 3u);
    EXPECT_EQ(built->vertexCount(), 7u);
    // x from 0 to 2, y from 0 to 2 (the triangle's apex), z from 0 to 1.
    EXPECT_VEC_NEAR(built->boundsMin, 0, 0, 0, 0);
    EXPECT_VEC_NEAR(built->boundsMax, 2, 2, 1, 0);
    // u grows along +X and v along +Y in both faces (the triangle: moving
    // (2, 0, 0) adds 1 to u, and (1, 1, 0) adds 0.5 to u and 1 to v, so
    // dP/dv = (1, 1, 0) - 0.5 * (2, 0, 0) = (0, 1, 0)).
    for (size_t v = 0; v < built->vertexCount(); ++v) {
        EXPECT_VEC_NEAR(built->normals[v], 0, 0, 1, 1e-6);
        EXPECT_VEC_NEAR(built->tangentsU[v], 1, 0, 0, 1e-6);
        EXPECT_VEC_NEAR(built->tangentsV[v], 0, 1, 0, 1e-6);
    }
    EXPECT_EQ(graph.evaluateToWords(graph.findPlug("m.triangleCount")),
              std::vector<std::string>{"3"});
    EXPECT_EQ(graph.evaluateToWords(graph.findPlug("m.boundingBoxMax")),
              (std::vector<std::string>{"2", "2", "1"}));
}

TEST(MeshObj, AMissingOrBadFileIsAnErrorNamingItAndTheSceneStaysAsItWas) {
    TdependGraph graph;
    runScene(graph, "node transform t\n");
    const std::string before = qsl::writeScene(graph);

    const std::string missing =
        sceneError(graph, "node mesh m -parent t\nset m.fileName \"nothing_here.obj\"\n",
                   kData + "/scene.qsl");
    EXPECT_EQ(missing.rfind(kData + "/scene.qsl:2: error: mesh 'm': cannot read OBJ file '" +
                                kData + "/nothing_here.obj'",
                            0),
              0u)
        << missing;
    EXPECT_EQ(qsl::writeScene(graph), before);

    // tinyobjloader reads the second face; the index check refuses it,
    // counting from 1 as the file does.
    const std::string bad = sceneError(
        graph, "node mesh m -parent t\nset m.fileName \"bad_index.obj\"\n", kData + "/s.qsl");
    EXPECT_EQ(bad, kData + "/s.qsl:2: error: mesh 'm': OBJ file '" + kData +
                       "/bad_index.obj': face 2 refers to point 9, but there are 3");
    EXPECT_EQ(qsl::writeScene(graph), before);

    EXPECT_THROW(OrvoReadObjText("v 0 0 0\n", "points.obj"), TmeshError); // no faces
}

TEST(MeshPrimitive, SphereHasItsRadiusAsBoundsAndOutwardNormals) {
    const TmeshData sphere = OrvoMakeSphere(2.0f, 12, 6);
    expectWellFormed(sphere);
    // 12 quads in each of the 4 middle rows, 12 triangles at each pole.
    EXPECT_EQ(sphere.triangleCount(), 12u * 4u * 2u + 2u * 12u);
    // Points at angles of 30 degrees reach the radius along every axis.
    EXPECT_VEC_NEAR(sphere.boundsMin, -2, -2, -2, 1e-5);
    EXPECT_VEC_NEAR(sphere.boundsMax, 2, 2, 2, 1e-5);
    for (size_t v = 0; v < sphere.vertexCount(); ++v) {
        const T3Float& p = sphere.positions[v];
        EXPECT_NEAR(OrvoLength(p), 2.0f, 1e-5f);
        // The normal is the point over the radius.
        EXPECT_VEC_NEAR(sphere.normals[v], p.x / 2, p.y / 2, p.z / 2, 1e-5);
    }
}

TEST(MeshPrimitive, PlaneAndBoxCountsAndBounds) {
    const TmeshData plane = OrvoMakePlane(4.0f, 2.0f, 3, 2);
    expectWellFormed(plane);
    EXPECT_EQ(plane.triangleCount(), 3u * 2u * 2u);
    EXPECT_EQ(plane.vertexCount(), 4u * 3u); // (3 + 1) by (2 + 1) grid points
    EXPECT_VEC_NEAR(plane.boundsMin, -2, 0, -1, 0);
    EXPECT_VEC_NEAR(plane.boundsMax, 2, 0, 1, 0);
    // u along +X, v along -Z, normal +Y: the frame is right-handed.
    EXPECT_VEC_NEAR(plane.tangentsU[0], 1, 0, 0, 1e-6);
    EXPECT_VEC_NEAR(plane.tangentsV[0], 0, 0, -1, 1e-6);

    const TmeshData box = OrvoMakeBox(2.0f, 4.0f, 6.0f, 1, 1);
    expectWellFormed(box);
    EXPECT_EQ(box.triangleCount(), 12u);
    EXPECT_EQ(box.vertexCount(), 24u); // each face keeps its own corners and normal
    EXPECT_VEC_NEAR(box.boundsMin, -1, -2, -3, 0);
    EXPECT_VEC_NEAR(box.boundsMax, 1, 2, 3, 0);
}

TEST(MeshArrays, ScenePolygonsBuildAndBadIndicesAreRefused) {
    TdependGraph graph;
    // A unit square in XZ seen from +Y (corners counter-clockwise from above)
    // and no UVs: they are projected on X (u) and Z (v), the widest axes.
    runScene(graph, "node transform t\nnode mesh m -parent t\n"
                    "set m.points 0 0 0  0 0 1  1 0 1  1 0 0\n"
                    "set m.faceCounts 4\n"
                    "set m.faceIndices 0 1 2 3\n");
    const auto built = static_cast<Tmesh*>(graph.findNode("m"))->mesh();
    expectWellFormed(*built);
    EXPECT_EQ(built->triangleCount(), 2u);
    // (0,0,0) -> (0,0,1) -> (1,0,1): cross of (0,0,1) and (1,0,1) is (0,1,0).
    EXPECT_VEC_NEAR(built->normals[0], 0, 1, 0, 1e-6);
    EXPECT_NEAR(built->uvs[2].x, 1.0f, 1e-6f); // (1, 0, 1) projects to (1, 1)
    EXPECT_NEAR(built->uvs[2].y, 1.0f, 1e-6f);

    // Written and read back, the arrays give the same mesh.
    TdependGraph copy;
    runScene(copy, qsl::writeScene(graph));
    EXPECT_EQ(static_cast<Tmesh*>(copy.findNode("m"))->mesh()->positions.size(), 4u);

    const std::string before = qsl::writeScene(graph);
    EXPECT_EQ(sceneError(graph, "set m.faceIndices 0 1 2 7"),
              "scene.qsl:1: error: mesh 'm': the scene arrays: face 0 refers to point 7, but "
              "there are 4");
    EXPECT_EQ(sceneError(graph, "set m.points 0 0"),
              "scene.qsl:1: error: mesh 'm': the scene arrays: points holds 2 numbers, not a "
              "multiple of 3 (x y z)");
    EXPECT_NE(sceneError(graph, "set m.faceCounts 2").find("at least 3 corners"),
              std::string::npos);
    EXPECT_NE(sceneError(graph, "set m.points 0 0 x").find("number 2 ('x')"), std::string::npos);
    EXPECT_EQ(qsl::writeScene(graph), before);
}

TEST(MeshArrays, SourcesTakeTurnsFileThenPrimitiveThenArrays) {
    TdependGraph graph;
    runScene(graph, "node transform t\nnode mesh m -parent t\n"
                    "set m.points 0 0 0 1 0 0 0 1 0\nset m.faceCounts 3\nset m.faceIndices 0 1 2\n"
                    "set m.primitive box\nset m.segmentsU 1\nset m.segmentsV 1\n");
    auto* mesh = static_cast<Tmesh*>(graph.findNode("m"));
    EXPECT_EQ(mesh->mesh()->triangleCount(), 12u); // the box wins over the arrays
    runScene(graph, "set m.fileName \"quad_and_triangle.obj\"", kData + "/scene.qsl");
    EXPECT_EQ(mesh->mesh()->triangleCount(), 3u); // and the file over the box
    runScene(graph, "set m.fileName \"\"\nset m.primitive none");
    EXPECT_EQ(mesh->mesh()->triangleCount(), 1u);
}

} // namespace
