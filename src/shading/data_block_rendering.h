#pragma once

// The data block of a node in a compiled shading network. It holds the
// node's values for one batch of samples in two flat areas: a constant block
// filled once per network, and a variable block of one element per sample.
// A per-attribute table made by network analysis says where each value lies
// and how it is obtained; nodes see none of it and read through the usual
// inputValue / vectorInputValue calls.

#include <cstdint>
#include <iosfwd>

#include "host/datablock.h"

class TdependNode;
class Tattribute;

// Where an attribute's value lies and how it is obtained. Bit 0: in the
// variable block. Bit 1: the value is present at the attribute itself.
// Bit 3: children take part. Bit 5: the value lives in another block.
enum TSEattrInfoType : uint32_t {
    kConstDefaultValue = 0,
    kVarDefaultValue = 1,
    kConstPresent = 2,
    kVarPresent = 3,
    kConstUseParent = 4,
    kVarUseParent = 5,
    kConstUseChild = 8,
    kVarUseChild = 9,
    kVarPreferChild = 11,
    kConstUseParentAndChild = 12,
    kVarUseParentAndChild = 13,
    kVarPresentNoProp = 17,
    kConstantType = 20,
    kVariableType = 21,
    kNotConnectedType = 22,
    kConstPreferChild = 27,
    kVarPresentOtherDB = 35,
    kVarUseParentOtherDB = 36,
};

// The bits of a TSEattrInfoType.
constexpr uint32_t kAttrInfoVariable = 1u;    // in the variable block
constexpr uint32_t kAttrInfoPresent = 2u;     // present at the attribute itself
constexpr uint32_t kAttrInfoChildren = 8u;    // children take part
constexpr uint32_t kAttrInfoOtherBlock = 32u; // lives in another block

// The debug name of an AttrInfo type ("*** INVALID VALUE ***" for others).
const char* OrvoAttrInfoTypeName(uint32_t type);

// 12 bytes per attribute, indexed by the attribute's dense index.
struct AttrInfo {
    uint32_t type = kConstDefaultValue;
    uint32_t offset = 0; // in the constant block, or in one element when bit 0 of type is set
    uint16_t thread = 0; // segment that computes the value; for an array, its MultiInfo index
    uint16_t reserved = 0;
};
static_assert(sizeof(AttrInfo) == 12, "AttrInfo records are 12 bytes");

// 16 bytes per record. An array has a header record followed by one record
// per element (and, nested, per element child). For an element record the
// bytes 8 to 11 hold the element's logical index instead of dOff and bOff.
struct MultiInfo {
    uint32_t kind = kConstDefaultValue;
    int16_t numKids = 0;       // children records; below 1 a leaf; -1 ends a run
    uint16_t threadOrCOff = 0; // segment if bit 0 of kind, else offset in the constant block
    uint16_t dOff = 0;
    uint16_t bOff = 0;
    int32_t pOff = 0; // records back to the parent record

    uint32_t logicalIndex() const {
        uint32_t index;
        __builtin_memcpy(&index, &dOff, 4);
        return index;
    }
    void setLogicalIndex(uint32_t index) { __builtin_memcpy(&dOff, &index, 4); }
    // The header record of an array that lies in the variable block keeps in
    // the same bytes the offset, in the constant block, of the array's
    // prepared slot: its elements with every value that doesn't vary, which
    // each batch copies before the varying ones are computed.
    uint32_t templateOffset() const { return logicalIndex(); }
    void setTemplateOffset(uint32_t offset) { setLogicalIndex(offset); }
    // The segment that computes this record's value, or 0.
    uint16_t segment() const { return (kind & kAttrInfoVariable) ? threadOrCOff : uint16_t(0); }
};
static_assert(sizeof(MultiInfo) == 16, "MultiInfo records are 16 bytes");

// Records an array's header or element takes with everything nested under
// it. A header's kids are its elements; an element's (or a child's) kids are
// one record for each child of its attribute, in the attribute's order.
inline uint32_t OrvoMultiSpan(const MultiInfo* record) {
    uint32_t span = 1;
    for (int k = 0; k < record->numKids; ++k)
        span += OrvoMultiSpan(record + span);
    return span;
}

// The record of element `position` (0-based, in index order) of the array
// whose header record is `header`.
inline const MultiInfo* OrvoMultiElement(const MultiInfo* header, uint32_t position) {
    const MultiInfo* record = header + 1;
    for (uint32_t e = 0; e < position; ++e)
        record += OrvoMultiSpan(record);
    return record;
}

// What a rendering block asks of the network it runs in: run a segment on
// demand, gather lights. The shading opus's frame answers.
class TrenderingEvaluator {
public:
    virtual ~TrenderingEvaluator() = default;
    // Runs `segment` over elements [first, first + count). With *value null
    // the address of the attribute's value in the computing block is stored
    // there and *block receives that block; otherwise the value is copied to
    // *value (for each element of the run, by the caller's block stride).
    virtual void computeValue(uint16_t segment, const Tattribute& attribute, uint8_t** value,
                              TdataBlock** block, unsigned first, unsigned count) = 0;
    virtual void sampleLights(unsigned first, unsigned count, unsigned flags, T3Float* points,
                              TlightData** table) = 0;
};

// The slot of an attribute whose value lives in another block holds this
// pair: the value's address at element 0 there, and that block. A link is
// the same for every element of a run (element e's value is at base + e *
// the other block's stride), so only the first element's pair is kept: a
// batch clears one word and a link writes one pair, whatever the count.
struct OtherDBPair {
    std::byte* base;
    TdataBlock* block;
};

class TdataBlockRendering : public TdataBlock {
public:
    TdataBlockRendering() { fStatus[1] = 2; }
    ~TdataBlockRendering() override;

    // ---- layout, once per node at the end of analysis
    struct Layout {
        uint32_t constantSize = 0;
        uint32_t variableSize = 0;
    };
    // Fills `infos` from the analysis types, assigns every offset and writes
    // the init list (count first, then attribute indices). `types` and
    // `infos` are indexed by attribute index; `multiInfos` gives the element
    // count of arrays (through AttrInfo.thread) and receives the place of
    // each varying array's prepared slot. initList needs room for
    // attributes + 1 entries.
    static Layout layout(const TdependNode& node, const uint32_t* types, AttrInfo* infos,
                         MultiInfo* multiInfos, uint16_t* initList);
    // Bytes an array slot takes: its 48-byte header, then its elements.
    static uint32_t arraySlotSize(const Tattribute& array, const MultiInfo* header);

    // ---- the constant part, once when the network is emitted
    // Constructs the constant values, the constant arrays and the prepared
    // slots of varying arrays.
    static void initializeConstant(TdependNode* node, const AttrInfo* infos,
                                   const MultiInfo* multiInfos, const uint16_t* initList,
                                   std::byte* constantBlock);
    // Fetches every default that doesn't vary from the node into the
    // constant block (and the prepared slots) and marks it present. After
    // this the tables and the constant block are only read: every thread
    // that shades with them shares them.
    static void resolveConstants(TdependNode* node, AttrInfo* infos, MultiInfo* multiInfos,
                                 const uint16_t* initList, std::byte* constantBlock);
    static void tearDownConstant(TdependNode* node, const AttrInfo* infos,
                                 const MultiInfo* multiInfos, const uint16_t* initList,
                                 std::byte* constantBlock);
    // Where the value of element `logicalIndex` of `array` (or of its child
    // `leaf`) lies inside the array's slot, from the slot's start; ~0u when
    // the element isn't there.
    static uint32_t elementOffset(const Tattribute& array, const MultiInfo* header,
                                  unsigned logicalIndex, const Tattribute& leaf);

    // ---- the variable part, for each shade
    // A varying value (with its children) kept outside the block: element
    // e's value at base + e * stride. A light writes its record this way
    // straight into the array of records its material walks.
    struct Outside {
        const Tattribute* attribute = nullptr;
        std::byte* base = nullptr;
        uint32_t stride = 0;
    };
    // Sets up `count` elements at `variableBase`, and `outside`'s value (if
    // given) where it says.
    void initialize(TdependNode* node, const AttrInfo* infos, const MultiInfo* multiInfos,
                    const uint16_t* initList, const std::byte* constantBlock, unsigned count,
                    std::byte* variableBase, uint32_t stride, TrenderingEvaluator* evaluator,
                    const Outside* outside = nullptr);
    void tearDownVariable();

    TdependNode* node() const { return fNode; }
    // Whether initialize took the value it was asked to keep outside.
    bool keepsOutside() const { return fOutside != nullptr; }
    // Sets the link of `attribute` (a value that lives in `source`'s block,
    // at `base` for element 0) for the whole run.
    void setLink(const Tattribute& attribute, std::byte* base, TdataBlock* source);
    const std::byte* constantBlock() const { return fConstant; }
    const AttrInfo* attrInfos() const { return fInfos; }
    const MultiInfo* multiInfos() const { return fMultis; }

    // ---- TdataBlock
    void debug(TdebugOutput& out, const TdebugDetails& details) const override;
    TdataHandle inputValue(const Tattribute& attribute) override;
    TdataHandle inputValue(const Tplug& plug) override;
    TdataHandle outputValue(const Tattribute& attribute) override;
    TdataHandle outputValue(const Tplug& plug) override;
    TvectorDataHandle vectorInputValue(const Tplug& plug, unsigned first, unsigned count) override;
    TvectorDataHandle vectorInputValue(const Tattribute& attribute, unsigned first,
                                       unsigned count) override;
    TvectorDataHandle vectorOutputValue(const Tplug& plug, unsigned first, unsigned count) override;
    TvectorDataHandle vectorOutputValue(const Tattribute& attribute, unsigned first) override;
    bool servesVectorRuns() const override { return true; }
    bool fetchesDefaultsOnDemand() const override { return true; }
    void sampleLights(void* frame, unsigned first, unsigned count, unsigned flags, T3Float* points,
                      TlightData** table) override;
    uint32_t dataBlockMemorySize() const override;
    bool addMultiInstance(const Tplug& plug) override;
    bool removeMultiInstance(const Tplug& plug) override;
    TdataHandle elementValue(const Tplug& plug, bool create) override;
    TvectorDataHandle elementVectorValue(const Tplug& plug, unsigned first,
                                         unsigned count) override;
    TmultiHeader* elementStorage(const Tplug& plug) override;

    // The dumps that go to standard output: the AttrInfo and MultiInfo
    // tables of the block's node.
    void dumpAttrInfo(std::ostream& out) const;
    void dumpMultiInfo(std::ostream& out) const;

private:
    std::byte* addressOf(const Tattribute& a, unsigned element) const;
    // The address of element e of the varying value described by `info`,
    // and the step from one element to the next.
    std::byte* variableAt(const AttrInfo& info, unsigned element) const {
        const uint32_t within = info.offset - fOutsideFrom;
        if (within < fOutsideSize)
            return fOutside + size_t(element) * fOutsideStride + within;
        return fFirst + size_t(element) * fStride + info.offset;
    }
    uint32_t variableStride(const AttrInfo& info) const {
        return info.offset - fOutsideFrom < fOutsideSize ? fOutsideStride : fStride;
    }
    TdataHandle handleOf(const Tattribute& a, unsigned element, uint32_t extraMode = 0) const;
    // The link of an attribute whose value lives in another block (see
    // OtherDBPair): the pair in the first element, at the holder's offset.
    OtherDBPair* linkOf(const AttrInfo& holder) const {
        return reinterpret_cast<OtherDBPair*>(fFirst + holder.offset);
    }

    // Brings the value of `a` up to date for elements [first, first + count).
    void evaluate(const Tattribute& a, unsigned first, unsigned count);
    void evaluateArray(const Tattribute& array, unsigned first, unsigned count);
    // One record of a varying array and the records under it: `at` is the
    // value's place in element `first`.
    void evaluateRecord(const MultiInfo* record, const Tattribute& a, std::byte* at,
                        std::ptrdiff_t toTemplate, unsigned first, unsigned count);
    void compute(uint16_t segment, const Tattribute& a, std::byte* destination, unsigned first,
                 unsigned count);
    void fetchVaryingDefault(const Tattribute& a, unsigned first, unsigned count);
    void assembleChildren(const Tattribute& compound, unsigned first, unsigned count);
    TdataHandle otherBlockHandle(const Tattribute& a, unsigned element, unsigned count);
    void restoreCurrent(unsigned index);

    // Multi path.
    const Tattribute* servedArray(const Tplug& plug) const;
    TmultiHeader* headerOf(const Tattribute& array, unsigned element) const;
    const MultiInfo* headerRecord(const Tattribute& array) const;
    void evaluateElement(const Tattribute& array, unsigned logicalIndex, unsigned first,
                         unsigned count);

    TdependNode* fNode = nullptr;
    uint8_t fStatus[2] = {0, 0};
    const std::byte* fConstant = nullptr;
    const AttrInfo* fInfos = nullptr;
    const MultiInfo* fMultis = nullptr;
    const uint16_t* fInitList = nullptr;
    TrenderingEvaluator* fEvaluator = nullptr;
    // The value kept outside (see Outside): the element bytes
    // [fOutsideFrom, fOutsideFrom + fOutsideSize) live at fOutside instead.
    std::byte* fOutside = nullptr;
    uint32_t fOutsideFrom = 0;
    uint32_t fOutsideSize = 0;
    uint32_t fOutsideStride = 0;
};
