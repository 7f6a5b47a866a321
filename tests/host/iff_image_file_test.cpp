// Depth map files: the bytes a file is made of, values read back bit for
// bit, and what a damaged file or a failed write gives.

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "host/iff/iff_image_file.h"
#include "support/temp_folder.h"

namespace fs = std::filesystem;

namespace {

class DepthFiles : public ::testing::Test {
protected:
    std::string path(const char* name) const { return fDir.file(name); }
    static std::vector<unsigned char> bytesOf(const std::string& file) {
        std::ifstream in(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    }
    static void writeBytes(const std::string& file, const std::vector<unsigned char>& bytes) {
        std::ofstream out(file, std::ios::binary);
        out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
    }

    TempFolder fDir{"orvo-dmap"};
};

uint32_t be32(const std::vector<unsigned char>& b, size_t at) {
    return (uint32_t(b[at]) << 24) | (uint32_t(b[at + 1]) << 16) | (uint32_t(b[at + 2]) << 8) |
           b[at + 3];
}

TiffImageHeader twoByOne() {
    TiffImageHeader h;
    h.width = 2;
    h.height = 1;
    h.channels = TiffImageFile::kDepthChannel;
    h.flags = TiffImageFile::kPerspective;
    h.face = 3;
    h.worldToCamera.m[3][2] = -4.0f;
    h.projection.m[0][0] = 0.5f;
    return h;
}

// FOR4 <size> DMAP, DMHD <152> header, DPTH <8> two floats: 12 + 8 + 152
// + 8 + 8 = 188 bytes, the group's size 188 - 8 = 180.
TEST_F(DepthFiles, AFileHasTheseBytes) {
    const float depth[2] = {-0.25f, 0.0f};
    std::string error;
    ASSERT_EQ(TiffImageFile::write(path("a.iff"), twoByOne(), depth, nullptr, error), 0) << error;
    const std::vector<unsigned char> b = bytesOf(path("a.iff"));
    ASSERT_EQ(b.size(), 188u);
    EXPECT_EQ(std::string(b.begin(), b.begin() + 4), "FOR4");
    EXPECT_EQ(be32(b, 4), 180u);
    EXPECT_EQ(std::string(b.begin() + 8, b.begin() + 16), "DMAPDMHD");
    EXPECT_EQ(be32(b, 16), 152u);
    // version, width, height, channels (bit 4), flags (bit 0), face
    EXPECT_EQ(be32(b, 20), 1u);
    EXPECT_EQ(be32(b, 24), 2u);
    EXPECT_EQ(be32(b, 28), 1u);
    EXPECT_EQ(be32(b, 32), 16u);
    EXPECT_EQ(be32(b, 36), 1u);
    EXPECT_EQ(be32(b, 40), 3u);
    // The camera's row 3, column 2 (float 14 of the matrix at 44): -4.0 is
    // 0xC0800000; the projection's first float (at 108): 0.5 is 0x3F000000.
    EXPECT_EQ(be32(b, 44 + 14 * 4), 0xC0800000u);
    EXPECT_EQ(be32(b, 108), 0x3F000000u);
    EXPECT_EQ(std::string(b.begin() + 172, b.begin() + 176), "DPTH");
    EXPECT_EQ(be32(b, 176), 8u);
    EXPECT_EQ(be32(b, 180), 0xBE800000u); // -0.25
    EXPECT_EQ(be32(b, 184), 0u);
}

TEST_F(DepthFiles, WrittenAndReadBackBitForBit) {
    // Values a writer must not touch: a negative zero, a NaN with a payload,
    // an infinity, subnormals, and two ordinary depths.
    const uint32_t patterns[6] = {0x80000000u, 0x7FC01234u, 0xFF800000u,
                                  0x00000001u, 0xBE800000u, 0xBD4CCCCDu};
    TiffImageHeader h = twoByOne();
    h.width = 3;
    h.height = 2;
    h.channels = TiffImageFile::kDepthChannel | 0x5u; // red, blue and depth
    float depth[6], colour[24];
    for (int i = 0; i < 6; ++i)
        depth[i] = std::bit_cast<float>(patterns[i]);
    for (int i = 0; i < 24; ++i)
        colour[i] = float(i) / 7.0f;
    std::string error;
    ASSERT_EQ(TiffImageFile::write(path("b.iff"), h, depth, colour, error), 0) << error;

    TiffImageFile in;
    ASSERT_EQ(in.open(path("b.iff"), "r"), 0) << in.errorText();
    EXPECT_EQ(in.header().width, 3u);
    EXPECT_EQ(in.header().height, 2u);
    EXPECT_EQ(in.header().channels, 0x15u);
    EXPECT_EQ(in.header().face, 3);
    EXPECT_TRUE(in.perspective());
    EXPECT_EQ(std::memcmp(&in.header().worldToCamera, &h.worldToCamera, sizeof h.worldToCamera), 0);
    float back[6], backColour[24];
    ASSERT_EQ(in.readDepth(back), 0);
    ASSERT_EQ(in.readColour(backColour), 0);
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(std::bit_cast<uint32_t>(back[i]), patterns[i]) << i;
    EXPECT_EQ(std::memcmp(backColour, colour, sizeof colour), 0);

    // What was read writes the same bytes again.
    ASSERT_EQ(TiffImageFile::write(path("c.iff"), in.header(), back, backColour, error), 0);
    EXPECT_EQ(bytesOf(path("b.iff")), bytesOf(path("c.iff")));
}

TEST_F(DepthFiles, DamagedFilesAreErrorsThatNameTheFile) {
    const float depth[2] = {-0.25f, 0.0f};
    std::string error;
    ASSERT_EQ(TiffImageFile::write(path("good.iff"), twoByOne(), depth, nullptr, error), 0);
    const std::vector<unsigned char> good = bytesOf(path("good.iff"));

    auto openError = [&](const std::vector<unsigned char>& bytes) {
        writeBytes(path("bad.iff"), bytes);
        TiffImageFile file;
        EXPECT_NE(file.open(path("bad.iff"), "r"), 0);
        EXPECT_EQ(file.errorText().rfind(path("bad.iff") + ": ", 0), 0u) << file.errorText();
        return file.errorText();
    };
    // Cut short inside the depth chunk.
    EXPECT_NE(openError({good.begin(), good.end() - 5}).find("runs past the end"),
              std::string::npos);
    // The header claims 3 texels a row: the depth chunk holds 2.
    std::vector<unsigned char> wide = good;
    wide[27] = 3;
    EXPECT_NE(openError(wide).find("DPTH chunk holds 8 bytes"), std::string::npos);
    // A face out of range.
    std::vector<unsigned char> face = good;
    face[43] = 9;
    EXPECT_NE(openError(face).find("face 9"), std::string::npos);
    // Not a depth map at all.
    EXPECT_NE(
        openError({'F', 'O', 'R', '4', 0, 0, 0, 4, 'S', 'w', 'a', 'p'}).find("not a depth map"),
        std::string::npos);
    EXPECT_NE(openError({}).find("empty"), std::string::npos);
    TiffImageFile missing;
    EXPECT_NE(missing.open(path("none.iff"), "r"), 0);
    EXPECT_NE(missing.errorText().find(path("none.iff")), std::string::npos);
}

TEST_F(DepthFiles, AFailedWriteLeavesNothing) {
    const float depth[2] = {-0.25f, 0.0f};
    std::string error;
    EXPECT_NE(TiffImageFile::write(path("no/such/folder/x.iff"), twoByOne(), depth, nullptr, error),
              0);
    EXPECT_NE(error.find("x.iff"), std::string::npos) << error;
    TiffImageHeader tooWide = twoByOne();
    tooWide.width = 0;
    EXPECT_NE(TiffImageFile::write(path("zero.iff"), tooWide, depth, nullptr, error), 0);
    EXPECT_EQ(std::distance(fs::directory_iterator(fDir.path), {}), 0);
}

} // namespace
