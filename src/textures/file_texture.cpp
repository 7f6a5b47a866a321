#include "textures/file_texture.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <thread>

#include "host/app_mode.h"
#include "host/env.h"
#include "host/graph.h"
#include "host/image_file.h"
#include "host/messages.h"
#include "textures/file_texture_cache.h"
#include "textures/pyramid_inventory.h"

ORVO_REGISTER_NODE(TdnFileTexture)

ORVO_DEPENDENCIES(TdnFileTexture) {
    // What picks the file affects every output; the way it is read affects
    // the colours.
    Tattribute* files[] = {
        &FileTextureName,   &FileTextureNamePattern, &DisableFileLoad,
        &UseFrameExtension, &FrameExtension,         &FrameOffset,
        &UvTilingMode,      &ExplicitUvTiles,        &BaseExplicitUvTilePosition};
    Tattribute* reading[] = {&FilterType, &FilterWidth, &PreFilter, &PreFilterRadius, &UseCache,
                             &UseMaximumRes, &BlurPixelation, &WrapU, &WrapV, &Exposure,
                             &HdrMapping, &HdrExposure, &RepeatUV, &Coverage,
                             // the colour space the file is read in
                             &ColorSpace, &IgnoreColorSpaceFileRules, &ColorManagementEnabled};
    Tattribute* colours[] = {&TdnTx2D::aOutColor, &TdnTx2D::aOutAlpha, &OutTransparency};
    for (Tattribute* f : files) {
        for (Tattribute* out : colours)
            affectsAll(m, *f, *out);
        affectsAll(m, *f, OutSize);
        affectsAll(m, *f, FileHasAlpha);
        affectsAll(m, *f, InfoBits);
    }
    for (Tattribute* r : reading)
        for (Tattribute* out : colours)
            affectsAll(m, *r, *out);
    // The 2D texture inputs reach the transparency through the alpha.
    Tattribute* base[] = {
        &TdnTx2D::aUvCoord,      &TdnTx2D::aUvFilterSize, &TdnTx2D::aFilter,
        &TdnTx2D::aFilterOffset, &TdnTx2D::aInvert,       &TdnTx2D::aAlphaIsLuminance,
        &TdnTx2D::aColorGain,    &TdnTx2D::aColorOffset,  &TdnTx2D::aAlphaGain,
        &TdnTx2D::aAlphaOffset,  &TdnTx2D::aDefaultColor};
    for (Tattribute* b : base)
        affectsAll(m, *b, OutTransparency);
}

namespace {

std::atomic<bool> gLoadDisabled{false};
std::atomic<bool> gAbortOnMissing{false};

bool endsWith(const Tstring& s, const char* tail) {
    const size_t n = std::char_traits<char>::length(tail);
    return s.size() >= n && s.compare(s.size() - n, n, tail) == 0;
}

// Blurs a map in place before its pyramid is built: a separable Gaussian of
// standard deviation radius / 2, reaching `radius` texels (rounded up) to
// each side, edges clamped.
template <class T>
void preFilterMap(TgenericPixelMap<T>& map, float radius) {
    const int reach = std::max(1, int(std::ceil(radius)));
    const float sigma = std::max(0.5f, 0.5f * radius);
    std::vector<float> kernel(size_t(2 * reach + 1));
    float total = 0.0f;
    for (int k = -reach; k <= reach; ++k)
        total += kernel[size_t(k + reach)] = std::exp(-0.5f * float(k * k) / (sigma * sigma));
    for (float& k : kernel)
        k /= total;
    const int w = int(map.width()), h = int(map.height());
    constexpr unsigned C = TgenericPixelMap<T>::kComponents;
    std::vector<float> line(size_t(std::max(w, h)) * C);
    auto store = [](float x) -> T {
        if constexpr (std::is_same_v<T, float>)
            return x;
        else
            return T(std::clamp(std::lround(x), 0L, 255L));
    };
    for (int pass = 0; pass < 2; ++pass) {
        const int n = pass == 0 ? w : h, lines = pass == 0 ? h : w;
        for (int l = 0; l < lines; ++l) {
            auto at = [&](int i) {
                return pass == 0 ? map.pixel(unsigned(i), unsigned(l))
                                 : map.pixel(unsigned(l), unsigned(i));
            };
            for (int i = 0; i < n; ++i) {
                float sum[C] = {};
                for (int k = -reach; k <= reach; ++k) {
                    const T* p = at(std::clamp(i + k, 0, n - 1));
                    for (unsigned c = 0; c < C; ++c)
                        sum[c] += kernel[size_t(k + reach)] * float(p[c]);
                }
                std::copy(sum, sum + C, line.begin() + ptrdiff_t(i) * C);
            }
            for (int i = 0; i < n; ++i) {
                T* p = at(i);
                for (unsigned c = 0; c < C; ++c)
                    p[c] = store(line[size_t(i) * C + c]);
            }
        }
    }
}

template <class Map>
Tpyramid* buildPyramid(Map& map, const TdnFileTexture::Settings& s) {
    if (s.preFilter)
        preFilterMap(map, s.preFilterRadius);
    auto pyramid = std::make_unique<TpyramidNonSwatch>();
    if (!pyramid->buildPyramidFromPixelMap(map))
        return nullptr;
    return pyramid.release();
}

} // namespace

// ---------------------------------------------------------------- statics

void TdnFileTexture::disableFileTextureLoad() {
    gLoadDisabled.store(true);
}
void TdnFileTexture::enableFileTextureLoad() {
    gLoadDisabled.store(false);
}
bool TdnFileTexture::isFileTextureLoadDisabled() {
    return gLoadDisabled.load();
}
void TdnFileTexture::abortOnMissingTexture(bool on) {
    gAbortOnMissing.store(on);
}
bool TdnFileTexture::abortsOnMissingTexture() {
    return gAbortOnMissing.load();
}
void TdnFileTexture::setThreadCount(unsigned threads) {
    Tpyramid::setThreadCount(threads);
}
void TdnFileTexture::setRelativeThreadCount(int change) {
    const int now = int(Tpyramid::threadCountSetting()) + change;
    Tpyramid::setThreadCount(unsigned(std::max(1, now)));
}
void TdnFileTexture::initThreadLocalCache() {
    TfileTextureCache::forThisThread();
}
void TdnFileTexture::freeThreadLocalCache() {
    TfileTextureCache::freeForThisThread();
}

void TdnFileTexture::connectPlacement(TdependGraph& graph, TdependNode& placement,
                                      TdependNode& file) {
    const std::pair<const char*, const char*> pairs[] = {
        {"outUV", "uvCoord"},
        {"outUvFilterSize", "uvFilterSize"},
        {"coverage", "coverage"},
        {"translateFrameU", "translateFrameU"},
        {"translateFrameV", "translateFrameV"},
        {"rotateFrame", "rotateFrame"},
        {"mirrorU", "mirrorU"},
        {"mirrorV", "mirrorV"},
        {"stagger", "stagger"},
        {"wrapU", "wrapU"},
        {"wrapV", "wrapV"},
        {"repeatUV", "repeatUV"},
        {"offset", "offset"},
        {"rotateUV", "rotateUV"},
        {"noiseU", "noiseU"},
        {"noiseV", "noiseV"},
        {"doTransform", "doTransform"},
    };
    for (const auto& [from, to] : pairs)
        graph.connect(graph.findPlug(placement.name() + "." + from),
                      graph.findPlug(file.name() + "." + to));
}

// ---------------------------------------------------------------- life

TdnFileTexture::TdnFileTexture() = default;

TdnFileTexture::~TdnFileTexture() {
    // The pyramids belong to the inventory, which frees those no texture
    // needs any more.
    freePyramids();
}

void TdnFileTexture::freePyramids() {
    // A sample that began before a reload may still read the old tiles:
    // they go when the next render starts.
    if (referenceCount() > 0) {
        fRetiredTiles.push_back(std::move(fTiles));
        fRetiredGrids.push_back(std::move(fGrid));
    }
    fTiles.clear();
    fGrid.clear();
    fGridW = fGridH = 0;
    fTiled = false;
}

bool TdnFileTexture::isOutput(const Tattribute* a) const {
    if (isTextureOutput(a))
        return true;
    for (const Tattribute* out :
         {static_cast<const Tattribute*>(&aOutTransparency),
          static_cast<const Tattribute*>(&aOutSize), static_cast<const Tattribute*>(&aFileHasAlpha),
          static_cast<const Tattribute*>(&aInfoBits)})
        if (a == out || (a && a->parent() == out))
            return true;
    return false;
}

void TdnFileTexture::setDirty(TmsgDirty& msg) {
    // Any change may pick another file (a render's hooks set the frame
    // between frames) or read it another way: load again at the next
    // compute. What samples may still hold is retired, not freed.
    {
        std::lock_guard lock(fLoadMutex);
        fLoaded.store(false);
        fFileData.clear();
    }
    TdnTx2D::setDirty(msg);
}

void TdnFileTexture::shadingNodeInit(TframeSampleData* frame) {
    TdnTx2D::shadingNodeInit(frame);
    // A render resolves and loads afresh, and warns afresh.
    std::lock_guard lock(fLoadMutex);
    fLoaded.store(false);
    fFileData.clear();
    fRetiredTiles.clear();
    fRetiredGrids.clear();
    {
        std::lock_guard warn(fWarnMutex);
        fWarned.clear();
    }
    fMipmapWarned = false;
    resetOnDemand();
    // Noise moves neighbouring samples apart in the texture, which a mipmap
    // lookup of the unmoved footprint does not follow.
    const TdataHandle noiseU = plugValue(aNoiseU), noiseV = plugValue(aNoiseV);
    if (plugValue(aFilterType).asShort() == K::kMipMapFilter &&
        (std::fabs(noiseU.asFloat()) > 1e-5f || std::fabs(noiseV.asFloat()) > 1e-5f))
        TcommandEngine::displayWarning(
            TstringId("s_TfileTextureStrings.rMipmapWithNoise").format(name()));
}

void TdnFileTexture::shadingNodeOnDemand(Tplug&, TdataBlock&) {
    ensureLoaded();
}

void TdnFileTexture::endOfRender() {
    TdnTx2D::endOfRender();
}

// ---------------------------------------------------------------- reports

void TdnFileTexture::warnOnce(const Tstring& key, const Tstring& text) {
    {
        std::lock_guard lock(fWarnMutex);
        if (std::find(fWarned.begin(), fWarned.end(), key) != fWarned.end())
            return;
        fWarned.push_back(key);
    }
    TcommandEngine::displayWarning(text);
}

void TdnFileTexture::reportMissing(const Tstring& file) {
    warnOnce("missing:" + file,
             TstringId("s_TrenderNodeStrings.rMissingFileTexture2").format(name(), file));
    if (gBatchMode && gAbortOnMissing.load()) {
        std::fflush(stdout);
        std::fflush(stderr);
        _exit(1);
    }
}

// ---------------------------------------------------------------- loading

void TdnFileTexture::ensureLoaded() {
    if (fLoaded.load(std::memory_order_acquire))
        return;
    std::lock_guard lock(fLoadMutex);
    if (fLoaded.load(std::memory_order_relaxed))
        return;
    loadLocked();
    fLoaded.store(true, std::memory_order_release);
}

void TdnFileTexture::loadLocked() {
    freePyramids();
    fFileIsFloat = false;
    Settings& s = fSettings;
    s.filterType = plugValue(aFilterType).asShort();
    s.filterWidth = plugValue(aFilterWidth).asFloat();
    s.preFilter = plugValue(aPreFilter).asBool();
    s.preFilterRadius = plugValue(aPreFilterRadius).asFloat();
    s.useCache = plugValue(aUseCache).asBool();
    s.useMaximumRes = plugValue(aUseMaximumRes).asBool();
    s.blurPixelation = plugValue(aBlurPixelation).asBool();
    s.disableFileLoad = plugValue(aDisableFileLoad).asBool();
    s.wrapU = plugValue(aWrapU).asBool();
    s.wrapV = plugValue(aWrapV).asBool();
    s.exposure = plugValue(aExposure).asFloat();
    s.hdrMapping = plugValue(aHdrMapping).asShort();
    s.hdrExposure = plugValue(aHdrExposure).asFloat();
    fColourSettings = OrvoColourRenderSettings(graph());
    fColorSpace = stringValue(aColorSpace);
    fIgnoreColourRules = plugValue(aIgnoreColorSpaceFileRules).asBool();
    fColourManaged = plugValue(aColorManagementEnabled).asBool();

    if (gLoadDisabled.load())
        return;
    Tstring raw;
    getRawFileTextureName(raw);
    const FileData& data = getCachedFileDataForCurrentFrame();
    if (!data.pattern.empty()) {
        const Tdata pattern = OrvoMakeStringData(data.pattern);
        setAttributeValue(&aComputedFileTextureNamePattern, &pattern);
    }
    if (data.names.empty()) {
        if (!data.error.empty())
            warnOnce("pattern:" + raw, TstringId("s_TfileTextureStrings.rNameResolverFailed")
                                           .format(name(), raw, data.error));
        else if (!raw.empty() && endsWith(raw, ".ptx"))
            warnOnce("ptex:" + raw,
                     TstringId("s_TrenderNodeStrings.rPtxFileTextureWarn").format(name(), raw));
        else if (!raw.empty())
            reportMissing(raw);
        return;
    }
    fTiled = data.tiled;
    for (size_t i = 0; i < data.names.size(); ++i) {
        auto tile = std::make_unique<Tile>();
        tile->name = data.names[i];
        if (i < data.tiles.size()) {
            tile->u = data.tiles[i].first;
            tile->v = data.tiles[i].second;
        }
        fTiles.push_back(std::move(tile));
    }
    if (fTiled) {
        // A grid over the tiles' bounds finds a sample's tile in one look.
        int u0 = fTiles[0]->u, u1 = u0, v0 = fTiles[0]->v, v1 = v0;
        for (const auto& t : fTiles) {
            u0 = std::min(u0, t->u), u1 = std::max(u1, t->u);
            v0 = std::min(v0, t->v), v1 = std::max(v1, t->v);
        }
        fGridU0 = u0, fGridV0 = v0, fGridW = u1 - u0 + 1, fGridH = v1 - v0 + 1;
        if (size_t(fGridW) * size_t(fGridH) <= size_t(1) << 20) {
            fGrid.assign(size_t(fGridW) * size_t(fGridH), -1);
            for (size_t i = 0; i < fTiles.size(); ++i) {
                int& cell =
                    fGrid[size_t(fTiles[i]->v - v0) * size_t(fGridW) + size_t(fTiles[i]->u - u0)];
                if (cell < 0) // the first file of a tile wins
                    cell = int(i);
            }
        } else {
            fGridW = fGridH = 0;
        }
        return; // tiles load as samples reach them
    }
    loadTile(*fTiles[0]);
}

Tpyramid* TdnFileTexture::loadTile(Tile& tile) {
    int expected = 0;
    if (tile.state.compare_exchange_strong(expected, 1)) {
        Tpyramid* p = initTexture(tile.name, true);
        if (p) {
            auto colour = std::make_shared<const TcolourInputChoice>(
                chooseColour(tile.name, p->pixelType() == kPixelTypeFloat));
            if (!colour->problem.empty())
                warnOnce("colour:" + colour->colorSpace,
                         TstringId("s_TfileTextureStrings.rUnknownColorSpace")
                             .format(name(), colour->colorSpace, tile.name));
            tile.colour = std::move(colour);
        }
        tile.pyramid.store(p, std::memory_order_release);
        tile.state.store(2, std::memory_order_release);
        return p;
    }
    while (tile.state.load(std::memory_order_acquire) == 1)
        std::this_thread::yield();
    return tile.pyramid.load(std::memory_order_acquire);
}

TcolourInputChoice TdnFileTexture::chooseColour(const Tstring& file, bool floatFile) {
    return OrvoChooseInputColour(fColourSettings, file, floatFile, fColorSpace, fIgnoreColourRules,
                                 fColourManaged);
}

std::vector<TcolourInputChoice> TdnFileTexture::colourProvenance() {
    ensureLoaded();
    std::vector<TcolourInputChoice> out;
    for (const auto& tile : fTiles) {
        const Tpyramid* p = loadTile(*tile);
        if (p && tile->colour)
            out.push_back(*tile->colour);
    }
    return out;
}

Tpyramid* TdnFileTexture::initTexture(const Tstring& file, bool reportMissingFile) {
    const Settings& s = fSettings;
    if (endsWith(file, ".ptx")) {
        warnOnce("ptex:" + file,
                 TstringId("s_TrenderNodeStrings.rPtxFileTextureWarn").format(name(), file));
        return nullptr;
    }
    std::error_code ec;
    if (!std::filesystem::exists(file, ec)) {
        if (reportMissingFile)
            reportMissing(file);
        return nullptr;
    }
    const Tstring identifier =
        Tpyramid::getUniqueIdentifier(file, false, s.preFilter, s.preFilterRadius);
    TpyramidInventory::TfindResult found = TpyramidInventory::findPyramid(identifier, false);
    Tpyramid* pyramid = found.pyramid();
    if (!pyramid) {
        if (s.disableFileLoad)
            return nullptr;
        if (Tpyramid::IsItABOTFile(file, nullptr, nullptr)) {
            Tstring why;
            pyramid = Tpyramid::openBOT(file, false, identifier, &why);
            if (!pyramid) {
                warnOnce(
                    "bad:" + file,
                    TstringId("s_TrenderNodeStrings.rBadFileTexture").format(name(), file, why));
                return nullptr;
            }
        } else {
            Tstring why;
            std::unique_ptr<TimageFile> image = TimageFile::identifyAndOpen(file, &why);
            if (!image) {
                warnOnce(
                    "bad:" + file,
                    TstringId("s_TrenderNodeStrings.rBadFileTexture").format(name(), file, why));
                return nullptr;
            }
            const unsigned w = image->width(), h = image->height();
            if (std::max(w, h) > Tpyramid::kMaxSide || std::min(w, h) > Tpyramid::kMaxShortSide) {
                warnOnce("big:" + file, TstringId("s_TrenderNodeStrings.rFileTextureTooBig")
                                            .format(name(), file, w, h));
                return nullptr;
            }
            static const bool floatDisabled = OrvoEnvIsSet("ORVO_DISABLE_FLOAT_IMAGE_RENDERING");
            bool read = false;
            if (image->isFloat() && !floatDisabled) {
                TgenericPixelMap<float> map;
                read = image->readPixelMap(map);
                if (read)
                    pyramid = buildPyramid(map, s);
            } else {
                TpixelMap map;
                read = image->readPixelMap(map);
                if (read)
                    pyramid = buildPyramid(map, s);
            }
            if (!read || !pyramid) {
                warnOnce("bad:" + file, TstringId("s_TrenderNodeStrings.rBadFileTexture")
                                            .format(name(), file,
                                                    read ? Tstring("no memory for its pyramid")
                                                         : image->errorText()));
                delete pyramid;
                return nullptr;
            }
            pyramid->setFileName(file);
            pyramid->setIdentifier(identifier);
            // A cached texture moves to a block ordered file and leaves
            // memory; a float one cannot and stays.
            if (s.useCache) {
                TfileTextureCache::forThisThread();
                static_cast<TpyramidNonSwatch*>(pyramid)->remapPyramidToBlocks(nullptr, false);
            }
        }
        TpyramidInventory::registerPyramid(pyramid);
        if (pyramid->isBOT())
            pyramid->resetCacheFlags();
    }
    found.release();
    if (pyramid->pixelType() == kPixelTypeFloat)
        fFileIsFloat = true;
    if (pyramid->isBOT() && !pyramid->hasMipmaps() && s.filterType == K::kMipMapFilter &&
        !fMipmapWarned) {
        fMipmapWarned = true;
        Tstring raw;
        getRawFileTextureName(raw);
        TcommandEngine::displayWarning(
            TstringId("s_TrenderNodeStrings.rBotMissingMipmap").format(raw));
    }
    return pyramid;
}

Tpyramid* TdnFileTexture::currentPyramid() {
    ensureLoaded();
    if (fTiles.empty())
        return nullptr;
    return loadTile(*fTiles[0]);
}

bool TdnFileTexture::fileHasAlpha() {
    const Tpyramid* p = currentPyramid();
    return p && p->pixelSize() == 4;
}

// ---------------------------------------------------------------- sampling

TdnFileTexture::Tile* TdnFileTexture::tileAt(float& u, float& v) {
    if (!fTiled)
        return fTiles.empty() ? nullptr : fTiles[0].get();
    const float fu = std::floor(u), fv = std::floor(v);
    if (!std::isfinite(fu) || !std::isfinite(fv))
        return nullptr;
    const int tu = int(std::clamp(fu, -1e9f, 1e9f)), tv = int(std::clamp(fv, -1e9f, 1e9f));
    Tile* tile = nullptr;
    if (fGridW > 0) {
        const long long gu = (long long)tu - fGridU0, gv = (long long)tv - fGridV0;
        if (gu < 0 || gv < 0 || gu >= fGridW || gv >= fGridH)
            return nullptr;
        const int index = fGrid[size_t(gv) * size_t(fGridW) + size_t(gu)];
        tile = index < 0 ? nullptr : fTiles[size_t(index)].get();
    } else {
        for (const auto& t : fTiles)
            if (t->u == tu && t->v == tv) {
                tile = t.get();
                break;
            }
    }
    if (tile) {
        u -= fu;
        v -= fv;
    }
    return tile;
}

const Tpyramid* TdnFileTexture::sampleAt(float u, float v, float size, T3Float& c, float& a) {
    Tile* tile = tileAt(u, v);
    if (!tile)
        return nullptr;
    const Tpyramid* p = tile->state.load(std::memory_order_acquire) == 2
                            ? tile->pyramid.load(std::memory_order_acquire)
                            : loadTile(*tile);
    if (!p)
        return nullptr;
    a = 1.0f;
    samplePyramid(*p, fSettings, u, v, size, c, a);
    const bool isFloat = p->pixelType() == kPixelTypeFloat;
    // The filtered value in the file's space into the rendering space.
    if (const TcolourInputChoice* colour = tile->colour.get(); colour) {
        float rgb[3] = {c.x, c.y, c.z};
        colour->processor.apply(rgb);
        c = {rgb[0], rgb[1], rgb[2]};
    }
    if (isFloat)
        applyHdr(fSettings, c);
    return p;
}

bool TdnFileTexture::computePlug(const Tplug& plug, TdataBlock& block) {
    if (!isOutput(plug.attribute()))
        return TshadingDependNode::computePlug(plug, block);
    return vectorComputePlug(plug, block, 0, block.elementCount());
}

bool TdnFileTexture::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                                       unsigned count) {
    const Tattribute* attribute = plug.attribute();
    if (!isOutput(attribute))
        return TshadingDependNode::computePlug(plug, block);
    ensureLoaded();

    const Tattribute* root = attribute->parent() ? attribute->parent() : attribute;
    if (root == &aOutSize || root == &aFileHasAlpha || root == &aInfoBits) {
        // From the file alone.
        const Tpyramid* p = fTiles.empty() ? nullptr : fTiles[0]->pyramid.load();
        if (!p && !fTiles.empty() && !fTiled)
            p = loadTile(*fTiles[0]);
        int32_t bits = 0;
        if (p)
            bits |= kInfoLoaded | (p->pixelType() == kPixelTypeFloat ? kInfoFloat : 0) |
                    (p->isBOT() ? kInfoBOT : 0);
        if (fTiled)
            bits |= kInfoTiled;
        if (!fTiles.empty() && !p && !fTiled)
            bits |= kInfoMissing;
        const float size[2] = {p ? float(p->width()) : 0.0f, p ? float(p->height()) : 0.0f};
        const TvectorDataHandle outSize = block.vectorOutputValue(aOutSize, first);
        const TvectorDataHandle hasAlpha = block.vectorOutputValue(aFileHasAlpha, first);
        const TvectorDataHandle info = block.vectorOutputValue(aInfoBits, first);
        for (unsigned i = 0; i < count; ++i) {
            TdataHandle s = outSize[int(i)], h = hasAlpha[int(i)], b = info[int(i)];
            s.set(2, size);
            h.as<uint8_t>() = p && p->pixelSize() == 4;
            h.setClean();
            b.as<int32_t>() = bits;
            b.setClean();
        }
        return true;
    }

    const Samples s(block, first, count);
    const TvectorDataHandle transparency = block.vectorOutputValue(aOutTransparency, first);
    for (unsigned j = 0; j < count; ++j) {
        const int i = int(j);
        if (!s.outside(i)) {
            T3Float c{0.0f, 0.0f, 0.0f};
            float a = 1.0f;
            if (const Tpyramid* p = sampleAt(s.u(i), s.v(i), s.filtered(i), c, a)) {
                // The file's alpha when it has one; otherwise 1, or the
                // luminance with alphaIsLuminance.
                if (p->pixelSize() == 4)
                    s.finishWithAlpha(i, c, a);
                else
                    s.finish(i, c, 1.0f);
            } else {
                setToDefaultColor(i, s.defaultColor, s.outColor, s.outAlpha);
            }
        }
        const float a = s.outAlpha[i].asFloat();
        transparency[i].set(T3Float{1.0f - a, 1.0f - a, 1.0f - a});
    }
    return true;
}

void TdnFileTexture::mapUVtoClr(TplugArray& plugs, T4dDblVectorArray* colors,
                                TdoubleArray* reserved, TdoubleArray* alphas, const TdoubleArray* u,
                                const TdoubleArray* v) {
    Bake b;
    if (!beginBake(plugs, u, v, b))
        return TtextureMethods::mapUVtoClr(plugs, colors, reserved, alphas, u, v);
    ensureLoaded();
    sizeOutputs(b, colors, alphas);
    for (size_t k = 0; k < b.count; ++k) {
        if (b.outside(k)) {
            bakeDefault(b, k, colors, alphas);
            continue;
        }
        T3Float c{0.0f, 0.0f, 0.0f};
        float a = 1.0f;
        const Tpyramid* p = sampleAt(b.uAt(k), b.vAt(k), b.filtered(), c, a);
        if (!p) {
            bakeDefault(b, k, colors, alphas);
            continue;
        }
        const bool alpha = p->pixelSize() == 4;
        bakeFinish(b, k, c, alpha ? a : 1.0f, !alpha, colors, alphas);
    }
}
