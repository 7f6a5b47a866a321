// Image files into pixel maps: component order, rows from the bottom,
// conversion to 8 bits, and files that are not images.

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "host/image_file.h"
#include "support/temp_folder.h"
#include "test_paths.h"

namespace {

namespace fs = std::filesystem;

using Folder = TempFolder;

TEST(ImageFile, RowsComeFromTheBottomInBlueGreenRedAlphaOrder) {
    // A 3 x 2 binary PPM: the file's first row is the image's top.
    Folder dir("orvo-image");
    std::string ppm = "P6\n3 2\n255\n";
    for (int v = 1; v <= 18; ++v)
        ppm += char(v);
    auto file = TimageFile::identifyAndOpen(dir.write("a.ppm", ppm));
    ASSERT_TRUE(file);
    EXPECT_EQ(file->width(), 3u);
    EXPECT_EQ(file->channels(), 3u);
    EXPECT_FALSE(file->isFloat());
    TpixelMap map;
    ASSERT_TRUE(file->readPixelMap(map));
    EXPECT_EQ(map.channels(), 3u);
    // Row 0 is the file's last row: pixel (0, 0) is R 10, G 11, B 12.
    const uint8_t* p = map.pixel(0, 0);
    EXPECT_EQ(p[0], 12); // blue
    EXPECT_EQ(p[1], 11);
    EXPECT_EQ(p[2], 10);              // red
    EXPECT_EQ(p[3], 255);             // no alpha in the file: full
    EXPECT_EQ(map.pixel(2, 1)[2], 7); // top right: R 7
}

TEST(ImageFile, GreyAlphaDeepAndFloatFiles) {
    Folder dir("orvo-image");
    // Grey: the value in every component.
    auto grey = TimageFile::identifyAndOpen(
        dir.write("g.pgm", std::string("P5\n2 1\n255\n") + char(5) + char(250)));
    ASSERT_TRUE(grey);
    TpixelMap g;
    ASSERT_TRUE(grey->readPixelMap(g));
    EXPECT_EQ(g.channels(), 1u);
    EXPECT_EQ(g.pixel(1, 0)[0], 250);
    EXPECT_EQ(g.pixel(1, 0)[3], 250);

    // 16 bits: 0x8080 = 32896 is 32896 * 255 / 65535 = 128 in 8 bits.
    auto deep = TimageFile::identifyAndOpen(
        dir.write("d.pgm", std::string("P5\n1 1\n65535\n") + char(0x80) + char(0x80)));
    ASSERT_TRUE(deep);
    EXPECT_TRUE(deep->isDeeperThan8Bits());
    TpixelMap d;
    ASSERT_TRUE(deep->readPixelMap(d));
    EXPECT_EQ(d.pixel(0, 0)[0], 128);

    // Floats 2, 0.5, -1 as floats; in 8 bits clamped and rounded: 255,
    // 127.5 -> 128, 0.
    const float rgb[3] = {2.0f, 0.5f, -1.0f};
    auto pfm = TimageFile::identifyAndOpen(
        dir.write("f.pfm", std::string("PF\n1 1\n-1.0\n") +
                               std::string(reinterpret_cast<const char*>(rgb), sizeof rgb)));
    ASSERT_TRUE(pfm);
    EXPECT_TRUE(pfm->isFloat());
    TgenericPixelMap<float> f;
    ASSERT_TRUE(pfm->readPixelMap(f));
    EXPECT_EQ(f.pixel(0, 0)[2], 2.0f);
    EXPECT_EQ(f.pixel(0, 0)[0], -1.0f);
    EXPECT_EQ(f.pixel(0, 0)[3], 1.0f);
    TpixelMap b;
    ASSERT_TRUE(pfm->readPixelMap(b));
    EXPECT_EQ(b.pixel(0, 0)[2], 255);
    EXPECT_EQ(b.pixel(0, 0)[1], 128);
    EXPECT_EQ(b.pixel(0, 0)[0], 0);

    // The PNG stores R, G, B, A = 63, 127, 191, 204 (colour not multiplied
    // by alpha; multiplied in, red would read 63 * 0.8 = 50). The map keeps
    // the stored bytes.
    auto png =
        TimageFile::identifyAndOpen(std::string(ORVO_TEST_DATA_DIR) + "/host/data/images/rgba.png");
    ASSERT_TRUE(png);
    TpixelMap rgba;
    ASSERT_TRUE(png->readPixelMap(rgba));
    EXPECT_EQ(rgba.channels(), 4u);
    const uint8_t* p = rgba.pixel(1, 0);
    EXPECT_EQ(p[0], 191);
    EXPECT_EQ(p[1], 127);
    EXPECT_EQ(p[2], 63);
    EXPECT_EQ(p[3], 204);
}

TEST(ImageFile, WhatIsNotAnImageIsRefusedWithAReason) {
    Folder dir("orvo-image");
    std::string why;
    EXPECT_FALSE(TimageFile::identifyAndOpen((dir.path / "none.png").string(), &why));
    EXPECT_FALSE(why.empty());
    why.clear();
    EXPECT_FALSE(TimageFile::identifyAndOpen(dir.write("junk.png", "not a png at all"), &why));
    EXPECT_FALSE(why.empty());
    // A PNG cut short opens, but its pixels cannot be read.
    std::ifstream in(std::string(ORVO_TEST_DATA_DIR) + "/host/data/images/rgba.png",
                     std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    auto cut =
        TimageFile::identifyAndOpen(dir.write("cut.png", bytes.substr(0, bytes.size() - 30)));
    if (cut) {
        TpixelMap map;
        EXPECT_FALSE(cut->readPixelMap(map));
        EXPECT_FALSE(cut->errorText().empty());
    }
}

} // namespace
