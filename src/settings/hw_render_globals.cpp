#include "settings/hw_render_globals.h"

#include <limits>
#include <sstream>
#include <vector>

#include "host/env.h"
#include "host/graph.h"
#include "host/messages.h"

ORVO_REGISTER_NODE(TdnHardwareRenderGlobals)
ORVO_DEPENDENCIES(TdnHardwareRenderGlobals) {}

bool TdnHardwareRenderGlobals::sPortHasAlphaBuffer = true;

namespace {

Tstring hwMessage(const char* id, const Tstring& argument = {}) {
    return TstringId(std::string("s_TdnHardwareRenderGlobalsStrings.") + id).format(argument);
}

} // namespace

Tstring TdnHardwareRenderGlobals::checkResolution(const Tstring& text) {
    std::istringstream in(text);
    std::vector<Tstring> words;
    for (Tstring w; in >> w;)
        words.push_back(w);
    if (words.size() == 1)
        return {};
    if (words.size() != 4)
        return hwMessage("rHwInvalidResolutionStr", text);
    for (int i = 1; i <= 2; ++i) {
        const auto n = OrvoParseInteger(words[size_t(i)]);
        if (!n || *n < std::numeric_limits<int16_t>::min() ||
            *n > std::numeric_limits<int16_t>::max())
            return hwMessage("rHwResWidthHeightIntStr", text);
    }
    if (!OrvoParseDouble(words[3]))
        return hwMessage("rHwResolutionAspectStr", text);
    return {};
}

bool TdnHardwareRenderGlobals::setCachedValue(const Tplug& plug, const TdataHandle& value) {
    const Tattribute* a = plug.attribute();
    if (a == &aAlphaSource && value.asShort() == K::kHardwareAlpha && !sPortHasAlphaBuffer)
        TcommandEngine::displayWarning(hwMessage("rHwNoAlphaBufferStr"));
    if (a == &aResolution) {
        const Tstring text = orvo::settings::text(*this, aResolution);
        const Tstring error = checkResolution(text);
        if (!error.empty()) {
            TcommandEngine::displayError(error);
            const Tdata former = OrvoMakeStringData(fResolution);
            setAttributeValue(&aResolution, &former);
            return false;
        }
        fResolution = text;
    }
    return TdnPattern::setCachedValue(plug, value);
}

bool TdnHardwareRenderGlobals::state(TdnHardwareRenderState& s, const TdependGraph* graph) {
    if (!graph)
        graph = TdependGraph::fsCurrentGraph;
    TdependNode* found = graph ? graph->findNode("defaultHardwareRenderGlobals") : nullptr;
    auto* node = found ? static_cast<TdnHardwareRenderGlobals*>(found->cast(sTypeof())) : nullptr;
    if (!node)
        return false;
    using orvo::settings::number;
    using orvo::settings::text;
    const auto flag = [&](const Tattribute& a) {
        return number(*node, a) != 0.0;
    };
    const auto integer = [&](const Tattribute& a) {
        return int(number(*node, a));
    };
    s.renderPasses = integer(aRenderPasses);
    s.cameraIcons = flag(aCameraIcons);
    s.collisionIcons = flag(aCollisionIcons);
    s.backgroundColor[0] = float(number(*node, aBackgroundColorR));
    s.backgroundColor[1] = float(number(*node, aBackgroundColorG));
    s.backgroundColor[2] = float(number(*node, aBackgroundColorB));
    s.emitterIcons = flag(aEmitterIcons);
    s.extension = integer(aExtension);
    s.edgeSmoothing = float(number(*node, aEdgeSmoothing));
    s.endFrame = integer(aEndFrame);
    s.byFrame = integer(aByFrame);
    s.fieldIcons = flag(aFieldIcons);
    s.startFrame = integer(aStartFrame);
    s.grid = flag(aGrid);
    s.lightIcons = flag(aLightIcons);
    s.lineSmoothing = flag(aLineSmoothing);
    s.motionBlur = float(number(*node, aMotionBlur));
    s.transformIcons = flag(aTransformIcons);
    s.texturing = flag(aTexturing);
    s.multiPassRendering = flag(aMultiPassRendering);
    s.writeZDepth = flag(aWriteZDepth);
    s.filename = text(*node, aFilename);
    s.imageFormat = integer(aImageFormat);
    s.imfPluginKey = text(*node, aImfPluginKey);
    s.imfPluginKeyExt = text(*node, aImfPluginKeyExt);
    s.resolution = text(*node, aResolution);
    s.alphaSource = integer(aAlphaSource);
    s.drawStyle = integer(aDrawStyle);
    s.lightingMode = integer(aLightingMode);
    s.fullImageResolution = flag(aFullImageResolution);
    s.antiAliasPolygons = flag(aAntiAliasPolygons);
    s.geometryMask = flag(aGeometryMask);
    s.displayShadows = flag(aDisplayShadows);
    return true;
}
