// Transforms, world matrices through parents and instances, DAG edits and
// visibility down the hierarchy. Every expected point is worked out by hand
// in the comment beside it.

#include "host/scene/dag.h"

#include "host/scene/shape.h"
#include "scene_test_support.h"

namespace {

T3dDblVector worldPoint(const TdependGraph& graph, const std::string& path, T3dDblVector p) {
    return pathNamed(graph, path).inclusiveMatrix().transformPoint(p);
}

TEST(Transform, ComposesScalePivotRotatePivotAndTranslate) {
    TdependGraph graph;
    runScene(graph, "node transform t\n"
                    "set t.translate 1 2 3\n"
                    "set t.rotate 0 0 90\n");
    // Rotating (1, 0, 0) by 90 degrees about Z gives (0, 1, 0); then + (1, 2, 3).
    EXPECT_VEC_NEAR(worldPoint(graph, "t", {1, 0, 0}), 1, 3, 3, 1e-12);

    runScene(graph, "node transform p\n"
                    "set p.scale 2 1 1\n"
                    "set p.scalePivot 1 0 0\n"
                    "node transform q\n"
                    "set q.rotate 0 0 90\n"
                    "set q.rotatePivot 1 0 0\n");
    // Scaling x by 2 about x = 1: 1 + (2 - 1) * 2 = 3.
    EXPECT_VEC_NEAR(worldPoint(graph, "p", {2, 0, 0}), 3, 0, 0, 1e-12);
    // About the pivot (1, 0, 0), (2, 0, 0) is (1, 0, 0) away; turned by 90
    // degrees about Z that is (0, 1, 0): the point lands at (1, 1, 0).
    EXPECT_VEC_NEAR(worldPoint(graph, "q", {2, 0, 0}), 1, 1, 0, 1e-12);
}

TEST(Transform, RotateOrderDecidesWhichAxisTurnsFirst) {
    TdependGraph graph;
    runScene(graph, "node transform xyz\nset xyz.rotate 90 90 0\n"
                    "node transform yxz\nset yxz.rotate 90 90 0\nset yxz.rotateOrder yxz\n"
                    "node transform zyx\nset zyx.rotate 0 90 90\nset zyx.rotateOrder zyx\n");
    // xyz: X first takes (0, 1, 0) to (0, 0, 1), then Y takes (0, 0, 1) to (1, 0, 0).
    EXPECT_VEC_NEAR(worldPoint(graph, "xyz", {0, 1, 0}), 1, 0, 0, 1e-12);
    // yxz: Y first leaves (0, 1, 0) alone, then X takes it to (0, 0, 1).
    EXPECT_VEC_NEAR(worldPoint(graph, "yxz", {0, 1, 0}), 0, 0, 1, 1e-12);
    // zyx: Z first takes (1, 0, 0) to (0, 1, 0), which Y leaves alone.
    EXPECT_VEC_NEAR(worldPoint(graph, "zyx", {1, 0, 0}), 0, 1, 0, 1e-12);
}

TEST(Transform, MatrixOutputsAreTheFloatFormAndItsInverse) {
    TdependGraph graph;
    runScene(graph, "node transform t\nset t.translate 4 5 6\nset t.scale 2 2 2\n");
    // Scale 2 then translate: rows (2 0 0 0) (0 2 0 0) (0 0 2 0) (4 5 6 1).
    EXPECT_EQ(graph.evaluateToWords(graph.findPlug("t.matrix")),
              (std::vector<std::string>{"2", "0", "0", "0", "0", "2", "0", "0", "0", "0", "2", "0",
                                        "4", "5", "6", "1"}));
    // The inverse halves and moves back: translation (-2, -2.5, -3).
    const auto inverse = graph.evaluateToWords(graph.findPlug("t.inverseMatrix"));
    EXPECT_EQ(inverse[0], "0.5");
    EXPECT_EQ(inverse[12], "-2");
    EXPECT_EQ(inverse[13], "-2.5");
    EXPECT_EQ(inverse[14], "-3");
    // A new value dirties the matrix.
    runScene(graph, "set t.translateX 0");
    EXPECT_EQ(graph.evaluateToWords(graph.findPlug("t.matrix"))[12], "0");
}

TEST(Dag, WorldMatricesComposeThroughParentsAndInstances) {
    TdependGraph graph;
    runScene(graph, "node transform group\n"
                    "set group.translate 10 0 0\n"
                    "set group.rotate 0 90 0\n"
                    "node transform arm -parent group\n"
                    "set arm.translate 1 0 0\n"
                    "node shape tip -parent arm\n"
                    "node transform other\n"
                    "set other.translate 0 5 0\n"
                    "parent -add tip other\n");
    // Under group: the arm's origin goes to (1, 0, 0); a turn of 90 degrees
    // about Y takes +X to -Z, so (0, 0, -1); plus (10, 0, 0).
    EXPECT_VEC_NEAR(worldPoint(graph, "|group|arm|tip", {0, 0, 0}), 10, 0, -1, 1e-12);
    // The second instance sits under `other` only: (0, 5, 0).
    EXPECT_VEC_NEAR(worldPoint(graph, "|other|tip", {0, 0, 0}), 0, 5, 0, 1e-12);

    auto* tip = TdagObject::fromNode(graph.findNode("tip"));
    const TdagPathArray paths = tip->getAllPaths();
    ASSERT_EQ(paths.size(), 2u);
    EXPECT_EQ(paths[0].fullPathName(), "|group|arm|tip");
    EXPECT_EQ(paths[1].fullPathName(), "|other|tip");
    EXPECT_EQ(paths[0].whichInstance(), 0u);
    EXPECT_EQ(paths[1].whichInstance(), 1u);
    EXPECT_EQ(paths[1].partialPathName(), "other|tip");
    EXPECT_EQ(paths[0].transform()->name(), "arm");
    EXPECT_EQ(TdagPath::pathsNamed(graph, "arm|tip").size(), 1u);
    EXPECT_EQ(TdagPath::pathsNamed(graph, "tip").size(), 2u);
    EXPECT_TRUE(TdagPath::pathsNamed(graph, "|arm|tip").empty()); // arm is no root

    // The exclusive matrix leaves out the node's own; the inverse undoes it.
    const TdagPath armPath = pathNamed(graph, "|group|arm");
    EXPECT_VEC_NEAR(armPath.exclusiveMatrix().transformPoint({0, 0, 0}), 10, 0, 0, 1e-12);
    EXPECT_TRUE((armPath.inclusiveMatrix() * armPath.inclusiveMatrixInverse()).isIdentity(1e-12));
    const T4dFltMatrix f = paths[0].inclusiveFltMatrix();
    EXPECT_FLOAT_EQ(f.m[3][0], 10.0f);
    EXPECT_FLOAT_EQ(f.m[3][2], -1.0f);
}

TEST(Dag, IteratorWalksEveryInstanceDepthFirst) {
    TdependGraph graph;
    runScene(graph, "node transform a\nnode transform b -parent a\nnode shape s -parent b\n"
                    "node transform c\nparent -add s c\n");
    std::vector<std::string> seen;
    for (TdagIterator it(graph); !it.isDone(); it.next())
        seen.push_back(std::to_string(it.depth()) + it.path().fullPathName());
    EXPECT_EQ(seen, (std::vector<std::string>{"0|a", "1|a|b", "2|a|b|s", "0|c", "1|c|s"}));

    std::vector<std::string> below;
    for (TdagIterator it(pathNamed(graph, "|a|b")); !it.isDone(); it.next())
        below.push_back(it.path().fullPathName());
    EXPECT_EQ(below, (std::vector<std::string>{"|a|b", "|a|b|s"}));

    std::vector<std::string> up;
    for (TdagPathIterator it(pathNamed(graph, "|a|b|s")); !it.isDone(); it.next())
        up.push_back(it.node()->name());
    EXPECT_EQ(up, (std::vector<std::string>{"s", "b", "a"}));
}

TEST(Dag, EditsThatWouldBreakTheHierarchyFailAndChangeNothing) {
    TdependGraph graph;
    runScene(graph, "node transform a\nnode transform b -parent a\nnode shape s -parent b\n");
    const std::string before = qsl::writeScene(graph);

    EXPECT_EQ(sceneError(graph, "parent a b"),
              "scene.qsl:1: error: cannot put 'a' under 'b': 'a' would be below itself");
    EXPECT_EQ(sceneError(graph, "node transform t\nparent t s"),
              "scene.qsl:2: error: 's' (shape) cannot have children: only transforms can");
    EXPECT_EQ(sceneError(graph, "node shape lonely"),
              "scene.qsl:1: error: shape 'lonely' (shape) has no transform parent: make it with "
              "'node shape lonely -parent TRANSFORM' or use 'parent lonely TRANSFORM'");
    EXPECT_EQ(sceneError(graph, "connect a.message b.dagChildren[3]"),
              "scene.qsl:1: error: node types refuse the connection 'a.message' -> "
              "'b.dagChildren[3]'");
    EXPECT_EQ(sceneError(graph, "node renderLayer r -parent a"),
              "scene.qsl:1: error: '-parent' places DAG nodes, and 'renderLayer' is not a DAG "
              "node type");
    EXPECT_NE(sceneError(graph, "node transform x -parent nowhere").find("no node named 'nowhere'"),
              std::string::npos);
    EXPECT_EQ(qsl::writeScene(graph), before);

    // A move puts b (and what is below it) at the root, and keeps it there
    // when written and read back.
    runScene(graph, "parent -world b");
    EXPECT_EQ(pathNamed(graph, "s").fullPathName(), "|b|s");
    TdependGraph copy;
    runScene(copy, qsl::writeScene(graph));
    EXPECT_EQ(pathNamed(copy, "s").fullPathName(), "|b|s");
}

TEST(Dag, MovingOneInstanceReplacesOnlyItsParent) {
    TdependGraph graph;
    runScene(graph, "node transform a\nnode transform b\nnode transform c\n"
                    "node shape s -parent a\nparent -add s b\nparent b|s c\n");
    const auto paths = TdagObject::fromNode(graph.findNode("s"))->getAllPaths();
    ASSERT_EQ(paths.size(), 2u);
    EXPECT_EQ(paths[0].fullPathName(), "|a|s");
    EXPECT_EQ(paths[1].fullPathName(), "|c|s");
}

TEST(Dag, AHiddenParentHidesItsShapes) {
    TdependGraph graph;
    runScene(graph, "node transform group\nnode transform t -parent group\n"
                    "node shape s -parent t\nnode transform u\nparent -add s u\n");
    const TdagPath underGroup = pathNamed(graph, "|group|t|s");
    const TdagPath underU = pathNamed(graph, "|u|s");
    EXPECT_TRUE(TdagPathUtils::isObjectVisibleToRenderer(underGroup));

    runScene(graph, "set group.visibility false");
    EXPECT_FALSE(TdagPathUtils::isObjectVisibleToRenderer(underGroup));
    EXPECT_TRUE(TdagPathUtils::isObjectVisibleToRenderer(underU)); // the other instance shows
    EXPECT_TRUE(TdagObject::fromNode(graph.findNode("s"))->ownVisibility());

    runScene(graph, "set group.visibility true\nset s.visibility false");
    EXPECT_FALSE(TdagPathUtils::isObjectVisibleToRenderer(underGroup));
    EXPECT_FALSE(TdagPathUtils::isObjectVisibleToRenderer(underU));
}

} // namespace
