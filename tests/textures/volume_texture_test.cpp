#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "textures/noise_functions.h"
#include "textures/noise_test_support.h"
#include "textures/vector_noise_4d.h"
#include "textures/volume_texture.h"

namespace {

using orvo_test::ScopedNoiseTable;

// Records where each octave was asked for, and answers a fixed noise.
class Recorder : public TvolumeTexture {
public:
    float getNoise(float x, float y, float z, float time, int octave) const override {
        calls.push_back({x, y, z, time, float(octave)});
        return answer;
    }
    struct Call {
        float x, y, z, time, octave;
    };
    mutable std::vector<Call> calls;
    float answer = 0.5f;
    using TvolumeTexture::applyRotate;
};

TEST(VolumeTexture, SumOfOctaves) {
    Recorder t;
    t.setHarmonics(3);
    t.setGain(0.8f);
    t.setAmpRatio(0.5f);
    t.setRatio(0.5f); // each octave at twice the frequency
    t.setFrequency(2.0f);
    t.setOffset({1.0f, 0.0f, 0.0f});
    t.setOrigin({0.0f, 10.0f, 0.0f});
    // Each octave 0.5: sum = 0.5 (0.8 + 0.4 + 0.2) = 0.7, then * 0.5 + 0.5 = 0.85.
    EXPECT_FLOAT_EQ(t.getValue(1.25f, 0.5f, 0.0f, 1.0f), 0.85f);
    ASSERT_EQ(t.calls.size(), 3u);
    // q = 2 * (1.25 - 1) + 0 = 0.5, 2 * 0.5 + 10 = 11; doubled per octave, and
    // time * sqrt(2).
    EXPECT_FLOAT_EQ(t.calls[0].x, 0.5f);
    EXPECT_FLOAT_EQ(t.calls[0].y, 11.0f);
    EXPECT_FLOAT_EQ(t.calls[2].x, 2.0f);
    EXPECT_FLOAT_EQ(t.calls[1].time, std::sqrt(2.0f));
    EXPECT_EQ(t.calls[2].octave, 2.0f);
    // Only the top is clamped: a threshold of 0.3 gives min(1, 1.15).
    t.setThreshold(0.3f);
    EXPECT_EQ(t.getValue(0.0f, 0.0f, 0.0f, 0.0f), 1.0f);
    t.setThreshold(-2.0f);
    EXPECT_FLOAT_EQ(t.getValue(0.0f, 0.0f, 0.0f, 0.0f), -1.15f);
}

TEST(VolumeTexture, EdgeParameters) {
    Recorder t;
    // No octave: min(1, 0.5 + threshold), or the threshold alone if absolute.
    t.setHarmonics(0);
    t.setThreshold(0.2f);
    EXPECT_FLOAT_EQ(t.getValue(0.3f, 0.3f, 0.3f, 0.0f), 0.7f);
    t.setAbsolute(true);
    EXPECT_FLOAT_EQ(t.getValue(0.3f, 0.3f, 0.3f, 0.0f), 0.2f);
    t.setThreshold(3.0f);
    EXPECT_EQ(t.getValue(0.3f, 0.3f, 0.3f, 0.0f), 1.0f);

    // Ratio 0: the octave factor is 100000, not a division by zero.
    t.setThreshold(0.0f);
    t.setHarmonics(2);
    t.setRatio(0.0f);
    t.getValue(1.0f, 0.0f, 0.0f, 1.0f);
    ASSERT_EQ(t.calls.size(), 2u);
    EXPECT_FLOAT_EQ(t.calls[1].x, 100000.0f);
    EXPECT_FLOAT_EQ(t.calls[1].time, std::sqrt(100000.0f));

    // A zero scale becomes 1e-5.
    t.setScale({0.0f, 2.0f, 1.0f});
    EXPECT_EQ(t.scale.x, 1e-5f);
    EXPECT_EQ(t.scale.y, 2.0f);
}

TEST(VolumeTexture, ImplodeAndRotate) {
    Recorder t;
    t.setHarmonics(1);
    // implode 1: pow(r, 0) / r brings the point to unit distance from the
    // centre: (3, 4, 0) -> (0.6, 0.8, 0).
    t.setImplode(1.0f);
    t.getValue(3.0f, 4.0f, 0.0f, 0.0f);
    EXPECT_FLOAT_EQ(t.calls[0].x, 0.6f);
    EXPECT_FLOAT_EQ(t.calls[0].y, 0.8f);
    // Within 1e-5 of zero nothing happens.
    t.setImplode(1e-6f);
    t.getValue(3.0f, 4.0f, 0.0f, 0.0f);
    EXPECT_FLOAT_EQ(t.calls[1].x, 3.0f);

    // About z by -90 degrees: x' = 1 cos(-90) - 0 = 0, y' = 0 + 1 sin(-90) = -1.
    float x = 1.0f, y = 0.0f, z = 0.0f;
    t.setRotate({0.0f, 0.0f, 90.0f});
    t.applyRotate(x, y, z);
    EXPECT_NEAR(x, 0.0f, 1e-6f);
    EXPECT_NEAR(y, -1.0f, 1e-6f);
    // About y by +90, mixing x and z: (1, 0, 0) -> (0, 0, 1).
    x = 1.0f, y = 0.0f, z = 0.0f;
    t.setRotate({0.0f, 90.0f, 0.0f});
    t.applyRotate(x, y, z);
    EXPECT_NEAR(x, 0.0f, 1e-6f);
    EXPECT_NEAR(z, 1.0f, 1e-6f);
}

TEST(PerlinTexture, DriftsAlongTheOctaveDirection) {
    ScopedNoiseTable table;
    // Octave 0 reads triples from entry 0: (0, 0, 0) has no length, so the
    // next triple (0, 2, 0) gives the direction (0, 1, 0).
    table[4] = 2.0f;
    table[32 * 8] = 1.0f; // a bump at lattice node (0, 8, 0)
    const T3Float d = TperlinTexture::octaveDirection(0);
    EXPECT_EQ(d.y, 1.0f);
    TperlinTexture p;
    // m = octave + time = 0.25: noise3(0, 0 + 0.25, 0) sits on the node:
    // 1 along each axis, * 0.125.
    EXPECT_FLOAT_EQ(p.getNoise(0.0f, 0.0f, 0.0f, 0.25f, 0), 0.125f);
    EXPECT_FLOAT_EQ(p.getNoise2(0.0f, 0.0f, 0.25f, 0), 0.125f);
    // Animated: noise4 of the table, whatever the direction.
    p.setAnimated(true);
    p.setTimeSteps(10);
    EXPECT_EQ(p.getNoise(0.1f, 0.2f, 0.3f, 0.4f, 0), Tnoise::noise4(0.1f, 0.2f, 0.3f, 0.4f, 10));
}

TEST(BillowTexture, BlobsWorkedByHand) {
    ScopedNoiseTable table; // centres at 0.5 when randomness is 0
    TbillowTexture b;
    b.setRandomness(0.0f);
    b.setDensity(1.0f); // d = min(1, 2 - 0) = 1, w = 2
    // u = 0.54: 20 * 0.54 = 10.8, fraction 0.8. Own blob: e = 0.3^2 * 2 =
    // 0.18; the blob of the next cell: (0.8 - 1 - 0.5)^2 * 2 = 0.98.
    const float u = 0.54f, v = 0.525f;     // v on a cell centre
    b.setFalloff(TbillowTexture::kLinear); // 1 - sqrt(0.18) + 1 - sqrt(0.98)
    EXPECT_NEAR(b.getNoise2(u, v, 0.0f, 0), 0.575736f + 0.010050f, 1e-4f);
    b.setFalloff(TbillowTexture::kFast); // 0.82 + 0.02
    EXPECT_NEAR(b.getNoise2(u, v, 0.0f, 0), 0.84f, 1e-4f);
    b.setFalloff(TbillowTexture::kSmooth); // (2 sqrt(e) - 3) e + 1
    EXPECT_NEAR(b.getNoise2(u, v, 0.0f, 0), 0.612735f + 0.000302f, 1e-4f);
    b.setFalloff(TbillowTexture::kBubble); // 1.1 * 0.18; 1 - (1.078 - 1) * 10
    EXPECT_NEAR(b.getNoise2(u, v, 0.0f, 0), 0.198f + 0.22f, 1e-4f);
    // The three-axis form on a cell centre in z agrees.
    b.setFalloff(TbillowTexture::kFast);
    EXPECT_NEAR(b.getNoise(u, v, 0.025f, 0.0f, 0), 0.84f, 1e-4f);
    // Spots: (table + 1) * 0.5 + 0.5 = 1 for a zero table; size likewise.
    b.setSpottyness(0.5f);
    b.setSizeRand(0.5f); // e / ((0 + 1) * 0.5 * 0.5 + 0.5) = e / 0.75
    EXPECT_NEAR(b.getNoise2(u, v, 0.0f, 0), 1.0f - 0.24f, 1e-4f);
}

TEST(BillowTexture, NoDensityNoBlobs) {
    TbillowTexture b;
    b.setRandomness(2.0f); // min(1, 2 - 2) = 0 < 0.0001
    b.setDensity(1.0f);
    for (float u : {0.0f, 0.3f, 0.77f}) {
        EXPECT_EQ(b.getNoise2(u, 0.4f, 0.0f, 0), 0.0f);
        EXPECT_EQ(b.getNoise(u, 0.4f, 0.9f, 1.0f, 3), 0.0f);
    }
}

TEST(CosTexture, WavesFromTheTable) {
    ScopedNoiseTable table;
    // Octave 0: the triple (1, 0, 0) and phase 0.5, then a zero triple that
    // counts no wave, then (0, 0, -2) -> (0, 0, -1) with phase 0.
    table[0] = 1.0f;
    table[3] = 0.5f;
    table[9] = -2.0f;
    TcosTexture c;
    c.setNWaves(1);
    // cos(2 pi 0.25 + 0.5 pi) = cos(pi) = -1.
    EXPECT_NEAR(c.getNoise(0.25f, 0.7f, 0.1f, 0.0f, 0), -1.0f, 1e-6f);
    c.setNWaves(2);
    // (cos(pi) + cos(-2 pi 0.5)) / 2 = (-1 - 1) / 2.
    EXPECT_NEAR(c.getNoise(0.25f, 0.7f, 0.5f, 0.0f, 0), -1.0f, 1e-6f);
    // Time adds time * pi to each phase: (cos(2 pi) + cos(pi - pi)) / 2 = 1.
    EXPECT_NEAR(c.getNoise(0.25f, 0.0f, 0.5f, 1.0f, 0), 1.0f, 1e-5f);
    // No waves: 0 / 0.
    c.setNWaves(0);
    EXPECT_TRUE(std::isnan(c.getNoise(0.1f, 0.2f, 0.3f, 0.0f, 0)));
}

TEST(VectorNoise4d, FieldAtCellCornersAndPeriods) {
    T4dVectorNoise field;
    T4dVectorNoise::initTable();
    const int8_t* data = T4dVectorNoise::data();
    ASSERT_NE(data, nullptr);
    EXPECT_GT(T4dVectorNoise::maxMagnitude(), 0.0f);
    // The largest vector is scaled to 127.
    float largest = 0.0f;
    for (int n = 0; n < 65536; ++n) {
        const float x = data[n * 4], y = data[n * 4 + 1], z = data[n * 4 + 2];
        largest = std::max(largest, std::sqrt(x * x + y * y + z * z));
    }
    EXPECT_NEAR(largest, 127.0f, 1.0f);
    // A cell corner reads its cell: p = (1/8, 0, 0) is cell (1, 0, 0, 0).
    const T3Float a = field.getNoise({0.125f, 0.0f, 0.0f}, 0.0f);
    EXPECT_FLOAT_EQ(a.x, float(data[4]) / 127.0f);
    EXPECT_FLOAT_EQ(a.z, float(data[6]) / 127.0f);
    EXPECT_FLOAT_EQ(field.getNoiseSmooth({0.125f, 0.0f, 0.0f}, 0.0f).y, float(data[5]) / 127.0f);
    // Period 2 in space and time.
    const T3Float b = field.getNoiseSmoothTime({0.31f, 0.77f, 1.4f}, 0.6f);
    const T3Float c = field.getNoiseSmoothTime({2.31f, -1.23f, 1.4f}, 2.6f);
    EXPECT_NEAR(b.x, c.x, 1e-5f);
    EXPECT_NEAR(b.y, c.y, 1e-5f);
    EXPECT_EQ(T4dVectorNoise::instances(), 1);
}

} // namespace
