#pragma once

// A sample: one shading request, a record of variable layout. A 40-byte
// header is followed by the slots of the fields the compiled network needs;
// the header's offset table says where each field lies, 0 for an absent one.
// Reads of an absent field go to the default sample; writes to it only set
// the field's bit.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "host/attribute.h"
#include "host/types.h"
#include "shading/sample_fields.h"

class TsampleManager;
class TsampleBatch;
class TrenderGroupBase;

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
    // What a field holds, for tools that write fields from text.
    enum class FieldKind : uint8_t {
        Float3,
        Float2,
        Float,
        Int32,
        UInt32,
        Int16,
        Char,
        Bool,
        Matrix,
        Other
    };
    static FieldKind fieldKind(unsigned i);
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
    // Sets the bits of several fields at once, for a writer that fills
    // their slots through the put accessors below.
    void markSetBits(uint64_t fields) { fSet |= fields; }
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

    // Writes a field's slot, if there is one, without touching its bit: a
    // writer filling many fields marks them once with markSetBits, instead
    // of a read-modify-write of the header a field.
#define ORVO_SAMPLE_PUT(n, name, Name, Type, offset, size)                                         \
    void put##Name(const Type& value) {                                                            \
        if (void* s = slot(n))                                                                     \
            std::memcpy(s, &value, sizeof(Type));                                                  \
    }
    ORVO_SAMPLE_FIELDS(ORVO_SAMPLE_PUT)
#undef ORVO_SAMPLE_PUT

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

    // ---- user sample data: after the fixed fields, a 36-byte position
    // record at table entry 64, then the user fields by their numbers.
    bool hasUserSampleData() const;
    void setUserSamplePosition(const T2Float* vector, T2Float position, int index);
    // The position record's parts; false when the sample has no user part.
    bool userSamplePosition(T2Float* vector, T2Float& position, int& index) const;
    void setUserSampleData(unsigned field, unsigned size, const void* value);
    void copyUserSampleData(unsigned destinationField, unsigned size, unsigned sourceField);
    void* userSampleSlot(unsigned field) {
        return fOffsets[field] ? reinterpret_cast<std::byte*>(this) + fOffsets[field] : nullptr;
    }

    // For each field in `fields` that has a slot and no value yet, copies the
    // default into the slot.
    void confirmSet(TbitField64 fields);
    // confirmSet for a batch: the copies that the first sample needs are
    // listed once, and every sample with the same layout and the same
    // fields set takes them from the list; the others run confirmSet.
    static void confirmSet(TbitField64 fields, unsigned count, Tsample* const* samples);
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

// Typed arrays of pointers to samples and to a renderer's records.
template <class T>
class TptrArray {
public:
    explicit TptrArray(size_t capacity = 0) { fItems.reserve(capacity); }
    T*& operator[](size_t i) { return fItems[i]; }
    T* operator[](size_t i) const { return fItems[i]; }
    T** data() { return fItems.data(); }
    size_t size() const { return fItems.size(); }
    bool empty() const { return fItems.empty(); }
    T*& last() { return fItems.back(); }
    auto begin() { return fItems.begin(); }
    auto end() { return fItems.end(); }
    auto cbegin() const { return fItems.cbegin(); }
    auto cend() const { return fItems.cend(); }
    void addLast(T* const& item) { fItems.push_back(item); }
    void addLast(T* const* items, unsigned count) {
        fItems.insert(fItems.end(), items, items + count);
    }
    void insert(T* const& item, unsigned at) { fItems.insert(fItems.begin() + at, item); }
    void insert(T* const* items, unsigned count, unsigned at) {
        fItems.insert(fItems.begin() + at, items, items + count);
    }
    // Makes the array `count` long, every entry `value`.
    void createAndSet(unsigned count, T* value) { fItems.assign(count, value); }
    // Position of the item, or -1.
    int find(const T* item) const {
        for (size_t i = 0; i < fItems.size(); ++i)
            if (fItems[i] == item)
                return int(i);
        return -1;
    }
    void remove(unsigned at) { fItems.erase(fItems.begin() + at); }
    void swap(TptrArray& other) { fItems.swap(other.fItems); }
    void copy(const TptrArray& other) { fItems = other.fItems; }
    void catenate(const TptrArray& other) {
        fItems.insert(fItems.end(), other.fItems.begin(), other.fItems.end());
    }
    size_t footprint() const { return sizeof(*this) + fItems.capacity() * sizeof(T*); }

private:
    std::vector<T*> fItems;
};

class TsampleRecord;
class TshadedRecord;
class TgeomSampleRecord;
class TgeomShadedRecord;
class TvolumeSampleRecord;
class TvolumeShadedRecord;
using TsampleArray = TptrArray<Tsample>;
using TsampleRecordArray = TptrArray<TsampleRecord>;
using TshadedRecordArray = TptrArray<TshadedRecord>;
using TgeomSampleRecordArray = TptrArray<TgeomSampleRecord>;
using TgeomShadedRecordArray = TptrArray<TgeomShadedRecord>;
using TvolumeSampleRecordArray = TptrArray<TvolumeSampleRecord>;
using TvolumeShadedRecordArray = TptrArray<TvolumeShadedRecord>;
