#include "shading/sample.h"

#include "shading/opus.h"
#include "shading/sample_manager.h"

#include <array>

namespace {

constexpr unsigned kOffsets[65] = {
#define ORVO_SAMPLE_OFFSET(n, name, Name, Type, offset, size) offset,
    ORVO_SAMPLE_FIELDS(ORVO_SAMPLE_OFFSET)
#undef ORVO_SAMPLE_OFFSET
        Tsample::kStaticSize};

constexpr unsigned kSizes[64] = {
#define ORVO_SAMPLE_SIZE(n, name, Name, Type, offset, size) size,
    ORVO_SAMPLE_FIELDS(ORVO_SAMPLE_SIZE)
#undef ORVO_SAMPLE_SIZE
};

constexpr const char* kNames[65] = {
#define ORVO_SAMPLE_NAME(n, name, Name, Type, offset, size) #name,
    ORVO_SAMPLE_FIELDS(ORVO_SAMPLE_NAME)
#undef ORVO_SAMPLE_NAME
        ""};

// Each field's slot holds exactly its type, so the static offsets must keep
// the type's alignment and the sizes must match.
#define ORVO_SAMPLE_CHECK(n, name, Name, Type, offset, size)                                       \
    static_assert(offset % alignof(Type) == 0, #name " is misaligned");                            \
    static_assert(size == sizeof(Type), #name " has the wrong size");
ORVO_SAMPLE_FIELDS(ORVO_SAMPLE_CHECK)
#undef ORVO_SAMPLE_CHECK

// The default sample: the header and the full static layout.
struct DefaultSample {
    alignas(16) std::byte storage[Tsample::kStaticSize];

    DefaultSample() {
        std::memset(storage, 0, sizeof storage);
        auto* s = reinterpret_cast<Tsample*>(storage);
        s->initialize(nullptr, nullptr, kOffsets);
        auto put = [&](unsigned field, const auto& value) {
            std::memcpy(storage + kOffsets[field], &value, sizeof value);
        };
        using namespace TsampleFields;
        put(normalCamera, T3Float{0, 0, 1});
        put(triangleNormalCamera, T3Float{0, 0, 1});
        put(tangentUCamera, T3Float{1, 0, 0});
        put(tangentVCamera, T3Float{0, 1, 0});
        put(rayDirection, T3Float{0, 0, -1});
        TlightData light{};
        light.direction[2] = 1.0f;
        light.ambient = true;
        light.diffuse = true;
        put(lightData, light);
        put(particleEmission, T3Float{1, 1, 1});
        put(particleAge, 0.5f);
        put(particleLifespan, 100.0f);
        put(mediumRefractiveIndex, 1.0f);
        put(outMatteOpacity, T3Float{1, 1, 1});
        put(numShadingSamples, char(1));
        put(matrixObjectToWorld, T4dFltMatrix{});
        put(matrixWorldToObject, T4dFltMatrix{});
        put(illuminationIndex, int16_t(-1));
        put(pixelCoverage, 1.0f);
        put(easMask, ~uint32_t(0));
        put(receiveShadows, true);
        put(translucenceDepth, 0.5f);
    }
};

const DefaultSample& defaults() {
    static const DefaultSample d;
    return d;
}

} // namespace

const char* const* Tsample::fieldNames() {
    return kNames;
}

namespace {
template <class T>
constexpr Tsample::FieldKind kindOf() {
    using K = Tsample::FieldKind;
    if constexpr (std::is_same_v<T, T3Float>)
        return K::Float3;
    else if constexpr (std::is_same_v<T, T2Float>)
        return K::Float2;
    else if constexpr (std::is_same_v<T, float>)
        return K::Float;
    else if constexpr (std::is_same_v<T, int32_t>)
        return K::Int32;
    else if constexpr (std::is_same_v<T, uint32_t>)
        return K::UInt32;
    else if constexpr (std::is_same_v<T, int16_t>)
        return K::Int16;
    else if constexpr (std::is_same_v<T, char>)
        return K::Char;
    else if constexpr (std::is_same_v<T, bool>)
        return K::Bool;
    else if constexpr (std::is_same_v<T, T4dFltMatrix>)
        return K::Matrix;
    else
        return K::Other;
}
constexpr Tsample::FieldKind kKinds[64] = {
#define ORVO_SAMPLE_KIND(n, name, Name, Type, offset, size) kindOf<Type>(),
    ORVO_SAMPLE_FIELDS(ORVO_SAMPLE_KIND)
#undef ORVO_SAMPLE_KIND
};
} // namespace

Tsample::FieldKind Tsample::fieldKind(unsigned i) {
    return i < 64 ? kKinds[i] : FieldKind::Other;
}
const unsigned* Tsample::staticOffsets() {
    return kOffsets;
}
const unsigned* Tsample::fieldSizes() {
    return kSizes;
}

int Tsample::fieldNumber(const char* name) {
    for (int i = 0; kNames[i][0]; ++i)
        if (std::strcmp(kNames[i], name) == 0)
            return i;
    return -1;
}

const Tsample& Tsample::defaultSample() {
    return *reinterpret_cast<const Tsample*>(defaults().storage);
}

const void* Tsample::defaultField(unsigned i) {
    return defaults().storage + kOffsets[i];
}

void Tsample::confirmSet(TbitField64 fields) {
    uint64_t missing = fields.bits() & ~fSet;
    if (!missing)
        return;
    // Runs once per sample and shade: the usual field sizes copy inline.
    const std::byte* defaultStorage = defaults().storage;
    while (missing) {
        const unsigned i = unsigned(__builtin_ctzll(missing));
        missing &= missing - 1;
        void* s = slot(i);
        if (!s)
            continue;
        const std::byte* from = defaultStorage + kOffsets[i];
        switch (kSizes[i]) {
        case 4:
            std::memcpy(s, from, 4);
            break;
        case 8:
            std::memcpy(s, from, 8);
            break;
        case 12:
            std::memcpy(s, from, 12);
            break;
        default:
            std::memcpy(s, from, kSizes[i]);
            break;
        }
    }
}

void Tsample::confirmSet(TbitField64 fields, unsigned count, Tsample* const* samples) {
    if (count == 0)
        return;
    // The copies the first sample needs, by size: each list copies its
    // values with one inline move.
    struct Step {
        uint32_t offset;
        const std::byte* from;
    };
    Step small[4][TsampleFields::kCount]; // 4, 8, 12 bytes and other sizes
    unsigned sizes[TsampleFields::kCount];
    unsigned n[4] = {0, 0, 0, 0};
    const Tsample& first = *samples[0];
    const std::byte* defaultStorage = defaults().storage;
    for (uint64_t missing = fields.bits() & ~first.fSet; missing; missing &= missing - 1) {
        const unsigned i = unsigned(__builtin_ctzll(missing));
        if (!first.fOffsets[i])
            continue;
        const unsigned list = kSizes[i] == 4 ? 0 : kSizes[i] == 8 ? 1 : kSizes[i] == 12 ? 2 : 3;
        if (list == 3)
            sizes[n[3]] = kSizes[i];
        small[list][n[list]++] = {first.fOffsets[i], defaultStorage + kOffsets[i]};
    }
    for (unsigned s = 0; s < count; ++s) {
        Tsample& sample = *samples[s];
        if (sample.fSet != first.fSet || sample.fOffsets != first.fOffsets) {
            sample.confirmSet(fields);
            continue;
        }
        auto* base = reinterpret_cast<std::byte*>(&sample);
        for (unsigned k = 0; k < n[0]; ++k)
            std::memcpy(base + small[0][k].offset, small[0][k].from, 4);
        for (unsigned k = 0; k < n[1]; ++k)
            std::memcpy(base + small[1][k].offset, small[1][k].from, 8);
        for (unsigned k = 0; k < n[2]; ++k)
            std::memcpy(base + small[2][k].offset, small[2][k].from, 12);
        for (unsigned k = 0; k < n[3]; ++k)
            std::memcpy(base + small[3][k].offset, small[3][k].from, sizes[k]);
    }
}

void Tsample::setDispatched() {
    void* group = fBatch ? fBatch->renderGroup() : nullptr;
    setObjectId(group);
    fDispatched = true;
}

void Tsample::copyToDeepRaster(const unsigned* offsets, char* dest, unsigned skip) const {
    for (unsigned i = 0; i < TsampleFields::kCount; ++i) {
        if (!offsets[i] || i == skip)
            continue;
        std::memcpy(dest + offsets[i], field(i), (kSizes[i] + 3) & ~3u);
    }
}

void Tsample::fillFromDeepRaster(const unsigned* offsets, const char* src, unsigned skip) {
    for (unsigned i = 0; i < TsampleFields::kCount; ++i) {
        if (!offsets[i] || i == skip)
            continue;
        if (void* s = slot(i))
            std::memcpy(s, src + offsets[i], (kSizes[i] + 3) & ~3u);
    }
}

bool Tsample::hasUserSampleData() const {
    return fBatch && fBatch->opus() && fBatch->opus()->userSampleData();
}

void Tsample::setUserSamplePosition(const T2Float* vector, T2Float position, int index) {
    if (!hasUserSampleData() || !fOffsets[64])
        return;
    std::byte* at = reinterpret_cast<std::byte*>(this) + fOffsets[64];
    if (vector)
        std::memcpy(at, vector, 24);
    std::memcpy(at + 24, &position, sizeof position);
    std::memcpy(at + 32, &index, sizeof index);
}

bool Tsample::userSamplePosition(T2Float* vector, T2Float& position, int& index) const {
    if (!hasUserSampleData() || !fOffsets[64])
        return false;
    const std::byte* at = reinterpret_cast<const std::byte*>(this) + fOffsets[64];
    if (vector)
        std::memcpy(vector, at, 24);
    std::memcpy(&position, at + 24, sizeof position);
    std::memcpy(&index, at + 32, sizeof index);
    return true;
}

void Tsample::setUserSampleData(unsigned field, unsigned size, const void* value) {
    if (void* slot = userSampleSlot(field))
        std::memcpy(slot, value, size);
}

void Tsample::copyUserSampleData(unsigned destinationField, unsigned size, unsigned sourceField) {
    void* to = userSampleSlot(destinationField);
    const void* from = userSampleSlot(sourceField);
    if (to && from && to != from)
        std::memmove(to, from, size);
}
