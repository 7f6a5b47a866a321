#include <gtest/gtest.h>

#include <cstdint>
#include <thread>
#include <vector>

#include "shading/hammersley.h"

namespace {

const TrenderHammersley& H() {
    return TrenderHammersley::theHammersley();
}

std::vector<unsigned> asVector(std::span<const uint8_t> table) {
    return std::vector<unsigned>(table.begin(), table.end());
}

TEST(Thammersley, TableSizesArePowersOfTheBaseWithinTheCap) {
    // Largest b^k <= 65,536: 2^16; 3^10 = 59,049 (3^11 = 177,147);
    // 11^4 = 14,641 (11^5 = 161,051); 13^4 = 28,561 (13^5 = 371,293).
    EXPECT_EQ(Thammersley::maxEntry(2), 65536u);
    EXPECT_EQ(Thammersley::maxEntry(3), 59049u);
    EXPECT_EQ(Thammersley::maxEntry(11), 14641u);
    EXPECT_EQ(Thammersley::maxEntry(13), 28561u);
    EXPECT_EQ(Thammersley(3, 2).size(), 9u);
    EXPECT_EQ(Thammersley(13, Thammersley::maxDigits).size(), 28561u);
    EXPECT_EQ(Thammersley2(3).size(), 8u);
    EXPECT_EQ(Thammersley2(40).size(), 65536u); // digits capped at 16
}

TEST(Thammersley, ValuesAreDigitsMirroredAboutThePoint) {
    // Base 3, 9 entries: 5 = 12 in base 3 -> 0.21 = 2/3 + 1/9 = 7/9;
    // 7 = 21 -> 0.12 = 1/3 + 2/9 = 5/9.
    const Thammersley three(3, 2);
    EXPECT_FLOAT_EQ(three.value(1), 1.0f / 3);
    EXPECT_FLOAT_EQ(three.value(3), 1.0f / 9);
    EXPECT_FLOAT_EQ(three.value(5), 7.0f / 9);
    EXPECT_FLOAT_EQ(three.value(7), 5.0f / 9);
    // Base 2, 8 entries: 6 = 110 -> 0.011 = 3/8.
    const Thammersley2 two(3);
    EXPECT_FLOAT_EQ(two.value(1), 0.5f);
    EXPECT_FLOAT_EQ(two.value(3), 0.75f);
    EXPECT_FLOAT_EQ(two.value(6), 0.375f);
    // 11 = 102 in base 3 -> 0.201 = 2/3 + 1/27 = 19/27.
    EXPECT_DOUBLE_EQ(Thammersley::radicalInverse(11, 3), 19.0 / 27);
    EXPECT_DOUBLE_EQ(Thammersley::radicalInverse(6, 2), 0.375);
}

TEST(TrenderHammersley, AccessorsWrapAtTheirPeriods) {
    const TrenderHammersley& h = H();
    EXPECT_EQ(h.volumePeriod(), 28561u);
    EXPECT_EQ(h.motionPeriod(), 14641u);
    EXPECT_EQ(h.thetaPeriod(), 65536u);
    EXPECT_EQ(h.phiPeriod(), 59049u);
    // Index 1 is the first digit's weight in each base.
    EXPECT_FLOAT_EQ(h.volumeValue(1), 1.0f / 13);
    EXPECT_FLOAT_EQ(h.motionValue(1), 1.0f / 11);
    EXPECT_FLOAT_EQ(h.thetaValue(1), 0.5f);
    EXPECT_FLOAT_EQ(h.phiValue(1), 1.0f / 3);
    EXPECT_FLOAT_EQ(h.volumeValue(28561 + 1), 1.0f / 13);
    EXPECT_FLOAT_EQ(h.motionValue(2 * 14641 + 1), 1.0f / 11);
    EXPECT_FLOAT_EQ(h.thetaValue(65536 + 3), 0.75f);
    EXPECT_FLOAT_EQ(h.phiValue(59049 + 3), 1.0f / 9);
    EXPECT_EQ(h.volumeValue(28561), 0.0f);
    // The last index has every digit at its top: 1 - 1/period, still below 1.
    EXPECT_LT(h.volumeValue(28560), 1.0f);
    EXPECT_FLOAT_EQ(h.volumeValue(28560), 1.0f - 1.0f / 28561);
    EXPECT_LT(h.thetaValue(65535), 1.0f);
    EXPECT_LT(h.phiValue(59048), 1.0f);
}

TEST(TrenderHammersley, ScramblePermutationsOfSmallBases) {
    const TrenderHammersley& h = H();
    // 2: given. 3: (0, 1) with 1 in the middle, 1 raised to 2.
    // 4 = 2 x 2: 2p = (0, 2), then 2p + 1 = (1, 3).
    // 5: (0, 2, 1, 3) raised at >= 2 is (0, 3, 1, 4), 2 put in the middle.
    // 6 = 2 x 3: (0, 2, 4) then (1, 3, 5).
    // 7: 6's (0, 2, 4, 1, 3, 5) raised at >= 3 is (0, 2, 5, 1, 4, 6), 3 in the middle.
    EXPECT_EQ(asVector(h.permutation(2)), (std::vector<unsigned>{0, 1}));
    EXPECT_EQ(asVector(h.permutation(3)), (std::vector<unsigned>{0, 1, 2}));
    EXPECT_EQ(asVector(h.permutation(4)), (std::vector<unsigned>{0, 2, 1, 3}));
    EXPECT_EQ(asVector(h.permutation(5)), (std::vector<unsigned>{0, 3, 2, 1, 4}));
    EXPECT_EQ(asVector(h.permutation(6)), (std::vector<unsigned>{0, 2, 4, 1, 3, 5}));
    EXPECT_EQ(asVector(h.permutation(7)), (std::vector<unsigned>{0, 2, 5, 3, 1, 4, 6}));
    // 6's inverse: 1 is at 3, 2 at 1, 3 at 4, 4 at 2.
    EXPECT_EQ(asVector(h.inversePermutation(6)), (std::vector<unsigned>{0, 3, 1, 4, 2, 5}));
    EXPECT_TRUE(h.permutation(1).empty());
    EXPECT_TRUE(h.permutation(32).empty());
}

TEST(TrenderHammersley, EveryScrambleIsAPermutationUndoneByItsInverse) {
    const TrenderHammersley& h = H();
    for (unsigned base = 2; base <= TrenderHammersley::kMaxScrambleBase; ++base) {
        const auto forward = h.permutation(base);
        const auto inverse = h.inversePermutation(base);
        ASSERT_EQ(forward.size(), base);
        ASSERT_EQ(inverse.size(), base);
        std::vector<int> seen(base, 0);
        for (unsigned i = 0; i < base; ++i) {
            ASSERT_LT(forward[i], base) << "base " << base;
            ++seen[forward[i]];
            EXPECT_EQ(inverse[forward[i]], i) << "base " << base;
            EXPECT_EQ(forward[inverse[i]], i) << "base " << base;
        }
        for (unsigned v = 0; v < base; ++v)
            EXPECT_EQ(seen[v], 1) << "base " << base << " value " << v;
        // Odd bases keep their middle digit; all keep 0 and the top digit.
        if (base % 2 == 1) {
            EXPECT_EQ(forward[(base - 1) / 2], (base - 1) / 2) << "base " << base;
        }
        EXPECT_EQ(forward[0], 0u);
        EXPECT_EQ(forward[base - 1], base - 1);
    }
}

TEST(TrenderHammersley, RadicalInverseUnscrambled) {
    const TrenderHammersley& h = H();
    // Base 2 over 8: 1 = 001 -> 100 = 4/8; 2 -> 2/8; 3 = 011 -> 110 = 6/8;
    // 5 = 101 -> 5/8; 6 = 110 -> 011 = 3/8; 9 wraps to 1.
    EXPECT_DOUBLE_EQ(h.radicalInverse(1, 2, 8, false), 0.5);
    EXPECT_DOUBLE_EQ(h.radicalInverse(2, 2, 8, false), 0.25);
    EXPECT_DOUBLE_EQ(h.radicalInverse(3, 2, 8, false), 0.75);
    EXPECT_DOUBLE_EQ(h.radicalInverse(5, 2, 8, false), 0.625);
    EXPECT_DOUBLE_EQ(h.radicalInverse(6, 2, 8, false), 0.375);
    EXPECT_DOUBLE_EQ(h.radicalInverse(9, 2, 8, false), 0.5);
    EXPECT_DOUBLE_EQ(TrenderHammersley::radicalInverse2(3, 8), 0.75);
    EXPECT_DOUBLE_EQ(TrenderHammersley::radicalInverse2(6, 8), 0.375);
    EXPECT_DOUBLE_EQ(TrenderHammersley::radicalInverse2(1, 2), 0.5);
    // Base 3 over 9 (its permutation is the identity): 1 -> 3/9; 2 -> 6/9;
    // 3 = 10 -> 01 = 1/9; 4 = 11 -> 4/9; 5 = 12 -> 21 = 7/9.
    EXPECT_DOUBLE_EQ(h.radicalInverse(1, 3, 9, false), 3.0 / 9);
    EXPECT_DOUBLE_EQ(h.radicalInverse(2, 3, 9, false), 6.0 / 9);
    EXPECT_DOUBLE_EQ(h.radicalInverse(3, 3, 9, false), 1.0 / 9);
    EXPECT_DOUBLE_EQ(h.radicalInverse(4, 3, 9, false), 4.0 / 9);
    EXPECT_DOUBLE_EQ(h.radicalInverse(5, 3, 9, false), 7.0 / 9);
    EXPECT_DOUBLE_EQ(h.radicalInverse(5, 3, 9, true), 7.0 / 9);
}

TEST(TrenderHammersley, ScrambledDigitsGoThroughTheForwardOrInverseTable) {
    const TrenderHammersley& h = H();
    // Base 6, one digit: forward p6[1] = 2, inverse q6[1] = 3.
    EXPECT_DOUBLE_EQ(h.radicalInverse(1, 6, 6, true), 2.0 / 6);
    EXPECT_DOUBLE_EQ(h.radicalInverse(1, 6, 6, false), 3.0 / 6);
    // Base 6 over 36, index 13 = 2*6 + 1: low digit 1 goes on top, high digit
    // 2 below. Forward: p6[1] = 2, p6[2] = 4 -> 2*6 + 4 = 16.
    // Inverse: q6[1] = 3, q6[2] = 1 -> 3*6 + 1 = 19.
    EXPECT_EQ(h.reverseDigits(13, 6, 36, true), 16u);
    EXPECT_EQ(h.reverseDigits(13, 6, 36, false), 19u);
    // Base 5, one digit: p5[1] = 3, and p5 is its own inverse.
    EXPECT_DOUBLE_EQ(h.radicalInverse(1, 5, 5, true), 0.6);
    EXPECT_DOUBLE_EQ(h.radicalInverse(1, 5, 5, false), 0.6);
}

TEST(TrenderHammersley, InstanceOfHandWorkedPixels) {
    const TrenderHammersley& h = H();
    // N = 29^3 = 24,389, M = 31^3 = 29,791, N M = 726,572,699, c = 25,881.
    EXPECT_EQ(h.instance(0, 0), 0u);
    // (0, 15): a = 0. 15 is the middle digit of base 31, which the inverse
    // permutation keeps: b = 15 * 961 = 14,415. b >= a: d = 25,881 * 14,415
    // = 373,074,615; d mod M = 373,074,615 - 12,523 * 29,791 = 1,922;
    // e = 1,922 * 24,389 = 46,875,658; f = N M - 0; e < f: a + e.
    EXPECT_EQ(h.instance(0, 15), 46875658u);
    // (14, 0): 14 is base 29's middle digit: a = 14 * 841 = 11,774; b = 0.
    // b < a: c = 29,791 - 25,881 = 3,910; d = 3,910 * 11,774 = 46,036,340;
    // d mod M = 46,036,340 - 1,545 * 29,791 = 9,245; e = 9,245 * 24,389 =
    // 225,476,305; f = 726,572,699 - 11,774 = 726,560,925; e < f:
    // a + e = 225,488,079.
    EXPECT_EQ(h.instance(14, 0), 225488079u);
    // (1, 0): digit 1 sits at position 15 of base 29's permutation, so the
    // inverse maps 1 to 15: a = 15 * 841 = 12,615. d = 3,910 * 12,615 =
    // 49,324,650; mod M: - 1,655 * 29,791 = 20,545; e = 20,545 * 24,389 =
    // 501,072,005; a + e = 501,084,620.
    EXPECT_EQ(h.instance(1, 0), 501084620u);
    // (28, 30): top digits stay: a = 28 * 841 = 23,548, b = 30 * 961 =
    // 28,830. d = 25,881 * 5,282 = 136,703,442; mod M: - 4,588 * 29,791 =
    // 22,334; e = 22,334 * 24,389 = 544,703,926; a + e = 544,727,474.
    EXPECT_EQ(h.instance(28, 30), 544727474u);
    // One digit each: N = 29, M = 31, c = 15. (1, 0): a = 15, b = 0 < a:
    // c = 31 - 15 = 16, d = 240, 240 mod 31 = 23, e = 23 * 29 = 667;
    // f = 899 - 15 = 884; a + e = 682 (= 22 * 31, and 682 mod 29 = 15).
    EXPECT_EQ(h.findInstance(1, 1, 1, 0), 682u);
}

TEST(TrenderHammersley, MultiplesOfTheModuliGiveIndexZero) {
    const TrenderHammersley& h = H();
    EXPECT_EQ(h.findInstance(3, 3, 2 * 24389, 3 * 29791), 0u);
    EXPECT_EQ(h.instance(24389, 0), 0u);
    EXPECT_EQ(h.findInstance(2, 1, 5 * 841, 7 * 31), 0u);
    EXPECT_EQ(h.findInstance(1, 2, 29, 961), 0u);
    // x and y are taken modulo N and M: a pixel one period over is the same.
    EXPECT_EQ(h.instance(24389 + 14, 29791), h.instance(14, 0));
}

// The index found for a pixel is one whose scrambled coordinates (the
// forward permutation undoes the inverse one) land back on that pixel.
TEST(TrenderHammersley, InstanceLandsInItsPixel) {
    const TrenderHammersley& h = H();
    const uint32_t n = 24389, m = 29791;
    for (uint32_t x : {0u, 1u, 2u, 28u, 29u, 30u, 500u, 841u, 12345u, 24388u})
        for (uint32_t y : {0u, 1u, 3u, 30u, 31u, 777u, 961u, 20000u, 29790u}) {
            const uint32_t index = h.instance(x, y);
            ASSERT_LT(uint64_t(index), uint64_t(n) * m);
            EXPECT_EQ(h.reverseDigits(index % n, 29, n, true), x) << x << ", " << y;
            EXPECT_EQ(h.reverseDigits(index % m, 31, m, true), y) << x << ", " << y;
        }
}

TEST(TrenderHammersley, OneInstanceForAllThreads) {
    const TrenderHammersley* seen[2] = {};
    std::thread other([&] { seen[0] = &TrenderHammersley::theHammersley(); });
    seen[1] = &TrenderHammersley::theHammersley();
    other.join();
    EXPECT_EQ(seen[0], seen[1]);
}

} // namespace
