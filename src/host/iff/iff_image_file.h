#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "host/iff/iff_file.h"
#include "host/iff/iff_reader.h"
#include "host/types.h"

// Depth map files: an image of one light's view as an IFF file, kept so that
// a later render can use the shadows again without rendering them.
//
//   FOR4 <size> DMAP
//     DMHD <152>          the header, every field big-endian:
//                           u32 version (1), u32 width, u32 height,
//                           u32 channels: bits 0-3 red, green, blue, alpha;
//                                         bit 4 depth
//                           u32 flags: bit 0 the camera is perspective
//                           i32 face: -1 for a single map, 0 to 5 for a face
//                                     of a cube (+X, +Y, +Z, -X, -Y, -Z)
//                           f32 x 16 world to camera matrix (row vectors)
//                           f32 x 16 projection matrix
//     DPTH <w * h * 4>    with the depth channel: one f32 a texel, 1/z of
//                           what the texel sees in the camera's space (z is
//                           negative in front of it), 0 where it sees
//                           nothing; rows from the bottom up
//     RGBA <w * h * 16>   with any colour channel: four f32 a texel
//
// Other chunks in the group are skipped, so that later versions may add
// some. A reader checks every size against the file and every header field
// against its range before it reads a texel: a truncated or corrupt file is
// an error that names the file, never a read past its end.

struct TiffImageHeader {
    uint32_t version = 1;
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t channels = 0;
    uint32_t flags = 0;
    int32_t face = -1;
    T4dFltMatrix worldToCamera;
    T4dFltMatrix projection;
};

class TiffImageFile {
public:
    static constexpr TiffChunkId kFormType = TiffMakeTag("DMAP");
    static constexpr TiffChunkId kHeaderChunk = TiffMakeTag("DMHD");
    static constexpr TiffChunkId kDepthChunk = TiffMakeTag("DPTH");
    static constexpr TiffChunkId kColourChunk = TiffMakeTag("RGBA");
    static constexpr uint32_t kVersion = 1;
    static constexpr uint32_t kHeaderSize = 152;
    static constexpr uint32_t kColourChannels = 0x0Fu;
    static constexpr uint32_t kDepthChannel = 1u << 4;
    static constexpr uint32_t kPerspective = 1u << 0;
    // Sides beyond this are taken for corruption.
    static constexpr uint32_t kMaxSide = 65536;

    TiffImageFile();
    ~TiffImageFile();
    TiffImageFile(const TiffImageFile&) = delete;
    TiffImageFile& operator=(const TiffImageFile&) = delete;

    // Opens a file for reading ("r", the one mode) and checks its structure
    // and header. 0 on success; -1 with errorText() otherwise.
    int open(const std::string& path, const char* mode);
    // The same for a file held in memory, which must outlive this object;
    // `name` stands for the file in messages.
    int openMemory(const void* data, size_t size, const std::string& name);
    void close();

    const std::string& path() const { return fPath; }
    const TiffImageHeader& header() const { return fHeader; }
    bool hasDepth() const { return (fHeader.channels & kDepthChannel) != 0; }
    bool hasColour() const { return (fHeader.channels & kColourChannels) != 0; }
    bool perspective() const { return (fHeader.flags & kPerspective) != 0; }
    size_t texelCount() const { return size_t(fHeader.width) * fHeader.height; }

    // width x height values, rows from the bottom up. -1 without a depth
    // channel or when the file cannot be read.
    int readDepth(float* out);
    // Four values a texel. -1 without colour channels or on a failed read.
    int readColour(float* out);

    // "FILE: what went wrong", after a failure.
    const std::string& errorText() const { return fError; }

    // Writes a whole file. `depth` is needed with the depth channel and
    // `rgba` with any colour channel. The file takes its name only once it
    // is complete; a failed write leaves nothing behind. 0, or -1 with the
    // reason, which names the file, in `error`.
    static int write(const std::string& path, const TiffImageHeader& header, const float* depth,
                     const float* rgba, std::string& error);

private:
    int readStructure();
    int fail(const std::string& what);
    int readFloats(const TiffItem& item, float* out, size_t count);

    std::string fPath;
    std::unique_ptr<TiffFile> fFile;
    std::unique_ptr<TiffReader> fReader;
    TiffImageHeader fHeader;
    TiffItem fDepth, fColour;
    bool fHaveDepth = false, fHaveColour = false;
    std::string fError;
};
