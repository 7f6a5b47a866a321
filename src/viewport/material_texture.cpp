#include "viewport/material_texture.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include <fmt/format.h>

#include "framework/nodes/utility/render_utilities.h"
#include "framework/nodes/utility/shading_switch.h"
#include "host/dg_iterator.h"
#include "host/draw/accessor.h"
#include "host/draw/file_pixel_map_cache.h"
#include "host/env.h"
#include "host/graph.h"
#include "host/messages.h"
#include "host/option_vars.h"
#include "textures/file_texture.h"
#include "textures/tx2d.h"
#include "viewport/convert_solid.h"
#include "viewport/file_colour.h"
#include "viewport/material_info.h"

bool TmaterialTexture::fsHardwareRender = false;
int TmaterialTexture::fsHardwareRenderResolution = 64;
bool TmaterialTexture::fsDisableTextureCompute = false;

const Tattribute& OrvoRootAttribute(const Tattribute& a) {
    const Tattribute* r = &a;
    while (r->parent())
        r = r->parent();
    return *r;
}

namespace {

bool near(float a, float b, float tolerance) {
    return std::fabs(a - b) <= tolerance;
}

constexpr double kDegreesPerRadian = 57.29577951308232;

} // namespace

TmaterialTexture::TmaterialTexture(TmaterialInfo* info, const Tplug& plug)
    : fInfo(info), fPlug(plug) {
    chooseKind();
}

TmaterialTexture::~TmaterialTexture() {
    fChildren.clear();
    if (TdependGraph* g = fPlug.node() ? fPlug.node()->graph() : nullptr)
        OrvoRemoveClient(*g, static_cast<Tclient*>(this));
}

TdnFileTexture* TmaterialTexture::file() const {
    TdependNode* n = fPlug.node();
    return n ? static_cast<TdnFileTexture*>(n->cast(TdnFileTexture::sTypeof())) : nullptr;
}

void TmaterialTexture::listenTo(TdependNode* node, unsigned kinds) {
    if (!node || !node->graph())
        return;
    OrvoAddClient(*node->graph(), node, this, kinds);
    if (std::find(fSources.begin(), fSources.end(), node) == fSources.end())
        fSources.push_back(node);
}

// A bake shows everything upstream of the plug: an edit anywhere there is
// an edit of the texture. (Dirty propagation through the graph stops at
// nodes never evaluated, and a bake evaluates through the shading engine,
// not through the nodes' own blocks, so the network is listened to node by
// node.)
void TmaterialTexture::listenUpstream() {
    TdependNode* root = fPlug.node();
    if (!root)
        return;
    std::vector<TdependNode*> todo{root};
    std::vector<TdependNode*> seen;
    while (!todo.empty()) {
        TdependNode* n = todo.back();
        todo.pop_back();
        if (std::find(seen.begin(), seen.end(), n) != seen.end())
            continue;
        seen.push_back(n);
        if (n != root)
            listenTo(n, kNodeDirtyMessage | kAttributeChangedMessage);
        for (const auto& [source, destination] : n->graph()->connections())
            if (destination.node() == n && source.node() &&
                source.attribute()->kind() != TattrKind::Message)
                todo.push_back(source.node());
    }
}

void TmaterialTexture::chooseKind() {
    TdependNode* node = fPlug.node();
    const bool tx2d = node && node->cast(TdnTx2D::sTypeof());
    const bool stencil = TmaterialInfo::isKindOf(node, "stencil");
    const bool isFile = file() != nullptr;
    const Tattribute& shown = OrvoRootAttribute(*fPlug.attribute());
    const bool fileAlpha = isFile && &shown == &TdnTx2D::aOutAlpha;
    const bool resolution = node && node->findAttribute("resolution");
    if (tx2d && !stencil && (&shown == &TdnTx2D::aOutColor || fileAlpha) && !resolution) {
        if (isFile) {
            fKind = kFile;
            setState(kFileStale | kAskSupported | kSharingStale, true);
        } else {
            fKind = kSwatch;
            setState(kSwatchStale, true);
        }
    } else if (node && node->cast(TdnBaseSwitch::sTypeof())) {
        fKind = kSwitch;
        buildSwitch();
    } else {
        fKind = kConvertSolid;
        setState(kBakeStale, true);
    }
    listenTo(node, kAttributeChangedMessage | kNodeDirtyMessage);
    if (fKind == kConvertSolid || fKind == kSwatch)
        listenUpstream();
}

bool TmaterialTexture::isDirty() const {
    switch (fKind) {
    case kFile:
        return hasState(kFileStale);
    case kSwatch:
        return hasState(kSwatchStale);
    case kConvertSolid:
    case kLayered:
        return hasState(kBakeStale);
    case kCubeMap:
    case kSphereMap:
        return hasState(kEnvStale);
    case kMultiple:
        return hasState(kMultipleStale);
    default:
        return false;
    }
}

// ---------------------------------------------------------------- switches

void TmaterialTexture::buildSwitch() {
    fChildren.clear();
    fPaths.clear();
    auto* sw = static_cast<TdnBaseSwitch*>(fPlug.node()->cast(TdnBaseSwitch::sTypeof()));
    // The default first, with no path.
    const Tplug defaultSource = Tplug(sw, &sw->defaultAttr()).source();
    fPaths.emplace_back();
    fChildren.push_back(defaultSource.isNull() ? nullptr
                                               : std::unique_ptr<TmaterialTexture>(
                                                     new TmaterialTexture(fInfo, defaultSource)));
    Tplug parent(sw, &sw->multiParent());
    TuInt32Array indices;
    sw->getExistingMultiAttributeIndices(parent, indices);
    for (unsigned i : indices) {
        Tplug shape(sw, &sw->shapeAttr());
        shape.setMultiIndex(&sw->multiParent(), i);
        Tplug shade(sw, &sw->valueAttr());
        shade.setMultiIndex(&sw->multiParent(), i);
        const Tplug shapeSource = shape.source();
        const Tplug shadeSource = shade.source();
        auto* dag = shapeSource.isNull() ? nullptr : dynamic_cast<TdagObject*>(shapeSource.node());
        if (!dag || dag->typeName() == "reference")
            continue;
        fPaths.push_back(dag->firstPath());
        fChildren.push_back(shadeSource.isNull() ? nullptr
                                                 : std::unique_ptr<TmaterialTexture>(
                                                       new TmaterialTexture(fInfo, shadeSource)));
    }
}

TmaterialTexture* TmaterialTexture::findSwitchPath(const TdagPath& path) const {
    for (size_t i = 1; i < fPaths.size(); ++i)
        if (path.isValid() && fPaths[i].node() == path.node())
            return fChildren[i].get();
    return fChildren.empty() ? nullptr : fChildren[0].get();
}

// ---------------------------------------------------------------- computing

TsharedGlTextureObject TmaterialTexture::textureObject(T3dPort& port, const TdagPath& object,
                                                       TevaluateTextureInfo* info) {
    if (info)
        info->reset();
    TsharedGlTextureObject result;
    switch (fKind) {
    case kFile: {
        TdnFileTexture* f = file();
        if (OrvoAttributeValue(f, "disableFileLoad", false))
            break;
        if (isSupportedFile()) {
            result = computeFile(port);
        } else {
            // The file shows something the card cannot draw as it stands
            // (a coverage below 1, a stagger...): bake it instead.
            fKind = kConvertSolid;
            setState(kBakeStale, true);
            listenUpstream();
            result = computeConvertSolid(port, object);
        }
        break;
    }
    case kSwatch:
        result = fsHardwareRender ? computeConvertSolid(port, object) : computeSwatch(port);
        break;
    case kConvertSolid:
        if (file() && &OrvoRootAttribute(*fPlug.attribute()) == &TdnTx2D::aOutColor &&
            isSupportedFile()) {
            fKind = kFile;
            setState(kFileStale, true);
            result = computeFile(port);
        } else {
            result = computeConvertSolid(port, object);
        }
        break;
    case kSwitch:
        if (TmaterialTexture* child = findSwitchPath(object))
            result = child->textureObject(port, object, info);
        break;
    default:
        break;
    }
    if (hasState(kFilterChanged) && result) {
        applyFilter(*result);
        setState(kFilterChanged, false);
    }
    if (info && fKind != kSwitch) {
        fillInfo(*info, object);
        info->texture = result;
    }
    return result;
}

void TmaterialTexture::applyFilter(TglTextureObject& texture) {
    const TdependNode* info = fInfo;
    const int level = OrvoAttributeValue<int>(info, "textureFilter", 0);
    switch (level) {
    case 1:
        texture.setFilter(false, texture.magnificationFilter(), texture.minificationFilter());
        return;
    case 2:
        texture.setFilter(true, GL_NEAREST, GL_NEAREST);
        break;
    case 3:
        texture.setFilter(true, GL_LINEAR, GL_LINEAR);
        break;
    case 4:
        texture.setFilter(true, GL_LINEAR, GL_NEAREST_MIPMAP_NEAREST);
        break;
    case 5:
        texture.setFilter(true, GL_LINEAR, GL_NEAREST_MIPMAP_LINEAR);
        break;
    case 6:
        texture.setFilter(true, GL_LINEAR, GL_LINEAR_MIPMAP_NEAREST);
        break;
    case 7:
        texture.setFilter(true, GL_LINEAR, GL_LINEAR_MIPMAP_LINEAR);
        break;
    default:
        return;
    }
    texture.setStateChanged();
}

TsharedGlTextureObject TmaterialTexture::upload(T3dPort& port, const TpixelMap& map, size_t slot) {
    if (fTextures.size() <= slot)
        fTextures.resize(slot + 1);
    if (!fTextures[slot])
        fTextures[slot] = std::make_shared<TglTextureObject>();
    TglTextureObject& t = *fTextures[slot];
    t.setForceClamp(fForceClamp);
    T3dPort* into = T3dPort::fsTexturePort ? T3dPort::fsTexturePort : &port;
    t.texImage2D(*into, map);
    ++fComputeCount;
    return fTextures[slot];
}

bool TmaterialTexture::colorTranspBothConnected() const {
    TdependNode* f = fPlug.node();
    TdependNode* material = fInfo ? fInfo->material() : nullptr;
    if (!f || !material)
        return false;
    const auto feeds = [&](const char* out, const char* in) {
        const Tattribute* a = material->findAttribute(in);
        const Tplug source = a ? Tplug(material, a).source() : Tplug();
        return !source.isNull() && source.node() == f &&
               OrvoRootAttribute(*source.attribute()).longName() == out;
    };
    return feeds("outColor", "color") && feeds("outTransparency", "transparency");
}

int TmaterialTexture::cycleSlot(int frame, int start, int end, int by, bool& inside) {
    inside = frame >= std::min(start, end) && frame <= std::max(start, end);
    if (!inside)
        return 0;
    // In 64 bits: the attributes may hold any 32-bit frames.
    const int64_t step = by == 0 ? 1 : by;
    const int64_t last =
        std::min<int64_t>(std::abs((int64_t(end) - start) / step), std::numeric_limits<int>::max());
    return int(std::clamp((int64_t(frame) - start) / step, int64_t(0), last));
}

TsharedGlTextureObject TmaterialTexture::newFileTexture(T3dPort& port, const TpixelMap& map,
                                                        size_t slot) {
    if (fTextures.size() <= slot)
        fTextures.resize(slot + 1);
    fTextures[slot] = std::make_shared<TglTextureObject>();
    fTextures[slot]->setSizeLimit(T3dPort::fsMaxUserTextureSize);
    TsharedGlTextureObject t = upload(port, map, slot);
    TdnFileTexture* f = file();
    if (fTileSources) {
        // A tile ends where its neighbour begins: its edges neither repeat
        // nor fade into a border colour, which would draw the seams.
        t->setForceClamp(false);
        t->setWrap(GL_CLAMP_TO_EDGE, GL_CLAMP_TO_EDGE);
        return t;
    }
    // Wrapping from the placement.
    const bool wrapU = OrvoAttributeValue(f, "wrapU", true),
               wrapV = OrvoAttributeValue(f, "wrapV", true);
    const bool mirrorU = OrvoAttributeValue(f, "mirrorU", false),
               mirrorV = OrvoAttributeValue(f, "mirrorV", false);
    const auto wrap = [&](bool on, bool mirror) -> GLenum {
        if (on)
            return mirror && port.hasExtension("GL_ARB_texture_mirrored_repeat") ? 0x8370
                                                                                 : GL_REPEAT;
        return mirror && port.hasExtension("GL_ATI_texture_mirror_once") ? 0x8742 : GL_CLAMP;
    };
    t->setWrap(wrap(wrapU, mirrorU), wrap(wrapV, mirrorV));
    if (!wrapU && !wrapV) {
        t->setBorderColor({-1, -1, -1, 1});
    } else {
        const T3Float d = OrvoAttributeValue(f, "defaultColor", T3Float{0.5f, 0.5f, 0.5f});
        t->setBorderColor({d.x, d.y, d.z, 1});
    }
    return t;
}

TsharedGlTextureObject TmaterialTexture::computeFile(T3dPort& port) {
    TdnFileTexture* f = file();
    const auto first = [&]() -> TsharedGlTextureObject {
        return fTextures.empty() ? nullptr : fTextures[0];
    };
    if (!f || fsDisableTextureCompute)
        return first();
    setState(kCycling, OrvoAttributeValue(f, "useFrameExtension", false) &&
                           OrvoAttributeValue(f, "useHardwareTextureCycling", false));
    const int frame = f->currentFrame();

    // A texture in UV tiles: one texture a tile, where the node's file data
    // puts it. A different number of tiles is a different image.
    const bool tiled = OrvoAttributeValue<int>(f, "uvTilingMode", 0) != 0;
    const TdnFileTexture::FileData* tiles = nullptr;
    if (tiled) {
        tiles = &f->getCachedFileDataForFrame(frame);
        fTileSources = true;
        fTilePositions = tiles->tiles;
        if (int32_t(tiles->names.size()) != fTileCount) {
            fTileCount = int32_t(tiles->names.size());
            setState(kFileStale, true);
        }
    } else if (fTileSources) {
        fTileSources = false;
        fTileCount = 0;
        fTilePositions.clear();
        setState(kFileStale, true);
    }

    // Cycling holds one texture a frame of the cycle, loaded as each frame
    // is first shown. (Tiles are loaded for the current frame only.)
    const bool cycling = hasState(kCycling) && !tiled;
    const int start = OrvoAttributeValue(f, "startCycleExtension", 1),
              end = OrvoAttributeValue(f, "endCycleExtension", 1);
    const int increment = OrvoAttributeValue(f, "byCycleIncrement", 1);
    const int by = increment == 0 ? 1 : increment;
    bool inside = false;
    const int slot = cycling ? cycleSlot(frame, start, end, by, inside) : 0;
    const bool rangeChanged = cycling && (hasState(kCycleRangeChanged) || fCycle[0] != start ||
                                          fCycle[1] != end || fCycle[2] != by);
    if (hasState(kFileStale) || rangeChanged) {
        fTextures.clear();
        setState(kCycleRangeChanged, false);
    } else if (cycling) {
        if (inside && size_t(slot) < fTextures.size() && fTextures[size_t(slot)])
            return fTextures[size_t(slot)];
    } else {
        return first();
    }

    const bool useAlpha = fOpaque || colorTranspBothConnected();
    if (cycling) {
        fCycle[0] = start;
        fCycle[1] = end;
        fCycle[2] = by;
        // One slot a frame of the cycle; grown as frames are first shown
        // rather than all at once, as a cycle may span any range.
        if (fTextures.size() <= size_t(slot))
            fTextures.resize(size_t(slot) + 1);
        const int64_t frameToLoad = int64_t(by) * slot + start;
        const int load = int(by > 0 ? std::min<int64_t>(frameToLoad, end) : frameToLoad);
        const auto& names = f->getCachedFileDataForFrame(load).names;
        const std::shared_ptr<const TpixelMap> map =
            names.empty()
                ? nullptr
                : OrvoFileMapInRenderingSpace(
                      TfilePixelMapCache::pixelMap(names[0], load, useAlpha, f), *f, names[0]);
        setState(kFileStale, false);
        fFileName.clear(); // frames of a cycle are not shared
        return map ? newFileTexture(port, *map, size_t(slot)) : nullptr;
    }

    if (tiled) {
        setState(kFileStale, false);
        fFileName.clear(); // tiles are not shared
        if (tiles->names.empty())
            warnNoFile(*f, tiles->error);
        fTextures.assign(tiles->names.size(), nullptr);
        for (size_t i = 0; i < tiles->names.size(); ++i)
            if (const auto map = OrvoFileMapInRenderingSpace(
                    TfilePixelMapCache::pixelMap(tiles->names[i], frame, useAlpha, f), *f,
                    tiles->names[i]))
                newFileTexture(port, *map, i);
        return first();
    }

    Tstring name;
    if (!f->getExactTextureName(name)) {
        setState(kFileStale, false);
        fTextures.clear();
        warnNoFile(*f, f->getCachedFileDataForFrame(frame).error);
        return nullptr;
    }
    // Another info showing the same file shares its texture.
    if (!hasState(kSharingStale) || name != fFileName) {
        fFileName = name;
        setState(kSharingStale, false);
        if (TdependGraph* g = f->graph())
            for (TdependNode* n : g->nodes()) {
                auto* other = static_cast<TmaterialInfo*>(n->cast(TmaterialInfo::sTypeof()));
                if (!other || other == fInfo || !other->materialTexture())
                    continue;
                if (TsharedGlTextureObject shared = other->materialTexture()->find(*this, name)) {
                    fTextures.assign(1, shared);
                    setState(kFileStale, false);
                    return shared;
                }
            }
    }
    const std::shared_ptr<const TpixelMap> map = OrvoFileMapInRenderingSpace(
        TfilePixelMapCache::pixelMap(name, frame, useAlpha, f), *f, name);
    setState(kFileStale, false);
    if (!map) {
        fTextures.clear();
        return nullptr;
    }
    return newFileTexture(port, *map, 0);
}

void TmaterialTexture::warnNoFile(TdnFileTexture& f, const Tstring& why) {
    Tstring raw;
    f.getRawFileTextureName(raw, false);
    if (raw.empty() || fWarnedName == raw)
        return;
    fWarnedName = raw;
    TcommandEngine::displayWarning(fmt::format("{}: no file found for '{}' for the viewport{}{}",
                                               f.name(), raw, why.empty() ? "" : ": ", why));
}

void TmaterialTexture::fillInfo(TevaluateTextureInfo& info, const TdagPath& path) const {
    info.texture = fTextures.empty() ? nullptr : fTextures[0];
    info.textureName = fPlug.node() ? fPlug.node()->name() : Tstring();
    getTextureTransform(path, info.rotate, info.repeatU, info.repeatV, info.offsetU, info.offsetV,
                        info.angle);
    getUvRange(path, info.uvMin, info.uvMax);
    info.tileSources.clear();
    info.tilePositions.clear();
    if (fKind == kFile && fTileSources)
        for (size_t i = 0; i < fTextures.size() && i < fTilePositions.size(); ++i)
            if (fTextures[i]) {
                info.tileSources.push_back(fTextures[i]);
                info.tilePositions.push_back(fTilePositions[i]);
            }
}

TsharedGlTextureObject TmaterialTexture::computeSwatch(T3dPort& port) {
    if (fsDisableTextureCompute)
        return fTextures.empty() ? nullptr : fTextures[0];
    if (!hasState(kSwatchStale) && !fTextures.empty())
        return fTextures[0];
    setState(kSwatchStale, false);
    fSwatch = TbaseAccessor::appRetrieveShared(fPlug);
    if (!fSwatch) {
        fTextures.clear();
        return nullptr;
    }
    fTextures.resize(1);
    return upload(port, *fSwatch, 0);
}

TsharedGlTextureObject TmaterialTexture::computeConvertSolid(T3dPort& port,
                                                             const TdagPath& object) {
    const auto slotOf = [&]() -> long {
        for (size_t i = 0; i < fPaths.size(); ++i)
            if (fPaths[i] == object)
                return long(i);
        return -1;
    };
    if (fsDisableTextureCompute) {
        const long slot = slotOf();
        return slot >= 0 && size_t(slot) < fTextures.size() ? fTextures[size_t(slot)] : nullptr;
    }
    if (hasState(kBakeStale)) {
        setState(kBakeStale, false);
        fTextures.clear();
        fPaths.clear();
        fUvRanges.clear();
    }
    long slot = slotOf();
    if (slot < 0) {
        unsigned size = fsHardwareRender ? unsigned(std::max(2, fsHardwareRenderResolution))
                                         : nodeResolution(fPlug.node());
        TpixelMap map;
        T2Float lo{0, 0}, hi{1, 1};
        // The material baked as its own texture, or a file whose
        // transparency the material takes too, bakes opaque.
        const bool alpha =
            fPlug.node() != (fInfo ? fInfo->material() : nullptr) && !colorTranspBothConnected();
        if (!TbaseAccessor::appConvertSolidTx(object, TdagPath(), fPlug, size, size, alpha, map, lo,
                                              hi)) {
            map = TpixelMap(2, 2, 3);
            std::fill_n(map.data(), 2 * 2 * 4, uint8_t(255));
            lo = {0, 0};
            hi = {1, 1};
        }
        fPaths.push_back(object);
        fUvRanges.emplace_back(lo, hi);
        slot = long(fPaths.size() - 1);
        upload(port, map, size_t(slot));
    }
    return fTextures[size_t(slot)];
}

unsigned TmaterialTexture::nodeResolution(const TdependNode* node) {
    const auto clampSide = [](double v) {
        return unsigned(std::clamp(v, 2.0, 65535.0));
    };
    float resolution = 0.0f;
    const bool hasResolution =
        TrenderUtilities::getUnconnectedValue(node, "resolution", resolution);
    if (OrvoEnvIsSet("ORVO_HW_FILE_TEXTURE_RESOLUTION_OVERRIDE") && node &&
        const_cast<TdependNode*>(node)->cast(TdnFileTexture::sTypeof())) {
        const T2Float size = OrvoAttributeValue(node, "outSize", T2Float{0, 0});
        double side = std::max(size.x, size.y);
        if (hasResolution)
            side = std::max(side, double(resolution));
        return clampSide(side);
    }
    if (hasResolution)
        return clampSide(resolution);
    const std::optional<std::string> option =
        ToptionVars::instance().get("defaultTextureResolution");
    const std::optional<long long> wanted = option ? OrvoParseInteger(*option) : std::nullopt;
    if (!wanted)
        return 32;
    if (*wanted <= 32)
        return unsigned(std::max(*wanted, 2LL));
    unsigned side = 64;
    while (side < 4096 && (long long)side < *wanted)
        side *= 2;
    return side;
}

bool TmaterialTexture::isSupportedFile() {
    TdnFileTexture* f = file();
    if (!f || OrvoAttributeValue(f, "invert", false))
        return false;
    if (hasState(kAskSupported)) {
        setState(kHasBotFile, f->hasBOTFile());
        setState(kAskSupported, false);
    }
    if (hasState(kHasBotFile))
        return false;
    const T2Float coverage = OrvoAttributeValue(f, "coverage", T2Float{1, 1});
    const T2Float repeat = OrvoAttributeValue(f, "repeatUV", T2Float{1, 1});
    const bool mirror =
        OrvoAttributeValue(f, "mirrorU", false) || OrvoAttributeValue(f, "mirrorV", false);
    const bool cardMirrors =
        fInfo && fInfo->port() && fInfo->port()->hasExtension("GL_ARB_texture_mirrored_repeat");
    if (coverage.x < 1.0f || coverage.y < 1.0f || OrvoAttributeValue(f, "stagger", false) ||
        (mirror && !cardMirrors))
        return false;
    if (!OrvoAttributeValue(f, "wrapU", true) && !near(repeat.x, 1.0f, 1e-5f))
        return false;
    if (!OrvoAttributeValue(f, "wrapV", true) && !near(repeat.y, 1.0f, 1e-5f))
        return false;
    if (!OrvoEnvIsSet("ORVO_OLD_TEX_PLACEMENT_BAKING"))
        return true;
    if (std::fabs(OrvoAttributeValue(f, "rotateUV", 0.0f)) > 1e-10f) {
        const T2Float offset = OrvoAttributeValue(f, "offset", T2Float{0, 0});
        const T2Float frame{OrvoAttributeValue(f, "translateFrameU", 0.0f),
                            OrvoAttributeValue(f, "translateFrameV", 0.0f)};
        return near(offset.x, 0, 1e-5f) && near(offset.y, 0, 1e-5f) && near(frame.x, 0, 1e-5f) &&
               near(frame.y, 0, 1e-5f) && near(repeat.x, 1, 1e-5f) && near(repeat.y, 1, 1e-5f);
    }
    return true;
}

// ---------------------------------------------------------------- what the draw reads

T3Float TmaterialTexture::getDefaultColor(const TdagPath& path) const {
    const TdependNode* n = fPlug.node();
    switch (fKind) {
    case kFile:
    case kSwatch:
        return OrvoAttributeValue(n, "defaultColor", T3Float{0.5f, 0.5f, 0.5f});
    case kConvertSolid: {
        T3Float c{0, 0, 0};
        return TrenderUtilities::getUnconnectedValue(n, "defaultColor", c) ? c : T3Float{0, 0, 0};
    }
    case kSwitch: {
        if (const TmaterialTexture* child = findSwitchPath(path))
            return child->getDefaultColor(path);
        T3Float c{0, 0, 0};
        float grey = 0;
        if (TrenderUtilities::getUnconnectedValue(fPlug, c))
            return c;
        if (TrenderUtilities::getUnconnectedValue(fPlug, grey))
            return {grey, grey, grey};
        return {0, 0, 0};
    }
    default: {
        T3Float c{0, 0, 0};
        return TrenderUtilities::getUnconnectedValue(n, "hardwareColor", c) ? c : T3Float{0, 0, 0};
    }
    }
}

T3Float TmaterialTexture::getTextureColor(const TdagPath& path) const {
    if (fKind == kSwitch && path.isValid()) {
        bool listed = false;
        for (size_t i = 1; i < fPaths.size(); ++i)
            listed = listed || (fPaths[i].node() == path.node() && fChildren[i]);
        if (!listed)
            return getDefaultColor(path);
    }
    return {1, 1, 1};
}

void TmaterialTexture::getTextureTransform(const TdagPath& path, float& rotate, float& scaleU,
                                           float& scaleV, float& offsetU, float& offsetV,
                                           float& angle) const {
    rotate = angle = 0.0f;
    scaleU = scaleV = 1.0f;
    offsetU = offsetV = 0.0f;
    if (fKind == kSwitch) {
        if (const TmaterialTexture* child = findSwitchPath(path))
            child->getTextureTransform(path, rotate, scaleU, scaleV, offsetU, offsetV, angle);
        return;
    }
    if (fKind != kFile)
        return;
    const TdependNode* f = fPlug.node();
    const T2Float coverage = OrvoAttributeValue(f, "coverage", T2Float{1, 1});
    const T2Float repeat = OrvoAttributeValue(f, "repeatUV", T2Float{1, 1});
    const T2Float offset = OrvoAttributeValue(f, "offset", T2Float{0, 0});
    const T2Float frame{OrvoAttributeValue(f, "translateFrameU", 0.0f),
                        OrvoAttributeValue(f, "translateFrameV", 0.0f)};
    scaleU = coverage.x == 0 || repeat.x == 0 ? 1e-5f : coverage.x / repeat.x;
    scaleV = coverage.y == 0 || repeat.y == 0 ? 1e-5f : coverage.y / repeat.y;
    offsetU = frame.x - offset.x * scaleU;
    offsetV = frame.y - offset.y * scaleV;
    const float rotateUV = OrvoAttributeValue(f, "rotateUV", 0.0f),
                rotateFrame = OrvoAttributeValue(f, "rotateFrame", 0.0f);
    if (!OrvoEnvIsSet("ORVO_OLD_TEX_PLACEMENT_BAKING")) {
        rotate = float(rotateUV * kDegreesPerRadian);
        angle = float(rotateFrame * kDegreesPerRadian);
    } else {
        angle = float((rotateUV + rotateFrame) * kDegreesPerRadian);
    }
}

void TmaterialTexture::getUvRange(const TdagPath& path, T2Float& lo, T2Float& hi) const {
    lo = {0, 0};
    hi = {1, 1};
    if (fKind == kSwitch) {
        if (const TmaterialTexture* child = findSwitchPath(path))
            child->getUvRange(path, lo, hi);
        return;
    }
    if (fKind != kConvertSolid)
        return;
    for (size_t i = 0; i < fPaths.size() && i < fUvRanges.size(); ++i)
        if (fPaths[i] == path) {
            lo = fUvRanges[i].first;
            hi = fUvRanges[i].second;
        }
}

TsharedGlTextureObject TmaterialTexture::find(const TmaterialTexture& other,
                                              const Tstring& fileName) const {
    if (fKind == kSwitch) {
        for (const auto& child : fChildren)
            if (child)
                if (TsharedGlTextureObject t = child->find(other, fileName))
                    return t;
        return nullptr;
    }
    if (fKind != other.fKind || fKind != kFile || fFileName != fileName || fTextures.empty() ||
        hasState(kFileStale))
        return nullptr;
    // A texture whose alpha was kept serves only one that keeps it too.
    if (colorTranspBothConnected() != other.colorTranspBothConnected())
        return nullptr;
    return fTextures[0];
}

// ---------------------------------------------------------------- staying current

void TmaterialTexture::refresh() {
    if (fInfo && !fsDisableTextureCompute)
        fInfo->transformsDirty();
}

void TmaterialTexture::dirty(const Tplug& plug) {
    const Tattribute& root = OrvoRootAttribute(*plug.attribute());
    const Tstring& name = root.longName();
    if (plug.node() == fInfo && &root == &TmaterialInfo::aTextureFilter) {
        setState(kFilterChanged, true);
        for (auto& child : fChildren)
            if (child)
                child->dirty(plug);
        return;
    }
    switch (fKind) {
    case kFile: {
        const bool cycling = hasState(kCycling);
        if (name == "fileTextureName" || name == "useFrameExtension" || name == "frameExtension" ||
            name == "frameOffset" || name == "uvTilingMode" || name == "explicitUvTiles" ||
            name == "baseExplicitUvTilePosition")
            if (TdnFileTexture* f = file()) {
                // The node keeps what its names resolve to until a dirty
                // message reaches it, and those stop at outputs nobody has
                // read; the viewport reads the names without reading an
                // output, so it passes the change on itself.
                TmsgDirty msg{&plug};
                f->setDirty(msg);
            }
        if (name == "defaultColor") {
            refresh();
        } else if (name == "useFrameExtension" || name == "useHardwareTextureCycling" ||
                   name == "uvTilingMode" || name == "explicitUvTiles" ||
                   name == "baseExplicitUvTilePosition") {
            setState(kFileStale, true);
            refresh();
        } else if (name == "startCycleExtension" || name == "endCycleExtension" ||
                   name == "byCycleIncrement") {
            if (cycling) {
                setState(kCycleRangeChanged, true);
                refresh();
            }
        } else if (name == "frameExtension") {
            refresh();
            if (!cycling)
                setState(kFileStale, true);
        } else if (name == "frameOffset") {
            refresh();
            setState(kFileStale, true);
            if (cycling)
                setState(kCycleRangeChanged, true);
        } else if (name == "colorGain" || name == "colorOffset" || name == "alphaGain" ||
                   name == "alphaOffset" || name == "alphaIsLuminance" || name == "invert" ||
                   name == "colorSpace" || name == "ignoreColorSpaceFileRules" ||
                   name == "colorManagementEnabled") {
            refresh();
            setState(kFileStale, true);
        } else if (name == "fileTextureName") {
            refresh();
            setState(kFileStale | kAskSupported | kSharingStale, true);
        } else {
            // Placement: the texture matrix changes, the image does not.
            refresh();
        }
        break;
    }
    case kSwatch:
        if (name == "defaultColor")
            refresh();
        else {
            setState(kSwatchStale, true);
            refresh();
        }
        break;
    case kConvertSolid:
        if (name != "defaultColor") {
            if (!hasState(kBakeStale)) {
                refresh();
                setState(kBakeStale, true);
            }
            if (name == "fileTextureName")
                setState(kAskSupported, true);
        }
        break;
    case kSwitch:
        for (auto& child : fChildren)
            if (child && child->fPlug.node() == plug.node())
                child->dirty(plug);
        break;
    default:
        break;
    }
}

void TmaterialTexture::purge() {
    switch (fKind) {
    case kSwatch:
        setState(kSwatchStale, true);
        break;
    case kConvertSolid:
        setState(kBakeStale, true);
        break;
    case kSwitch:
        for (auto& child : fChildren)
            if (child)
                child->purge();
        break;
    default:
        break;
    }
    if (fKind != kFile)
        fTextures.clear();
}

void TmaterialTexture::attributeChanged(TdependNode& node, const TattributeChangedMsg& msg) {
    if (!msg.plug || OrvoViewportIsBaking())
        return;
    if (&node == fPlug.node()) {
        if (fKind == kSwitch && (msg.flags & TattributeChangedMsg::kConnectionChange)) {
            // Inputs came or went: the children follow the connections.
            buildSwitch();
            refresh();
        }
        return; // the value's own dirty message follows
    }
    // Upstream of a bake: a connection change reshapes the network.
    if (msg.flags & TattributeChangedMsg::kConnectionChange) {
        if (fKind == kConvertSolid || fKind == kSwatch)
            listenUpstream();
        dirty(*msg.plug);
    }
}

void TmaterialTexture::nodeDirty(TdependNode& node, const TnodeDirtyMsg& msg) {
    if (!msg.plug || OrvoViewportIsBaking())
        return;
    if (&node == fPlug.node() || fKind == kConvertSolid || fKind == kSwatch)
        dirty(*msg.plug);
}

void TmaterialTexture::nodeDeleted(TdependNode& node) {
    fSources.erase(std::remove(fSources.begin(), fSources.end(), &node), fSources.end());
}
