#include "textures/pyramid.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <thread>

#include "cache/tmp_files.h"
#include "textures/file_texture_cache.h"
#include "textures/pyramid_inventory.h"

namespace {

constexpr std::array<uint32_t, Tpyramid::kMaxLevels> numRows() {
    std::array<uint32_t, Tpyramid::kMaxLevels> rows{};
    for (unsigned l = 0; l < Tpyramid::kMaxLevels; ++l)
        rows[l] = 1u << l;
    return rows;
}

constexpr std::array<uint64_t, Tpyramid::kMaxLevels> spaceRequired() {
    std::array<uint64_t, Tpyramid::kMaxLevels> space{};
    for (unsigned l = 0; l < Tpyramid::kMaxLevels; ++l)
        space[l] = ((uint64_t(1) << (2 * (l + 1))) - 1) / 3;
    return space;
}

// A level of side at most 32 is one block; one of side 2^L above that has
// 4^(L - 5).
constexpr std::array<uint32_t, Tpyramid::kMaxLevels> numBlocks() {
    std::array<uint32_t, Tpyramid::kMaxLevels> blocks{};
    for (unsigned l = 1; l < Tpyramid::kMaxLevels; ++l) {
        const unsigned below = l - 1;
        blocks[l] = blocks[l - 1] + (below <= 5 ? 1u : 1u << (2 * (below - 5)));
    }
    return blocks;
}

constexpr auto kNumRows = numRows();
constexpr auto kSpaceRequired = spaceRequired();
constexpr auto kNumBlocks = numBlocks();
static_assert(kNumBlocks[13] == 21850 && kNumBlocks[7] == 10);
static_assert(kSpaceRequired[0] == 1 && kSpaceRequired[1] == 5);

std::atomic<uint64_t> gNextSerial{1};
std::atomic<unsigned> gThreadCount{std::max(1u, std::thread::hardware_concurrency())};

// Area-weighted taps of one axis: destination texel d covers the source
// interval [d * scale, (d + 1) * scale), and each source texel it touches
// weighs by the length of the overlap.
struct Taps {
    std::vector<unsigned> first;  // first source texel, by destination texel
    std::vector<unsigned> count;  // source texels
    std::vector<unsigned> offset; // into weights
    std::vector<double> weights;  // normalised to a sum of 1
};

Taps axisTaps(unsigned source, unsigned destination) {
    Taps taps;
    const double scale = double(source) / double(destination);
    for (unsigned d = 0; d < destination; ++d) {
        const double a = d * scale;
        const double b = (d + 1) * scale;
        const unsigned first = std::min(unsigned(a), source - 1);
        const unsigned end = std::clamp(unsigned(std::ceil(b)), first + 1, source);
        taps.first.push_back(first);
        taps.count.push_back(end - first);
        taps.offset.push_back(unsigned(taps.weights.size()));
        for (unsigned s = first; s < end; ++s)
            taps.weights.push_back(std::max(0.0, std::min(b, s + 1.0) - std::max(a, double(s))) /
                                   (b - a));
    }
    return taps;
}

template <class T>
T fromAverage(double value) {
    if constexpr (std::is_same_v<T, float>)
        return float(value);
    else
        return T(std::clamp(value + 0.5, 0.0, 255.0));
}

// Resamples a source image (`pixelStride` elements a pixel, rows
// `rowStride` elements apart, destination channel c taken from source
// element channelOf[c]) to `dw` by `dh`, weighting by area. One destination
// row at a time, from the horizontally resampled source rows it covers.
template <class T>
void resampleArea(const T* source, size_t rowStride, unsigned pixelStride,
                  const unsigned* channelOf, unsigned sw, unsigned sh, T* destination, unsigned dw,
                  unsigned dh, unsigned channels) {
    const Taps across = axisTaps(sw, dw);
    const Taps down = axisTaps(sh, dh);
    std::vector<double> row(size_t(dw) * channels);
    std::vector<double> sum(size_t(dw) * channels);
    for (unsigned dy = 0; dy < dh; ++dy) {
        std::fill(sum.begin(), sum.end(), 0.0);
        for (unsigned k = 0; k < down.count[dy]; ++k) {
            const T* src = source + size_t(down.first[dy] + k) * rowStride;
            const double wy = down.weights[down.offset[dy] + k];
            for (unsigned dx = 0; dx < dw; ++dx) {
                double* out = &row[size_t(dx) * channels];
                for (unsigned c = 0; c < channels; ++c)
                    out[c] = 0.0;
                for (unsigned j = 0; j < across.count[dx]; ++j) {
                    const T* p = src + size_t(across.first[dx] + j) * pixelStride;
                    const double wx = across.weights[across.offset[dx] + j];
                    for (unsigned c = 0; c < channels; ++c)
                        out[c] += wx * double(p[channelOf[c]]);
                }
            }
            for (size_t i = 0; i < sum.size(); ++i)
                sum[i] += wy * row[i];
        }
        T* out = destination + size_t(dy) * dw * channels;
        for (size_t i = 0; i < sum.size(); ++i)
            out[i] = fromAverage<T>(sum[i]);
    }
}

// Level L - 1 from level L, a square of `side` texels: each texel is the
// average of the four above it, rounded for bytes.
template <class T>
void boxHalve(const T* above, unsigned side, T* below, unsigned channels) {
    const unsigned half = side / 2;
    const size_t rowStride = size_t(side) * channels;
    for (unsigned y = 0; y < half; ++y) {
        const T* r0 = above + size_t(2 * y) * rowStride;
        const T* r1 = r0 + rowStride;
        T* out = below + size_t(y) * half * channels;
        for (unsigned x = 0; x < half; ++x) {
            const T* a = r0 + size_t(2 * x) * channels;
            const T* c = r1 + size_t(2 * x) * channels;
            for (unsigned k = 0; k < channels; ++k) {
                if constexpr (std::is_same_v<T, float>)
                    out[k] = (a[k] + a[k + channels] + c[k] + c[k + channels]) * 0.25f;
                else
                    out[k] =
                        T((unsigned(a[k]) + a[k + channels] + c[k] + c[k + channels] + 2) >> 2);
            }
            out += channels;
        }
    }
}

} // namespace

const uint32_t Tpyramid::fsNumRows[kMaxLevels] = {1,   2,   4,   8,    16,   32,   64,
                                                  128, 256, 512, 1024, 2048, 4096, 8192};
const uint64_t Tpyramid::fsSpaceRequired[kMaxLevels] = {
    kSpaceRequired[0],  kSpaceRequired[1], kSpaceRequired[2],  kSpaceRequired[3],
    kSpaceRequired[4],  kSpaceRequired[5], kSpaceRequired[6],  kSpaceRequired[7],
    kSpaceRequired[8],  kSpaceRequired[9], kSpaceRequired[10], kSpaceRequired[11],
    kSpaceRequired[12], kSpaceRequired[13]};
const uint32_t Tpyramid::fsNumBlocks[kMaxLevels] = {0,  1,  2,  3,   4,    5,    6,
                                                    10, 26, 90, 346, 1370, 5466, 21850};
static_assert(kNumRows[13] == 8192);

unsigned Tpyramid::maxLevelFor(unsigned shortSide) {
    unsigned level = 0;
    while (level < kMaxLevels && fsNumRows[level] < shortSide)
        ++level;
    return level;
}

Tpyramid::Tpyramid() : fSerial(gNextSerial.fetch_add(1, std::memory_order_relaxed)) {}

Tpyramid::~Tpyramid() {
    // The derived destructor has given the memory store back.
    if (fIsBOT)
        TfileTextureCache::forgetPyramid(*this);
    if (fBotFile >= 0)
        ::close(fBotFile);
    if (fTemporaryBOT) {
        ::unlink(fBotFileName.c_str());
        registerTmpFileCache(this, "");
    }
}

void Tpyramid::freePyramid() {
    if (fStore)
        deallocate(fStore);
    fStore = nullptr;
    fStoreBytes = 0;
    if (!fIsBOT)
        std::fill(std::begin(fLevels), std::end(fLevels), 0);
}

void Tpyramid::setSubRectangle(unsigned x, unsigned y, unsigned width, unsigned height,
                               unsigned targetWidth, unsigned targetHeight) {
    fSubRect = {true, x, y, width, height, targetWidth, targetHeight};
}

bool Tpyramid::setSize(unsigned width, unsigned height, unsigned pixelSize, PixelType type) {
    if (width == 0 || height == 0 || width > kMaxSide || height > kMaxSide)
        return false;
    const unsigned shortSide = std::min(width, height);
    if (shortSide > kMaxShortSide)
        return false;
    fWidth = uint16_t(width);
    fHeight = uint16_t(height);
    fPixelSize = uint8_t(pixelSize);
    fPixelType = type;
    fShortSide = uint16_t(shortSide);
    fAspect = float(std::max(width, height)) / float(shortSide);
    fMaxLevel = uint8_t(maxLevelFor(shortSide));
    fSquare = width == height && width == fsNumRows[fMaxLevel];
    for (unsigned l = 0; l < fMaxLevel; ++l)
        fBlocksPerRow[l] = (fsNumRows[l] + kBlockSide - 1) >> kBlockShift;
    fBlocksPerRow[fMaxLevel] = (width + kBlockSide - 1) >> kBlockShift;
    for (unsigned l = fMaxLevel + 1; l < kMaxLevels; ++l)
        fBlocksPerRow[l] = 0;
    return true;
}

uint32_t Tpyramid::blocksPerColumn(unsigned level) const {
    return (levelHeight(level) + kBlockSide - 1) >> kBlockShift;
}

bool Tpyramid::buildPyramidFromPixelMap(const TpixelMap& map) {
    return build(map);
}

bool Tpyramid::buildPyramidFromPixelMap(const TgenericPixelMap<float>& map) {
    return build(map);
}

template <class T>
bool Tpyramid::build(const TgenericPixelMap<T>& map) {
    using Map = TgenericPixelMap<T>;
    if (fIsBOT)
        return false;
    freePyramid();
    if (map.empty())
        return false;
    const unsigned channels = map.channels() == 1 ? 1 : map.channels() == 3 ? 3 : 4;
    SubRect rect = fSubRect;
    if (rect.on) {
        // A rectangle reaching outside the map is cut to it.
        rect.x = std::min(rect.x, map.width() - 1);
        rect.y = std::min(rect.y, map.height() - 1);
        rect.width = std::clamp(rect.width, 1u, map.width() - rect.x);
        rect.height = std::clamp(rect.height, 1u, map.height() - rect.y);
    }
    const unsigned width = rect.on ? rect.targetWidth : map.width();
    const unsigned height = rect.on ? rect.targetHeight : map.height();
    const PixelType type = std::is_same_v<T, float> ? kPixelTypeFloat : kPixelType8Bit;
    if (!setSize(width, height, channels, type))
        return false;

    const size_t below = fMaxLevel > 0 ? fsSpaceRequired[fMaxLevel - 1] : 0;
    const size_t bytes = (below + size_t(width) * height) * pixelBytes();
    fStore = allocate(bytes);
    if (!fStore)
        return false;
    fStoreBytes = bytes;
    T* store = static_cast<T*>(fStore);
    for (unsigned l = 0; l < fMaxLevel; ++l)
        fLevels[l] =
            reinterpret_cast<uintptr_t>(store + (l ? fsSpaceRequired[l - 1] : 0) * channels);
    fLevels[fMaxLevel] = reinterpret_cast<uintptr_t>(store + below * channels);
    for (unsigned l = fMaxLevel + 1; l < kMaxLevels; ++l)
        fLevels[l] = 0;

    // convertArray: from the map's blue, green, red, alpha to red, green,
    // blue (and alpha) or to the fourth component alone.
    static constexpr unsigned kFromBgra3[] = {Map::kRed, Map::kGreen, Map::kBlue};
    static constexpr unsigned kFromBgra4[] = {Map::kRed, Map::kGreen, Map::kBlue, Map::kAlpha};
    static constexpr unsigned kFromBgra1[] = {Map::kAlpha};
    const unsigned* channelOf = channels == 1   ? kFromBgra1
                                : channels == 3 ? kFromBgra3
                                                : kFromBgra4;
    T* top = store + below * channels;
    if (rect.on) {
        resampleArea(map.pixel(rect.x, rect.y), size_t(map.width()) * Map::kComponents,
                     Map::kComponents, channelOf, rect.width, rect.height, top, width, height,
                     channels);
    } else {
        const size_t pixels = size_t(width) * height;
        const T* from = map.data();
        T* to = top;
        for (size_t i = 0; i < pixels; ++i, from += Map::kComponents, to += channels)
            for (unsigned c = 0; c < channels; ++c)
                to[c] = from[channelOf[c]];
    }

    if (fMaxLevel > 0) {
        T* next = reinterpret_cast<T*>(static_cast<uintptr_t>(fLevels[fMaxLevel - 1]));
        if (fSquare) {
            boxHalve(top, width, next, channels);
        } else {
            static constexpr unsigned kIdentity[] = {0, 1, 2, 3};
            resampleArea<T>(top, size_t(width) * channels, channels, kIdentity, width, height, next,
                            fsNumRows[fMaxLevel - 1], fsNumRows[fMaxLevel - 1], channels);
        }
        for (unsigned l = fMaxLevel - 1; l > 0; --l)
            boxHalve(reinterpret_cast<const T*>(static_cast<uintptr_t>(fLevels[l])), fsNumRows[l],
                     reinterpret_cast<T*>(static_cast<uintptr_t>(fLevels[l - 1])), channels);
    }
    fHasMipmaps = true;
    return true;
}

Tstring Tpyramid::getUniqueIdentifier(const Tstring& name, bool /*swatch*/, bool usePreFilter,
                                      float radius) {
    if (!usePreFilter)
        return name;
    return fmt::format("{}__%{}%__", name, int(radius * 10000.0f));
}

void Tpyramid::setThreadCount(unsigned threads) {
    gThreadCount.store(std::max(1u, threads), std::memory_order_relaxed);
}

unsigned Tpyramid::threadCountSetting() {
    return gThreadCount.load(std::memory_order_relaxed);
}

void Tpyramid::resetCacheFlags() {
    const unsigned threads = threadCountSetting();
    if (threads > fThreadCount) {
        fThreadCount = threads;
        fCacheFlags.assign(size_t(threads) * kMaxLevels, 0);
    }
    zeroCacheFlags();
}

void Tpyramid::zeroCacheFlags() {
    std::fill(fCacheFlags.begin(), fCacheFlags.end(), 0);
}

void Tpyramid::setUpBOTAccess(const Tstring& name, int fd, bool allLevels) {
    fBotFileName = name;
    if (fBotFile >= 0 && fBotFile != fd)
        ::close(fBotFile);
    fBotFile = fd;
    // With every level, level L's entries follow those of the levels below;
    // a file of the top level alone has only the top's entries.
    fHasMipmaps = allLevels && fMaxLevel > 0;
    for (unsigned l = 0; l < kMaxLevels; ++l)
        fLevels[l] = 0;
    if (fHasMipmaps)
        for (unsigned l = 0; l <= fMaxLevel; ++l)
            fLevels[l] = kBotHeaderSize + 4 * uint64_t(fsNumBlocks[l]);
    else
        fLevels[fMaxLevel] = kBotHeaderSize;
    fIsBOT = true;
    resetCacheFlags();
    TfileTextureCache::notePyramid(*this);
}

// ---- the two kinds

TpyramidNonSwatch::~TpyramidNonSwatch() {
    freePyramid();
}

void* TpyramidNonSwatch::allocate(size_t bytes) {
    return TpyramidInventory::allocate(bytes);
}

void TpyramidNonSwatch::deallocate(void* block) {
    TpyramidInventory::deallocate(block);
}

TpyramidSwatch::~TpyramidSwatch() {
    freePyramid();
}

void* TpyramidSwatch::allocate(size_t bytes) {
    return std::malloc(bytes);
}

void TpyramidSwatch::deallocate(void* block) {
    std::free(block);
}
