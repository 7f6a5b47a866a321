#include "settings/render_lists.h"

#include <algorithm>
#include <cstdio>

#include "host/graph.h"
#include "host/scene/camera.h"
#include "host/scene/render_layer.h"

namespace {
TdependGraph* graphOr(TdependGraph* graph) {
    return graph ? graph : TdependGraph::fsCurrentGraph;
}
} // namespace

// ---------------------------------------------------------------- cameras

TcameraList::TcameraList(bool useActiveView, const Tstring& name, TdependGraph* graph)
    : fUseActiveView(useActiveView), fName(name), fGraph(graphOr(graph)) {
    buildCameraList();
}

void TcameraList::buildCameraList() {
    clear();
    if (!fGraph)
        return;
    if (!fName.empty()) {
        const std::vector<TdagPath> matches = TdagPath::pathsNamed(*fGraph, fName);
        for (auto it = matches.rbegin(); it != matches.rend(); ++it) {
            if (dynamic_cast<TcameraShape*>(it->node())) {
                push_back(*it);
                return;
            }
            // A transform leads to the camera below it.
            if (auto* transform = dynamic_cast<Ttransform*>(it->node()))
                for (TdagObject* child : transform->children())
                    if (dynamic_cast<TcameraShape*>(child)) {
                        push_back(it->childPath(child));
                        return;
                    }
        }
        return;
    }
    if (fUseActiveView)
        return; // no 3D views in this host
    for (TdependNode* node : fGraph->nodes()) {
        auto* camera = dynamic_cast<TcameraShape*>(node);
        if (!camera || !camera->isRenderable(nullptr))
            continue;
        const TdagPathArray paths = camera->getAllPaths();
        insert(end(), paths.rbegin(), paths.rend());
    }
}

// ---------------------------------------------------------------- layers

bool TlayerList::start(TdependGraph* graph, TdnRenderLayer*& fallback) {
    graph = graphOr(graph);
    fallback = graph ? TdnRenderLayerManager::defaultLayer(*graph) : nullptr;
    if (!fallback) {
        push_back(nullptr);
        return false;
    }
    return true;
}

TlayerList::TlayerList(bool all, TdependGraph* graph) {
    TdnRenderLayer* fallback = nullptr;
    if (!start(graph, fallback))
        return;
    if (!all) {
        push_back(fallback);
        return;
    }
    for (TdnRenderLayer* layer : TdnRenderLayerManager::layers(*graphOr(graph)))
        if (layer->isRenderable())
            push_back(layer);
}

TlayerList::TlayerList(const Tstring& name, TdependGraph* graph) {
    TdnRenderLayer* fallback = nullptr;
    if (!start(graph, fallback))
        return;
    for (TdnRenderLayer* layer : TdnRenderLayerManager::layers(*graphOr(graph)))
        if (!name.empty() && layer->name() == name) {
            push_back(layer);
            return;
        }
    push_back(fallback);
}

TlayerList::TlayerList(const std::vector<Tstring>& names, TdependGraph* graph) {
    TdnRenderLayer* fallback = nullptr;
    if (!start(graph, fallback))
        return;
    for (TdnRenderLayer* layer : TdnRenderLayerManager::layers(*graphOr(graph)))
        if (std::find(names.begin(), names.end(), layer->name()) != names.end())
            push_back(layer);
    if (empty())
        push_back(fallback);
}

void TlayerList::sortPerDisplayOrder() {
    std::sort(begin(), end(), [](const TdnRenderLayer* a, const TdnRenderLayer* b) {
        return (a ? a->order() : 0) < (b ? b->order() : 0);
    });
}

void TlayerList::print() const {
    std::fprintf(stderr, "Found %u layers:\n", length());
    for (unsigned i = 0; i < length(); ++i)
        std::fprintf(stderr, "\tLayer[%u], Id=%d, name='%s'\n", i, renderableLayerId(i),
                     renderableLayerName(i).c_str());
}

int TlayerList::renderableLayerId(unsigned i) const {
    const TdnRenderLayer* layer = at(i);
    return layer ? layer->id() : 0;
}

Tstring TlayerList::renderableLayerName(unsigned i) const {
    const TdnRenderLayer* layer = at(i);
    return layer ? layer->name() : Tstring();
}
