#include "shading/scratch.h"

#include <algorithm>
#include <cstdlib>
#include <new>
#include <vector>

#include <fmt/format.h>

namespace {

// A thread's arena: chunks kept from batch to batch, a cursor in the
// current one. Frames take from it and give back by restoring the cursor.
struct ThreadArena {
    struct Chunk {
        std::byte* memory;
        size_t size;
    };
    std::vector<Chunk> chunks;
    size_t chunk = 0; // the chunk the cursor is in
    size_t used = 0;  // bytes used in it

    ~ThreadArena() {
        for (const Chunk& c : chunks)
            ::operator delete(c.memory, std::align_val_t(64));
    }
};

thread_local ThreadArena tArena;

constexpr size_t kFirstChunk = 256 * 1024;

} // namespace

TshadeScratch::TshadeScratch() : fChunk(tArena.chunk), fUsed(tArena.used) {}

TshadeScratch::~TshadeScratch() {
    // Everything after the mark was this frame's, and its nested frames',
    // which are closed already.
    tArena.chunk = fChunk;
    tArena.used = fUsed;
}

void TshadeScratch::tooLarge(size_t count, size_t each) {
    throw TshadeScratchError(fmt::format(
        "shading scratch of {} items of {} bytes is larger than any network needs", count, each));
}

void* TshadeScratch::take(size_t size) {
    if (size > kLargestPiece)
        throw TshadeScratchError(
            fmt::format("shading scratch of {} bytes is larger than any network needs", size));
    size = (size + 15) & ~size_t(15);
    ThreadArena& a = tArena;
    if (a.chunk < a.chunks.size() && size <= a.chunks[a.chunk].size - a.used) {
        void* at = a.chunks[a.chunk].memory + a.used;
        a.used += size;
        return at;
    }
    // The rest of this chunk is left; the next chunk that is large enough
    // serves, and a new one is made when none is. Chunks are only ever
    // added, so that marks of open frames stay valid.
    size_t next = a.chunks.empty() ? 0 : a.chunk + 1;
    while (next < a.chunks.size() && a.chunks[next].size < size)
        ++next;
    if (next == a.chunks.size()) {
        const size_t last = a.chunks.empty() ? 0 : a.chunks.back().size;
        const size_t chunkSize = std::max({kFirstChunk, 2 * last, size});
        auto* memory =
            static_cast<std::byte*>(::operator new(chunkSize, std::align_val_t(64), std::nothrow));
        if (!memory)
            throw std::bad_alloc();
        a.chunks.push_back({memory, chunkSize});
    }
    a.chunk = next;
    a.used = size;
    return a.chunks[next].memory;
}

size_t TshadeScratch::threadFootprint() {
    size_t bytes = 0;
    for (const ThreadArena::Chunk& c : tArena.chunks)
        bytes += c.size;
    return bytes;
}
