#pragma once

// A random table chosen by a test: every noise function reads Tnoise::fsTable,
// so a table of a few known entries makes lattice values easy to work out by
// hand.

#include <vector>

#include "textures/noise_functions.h"

namespace orvo_test {

class ScopedNoiseTable {
public:
    // All entries 0 (and the trailing 0) until set.
    ScopedNoiseTable() : fValues(Tnoise::kTableSize + 1, 0.0f), fSaved(Tnoise::fsTable) {
        Tnoise::fsTable = fValues.data();
    }
    explicit ScopedNoiseTable(const float* table) : fSaved(Tnoise::fsTable) {
        Tnoise::fsTable = table;
    }
    ~ScopedNoiseTable() { Tnoise::fsTable = fSaved; }
    ScopedNoiseTable(const ScopedNoiseTable&) = delete;
    ScopedNoiseTable& operator=(const ScopedNoiseTable&) = delete;

    float& operator[](int i) { return fValues[size_t(i)]; }

private:
    std::vector<float> fValues;
    const float* fSaved;
};

} // namespace orvo_test
