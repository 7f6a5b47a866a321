// Depth map files come from outside: earlier renders, other machines, other
// programs. Any input either opens as a depth map whose header and chunks
// agree, or fails with a message that names the file; an open file's
// depths read back, convert into a map's depths and make a shadow map that
// answers lookups, whatever values the texels hold.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "cache/render_cache.h"
#include "host/arena.h"
#include "host/iff/iff_image_file.h"
#include "host/messages.h"
#include "host/mmap_alloc.h"
#include "lights/shadow_map.h"

namespace {

// Lookups are made for files of up to this many texels; larger ones are
// only read and converted.
constexpr size_t kMaxMapped = 1 << 16;

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool quiet = [] {
        TcommandEngine::setSink([](TcommandEngine::Severity, const std::string&) {});
        return true;
    }();
    (void)quiet;
    static TrenderCache cache(TrenderCache::kPrivateCacheSize, theMallocAllocator());

    TiffImageFile file;
    if (file.openMemory(data, size, "fuzz.iff") != 0) {
        if (file.errorText().rfind("fuzz.iff: ", 0) != 0)
            std::abort();
        return 0;
    }
    const TiffImageHeader& h = file.header();
    if (h.width == 0 || h.height == 0 || h.face < -1 || h.face > 5)
        std::abort();
    if (!file.hasDepth())
        return file.readDepth(nullptr) == 0 ? (std::abort(), 0) : 0;
    const size_t n = file.texelCount();
    // A file that opens holds every texel it claims: the chunk sizes were
    // checked against the input.
    if (n * 4 > size)
        std::abort();
    std::vector<float> values(n);
    if (file.readDepth(values.data()) != 0)
        std::abort();
    if (file.hasColour()) {
        std::vector<float> colour(n * 4);
        if (file.readColour(colour.data()) != 0)
            std::abort();
    }

    TuseShadowMap map({0.0f, 0.0f, 0.0f}, file.perspective(), h.face >= 0 ? 1 : 0, true);
    const int face = h.face < 0 ? 0 : h.face;
    map.setFaceCamera(face, h.worldToCamera, h.projection);
    auto* depth = static_cast<float*>(mmapAlloc(n * sizeof(float), "fuzz depth"));
    if (!depth)
        return 0;
    T4dFltMatrix moved;
    moved.m[3][2] = 0.5f;
    if (map.iffBufferToZbuffer(int(h.width), int(h.height), moved, h.projection, values.data(),
                               depth))
        for (size_t i = 0; i < n; ++i)
            if (!(depth[i] >= 0.0f) || !std::isfinite(depth[i]))
                std::abort(); // a map holds no negative or non-finite depth
    if (!map.iffBufferToZbuffer(int(h.width), int(h.height), T4dFltMatrix(), h.projection,
                                values.data(), depth))
        std::abort(); // the identity always inverts
    if (n > kMaxMapped) {
        mmapFree(depth);
        return 0;
    }
    map.setDepthBuffers(face, int(h.width), int(h.height), depth, nullptr);
    const float biases[6] = {0.001f, 0.001f, 0.001f, 0.001f, 0.001f, 0.001f};
    if (map.initMap(face, &cache, biases) != 1)
        return 0;
    // Points through the camera's view, along its axis.
    T3dFltPoint points[16];
    for (int k = 0; k < 16; ++k)
        points[k] = {float(k % 4) - 1.5f, float(k / 4) - 1.5f, -1.0f - float(k)};
    float fractions[16];
    ShadowMapVecSamples samples;
    samples.count = 16;
    samples.fractions = fractions;
    samples.points = TvectorDataHandle(TdataHandle(nullptr, nullptr, points), sizeof points[0]);
    if (map.sampleShadow(samples, {}, {}, 1) != 0)
        std::abort();
    for (const float f : fractions)
        if (!(f >= 0.0f && f <= 1.0f))
            std::abort();
    return 0;
}
