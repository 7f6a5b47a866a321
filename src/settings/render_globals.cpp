#include "settings/render_globals.h"
#include "settings/renderer_registry.h"

#include <sched.h>

#include <algorithm>
#include <cctype>
#include <thread>

#include "host/image_file.h"
#include "host/messages.h"
#include "host/scene/render_layer.h"
#include "settings/render_quality.h"
#include "settings/resolution.h"

ORVO_REGISTER_NODE(TdnRenderGlobals)
ORVO_DEPENDENCIES(TdnRenderGlobals) {}

namespace {

using K = TdnKernel<TdnRenderGlobals>;

template <class T>
T* castTo(TdependNode* node) {
    return node ? static_cast<T*>(node->cast(T::sTypeof())) : nullptr;
}

// The processors this process may run on.
unsigned availableProcessors() {
    cpu_set_t set;
    CPU_ZERO(&set);
    if (::sched_getaffinity(0, sizeof(set), &set) == 0 && CPU_COUNT(&set) > 0)
        return unsigned(CPU_COUNT(&set));
    return std::max(1u, std::thread::hardware_concurrency());
}

struct FormatRow {
    int format;
    const char* keyword; // empty: the format has none
    const char* extension;
};

// The node's own two tables. Formats without a keyword leave the string
// empty; formats over 36 fall out of the extension table (the caller gives
// them ".img"), and the snapshot of a render keeps its own, fuller tables.
constexpr FormatRow kFormats[] = {
    {K::kGIF, "gif", ".gif"},         {K::kSI, "si", ".pic"},
    {K::kRLA, "rla", ".rla"},         {K::kTIFF, "tif", ".tif"},
    {K::kTIFF16, "tif", ".tif"},      {K::kSGI, "sgi", ".sgi"},
    {K::kVELD, "vld", ".vld"},        {K::kIFF, "", ".iff"},
    {K::kJPEG, "jpg", ".jpg"},        {K::kEPS, "eps", ".eps"},
    {K::kIFF16, "", ".iff"},          {K::kCINEON, "cin", ".cin"},
    {K::kQUANTEL, "yuv", ".yuv"},     {K::kSGI16, "sgi", ".sgi"},
    {K::kTARGA, "tga", ".tga"},       {K::kBMP, "bmp", ".bmp"},
    {K::kSGIMV, "sgimv", ".mv"},      {K::kQT, "qt", ".qt"},
    {K::kAVI, "avi", ".avi"},         {K::kMACPAINT, "pntg", ".pntg"},
    {K::kPHOTOSHOP, "psd", ".psd"},   {K::kPNG, "png", ".png"},
    {K::kQUICKDRAW, "pict", ".pict"}, {K::kQTIMAGE, "qtif", ".qtif"},
    {K::kDDS, "dds", ".dds"},         {K::kPHOTOSHOPLAYERED, "psdLayered", ".iff"},
};

const FormatRow* formatRow(int format) {
    for (const FormatRow& row : kFormats)
        if (row.format == format)
            return &row;
    return nullptr;
}

// The extension that a format-plug-in key names: the image library's
// answer, else the extension of the format whose keyword the key is.
bool extensionFromFormatKey(const Tstring& key, Tstring& extension) {
    if (PIO_getExtFromFormatKey(key, extension))
        return true;
    for (const FormatRow& row : kFormats)
        if (*row.keyword && key == row.keyword) {
            extension = row.extension;
            return true;
        }
    return false;
}

} // namespace

// ---------------------------------------------------------------- links

TdnRenderQuality* TdnRenderGlobals::quality() const {
    return castTo<TdnRenderQuality>(orvo::settings::sourceNode(*this, aQuality));
}

TdnResolution* TdnRenderGlobals::resolution() const {
    return castTo<TdnResolution>(orvo::settings::sourceNode(*this, aResolution));
}

// ---------------------------------------------------------------- rules

unsigned TdnRenderGlobals::numberOfCpusToUse() const {
    const unsigned available = availableProcessors();
    const int wanted = numCpusToUse();
    if (wanted <= 0)
        return available;
    return std::clamp(unsigned(wanted), 1u, available);
}

int TdnRenderGlobals::interruptFrequency() const {
    const int value = int(orvo::settings::number(*this, aInterruptFrequency));
    if (value == -1)
        return -1;
    return std::max(0, value) * 1000;
}

bool TdnRenderGlobals::enableDepthMaps() const {
    if (createIprFile())
        return iprRenderShadowMaps();
    return orvo::settings::number(*this, aEnableDepthMaps) != 0.0;
}

bool TdnRenderGlobals::motionBlur() const {
    const bool on = orvo::settings::number(*this, aMotionBlur) != 0.0;
    if (!createIprFile())
        return on;
    return on && iprRenderMotionBlur();
}

void TdnRenderGlobals::setStartExtension(float value) {
    orvo::settings::setNumber(*this, aStartExtension, value);
    setModifyExtension(true);
}

void TdnRenderGlobals::setByExtension(float value) {
    orvo::settings::setNumber(*this, aByExtension, value);
    setModifyExtension(true);
}

TshadowLinkMode TdnRenderGlobals::shadowLinkMode() const {
    if (shadowsObeyShadowLinking())
        return kShadowsObeyShadowLinking;
    if (shadowsObeyLightLinking())
        return kShadowsObeyLightLinking;
    return kShadowsIgnoreLinks;
}

void TdnRenderGlobals::setShadowLinkMode(int mode) {
    OrvoSetShadowLinkMode(*this, mode);
}

Tstring TdnRenderGlobals::defaultTraversalSet() const {
    bool isString = false;
    const Tstring set = orvo::settings::text(*this, aDefaultTraversalSet, &isString);
    return isString ? set : Tstring("null");
}

void TdnRenderGlobals::setSubRegionRender(int left, int right, int bottom, int top) {
    setLeftRegion(left);
    setRightRegion(right);
    setBottomRegion(bottom);
    setTopRegion(top);
    setUseRenderRegion(true);
}

// ---------------------------------------------------------------- formats

const char* TdnRenderGlobals::formatKeyword(int format) {
    const FormatRow* row = formatRow(format);
    return row ? row->keyword : "";
}

const char* TdnRenderGlobals::formatExtension(int format) {
    const FormatRow* row = formatRow(format);
    return row ? row->extension : ".img";
}

Tstring TdnRenderGlobals::fileFormatExtension() const {
    switch (outFormatControl()) {
    case kDefaultOutputExt: {
        const int format = imageFormat();
        if (format >= 0 && format <= kPHOTOSHOPLAYERED)
            return formatExtension(format);
        Tstring extension = ".img";
        if (format == kIMF) {
            const Tstring key = imfPluginKey();
            Tstring fromKey;
            if (!key.empty() && extensionFromFormatKey(key, fromKey))
                extension = fromKey;
        }
        return extension;
    }
    case kNoOutputExt:
        return {};
    case kArbOutputExt: {
        Tstring text = outFormatExt();
        if (!text.empty() && text.front() == '.')
            text.erase(0, 1);
        if (text.empty()) {
            TcommandEngine::displayWarning(
                TstringId("s_TrGlobalsStrings.rExtensionLengthWarning").format(name()));
            return {};
        }
        if (!std::isalpha(static_cast<unsigned char>(text.front()))) {
            TcommandEngine::displayWarning(
                TstringId("s_TrGlobalsStrings.rExtensionAlphaWarning").format(name()));
            return {};
        }
        return "." + text;
    }
    default:
        return {};
    }
}

Tstring TdnRenderGlobals::fileFormatString(int* format) const {
    const int value = imageFormat();
    if (format)
        *format = value;
    if (value == kIMF)
        return imfPluginKey();
    return formatKeyword(value);
}

// ---------------------------------------------------------------- layers and passes

bool TdnRenderGlobals::setRenderLayerState(const Tstring& layerName, bool state) {
    TdependGraph* g = graph();
    if (!g)
        return false;
    for (TdnRenderLayer* layer : TdnRenderLayerManager::layers(*g))
        if (layer->name() == layerName) {
            TDGcommand command(*g);
            command.newPlugValue(Tplug(layer, &TdnRenderLayer::aRenderable),
                                 {state ? "true" : "false"});
            return true;
        }
    return false;
}

bool TdnRenderGlobals::setRenderPassState(const Tstring& passName, bool state) {
    TdependGraph* g = graph();
    if (!g)
        return false;
    bool any = false;
    TDGcommand command(*g);
    for (TdnRenderLayer* layer : TdnRenderLayerManager::layers(*g))
        any = layer->setPassByName(passName, state, command) || any;
    return any;
}

void TdnRenderGlobals::renderLayersReset() {
    TdependGraph* g = graph();
    if (!g)
        return;
    TDGcommand command(*g);
    for (TdnRenderLayer* layer : TdnRenderLayerManager::layers(*g))
        command.newPlugValue(Tplug(layer, &TdnRenderLayer::aRenderable), {"false"});
}

void TdnRenderGlobals::renderPassesReset() {
    TdependGraph* g = graph();
    if (!g)
        return;
    TDGcommand command(*g);
    for (TdnRenderLayer* layer : TdnRenderLayerManager::layers(*g))
        layer->setAllPasses(false, command);
}

bool TdnRenderGlobals::setCachedValue(const Tplug& plug, const TdataHandle& value) {
    TrendererRegistry::attributeChanged(plug);
    return TdependNode::setCachedValue(plug, value);
}
