// Block ordered texture files come from outside: written by earlier renders,
// by `orvo maketx`, or copied from anywhere. Whatever the bytes, the reader
// must refuse or read them without going outside the file or the decoded
// block, and a sound file must decode the same whether it is checked whole
// or read block by block through a pyramid.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "host/messages.h"
#include "textures/bot_coding.h"
#include "textures/bot_file_info.h"
#include "textures/file_texture_cache.h"
#include "textures/pyramid.h"

namespace {

const std::string& scratchFile() {
    static const std::string name = [] {
        // Damage is expected here.
        TcommandEngine::setSink([](TcommandEngine::Severity, const std::string&) {});
        const char* folder = std::getenv("TMPDIR");
        return std::string(folder && *folder ? folder : "/tmp") + "/orvo-fuzz-bot-" +
               std::to_string(long(::getpid())) + ".bot";
    }();
    return name;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // The bytes as one block of a shape chosen by the first byte.
    if (size > 1) {
        uint8_t pixels[Tpyramid::kBlockBytes];
        const unsigned w = 1 + (data[0] & 31), h = 1 + ((data[0] >> 3) & 31);
        TbotBlockCoder::decodeBlock(data + 1, size - 1, w, h, 1 + (data[0] >> 6), pixels);
    }

    // The bytes as a whole file, checked in memory.
    TbotFileInfo info;
    std::string why;
    const bool sound = info.read(data, size, why);

    // The bytes as a file on disk, read through a pyramid.
    const std::string& name = scratchFile();
    FILE* out = std::fopen(name.c_str(), "wb");
    if (!out)
        return 0;
    std::fwrite(data, 1, size, out);
    std::fclose(out);
    std::unique_ptr<Tpyramid> pyramid(Tpyramid::openBOT(name, false, name, &why));
    if (sound && !pyramid)
        std::abort(); // a file that checks out whole must open
    if (pyramid) {
        TfileTextureCache cache(4);
        // One texel of every block of every level in the file...
        for (unsigned l = pyramid->hasMipmaps() ? 0 : pyramid->maxLevel(); l <= pyramid->maxLevel();
             ++l)
            for (unsigned y = 0; y < pyramid->levelHeight(l); y += 32)
                for (unsigned x = 0; x < pyramid->levelWidth(l); x += 32)
                    cache.fetch(*pyramid, l, x, y);
        // ...and lookups as a texture makes them, edges and all.
        TfileTextureWrapper wrapper;
        T3Float colour;
        float alpha = 1.0f;
        for (float u : {0.0f, 0.37f, 0.999f, 1.0f})
            for (float f : {0.001f, 0.05f, 0.4f, 1.0f}) {
                pyramid->getMapColor(wrapper, u, 1.0f - u, colour, alpha, false, f);
                wrapper.noFilter = !wrapper.noFilter;
            }
        TfileTextureCache::freeForThisThread();
    }
    std::remove(name.c_str());
    return 0;
}
