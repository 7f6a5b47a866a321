#pragma once

// The scratch a material needs to trace a batch's rays: the records (of the
// size the sampler asks for), their pointers, a colour, a transmission and
// a hit flag a ray, and a 16-bit slot table that says which ray each slot
// made (-1: none). Shared by refraction and reflection.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <new>

#include "host/datablock.h"
#include "shading/ray_sampler.h"
#include "shading/scratch.h"

struct TrayScratch {
    TgenericRay** rays = nullptr;
    Tspectrum* colours = nullptr;
    Tspectrum* transmissions = nullptr;
    uint8_t* hits = nullptr;
    short* slotOfRay = nullptr;
    short rayCount = 0;
};

// Makes the scratch for `slots` rays and runs `body` on it. The sampler says
// how large its records are; it may keep more per ray than TgenericRay
// holds, and a size no sampler could mean is an error.
template <class F>
void OrvoWithRayScratch(TraySampler& sampler, unsigned slots, F&& body) {
    const size_t recordSize =
        TshadeScratch::bytes(1, std::max(sampler.rayRecordSize(slots), sizeof(TgenericRay)));
    TshadeScratch scratch;
    const size_t recordBytes = TshadeScratch::bytes(slots, recordSize);
    auto* records = static_cast<std::byte*>(ORVO_SCRATCH(scratch, recordBytes));
    const size_t pointerBytes = TshadeScratch::bytes(slots, sizeof(TgenericRay*));
    const size_t spectrumBytes = TshadeScratch::bytes(slots, sizeof(Tspectrum));
    const size_t shortBytes = TshadeScratch::bytes(slots, sizeof(short));
    const size_t hitBytes = TshadeScratch::bytes(slots, sizeof(uint8_t));
    TrayScratch s;
    s.rays = static_cast<TgenericRay**>(ORVO_SCRATCH(scratch, pointerBytes));
    s.colours = static_cast<Tspectrum*>(ORVO_SCRATCH(scratch, spectrumBytes));
    s.transmissions = static_cast<Tspectrum*>(ORVO_SCRATCH(scratch, spectrumBytes));
    s.slotOfRay = static_cast<short*>(ORVO_SCRATCH(scratch, shortBytes));
    s.hits = static_cast<uint8_t*>(ORVO_SCRATCH(scratch, hitBytes));
    for (unsigned i = 0; i < slots; ++i) {
        s.rays[i] = new (records + size_t(i) * recordSize) TgenericRay();
        s.slotOfRay[i] = -1;
        s.hits[i] = 0;
    }
    body(s);
}

// The sampler a run of samples reaches through `attribute` (one for the
// frame: the first sample's), or null.
inline TraySampler* OrvoRaySamplerOf(TdataBlock& block, const Tattribute& attribute, unsigned first,
                                     unsigned count) {
    const TvectorDataHandle h = block.vectorInputValue(attribute, first, count);
    return h.isNull() ? nullptr : static_cast<TraySampler*>(h[0].as<void*>());
}
