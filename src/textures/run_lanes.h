#pragma once

// What the textures' run kernels and the nodes that call them agree on:
// arrays handed to a kernel hold their count rounded up to a whole number
// of the widest vector (16 floats), and the lanes past the count hold
// zeros, so that a kernel never needs a partial vector.

#include <algorithm>

#include "host/datablock.h"

inline constexpr unsigned kRunLanes = 16;

// `count` rounded up to whole vectors.
inline unsigned OrvoRunPadded(unsigned count) {
    return (count + kRunLanes - 1) / kRunLanes * kRunLanes;
}

// The two floats of values [from, from + n) of `pairs` into `first` and
// `second`, zeros after them up to the padded count.
inline void OrvoGatherPairs(const TvectorDataHandle& pairs, unsigned from, unsigned n, float* first,
                            float* second) {
    for (unsigned j = 0; j < n; ++j) {
        const float* pair = pairs[int(from + j)].asFloats();
        first[j] = pair[0];
        second[j] = pair[1];
    }
    const unsigned padded = OrvoRunPadded(n);
    std::fill(first + n, first + padded, 0.0f);
    std::fill(second + n, second + padded, 0.0f);
}
