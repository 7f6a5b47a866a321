#pragma once

// A shading opus: one shading group compiled for one purpose, and the
// interpreter that runs it. The opus is shared and read only while it runs:
// each shade works in a frame on the calling thread's stack.

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <vector>

#include "host/plug.h"
#include "host/types.h"
#include "shading/data_block_rendering.h"
#include "shading/instruction.h"

class TdependNode;
class TDNshadingEngine;
class Tsample;
class TrenderGroupBase;
class TuserSampleFill;

// One user sample field of an opus (32 bytes).
struct TSEudSampleEntry {
    const TuserSampleFill* const* fills = nullptr;
    uint32_t fillCount = 0;
    uint32_t sourceField = 0;
    uint32_t destinationField = 0;
    uint32_t size = 0;
    uint32_t reserved[2] = {0, 0};
};
static_assert(sizeof(TSEudSampleEntry) == 32, "user sample table entries are 32 bytes");
using TSEudSampleTable = std::vector<TSEudSampleEntry>;

// Fills a user sample field for a batch (a renderer's object data, say).
class TuserSampleFill {
public:
    virtual ~TuserSampleFill() = default;
    virtual void fill(unsigned count, Tsample** samples, unsigned destinationField, unsigned size,
                      unsigned sourceField) const = 0;
    virtual void release() const {}
};

// What the analysis hands the opus (see TDNshadingEngine::distribute).
struct TSEopusLayout {
    unsigned blockCount = 0;
    std::vector<uint32_t> blockStrides; // variable bytes per element, by block
    std::vector<TSEinstruction> instructions;
    std::vector<uint32_t> segments; // segment s runs [segments[s], segments[s + 1])
    // The value a segment produces: its block and attribute.
    struct SegmentOutput {
        uint32_t block = 0;
        const Tattribute* attribute = nullptr;
        // Segments that compute the same node for outputs its one compute
        // writes together share a family (the first such segment's number):
        // a run of any of them serves them all.
        uint16_t family = 0;
    };
    std::vector<SegmentOutput> segmentOutputs;
    unsigned fieldStackBytes = 0;
    std::vector<std::unique_ptr<std::byte[]>> constants;          // constant blocks, by block
    std::vector<std::shared_ptr<std::vector<std::byte>>> buffers; // captured constants
    std::deque<TSEconnectionDescriptor> descriptors;
    std::deque<Tplug> plugs;
    std::vector<std::unique_ptr<AttrInfo[]>> attrInfos;
    std::vector<std::unique_ptr<MultiInfo[]>> multiInfos;
    std::vector<std::unique_ptr<uint16_t[]>> initLists;
    std::vector<const std::byte*> constantBlocks; // by block, for tear-down
    std::vector<TdependNode*> blockNodes;
    std::vector<TdependNode*> mutexNodes; // nodes whose mutex the list holds
};

class TshadingOpus {
public:
    TshadingOpus(TdependNode* node, unsigned option);
    virtual ~TshadingOpus();
    TshadingOpus(const TshadingOpus&) = delete;
    TshadingOpus& operator=(const TshadingOpus&) = delete;

    // Takes the compiled network and works out the frame and sample sizes.
    void initialize(TSEopusLayout&& layout, TbitField64 needs, const unsigned* fieldOffsets,
                    size_t offsetCount = 65);

    TdependNode* node() const { return fNode; }
    TDNshadingEngine* owner() const { return fOwner; }
    unsigned shadingOption() const { return fOption; }
    TbitField64 needs() const { return fNeeds; }
    unsigned numberOfBlocks() const { return fLayout.blockCount; }
    unsigned numberOfLights() const { return fLightCount; }
    unsigned numberOfSegments() const { return unsigned(fLayout.segments.size()) - 1; }
    const unsigned* fieldOffsetTable() const { return fFieldOffsets.data(); }
    unsigned frameSize() const { return fFrameSize; }
    unsigned perSampleSize() const { return fPerSampleSize; }
    const std::vector<TSEinstruction>& instructions() const { return fLayout.instructions; }
    const std::vector<uint32_t>& segmentTable() const { return fLayout.segments; }
    const TSEopusLayout& layout() const { return fLayout; }
    // How many of the copies the frame skips as repeats (see fRepeated).
    unsigned repeatedCopies() const;

    // User sample data.
    void addUserSampleData(TSEudSampleTable table);
    bool userSampleData() const { return !fUserTable.empty(); }
    const TSEudSampleTable& userSampleDataTable() const { return fUserTable; }
    unsigned userSampleSize() const;
    unsigned sizeOffset() const {
        return fUserTable.empty() ? 0u : unsigned(fUserTable.size()) + 1;
    }
    void fillUserSampleData(TrenderGroupBase* group, unsigned count, Tsample** samples) const;

    // Groups a batch for illumination: samples next to each other with the
    // same illuminationIndex share a slot (a negative index counts as the
    // sample's own position, so each such sample has a slot of its own).
    // Writes each sample's slot and each slot's first sample; returns the
    // number of slots.
    static unsigned illuminationSlots(unsigned count, Tsample* const* samples, uint16_t* slotOf,
                                      uint16_t* representative);

    // Runs the network over a batch of samples. Exceptions from nodes pass.
    void shade(unsigned count, Tsample** samples) const;

    // Runs one segment on demand (see TrenderingEvaluator::computeValue).
    static void computeValue(void* frame, uint16_t segment, const Tattribute* attribute,
                             uint8_t** value, void** block, unsigned first, unsigned count);
    static void sampleLights(void* frame, unsigned first, unsigned count, unsigned flags,
                             T3Float* points, TlightData** table);

    // Lights: the lit-by rows of the group's members and one light opus per
    // light number (null until added; a null light is skipped).
    void addIlluminationData(std::vector<TbitFieldFixedN> rows, unsigned lights);
    void addIlluminatingLight(unsigned i, TshadingOpus* light);
    const TshadingOpus* illuminatingLight(unsigned i) const {
        return i < fLightOpuses.size() ? fLightOpuses[i] : nullptr;
    }
    // Bytes of one slot's array of light records.
    unsigned lightBuilderSize() const { return fLightBuilderSize; }

    void releaseOpus();
    void resetShadeVectorHistogram() {}
    void printShadeVectorHistogram() const {}

private:
    class Frame;
    friend class Frame;

    TdependNode* fNode;
    TDNshadingEngine* fOwner;
    unsigned fOption;
    TbitField64 fNeeds;
    unsigned fLightCount = 0;
    unsigned fFrameSize = 0;
    unsigned fPerSampleSize = 0;
    std::vector<unsigned> fFieldOffsets;
    TSEopusLayout fLayout;
    TSEudSampleTable fUserTable;
    std::vector<TbitFieldFixedN> fLitBy;
    // The row of lights that light the object of `sample`'s batch; null
    // (every light of the group) when the batch's group knows no object.
    const TbitFieldFixedN* litByRow(const Tsample& sample) const;
    std::vector<TshadingOpus*> fLightOpuses;
    std::vector<TdependNode*> fLightNodes; // whose references releaseOpus gives back
    unsigned fLightBuilderSize = 0;
    // A light opus's copy of its record into the sample's lightData field,
    // when the record is read nowhere else: the light then writes the
    // record straight where the frame sends records (see runLights) and
    // the copy has nothing left to do. Null otherwise.
    const TSEinstruction* fRecordCopy = nullptr;
    void findRecordCopy();
    // By instruction: 1 for a copy that repeats one made earlier in its
    // segment, with nothing since that could change either side; the frame
    // skips it.
    std::vector<uint8_t> fRepeated;
    void findRepeatedCopies();

    // Runs the light opuses over one sample of each illumination slot and
    // fills each slot's array of light records.
    void runLights(unsigned count, Tsample** samples, unsigned slots, const uint16_t* slotOf,
                   const uint16_t* representative, TmultiHeader* builders,
                   std::byte* storage) const;
};
