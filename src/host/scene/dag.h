#pragma once

// The DAG of the scene model: objects placed in space by a hierarchy of
// transforms. A node can sit under several transforms (instancing); each
// way down from a root to it is a path, and its instance number is the
// position of that path among its paths.
//
// The hierarchy is kept as connections, so that it is undone, redone and
// written with the rest of the scene: a child's `message` feeds an element
// of its parent's `dagChildren`. A node's parents are in the order their
// connections were made; a transform's children in element order.

#include <string>
#include <string_view>
#include <vector>

#include "host/node_pattern.h"
#include "host/scene/matrix.h"

class TdagObject;
class Ttransform;
class TdnRenderLayer;

// One way down the DAG to a node: the nodes from a root to it.
class TdagPath {
public:
    TdagPath() = default;
    explicit TdagPath(std::vector<TdagObject*> nodes) : fNodes(std::move(nodes)) {}

    bool isValid() const { return !fNodes.empty(); }
    unsigned length() const { return unsigned(fNodes.size()); }
    // The node the path leads to, null for an empty path.
    TdagObject* node() const { return fNodes.empty() ? nullptr : fNodes.back(); }
    // The nodes from the root (index 0) down to node().
    const std::vector<TdagObject*>& nodes() const { return fNodes; }
    // The nearest transform at or above node().
    Ttransform* transform() const;

    // The path without its last node; empty for a root.
    TdagPath parentPath() const;
    TdagPath childPath(TdagObject* child) const;
    void pop() { fNodes.pop_back(); }
    void push(TdagObject* child) { fNodes.push_back(child); }

    // The position of this path among node()->getAllPaths().
    unsigned whichInstance() const;
    unsigned instanceNumber() const { return whichInstance(); }

    // "|group|ball|ballShape".
    std::string fullPathName() const;
    // The shortest tail of the full name that names only this path, as
    // "ball|ballShape", or the node's name when it has one path.
    std::string partialPathName() const;

    // Object to world: node()'s own matrix, then each parent's up to the
    // root. The exclusive forms leave out node()'s own matrix.
    T4dDblMatrix inclusiveMatrix() const;
    T4dDblMatrix exclusiveMatrix() const;
    T4dDblMatrix inclusiveMatrixInverse() const { return inclusiveMatrix().inverse(); }
    T4dDblMatrix exclusiveMatrixInverse() const { return exclusiveMatrix().inverse(); }
    T4dFltMatrix inclusiveFltMatrix() const { return inclusiveMatrix().asFloat(); }
    T4dFltMatrix exclusiveFltMatrix() const { return exclusiveMatrix().asFloat(); }
    T4dFltMatrix inclusiveFltMatrixInverse() const { return inclusiveMatrixInverse().asFloat(); }

    friend bool operator==(const TdagPath&, const TdagPath&) = default;

    // Every path that a name picks: a node's name gives all its paths; a
    // full name ("|a|b") the one path it spells; a partial one ("a|b") all
    // paths that end so. Empty when nothing matches.
    static std::vector<TdagPath> pathsNamed(const TdependGraph& graph, std::string_view name);

private:
    std::vector<TdagObject*> fNodes;
};
using TdagPathArray = std::vector<TdagPath>;

// Walks up a path: the path itself, then each shorter path up to its root.
// Sets and layers that hold a group hold what is below it, so membership
// questions walk this way.
class TdagPathIterator {
public:
    explicit TdagPathIterator(TdagPath path) : fPath(std::move(path)) {}
    bool isDone() const { return !fPath.isValid(); }
    const TdagPath& path() const { return fPath; }
    TdagObject* node() const { return fPath.node(); }
    void next() { fPath.pop(); }

private:
    TdagPath fPath;
};

// Walks a hierarchy depth first, parents before children, every instance
// separately. Without a root it walks the whole DAG, roots in creation order.
class TdagIterator {
public:
    explicit TdagIterator(const TdependGraph& graph);
    explicit TdagIterator(const TdagPath& root);

    bool isDone() const { return fStack.empty(); }
    const TdagPath& path() const { return fStack.back(); }
    TdagObject* node() const { return fStack.back().node(); }
    // The depth below the iterator's root (the root is 0).
    unsigned depth() const { return fStack.back().length() - fBaseLength; }
    void next();
    // Skips what lies below the current path.
    void prune() { fPruned = true; }

private:
    std::vector<TdagPath> fStack; // back is the current path
    unsigned fBaseLength = 1;
    bool fPruned = false;
};

// Questions the renderer asks of a path.
struct TdagPathUtils {
    // Every node on the path has `visibility` on, each value read through
    // `layer` (null: the plain values).
    static bool isObjectVisible(const TdagPath& path, const TdnRenderLayer* layer);
    // The same through the graph's current render layer.
    static bool isObjectVisibleToRenderer(const TdagPath& path);
    // The path lies in the layer: the layer is the default layer (or null),
    // or a node on the path is a member of it.
    static bool inRenderLayer(const TdagPath& path, const TdnRenderLayer* layer);
};

// ---------------------------------------------------------------- dagNode

#define ORVO_SCHEMA_TdagObject(A, C2, C3)                                                          \
    A(TattributeBoolean, Visibility, "visibility", "v", .input().setNativeDefaultData(true))       \
    A(TattributeArrayOf<TattributeMessage>, InstObjGroups, "instObjGroups", "iog",                 \
      .flagsOn(TattrFlag::kHidden))
ORVO_NODE(TdagObject, TdependNode, "dagNode", "DAGN", 2101, "kDagNode", "host/dag", "n_dagNode")

// The base of everything in the DAG. `instObjGroups[i]` stands for instance
// i in the sets it belongs to.
class TdagObject : public TdnPattern<TdagObject, TdependNode> {
public:
    // The transforms directly above, in the order they were made parents.
    const std::vector<Ttransform*>& parents() const { return fParents; }
    // Every path to this node, in instance order: for each parent in turn,
    // each of the parent's paths. A node with no parent has one path.
    TdagPathArray getAllPaths() const;
    TdagPath firstPath() const;
    unsigned instanceCount() const;
    bool isInstanced() const { return instanceCount() > 1; }

    // The object's own matrix: identity except for transforms.
    virtual T4dDblMatrix localMatrix() const { return {}; }
    // May `child` go under this node? Only transforms take children.
    virtual bool acceptsChildren() const { return false; }

    // The plain value of `visibility`.
    bool ownVisibility() const;
    // The first path lies in the graph's current render layer.
    bool inCurrentRenderLayer() const;

    // A render model type that mixes the shading-node interface into a DAG
    // type is cast to that interface here.
    void* cast(Tmetaclass* meta) override;
    void connectionMade(const Tplug& mine, const Tplug& other, bool asSource) override;
    void connectionBroken(const Tplug& mine, const Tplug& other, bool asSource) override;

    static TdagObject* fromNode(TdependNode* node);

private:
    std::vector<Ttransform*> fParents;
};

// ---------------------------------------------------------------- transform

#define ORVO_SCHEMA_Ttransform(A, C2, C3)                                                          \
    C3(Tattribute3Float, Translate, "translate", "t", ORVO_XYZ, .inputParent(), .input())          \
    C3(Tattribute3Float, Rotate, "rotate", "r", ORVO_XYZ, .inputParent(), .input())                \
    A(TattributeEnum, RotateOrder, "rotateOrder", "ro",                                            \
      .input()                                                                                     \
          .ORVO_FIELD(kXYZ, "xyz")                                                                 \
          .ORVO_FIELD(kYZX, "yzx")                                                                 \
          .ORVO_FIELD(kZXY, "zxy")                                                                 \
          .ORVO_FIELD(kXZY, "xzy")                                                                 \
          .ORVO_FIELD(kYXZ, "yxz")                                                                 \
          .ORVO_FIELD(kZYX, "zyx")                                                                 \
          .setNativeDefaultData(0))                                                                \
    C3(Tattribute3Float, Scale, "scale", "s", ORVO_XYZ,                                            \
       .inputParent().setNativeDefaultData(1, 1, 1), .input())                                     \
    C3(Tattribute3Float, RotatePivot, "rotatePivot", "rp", ORVO_XYZ, .inputParent(), .input())     \
    C3(Tattribute3Float, ScalePivot, "scalePivot", "sp", ORVO_XYZ, .inputParent(), .input())       \
    A(TattributeFltMatrix, Matrix, "matrix", "m", .output())                                       \
    A(TattributeFltMatrix, InverseMatrix, "inverseMatrix", "im", .output())                        \
    A(TattributeArrayOf<TattributeMessage>, DagChildren, "dagChildren", "dch",                     \
      .flagsOn(TattrFlag::kHidden))

class Ttransform;
template <>
struct TdnKernel<Ttransform> {
    // The order of the three rotations: kXYZ turns about X first.
    enum : int16_t { kXYZ = 0, kYZX = 1, kZXY = 2, kXZY = 3, kYXZ = 4, kZYX = 5 };
};

ORVO_NODE(Ttransform, TdagObject, "transform", "XFRM", 2102, "kTransform", "host/dag/transform",
          "n_transform")

// A transform places what is below it: scale about the scale pivot, rotate
// (angles in degrees, in rotateOrder) about the rotate pivot, translate.
class Ttransform : public TdnPattern<Ttransform, TdagObject> {
public:
    struct Values {
        double translate[3] = {0, 0, 0};
        double rotate[3] = {0, 0, 0}; // degrees
        int rotateOrder = 0;
        double scale[3] = {1, 1, 1};
        double rotatePivot[3] = {0, 0, 0};
        double scalePivot[3] = {0, 0, 0};
    };
    static T4dDblMatrix composeMatrix(const Values& v);

    // The current inputs (connections pulled).
    Values values() const;
    T4dDblMatrix localMatrix() const override { return composeMatrix(values()); }
    bool acceptsChildren() const override { return true; }

    // The children, in element order of dagChildren.
    std::vector<TdagObject*> children() const;

    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                           unsigned count) override;
    bool legalConnection(const Tplug& mine, const Tplug& other, bool asSource) override;
    void connectionMade(const Tplug& mine, const Tplug& other, bool asSource) override;
    void connectionBroken(const Tplug& mine, const Tplug& other, bool asSource) override;

private:
    std::vector<std::pair<unsigned, TdagObject*>> fChildren; // sorted by element index
};

// DAG edits for tools and the scene language, made through a command so
// that they can be undone. Each throws TgraphError, naming the nodes, for
// an edit that would break the DAG (a cycle, a child under a shape...).
struct TdagEdit {
    // Adds `parent` above `child` (one more instance).
    static void addParent(TDGcommand& command, TdagObject& child, TdagObject& parent);
    // Takes `parent` from above `child` (the instances through it go).
    static void removeParent(TDGcommand& command, TdagObject& child, TdagObject& parent);
    // Moves `child` under `parent` alone: its other parents are dropped.
    // A null parent moves it to the root.
    static void setParent(TDGcommand& command, TdagObject& child, TdagObject* parent);
};
