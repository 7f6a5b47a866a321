// Shadow map lookups: where a point falls on a map, the texels around it
// with their weights, and the tiles those texels are read from.
//
// Lookups run on the render threads, many at once, on the shading path:
// nothing here allocates, save the first time a thread reads a tile.

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "cache/render_cache.h"
#include "host/messages.h"
#include "lights/shadow_map.h"
#include "shading/hammersley.h"

namespace {

// ---------------------------------------------------------------- decompressed tiles

// Each thread keeps the last few tiles it decompressed. Lookups of one
// batch, and of the batches after it, mostly fall on the same tiles, so
// most reads find their tile here and neither lock nor decompress. A tile is
// known by its serial, which no other tile ever has; the tiles of a map
// never change, so a copy stays right for as long as the tile lives. The
// least recently used copy makes room for a new one.
class DecodedTiles {
public:
    // Enough for the tiles a row of camera points crosses on the faces of a
    // point light's cube (with eight, lookups there decompressed a tile
    // every fifty or so, and cost two shadow rays each); 2 MiB a thread.
    static constexpr int kSlots = 32;

    ~DecodedTiles() { release(); }

    // The tile's texels, and the slot that holds them; null when the tile
    // cannot be read.
    const float* texels(const TdepthMap& tile, int& slotOut) {
        ++fClock;
        int oldest = 0;
        for (int k = 0; k < kSlots; ++k) {
            if (fSerial[k] == tile.serial()) {
                fUsed[k] = fClock;
                slotOut = k;
                return fData[k];
            }
            if (fUsed[k] < fUsed[oldest])
                oldest = k;
        }
        const int slot = oldest;
        fSerial[slot] = 0;
        if (!fData[slot]) {
            fData[slot] = static_cast<float*>(
                std::malloc(sizeof(float) * size_t(TshadowMapInfo::kTileTexels)));
            if (!fData[slot])
                return nullptr;
        }
        auto& proxy = const_cast<TdepthMap&>(tile);
        if (tile.cache()->lock(proxy, nullptr) != 0)
            return nullptr;
        const bool read = tile.uncompress(fData[slot]);
        tile.cache()->unlock(proxy, nullptr);
        ++fDecompressed;
        if (!read)
            return nullptr;
        fSerial[slot] = tile.serial();
        fUsed[slot] = fClock;
        slotOut = slot;
        return fData[slot];
    }
    // Whether `slot` still holds the copy of the tile of `serial`.
    bool holds(int slot, uint64_t serial) const { return fSerial[slot] == serial; }

    void release() {
        for (int k = 0; k < kSlots; ++k) {
            std::free(fData[k]);
            fData[k] = nullptr;
            fSerial[k] = 0;
            fUsed[k] = 0;
        }
    }

    uint64_t decompressed() const { return fDecompressed; }

private:
    uint64_t fSerial[kSlots] = {};
    uint64_t fUsed[kSlots] = {};
    float* fData[kSlots] = {};
    uint64_t fClock = 0;
    uint64_t fDecompressed = 0;
};

thread_local DecodedTiles tDecoded;
std::atomic<bool> gTileWarned{false};

// Reads the texels of one map for a run of lookups, keeping the tile of the
// last texel at hand: neighbouring texels, and the next point's, mostly
// share it. Another reader of the thread may take the slot of its copy, so
// the slot is checked at each read.
class TexelReader {
public:
    TexelReader() = default;
    TexelReader(const TshadowMapInfo& info, DecodedTiles& tiles) : fInfo(&info), fTiles(&tiles) {}

    float at(int x, int y) {
        const TshadowMapInfo& info = *fInfo;
        if (x < info.left || x > info.right || y < info.bottom || y > info.top)
            return 0.0f;
        if (!fTile || x < fTile->left() || x > fTile->right() || y < fTile->bottom() ||
            y > fTile->top() || (fData && !fTiles->holds(fSlot, fTile->serial())))
            enter(x, y);
        if (!fData)
            return 0.0f;
        return fData[size_t(y - fTile->bottom()) * size_t(fTile->width()) +
                     size_t(x - fTile->left())];
    }

private:
    void enter(int x, int y) {
        const TshadowMapInfo& info = *fInfo;
        fTile = info.tiles[(y / info.tileHeight) * info.tilesAcross + x / info.tileWidth];
        fData = nullptr;
        if (fTile->empty())
            return;
        fData = fTiles->texels(*fTile, fSlot);
        if (!fData && !gTileWarned.exchange(true))
            TcommandEngine::displayWarning(
                "a tile of a depth map could not be read back from the render cache's swap "
                "file; points on it render unshadowed");
    }

    const TshadowMapInfo* fInfo = nullptr;
    DecodedTiles* fTiles = nullptr;
    const TdepthMap* fTile = nullptr;
    const float* fData = nullptr;
    int fSlot = 0;
};

// ---------------------------------------------------------------- one lookup

// Which side of the light a cube face looks at: a point on the other side
// is not looked for in it.
bool wrongSide(int face, const T3dFltPoint& light, const T3dFltPoint& p) {
    switch (face) {
    case 0:
        return light.x > p.x;
    case 1:
        return light.y > p.y;
    case 2:
        return light.z > p.z;
    case 3:
        return p.x > light.x;
    case 4:
        return p.y > light.y;
    case 5:
        return p.z > light.z;
    default:
        return false;
    }
}

// The weights of the texels around a point, and of those in shadow.
struct Weights {
    float total = 0.0f;
    float shadowed = 0.0f;
};

// The texels of one axis that a filter of `f` about `x` reaches, within
// margin..size - margin - 1.
void texelRange(float x, int f, int size, int margin, int& low, int& high) {
    low = int(x - float(f));
    high = int(x + float(f));
    // A filter narrower than a texel takes the nearer of the two.
    if (low == high && (x + float(f)) - float(high) > 0.5f) {
        ++low;
        ++high;
    }
    low = std::max(low, margin);
    high = std::min(high, size - margin - 1);
}

void filterTexels(const TshadowMapInfo& info, const TmapValues& v, float reference, int f, float r2,
                  int margin, bool perspective, TexelReader& reader, Weights& w) {
    int x0, x1, y0, y1;
    texelRange(v.x, f, info.width, margin, x0, x1);
    texelRange(v.y, f, info.height, margin, y0, y1);
    for (int y = y0; y <= y1; ++y) {
        const float dy = float(y) - v.y;
        for (int x = x0; x <= x1; ++x) {
            const float dx = float(x) - v.x;
            const float e = dx * dx + dy * dy;
            if (!(e < r2))
                continue;
            const float weight = 1.0f - e / r2;
            w.total += weight;
            const float stored = reader.at(x, y);
            if (stored == 0.0f)
                continue; // nothing there to cast a shadow
            if (perspective ? stored > reference : stored < reference)
                w.shadowed += weight;
        }
    }
}

} // namespace

void TshadowMapInfo::releaseFLC() {
    tDecoded.release();
}

float TshadowMapInfo::depthAt(int x, int y) const {
    return TexelReader(*this, tDecoded).at(x, y);
}

uint64_t TshadowMapInfo::tilesDecompressed() {
    return tDecoded.decompressed();
}

bool TuseShadowMap::projectPointCheckBounds(const T3dFltPoint& point, const TshadowMapInfo& info,
                                            TmapValues& values) const {
    float x, y;
    if (fPerspective) {
        const T3Float q = OrvoTransformPoint(info.worldToMap, point);
        const float inv = 1.0f / -q.z;
        if (!(inv >= 0.0f))
            return true;
        x = float((double(q.x * inv) + 1.0) * info.halfWidth);
        y = float((double(q.y * inv) + 1.0) * info.halfHeight);
        values.depth = inv;
    } else {
        T3Float q = OrvoTransformPoint(info.worldToMap, point);
        const float depth = -q.z;
        if (!(depth >= 0.0f))
            return true;
        q = OrvoTransformPoint(info.projection, q);
        x = float((double(q.x) + 1.0) * info.halfWidth);
        y = float((double(q.y) + 1.0) * info.halfHeight);
        values.depth = depth;
    }
    values.x = x;
    values.y = y;
    return !(x >= 0.0f && y >= 0.0f && x < float(info.width) && y < float(info.height));
}

int TuseShadowMap::sampleShadowMaps(unsigned count, const TvectorDataHandle& points,
                                    const uint8_t* skip, float* fractions, bool surface,
                                    const TvectorDataHandle& filterSizes,
                                    const TvectorDataHandle& biases) {
    if (points.isNull() || !fractions)
        return -1;
    std::fill(fractions, fractions + count, 0.0f);
    if (fMapCount == 0)
        return 0;
    const int f =
        std::clamp(filterSizes.isNull() ? 1 : int(filterSizes[0].asShort()), 0, kMaxFilterSize);
    const float r2 = float(f * f + 1);
    // The surfaces' map is the mid-distance one, when there is one.
    TshadowMapInfo* const* list = fUseMidDistance && surface && fMidMaps[0] ? fMidMaps : fMaps;
    const float given = biases.isNull() ? list[0]->bias : biases[0].asFloat();
    // A bias moves the point toward the light: a larger 1/z, a smaller
    // distance.
    const float bias = fPerspective ? given : -given;
    auto referenceOf = [&](float depth) {
        return fPerspective ? depth + bias * depth : depth + bias;
    };
    // A reader a map, for the whole batch.
    DecodedTiles& tiles = tDecoded;
    TexelReader readers[kMaxFaces];
    for (int k = 0; k < fMapCount; ++k)
        readers[k] = TexelReader(*list[k], tiles);

    if (fMapCount == 1) {
        const TshadowMapInfo& info = *list[0];
        TexelReader& reader = readers[0];
        for (unsigned i = 0; i < count; ++i) {
            if (skip && skip[i])
                continue;
            const T3dFltPoint* p = reinterpret_cast<const T3dFltPoint*>(points[int(i)].asFloat3());
            TmapValues v;
            if (projectPointCheckBounds(*p, info, v))
                continue;
            Weights w;
            filterTexels(info, v, referenceOf(v.depth), f, r2, 0, fPerspective, reader, w);
            fractions[i] = w.total > 0.0f ? w.shadowed / w.total : 0.0f;
        }
        return 0;
    }

    // Faces: the one that served the last point is tried first, and a point
    // near a face's centre ends the search there.
    uint32_t order = fOrder.load(std::memory_order_relaxed);
    struct Candidate {
        const TshadowMapInfo* info;
        TmapValues values;
        int index;
    };
    for (unsigned i = 0; i < count; ++i) {
        if (skip && skip[i])
            continue;
        const T3dFltPoint* p = reinterpret_cast<const T3dFltPoint*>(points[int(i)].asFloat3());
        Candidate candidates[kMaxFaces];
        int found = 0;
        for (int k = 0; k < fMapCount; ++k) {
            const int index = int((order >> (4 * k)) & 0xF);
            const TshadowMapInfo& info = *list[index];
            if (wrongSide(info.face, fLightPosition, *p))
                continue;
            TmapValues v;
            if (projectPointCheckBounds(*p, info, v))
                continue;
            candidates[found++] = {&info, v, index};
            const double dx = v.x - info.halfWidth, dy = v.y - info.halfHeight;
            if (dx * dx + dy * dy < double(info.centreLimit)) {
                // Move to front: the ones before it move one place back,
                // the ones after it stay.
                const uint32_t before = order & ((1u << (4 * k)) - 1u);
                const uint32_t after = order & ~((1u << (4 * (k + 1))) - 1u);
                order = after | (before << 4) | uint32_t(index);
                break;
            }
        }
        if (found == 0)
            continue;
        // Filters keep off the seams between faces.
        const int margin = int(0.026 * candidates[0].info->tileWidth);
        Weights w;
        for (int c = 0; c < found; ++c)
            filterTexels(*candidates[c].info, candidates[c].values,
                         referenceOf(candidates[c].values.depth), f, r2, margin, fPerspective,
                         readers[candidates[c].index], w);
        fractions[i] = w.total > 0.0f ? w.shadowed / w.total : 0.0f;
    }
    fOrder.store(order, std::memory_order_relaxed);
    return 0;
}

int TuseShadowMap::sampleShadow(ShadowMapVecSamples& samples, TvectorDataHandle filterSizes,
                                TvectorDataHandle biases, short fogShadowIntensity) {
    if (!samples.fractions)
        return -1;
    if (samples.surface)
        return sampleShadowMaps(samples.count, samples.points, samples.skip, samples.fractions,
                                true, filterSizes, biases) < 0
                   ? -1
                   : 0;
    if (samples.pointWorld.isNull() || samples.farPointWorld.isNull())
        return -1;

    // Fog: each sample's segment is marched in volumeShadowSamples steps,
    // all offset by one value of the volume sequence. The points of several
    // samples go to the maps together, a stack's worth at a time.
    constexpr unsigned kChunk = 256;
    T3dFltPoint points[kChunk];
    float values[kChunk];
    unsigned owners[kChunk];
    const TvectorDataHandle pointHandle(TdataHandle(nullptr, nullptr, points), sizeof(T3dFltPoint));
    const TrenderHammersley& hammersley = TrenderHammersley::theHammersley();
    float* fractions = samples.fractions;
    std::fill(fractions, fractions + samples.count, 0.0f);
    unsigned used = 0;
    auto flush = [&] {
        if (used == 0)
            return;
        sampleShadowMaps(used, pointHandle, nullptr, values, false, filterSizes, biases);
        for (unsigned k = 0; k < used; ++k)
            fractions[owners[k]] += values[k];
        used = 0;
    };
    for (unsigned i = 0; i < samples.count; ++i) {
        if (samples.skip && samples.skip[i])
            continue;
        const int e = int(i);
        const int steps = samples.volumeShadowSamples.isNull()
                              ? 1
                              : std::max(1, int(samples.volumeShadowSamples[e].asShort()));
        const uint32_t instance =
            samples.rayInstance.isNull() ? 0u : uint32_t(samples.rayInstance[e].asInt());
        const float h = hammersley.volumeValue(instance);
        const float* a = samples.pointWorld[e].asFloat3();
        const float* b = samples.farPointWorld[e].asFloat3();
        const T3Float start{a[0], a[1], a[2]};
        const T3Float step = (T3Float{b[0], b[1], b[2]} - start) * (1.0f / float(steps));
        for (int k = 0; k < steps; ++k) {
            if (used == kChunk)
                flush();
            points[used] = start + step * (h + float(k));
            owners[used] = i;
            ++used;
        }
    }
    flush();
    for (unsigned i = 0; i < samples.count; ++i) {
        if (samples.skip && samples.skip[i])
            continue;
        const int steps = samples.volumeShadowSamples.isNull()
                              ? 1
                              : std::max(1, int(samples.volumeShadowSamples[int(i)].asShort()));
        fractions[i] = std::min(1.0f, fractions[i] / float(steps) * float(fogShadowIntensity));
    }
    return 0;
}
