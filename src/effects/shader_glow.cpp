#include "effects/shader_glow.h"

#include <algorithm>
#include <cmath>

#include "framework/render_info.h"
#include "framework/render_lists.h"
#include "host/env.h"
#include "host/graph.h"
#include "host/messages.h"
#include "host/scene/render_layer.h"
#include "materials/lambert.h"

ORVO_REGISTER_NODE(TdnShaderGlow)
ORVO_DEPENDENCIES(TdnShaderGlow) {}

using namespace orvo::post;

PX_ShaderGlow TdnShaderGlow::fsData;
int TdnShaderGlow::fUseShaderGlow = 0;
int TdnShaderGlow::fRealSize = 0;
bool TdnShaderGlow::fPrintMsg = false;
PX_Rgb* TdnShaderGlow::fShaderGlowArray = nullptr;
int TdnShaderGlow::fSgWide = 0;
int TdnShaderGlow::fSgHigh = 0;
int TdnShaderGlow::fSgMax = 0;
float TdnShaderGlow::fSgRes = 0.0f;
bool TdnShaderGlow::fPrimaryIsHalo = false;

namespace {

TplugValue valueOf(TdependNode* node, const Tattribute& a) {
    return TdnRenderLayer::readValue(Tplug(node, &a), nullptr);
}

void copyBlock(TdependNode* node, PX_GlowParams& p, const Tattribute& type,
               const Tattribute& intensity, const Tattribute& color, const Tattribute& spread,
               const Tattribute& eccentricity, const Tattribute& radialNoise,
               const Tattribute& starLevel, const Tattribute& opacity,
               const Tattribute& ringIntensity, const Tattribute& ringFrequency,
               const Tattribute& filterWidth) {
    p.type = std::max(0, valueOf(node, type).asInt());
    p.intensity = valueOf(node, intensity).asFloat();
    const T3Float c = valueOf(node, color).asFloat3();
    p.color[0] = c.x * 255.0f;
    p.color[1] = c.y * 255.0f;
    p.color[2] = c.z * 255.0f;
    p.color[3] = 1.0f;
    p.spread = valueOf(node, spread).asFloat();
    p.eccentricity = valueOf(node, eccentricity).asFloat();
    p.radialNoise = valueOf(node, radialNoise).asFloat();
    p.starLevel = valueOf(node, starLevel).asFloat();
    p.opacity = valueOf(node, opacity).asFloat();
    p.ringIntensity = valueOf(node, ringIntensity).asFloat();
    p.ringFrequency = valueOf(node, ringFrequency).asFloat();
    p.filterWidth = valueOf(node, filterWidth).asInt();
}

bool usePreV45Filter() {
    return OrvoEnvIsSet("ORVO_USE_PRE_V45_SHADER_GLOW_FILTER");
}

} // namespace

void TdnShaderGlow::reset() {
    copyBlock(this, fsData.glow, aGlowType, aGlowIntensity, aGlowColor, aGlowSpread,
              aGlowEccentricity, aGlowRadialNoise, aGlowStarLevel, aGlowOpacity, aGlowRingIntensity,
              aGlowRingFrequency, aGlowFilterWidth);
    copyBlock(this, fsData.halo, aHaloType, aHaloIntensity, aHaloColor, aHaloSpread,
              aHaloEccentricity, aHaloRadialNoise, aHaloStarLevel, aHaloOpacity, aHaloRingIntensity,
              aHaloRingFrequency, aHaloFilterWidth);
    fsData.quality = valueOf(this, aQuality).asFloat();
    fsData.threshold = valueOf(this, aThreshold).asFloat();
    fsData.radialFrequency = valueOf(this, aRadialFrequency).asFloat();
    fsData.starPoints = valueOf(this, aStarPoints).asFloat();
    fsData.rotation = valueOf(this, aRotation).asFloat();
    fsData.autoExposure = valueOf(this, aAutoExposure).asBool();
}

void TdnShaderGlow::clear() {
    fUseShaderGlow = 0;
    fShaderGlowArray = nullptr;
    fSgWide = fSgHigh = fSgMax = 0;
    fSgRes = 0.0f;
    for (PX_GlowParams* p : {&fsData.glow, &fsData.halo}) {
        p->glowArray.clear();
        p->glowArray.shrink_to_fit();
        p->filter.clear();
        p->filter.shrink_to_fit();
    }
}

bool TdnShaderGlow::initShaderGlow2(int width, int height) {
    PX_GlowParams& glow = fsData.glow;
    PX_GlowParams& halo = fsData.halo;
    if ((glow.type == 0 && halo.type == 0) || (glow.intensity == 0.0f && halo.type == 0) ||
        (halo.intensity == 0.0f && glow.type == 0))
        return false;
    const bool preV45 = usePreV45Filter();
    fsData.quality = std::max(fsData.quality, 0.001f);
    glow.type = std::max(0, glow.type);
    halo.type = std::max(0, halo.type);
    if (glow.type != 0)
        initGlowParams(glow, fsData.quality, width, height, fRealSize,
                       preV45 ? kPreV45GlowGain : kGlowGain, preV45);
    if (halo.type != 0)
        initGlowParams(halo, fsData.quality, width, height, fRealSize,
                       preV45 ? kPreV45HaloGain : kHaloGain, preV45);
    if (fPrintMsg) {
        TcommandEngine::displayConsole(
            TstringId("s_TrenderNodeStrings.rGlowFilterWidth").format(glow.filterWidth) + "\n");
        TcommandEngine::displayConsole(
            TstringId("s_TrenderNodeStrings.rGlowResolution").format(glow.resolution) + "\n");
        TcommandEngine::displayConsole(
            TstringId("s_TrenderNodeStrings.rHaloFilterWidth").format(halo.filterWidth) + "\n");
        TcommandEngine::displayConsole(
            TstringId("s_TrenderNodeStrings.rGlowResolution").format(halo.resolution) + "\n");
    }
    return true;
}

bool TdnShaderGlow::initShaderGlow(int width, int height, int realSize, bool printMessages) {
    reset();
    clear();
    fRealSize = realSize;
    fPrintMsg = printMessages;
    if (width <= 0 || height <= 0 || !initShaderGlow2(width, height)) {
        clear();
        return false;
    }
    const bool glowOn = fsData.glow.type != 0, haloOn = fsData.halo.type != 0;
    fPrimaryIsHalo = haloOn && (!glowOn || fsData.halo.wide > fsData.glow.wide);
    PX_GlowParams& p = primary();
    try {
        p.glowArray.assign(size_t(p.wide) * size_t(p.high) + 1, PX_Rgb());
    } catch (const std::bad_alloc&) {
        clear();
        return false;
    }
    fShaderGlowArray = p.glowArray.data();
    fSgWide = p.wide;
    fSgHigh = p.high;
    fSgMax = p.wide * p.high - 1;
    fSgRes = p.resolution;
    fUseShaderGlow = 2;
    return true;
}

bool TdnShaderGlow::addShaderGlow(const float rgba[4], float x, float y) {
    if (!fUseShaderGlow || !fShaderGlowArray)
        return false;
    splatGlow(fShaderGlowArray, 0, 0, fSgWide, fSgHigh, fSgWide, fSgHigh, fSgRes, rgba, x, y);
    return true;
}

void TdnShaderGlow::addShaderGlowTile(const TglowTile& tile) {
    if (fUseShaderGlow && fShaderGlowArray)
        tile.addTo(fShaderGlowArray);
}

bool addShaderGlowToBuffer(void*, float x, float y, const float rgba[4]) {
    if (rgba[0] == 0.0f && rgba[1] == 0.0f && rgba[2] == 0.0f)
        return false;
    return TdnShaderGlow::addShaderGlow(rgba, x, y);
}

void TdnShaderGlow::overlayShaderGlow(const float add[3], float multiply, float x, float y) {
    if (!fUseShaderGlow || !fShaderGlowArray)
        return;
    const int column = std::clamp(int(fSgRes * x - 0.5f), 0, fSgWide - 1);
    const int row = int(y * fSgRes);
    const int index = std::min(row * fSgWide + column, fSgMax);
    if (index < 0)
        return;
    PX_Rgb& cell = fShaderGlowArray[index];
    const auto whole = [](float v) {
        return std::trunc(std::clamp(v, 0.0f, 255.0f));
    };
    if (cell.r != 0.0f || cell.g != 0.0f || cell.b != 0.0f) {
        cell.r = whole(cell.r * multiply + add[0]);
        cell.g = whole(cell.g * multiply + add[1]);
        cell.b = whole(cell.b * multiply + add[2]);
    } else {
        cell.r = whole(add[0]);
        cell.g = whole(add[1]);
        cell.b = whole(add[2]);
    }
}

void TdnShaderGlow::calculateGlow() {
    if (!fUseShaderGlow || !fShaderGlowArray)
        return;
    PX_GlowParams& first = primary();
    PX_GlowParams& second = fPrimaryIsHalo ? fsData.glow : fsData.halo;
    clipGlowArray(fsData.threshold, first.wide, first.high, first.glowArray.data());
    if (second.type != 0 && second.intensity != 0.0f)
        copyGlowArray(second, first);
    // The effect rewrites its own array, so the shared one is gone from here.
    fShaderGlowArray = nullptr;
    for (auto [params, id] : {std::pair{&fsData.glow, "s_TrenderNodeStrings.rGlowNormalization"},
                              std::pair{&fsData.halo, "s_TrenderNodeStrings.rHaloNormalization"}}) {
        if (params->type == 0 || params->intensity == 0.0f || params->glowArray.empty())
            continue;
        const double normalisation = shaderGlowEffect(*params, fsData);
        if (fPrintMsg)
            TcommandEngine::displayConsole(TstringId(id).format(normalisation) + "\n");
    }
}

void TdnShaderGlow::addShaderGlowToArray(const TpostImage& image) {
    if (!fUseShaderGlow || image.height == 0)
        return;
    for (const PX_GlowParams* p : {&fsData.glow, &fsData.halo})
        if (p->type != 0 && p->intensity != 0.0f)
            glowArray(*p, image, 0, image.height - 1);
}

void TdnShaderGlow::addShaderGlowToScanline(unsigned line, const TpostImage& image) {
    if (!fUseShaderGlow || line >= image.height)
        return;
    for (const PX_GlowParams* p : {&fsData.glow, &fsData.halo})
        if (p->type != 0 && p->intensity != 0.0f)
            glowArray(*p, image, line, line);
}

bool TdnShaderGlow::isShaderGlowOn(TdependGraph& graph) {
    TrenderInfo* info = TrenderInfo::find(graph);
    TdnShaderList* list = info ? info->shaderList() : nullptr;
    if (!list)
        return false;
    for (TdependNode* shader : list->members()) {
        float glow = 0.0f;
        if (auto* lambert = static_cast<TdnLambert*>(shader->cast(TdnLambert::sTypeof())))
            glow = lambert->getGlowIntensity();
        else if (const Tattribute* a = shader->findAttribute("glowIntensity")) {
            // Any other shading node that glows says so on its own plug; a
            // connected one counts as glowing.
            const Tplug plug(shader, a);
            glow = plug.source().isNull() ? valueOf(shader, *a).asFloat() : 1.0f;
        }
        if (glow > 0.0f)
            return true;
    }
    return false;
}

TdnShaderGlow* TdnShaderGlow::find(TdependGraph& graph) {
    if (TdependNode* node = graph.findNode("shaderGlow1"))
        if (auto* glow = static_cast<TdnShaderGlow*>(node->cast(sTypeof())))
            return glow;
    for (TdependNode* node : graph.nodes())
        if (auto* glow = static_cast<TdnShaderGlow*>(node->cast(sTypeof())))
            return glow;
    return nullptr;
}
