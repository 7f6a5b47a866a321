#include "host/scene/image_source.h"

#include "host/graph.h"
#include "host/scene/render_layer.h"

ORVO_REGISTER_NODE(TdnImageSource)
ORVO_DEPENDENCIES(TdnImageSource) {}
ORVO_REGISTER_NODE(TdnRenderPass)
ORVO_DEPENDENCIES(TdnRenderPass) {}
ORVO_REGISTER_NODE(TdnRenderTarget)
ORVO_DEPENDENCIES(TdnRenderTarget) {}

const TdependNode* TdnImageSource::connectedTo(const Tattribute& attribute) const {
    const TdependGraph* graph = this->graph();
    return graph ? graph->sourceOf(Tplug(this, &attribute)).node() : nullptr;
}

const TdependNode* TdnImageSource::getImageSourceCamera(const TdependNode* fallback) const {
    const TdependNode* camera = connectedTo(aCamera);
    return camera ? camera : fallback;
}

const TdnRenderLayer*
TdnImageSource::getImageSourceRenderLayer(const TdnRenderLayer* fallback) const {
    return fallback;
}

Tstring TdnImageSource::getImageSourceTokens() const {
    return {};
}

bool TdnImageSource::isRenderDependencyFor(const Tplug&) const {
    return false;
}

Tstring TdnRenderPass::passId() const {
    const TplugValue value =
        TdnRenderLayer::readValue(Tplug(const_cast<TdnRenderPass*>(this), &aPassId), nullptr);
    const Tstring* text = OrvoStringOf(*static_cast<const Tdata*>(value.address()));
    return text ? *text : Tstring();
}

Tstring TdnRenderPass::getImageSourceTokens() const {
    const Tstring id = passId();
    return id.empty() ? Tstring() : "RenderPass=" + id;
}

bool TdnRenderTarget::isRenderDependencyFor(const Tplug& plug) const {
    const Tattribute* a = plug.attribute();
    return a && (a == &aImageSources || a->isDescendentOf(aImageSources));
}
