// The render settings part of TrenderInfo: the settings defaults of every
// scene, the current quality and resolution, and the snapshot a render
// takes of the settings.

#include <cstdlib>

#include <fmt/format.h>

#include "colour/color_mgt_globals.h"
#include "colour/view_color_manager.h"
#include "framework/render_info.h"
#include "host/env.h"
#include "host/graph.h"
#include "host/scene/render_layer.h"
#include "settings/common_render_globals.h"
#include "settings/hardware_render_globals.h"
#include "settings/render_globals.h"
#include "settings/render_globals_list.h"
#include "settings/render_quality.h"
#include "settings/resolution.h"
#include "settings/vpr_render_globals.h"

namespace {

using K = TdnKernel<TdnRenderGlobals>;

template <class T>
T* castTo(TdependNode* node) {
    return node ? static_cast<T*>(node->cast(T::sTypeof())) : nullptr;
}

// A settings default by name: a node already there under the name is taken
// when its type fits.
template <class T>
T* settingsDefault(TdependGraph& graph, const char* type, const char* name) {
    TdependNode* node = name ? graph.findNode(name) : nullptr;
    if (node && node->typeName() != type)
        throw TgraphError(fmt::format("the scene's default '{}' must be a {}, and a {} has that "
                                      "name",
                                      name, type, node->typeName()));
    if (!node)
        node = graph.createNode(type, name ? name : "");
    node->setImplicitlyCreated(true);
    node->setNodeIsDefault(true);
    return castTo<T>(node);
}

// Connects `node` to the next free element of `list` on the globals list.
void joinList(TdnRenderGlobalsList* globalsList, const Tattribute& list, TdependNode* node,
              TDGcommand& command) {
    if (!globalsList || !node)
        return;
    for (TdependNode* member : globalsList->members(list))
        if (member == node)
            return;
    Tplug slot(globalsList, &list);
    slot.setMultiIndex(&list, globalsList->nextFreeIndex(list));
    command.newConnectionToMake(Tplug(node, &TdependNode::aMessage), slot);
}

// Makes the link from `node`'s message to the plug, replacing another.
void link(TdependNode* node, const Tplug& plug, TDGcommand& command) {
    const Tplug source = plug.source();
    if (!source.isNull()) {
        if (source.node() == node)
            return;
        command.newConnectionToBreak(source, plug);
    }
    command.newConnectionToMake(Tplug(node, &TdependNode::aMessage), plug);
}

// Values read through a layer.
double numberOf(const Tplug& plug, const TdnRenderLayer* layer) {
    return TrenderInfo::getDataFromPlug(plug, layer, nullptr, nullptr).asDouble();
}
Tstring textOf(const Tplug& plug, const TdnRenderLayer* layer) {
    const TplugValue value = TrenderInfo::getDataFromPlug(plug, layer, nullptr, nullptr);
    if (plug.attribute()->kind() != TattrKind::Typed)
        return {};
    const Tstring* text = OrvoStringOf(*static_cast<const Tdata*>(value.address()));
    return text ? *text : Tstring();
}

// A settings node that a user makes joins the render globals list, as the
// defaults do.
void settingsNodeAdded(TdependNode& node, TDGcommand& command) {
    TdependGraph* graph = node.graph();
    TrenderInfo* info = graph ? TrenderInfo::find(*graph) : nullptr;
    if (!info)
        return;
    if (castTo<TdnRenderGlobals>(&node))
        info->addRenderGlobals(&node, command);
    else if (castTo<TdnRenderQuality>(&node))
        info->addRenderQuality(&node, command);
    else if (castTo<TdnResolution>(&node))
        info->addResolution(&node, command);
}

void removeSettingsHook() {
    TdependGraph::removeNodeAddedObserver(&settingsNodeAdded);
}

const bool sSettingsHook = [] {
    TdependGraph::addNodeAddedObserver(&settingsNodeAdded);
    std::atexit(&removeSettingsHook);
    return true;
}();

} // namespace

void TrenderInfo::makeSettingsDefaults(TdependGraph& graph) {
    fRenderGlobalsList = settingsDefault<TdnRenderGlobalsList>(graph, "renderGlobalsList", nullptr);
    fDefaultGlobals =
        settingsDefault<TdnRenderGlobals>(graph, "renderGlobals", "defaultRenderGlobals");
    fDefaultQuality =
        settingsDefault<TdnRenderQuality>(graph, "renderQuality", "defaultRenderQuality");
    fDefaultResolution = settingsDefault<TdnResolution>(graph, "resolution", "defaultResolution");
    settingsDefault<TdnViewColorManager>(graph, "viewColorManager", "defaultViewColorManager");
    if (!TdnColorMgtGlobals::find(graph))
        settingsDefault<TdnColorMgtGlobals>(graph, "colorManagementGlobals",
                                            TdnColorMgtGlobals::kDefaultName)
            ->SetPrefsInstance();
    const std::optional<std::string> longNames = OrvoGetEnv("ORVO_EXR_LONGNAME");
    fMaxExrBufferNameLength = longNames && *longNames == "1" ? 252 : 28;

    // The defaults' own links, made at once: a scene starts with them.
    TDGcommand command(graph);
    addRenderGlobals(fDefaultGlobals, command);
    addRenderQuality(fDefaultQuality, command);
    addResolution(fDefaultResolution, command);
    if (Tplug(fDefaultGlobals, &TdnRenderGlobals::aQuality).source().isNull())
        setCurrentQuality(fDefaultQuality, command);
    if (Tplug(fDefaultGlobals, &TdnRenderGlobals::aResolution).source().isNull())
        setCurrentResolution(fDefaultResolution, command);
    // The hardware settings come last.
    TdnHwRenderGlobals::createCurrentGlobals(graph);
    TdnVPRRenderGlobals::createCurrentGlobals(graph);
}

std::vector<TdependNode*> TrenderInfo::settingsMembers() const {
    std::vector<TdependNode*> members = {fRenderGlobalsList, fDefaultGlobals, fDefaultQuality,
                                         fDefaultResolution};
    if (const TdependGraph* g = graph())
        for (const char* name : {"defaultViewColorManager", TdnColorMgtGlobals::kDefaultName,
                                 "hardwareRenderGlobals", "hardwareRenderingGlobals"})
            if (TdependNode* node = g->findNode(name); node && node->isDefaultNode())
                members.push_back(node);
    return members;
}

void TrenderInfo::addRenderGlobals(TdependNode* node, TDGcommand& command) {
    joinList(fRenderGlobalsList, TdnRenderGlobalsList::aRenderGlobals, node, command);
}

void TrenderInfo::addRenderQuality(TdependNode* node, TDGcommand& command) {
    joinList(fRenderGlobalsList, TdnRenderGlobalsList::aRenderQualities, node, command);
}

void TrenderInfo::addResolution(TdependNode* node, TDGcommand& command) {
    joinList(fRenderGlobalsList, TdnRenderGlobalsList::aRenderResolutions, node, command);
}

TdnRenderQuality* TrenderInfo::currentQuality() {
    if (!fDefaultGlobals || !graph())
        return fDefaultQuality;
    const Tplug plug(fDefaultGlobals, &TdnRenderGlobals::aQuality);
    if (auto* quality = castTo<TdnRenderQuality>(plug.source().node()))
        return quality;
    TDGcommand command(*graph());
    link(fDefaultQuality, plug, command);
    return fDefaultQuality;
}

TdnResolution* TrenderInfo::currentResolution() {
    if (!fDefaultGlobals || !graph())
        return fDefaultResolution;
    const Tplug plug(fDefaultGlobals, &TdnRenderGlobals::aResolution);
    if (auto* resolution = castTo<TdnResolution>(plug.source().node()))
        return resolution;
    TDGcommand command(*graph());
    link(fDefaultResolution, plug, command);
    return fDefaultResolution;
}

bool TrenderInfo::setCurrentQuality(TdnRenderQuality* quality, TDGcommand& command) {
    if (!quality || !fDefaultGlobals)
        return false;
    link(quality, Tplug(fDefaultGlobals, &TdnRenderGlobals::aQuality), command);
    return true;
}

bool TrenderInfo::setCurrentResolution(TdnResolution* resolution, TDGcommand& command) {
    if (!resolution || !fDefaultGlobals)
        return false;
    link(resolution, Tplug(fDefaultGlobals, &TdnRenderGlobals::aResolution), command);
    return true;
}

// ---------------------------------------------------------------- snapshot

TplugValue TrenderInfo::getDataFromPlug(const Tplug& plug, const TdnRenderLayer* layer,
                                        const TdnRenderLayer* defaultLayer,
                                        const TdnRenderLayer* currentLayer) {
    // In this host a layer's adjustments live in the layer, not in the
    // scene's values, the current layer's included: reading "as the
    // current layer sees it" must go through that layer.
    TdependGraph* g = plug.node() ? plug.node()->graph() : nullptr;
    if (!layer && g)
        layer = TdnRenderLayerManager::currentLayer(*g);
    if (layer && !layer->adjustmentPlug(plug).isNull())
        return TdnRenderLayer::readValue(plug, layer);
    // An adjustment that the default layer alone holds gives way to the
    // current layer's value.
    if (defaultLayer && defaultLayer != layer && currentLayer &&
        !defaultLayer->adjustmentPlug(plug).isNull())
        return TdnRenderLayer::readValue(plug, currentLayer);
    return TdnRenderLayer::readValue(plug, layer);
}

void TrenderInfo::setCommonRenderGlobals(TcommonRenderGlobalsData& data,
                                         const TdnRenderLayer* layer,
                                         const TrenderSettingsOverrides* overrides) {
    const TrenderSettingsOverrides none;
    const TrenderSettingsOverrides& over = overrides ? *overrides : none;
    TdependGraph* g = graph();
    TdnRenderGlobals* globals = fDefaultGlobals;
    if (!g || !globals)
        return;
    const TdnRenderLayer* currentLayer = TdnRenderLayerManager::currentLayer(*g);
    const TdnRenderLayer* defaultLayer = TdnRenderLayerManager::defaultLayer(*g);
    if (layer == currentLayer)
        layer = nullptr;
    data.graph = g;
    auto plug = [globals](const Tattribute& a) {
        return Tplug(globals, &a);
    };
    auto number = [&](const Tattribute& a) {
        return numberOf(plug(a), layer);
    };
    auto text = [&](const Tattribute& a) {
        return textOf(plug(a), layer);
    };
    using G = TdnRenderGlobals;

    // 1-3: renderer, prefix, buffer pattern, format.
    data.rendererName = text(G::aCurrentRenderer);
    data.imageFilePrefix = text(G::aImageFilePrefix);
    data.bufferNamePattern = number(G::aMultiCamNamingMode) != 0.0
                                 ? text(G::aBufferName)
                                 : Tstring("<RenderPassType>:<RenderPass>.<Camera>");
    data.outFormat = over.imageFormat ? *over.imageFormat : int32_t(number(G::aImageFormat));
    data.imfPluginKey = text(G::aImfPluginKey);

    // 4: EXR channel names are short unless the environment allows long ones.
    const Tstring& key = data.imfPluginKey;
    data.maxBufferNameLength =
        (key == "exr" || key == "Exr" || key == "EXR") && data.outFormat == K::kCustom
            ? fMaxExrBufferNameLength
            : INT32_MAX;

    // 5: the node's own extension, without its dot.
    Tstring extension = globals->fileFormatExtension();
    if (!extension.empty() && extension.front() == '.')
        extension.erase(0, 1);
    data.extension = extension;

    // 6: the naming scheme.
    const bool animation = over.animation ? *over.animation : number(G::aAnimation) != 0.0;
    const int outFormatControl = int(number(G::aOutFormatControl));
    if (!animation) {
        data.namingScheme = outFormatControl != K::kNoOutputExt ? 1 : 0;
    } else if (TcommonRenderGlobalsData::isMultiframeFormat(data.outFormat)) {
        data.namingScheme = outFormatControl == K::kNoOutputExt ? 7 : 8;
    } else if (outFormatControl == K::kNoOutputExt) {
        data.namingScheme = 4;
    } else if (number(G::aPutFrameBeforeExt) == 0.0) {
        data.namingScheme = 3;
    } else {
        const int period = int(number(G::aPeriodInExt));
        data.namingScheme = period == K::kPeriodInExt ? 2 : period == K::kUnderscoreInExt ? 6 : 5;
    }

    // 7: padding and the name pattern.
    data.framePadding = uint32_t(std::max(0.0, number(G::aExtensionPadding)));
    data.updateNamePattern();

    // 8: frames and renumbering.
    data.startFrame = over.startFrame ? *over.startFrame : number(G::aStartFrame);
    data.endFrame = over.endFrame ? *over.endFrame : number(G::aEndFrame);
    data.byFrame = over.byFrameStep ? *over.byFrameStep : float(number(G::aByFrameStep));
    data.skipExistingFrames = number(G::aSkipExistingFrames) != 0.0;
    data.renderAll = number(G::aRenderAll) != 0.0;
    data.outFormatControl = uint16_t(outFormatControl);
    data.versionName = text(G::aRenderVersion);
    data.outFormatExt = text(G::aOutFormatExt);
    data.modifyExtension = number(G::aModifyExtension) != 0.0;
    data.startExtension = float(number(G::aStartExtension));
    data.byExtension = float(number(G::aByExtension));

    // 9: a fractional step never gives two frames one number.
    if (animation && !data.isMultiframeFormat()) {
        if (std::fabs(data.byFrame) < 1.0f && !data.modifyExtension) {
            data.modifyExtension = true;
            data.startExtension = float(data.startFrame);
            data.byExtension = data.byFrame > 0.0f ? 1.0f : -1.0f;
        }
        if (data.modifyExtension && std::fabs(data.byExtension) < 1.0f)
            data.byExtension = data.byExtension > 0.0f ? 1.0f : -1.0f;
    }

    // 10: the resolution, the default light, the hooks.
    if (TdnResolution* resolution = currentResolution()) {
        auto res = [&](const Tattribute& a) {
            return numberOf(Tplug(resolution, &a), layer);
        };
        data.width = over.width ? *over.width : int32_t(res(TdnResolution::aWidth));
        data.height = over.height ? *over.height : int32_t(res(TdnResolution::aHeight));
        data.deviceAspectRatio = float(res(TdnResolution::aDeviceAspectRatio));
        data.pixelAspectRatio =
            data.width != 0 ? float(data.height) / float(data.width) * data.deviceAspectRatio
                            : 1.0f;
        data.dotsPerInch = float(res(TdnResolution::aDotsPerInch));
        if (int(res(TdnResolution::aPixelDensityUnits)) == TdnKernel<TdnResolution>::kDotsPerCm)
            data.dotsPerInch *= 2.54f;
    }
    data.enableDefaultLight = number(G::aEnableDefaultLight) != 0.0;
    data.preQsl = text(G::aPreQsl);
    data.postQsl = text(G::aPostQsl);
    data.preRenderLayerQsl = text(G::aPreRenderLayerQsl);
    data.postRenderLayerQsl = text(G::aPostRenderLayerQsl);
    data.preRenderQsl = text(G::aPreRenderQsl);
    data.postRenderQsl = text(G::aPostRenderQsl);

    // 11: what the names must tell apart.
    data.initializeImageNameSettings(layer, defaultLayer, currentLayer);
    data.initializeBufferNameSettings();
}
