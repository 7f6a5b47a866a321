#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "shading/scratch.h"

namespace {

TEST(ShadeScratch, SizesRoundToSixteenAndImpossibleOnesAreErrors) {
    EXPECT_EQ(TshadeScratch::bytes(3, 5), 16u); // 15 up to 16
    EXPECT_EQ(TshadeScratch::bytes(64, 48), 3072u);
    EXPECT_THROW(TshadeScratch::bytes(SIZE_MAX / 2, 3), TshadeScratchError); // wraps
    EXPECT_THROW(TshadeScratch::bytes(size_t(1) << 33, 1), TshadeScratchError);
    TshadeScratch scratch;
    EXPECT_THROW(scratch.take(size_t(1) << 40), TshadeScratchError);
}

TEST(ShadeScratch, AFrameTakesTheStackUpToItsShareThenTheArena) {
    TshadeScratch scratch;
    EXPECT_TRUE(scratch.fitsOnStack(TshadeScratch::kStackBytes - 16));
    EXPECT_TRUE(scratch.fitsOnStack(16));
    EXPECT_FALSE(scratch.fitsOnStack(16)); // the share is spent
    // A nested frame has a share of its own.
    TshadeScratch nested;
    EXPECT_TRUE(nested.fitsOnStack(TshadeScratch::kStackBytes));
}

TEST(ShadeScratch, FramesGiveBackInOrderAndTheArenaKeepsItsMemory) {
    auto round = [] {
        TshadeScratch outer;
        auto* a = static_cast<std::byte*>(outer.take(100000));
        std::memset(a, 1, 100000);
        {
            TshadeScratch inner;
            auto* b = static_cast<std::byte*>(inner.take(300000)); // past the first chunk
            std::memset(b, 2, 300000);
            EXPECT_EQ(reinterpret_cast<uintptr_t>(b) % 16, 0u);
        }
        auto* c = static_cast<std::byte*>(outer.take(1000));
        // The inner frame's memory went back; the outer frame's stays.
        EXPECT_EQ(a[99999], std::byte(1));
        return c;
    };
    std::byte* first = round();
    const size_t footprint = TshadeScratch::threadFootprint();
    EXPECT_GE(footprint, 400000u);
    // A second batch of the same shape takes the same memory: no growth.
    EXPECT_EQ(round(), first);
    EXPECT_EQ(TshadeScratch::threadFootprint(), footprint);
}

} // namespace
