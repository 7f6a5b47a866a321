#pragma once

// A sample: one shading request, a record of variable layout. A 40-byte
// header is followed by the slots of the fields the compiled network needs;
// the header's offset table says where each field lies, 0 for an absent one.
// Reads of an absent field go to the default sample; writes to it only set
// the field's bit.

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "host/attribute.h"
#include "host/types.h"
#include "shading/sample_fields.h"

class TsampleManager;
class TsampleBatch;

using TsampleObject = void*;
using TlightDataPtr = TlightData*;

// Field numbers, which are also the bits of every field set.
namespace TsampleFields {
enum : unsigned {
#define ORVO_SAMPLE_FIELD_ENUM(n, name, Name, Type, offset, size) name = n,
    ORVO_SAMPLE_FIELDS(ORVO_SAMPLE_FIELD_ENUM)
#undef ORVO_SAMPLE_FIELD_ENUM
        kCount = 64
};
} // namespace TsampleFields

class Tsample {
public:
    static constexpr unsigned kHeaderSize = 40;
    static constexpr unsigned kStaticSize = 728; // the static layout's total size

    // ---- the tables
    // Field names, closed by an empty string.
    static const char* const* fieldNames();
    static const unsigned* staticOffsets(); // 65 entries: the last is the total size
    static const unsigned* fieldSizes();
    // The field number of a name, or -1.
    static int fieldNumber(const char* name);
    // The default sample and its field i.
    static const Tsample& defaultSample();
    static const void* defaultField(unsigned i);

    // ---- header
    uint64_t setBits() const { return fSet; }
    bool isSet(unsigned field) const { return (fSet >> field) & 1u; }
    void markSet(unsigned field) { fSet |= uint64_t(1) << field; }
    TsampleManager* manager() const { return fManager; }
    TsampleBatch* batch() const { return fBatch; }
    const unsigned* fieldOffsetTable() const { return fOffsets; }
    bool isDispatched() const { return fDispatched; }

    // Makes the header: nothing set, not dispatched.
    void initialize(TsampleManager* manager, TsampleBatch* batch, const unsigned* offsets) {
        fSet = 0;
        fManager = manager;
        fBatch = batch;
        fOffsets = offsets;
        fDispatched = false;
    }

    // The slot of field i, or null when this sample has none.
    void* slot(unsigned i) {
        return fOffsets[i] ? reinterpret_cast<std::byte*>(this) + fOffsets[i] : nullptr;
    }
    const void* slot(unsigned i) const {
        return fOffsets[i] ? reinterpret_cast<const std::byte*>(this) + fOffsets[i] : nullptr;
    }
    // What a read of field i gives: the slot, or the default.
    const void* field(unsigned i) const {
        const void* s = slot(i);
        return s ? s : defaultField(i);
    }
    // Writes field i (if there is a slot) and sets its bit either way.
    void setField(unsigned i, const void* value, size_t size) {
        markSet(i);
        if (void* s = slot(i))
            std::memcpy(s, value, size);
    }

    // ---- one read accessor and one setter per field
#define ORVO_SAMPLE_ACCESSORS(n, name, Name, Type, offset, size)                                   \
    const Type* name() const {                                                                     \
        return static_cast<const Type*>(field(n));                                                 \
    }                                                                                              \
    void set##Name(const Type& value) {                                                            \
        setField(n, &value, sizeof(Type));                                                         \
    }
    ORVO_SAMPLE_FIELDS(ORVO_SAMPLE_ACCESSORS)
#undef ORVO_SAMPLE_ACCESSORS

    // The overloads renderers use.
    void setFarPointCamera(float x, float y, float z) {
        setFarPointCamera(T3Float{x, y, z});
    }
    void setFilterSize(float x, float y, float z) {
        setFilterSize(T3Float{x, y, z});
    }
    void setRayOrigin(float x, float y, float z) {
        setRayOrigin(T3Float{x, y, z});
    }
    void setRayDirection(float x, float y, float z) {
        setRayDirection(T3Float{x, y, z});
    }
    void setPointWorld(float x, float y, float z) {
        setPointWorld(T3Float{x, y, z});
    }
    void setRefPointWorld(float x, float y, float z) {
        setRefPointWorld(T3Float{x, y, z});
    }
    void setParticleColor(float x, float y, float z) {
        setParticleColor(T3Float{x, y, z});
    }
    void setParticleEmission(float x, float y, float z) {
        setParticleEmission(T3Float{x, y, z});
    }
    void setParticleIncandescence(float x, float y, float z) {
        setParticleIncandescence(T3Float{x, y, z});
    }
    void setParticleTransparency(float x, float y, float z) {
        setParticleTransparency(T3Float{x, y, z});
    }
    void setNormalCamera(const double* xyz) {
        setNormalCamera(T3Float{float(xyz[0]), float(xyz[1]), float(xyz[2])});
    }
    void setUvCoord(float u, float v) {
        setUvCoord(T2Float{u, v});
    }
    void setUvFilterSize(float u, float v) {
        setUvFilterSize(T2Float{u, v});
    }

    // For each field in `fields` that has a slot and no value yet, copies the
    // default into the slot.
    void confirmSet(TbitField64 fields);
    // Marks the sample handed to its batch: objectId holds the batch's group.
    void setDispatched();
    void clearDispatched() {
        fDispatched = false;
    }
    // Copy every field that `offsets` places (except `skip`) to or from a
    // deep raster record, word by word; absent fields read as the default.
    void copyToDeepRaster(const unsigned* offsets, char* dest, unsigned skip) const;
    void fillFromDeepRaster(const unsigned* offsets, const char* src, unsigned skip);
    void checkField(const T3Float&) const {}

private:
    uint64_t fSet = 0;
    TsampleManager* fManager = nullptr;
    TsampleBatch* fBatch = nullptr;
    const unsigned* fOffsets = nullptr;
    bool fDispatched = false;
};
static_assert(sizeof(Tsample) == Tsample::kHeaderSize, "the sample header is 40 bytes");

// What a batch must tell its samples; the sample manager's batch derives
// from it.
class TsampleBatch {
public:
    void* renderGroup() const { return fGroup; }
    void setRenderGroup(void* group) { fGroup = group; }

protected:
    void* fGroup = nullptr;
};
