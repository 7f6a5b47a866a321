// Shadow maps: making the maps from full-size buffers, the tiles in the
// render cache, and the compression of their texels. Lookups are in
// shadow_map_sample.cpp, depth files in shadow_map_files.cpp.

#include "lights/shadow_map.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <filesystem>

#include <fmt/format.h>

#include "cache/render_cache.h"
#include "cache/render_swap.h"
#include "host/mmap_alloc.h"
#include "host/scene/matrix.h"

namespace {

std::atomic<uint64_t> gNextTileSerial{1};

// Two neighbours this close count as one value in a run.
constexpr float kRunTolerance = 1e-7f;
constexpr size_t kMaxGroup = 127;
constexpr unsigned char kRunFlag = 128;

T4dFltMatrix multiply(const T4dFltMatrix& a, const T4dFltMatrix& b) {
    return (T4dDblMatrix::fromFloat(a) * T4dDblMatrix::fromFloat(b)).asFloat();
}

// The look-up order of `count` maps: 0, 1, 2... four bits each.
uint32_t identityOrder(int count) {
    uint32_t order = 0;
    for (int i = 0; i < count; ++i)
        order |= uint32_t(i) << (4 * i);
    return order;
}

} // namespace

// ---------------------------------------------------------------- float arrays

void TuseShadowMap::floatArrayConvertToDiff(float* values, size_t count) {
    float previous = 0.0f;
    for (size_t i = 0; i < count; ++i) {
        const float value = values[i];
        values[i] = value - previous;
        previous = value;
    }
}

size_t TuseShadowMap::floatArrayCompress(const float* values, size_t count, unsigned char* out,
                                         size_t capacity) {
    size_t written = 0;
    auto put = [&](const void* data, size_t size) {
        if (capacity - written < size)
            return false;
        std::memcpy(out + written, data, size);
        written += size;
        return true;
    };
    // A run starts where two neighbours are equal.
    auto startsRun = [&](size_t i) {
        return i + 1 < count && values[i] == values[i + 1];
    };
    size_t i = 0;
    while (i < count) {
        if (startsRun(i)) {
            const float first = values[i];
            size_t n = 2;
            double sum = double(first) * 2.0;
            while (n < kMaxGroup && i + n < count &&
                   std::fabs(values[i + n] - first) < kRunTolerance) {
                sum += values[i + n];
                ++n;
            }
            const float mean = float(sum / double(n));
            const unsigned char head = static_cast<unsigned char>(kRunFlag + n);
            if (!put(&head, 1) || !put(&mean, sizeof mean))
                return 0;
            i += n;
            continue;
        }
        // Literals, up to the next pair that starts a run.
        size_t n = 1;
        while (n < kMaxGroup && i + n < count && !startsRun(i + n))
            ++n;
        const unsigned char head = static_cast<unsigned char>(n);
        if (!put(&head, 1) || !put(values + i, n * sizeof(float)))
            return 0;
        i += n;
    }
    return written;
}

bool TuseShadowMap::floatArrayUncompressConvertFromDiff(const unsigned char* in, size_t size,
                                                        float* out, size_t count) {
    size_t at = 0, filled = 0;
    float sum = 0.0f;
    while (at < size) {
        const unsigned char head = in[at++];
        const size_t n = head & (kRunFlag - 1);
        if (n == 0 || n > count - filled)
            return false;
        if (head & kRunFlag) {
            if (size - at < sizeof(float))
                return false;
            float difference;
            std::memcpy(&difference, in + at, sizeof difference);
            at += sizeof difference;
            for (size_t k = 0; k < n; ++k) {
                sum += difference;
                out[filled++] = sum;
            }
        } else {
            if (size - at < n * sizeof(float))
                return false;
            for (size_t k = 0; k < n; ++k) {
                float difference;
                std::memcpy(&difference, in + at, sizeof difference);
                at += sizeof difference;
                sum += difference;
                out[filled++] = sum;
            }
        }
    }
    return filled == count;
}

// ---------------------------------------------------------------- tiles

TdepthMap::TdepthMap(TrenderCache* cache, TshadowMapInfo* owner, int left, int right, int bottom,
                     int top)
    : fCache(cache), fOwner(owner), fLeft(left), fRight(right), fBottom(bottom), fTop(top),
      fWidth(right - left + 1), fHeight(top - bottom + 1), fCount(fWidth * fHeight),
      fSerial(gNextTileSerial.fetch_add(1, std::memory_order_relaxed)) {}

TdepthMap::~TdepthMap() {
    if (fCache && inLRU())
        fCache->removeProxy(*this, &kDiscard);
    if (fData && fCache)
        fCache->deallocate(fData);
}

bool TdepthMap::store(const float* texels) {
    static const unsigned char zeros[256] = {};
    const auto* bytes = reinterpret_cast<const unsigned char*>(texels);
    const size_t total = size_t(fCount) * sizeof(float);
    fEmpty = true;
    for (size_t at = 0; at < total && fEmpty; at += sizeof zeros)
        fEmpty = std::memcmp(bytes + at, zeros, std::min(sizeof zeros, total - at)) == 0;
    if (fEmpty)
        return true;

    // Differences, compressed into a scratch a fifth larger than the tile,
    // then copied into a block of the size they came to.
    // (The differences follow the scratch, at a float's alignment.)
    const size_t scratchSize = OrvoAlignUp(
        std::max(size_t(double(total) * 1.2), TuseShadowMap::compressBound(size_t(fCount))),
        alignof(float));
    auto* scratch = static_cast<unsigned char*>(fCache->allocate(scratchSize + total));
    if (!scratch)
        return false;
    auto* differences = reinterpret_cast<float*>(scratch + scratchSize);
    std::memcpy(differences, texels, total);
    TuseShadowMap::floatArrayConvertToDiff(differences, size_t(fCount));
    fSize = TuseShadowMap::floatArrayCompress(differences, size_t(fCount), scratch, scratchSize);
    fData = fSize ? static_cast<unsigned char*>(fCache->allocate(fSize)) : nullptr;
    if (fData)
        std::memcpy(fData, scratch, fSize);
    fCache->deallocate(scratch);
    if (!fData)
        return false;
    // On the cache's list from the start, so that it may leave like any other.
    fCache->lock(*this, nullptr);
    fCache->unlock(*this, nullptr);
    return true;
}

bool TdepthMap::uncompress(float* out) const {
    return fData &&
           TuseShadowMap::floatArrayUncompressConvertFromDiff(fData, fSize, out, size_t(fCount));
}

int TdepthMap::enterCache(void*) {
    if (fData)
        return 0;
    TrenderSwap* swap = fOwner && fOwner->owner ? fOwner->owner->swap() : nullptr;
    if (!fInSwap || !swap)
        return -1;
    auto* data = static_cast<unsigned char*>(fCache->allocate(fSize));
    if (!data)
        return -1;
    const bool locked = swap->beginMutex();
    const int status = swap->read(data, unsigned(fSize), fSwapPosition);
    swap->endMutex(locked);
    if (status != 0) {
        fCache->deallocate(data);
        return -1;
    }
    fData = data;
    return 0;
}

int TdepthMap::leaveCache(void* context) {
    if (!fData)
        return 0;
    if (context != &kDiscard && !fInSwap) {
        // The bytes never change: one copy in the swap serves every later
        // eviction.
        TrenderSwap* swap = fOwner && fOwner->owner ? fOwner->owner->swap() : nullptr;
        if (!swap)
            return kRefuse;
        const bool locked = swap->beginMutex();
        const unsigned position = swap->gotoEnd();
        const int status = swap->append(fData, unsigned(fSize));
        swap->endMutex(locked);
        if (status != 0)
            return kRefuse;
        fSwapPosition = position;
        fInSwap = true;
    }
    fCache->deallocate(fData);
    fData = nullptr;
    return 0;
}

TshadowMapInfo::~TshadowMapInfo() {
    for (int i = 0; i < tileCount; ++i)
        delete tiles[i];
    delete[] tiles;
}

// ---------------------------------------------------------------- the map

TuseShadowMap::TuseShadowMap(const T3dFltPoint& lightPosition, bool perspective, int cubeFlag,
                             bool useMidDistance)
    : fLightPosition(lightPosition), fPerspective(perspective), fCubeFlag(cubeFlag),
      fUseMidDistance(useMidDistance) {}

TuseShadowMap::~TuseShadowMap() {
    // Tiles first: they may still hold bytes of the swap's cache.
    for (int i = 0; i < kMaxFaces; ++i) {
        delete fMaps[i];
        delete fMidMaps[i];
        freeBuffers(i);
    }
    fSwap.reset();
}

void TuseShadowMap::freeBuffers(int face) {
    mmapFree(fDepthBuffers[face]);
    mmapFree(fMidBuffers[face]);
    fDepthBuffers[face] = fMidBuffers[face] = nullptr;
}

void TuseShadowMap::setFaceCamera(int face, const T4dFltMatrix& worldToView,
                                  const T4dFltMatrix& projection) {
    fMatrices[face] = worldToView;
    fProjections[face] = projection;
}

void TuseShadowMap::setDepthBuffers(int face, int width, int height, float* first, float* mid) {
    freeBuffers(face);
    fDepthBuffers[face] = first;
    fMidBuffers[face] = mid;
    fWidths[face] = width;
    fHeights[face] = height;
    fRendered[face] = first != nullptr;
}

void TuseShadowMap::mergeDepthBuffers(int width, int height, const float* first,
                                      const float* second, float* out) {
    const size_t n = size_t(width) * size_t(height);
    for (size_t i = 0; i < n; ++i) {
        if (first[i] == 0.0f)
            out[i] = 0.0f;
        else if (second[i] == 0.0f)
            out[i] = 1.0f;
        else
            out[i] = (first[i] + second[i]) * 0.5f;
    }
}

int TuseShadowMap::initMap(int face, TrenderCache* cache, const float* biases) {
    return initMap(face, cache, fWidths, fHeights, biases, fDepthBuffers, fMidBuffers, fMatrices,
                   fProjections);
}

int TuseShadowMap::initMap(int face, TrenderCache* cache, const int* widths, const int* heights,
                           const float* biases, float** depthBuffers, float** midBuffers,
                           const T4dFltMatrix* matrices, const T4dFltMatrix* projections) {
    float*& first = depthBuffers[face];
    float*& second = midBuffers[face];
    if (!first || !cache || fMapCount >= kMaxFaces) {
        mmapFree(first);
        mmapFree(second);
        first = second = nullptr;
        return fMapCount;
    }
    const int width = widths[face], height = heights[face];
    const size_t texels = size_t(width) * size_t(height);

    // The surfaces' map: the average of the first and second surfaces, or
    // where there is no second buffer, a copy of the first.
    float* middle = nullptr;
    bool middleInCache = false;
    if (fUseMidDistance) {
        if (!second) {
            middle = static_cast<float*>(cache->allocate(texels * sizeof(float)));
            if (middle)
                std::memcpy(middle, first, texels * sizeof(float));
            middleInCache = true;
        } else {
            mergeDepthBuffers(width, height, first, second, second);
            middle = second;
        }
    }

    fMatrices[face] = matrices[face];
    fProjections[face] = projections[face];
    auto* info = new TshadowMapInfo;
    info->cache = cache;
    info->owner = this;
    info->width = width;
    info->height = height;
    info->halfWidth = width * 0.5;
    info->halfHeight = height * 0.5;
    const int reach = int(std::max(info->halfWidth, info->halfHeight) * 0.66);
    info->centreLimit = reach * reach;
    info->bias = biases ? biases[face] : 0.0f;
    info->face = face;
    info->worldToMap = fPerspective ? multiply(matrices[face], projections[face]) : matrices[face];
    info->projection = projections[face];
    bool made = makeTiles(*info, first);

    TshadowMapInfo* mid = nullptr;
    if (made && middle) {
        mid = new TshadowMapInfo;
        mid->cache = cache;
        mid->owner = this;
        mid->width = width;
        mid->height = height;
        mid->halfWidth = info->halfWidth;
        mid->halfHeight = info->halfHeight;
        mid->centreLimit = info->centreLimit;
        mid->bias = info->bias;
        mid->face = face;
        mid->worldToMap = info->worldToMap;
        mid->projection = info->projection;
        made = makeTiles(*mid, middle);
    } else if (fUseMidDistance) {
        made = false;
    }

    mmapFree(first);
    first = nullptr;
    if (middleInCache)
        cache->deallocate(middle);
    mmapFree(second);
    second = nullptr;
    if (!made) {
        // Out of memory: the light goes without this face.
        delete info;
        delete mid;
        return fMapCount;
    }
    fMaps[fMapCount] = info;
    fMidMaps[fMapCount] = mid;
    ++fMapCount;
    fOrder.store(identityOrder(fMapCount), std::memory_order_relaxed);
    return fMapCount;
}

bool TuseShadowMap::makeTiles(TshadowMapInfo& info, const float* buffer) {
    const int width = info.width, height = info.height;
    // The rectangle of texels that see something.
    info.left = width;
    info.right = -1;
    info.bottom = height;
    info.top = -1;
    for (int y = 0; y < height; ++y) {
        const float* row = buffer + size_t(y) * size_t(width);
        for (int x = 0; x < width; ++x) {
            if (row[x] == 0.0f)
                continue;
            info.left = std::min(info.left, x);
            info.right = std::max(info.right, x);
            info.bottom = std::min(info.bottom, y);
            info.top = std::max(info.top, y);
        }
    }

    // Rows of at most 256 texels, then as many columns as keep a tile below
    // 16000 texels: tileWidth <= 16000 / tileHeight, rounded down.
    auto ceilDiv = [](int a, int b) {
        return (a + b - 1) / b;
    };
    const int rows = std::max(ceilDiv(height, TshadowMapInfo::kMaxTileRows), 1);
    info.tileHeight = ceilDiv(height, rows);
    const int perTile = TshadowMapInfo::kTileTexels / info.tileHeight;
    const int columns = std::max(ceilDiv(width, perTile), 1);
    info.tileWidth = ceilDiv(width, columns);
    info.tilesAcross = ceilDiv(width, info.tileWidth);
    info.tilesDown = ceilDiv(height, info.tileHeight);
    info.tileCount = info.tilesAcross * info.tilesDown;
    info.tiles = new TdepthMap*[size_t(info.tileCount)]();

    auto* texels = static_cast<float*>(
        info.cache->allocate(size_t(info.tileWidth) * size_t(info.tileHeight) * sizeof(float)));
    if (!texels)
        return false;
    bool stored = true;
    for (int ty = 0; ty < info.tilesDown && stored; ++ty) {
        for (int tx = 0; tx < info.tilesAcross && stored; ++tx) {
            const int left = tx * info.tileWidth, bottom = ty * info.tileHeight;
            const int right = std::min(left + info.tileWidth, width) - 1;
            const int top = std::min(bottom + info.tileHeight, height) - 1;
            auto* tile = new TdepthMap(info.cache, &info, left, right, bottom, top);
            info.tiles[ty * info.tilesAcross + tx] = tile;
            for (int y = bottom; y <= top; ++y)
                std::memcpy(texels + size_t(y - bottom) * size_t(tile->width()),
                            buffer + size_t(y) * size_t(width) + size_t(left),
                            size_t(tile->width()) * sizeof(float));
            stored = tile->store(texels);
        }
    }
    info.cache->deallocate(texels);
    return stored;
}

TrenderSwap* TuseShadowMap::swap() {
    std::lock_guard guard(fSwapMutex);
    if (fSwap || fSwapFailed)
        return fSwap.get();
    static std::atomic<unsigned> counter{0};
    std::error_code ec;
    std::filesystem::path folder = std::filesystem::temp_directory_path(ec);
    if (ec)
        folder = "/tmp";
    const std::string name =
        (folder / fmt::format("orvo_depth_{}_{}.swap", ::getpid(), counter.fetch_add(1))).string();
    fSwap = std::make_unique<TrenderSwap>(name.c_str());
    if (!fSwap->file()) {
        fSwap.reset();
        fSwapFailed = true;
    }
    return fSwap.get();
}
