// IFF files come from outside: depth maps from earlier renders or other
// programs. Walking any input must stay inside it, end, and never report an
// item that does not fit in its group.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "host/iff/iff_reader.h"

namespace {

struct Walk {
    TiffReader& reader;
    std::vector<char> buffer;
    TiffItem lastChunk;
    bool sawChunk = false;
};

void walk(Walk& w, uint64_t begin, uint64_t end, int depth) {
    TiffItem item;
    uint64_t previousEnd = begin;
    while (w.reader.next(item)) {
        // Items follow one another inside their group.
        if (item.offset < previousEnd || item.dataOffset + item.dataSize > end)
            std::abort();
        previousEnd = item.dataOffset + item.dataSize;
        if (item.isGroup()) {
            if (!w.reader.enter())
                return;
            if (w.reader.depth() != depth + 1)
                std::abort();
            walk(w, item.dataOffset, item.dataOffset + item.dataSize, depth + 1);
            if (w.reader.hasError() || !w.reader.leave())
                return;
        } else {
            // Read the data whole, then its last byte on its own.
            w.buffer.resize(item.dataSize + 1);
            if (!w.reader.readData(item, w.buffer.data(), 0, item.dataSize))
                std::abort();
            if (item.dataSize > 0 &&
                !w.reader.readData(item, w.buffer.data(), item.dataSize - 1, 1))
                std::abort();
            w.lastChunk = item;
            w.sawChunk = true;
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    TiffReader reader(data, size);
    Walk w{reader, {}, {}, false};
    walk(w, 0, size, 0);
    if (w.sawChunk && !reader.hasError()) {
        // One byte more than a chunk holds is refused, and stops the reader.
        if (reader.readData(w.lastChunk, w.buffer.data(), 0, w.lastChunk.dataSize + 1))
            std::abort();
        TiffItem item;
        if (reader.next(item))
            std::abort();
    }
    return 0;
}
