#include "shading/hammersley.h"

#include <algorithm>
#include <atomic>
#include <mutex>

#include "host/mt.h"

namespace {

// `index` (below `total`, a power of `base`) with its digits reversed.
uint32_t reversePlain(uint32_t index, unsigned base, uint32_t total) {
    uint32_t result = 0;
    for (uint32_t power = total / base; power != 0; power /= base, index /= base)
        result += (index % base) * power;
    return result;
}

// The inverse of 29^k modulo 31^j (entry [k][j]), as the sample index search
// uses it. Row and column 0 are the trivial moduli, where it is never needed.
constexpr uint32_t kInverseTable[4][4] = {
    {0, 0, 0, 0},
    {0, 15, 232, 18491},
    {0, 8, 8, 5774},
    {0, 27, 895, 25881},
};
constexpr uint32_t kPowers29[4] = {1, 29, 841, 24389};
constexpr uint32_t kPowers31[4] = {1, 31, 961, 29791};

} // namespace

// --- Thammersley, Thammersley2

uint32_t Thammersley::maxEntry(unsigned base) {
    if (base < 2)
        return 1;
    uint32_t entries = 1;
    for (unsigned digit = 0; digit < maxDigits && uint64_t(entries) * base <= kMaxTableSize;
         ++digit)
        entries *= base;
    return entries;
}

double Thammersley::radicalInverse(uint64_t index, unsigned base) {
    if (base < 2)
        return 0.0;
    const double step = 1.0 / base;
    double weight = step;
    double result = 0.0;
    for (; index != 0; index /= base, weight *= step)
        result += double(index % base) * weight;
    return result;
}

Thammersley::Thammersley(unsigned base, unsigned digits) : fBase(base) {
    uint32_t size = 1;
    const uint32_t cap = maxEntry(base);
    for (unsigned digit = 0; digit < digits && size < cap; ++digit)
        size *= base;
    fValues.resize(size);
    // Whole-number reversal over the table size divides once, so each value
    // is the exact fraction rounded to float.
    for (uint32_t i = 0; i < size; ++i)
        fValues[i] = float(double(reversePlain(i, base, size)) / size);
}

Thammersley2::Thammersley2(unsigned digits) {
    const uint32_t size = uint32_t(1) << std::min(digits, Thammersley::maxDigits);
    fValues.resize(size);
    for (uint32_t i = 0; i < size; ++i)
        fValues[i] = float(TrenderHammersley::radicalInverse2(i, size));
}

// --- TrenderHammersley

TrenderHammersley& TrenderHammersley::theHammersley() {
    static std::atomic<bool> made{false};
    static TmtCriticalSection section;
    // Never destroyed: render threads and static destructors of other
    // libraries may still read it while the process ends.
    static TrenderHammersley* instance = nullptr;
    if (!made.load(std::memory_order_acquire)) {
        std::lock_guard held(section);
        if (!made.load(std::memory_order_relaxed)) {
            instance = new TrenderHammersley;
            made.store(true, std::memory_order_release);
        }
    }
    return *instance;
}

TrenderHammersley::TrenderHammersley()
    : fVolume(13, Thammersley::maxDigits), fMotion(11, Thammersley::maxDigits),
      fTheta(Thammersley::maxDigits), fPhi(3, Thammersley::maxDigits) {
    initScramble();
}

// Each base's permutation comes from a smaller one, so that scrambled digits
// of related bases stay related: an odd base puts its middle digit in the
// middle of the previous base's order; an even base 2c interleaves base c's
// order doubled, first the even digits then the odd ones.
void TrenderHammersley::initScramble() {
    fScramble[2][0] = 0;
    fScramble[2][1] = 1;
    for (unsigned base = 3; base <= kMaxScrambleBase; ++base) {
        uint8_t* out = fScramble[base];
        if (base % 2 == 1) {
            const uint8_t* previous = fScramble[base - 1];
            const unsigned middle = (base - 1) / 2;
            for (unsigned i = 0; i + 1 < base; ++i) {
                const uint8_t value = previous[i] >= middle ? previous[i] + 1 : previous[i];
                out[i < middle ? i : i + 1] = value;
            }
            out[middle] = uint8_t(middle);
        } else {
            const unsigned half = base / 2;
            const uint8_t* previous = fScramble[half];
            for (unsigned i = 0; i < half; ++i) {
                out[i] = uint8_t(2 * previous[i]);
                out[half + i] = uint8_t(2 * previous[i] + 1);
            }
        }
    }
    for (unsigned base = 2; base <= kMaxScrambleBase; ++base)
        for (unsigned i = 0; i < base; ++i)
            fInverse[base][fScramble[base][i]] = uint8_t(i);
}

std::span<const uint8_t> TrenderHammersley::permutation(unsigned base) const {
    if (base < 2 || base > kMaxScrambleBase)
        return {};
    return {fScramble[base], base};
}

std::span<const uint8_t> TrenderHammersley::inversePermutation(unsigned base) const {
    if (base < 2 || base > kMaxScrambleBase)
        return {};
    return {fInverse[base], base};
}

uint32_t TrenderHammersley::reverseDigits(uint32_t index, unsigned base, uint32_t total,
                                          bool scrambled) const {
    if (total == 0 || base < 2)
        return 0;
    index %= total;
    if (base == 2) {
        uint32_t result = 0;
        for (uint32_t power = total / 2; index != 0 && power != 0; index >>= 1, power >>= 1)
            if (index & 1)
                result += power;
        return result;
    }
    // Bases beyond the tables have no scrambling: their digits go through
    // unchanged.
    if (base > kMaxScrambleBase)
        return reversePlain(index, base, total);
    const uint8_t* map = scrambled ? fScramble[base] : fInverse[base];
    uint32_t result = 0;
    for (uint32_t power = total / base; power != 0; power /= base, index /= base)
        result += map[index % base] * power;
    return result;
}

double TrenderHammersley::radicalInverse(uint32_t index, unsigned base, uint32_t total,
                                         bool scrambled) const {
    if (total == 0)
        return 0.0;
    return double(reverseDigits(index, base, total, scrambled)) / total;
}

double TrenderHammersley::radicalInverse2(uint32_t index, uint32_t total) {
    if (total == 0)
        return 0.0;
    index %= total;
    uint32_t result = 0;
    for (uint32_t power = total / 2; index != 0 && power != 0; index >>= 1, power >>= 1)
        if (index & 1)
            result += power;
    return double(result) / total;
}

uint32_t TrenderHammersley::findInstance(unsigned k, unsigned j, uint32_t x, uint32_t y) const {
    k = std::min(k, 3u);
    j = std::min(j, 3u);
    const uint64_t n = kPowers29[k];
    const uint64_t m = kPowers31[j];
    // The residues the index must have: x and y digit-reversed, as the
    // sequence itself reverses the index. Digit 0 maps to 0, so a pixel at a
    // multiple of the moduli gives 0.
    const uint64_t a = reverseDigits(uint32_t(x % n), 29, uint32_t(n), false);
    const uint64_t b = reverseDigits(uint32_t(y % m), 31, uint32_t(m), false);
    // n' = a + t n with t = c (b - a) modulo m, c being 1/n modulo m; when
    // b < a, c (b - a) = (m - c)(a - b) modulo m keeps the product unsigned.
    uint64_t c = kInverseTable[k][j];
    uint64_t d;
    if (b < a) {
        c = m - c;
        d = c * (a - b);
    } else {
        d = c * (b - a);
    }
    const uint64_t e = (d % m) * n;
    const uint64_t f = m * n - a;
    return uint32_t(e > f ? e - f : a + e);
}
