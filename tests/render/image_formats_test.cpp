#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "render/image_io.h"

// The output formats a scene names: which the image library writes, how,
// and the file each makes, known by its first bytes.
namespace {

std::string firstBytes(const std::string& path, size_t count) {
    std::ifstream in(path, std::ios::binary);
    std::string bytes(count, '\0');
    in.read(bytes.data(), std::streamsize(count));
    bytes.resize(size_t(in.gcount()));
    return bytes;
}

TEST(ImageFormats, EveryWritableFormatWritesItsKindOfFile) {
    const auto dir = std::filesystem::temp_directory_path() /
                     ("orvo-image-formats-" + std::to_string(::getpid()));
    std::filesystem::create_directories(dir);
    TrenderedImage image;
    image.width = 4;
    image.height = 2;
    image.pixels.assign(4 * 2 * TrenderedImage::kChannels, 0.5f);
    struct Format {
        const char* keyword;
        int imageFormat;
        std::string magic;
    };
    const Format formats[] = {
        {"png", 32, "\x89PNG"},
        {"exr", 40, std::string("\x76\x2f\x31\x01", 4)},
        {"tif", 3, std::string("II*\0", 4)},
        {"tif16", 4, std::string("II*\0", 4)},
        {"jpg", 8, "\xff\xd8"},
        {"iff", 7, "FOR4"},
        {"iff16", 10, "FOR4"},
        {"tga", 19, ""},
        {"bmp", 20, "BM"},
        {"sgi", 5, "\x01\xda"},
        {"sgi16", 13, "\x01\xda"},
        {"gif", 0, "GIF8"},
        {"rla", 2, ""},
    };
    for (const Format& f : formats) {
        SCOPED_TRACE(f.keyword);
        EXPECT_EQ(OrvoImageFormatFromKeyword(f.keyword), f.imageFormat);
        TimageWriteSpec spec;
        std::string why;
        ASSERT_TRUE(OrvoImageWriteSpec(f.imageFormat, "", 0, 0, spec, why)) << why;
        const std::string path = (dir / (std::string("image.") + f.keyword)).string();
        OrvoWriteImage(path, image, spec);
        EXPECT_GT(std::filesystem::file_size(path), 12u);
        EXPECT_EQ(firstBytes(path, f.magic.size()), f.magic);
    }
    std::filesystem::remove_all(dir);
}

TEST(ImageFormats, WhatCannotBeWrittenAndWhatKeysName) {
    TimageWriteSpec spec;
    std::string why;
    // SoftImage (1), Cineon (11), AVI (23), PSD (31), SVG (62): no writer.
    for (int format : {1, 6, 9, 11, 12, 21, 22, 23, 30, 31, 33, 34, 35, 36, 60, 61, 62, 63, 99}) {
        EXPECT_FALSE(OrvoImageWriteSpec(format, "", 0, 0, spec, why)) << format;
        EXPECT_NE(why.find("cannot be written"), std::string::npos) << why;
    }
    // A custom or plug-in format is written by its key.
    ASSERT_TRUE(OrvoImageWriteSpec(51, "tifu", 0, 0, spec, why)) << why;
    EXPECT_EQ(spec.format, "tiff");
    ASSERT_TRUE(OrvoImageWriteSpec(51, "exr", 1, 4, spec, why)) << why;
    EXPECT_EQ(spec.format, "openexr");
    EXPECT_EQ(spec.bits, 16); // exrPixelType 1: half
    EXPECT_EQ(spec.compression, "piz");
    EXPECT_FALSE(OrvoImageWriteSpec(50, "sony", 0, 0, spec, why));
    ASSERT_TRUE(OrvoImageWriteSpec(40, "", 0, 3, spec, why));
    EXPECT_EQ(spec.bits, 32);
    EXPECT_EQ(spec.compression, "zip");
    EXPECT_EQ(OrvoImageFormatFromKeyword("tiff"), 3);
    EXPECT_EQ(OrvoImageFormatFromKeyword("psd"), -1);
}

} // namespace
