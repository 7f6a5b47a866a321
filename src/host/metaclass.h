#pragma once

// Run-time type records. Every class that the graph creates by name (node
// types, data types) has one Tmetaclass, made once at load in static storage.

#include <cstddef>
#include <cstdint>
#include <string>

#include "host/types.h"

// A four-character code in a 32-bit value, first character in the high byte,
// as IFF files and scene files store type tags.
class TiffTag {
public:
    constexpr TiffTag() = default;
    constexpr explicit TiffTag(uint32_t value) : fValue(value) {}
    constexpr explicit TiffTag(const char (&code)[5]) : fValue(make(code)) {}

    static constexpr uint32_t make(const char* code) {
        return (uint32_t(uint8_t(code[0])) << 24) | (uint32_t(uint8_t(code[1])) << 16) |
               (uint32_t(uint8_t(code[2])) << 8) | uint32_t(uint8_t(code[3]));
    }

    constexpr uint32_t value() const { return fValue; }
    std::string text() const;
    friend constexpr bool operator==(TiffTag, TiffTag) = default;

private:
    uint32_t fValue = 0;
};

class Tmetaclass {
public:
    // Makes an instance. With `where` null it allocates (returning null when
    // allocation fails), otherwise it constructs in the given storage. The
    // metaclass it is given is passed on to the new object.
    using Factory = void* (*)(Tmetaclass* requested, void* where);

    static constexpr int kMaxParents = 4;

    Tmetaclass(Tmetaclass** slot, const char* typeName, size_t instanceSize, Factory factory,
               uint32_t iffTag, unsigned flags, Tmetaclass* parent0 = nullptr,
               Tmetaclass* parent1 = nullptr, Tmetaclass* parent2 = nullptr,
               Tmetaclass* parent3 = nullptr);
    ~Tmetaclass();
    Tmetaclass(const Tmetaclass&) = delete;
    Tmetaclass& operator=(const Tmetaclass&) = delete;

    // True if this class is `other` or derives from it.
    bool istype(const Tmetaclass* other) const;

    void* construct(Tmetaclass* requested) const;
    void* constructInPlace(Tmetaclass* requested, void* where) const;

    const char* typeName() const { return fTypeName; }
    size_t instanceSize() const { return fInstanceSize; }
    uint32_t iffTag() const { return fIffTag; }
    unsigned flags() const { return fFlags; }
    Tmetaclass* parent(int i) const { return fParents[i]; }

private:
    Tmetaclass** fSlot;
    const char* fTypeName;
    size_t fInstanceSize;
    Factory fFactory;
    uint32_t fIffTag;
    unsigned fFlags;
    Tmetaclass* fParents[kMaxParents];
};
