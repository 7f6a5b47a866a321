#include "settings/hardware_render_globals.h"

#include "host/graph.h"
#include "settings/render_globals.h"

ORVO_REGISTER_NODE(TdnHwRenderGlobals)
ORVO_DEPENDENCIES(TdnHwRenderGlobals) {}

namespace {
constexpr const char* kCurrentName = "hardwareRenderGlobals";
}

TdnHwRenderGlobals* TdnHwRenderGlobals::currentGlobals(const TdependGraph* graph) {
    if (!graph)
        graph = TdependGraph::fsCurrentGraph;
    TdependNode* node = graph ? graph->findNode(kCurrentName) : nullptr;
    return node ? static_cast<TdnHwRenderGlobals*>(node->cast(sTypeof())) : nullptr;
}

TdnHwRenderGlobals* TdnHwRenderGlobals::createCurrentGlobals(TdependGraph& graph) {
    if (TdnHwRenderGlobals* current = currentGlobals(&graph))
        return current;
    TdependNode* node = graph.createNode(Identity::kTypeName, kCurrentName);
    node->setImplicitlyCreated(true);
    node->setNodeIsDefault(true);
    return static_cast<TdnHwRenderGlobals*>(node->cast(sTypeof()));
}

bool TdnHwRenderGlobals::graphicsHardwareGeometryCaching(int index) const {
    return orvo::settings::number(*this, index == 0 ? aGeometryCachingData
                                                    : aGeometryCachingIndexing) != 0.0;
}

void TdnHwRenderGlobals::setShadowLinkMode(int mode) {
    OrvoSetShadowLinkMode(*this, mode);
}
