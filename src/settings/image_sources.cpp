#include "settings/image_sources.h"

#include <atomic>

#include "framework/render_info.h"
#include "host/dg_iterator.h"
#include "host/graph.h"
#include "host/scene/dag.h"
#include "host/scene/render_layer.h"

ORVO_REGISTER_NODE(TdnRenderedImageSource)
ORVO_DEPENDENCIES(TdnRenderedImageSource) {}

// ---------------------------------------------------------------- the node

const TdnRenderLayer*
TdnRenderedImageSource::getImageSourceRenderLayer(const TdnRenderLayer* fallback) const {
    const auto* layer = dynamic_cast<const TdnRenderLayer*>(connectedTo(aRenderLayer));
    return layer ? layer : fallback;
}

const TdnImageSource* TdnRenderedImageSource::connectedImageSource() const {
    return dynamic_cast<const TdnImageSource*>(connectedTo(aImageSource));
}

Tstring TdnRenderedImageSource::getImageSourceTokens() const {
    const TdnImageSource* source = connectedImageSource();
    return source ? source->getImageSourceTokens() : Tstring();
}

bool TdnRenderedImageSource::isRenderDependencyFor(const Tplug& plug) const {
    return plug.attribute() == &aImageSource;
}

// ---------------------------------------------------------------- dependencies

bool TrenderDependencyOrder::operator()(const TrenderDependencyPtr& a,
                                        const TrenderDependencyPtr& b) const {
    return a->sequence() < b->sequence();
}

TrenderDependencyPtr TrenderDependency::create(const TdnImageSource* node) {
    // The order of making, process wide: dependencies of several graphs
    // never meet in one set, so one counter serves them all.
    static std::atomic<uint64_t> sequence{0};
    return TrenderDependencyPtr(new TrenderDependency(node, sequence.fetch_add(1)));
}

Tstring TrenderDependency::name() const {
    return fNode ? fNode->name() : Tstring();
}

void TrenderDependency::addChild(const TrenderDependencyPtr& child) {
    if (!child)
        return;
    fChildren.insert(child);
    child->fParents.insert(this);
}

TrenderDependencySet TrenderDependency::parents() const {
    TrenderDependencySet out;
    for (TrenderDependency* parent : fParents)
        out.insert(parent->shared_from_this());
    return out;
}

TrenderDependencyGraph::TrenderDependencyGraph(const TdnImageSource* root)
    : fRoot(TrenderDependency::create(root)) {
    fByNode[root] = fRoot;
    fSets[root].insert(fRoot);
}

TrenderDependencyGraph::~TrenderDependencyGraph() {
    for (auto& [node, dependency] : fByNode) {
        dependency->fChildren.clear();
        dependency->fParents.clear();
    }
}

void TrenderDependencyGraph::addDependency(const TrenderDependencyPtr& parent,
                                           const TdnImageSource* node) {
    if (!parent || !parent->node() || parent->visited())
        return;
    TrenderDependencySet& set = fSets[node];
    TrenderDependencyPtr& dependency = fByNode[node];
    if (!dependency)
        dependency = TrenderDependency::create(node);
    set.insert(dependency);
    parent->addChild(dependency);
}

void TrenderDependencyGraph::findDependencies(const TdnImageSource* node,
                                              TrenderDependencySet& out) const {
    const auto it = fSets.find(node);
    if (it != fSets.end())
        out.insert(it->second.begin(), it->second.end());
}

TrenderDependencyPtr TrenderDependencyGraph::find(const TdnImageSource* node) const {
    const auto it = fByNode.find(node);
    return it == fByNode.end() ? nullptr : it->second;
}

void TrenderDependencyGraph::clearVisited() {
    for (auto& [node, dependency] : fByNode)
        dependency->setVisited(false);
}

// ---------------------------------------------------------------- tasks

namespace {

const Tstring& nameOf(const TdependNode* node) {
    static const Tstring none;
    return node ? node->name() : none;
}

} // namespace

bool operator<(const TrenderContext& a, const TrenderContext& b) {
    if (const int c = nameOf(a.camera).compare(nameOf(b.camera)))
        return c < 0;
    return nameOf(a.layer) < nameOf(b.layer);
}

TrenderTask TrenderTask::create(const TrenderDependencyPtr& dependency,
                                const TrenderContext& context) {
    TrenderTask task;
    if (dependency)
        task.fDeps.insert(dependency);
    task.fContext = context;
    return task;
}

TrenderTask TrenderTask::create(const TrenderDependencySet& dependencies,
                                const TrenderContext& context) {
    TrenderTask task;
    task.fDeps = dependencies;
    task.fContext = context;
    return task;
}

TrenderDependencyPtr TrenderTask::firstDep() const {
    return fDeps.empty() ? nullptr : *fDeps.begin();
}

void TrenderTask::merge(const TrenderDependencySet& dependencies) {
    fDeps.insert(dependencies.begin(), dependencies.end());
}

bool operator<(const TrenderTask& a, const TrenderTask& b) {
    if (a.fDeps.size() != b.fDeps.size())
        return a.fDeps.size() < b.fDeps.size();
    for (auto i = a.fDeps.begin(), j = b.fDeps.begin(); i != a.fDeps.end(); ++i, ++j)
        if (const int c = (*i)->name().compare((*j)->name()))
            return c < 0;
    return a.fContext < b.fContext;
}

namespace {

// The set-driven merge both strategies share: a task not in the set goes
// to the result and into the set; one equal to an entry joins that entry.
template <class Less, class Pass>
TrenderTaskList mergeBy(const TrenderTaskList& tasks, Less less, Pass passStraight) {
    TrenderTaskList result;
    std::set<TrenderTaskList::iterator, Less> seen(less);
    for (const TrenderTask& task : tasks) {
        if (passStraight(task)) {
            result.push_back(task);
            continue;
        }
        const auto probe = result.insert(result.end(), task);
        const auto [at, fresh] = seen.insert(probe);
        if (!fresh) {
            (*at)->merge(task.deps());
            result.erase(probe);
        }
    }
    return result;
}

bool isPassOf(const TrenderTask& task) {
    const TrenderDependencyPtr first = task.firstDep();
    return first && dynamic_cast<const TdnRenderPass*>(first->node());
}

} // namespace

TrenderTaskList TrenderTaskMergeStrategy::merge(const TrenderTaskList& tasks) const {
    return mergeBy(
        tasks, [](TrenderTaskList::iterator a, TrenderTaskList::iterator b) { return *a < *b; },
        [](const TrenderTask&) { return false; });
}

TrenderTaskList TpassRenderTaskMergeStrategy::merge(const TrenderTaskList& tasks) const {
    // Two pass tasks of one context are equal whatever their passes; any
    // other pair compares in the task order, and a pass task sorts apart
    // from the others so that the order stays strict.
    auto less = [](TrenderTaskList::iterator a, TrenderTaskList::iterator b) {
        const bool passA = isPassOf(*a), passB = isPassOf(*b);
        if (passA && passB)
            return a->context() < b->context();
        if (passA != passB)
            return passA < passB;
        return *a < *b;
    };
    return mergeBy(tasks, less, [](const TrenderTask& task) {
        const TrenderDependencyPtr first = task.firstDep();
        return first && dynamic_cast<const TdnRenderedImageSource*>(first->node());
    });
}

// ---------------------------------------------------------------- walks

namespace imageSourceDependencies {

std::unique_ptr<TrenderDependencyGraph> getDependencies(const TdnImageSource* root) {
    if (!root)
        return nullptr;
    auto graph = std::make_unique<TrenderDependencyGraph>(root);
    const TdependGraph* dg = root->graph();
    if (!dg)
        return graph;

    struct Level {
        TrenderDependencyPtr parent;
        std::unique_ptr<TDGiterator> it;
    };
    std::vector<Level> stack;
    stack.push_back(
        {graph->root(), std::make_unique<TDGiterator>(*dg, const_cast<TdnImageSource*>(root))});
    auto onStack = [&stack](const TdependNode* node) {
        for (const Level& level : stack)
            if (level.parent->node() == node)
                return true;
        return false;
    };

    while (!stack.empty()) {
        Level& level = stack.back();
        TDGiterator& it = *level.it;
        if (it.isDone()) {
            stack.pop_back();
            continue;
        }
        const TrenderDependencyPtr parent = level.parent;
        const auto* source = dynamic_cast<const TdnImageSource*>(it.currentItem());
        if (!source || source == parent->node()) {
            it.next();
            continue;
        }
        if (parent->node()->isRenderDependencyFor(it.rootPlug())) {
            it.prune();
            if (const TrenderDependencyPtr known = graph->find(source)) {
                parent->addChild(known);
                it.next();
                continue;
            }
            const bool cycle = onStack(source);
            graph->addDependency(parent, source);
            it.next();
            if (!cycle)
                stack.push_back(
                    {graph->find(source),
                     std::make_unique<TDGiterator>(*dg, const_cast<TdnImageSource*>(source))});
            continue;
        }
        if (source->stopsDependencyWalk())
            it.prune();
        it.next();
    }
    return graph;
}

namespace {

bool fitsATask(const TrenderTaskList& tasks, const TrenderDependencyPtr& dependency,
               const TrenderContext& context) {
    for (const TrenderTask& task : tasks)
        if (task.context() == context && task.deps().count(dependency))
            return true;
    return false;
}

void collectTasks(const TrenderDependencyPtr& dependency, const TrenderContext& context,
                  TrenderTaskList& tasks) {
    const TdnImageSource* node = dependency->node();
    const TrenderContext own = TrenderContext::create(
        node->getImageSourceCamera(context.camera), node->getImageSourceRenderLayer(context.layer));
    if (dependency->visited() && fitsATask(tasks, dependency, own))
        return;
    tasks.push_back(TrenderTask::create(dependency, own));
    dependency->setVisited(true);
    // Copied: a child's walk may reach this dependency again.
    const TrenderDependencySet children = dependency->children();
    for (const TrenderDependencyPtr& child : children)
        collectTasks(child, own, tasks);
}

} // namespace

TrenderTaskList getRenderTasks(TrenderDependencyGraph& graph, const TrenderContext& context) {
    TrenderTaskList tasks;
    graph.clearVisited();
    if (graph.root())
        collectTasks(graph.root(), context, tasks);
    return tasks;
}

TrenderTaskList mergeRenderTasks(const TrenderTaskList& tasks,
                                 const TrenderTaskMergeStrategy& strategy) {
    return strategy.merge(tasks);
}

} // namespace imageSourceDependencies

// ---------------------------------------------------------------- names

namespace imageSourceUtil {

Tstring getImageName(const TdnImageSource* source, TpathType pathType, TanimTime time,
                     const Tstring& scene, const TdependNode* camera, const TdnRenderLayer* layer,
                     Tstring* bufferNameOut, const TrenderSettingsOverrides* overrides) {
    if (!source || !source->graph())
        return {};
    TrenderInfo* info = TrenderInfo::getRenderInfo(*source->graph());
    if (!info || !info->defaultGlobals())
        return {};
    const TdnRenderLayer* sourceLayer = source->getImageSourceRenderLayer(layer);
    TcommonRenderGlobalsData data;
    info->setCommonRenderGlobals(data, sourceLayer, overrides);

    const TdependNode* sourceCamera = source->getImageSourceCamera(camera);
    Tstring cameraName;
    if (const auto* dag = dynamic_cast<const TdagObject*>(sourceCamera))
        cameraName = TcommonRenderGlobalsData::cameraName(dag->firstPath());
    else if (sourceCamera)
        cameraName = sourceCamera->name();
    const Tstring tokens = source->getImageSourceTokens();
    // A source that shows a pass names its images as that pass does.
    static const Tstring kPassToken = "RenderPass=";
    if (const size_t at = tokens.find(kPassToken); at != Tstring::npos)
        data.setPassName(tokens.substr(at + kPassToken.size(),
                                       tokens.find_first_of(" ;", at) - at - kPassToken.size()));
    if (bufferNameOut)
        *bufferNameOut = data.getBufferName(source, sourceLayer, cameraName, tokens, false);
    return data.getImageName(pathType, time, scene, cameraName, sourceLayer, {}, false, false,
                             tokens, false,
                             dynamic_cast<const TdnRenderTarget*>(source) != nullptr);
}

} // namespace imageSourceUtil
