#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "shading/opus.h"
#include "shading/sample.h"

namespace {

// A sample with the fields of a compiled option: outColor at 40, uvCoord at
// 52, and nothing else (the table's last entry is the size).
struct SmallSample {
    unsigned offsets[65] = {};
    alignas(16) std::byte storage[64] = {};
    Tsample& sample = *reinterpret_cast<Tsample*>(storage);

    SmallSample() {
        offsets[TsampleFields::outColor] = 40;
        offsets[TsampleFields::uvCoord] = 52;
        offsets[64] = 60;
        sample.initialize(nullptr, nullptr, offsets);
    }
};

TEST(SampleTables, NamesOffsetsAndSizesFollowTheStaticLayout) {
    const char* const* names = Tsample::fieldNames();
    int count = 0;
    while (names[count][0])
        ++count;
    EXPECT_EQ(count, 64);
    EXPECT_STREQ(names[21], "lightData");
    EXPECT_EQ(Tsample::fieldNumber("illuminationIndex"), 56);
    EXPECT_EQ(Tsample::fieldNumber("nonsense"), -1);
    EXPECT_EQ(Tsample::staticOffsets()[TsampleFields::outMatteOpacity], 524u);
    EXPECT_EQ(Tsample::staticOffsets()[64], 728u);
    // Each field ends before the next begins.
    for (unsigned i = 0; i + 1 < 64; ++i)
        EXPECT_LE(Tsample::staticOffsets()[i] + Tsample::fieldSizes()[i],
                  Tsample::staticOffsets()[i + 1])
            << names[i];
}

TEST(SampleTables, TheDefaultSampleHoldsTheDocumentedDefaults) {
    const Tsample& d = Tsample::defaultSample();
    EXPECT_EQ(d.normalCamera()->z, 1.0f);
    EXPECT_EQ(d.rayDirection()->z, -1.0f);
    EXPECT_EQ(d.tangentVCamera()->y, 1.0f);
    EXPECT_EQ(*d.illuminationIndex(), -1);
    EXPECT_EQ(*d.easMask(), 0xffffffffu);
    EXPECT_TRUE(*d.receiveShadows());
    EXPECT_FALSE(*d.flippedNormal());
    EXPECT_EQ(*d.translucenceDepth(), 0.5f);
    EXPECT_EQ(*d.particleLifespan(), 100.0f);
    EXPECT_EQ(d.outMatteOpacity()->y, 1.0f);
    EXPECT_EQ(d.matrixObjectToWorld()->m[2][2], 1.0f);
    EXPECT_EQ(d.matrixObjectToWorld()->m[3][2], 0.0f);
    EXPECT_TRUE(d.lightData()->ambient);
    EXPECT_FALSE(d.lightData()->specular);
    EXPECT_EQ(*d.numShadingSamples(), 1);
    EXPECT_EQ(*d.mediumRefractiveIndex(), 1.0f);
}

TEST(SampleAccess, AbsentFieldsSetTheirBitAndReadTheDefault) {
    SmallSample s;
    s.sample.setOutColor(T3Float{0.5f, 0.25f, 1.0f});
    EXPECT_TRUE(s.sample.isSet(TsampleFields::outColor));
    EXPECT_EQ(s.sample.outColor()->y, 0.25f);

    s.sample.setNormalCamera(T3Float{1, 0, 0}); // no slot for it
    EXPECT_TRUE(s.sample.isSet(TsampleFields::normalCamera));
    EXPECT_EQ(s.sample.normalCamera()->z, 1.0f); // still the default
    EXPECT_EQ(s.sample.normalCamera(), Tsample::defaultSample().normalCamera());

    s.sample.setUvCoord(0.75f, 0.125f);
    EXPECT_EQ(s.sample.uvCoord()->x, 0.75f);
}

TEST(SampleAccess, ConfirmSetFillsOnlyWhatIsMissing) {
    SmallSample s;
    float garbage[3] = {9, 9, 9};
    std::memcpy(s.storage + 40, garbage, sizeof garbage);
    std::memcpy(s.storage + 52, garbage, 8);
    s.sample.setUvCoord(0.5f, 0.5f);
    TbitField64 fields;
    fields.set(TsampleFields::outColor);
    fields.set(TsampleFields::uvCoord);
    fields.set(TsampleFields::normalCamera); // no slot: nothing to write
    s.sample.confirmSet(fields);
    EXPECT_EQ(s.sample.outColor()->x, 0.0f); // the default replaced the garbage
    EXPECT_EQ(s.sample.uvCoord()->x, 0.5f);  // a set field is left alone
}

TEST(SampleAccess, ConfirmSetForABatchKeepsWhatEachSampleSet) {
    // Three samples of one layout (outColor at 40, uvCoord at 52) full of
    // garbage. The first and the third have uvCoord set; the second has
    // outColor set instead, so the copies listed for the first don't fit it.
    unsigned offsets[65] = {};
    offsets[TsampleFields::outColor] = 40;
    offsets[TsampleFields::uvCoord] = 52;
    offsets[64] = 60;
    alignas(16) std::byte storage[3][64];
    std::memset(storage, 0x7f, sizeof storage);
    Tsample* samples[3];
    for (int i = 0; i < 3; ++i) {
        samples[i] = reinterpret_cast<Tsample*>(storage[i]);
        samples[i]->initialize(nullptr, nullptr, offsets);
    }
    samples[0]->setUvCoord(0.25f, 0.5f);
    samples[1]->setOutColor(T3Float{0.5f, 0.75f, 1.0f});
    samples[2]->setUvCoord(0.125f, 0.0f);
    TbitField64 fields;
    fields.set(TsampleFields::outColor);
    fields.set(TsampleFields::uvCoord);
    Tsample::confirmSet(fields, 3, samples);
    // The first and the third: outColor is the default 0, 0, 0, uvCoord
    // is theirs.
    for (int i : {0, 2}) {
        EXPECT_EQ(samples[i]->outColor()->x, 0.0f) << i;
        EXPECT_EQ(samples[i]->outColor()->z, 0.0f) << i;
    }
    EXPECT_EQ(samples[0]->uvCoord()->x, 0.25f);
    EXPECT_EQ(samples[2]->uvCoord()->x, 0.125f);
    // The second keeps its colour and gets the default uvCoord 0, 0.
    EXPECT_EQ(samples[1]->outColor()->y, 0.75f);
    EXPECT_EQ(samples[1]->uvCoord()->x, 0.0f);
    EXPECT_EQ(samples[1]->uvCoord()->y, 0.0f);
}

TEST(SampleAccess, IlluminationSlotsGroupNeighboursWithTheSameIndex) {
    // Five samples with illuminationIndex 3, 3, -1, -1, 3: the first two
    // share a slot, each -1 has its own, and the last 3 is a new slot since
    // only neighbours share.
    SmallSample s[5];
    unsigned offsets[65] = {};
    offsets[TsampleFields::illuminationIndex] = 40;
    offsets[64] = 48;
    const int16_t index[5] = {3, 3, -1, -1, 3};
    Tsample* samples[5];
    for (int i = 0; i < 5; ++i) {
        s[i].sample.initialize(nullptr, nullptr, offsets);
        s[i].sample.setIlluminationIndex(index[i]);
        samples[i] = &s[i].sample;
    }
    uint16_t slotOf[5], first[5];
    EXPECT_EQ(TshadingOpus::illuminationSlots(5, samples, slotOf, first), 4u);
    EXPECT_EQ(slotOf[1], 0);
    EXPECT_EQ(slotOf[2], 1);
    EXPECT_EQ(slotOf[3], 2);
    EXPECT_EQ(slotOf[4], 3);
    EXPECT_EQ(first[3], 4);

    // With no field at all every sample reads the default -1: own slots.
    unsigned none[65] = {};
    none[64] = 40;
    for (int i = 0; i < 5; ++i)
        s[i].sample.initialize(nullptr, nullptr, none);
    EXPECT_EQ(TshadingOpus::illuminationSlots(5, samples, slotOf, first), 5u);
}

TEST(SampleAccess, DeepRasterCopiesRoundTrip) {
    SmallSample from, to;
    from.sample.setOutColor(T3Float{0.1f, 0.2f, 0.3f});
    from.sample.setUvCoord(0.4f, 0.6f);
    unsigned raster[64] = {};
    raster[TsampleFields::outColor] = 4;
    raster[TsampleFields::uvCoord] = 16;
    raster[TsampleFields::normalCamera] = 24; // absent in the sample: the default goes out
    char record[40] = {};
    from.sample.copyToDeepRaster(raster, record, TsampleFields::uvCoord);
    float normal[3];
    std::memcpy(normal, record + 24, sizeof normal);
    EXPECT_EQ(normal[2], 1.0f);
    float skipped = 1.0f;
    std::memcpy(&skipped, record + 16, 4);
    EXPECT_EQ(skipped, 0.0f); // the skipped field was not written
    to.sample.fillFromDeepRaster(raster, record, ~0u);
    EXPECT_EQ(to.sample.outColor()->z, 0.3f);
}

} // namespace
