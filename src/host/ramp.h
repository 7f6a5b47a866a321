#pragma once

// Curves a user edits as a list of entries: a position, a value (one float or
// a colour) and the interpolation toward the next entry. A curve attribute is
// an array compound with those three children; TrampData says where they lie
// in its elements and Tramp evaluates the elements a block holds.
//
// Entries are taken in order of position whatever their logical indices, so
// that an entry can be dragged past another; entries at one position keep
// the order of their indices. Outside the first and last entries the curve
// holds their values. Each segment follows the interpolation of the entry at
// its lower end; None holds that entry's value up to the next one.

#include <cstdint>

#include "host/datablock.h"
#include "host/types.h"

class Tattribute;

struct TrampData {
    // The interpolation enum every curve uses.
    enum Interp : int16_t { kNone = 0, kLinear = 1, kSmooth = 2, kSpline = 3 };

    uint32_t valueAt = 0;    // where an element's value starts (after its index)
    uint32_t positionAt = 0; // offsets inside the value
    uint32_t entryValueAt = 0;
    uint32_t interpAt = 0;
    unsigned width = 1; // floats in an entry's value: 1, or 3 for a colour

    // The layout of `curve`'s elements from its three children.
    static TrampData of(const Tattribute& curve, const Tattribute& position,
                        const Tattribute& value, const Tattribute& interp);
};

class Tramp {
public:
    // `entries` may be null (no entries). Nothing is copied: the curve reads
    // the block's elements in place. A curve with no entries is `whenEmpty`
    // everywhere: 0 for most, 1 for a curve that scales something and
    // should leave it alone until the user adds an entry.
    Tramp(const TrampData& layout, const TmultiHeader* entries, float whenEmpty = 0.0f)
        : fLayout(layout), fEntries(entries), fEmpty(whenEmpty) {}

    float valueAtPoint(float t) const;
    T3Float colorAtPoint(float t) const;
    // The colour of a curve of one entry (the same everywhere).
    T3Float color() const { return colorAtPoint(0.0f); }
    unsigned entryCount() const { return count(); }
    // The largest value of any entry (of a float curve); whenEmpty with none. The
    // curve never leaves its entries' range, so this bounds it.
    float largestValue() const;

private:
    unsigned count() const { return fEntries ? fEntries->count : 0u; }
    const std::byte* element(unsigned k) const {
        return fEntries->data + size_t(k) * fEntries->stride;
    }
    uint32_t index(unsigned k) const;
    float position(unsigned k) const;
    int16_t interp(unsigned k) const;
    void value(unsigned k, float* out) const;
    // Order of entries: by position, then by logical index.
    bool before(unsigned a, unsigned b) const;
    // The entry just before or after `k` in that order; -1 when none.
    int previous(unsigned k) const;
    int next(unsigned k) const;
    void evaluate(float t, float* out) const;

    TrampData fLayout;
    const TmultiHeader* fEntries;
    float fEmpty;
};
