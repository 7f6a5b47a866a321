#pragma once

// The host's string hashes. Their values are stable across runs, builds and
// machines: names made from them (a shortened buffer name) must come out
// the same every time.

#include <cstddef>
#include <cstdint>
#include <string_view>

struct ThashFunction {
    // A 32-bit hash of the bytes (Bob Jenkins' lookup3, little-endian form).
    static uint32_t hash32(const void* data, size_t length, uint32_t seed);
    static uint32_t hash32(std::string_view text, uint32_t seed = 0) {
        return hash32(text.data(), text.size(), seed);
    }
};
