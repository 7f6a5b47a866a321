#pragma once

// Depth map shadows. A light that casts them has a TuseShadowMap for the
// length of a render: one map (a directional light's orthographic view, a
// spot light's perspective one) or up to six (the faces of a point light's
// cube), each a TshadowMapInfo. A map holds, per texel, how far the first
// surface the light sees there lies; a point is in shadow where the map
// holds something nearer to the light than the point. Lookups filter a few
// texels around the point with weights that fall off with distance
// (percentage-closer filtering), so that shadow edges come out soft.
//
// The depths come from the renderer's depth pass (setDepthBuffers) or from
// IFF depth files written by an earlier render (readZmap); initMap then
// cuts each full-size buffer into tiles of fewer than 16000 texels, each
// kept compressed in the render cache (TdepthMap), and frees the buffer.
// Tiles that see nothing cost a flag. The cache may send unlocked tiles to
// a swap file under memory pressure; a lookup locks each tile it reads.
//
// Depths: a perspective map holds 1 / distance along the view axis (larger
// is nearer), an orthographic one the distance from the view plane (smaller
// is nearer); 0 is "nothing seen" in both. Maps live in world space, so
// that a map written in one frame serves another whatever the camera does.
//
// Mid-distance maps: with useMidDistDmap, a second buffer holds the second
// surface each texel sees, and the map used for surfaces is the average of
// the two. A lit surface then lies well in front of the depth it is tested
// against, and needs no bias to escape its own shadow.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>

#include "cache/cache.h"
#include "host/datablock.h"
#include "host/types.h"
#include "lights/light_vectors.h"

class TrenderCache;
class TrenderSwap;
class TuseShadowMap;
class TshadowMapInfo;

using T3dFltPoint = T3Float;

// Where a point falls on a map: texel coordinates (texel i is centred on i)
// and its depth in the map's terms.
struct TmapValues {
    float x = 0.0f;
    float y = 0.0f;
    float depth = 0.0f;
};

// One tile of a map, compressed in the render cache. Its bytes are the
// differences of its texels, row after row from its bottom, in the form of
// TuseShadowMap::floatArrayCompress.
class TdepthMap : public TcacheProxy {
public:
    // The texels left..right, bottom..top (inclusive) of `owner`.
    TdepthMap(TrenderCache* cache, TshadowMapInfo* owner, int left, int right, int bottom, int top);
    ~TdepthMap() override;

    // Back from the swap file when the cache evicted the bytes.
    int enterCache(void* context) override;
    // To the swap file (written once: the bytes never change), or refuses
    // when there is no swap to be had. With kDiscard the bytes are dropped.
    int leaveCache(void* context) override;
    static inline char kDiscard = 0;

    // Compresses `texels` (width() x height(), rows from the bottom) into
    // the cache. An all-zero tile is only flagged. False when the cache gives
    // no memory.
    bool store(const float* texels);
    // The texels, for a caller that holds the tile locked. False when the
    // bytes are damaged.
    bool uncompress(float* out) const;

    bool empty() const { return fEmpty; }
    int left() const { return fLeft; }
    int right() const { return fRight; }
    int bottom() const { return fBottom; }
    int top() const { return fTop; }
    int width() const { return fWidth; }
    int height() const { return fHeight; }
    int count() const { return fCount; }
    // Bytes of the compressed form.
    size_t compressedSize() const { return fSize; }
    TrenderCache* cache() const { return fCache; }
    // Unique in the process: names the tile in the per-thread cache of
    // decompressed tiles, where an address could be reused.
    uint64_t serial() const { return fSerial; }
    bool inSwap() const { return fInSwap; }

private:
    TrenderCache* fCache;
    TshadowMapInfo* fOwner;
    bool fEmpty = true;
    int fLeft, fRight, fBottom, fTop;
    int fWidth, fHeight, fCount;
    unsigned char* fData = nullptr;
    size_t fSize = 0;
    bool fInSwap = false;
    unsigned fSwapPosition = 0;
    uint64_t fSerial;
};

// One map: a face of a cube or the only map of a light.
class TshadowMapInfo {
public:
    // Tiles hold fewer texels than this, so that a lookup touches little.
    static constexpr int kTileTexels = 16000;
    static constexpr int kMaxTileRows = 256;

    TshadowMapInfo() = default;
    ~TshadowMapInfo();
    TshadowMapInfo(const TshadowMapInfo&) = delete;
    TshadowMapInfo& operator=(const TshadowMapInfo&) = delete;

    // Frees the decompressed tiles the calling thread keeps.
    static void releaseFLC();
    // Tiles the calling thread has decompressed so far.
    static uint64_t tilesDecompressed();

    // The stored depth at texel (x, y), which must lie on the map: 0 outside
    // the bounding rectangle, in an empty tile, or when a tile cannot be
    // read.
    float depthAt(int x, int y) const;

    TrenderCache* cache = nullptr;
    TuseShadowMap* owner = nullptr;
    int32_t width = 0;
    int32_t height = 0;
    double halfWidth = 0.0;
    double halfHeight = 0.0;
    // int(0.66 x the larger half size), squared: a point this close to the
    // centre is well inside the face.
    int32_t centreLimit = 0;
    float bias = 0.0f;
    T4dFltMatrix worldToMap;
    T4dFltMatrix projection;
    int32_t face = 0;
    // The texels with a depth: left, right, bottom, top (inclusive); left >
    // right when there is none.
    int32_t left = 0, right = -1, bottom = 0, top = -1;
    int32_t tileWidth = 0;
    int32_t tileHeight = 0;
    int32_t tilesAcross = 0;
    int32_t tileCount = 0;
    int32_t tilesDown = 0;
    TdepthMap** tiles = nullptr;
};

// What sampleShadow is asked about: for surfaces a point each, for fog a
// segment each, marched in volumeShadowSamples steps.
struct ShadowMapVecSamples {
    unsigned count = 0;
    float* fractions = nullptr;      // out: 0 lit to 1 in shadow
    const uint8_t* skip = nullptr;   // non-zero: leave the sample at 0; null for none
    bool surface = true;             // which handles follow
    bool pointLightFog = false;      // a point light's fog (objectType 2)
    TvectorDataHandle points;        // surfaces: world space points
    TvectorDataHandle pointWorld;    // fog: the segment's start...
    TvectorDataHandle farPointWorld; // ...and end
    TvectorDataHandle volumeShadowSamples;
    TvectorDataHandle rayInstance;
};

// The files of a light's maps. A single map uses slot 0, a cube face f slot
// f + 1.
struct TdepthMapFiles {
    Tstring directory;
    Tstring maps[7];
    Tstring mids[7];
    Tstring currentExtension;     // the frame's extension, as the names carry it
    Tstring readExtension;        // the extension of the files read
    Tstring lastWrittenExtension; // lastWrittenDmapAnimExtName
};

// What a light's maps are to be, as the renderer decides before the frame.
struct TdepthMapSetup {
    bool perspective = false;
    T3dFltPoint position{};
    int cubeFlag = 0;
    // The faces to make: one (face 0) for a single map.
    int faceCount = 1;
    int faces[6] = {0, 1, 2, 3, 4, 5};
    int width = 512;
    int height = 512;
    // Indexed by face: see TuseShadowMap::setFaceCamera.
    T4dFltMatrix worldToView[6];
    T4dFltMatrix projection[6];
};

class TuseShadowMap {
public:
    static constexpr int kMaxFaces = 6;
    // A filter reaches this many texels either side at most.
    static constexpr int kMaxFilterSize = 20;

    // `cubeFlag` non-zero: the map is a cube of up to six faces.
    TuseShadowMap(const T3dFltPoint& lightPosition, bool perspective, int cubeFlag,
                  bool useMidDistance);
    ~TuseShadowMap();
    TuseShadowMap(const TuseShadowMap&) = delete;
    TuseShadowMap& operator=(const TuseShadowMap&) = delete;

    // ---- before the maps are made: the buffers of each face
    // The face's camera: world to view (the light looking down -Z) and the
    // projection that scales view x and y to -1..1 (z is left alone; a
    // perspective map divides by -z itself).
    void setFaceCamera(int face, const T4dFltMatrix& worldToView, const T4dFltMatrix& projection);
    // Takes the renderer's depth buffers of a face (mmapAlloc blocks of
    // width x height floats, rows from the bottom; `mid`, the second
    // surfaces, may be null). The map frees them.
    void setDepthBuffers(int face, int width, int height, float* first, float* mid);
    float* depthBuffer(int face) const { return fDepthBuffers[face]; }
    float* midBuffer(int face) const { return fMidBuffers[face]; }
    int bufferWidth(int face) const { return fWidths[face]; }
    int bufferHeight(int face) const { return fHeights[face]; }
    // Depth maps loaded from files so far.
    int loadedMapCount() const { return fLoadedMaps; }

    // Reads a face's buffers from its files (see the comment in the
    // source for the steps). 1 when the first-surface map was loaded, 0
    // when there was no file, -1 when a file was there and could not be
    // used, or a callback failed.
    int readZmap(int face, bool single, const Tstring& lightName, const Tstring& readCallback,
                 const TdepthMapFiles& files, int wantedWidth, int wantedHeight);
    // Writes a face's buffers (the first surfaces, and the second ones
    // when there are) as depth files. 0, or -1 after a warning.
    int writeZmap(int face, const Tstring& mapName, const Tstring& midName) const;

    // Makes a face's map from its buffers and frees them. Returns the number
    // of maps made so far.
    int initMap(int face, TrenderCache* cache, const int* widths, const int* heights,
                const float* biases, float** depthBuffers, float** midBuffers,
                const T4dFltMatrix* matrices, const T4dFltMatrix* projections);
    // initMap with the buffers this map holds; `biases` is indexed by face.
    int initMap(int face, TrenderCache* cache, const float* biases);

    // The fraction of each sample in shadow, into samples.fractions. -1 for
    // null input, else 0.
    int sampleShadow(ShadowMapVecSamples& samples, TvectorDataHandle filterSizes,
                     TvectorDataHandle biases, short fogShadowIntensity);

    // True when the point falls outside the map.
    bool projectPointCheckBounds(const T3dFltPoint& point, const TshadowMapInfo& info,
                                 TmapValues& values) const;

    // Per texel: 0 where `first` is 0, 1 where `second` is 0, else their
    // average.
    static void mergeDepthBuffers(int width, int height, const float* first, const float* second,
                                  float* out);
    // A depth file's texels (1/z in the file's camera) as this map's depths.
    // `matrix` takes this map's view into the file's camera (the identity
    // when the light has not moved); `projection` is the file camera's.
    // False when the matrix cannot be inverted.
    bool iffBufferToZbuffer(int width, int height, const T4dFltMatrix& matrix,
                            const T4dFltMatrix& projection, const float* in, float* out) const;
    // The same for a file whose camera projects as this map's first face.
    bool iffBufferToZbuffer(int width, int height, const T4dFltMatrix& matrix, const float* in,
                            float* out) const {
        return iffBufferToZbuffer(width, height, matrix,
                                  fProjections[fMapCount ? fMaps[0]->face : 0], in, out);
    }
    // The reverse, for writing: this map's depths as 1/z in its camera.
    void zbufferToIffBuffer(int width, int height, const float* in, float* out) const;

    // Compression of float arrays. In place: each value minus the one
    // before, the first against 0.
    static void floatArrayConvertToDiff(float* values, size_t count);
    // Runs and literal groups into `out`; the bytes written, or 0 when
    // `capacity` is too small.
    static size_t floatArrayCompress(const float* values, size_t count, unsigned char* out,
                                     size_t capacity);
    // Expands the groups and sums the differences back into values. False
    // when the bytes do not make exactly `count` values.
    static bool floatArrayUncompressConvertFromDiff(const unsigned char* in, size_t size,
                                                    float* out, size_t count);
    // The most bytes floatArrayCompress writes for `count` values.
    static size_t compressBound(size_t count) { return count * 4 + (count + 126) / 127 + 1; }

    const T3dFltPoint& lightPosition() const { return fLightPosition; }
    int mapCount() const { return fMapCount; }
    bool perspective() const { return fPerspective; }
    int cubeFlag() const { return fCubeFlag; }
    bool useMidDistance() const { return fUseMidDistance; }
    const TshadowMapInfo* map(int index) const { return fMaps[index]; }
    const TshadowMapInfo* midMap(int index) const { return fMidMaps[index]; }
    const T4dFltMatrix& faceMatrix(int face) const { return fMatrices[face]; }
    const T4dFltMatrix& faceProjection(int face) const { return fProjections[face]; }

    // The swap file the tiles go to under memory pressure, made on first
    // need; null when none can be made.
    TrenderSwap* swap();

private:
    int sampleShadowMaps(unsigned count, const TvectorDataHandle& points, const uint8_t* skip,
                         float* fractions, bool surface, const TvectorDataHandle& filterSizes,
                         const TvectorDataHandle& biases);
    // Lays out the tiles of `info` and compresses `buffer` into them.
    bool makeTiles(TshadowMapInfo& info, const float* buffer);
    // Loads one file into `buffer` (width x height): 1 loaded, -1 failed.
    int loadFile(const Tstring& lightName, const Tstring& path, int face, bool mid, int& width,
                 int& height, float*& buffer);
    void freeBuffers(int face);

    T3dFltPoint fLightPosition;
    int fMapCount = 0;
    bool fPerspective;
    int fCubeFlag;
    TshadowMapInfo* fMaps[kMaxFaces] = {};
    TshadowMapInfo* fMidMaps[kMaxFaces] = {};
    bool fUseMidDistance;
    T4dFltMatrix fMatrices[kMaxFaces];
    T4dFltMatrix fProjections[kMaxFaces];

    // The order in which lookups try the maps, most recently useful first:
    // four bits a map index, the first in the low bits. One word, so that
    // render threads reorder it without a lock and never see half a list.
    std::atomic<uint32_t> fOrder{0};

    // Buffers between the depth pass (or the files) and initMap.
    float* fDepthBuffers[kMaxFaces] = {};
    float* fMidBuffers[kMaxFaces] = {};
    int fWidths[kMaxFaces] = {};
    int fHeights[kMaxFaces] = {};
    bool fRendered[kMaxFaces] = {};
    int fLoadedMaps = 0;

    std::mutex fSwapMutex;
    std::unique_ptr<TrenderSwap> fSwap;
    bool fSwapFailed = false;
};
