#include "host/iff/iff_image_file.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <vector>

#include <fmt/format.h>

namespace {

uint32_t load32(const unsigned char* in) {
    return (uint32_t(in[0]) << 24) | (uint32_t(in[1]) << 16) | (uint32_t(in[2]) << 8) |
           uint32_t(in[3]);
}

void store32(unsigned char* out, uint32_t value) {
    out[0] = static_cast<unsigned char>(value >> 24);
    out[1] = static_cast<unsigned char>(value >> 16);
    out[2] = static_cast<unsigned char>(value >> 8);
    out[3] = static_cast<unsigned char>(value);
}

// Floats go through their bit patterns, so that every value, NaNs and
// negative zeros included, comes back exactly as it was written.
void storeFloats(unsigned char* out, const float* values, size_t count) {
    for (size_t i = 0; i < count; ++i)
        store32(out + 4 * i, std::bit_cast<uint32_t>(values[i]));
}

void loadFloats(const unsigned char* in, float* values, size_t count) {
    for (size_t i = 0; i < count; ++i)
        values[i] = std::bit_cast<float>(load32(in + 4 * i));
}

void storeMatrix(unsigned char* out, const T4dFltMatrix& m) {
    storeFloats(out, &m.m[0][0], 16);
}

bool loadMatrix(const unsigned char* in, T4dFltMatrix& m) {
    loadFloats(in, &m.m[0][0], 16);
    return std::all_of(&m.m[0][0], &m.m[0][0] + 16, [](float v) { return std::isfinite(v); });
}

void encodeHeader(const TiffImageHeader& h, unsigned char* out) {
    store32(out, h.version);
    store32(out + 4, h.width);
    store32(out + 8, h.height);
    store32(out + 12, h.channels);
    store32(out + 16, h.flags);
    store32(out + 20, static_cast<uint32_t>(h.face));
    storeMatrix(out + 24, h.worldToCamera);
    storeMatrix(out + 88, h.projection);
}

// What a header may hold; the reason it cannot, or empty.
std::string checkHeader(const TiffImageHeader& h) {
    if (h.version == 0 || h.version > TiffImageFile::kVersion)
        return fmt::format("version {} of the depth map format; this reader knows version {}",
                           h.version, TiffImageFile::kVersion);
    if (h.width == 0 || h.height == 0 || h.width > TiffImageFile::kMaxSide ||
        h.height > TiffImageFile::kMaxSide)
        return fmt::format("a size of {} x {}; a side must be 1 to {}", h.width, h.height,
                           TiffImageFile::kMaxSide);
    const uint64_t colourBytes = uint64_t(h.width) * h.height * 16;
    if (colourBytes > 0xFFFFFFFFull && (h.channels & TiffImageFile::kColourChannels))
        return fmt::format("{} x {} colour texels, more than a chunk can hold", h.width, h.height);
    if (uint64_t(h.width) * h.height * 4 > 0xFFFFFFFFull)
        return fmt::format("{} x {} texels, more than a chunk can hold", h.width, h.height);
    if (h.channels & ~(TiffImageFile::kColourChannels | TiffImageFile::kDepthChannel))
        return fmt::format("unknown channels (bits 0x{:X})", h.channels);
    if (h.flags & ~TiffImageFile::kPerspective)
        return fmt::format("unknown flags (bits 0x{:X})", h.flags);
    if (h.face < -1 || h.face > 5)
        return fmt::format("face {}; a face is -1 (a single map) or 0 to 5", h.face);
    return {};
}

} // namespace

TiffImageFile::TiffImageFile() = default;
TiffImageFile::~TiffImageFile() = default;

int TiffImageFile::fail(const std::string& what) {
    fError = fmt::format("{}: {}", fPath, what);
    return -1;
}

void TiffImageFile::close() {
    fReader.reset();
    if (fFile)
        fFile->abandon();
    fFile.reset();
    fHaveDepth = fHaveColour = false;
}

int TiffImageFile::open(const std::string& path, const char* mode) {
    close();
    fPath = path;
    fError.clear();
    if (!mode || std::string(mode) != "r")
        return fail(
            fmt::format("depth map files open for reading (\"r\"), not \"{}\"", mode ? mode : ""));
    fFile = std::make_unique<TiffFile>();
    if (fFile->open(path, "r") != 0) {
        fError = fFile->errorText().find(path) == std::string::npos
                     ? fmt::format("{}: {}", path, fFile->errorText())
                     : fFile->errorText();
        fFile.reset();
        return -1;
    }
    fReader = std::make_unique<TiffReader>(*fFile);
    return readStructure();
}

int TiffImageFile::openMemory(const void* data, size_t size, const std::string& name) {
    close();
    fPath = name;
    fError.clear();
    fReader = std::make_unique<TiffReader>(data, size);
    return readStructure();
}

int TiffImageFile::readStructure() {
    TiffReader& reader = *fReader;
    TiffItem form;
    if (!reader.next(form))
        return fail(reader.hasError() ? reader.error() : "the file is empty");
    if (form.id != kIffFOR4 || form.type != kFormType)
        return fail(fmt::format("not a depth map: it starts with {} {}, not FOR4 DMAP",
                                TiffChunkIdToString(form.id),
                                form.isGroup() ? TiffChunkIdToString(form.type) : ""));
    if (!reader.enter())
        return fail(reader.error());
    TiffItem item, header;
    bool haveHeader = false;
    while (reader.next(item)) {
        TiffItem* slot = nullptr;
        bool* seen = nullptr;
        if (item.id == kHeaderChunk) {
            slot = &header;
            seen = &haveHeader;
        } else if (item.id == kDepthChunk) {
            slot = &fDepth;
            seen = &fHaveDepth;
        } else if (item.id == kColourChunk) {
            slot = &fColour;
            seen = &fHaveColour;
        } else {
            continue;
        }
        if (*seen)
            return fail(fmt::format("two {} chunks (the second at offset {})",
                                    TiffChunkIdToString(item.id), item.offset));
        *slot = item;
        *seen = true;
    }
    if (reader.hasError())
        return fail(reader.error());
    if (!haveHeader)
        return fail("no DMHD header chunk");
    if (header.dataSize < kHeaderSize)
        return fail(
            fmt::format("the header chunk holds {} bytes, not {}", header.dataSize, kHeaderSize));
    unsigned char bytes[kHeaderSize];
    if (!reader.readData(header, bytes, 0, kHeaderSize))
        return fail(reader.error());
    TiffImageHeader& h = fHeader;
    h = TiffImageHeader();
    h.version = load32(bytes);
    h.width = load32(bytes + 4);
    h.height = load32(bytes + 8);
    h.channels = load32(bytes + 12);
    h.flags = load32(bytes + 16);
    h.face = static_cast<int32_t>(load32(bytes + 20));
    const std::string wrong = checkHeader(h);
    if (!wrong.empty())
        return fail("the header gives " + wrong);
    if (!loadMatrix(bytes + 24, h.worldToCamera) || !loadMatrix(bytes + 88, h.projection))
        return fail("the header's camera matrices hold values that are not finite numbers");

    // Each channel the header lists has its chunk, of the size its texels
    // take, and no chunk is there that it does not list.
    auto checkChunk = [&](bool listed, bool present, const TiffItem& item, const char* tag,
                          const char* what, uint64_t bytesPerTexel) {
        if (listed != present)
            return fail(
                listed ? fmt::format("the header lists {} but there is no {} chunk", what, tag)
                       : fmt::format("a {} chunk that the header's channels do not list", tag));
        const uint64_t bytes = texelCount() * bytesPerTexel;
        if (present && item.dataSize != bytes)
            return fail(fmt::format("the {} chunk holds {} bytes; {} x {} texels take {}", tag,
                                    item.dataSize, h.width, h.height, bytes));
        return 0;
    };
    if (checkChunk(hasDepth(), fHaveDepth, fDepth, "DPTH", "a depth channel", 4) != 0 ||
        checkChunk(hasColour(), fHaveColour, fColour, "RGBA", "colour channels", 16) != 0)
        return -1;
    return 0;
}

int TiffImageFile::readFloats(const TiffItem& item, float* out, size_t count) {
    // In place: the bytes land in the output and are turned into floats
    // there, a group of four at a time.
    auto* bytes = reinterpret_cast<unsigned char*>(out);
    if (!fReader || !fReader->readData(item, bytes, 0, uint32_t(count * 4)))
        return fail(fReader ? fReader->error() : "the file is not open");
    for (size_t i = 0; i < count; ++i)
        out[i] = std::bit_cast<float>(load32(bytes + 4 * i));
    return 0;
}

int TiffImageFile::readDepth(float* out) {
    if (!fHaveDepth)
        return fail("no depth channel");
    return readFloats(fDepth, out, texelCount());
}

int TiffImageFile::readColour(float* out) {
    if (!fHaveColour)
        return fail("no colour channels");
    return readFloats(fColour, out, texelCount() * 4);
}

int TiffImageFile::write(const std::string& path, const TiffImageHeader& header, const float* depth,
                         const float* rgba, std::string& error) {
    const std::string wrong = checkHeader(header);
    if (!wrong.empty()) {
        error = fmt::format("{}: cannot write a depth map with {}", path, wrong);
        return -1;
    }
    const bool withDepth = header.channels & kDepthChannel;
    const bool withColour = header.channels & kColourChannels;
    if ((withDepth && !depth) || (withColour && !rgba)) {
        error =
            fmt::format("{}: cannot write a depth map without the texels of its channels", path);
        return -1;
    }
    TiffFile file;
    auto failed = [&] {
        error = file.errorText().find(path) == std::string::npos
                    ? fmt::format("{}: {}", path, file.errorText())
                    : file.errorText();
        file.abandon();
        return -1;
    };
    if (file.open(path, "w") != 0 || file.beginGroup(kIffFOR4, kFormType) != 0)
        return failed();
    unsigned char head[kHeaderSize];
    encodeHeader(header, head);
    if (file.writeChunk(kHeaderChunk, head, kHeaderSize) != 0)
        return failed();
    // Texels go out in pieces through a buffer of bounded size.
    const size_t texels = size_t(header.width) * header.height;
    std::vector<unsigned char> piece;
    auto writeChunk = [&](TiffChunkId id, const float* values, size_t count) {
        if (file.beginChunk(id) != 0)
            return false;
        constexpr size_t kPiece = 16384;
        piece.resize(4 * std::min(count, kPiece));
        for (size_t done = 0; done < count; done += kPiece) {
            const size_t n = std::min(kPiece, count - done);
            storeFloats(piece.data(), values + done, n);
            if (file.write(piece.data(), 4 * n) != 4 * n)
                return false;
        }
        return file.endChunk() == 0;
    };
    if (withDepth && !writeChunk(kDepthChunk, depth, texels))
        return failed();
    if (withColour && !writeChunk(kColourChunk, rgba, texels * 4))
        return failed();
    if (file.endGroup() != 0 || file.close() != 0)
        return failed();
    return 0;
}
