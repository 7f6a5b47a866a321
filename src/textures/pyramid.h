#pragma once

// Tpyramid: the pixels of a file texture as a mip pyramid. Level L below the
// top is a square of side 2^L; the top level, maxLevel, is the image at its
// own width and height, and maxLevel is the smallest L with 2^L at least the
// image's short side. Level 0 is the one-pixel average of the whole image.
//
// A pyramid lives in memory (one allocation: the levels 0 .. maxLevel - 1
// one after the other, then the top image) or in a block ordered texture
// (BOT) file, whose 32 by 32 blocks are decoded on demand into the reading
// thread's TfileTextureCache. Rows run bottom-up in memory, as in the pixel
// map it was built from (row 0 is the image's bottom row); a BOT file holds
// them top-down, and a fetch from it flips the row.
//
// Memory pyramids are read-only once built and are read without a lock. A
// BOT read touches only the reading thread's cache and that thread's words
// of cacheFlags, so no lock stands on the fetch path either.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "host/pixel_map.h"
#include "host/types.h"

class TfileTextureCache;

// How the texture reading a pyramid wants it read: wrapping in U and V, and
// the no-filter flag, which reads the top level's nearest texel.
struct TfileTextureWrapper {
    bool wrapU = true;
    bool wrapV = true;
    bool noFilter = false;
    float filterWidth = 0.707f;
};

// What a pyramid's channels are.
enum PixelType : uint8_t {
    kPixelType8Bit = 0,  // bytes, 0 .. 255 for 0 .. 1
    kPixelTypeFloat = 1, // 32-bit floats
};

// The 14-byte head of a BOT file, in the writing machine's byte order.
struct botHeader {
    uint16_t marker1;  // kBotMarker
    uint16_t width;    // of the top level
    uint16_t height;   //
    uint8_t maxLevel;  //
    uint8_t pixelSize; // channels: 1, 3 or 4
    uint16_t marker2;  // kBotMarker
    uint8_t allLevels; // 1: every level is in the file; 0: the top level alone
    uint8_t reserved;  // 0
    uint16_t marker3;  // kBotMarker
};
static_assert(sizeof(botHeader) == 14, "the BOT header is 14 bytes");

class Tpyramid {
public:
    static constexpr unsigned kMaxLevels = 14;
    // The largest short side a pyramid takes: the side of level 13.
    static constexpr unsigned kMaxShortSide = 8192;
    static constexpr unsigned kMaxSide = 65535;
    static constexpr unsigned kBlockShift = 5;
    static constexpr unsigned kBlockSide = 1u << kBlockShift;
    // A decoded block, 32 by 32 pixels of up to 4 bytes.
    static constexpr size_t kBlockBytes = 4096;
    // A coded block never needs more than this (see TbotBlockCoder).
    static constexpr size_t kCodedBlockScratch = 8192;
    static constexpr uint16_t kBotMarker = 21589;    // 0x5455
    static constexpr uint16_t kBotMarkerAlt = 21845; // 0x5555
    static constexpr size_t kBotHeaderSize = sizeof(botHeader);

    // The side of level L: 2^L.
    static const uint32_t fsNumRows[kMaxLevels];
    // Pixels in levels 0 .. L together: (4^(L+1) - 1) / 3.
    static const uint64_t fsSpaceRequired[kMaxLevels];
    // Blocks in all the levels below L.
    static const uint32_t fsNumBlocks[kMaxLevels];

    // The smallest L for which 2^L is at least `shortSide`, 0 .. 13; 14 when
    // the side is larger than any level.
    static unsigned maxLevelFor(unsigned shortSide);

    virtual ~Tpyramid();
    Tpyramid(const Tpyramid&) = delete;
    Tpyramid& operator=(const Tpyramid&) = delete;

    // The store of a memory pyramid comes from here.
    virtual void* allocate(size_t bytes) = 0;
    virtual void deallocate(void* block) = 0;
    virtual bool isSwatch() const = 0;
    // Gives back the pixel memory; the pyramid then has no memory levels.
    virtual void freePyramid();

    // Builds the pyramid from a pixel map: the top level from the map (or
    // from its sub-rectangle, see setSubRectangle), then each level below.
    // False, with the pyramid left empty, when the map is empty or too big
    // (a side above 65535, a short side above 8192) or memory runs out.
    virtual bool buildPyramidFromPixelMap(const TpixelMap& map);
    virtual bool buildPyramidFromPixelMap(const TgenericPixelMap<float>& map);

    // Before building: take the rectangle (x, y, width, height) of the map,
    // rows counted from the bottom, and resample it to targetWidth by
    // targetHeight for the top level. A rectangle of the whole map with a
    // smaller target zooms the image down (a swatch).
    void setSubRectangle(unsigned x, unsigned y, unsigned width, unsigned height,
                         unsigned targetWidth, unsigned targetHeight);
    bool hasSubRectangle() const { return fSubRect.on; }

    // ---- BOT files

    // Opens NAME for reading and checks its header: true when all three
    // markers are 21589, or all 21845. On true the header is copied to
    // `header` and the open descriptor handed to `fd` (closed otherwise).
    static bool IsItABOTFile(const Tstring& name, int* fd, botHeader* header);
    // A pyramid that reads the existing BOT file NAME; null, with the reason
    // in `why`, when NAME is not a BOT file or is cut short or inconsistent.
    static Tpyramid* openBOT(const Tstring& name, bool swatch, const Tstring& identifier,
                             Tstring* why = nullptr);
    // Whether a BOT header describes a shape a reader can walk: 1, 3 or 4
    // channels, and a top level that agrees with the size. On true, `blocks`
    // is the number of blocks the file holds (its offset table has one entry
    // more); on false, `why` says what is wrong.
    static bool checkBOTHeader(const botHeader& header, uint64_t& blocks, Tstring& why);
    // The inventory key of a texture file: the name itself, or with a
    // prefilter the name and the radius in ten-thousandths.
    static Tstring getUniqueIdentifier(const Tstring& name, bool swatch, bool usePreFilter,
                                       float radius);

    // Writes this 8-bit memory pyramid as a BOT file at `path`, creating it
    // (replacing it when `overwrite`, failing on an existing file
    // otherwise) with the disk limit of the calling thread's block cache.
    // The pyramid is not changed. On failure the error is reported, nothing
    // is left at `path`, and the result is false.
    bool writeBOT(const Tstring& path, bool overwrite) const;

    // ---- sampling. u and v run over [0, 1] across the image, v = 0 at its
    // bottom; colours come out in [0, 1] for 8-bit pyramids. Alpha is written
    // only by 4-channel pyramids; otherwise the caller's value stands.

    // The colour for a footprint of `filter` in UV (1 is the whole texture):
    // the top level below one texel of it, the two levels around it
    // otherwise, blended.
    void getMapColor(const TfileTextureWrapper& wrapper, float u, float v, T3Float& color,
                     float& alpha, bool forceTop, float filter) const;
    // One bilinear fetch at `level` (3 or 4 channels; a 1-channel pyramid
    // gives its value in all three). With `nearest` and the wrapper's
    // no-filter flag, the texel under (u, v), unblended.
    void levelCol(const TfileTextureWrapper& wrapper, unsigned level, float u, float v,
                  T3Float& color, float& alpha, bool nearest) const;
    // The same for the first channel alone (the grey of a 1-channel pyramid).
    void levelVal(const TfileTextureWrapper& wrapper, unsigned level, float u, float v,
                  float& value, bool nearest) const;
    // Texel (x, y) of `level`, y counted from the bottom.
    void getTexel(unsigned level, unsigned x, unsigned y, T3Float& color, float& alpha) const;
    // A separable weighted sum of texels of `level`: columns x0 .. x0 + nx - 1
    // with weights wx, rows y0 .. y0 + ny - 1 (from the bottom) with weights
    // wy, indices outside the level wrapped or clamped. The weights are used
    // as given (the caller normalises them). Alpha as for levelCol.
    void weightedSum(unsigned level, int x0, unsigned nx, const float* wx, int y0, unsigned ny,
                     const float* wy, bool wrapU, bool wrapV, T3Float& color, float& alpha) const;
    // The texel's raw channels (bytes or floats): in the pyramid's memory, or
    // in this thread's block cache, valid until its next fetch.
    const uint8_t* texelData(unsigned level, unsigned x, unsigned y) const;

    // Batches, as a texture computes a run of samples: n lookups of the
    // arrays u and v; `filter` holds n sizes, or one when filterStride is 0.
    void getMapColors(const TfileTextureWrapper& wrapper, unsigned n, const float* u,
                      const float* v, const float* filter, unsigned filterStride, bool forceTop,
                      T3Float* color, float* alpha) const;
    void levelCols(const TfileTextureWrapper& wrapper, unsigned level, unsigned n, const float* u,
                   const float* v, T3Float* color, float* alpha, bool nearest) const;

    // ---- block cache bookkeeping

    // Threads for which new cacheFlags are sized (the file texture sets it
    // from the render's thread count).
    static void setThreadCount(unsigned threads);
    static unsigned threadCountSetting();
    // Grows cacheFlags to the thread count setting when it is larger, and
    // clears it. Never while threads read this pyramid.
    void resetCacheFlags();
    void zeroCacheFlags();

    // ---- fields
    const Tstring& identifier() const { return fIdentifier; }
    void setIdentifier(const Tstring& identifier) { fIdentifier = identifier; }
    unsigned pixelSize() const { return fPixelSize; }
    PixelType pixelType() const { return fPixelType; }
    // Bytes of one texel.
    unsigned pixelBytes() const { return fPixelSize * (fPixelType == kPixelTypeFloat ? 4u : 1u); }
    unsigned width() const { return fWidth; }
    unsigned height() const { return fHeight; }
    float aspect() const { return fAspect; }
    const Tstring& fileName() const { return fFileName; }
    void setFileName(const Tstring& name) { fFileName = name; }
    uint32_t blocksPerRow(unsigned level) const { return fBlocksPerRow[level]; }
    // A memory level's address, or a BOT level's first entry in the offset
    // table.
    uint64_t levels(unsigned level) const { return fLevels[level]; }
    const Tstring& botFileName() const { return fBotFileName; }
    int botFile() const { return fBotFile; }
    unsigned maxLevel() const { return fMaxLevel; }
    bool isSquare() const { return fSquare; }
    unsigned shortSide() const { return fShortSide; }
    bool isBOT() const { return fIsBOT; }
    bool needed() const { return fNeeded; }
    void setNeeded(bool needed = true) { fNeeded = needed; }
    uint32_t threadCount() const { return fThreadCount; }
    const std::vector<uint32_t>& cacheFlags() const { return fCacheFlags; }

    // The levels below the top are there (a BOT file may hold the top alone).
    bool hasMipmaps() const { return fHasMipmaps; }
    bool isBuilt() const { return fIsBOT || fStore != nullptr; }
    unsigned levelWidth(unsigned level) const {
        return level == fMaxLevel ? fWidth : fsNumRows[level];
    }
    unsigned levelHeight(unsigned level) const {
        return level == fMaxLevel ? fHeight : fsNumRows[level];
    }
    // Block rows of a level (of a BOT file's layout).
    uint32_t blocksPerColumn(unsigned level) const;
    // Bytes of the memory store (0 for a BOT pyramid).
    size_t storeBytes() const { return fStoreBytes; }
    // Unique for the life of the process, never reused: a block cache knows
    // its blocks by it.
    uint64_t serial() const { return fSerial; }

protected:
    Tpyramid();

    // The first `bytes` of the memory store, where writeBOT and the
    // sampling read; null when there is none.
    const uint8_t* levelPointer(unsigned level) const {
        return reinterpret_cast<const uint8_t*>(static_cast<uintptr_t>(fLevels[level]));
    }
    // Sets width, height and the fields that follow from them.
    bool setSize(unsigned width, unsigned height, unsigned pixelSize, PixelType type);
    // Turns this pyramid into a reader of the BOT file `name`, whose
    // descriptor `fd` it keeps.
    void setUpBOTAccess(const Tstring& name, int fd, bool allLevels);

    friend class TfileTextureCache;
    friend class TpyramidNonSwatch;
    friend struct TpyramidSampling;

private:
    template <class T>
    bool build(const TgenericPixelMap<T>& map);

    struct SubRect {
        bool on = false;
        unsigned x = 0, y = 0, width = 0, height = 0;
        unsigned targetWidth = 0, targetHeight = 0;
    };

    Tstring fIdentifier;
    uint8_t fPixelSize = 0;
    PixelType fPixelType = kPixelType8Bit;
    uint16_t fWidth = 0;
    uint16_t fHeight = 0;
    float fAspect = 1.0f;
    Tstring fFileName;
    uint32_t fBlocksPerRow[kMaxLevels] = {};
    uint64_t fLevels[kMaxLevels] = {};
    Tstring fBotFileName;
    int fBotFile = -1;
    uint8_t fMaxLevel = 0;
    bool fSquare = false;
    uint16_t fShortSide = 0;
    bool fIsBOT = false;
    bool fNeeded = true;
    uint32_t fThreadCount = 0;
    // Each thread writes only its own words, from its block cache.
    mutable std::vector<uint32_t> fCacheFlags;

    bool fHasMipmaps = true;
    bool fTemporaryBOT = false; // the BOT file is ours, deleted with the pyramid
    void* fStore = nullptr;
    size_t fStoreBytes = 0;
    uint64_t fSerial = 0;
    SubRect fSubRect;
};

// A pyramid of a texture file for rendering. Its store comes from the
// inventory's render cache, and it can move to a BOT file.
class TpyramidNonSwatch : public Tpyramid {
public:
    TpyramidNonSwatch() = default;
    ~TpyramidNonSwatch() override;

    void* allocate(size_t bytes) override;
    void deallocate(void* block) override;
    bool isSwatch() const override { return false; }

    // Writes the pyramid as a BOT file, then frees its pixel memory and reads
    // from the file. Without a path the file is a temporary one, deleted
    // with the pyramid or at exit. False, with the pyramid still in memory,
    // for a float pyramid or when the file cannot be written.
    bool remapPyramidToBlocks(const Tstring* path, bool overwrite);

    // The temporary BOT name for this pyramid.
    Tstring getCachePyrFileName() const;
};

// A pyramid for a swatch (a small preview); its store is on the heap.
class TpyramidSwatch : public Tpyramid {
public:
    TpyramidSwatch() = default;
    ~TpyramidSwatch() override;

    void* allocate(size_t bytes) override;
    void deallocate(void* block) override;
    bool isSwatch() const override { return true; }
};
