#pragma once

// Data blocks hold a node's attribute values for evaluation. A block holds a
// run of elements (one per sample, or one in ordinary graph evaluation);
// handles point into it. Nothing here allocates on the value paths: handles
// are small values and vector handles walk by stride.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>

#include "host/types.h"

class Tattribute;
class TdataBlock;
class TdebugOutput;
struct TdebugDetails;
struct Footprint;
class Tplug;
class Tdata;
class Tmetaclass;
class TmultiBuilder;
struct TlightData;

// The header of an array attribute's value inside a block (48 bytes).
// Elements are `stride` bytes apart, each a 32-bit logical index followed by
// the value at TmultiBuilder::valueOffset. Elements are sorted by index.
struct TmultiHeader {
    uint32_t countTimes2 = 0; // count * 2; the low bit is the owns-data flag
    uint32_t count = 0;
    uint32_t stride = 0;
    uint32_t reserved0 = 0;
    const void* multiInfo = nullptr; // the rendering block's record, else null
    std::byte* data = nullptr;       // null when count is 0
    uint64_t reserved1[2] = {0, 0};

    static constexpr uint32_t kOwnsData = 1;
    bool ownsData() const { return countTimes2 & kOwnsData; }
};
static_assert(sizeof(TmultiHeader) == 48, "array headers take 48 bytes in a block");

class TdataHandle {
public:
    enum Mode : uint32_t {
        kIsArray = 1,   // the value is an array header
        kIsVarying = 2, // the value lies in the varying part: a walk steps by stride
        kRunOfArray = 4,
    };

    TdataHandle() = default;
    TdataHandle(TdataBlock* block, const Tattribute* attribute, void* address, uint32_t mode = 0)
        : fBlock(block), fAttribute(attribute), fAddress(static_cast<std::byte*>(address)),
          fMode(mode) {}

    bool isNull() const { return fAddress == nullptr; }
    TdataBlock* block() const { return fBlock; }
    const Tattribute* attribute() const { return fAttribute; }
    void* address() const { return fAddress; }
    uint32_t mode() const { return fMode; }

    // Typed reads straight from the value address.
    float asFloat() const { return *reinterpret_cast<const float*>(fAddress); }
    float* asFloat3() const { return reinterpret_cast<float*>(fAddress); }
    float* asFloats() const { return reinterpret_cast<float*>(fAddress); }
    int16_t asShort() const { return *reinterpret_cast<const int16_t*>(fAddress); }
    int32_t asInt() const { return *reinterpret_cast<const int32_t*>(fAddress); }
    double asDouble() const { return *reinterpret_cast<const double*>(fAddress); }
    bool asBool() const { return *reinterpret_cast<const uint8_t*>(fAddress) != 0; }
    TlightData* asLightData() const { return reinterpret_cast<TlightData*>(fAddress); }
    TmultiHeader* asMultiHeader() const { return reinterpret_cast<TmultiHeader*>(fAddress); }
    template <class T>
    T& as() const {
        return *reinterpret_cast<T*>(fAddress);
    }

    // Writes `count` floats and marks the value evaluated. Inline: nodes
    // write their outputs through it once per sample.
    bool set(int count, const float* values) {
        if (!fAddress || count < 0)
            return false;
        switch (count) {
        case 1:
            std::memcpy(fAddress, values, sizeof(float));
            break;
        case 2:
            std::memcpy(fAddress, values, 2 * sizeof(float));
            break;
        case 3:
            std::memcpy(fAddress, values, 3 * sizeof(float));
            break;
        default:
            std::memcpy(fAddress, values, size_t(count) * sizeof(float));
            break;
        }
        setClean();
        return true;
    }
    bool set(const T2Float& value) { return set(2, &value.x); }
    bool set(const T3Float& value) { return set(3, &value.x); }
    bool set(float value) { return set(1, &value); }
    bool set(const Tdata& value, bool clean = true);
    inline void setClean();
    // The handle of a compound child of this value.
    TdataHandle child(const Tattribute& child) const;
    void vectorAdvance(uint32_t stride) { fAddress += stride; }
    bool getValue(T2Float& out) const;
    bool getValue(Tdata& out) const;
    // Copies a value of the same attribute class from another handle.
    bool deepCopy(const TdataHandle& other);
    Tmetaclass* dataType() const;

private:
    TdataBlock* fBlock = nullptr;
    const Tattribute* fAttribute = nullptr;
    std::byte* fAddress = nullptr;
    uint32_t fMode = 0;
};

// A handle on a run of elements. Element i lies `stride` bytes after element
// i - 1; a constant value has stride 0, so one loop body serves both.
class TvectorDataHandle {
public:
    TvectorDataHandle() = default;
    TvectorDataHandle(const TdataHandle& first, uint32_t stride) : fFirst(first), fStride(stride) {}
    explicit TvectorDataHandle(const TdataHandle& single) : fFirst(single), fStride(0) {}

    TvectorDataHandle& operator=(const TdataHandle& single) {
        fFirst = single;
        fStride = 0;
        return *this;
    }

    TdataHandle operator[](int i) const {
        return TdataHandle(fFirst.block(), fFirst.attribute(),
                           static_cast<std::byte*>(fFirst.address()) + size_t(i) * fStride,
                           fFirst.mode());
    }
    uint32_t stride() const { return fStride; }
    bool isConstant() const { return fStride == 0; }
    bool isNull() const { return fFirst.isNull(); }
    const TdataHandle& first() const { return fFirst; }

private:
    TdataHandle fFirst;
    uint32_t fStride = 0;
};

// Thrown when a plug names an array element that is not there.
class TDEbadMultiIndex : public std::runtime_error {
public:
    TDEbadMultiIndex(const Tattribute* attribute, unsigned index);
    const Tattribute* attribute() const { return fAttribute; }
    unsigned index() const { return fIndex; }

private:
    const Tattribute* fAttribute;
    unsigned fIndex;
};

// Builds the element set of an array: indices to add, kept sorted.
class TmultiBuilder {
public:
    explicit TmultiBuilder(const Tattribute* attribute) : fAttribute(attribute) {}
    void addElement(unsigned logicalIndex);
    const TuInt32Array& indices() const { return fIndices; }
    const Tattribute* attribute() const { return fAttribute; }

    // Byte distance between elements of an array of `attribute`.
    static uint32_t calcStride(const Tattribute& attribute);
    // Where the value lies inside an element (after the logical index).
    static uint32_t valueOffset(const Tattribute& attribute);
    // Bytes of element storage for `count` elements.
    static size_t computeSize(const Tattribute& attribute, uint32_t count);
    // Bytes of one connection's worth of element storage.
    static size_t singleConnectionSize(const Tattribute& attribute);

private:
    const Tattribute* fAttribute;
    TuInt32Array fIndices;
};

// A cursor over the elements of an array value.
class TmultiHandle {
public:
    TmultiHandle() = default;
    explicit TmultiHandle(const TdataHandle& arrayValue);

    unsigned elementCount() const { return fHeader ? fHeader->count : 0; }
    // Logical index of the current element.
    unsigned elementIndex() const;
    bool advance();
    bool isDone() const { return !fHeader || fPosition >= fHeader->count; }
    // The value of the current element.
    TdataHandle reference() const;
    // Moves to the element with this logical index; false if there is none.
    bool jumpToElement(unsigned logicalIndex);
    // Moves to the element at this physical position.
    bool jumpToArrayElement(unsigned position);
    // A handle over elements [from, to) of the array, walked by its stride.
    TvectorDataHandle valueAll(const Tattribute& attribute, unsigned from, unsigned to) const;
    void vectorAdvance(uint32_t blockStride);
    TmultiBuilder builder() const;
    // Replaces the elements by those of the builder: existing elements keep
    // their values, new ones get the default. The header then owns its data.
    void set(const TmultiBuilder& builder);
    // Removes the element with this logical index; false if there is none.
    bool removeElement(unsigned logicalIndex);
    void debug(TdebugOutput& out) const;

    static void setHeaderBits(TmultiHeader& header, uint32_t count, uint32_t stride);
    static void setFatChannel(TmultiHeader& header, const void* multiInfo);
    // Destroys the element values and frees the data the header owns.
    static void release(TmultiHeader& header, const Tattribute& attribute);
    // Copies an array value (elements and indices) into an empty header.
    static void copyInto(TmultiHeader& dst, const TmultiHeader& src, const Tattribute& attribute);

private:
    TdataBlock* fBlock = nullptr;
    const Tattribute* fAttribute = nullptr;
    TmultiHeader* fHeader = nullptr;
    unsigned fPosition = 0;
};

// The per-evaluation storage of one node's values. The base holds the run of
// elements; subclasses decide where each attribute's value lies.
// Calls run(start, length) for each maximal run of indices in [0, n) where
// `in(i)` holds. A node asks the block for an input once per run, so that
// what feeds the input is evaluated for the samples that need it only.
template <class In, class Run>
void OrvoForEachRun(unsigned n, In in, Run run) {
    unsigned i = 0;
    while (i < n) {
        if (!in(i)) {
            ++i;
            continue;
        }
        const unsigned start = i;
        while (i < n && in(i))
            ++i;
        run(start, i - start);
    }
}

class TdataBlock {
public:
    TdataBlock() = default;
    TdataBlock(const TdataBlock&) = delete;
    TdataBlock& operator=(const TdataBlock&) = delete;

    // Slot order matters: the rendering block overrides these one for one.
    virtual ~TdataBlock();
    virtual void debug(TdebugOutput& out, const TdebugDetails& details) const;
    virtual void footprint(Footprint& fp) const;
    virtual TdataHandle inputValue(const Tattribute& attribute) = 0;
    virtual TdataHandle inputValue(const Tplug& plug) = 0;
    virtual TdataHandle outputValue(const Tattribute& attribute) = 0;
    virtual TdataHandle outputValue(const Tplug& plug) = 0;
    virtual TvectorDataHandle vectorInputValue(const Tplug& plug, unsigned first,
                                               unsigned count) = 0;
    virtual TvectorDataHandle vectorInputValue(const Tattribute& attribute, unsigned first,
                                               unsigned count) = 0;
    virtual TvectorDataHandle vectorOutputValue(const Tplug& plug, unsigned first,
                                                unsigned count) = 0;
    virtual TvectorDataHandle vectorOutputValue(const Tattribute& attribute, unsigned first) = 0;
    // Whether the block serves runs of elements, and whether it fetches
    // defaults on demand.
    virtual bool servesVectorRuns() const { return true; }
    virtual bool fetchesDefaultsOnDemand() const { return false; }
    // Notifications from the graph; blocks that keep no state ignore them.
    virtual void valueChanged(const Tattribute&) {}
    virtual void elementAdded(const Tplug&) {}
    virtual void elementRemoved(const Tplug&) {}
    virtual void evaluationBegins() {}
    virtual void evaluationEnds() {}
    // Gathers illumination for a run of samples; only a rendering block can.
    virtual void sampleLights(void* frame, unsigned first, unsigned count, unsigned flags,
                              T3Float* points, TlightData** table);
    virtual uint32_t dataBlockMemorySize() const = 0;
    virtual bool addMultiInstance(const Tplug& plug) = 0;
    virtual bool removeMultiInstance(const Tplug& plug) = 0;
    // Array element services: the value of one element (made if `create`),
    // the element over a run, and the element storage itself.
    virtual TdataHandle elementValue(const Tplug& plug, bool create) = 0;
    virtual TvectorDataHandle elementVectorValue(const Tplug& plug, unsigned first,
                                                 unsigned count) = 0;
    virtual TmultiHeader* elementStorage(const Tplug& plug) = 0;

    // Base fields, in order.
    uint32_t elementStride() const { return fStride; }
    std::byte* firstElement() const { return fFirst; }
    std::byte* lastElement() const { return fLast; }
    std::byte* currentElement() const { return fCurrent; }
    uint32_t modeWord() const { return fMode; }

    // Elements the block holds: the last element's address is the last
    // element's, not past it, so the count is one more than the distance.
    unsigned elementCount() const {
        return fStride ? unsigned((fLast - fFirst) / fStride) + 1 : 1u;
    }
    // The index of the element the block stands at.
    unsigned currentIndex() const { return fStride ? unsigned((fCurrent - fFirst) / fStride) : 0u; }
    void setCurrentIndex(unsigned index) { fCurrent = fFirst + size_t(index) * fStride; }
    void setCurrent(std::byte* element) { fCurrent = element; }

    // A handle's value was evaluated: what its attribute reads is now valid.
    virtual void markClean(const Tattribute&) {}

protected:
    uint32_t fStride = 0;
    std::byte* fFirst = nullptr;
    // The address of the last element, not past it: every block keeps it
    // so, and a position test is `<=` this value.
    std::byte* fLast = nullptr;
    std::byte* fCurrent = nullptr;
    uint32_t fMode = 0;
};

void TdataHandle::setClean() {
    if (fBlock && fAttribute)
        fBlock->markClean(*fAttribute);
}
