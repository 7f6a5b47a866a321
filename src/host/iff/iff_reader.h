#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "host/iff/iff_file.h"

// One chunk or group header as found in a file.
struct TiffItem {
    TiffChunkId id = 0;
    TiffChunkId type = 0;    // a group's type; 0 for a chunk
    uint32_t size = 0;       // the size field: for a group, its type and contents
    uint64_t offset = 0;     // where the header starts
    uint64_t dataOffset = 0; // a chunk's data, or a group's first contained chunk
    uint32_t dataSize = 0;   // bytes from dataOffset on that belong to the item

    bool isGroup() const { return TiffIsGroupTag(id); }
};

// Walks the structure of an IFF held in memory or in an open TiffFile,
// checking every header against the room its group (or the file) has left.
// Nothing outside the input is ever read, whatever the input holds.
//
//   TiffReader reader(file);
//   TiffItem item;
//   while (reader.next(item)) {
//       if (item.isGroup()) { reader.enter(); ...; reader.leave(); }
//       else reader.readData(item, buffer, 0, item.dataSize);
//   }
//   if (reader.hasError()) ... reader.error() ...
//
// next() returns false at the end of the current group, or on bad input, in
// which case hasError() is true and every later call fails too.
class TiffReader {
public:
    static constexpr int kMaximumDepth = 64;

    explicit TiffReader(TiffFile& file);
    TiffReader(const void* data, size_t size);

    bool next(TiffItem& item);
    // Enters the group that next() returned last: next() then walks its
    // contents.
    bool enter();
    // Leaves the current group: next() goes on after it.
    bool leave();
    // Groups entered and not left.
    int depth() const { return static_cast<int>(fLevels.size()) - 1; }

    // Reads `size` bytes of the item's data from `offset` within it.
    bool readData(const TiffItem& item, void* data, uint32_t offset, uint32_t size);

    bool hasError() const { return !fError.empty(); }
    const std::string& error() const { return fError; }

private:
    struct Level {
        uint64_t end;
        uint64_t next;
    };

    bool readAt(uint64_t offset, void* data, size_t size);
    bool fail(std::string text);

    const unsigned char* fMemory = nullptr;
    TiffFile* fFile = nullptr;
    uint64_t fSize = 0;
    std::vector<Level> fLevels;
    TiffItem fLast;
    bool fHaveLast = false;
    std::string fError;
};
