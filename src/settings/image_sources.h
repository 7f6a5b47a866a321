#pragma once

// Which image sources must render for a root source, in which context, and
// how their renders merge into tasks. One renderer invocation can serve
// many sources: a renderer that renders every pass of a camera and layer in
// one run takes them as one task.
//
// getDependencies walks upstream from the root and builds a graph of
// dependencies, one per source however many sources need it.
// getRenderTasks turns it into a task per dependency and context (camera
// and layer); mergeRenderTasks joins the tasks a strategy says are one.

#include <list>
#include <memory>
#include <set>
#include <unordered_map>
#include <vector>

#include "framework/node_pattern.h"
#include "host/scene/image_source.h"
#include "settings/common_render_globals.h"

class TdnRenderLayer;

// ---------------------------------------------------------------- the node

#define ORVO_SCHEMA_TdnRenderedImageSource(A, C2, C3)                                              \
    A(TattributeMessage, RenderLayer, "renderLayer", "lyr", .flagsOn(0))                           \
    A(TattributeMessage, ImageSource, "imageSource", "ims", .flagsOn(0))
ORVO_NODE(TdnRenderedImageSource, TdnImageSource, "renderedImageSource", "RCIS", 785,
          "kRenderedImageSource", "rendernode/imageSource", "n_renderedImageSource")

// The render of a camera in a layer: the camera connected to `camera`, the
// layer whose message is connected to `renderLayer`; the source connected
// to `imageSource` (a pass) must render for it and gives its name tokens.
class TdnRenderedImageSource : public TdnPattern<TdnRenderedImageSource, TdnImageSource> {
public:
    const TdnRenderLayer* getImageSourceRenderLayer(const TdnRenderLayer* fallback) const override;
    Tstring getImageSourceTokens() const override;
    bool isRenderDependencyFor(const Tplug& plug) const override;
    // The source connected to `imageSource`, or null.
    const TdnImageSource* connectedImageSource() const;
};

// ---------------------------------------------------------------- dependencies

class TrenderDependency;
using TrenderDependencyPtr = TsharedObjectPtr<TrenderDependency>;

// Dependencies keep the order they were made in, so that a plan comes out
// the same on every run.
struct TrenderDependencyOrder {
    bool operator()(const TrenderDependencyPtr& a, const TrenderDependencyPtr& b) const;
};
using TrenderDependencySet = std::set<TrenderDependencyPtr, TrenderDependencyOrder>;

class TrenderDependency : public std::enable_shared_from_this<TrenderDependency> {
public:
    static TrenderDependencyPtr create(const TdnImageSource* node);

    const TdnImageSource* node() const { return fNode; }
    Tstring name() const;
    // Adds `child` and makes this one of its parents.
    void addChild(const TrenderDependencyPtr& child);
    const TrenderDependencySet& children() const { return fChildren; }
    TrenderDependencySet parents() const;
    bool visited() const { return fVisited; }
    void setVisited(bool on) { fVisited = on; }
    // The place in the order of making.
    uint64_t sequence() const { return fSequence; }

private:
    friend class TrenderDependencyGraph;
    TrenderDependency(const TdnImageSource* node, uint64_t sequence)
        : fNode(node), fSequence(sequence) {}

    const TdnImageSource* fNode;
    uint64_t fSequence;
    TrenderDependencySet fChildren;
    std::set<TrenderDependency*> fParents; // back pointers: the children own nothing upward
    bool fVisited = false;
};

class TrenderDependencyGraph {
public:
    explicit TrenderDependencyGraph(const TdnImageSource* root);
    // Dependencies may point back at their ancestors (a cycle of sources):
    // the graph breaks those links so that they are freed.
    ~TrenderDependencyGraph();
    TrenderDependencyGraph(const TrenderDependencyGraph&) = delete;
    TrenderDependencyGraph& operator=(const TrenderDependencyGraph&) = delete;

    // Makes `node` a dependency of `parent`, with one dependency per node.
    void addDependency(const TrenderDependencyPtr& parent, const TdnImageSource* node);
    // The dependencies held for `node` (none when it is not in the graph).
    void findDependencies(const TdnImageSource* node, TrenderDependencySet& out) const;
    // The dependency of `node`, or null.
    TrenderDependencyPtr find(const TdnImageSource* node) const;
    TrenderDependencyPtr root() const { return fRoot; }
    void clearVisited();
    size_t size() const { return fByNode.size(); }

private:
    std::unordered_map<const TdnImageSource*, TrenderDependencySet> fSets;
    std::unordered_map<const TdnImageSource*, TrenderDependencyPtr> fByNode;
    TrenderDependencyPtr fRoot;
};

// ---------------------------------------------------------------- tasks

class TrenderContext {
public:
    TrenderContext() = default;
    static TrenderContext create(const TdependNode* camera, const TdnRenderLayer* layer) {
        TrenderContext c;
        c.camera = camera;
        c.layer = layer;
        return c;
    }
    const TdependNode* camera = nullptr;
    const TdnRenderLayer* layer = nullptr;

    // By the camera's name, then the layer's name (no node sorts first).
    friend bool operator<(const TrenderContext& a, const TrenderContext& b);
    friend bool operator==(const TrenderContext& a, const TrenderContext& b) {
        return !(a < b) && !(b < a);
    }
};

class TrenderTask {
public:
    static TrenderTask create(const TrenderDependencyPtr& dependency,
                              const TrenderContext& context);
    static TrenderTask create(const TrenderDependencySet& dependencies,
                              const TrenderContext& context);

    TrenderDependencyPtr firstDep() const;
    const TrenderDependencySet& deps() const { return fDeps; }
    const TrenderContext& context() const { return fContext; }
    void merge(const TrenderDependencySet& dependencies);

    // By the number of dependencies, then member by member (by name), then
    // by context.
    friend bool operator<(const TrenderTask& a, const TrenderTask& b);

private:
    TrenderDependencySet fDeps;
    TrenderContext fContext;
};
using TrenderTaskList = std::list<TrenderTask>;

// Joins tasks that one renderer invocation serves: the base joins tasks
// equal in TrenderTask's order.
class TrenderTaskMergeStrategy {
public:
    virtual ~TrenderTaskMergeStrategy() = default;
    virtual TrenderTaskList merge(const TrenderTaskList& tasks) const;
};

// For renderers that render all passes of one camera and layer in one run:
// the passes of one context are one task; a rendered image source's task
// passes through as it is.
class TpassRenderTaskMergeStrategy : public TrenderTaskMergeStrategy {
public:
    TrenderTaskList merge(const TrenderTaskList& tasks) const override;
};

namespace imageSourceDependencies {
// The sources `root` needs, or null for no root.
std::unique_ptr<TrenderDependencyGraph> getDependencies(const TdnImageSource* root);
TrenderTaskList getRenderTasks(TrenderDependencyGraph& graph, const TrenderContext& context);
TrenderTaskList mergeRenderTasks(const TrenderTaskList& tasks,
                                 const TrenderTaskMergeStrategy& strategy);
} // namespace imageSourceDependencies

namespace imageSourceUtil {
// The name of the image `source` makes at `time`, through its own layer
// and camera where it names them (else `layer` and `camera`). Empty when
// the scene has no render settings. `overrides` stand in for the scene's
// settings, as a command line gives them.
Tstring getImageName(const TdnImageSource* source, TpathType pathType, TanimTime time,
                     const Tstring& scene, const TdependNode* camera, const TdnRenderLayer* layer,
                     Tstring* bufferNameOut = nullptr,
                     const TrenderSettingsOverrides* overrides = nullptr);
} // namespace imageSourceUtil
