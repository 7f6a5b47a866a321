#include "host/iff/iff_reader.h"

#include <algorithm>
#include <cstring>

#include <fmt/format.h>

namespace {

uint32_t bigEndian32(const unsigned char* in) {
    return (static_cast<uint32_t>(in[0]) << 24) | (static_cast<uint32_t>(in[1]) << 16) |
           (static_cast<uint32_t>(in[2]) << 8) | static_cast<uint32_t>(in[3]);
}

} // namespace

TiffReader::TiffReader(TiffFile& file) : fFile(&file) {
    const int64_t size = file.isOpen() ? file.size() : -1;
    if (size < 0) {
        fail(file.isOpen() ? file.errorText() : std::string("no file is open"));
        fSize = 0;
    } else {
        fSize = static_cast<uint64_t>(size);
    }
    fLevels.push_back({fSize, 0});
}

TiffReader::TiffReader(const void* data, size_t size)
    : fMemory(static_cast<const unsigned char*>(data)), fSize(data ? size : 0) {
    fLevels.push_back({fSize, 0});
}

bool TiffReader::fail(std::string text) {
    if (fError.empty())
        fError = std::move(text);
    return false;
}

bool TiffReader::readAt(uint64_t offset, void* data, size_t size) {
    if (offset > fSize || size > fSize - offset)
        return fail(fmt::format("read of {} bytes at offset {} runs past the end ({})", size,
                                offset, fSize));
    if (fMemory) {
        std::memcpy(data, fMemory + offset, size);
        return true;
    }
    if (fFile->readAt(offset, data, size) != size)
        return fail(fFile->hasError()
                        ? fFile->errorText()
                        : fmt::format("the file ended before offset {}", offset + size));
    return true;
}

bool TiffReader::next(TiffItem& item) {
    if (hasError())
        return false;
    Level& level = fLevels.back();
    fHaveLast = false;
    if (level.next >= level.end)
        return false;
    const char* where = fLevels.size() == 1 ? "the file" : "its group";
    const uint64_t at = level.next;
    const uint64_t room = level.end - at;
    if (room < kIffChunkHeaderSize)
        return fail(fmt::format("truncated chunk header at offset {}: {} bytes left in {}", at,
                                room, where));

    unsigned char header[kIffGroupHeaderSize];
    if (!readAt(at, header, kIffChunkHeaderSize))
        return false;
    TiffItem found;
    found.id = bigEndian32(header);
    found.size = bigEndian32(header + 4);
    found.offset = at;
    if (!TiffIsValidTag(found.id))
        return fail(
            fmt::format("offset {}: {} is not a chunk id", at, TiffChunkIdToString(found.id)));
    if (found.size > room - kIffChunkHeaderSize)
        return fail(fmt::format("{} at offset {}: its size {} runs past the end of {} ({} bytes "
                                "left)",
                                TiffChunkIdToString(found.id), at, found.size, where,
                                room - kIffChunkHeaderSize));
    if (found.isGroup()) {
        if (found.size < 4)
            return fail(fmt::format("{} at offset {}: size {} leaves no room for the group type",
                                    TiffChunkIdToString(found.id), at, found.size));
        if (!readAt(at + kIffChunkHeaderSize, header + kIffChunkHeaderSize, 4))
            return false;
        found.type = bigEndian32(header + kIffChunkHeaderSize);
        if (!TiffIsValidTag(found.type))
            return fail(fmt::format("{} at offset {}: {} is not a group type",
                                    TiffChunkIdToString(found.id), at,
                                    TiffChunkIdToString(found.type)));
        found.dataOffset = at + kIffGroupHeaderSize;
        found.dataSize = found.size - 4;
    } else {
        found.dataOffset = at + kIffChunkHeaderSize;
        found.dataSize = found.size;
    }

    // The padding after the last item may be missing at the end of a group.
    const uint64_t end = at + kIffChunkHeaderSize + found.size;
    level.next = std::min((end + kIffAlignment - 1) / kIffAlignment * kIffAlignment, level.end);
    item = found;
    fLast = found;
    fHaveLast = true;
    return true;
}

bool TiffReader::enter() {
    if (hasError())
        return false;
    if (!fHaveLast || !fLast.isGroup())
        return fail("enter: the item read last is not a group");
    if (depth() >= kMaximumDepth)
        return fail(
            fmt::format("offset {}: groups nested more than {} deep", fLast.offset, kMaximumDepth));
    fLevels.push_back({fLast.dataOffset + fLast.dataSize, fLast.dataOffset});
    fHaveLast = false;
    return true;
}

bool TiffReader::leave() {
    if (hasError())
        return false;
    if (fLevels.size() == 1)
        return fail("leave: no group has been entered");
    fLevels.pop_back();
    fHaveLast = false;
    return true;
}

bool TiffReader::readData(const TiffItem& item, void* data, uint32_t offset, uint32_t size) {
    if (hasError())
        return false;
    if (offset > item.dataSize || size > item.dataSize - offset)
        return fail(fmt::format("{} at offset {}: {} bytes from {} lie outside its {} bytes",
                                TiffChunkIdToString(item.id), item.offset, size, offset,
                                item.dataSize));
    return readAt(item.dataOffset + offset, data, size);
}
