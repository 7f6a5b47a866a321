#pragma once

#include <cstdint>
#include <span>
#include <vector>

// Low-discrepancy sequences for sampling: radical inverses (van der Corput
// values) of the sample index in a prime base, tabulated so that a renderer
// pays one load per value on the sample path.
//
// Sizes. A table of base b holds b^k entries for the largest k that keeps it
// within kMaxTableSize (65,536) entries and within `maxDigits` (16) digits.
// Ending a table at a power of its base keeps the period a complete
// stratification of [0, 1): every cell of width b^-k is visited once per
// period. 65,536 entries (256 KiB of floats in base 2) is a period no pixel's
// sample count comes near and still a small table. So:
//     maxEntry(2)  = 2^16 = 65,536    maxEntry(3)  = 3^10 = 59,049
//     maxEntry(11) = 11^4 = 14,641    maxEntry(13) = 13^4 = 28,561
// Every value is below 1: the largest entry is 1 - 1/maxEntry, at least
// 1.5e-5 from 1, far more than the float spacing there (6e-8).
class Thammersley {
public:
    static constexpr unsigned maxDigits = 16;
    static constexpr uint32_t kMaxTableSize = 65536;

    // The period of a full table of `base`: see above. 1 for a base below 2.
    static uint32_t maxEntry(unsigned base);

    // The radical inverse of `index` in `base`: its digits mirrored about the
    // radix point. In base 2: 1 -> 0.5, 2 -> 0.25, 3 -> 0.75.
    static double radicalInverse(uint64_t index, unsigned base);

    // The values of indices 0 .. n-1 with n = base^digits, capped at
    // maxEntry(base).
    Thammersley(unsigned base, unsigned digits);

    unsigned base() const { return fBase; }
    uint32_t size() const { return uint32_t(fValues.size()); }
    // The value of index i, for i < size().
    float value(uint32_t i) const { return fValues[i]; }

private:
    unsigned fBase;
    std::vector<float> fValues;
};

// The base-2 sequence, made by bit reversal rather than division.
class Thammersley2 {
public:
    // The values of indices 0 .. 2^digits - 1, with digits capped at maxDigits.
    explicit Thammersley2(unsigned digits);

    uint32_t size() const { return uint32_t(fValues.size()); }
    float value(uint32_t i) const { return fValues[i]; }

private:
    std::vector<float> fValues;
};

// The sequences renderers share (one per sampled dimension: volume marching,
// motion time, and the two angles of a direction), the scrambling
// permutations of bases 2 to 31, and the inverse mapping from a pixel to the
// sample index whose first two coordinates fall into it.
class TrenderHammersley {
public:
    static constexpr unsigned kMaxScrambleBase = 31;

    // The process-wide instance, made at first use.
    static TrenderHammersley& theHammersley();

    TrenderHammersley(const TrenderHammersley&) = delete;
    TrenderHammersley& operator=(const TrenderHammersley&) = delete;

    // Each takes i modulo the sequence's period; the value is in [0, 1).
    float volumeValue(uint32_t i) const { return fVolume.value(i % fVolume.size()); }
    float motionValue(uint32_t i) const { return fMotion.value(i % fMotion.size()); }
    float thetaValue(uint32_t i) const { return fTheta.value(i % fTheta.size()); }
    float phiValue(uint32_t i) const { return fPhi.value(i % fPhi.size()); }

    uint32_t volumePeriod() const { return fVolume.size(); }
    uint32_t motionPeriod() const { return fMotion.size(); }
    uint32_t thetaPeriod() const { return fTheta.size(); }
    uint32_t phiPeriod() const { return fPhi.size(); }

    // The scrambling permutation of `base` (2 to 31) and its inverse, as
    // digit -> digit tables of `base` entries.
    std::span<const uint8_t> permutation(unsigned base) const;
    std::span<const uint8_t> inversePermutation(unsigned base) const;

    // `index` modulo `total` with its base-`base` digits reversed within
    // `total` (a power of `base`), each digit mapped through the base's
    // permutation (`scrambled`) or its inverse. Base 2 is plain bit reversal.
    // The result is in [0, total).
    uint32_t reverseDigits(uint32_t index, unsigned base, uint32_t total, bool scrambled) const;
    // The same as a fraction of `total`, in [0, 1).
    double radicalInverse(uint32_t index, unsigned base, uint32_t total, bool scrambled) const;
    // Base 2 alone: `index` bit-reversed within `total` (a power of 2), over
    // `total`.
    static double radicalInverse2(uint32_t index, uint32_t total);

    // The sample index at which the two-dimensional sequence of bases 29 and
    // 31 (three digits each) falls into pixel (x, y); see findInstance.
    uint32_t instance(uint32_t x, uint32_t y) const { return findInstance(3, 3, x, y); }

    // The index n below N*M, N = 29^k and M = 31^j (k, j up to 3), whose
    // digit-reversed residues are those of x modulo N and y modulo M: found
    // by the Chinese remainder theorem, N and M being coprime.
    uint32_t findInstance(unsigned k, unsigned j, uint32_t x, uint32_t y) const;

private:
    TrenderHammersley();
    void initScramble();

    Thammersley fVolume;
    Thammersley fMotion;
    Thammersley2 fTheta;
    Thammersley fPhi;
    uint8_t fScramble[kMaxScrambleBase + 1][kMaxScrambleBase + 1] = {};
    uint8_t fInverse[kMaxScrambleBase + 1][kMaxScrambleBase + 1] = {};
};
