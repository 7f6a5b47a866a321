#include "shading/opus.h"

#include <algorithm>
#include <cstring>
#include <mutex>

#include "host/dependnode.h"
#include "host/node_mutex.h"
#include "host/shadingnode.h"
#include "shading/dispatch_compute.h"
#include "shading/render_thread.h"
#include "shading/sample.h"
#include "shading/sample_manager.h"
#include "shading/scratch.h"
#include "shading/shading_engine.h"

// ---------------------------------------------------------------- the frame

namespace {
struct Strided;
}

// The state of one shade (or one light gathering) on the calling thread's
// stack: the blocks of the network, their variable areas, the re-entrance
// flags of the segments.
class TshadingOpus::Frame final : public TrenderingEvaluator {
public:
    // Samples of one batch come from one manager and share its layout: a
    // field then sits at one offset in every sample, found once a copy
    // instead of once a sample. Null when they don't.
    static const unsigned* sharedLayout(Tsample* const* samples, unsigned count) {
        const unsigned* table = count ? samples[0]->fieldOffsetTable() : nullptr;
        for (unsigned e = 1; e < count && table; ++e)
            if (samples[e]->fieldOffsetTable() != table)
                table = nullptr;
        return table;
    }
    // A frame for each light over the same samples takes their layout as
    // the caller found it (`layout`), rather than looking again.
    Frame(const TshadingOpus& opus, Tsample** samples, unsigned count, void* memory,
          TmultiHeader* lights = nullptr, const uint16_t* slotOf = nullptr,
          const unsigned* const* layout = nullptr)
        : fOpus(opus), fSamples(samples), fCount(count), fLights(lights), fSlotOf(slotOf) {
        fLayoutTable = layout ? *layout : sharedLayout(samples, count);
        auto* at = static_cast<std::byte*>(memory);
        fBlocks = reinterpret_cast<TdataBlockRendering*>(at);
        at += sizeof(TdataBlockRendering) * opus.fLayout.blockCount;
        fSegmentFlags = reinterpret_cast<uint8_t*>(at);
        at += OrvoAlignUp(opus.fLayout.segments.size() + 1, 16);
        std::memset(fSegmentFlags, 0, opus.fLayout.segments.size() + 1);
        fMade = reinterpret_cast<uint8_t*>(at);
        at += OrvoAlignUp(opus.fLayout.blockCount + 1, 16);
        std::memset(fMade, 0, opus.fLayout.blockCount + 1);
        fRuns = reinterpret_cast<Run*>(at);
        at += OrvoAlignUp(sizeof(Run) * opus.fLayout.segments.size(), 16);
        std::memset(static_cast<void*>(fRuns), 0, sizeof(Run) * opus.fLayout.segments.size());
        fStacks = at;
        at += OrvoAlignUp(opus.fLayout.fieldStackBytes, 16);
        fVariable = at;
    }
    ~Frame() override { tearDown(); }

    // Bytes a frame takes apart from its samples' values: the block
    // objects, the segment and block flags, the field stacks, and the slack
    // that aligns the start. The opus reports it as its frame size.
    static size_t fixedBytes(const TSEopusLayout& layout) {
        return sizeof(TdataBlockRendering) * layout.blockCount +
               OrvoAlignUp(layout.segments.size() + 1, 16) +
               OrvoAlignUp(layout.blockCount + 1, 16) +
               OrvoAlignUp(sizeof(Run) * layout.segments.size(), 16) +
               OrvoAlignUp(layout.fieldStackBytes, 16) + 16;
    }
    // Bytes of scratch a frame needs for `count` samples.
    static size_t bytesFor(const TshadingOpus& opus, unsigned count) {
        size_t bytes = fixedBytes(opus.fLayout);
        for (uint32_t stride : opus.fLayout.blockStrides)
            bytes += OrvoAlignUp(size_t(stride) * count, 16);
        return bytes;
    }

    void runSegment(uint16_t segment, unsigned first, unsigned count) {
        const auto& table = fOpus.fLayout.segments;
        if (segment == 0 || segment >= table.size())
            return;
        const uint16_t outer = fSegment;
        fSegment = segment;
        run(table[segment - 1u], table[segment], first, count);
        fSegment = outer;
    }

    void computeValue(uint16_t segment, const Tattribute& attribute, uint8_t** value,
                      TdataBlock** block, unsigned first, unsigned count) override;
    void sampleLights(unsigned first, unsigned count, unsigned flags, T3Float* points,
                      TlightData** table) override;

    // Where a light's record goes instead of the sample's lightData field:
    // element e's record at base + e * stride (a slot's array of records).
    void sendRecordsTo(std::byte* base, size_t stride) {
        fRecords = base;
        fRecordStride = stride;
    }

private:
    // The range a segment family last ran over, and the field stacks' state
    // then: a read inside that range, with the stacks unchanged, finds the
    // values in place and needn't run the segment again.
    struct Run {
        uint32_t first;
        uint32_t count; // 0: not run in this frame
        uint32_t stacks;
    };
    void run(uint32_t begin, uint32_t end, unsigned first, unsigned count);
    void setUpBlock(const TSEinstruction& in);
    void computeNode(const TSEinstruction& in, unsigned first, unsigned count, bool locked);
    void copy(const TSEinstruction& in, unsigned first, unsigned count);
    void link(const TSEinstruction& in, unsigned first, unsigned count);
    // Field stacks: a header (top entry offset, capacity) and 24-byte entries.
    struct StackEntry {
        uint8_t key[12];
        uint32_t repeat;
        const void* pointer;
    };
    static_assert(sizeof(StackEntry) == 24, "field stack entries are 24 bytes");
    uint32_t* stackHeader(uint32_t stack) { return reinterpret_cast<uint32_t*>(fStacks + stack); }
    StackEntry* stackTop(uint32_t stack) {
        return reinterpret_cast<StackEntry*>(fStacks + stack + stackHeader(stack)[0]);
    }
    bool reentered() const { return fSegment && fSegmentFlags[fSegment]; }
    void resetStack(const TSEinstruction& in);
    void pushField(const TSEinstruction& in);
    void popField(const TSEinstruction& in);
    Strided strided(const TSEdescriptorHalf& half) const;
    template <class To>
    void copyTo(const To& to, const TSEinstruction& in, unsigned first, unsigned last);
    void tearDown() {
        for (unsigned b = fBlocksMade; b-- > 0;) {
            if (fMade[b]) {
                fBlocks[b].tearDownVariable();
                fBlocks[b].~TdataBlockRendering();
            }
        }
        fBlocksMade = 0;
    }

    const TshadingOpus& fOpus;
    Tsample** fSamples;
    unsigned fCount;
    const unsigned* fLayoutTable; // the samples' shared field offsets, or null
    TmultiHeader* fLights;        // the light records of each illumination slot
    const uint16_t* fSlotOf;
    std::byte* fRecords = nullptr; // see sendRecordsTo
    size_t fRecordStride = 0;
    bool fRecordsInPlace = false; // the light's block keeps its record there
    TdataBlockRendering* fBlocks;
    uint8_t* fSegmentFlags;
    std::byte* fStacks;
    std::byte* fVariable;
    size_t fVariableUsed = 0;
    uint16_t fSegment = 0;
    unsigned fBlocksMade = 0;
    uint8_t* fMade; // which blocks have been set up, for the tear-down
    Run* fRuns;     // by segment family
    // Counts the changes to the field stacks: a segment that reads a stack
    // may give another value after a push or a pop.
    uint32_t fStackChanges = 0;
};

void TshadingOpus::Frame::run(uint32_t begin, uint32_t end, unsigned first, unsigned count) {
    const TSEinstruction* list = fOpus.fLayout.instructions.data();
    for (uint32_t i = begin; i < end; ++i) {
        const TSEinstruction& in = list[i];
        switch (in.opcode) {
        case kOpCompute:
            computeNode(in, first, count, false);
            break;
        case kOpComputeLocked:
            computeNode(in, first, count, true);
            break;
        case kOpSetUpBlock:
            setUpBlock(in);
            break;
        case kOpCopy:
            if (i >= fOpus.fRepeated.size() || !fOpus.fRepeated[i])
                copy(in, first, count);
            break;
        case kOpCopyFromStack:
            copy(in, first, count);
            break;
        case kOpPushField:
            pushField(in);
            break;
        case kOpPopField:
            popField(in);
            break;
        case kOpResetStack:
            resetStack(in);
            break;
        case kOpLinkOtherDB:
            link(in, first, count);
            break;
        default: // 8, 9 and anything above 10 do nothing
            break;
        }
    }
}

void TshadingOpus::Frame::setUpBlock(const TSEinstruction& in) {
    const auto& s = in.setUp;
    if (s.block >= fOpus.fLayout.blockCount || fMade[s.block])
        return;
    TdataBlockRendering* block = new (fBlocks + s.block) TdataBlockRendering();
    std::byte* base = fVariable + fVariableUsed;
    fVariableUsed += OrvoAlignUp(size_t(s.stride) * fCount, 16);
    TdataBlockRendering::Outside outside;
    const TSEinstruction* recordCopy = fOpus.fRecordCopy;
    if (fRecords && recordCopy && recordCopy->copy.descriptor->source.block == s.block)
        outside = {recordCopy->copy.descriptor->source.attribute, fRecords,
                   uint32_t(fRecordStride)};
    block->initialize(s.node, s.infos, s.multis, s.initList, s.constantBlock, fCount, base,
                      s.stride, this, outside.attribute ? &outside : nullptr);
    if (outside.attribute && block->keepsOutside())
        fRecordsInPlace = true;
    fMade[s.block] = 1;
    fBlocksMade = std::max(fBlocksMade, s.block + 1);
}

void TshadingOpus::Frame::computeNode(const TSEinstruction& in, unsigned first, unsigned count,
                                      bool locked) {
    const auto& c = in.compute;
    TdataBlockRendering& block = fBlocks[c.block];
    const unsigned previous = block.currentIndex();
    block.setCurrentIndex(first);
    if (c.shadingNode)
        c.shadingNode->ensureOnDemand(const_cast<Tplug&>(*c.plug), block);
    auto run = [&] {
        if (TDNdispatchCompute::dispatchCompute(c.node, *c.plug, block, first, count))
            return;
        // A type with only a scalar compute: one element at a time.
        for (unsigned e = first; e < first + count; ++e) {
            block.setCurrentIndex(e);
            c.node->computePlug(*c.plug, block);
        }
    };
    if (locked && c.mutex) {
        std::lock_guard lock(*static_cast<std::recursive_mutex*>(c.mutex));
        run();
    } else {
        run();
    }
    block.setCurrentIndex(previous);
}

// The sides of a copy, resolved once for the run. A block value or a raw
// address walks by a stride (0 for a constant); a sample field and the light
// records are found per element. Each side gives the address of element e,
// or null when there is nothing there.
namespace {

struct Strided {
    static constexpr bool kAlwaysThere = true;
    std::byte* base;
    size_t stride;
    std::byte* operator()(unsigned e) const { return base + size_t(e) * stride; }
};

// A field read from samples that share one layout, at its one offset.
struct SampleAt {
    static constexpr bool kAlwaysThere = true;
    Tsample* const* samples;
    size_t offset;
    std::byte* operator()(unsigned e) const {
        return reinterpret_cast<std::byte*>(samples[e]) + offset;
    }
};

struct SampleRead {
    static constexpr bool kAlwaysThere = false;
    Tsample* const* samples;
    unsigned field;
    std::byte* operator()(unsigned e) const {
        return const_cast<std::byte*>(static_cast<const std::byte*>(samples[e]->field(field)));
    }
};

struct SampleWrite {
    static constexpr bool kAlwaysThere = false;
    Tsample* const* samples;
    unsigned field;
    std::byte* operator()(unsigned e) const {
        Tsample* sample = samples[e];
        sample->markSet(field);
        return static_cast<std::byte*>(sample->slot(field));
    }
};

// A field written into samples that share one layout and have a slot for
// it; each sample records the field as set.
struct SampleWriteAt {
    static constexpr bool kAlwaysThere = true;
    Tsample* const* samples;
    size_t offset;
    unsigned field;
    std::byte* operator()(unsigned e) const {
        Tsample* sample = samples[e];
        sample->markSet(field);
        return reinterpret_cast<std::byte*>(sample) + offset;
    }
};

struct LightRecords {
    static constexpr bool kAlwaysThere = false;
    TmultiHeader* lights;
    const uint16_t* slotOf;
    std::byte* operator()(unsigned e) const {
        return lights ? reinterpret_cast<std::byte*>(lights + slotOf[e]) : nullptr;
    }
};

template <uint32_t Bytes>
struct Fixed {
    void operator()(std::byte* to, const std::byte* from) const { std::memcpy(to, from, Bytes); }
};

struct Converted {
    TSEcopyFn function;
    uint32_t bytes;
    const Tattribute* source;
    const Tattribute* destination;
    void operator()(std::byte* to, const std::byte* from) const {
        if (bytes)
            std::memcpy(to, from, bytes);
        else
            function(from, to, source, destination);
    }
};

// The sides come by value: held in registers, they aren't read again after
// each store, which the compiler would otherwise assume may change them.
template <class To, class From, class Copy>
void copyRun(const To to, const From from, const Copy& copy, unsigned first, unsigned last) {
    if constexpr (To::kAlwaysThere && From::kAlwaysThere) {
        for (unsigned e = first; e < last; ++e)
            copy(to(e), from(e));
        return;
    }
    for (unsigned e = first; e < last; ++e) {
        std::byte* destination = to(e);
        if (!destination)
            continue; // a sample without a slot for this field
        const std::byte* source = from(e);
        if (source)
            copy(destination, source);
    }
}

template <class To, class From>
void copyRun(const To to, const From from, const Converted& copy, unsigned first, unsigned last) {
    switch (copy.bytes) {
    case 1:
        copyRun(to, from, Fixed<1>{}, first, last);
        break;
    case 2:
        copyRun(to, from, Fixed<2>{}, first, last);
        break;
    case 4:
        copyRun(to, from, Fixed<4>{}, first, last);
        break;
    case 8:
        copyRun(to, from, Fixed<8>{}, first, last);
        break;
    case 12:
        copyRun(to, from, Fixed<12>{}, first, last);
        break;
    case 16:
        copyRun(to, from, Fixed<16>{}, first, last);
        break;
    case sizeof(TmultiHeader):
        copyRun(to, from, Fixed<sizeof(TmultiHeader)>{}, first, last);
        break;
    default:
        copyRun<To, From, Converted>(to, from, copy, first, last);
        break;
    }
}

} // namespace

Strided TshadingOpus::Frame::strided(const TSEdescriptorHalf& half) const {
    if (half.mode != kDataInBlock)
        return {const_cast<std::byte*>(static_cast<const std::byte*>(half.raw)), 0};
    TdataBlockRendering& block = fBlocks[half.block];
    const AttrInfo& info = block.attrInfos()[half.attributeIndex];
    const bool varying = info.type & 1u;
    // Only a copy's source may be constant: every destination of a copy
    // varies, so the shared constant block is never written here.
    std::byte* base =
        (varying ? block.firstElement() : const_cast<std::byte*>(block.constantBlock())) +
        info.offset + (half.depth ? half.arrayOffsets[0] : 0u);
    return {base, varying ? size_t(block.elementStride()) : 0u};
}

template <class To>
void TshadingOpus::Frame::copyTo(const To& to, const TSEinstruction& in, unsigned first,
                                 unsigned last) {
    const TSEconnectionDescriptor& d = *in.copy.descriptor;
    const Converted copy{in.copy.function, in.copy.bytes, d.source.attribute,
                         d.destination.attribute};
    if (in.opcode == kOpCopyFromStack) {
        std::byte* top =
            const_cast<std::byte*>(static_cast<const std::byte*>(stackTop(in.copy.stack)->pointer));
        copyRun(to, Strided{top, 0}, copy, first, last);
        return;
    }
    switch (d.source.mode) {
    case kDataSampleField:
        if (fLayoutTable) {
            // Without a slot every sample reads the field's default.
            const unsigned offset = fLayoutTable[d.source.block];
            if (offset)
                copyRun(to, SampleAt{fSamples, offset}, copy, first, last);
            else
                copyRun(to,
                        Strided{const_cast<std::byte*>(static_cast<const std::byte*>(
                                    Tsample::defaultField(d.source.block))),
                                0},
                        copy, first, last);
        } else {
            copyRun(to, SampleRead{fSamples, d.source.block}, copy, first, last);
        }
        break;
    case kDataLightBuilder:
        copyRun(to, LightRecords{fLights, fSlotOf}, copy, first, last);
        break;
    default:
        copyRun(to, strided(d.source), copy, first, last);
        break;
    }
}

void TshadingOpus::Frame::copy(const TSEinstruction& in, unsigned first, unsigned count) {
    const TSEdescriptorHalf& to = in.copy.descriptor->destination;
    const unsigned last = first + count;
    switch (to.mode) {
    case kDataSampleField:
        if (fRecordsInPlace && &in == fOpus.fRecordCopy)
            break; // the light wrote its records where they go
        if (fRecords && to.block == TsampleFields::lightData)
            copyTo(Strided{fRecords, fRecordStride}, in, first, last);
        else if (fLayoutTable && fLayoutTable[to.block])
            copyTo(SampleWriteAt{fSamples, fLayoutTable[to.block], to.block}, in, first, last);
        else
            copyTo(SampleWrite{fSamples, to.block}, in, first, last);
        break;
    case kDataLightBuilder:
        copyTo(LightRecords{fLights, fSlotOf}, in, first, last);
        break;
    default:
        copyTo(strided(to), in, first, last);
        break;
    }
}

void TshadingOpus::Frame::resetStack(const TSEinstruction& in) {
    ++fStackChanges;
    uint32_t* header = stackHeader(in.stack.stack);
    header[0] = 8;
    header[1] = in.stack.capacity;
    StackEntry* entry = stackTop(in.stack.stack);
    std::memcpy(entry->key, in.stack.key, sizeof entry->key);
    entry->repeat = 0;
    entry->pointer = in.stack.pointer;
}

void TshadingOpus::Frame::pushField(const TSEinstruction& in) {
    if (reentered())
        return; // a segment run on demand keeps the stack its caller has
    ++fStackChanges;
    uint32_t* header = stackHeader(in.stack.stack);
    StackEntry* top = stackTop(in.stack.stack);
    if (std::memcmp(top->key, in.stack.key, sizeof top->key) == 0 &&
        top->pointer == in.stack.pointer) {
        ++top->repeat;
        return;
    }
    if (header[0] + 2 * sizeof(StackEntry) > 8 + sizeof(StackEntry) * (header[1] + 1)) {
        ++top->repeat; // full: the top stands for the push as well
        return;
    }
    header[0] += sizeof(StackEntry);
    StackEntry* entry = stackTop(in.stack.stack);
    std::memcpy(entry->key, in.stack.key, sizeof entry->key);
    entry->repeat = 0;
    entry->pointer = in.stack.pointer;
}

void TshadingOpus::Frame::popField(const TSEinstruction& in) {
    if (reentered())
        return;
    ++fStackChanges;
    uint32_t* header = stackHeader(in.stack.stack);
    StackEntry* top = stackTop(in.stack.stack);
    if (top->repeat)
        --top->repeat;
    else if (header[0] > 8)
        header[0] -= sizeof(StackEntry);
}

// The consumer reads the producer's elements in place: one link serves
// every element of the run.
void TshadingOpus::Frame::link(const TSEinstruction& in, unsigned, unsigned count) {
    if (!count)
        return;
    const auto& l = in.link;
    TdataBlockRendering& source = fBlocks[l.sourceBlock];
    const AttrInfo& from = source.attrInfos()[l.sourceAttribute->index()];
    fBlocks[l.destinationBlock].setLink(*l.attribute, source.firstElement() + from.offset, &source);
}

void TshadingOpus::Frame::computeValue(uint16_t segment, const Tattribute& attribute,
                                       uint8_t** value, TdataBlock** block, unsigned first,
                                       unsigned count) {
    const auto& outputs = fOpus.fLayout.segmentOutputs;
    if (segment == 0 || segment >= outputs.size())
        return;
    const auto& output = outputs[segment];
    // A node read by several consumers, or through several outputs that it
    // computes together, runs once for the range.
    Run& done = fRuns[output.family ? output.family : segment];
    const bool inPlace = done.count && first >= done.first &&
                         first + count <= done.first + done.count && done.stacks == fStackChanges;
    if (!inPlace) {
        const uint8_t reentered = fSegmentFlags[segment];
        fSegmentFlags[segment] = 1;
        runSegment(segment, first, count);
        fSegmentFlags[segment] = reentered;
        done = {first, count, fStackChanges};
    }

    TdataBlockRendering& producer = fBlocks[output.block];
    const AttrInfo& info = producer.attrInfos()[output.attribute->index()];
    const bool varying = info.type & 1u;
    if (!*value) {
        // The consumer will read the producer's block directly.
        *value = reinterpret_cast<uint8_t*>(
            (varying ? producer.firstElement() : const_cast<std::byte*>(producer.constantBlock())) +
            info.offset);
        *block = &producer;
        return;
    }
    const uint32_t stride = *block ? (*block)->elementStride() : 0u;
    const TSEcopyFn fn = OrvoCopyFunction(*output.attribute, attribute);
    for (unsigned e = first; e < first + count; ++e) {
        const std::byte* from =
            (varying ? producer.firstElement() + size_t(e) * producer.elementStride()
                     : producer.constantBlock()) +
            info.offset;
        fn(from, *value + size_t(e - first) * stride, output.attribute, &attribute);
    }
}

// Light at arbitrary points (a volume marching through a shadow, say): each
// point gets a copy of the sample at `first` moved there, and the lights
// of the sample's object run over those copies. table[i][n] receives the
// record of the n-th light at point i.
void TshadingOpus::Frame::sampleLights(unsigned first, unsigned count, unsigned, T3Float* points,
                                       TlightData** table) {
    const TshadingOpus& opus = fOpus;
    if (!opus.fLightCount || first >= fCount || opus.fFieldOffsets.empty())
        return;
    const size_t size = OrvoAlignUp(opus.fFieldOffsets.back(), 8);
    TshadeScratch scratch;
    const size_t sampleBytes = TshadeScratch::bytes(count, size);
    auto* memory = static_cast<std::byte*>(ORVO_SCRATCH(scratch, sampleBytes));
    const size_t pointerBytes = TshadeScratch::bytes(count, sizeof(Tsample*));
    auto** copies = static_cast<Tsample**>(ORVO_SCRATCH(scratch, pointerBytes));
    // The frame's camera places each point in the world as well.
    const TframeConstants* frame = TframeConstants::current();
    const T4dFltMatrix eyeToWorld = frame ? frame->eyeToWorld() : T4dFltMatrix{};
    for (unsigned i = 0; i < count; ++i) {
        std::memcpy(memory + size * i, static_cast<const void*>(fSamples[first]), size);
        copies[i] = reinterpret_cast<Tsample*>(memory + size * i);
        const T3Float& p = points[i];
        const auto& m = eyeToWorld.m;
        copies[i]->setPointCamera(p);
        copies[i]->setPointWorld({p.x * m[0][0] + p.y * m[1][0] + p.z * m[2][0] + m[3][0],
                                  p.x * m[0][1] + p.y * m[1][1] + p.z * m[2][1] + m[3][1],
                                  p.x * m[0][2] + p.y * m[1][2] + p.z * m[2][2] + m[3][2]});
    }
    const TbitFieldFixedN* row = opus.litByRow(*fSamples[first]);
    size_t frameBytes = 0;
    for (const TshadingOpus* light : opus.fLightOpuses)
        if (light)
            frameBytes = std::max(frameBytes, bytesFor(*light, count));
    void* lightMemory = ORVO_SCRATCH(scratch, frameBytes);
    unsigned done = 0;
    for (unsigned l = 0; l < opus.fLightCount; ++l) {
        const TshadingOpus* light = opus.fLightOpuses[l];
        if (!light || (row && !row->test(l)))
            continue;
        {
            Frame frame(*light, copies, count, lightMemory);
            frame.runSegment(1, 0, count);
        }
        for (unsigned i = 0; i < count; ++i)
            if (table[i])
                table[i][done] =
                    *static_cast<const TlightData*>(copies[i]->field(TsampleFields::lightData));
        ++done;
    }
}

// ---------------------------------------------------------------- the opus

TshadingOpus::TshadingOpus(TdependNode* node, unsigned option)
    : fNode(node),
      fOwner(node ? static_cast<TDNshadingEngine*>(node->cast(TDNshadingEngine::sTypeof()))
                  : nullptr),
      fOption(option) {}

TshadingOpus::~TshadingOpus() {
    for (TdependNode* node : fLayout.mutexNodes)
        TdepNodeMutexMgr::returnMutex(node);
    // Constant blocks hold constructed values (strings, arrays).
    for (size_t b = 0; b < fLayout.blockNodes.size(); ++b)
        if (fLayout.blockNodes[b] && b < fLayout.constantBlocks.size() && fLayout.constantBlocks[b])
            TdataBlockRendering::tearDownConstant(
                fLayout.blockNodes[b], fLayout.attrInfos[b].get(),
                b < fLayout.multiInfos.size() ? fLayout.multiInfos[b].get() : nullptr,
                fLayout.initLists[b].get(), const_cast<std::byte*>(fLayout.constantBlocks[b]));
}

void TshadingOpus::initialize(TSEopusLayout&& layout, TbitField64 needs,
                              const unsigned* fieldOffsets, size_t offsetCount) {
    fLayout = std::move(layout);
    fNeeds = needs;
    fFieldOffsets.assign(fieldOffsets, fieldOffsets + offsetCount);
    fFrameSize = unsigned(Frame::fixedBytes(fLayout));
    fPerSampleSize = 0;
    for (uint32_t stride : fLayout.blockStrides)
        fPerSampleSize += stride;
    findRecordCopy();
    findRepeatedCopies();
}

void TshadingOpus::findRecordCopy() {
    fRecordCopy = nullptr;
    const TSEinstruction* found = nullptr;
    for (const TSEinstruction& in : fLayout.instructions) {
        if (in.opcode != kOpCopy && in.opcode != kOpCopyFromStack)
            continue;
        const TSEdescriptorHalf& to = in.copy.descriptor->destination;
        if (to.mode != kDataSampleField || to.block != TsampleFields::lightData)
            continue;
        if (found)
            return; // two copies into the field: leave them both as they are
        found = &in;
    }
    if (!found || found->opcode != kOpCopy)
        return;
    // An exact copy of a whole record, from a value of a block.
    const TSEdescriptorHalf& from = found->copy.descriptor->source;
    const Tattribute* record = from.attribute;
    if (from.mode != kDataInBlock || from.depth != 0 || !record || record->isArray() ||
        found->copy.bytes != sizeof(TlightData) || record->dataSize() != sizeof(TlightData) ||
        from.block >= fLayout.attrInfos.size() || !fLayout.attrInfos[from.block])
        return;
    const AttrInfo& info = fLayout.attrInfos[from.block][record->index()];
    if (!(info.type & kAttrInfoVariable) || (info.type & kAttrInfoOtherBlock) || info.thread)
        return;
    // Nothing else may read the record in the block: every other reader
    // would look for it at its place there.
    auto related = [record](const Tattribute* a) {
        return a && (a == record || a->isDescendentOf(*record) || record->isDescendentOf(*a));
    };
    for (const TSEinstruction& in : fLayout.instructions) {
        if (&in == found)
            continue;
        if (in.opcode == kOpCopy || in.opcode == kOpCopyFromStack) {
            const TSEdescriptorHalf& source = in.copy.descriptor->source;
            if (source.mode == kDataInBlock && source.block == from.block &&
                related(source.attribute))
                return;
        } else if (in.opcode == kOpLinkOtherDB) {
            if (in.link.sourceBlock == from.block && related(in.link.sourceAttribute))
                return;
        }
    }
    for (const auto& output : fLayout.segmentOutputs)
        if (output.block == from.block && related(output.attribute))
            return;
    fRecordCopy = found;
}

void TshadingOpus::addUserSampleData(TSEudSampleTable table) {
    fUserTable = std::move(table);
}

unsigned TshadingOpus::userSampleSize() const {
    unsigned size = 0;
    for (const TSEudSampleEntry& e : fUserTable)
        size += (e.size + 3) & ~3u;
    return size;
}

void TshadingOpus::fillUserSampleData(TrenderGroupBase* group, unsigned count,
                                      Tsample** samples) const {
    // A group's object picks the fill object that knows its data; without
    // one (or without a group) the default is copied into each slot.
    const int object = group ? group->objectIndex() : -1;
    for (const TSEudSampleEntry& e : fUserTable) {
        const TuserSampleFill* fill =
            object >= 0 && e.fills && unsigned(object) < e.fillCount ? e.fills[object] : nullptr;
        if (fill) {
            fill->fill(count, samples, e.destinationField, e.size, e.sourceField);
            continue;
        }
        for (unsigned s = 0; s < count; ++s)
            if (void* to = samples[s]->slot(e.destinationField))
                std::memcpy(to, samples[s]->field(e.sourceField), e.size);
    }
}

unsigned TshadingOpus::illuminationSlots(unsigned count, Tsample* const* samples, uint16_t* slotOf,
                                         uint16_t* representative) {
    unsigned slots = 0;
    long previous = 0;
    for (unsigned s = 0; s < count; ++s) {
        // A renderer that never set the index leaves whatever the slot held:
        // such a sample is lit on its own.
        const int16_t index = samples[s]->isSet(TsampleFields::illuminationIndex)
                                  ? *samples[s]->illuminationIndex()
                                  : int16_t(-1);
        const long key = index < 0 ? long(s) + 0x10000 : long(index);
        if (s == 0 || key != previous) {
            representative[slots] = uint16_t(s);
            ++slots;
        }
        slotOf[s] = uint16_t(slots - 1);
        previous = key;
    }
    return slots;
}

void TshadingOpus::shade(unsigned count, Tsample** samples) const {
    if (count == 0 || !samples)
        return;
    if (!fUserTable.empty()) {
        TsampleBatch* batch = samples[0]->batch();
        fillUserSampleData(batch ? static_cast<TrenderGroupBase*>(batch->renderGroup()) : nullptr,
                           count, samples);
    }
    Tsample::confirmSet(fNeeds, count, samples);
    // Everything the run needs comes from the stack or the thread's
    // scratch arena: no heap on this path.
    TshadeScratch scratch;
    TmultiHeader* lights = nullptr;
    uint16_t* slotOf = nullptr;
    if (fLightCount) {
        const size_t indexBytes = TshadeScratch::bytes(count, sizeof(uint16_t));
        slotOf = static_cast<uint16_t*>(ORVO_SCRATCH(scratch, indexBytes));
        auto* representative = static_cast<uint16_t*>(ORVO_SCRATCH(scratch, indexBytes));
        const unsigned slots = illuminationSlots(count, samples, slotOf, representative);
        const size_t headerBytes = TshadeScratch::bytes(slots, sizeof(TmultiHeader));
        lights = static_cast<TmultiHeader*>(ORVO_SCRATCH(scratch, headerBytes));
        const size_t recordBytes = TshadeScratch::bytes(slots, fLightBuilderSize);
        auto* storage = static_cast<std::byte*>(ORVO_SCRATCH(scratch, recordBytes));
        runLights(count, samples, slots, slotOf, representative, lights, storage);
    }
    const size_t bytes = Frame::bytesFor(*this, count);
    void* memory = ORVO_SCRATCH(scratch, bytes);
    Frame frame(*this, samples, count, memory, lights, slotOf);
    frame.runSegment(1, 0, count);
}

const TbitFieldFixedN* TshadingOpus::litByRow(const Tsample& sample) const {
    if (TsampleBatch* batch = sample.batch())
        if (auto* group = static_cast<TrenderGroupBase*>(batch->renderGroup())) {
            const int index = group->objectIndex();
            if (index >= 0 && size_t(index) < fLitBy.size())
                return &fLitBy[size_t(index)];
        }
    return nullptr;
}

void TshadingOpus::runLights(unsigned count, Tsample** samples, unsigned slots,
                             const uint16_t* slotOf, const uint16_t* representative,
                             TmultiHeader* builders, std::byte* storage) const {
    const TbitFieldFixedN* row = litByRow(*samples[0]);
    TshadeScratch scratch;
    const size_t pointerBytes = TshadeScratch::bytes(slots, sizeof(Tsample*));
    auto** reps = static_cast<Tsample**>(ORVO_SCRATCH(scratch, pointerBytes));
    // Each slot's light table (a renderer's copy of the records), looked up
    // once for all the lights; null where the sample keeps none.
    const size_t tableBytes = TshadeScratch::bytes(slots, sizeof(TlightData*));
    auto** tables = static_cast<TlightData**>(ORVO_SCRATCH(scratch, tableBytes));
    bool anyTable = false;
    for (unsigned k = 0; k < slots; ++k) {
        reps[k] = samples[representative[k]];
        auto* const* table =
            static_cast<TlightData* const*>(reps[k]->slot(TsampleFields::lightTable));
        tables[k] = table ? *table : nullptr;
        anyTable |= tables[k] != nullptr;
    }
    size_t frameBytes = 0;
    for (const TshadingOpus* light : fLightOpuses)
        if (light)
            frameBytes = std::max(frameBytes, Frame::bytesFor(*light, slots));
    void* memory = ORVO_SCRATCH(scratch, frameBytes);
    const unsigned* const layout = Frame::sharedLayout(reps, slots);

    const Tattribute& record = TDNshadingEngine::aBogusAttribute;
    const uint32_t stride = TmultiBuilder::calcStride(record);
    const uint32_t valueAt = TmultiBuilder::valueOffset(record);
    unsigned done = 0;
    for (unsigned i = 0; i < fLightCount; ++i) {
        const TshadingOpus* light = fLightOpuses[i];
        if (!light || (row && !row->test(i)))
            continue;
        // The light writes its records straight into element `done` of each
        // slot's array; the samples' own lightData fields stay untouched.
        std::byte* first = storage + size_t(done) * stride;
        {
            Frame frame(*light, reps, slots, memory, nullptr, nullptr, &layout);
            frame.sendRecordsTo(first + valueAt, fLightBuilderSize);
            frame.runSegment(1, 0, slots);
        } // the light's blocks are torn down before the next light runs
        const uint32_t logical = done;
        for (unsigned k = 0; k < slots; ++k)
            std::memcpy(first + size_t(k) * fLightBuilderSize, &logical, 4);
        if (anyTable)
            for (unsigned k = 0; k < slots; ++k)
                if (tables[k])
                    std::memcpy(&tables[k][done], first + size_t(k) * fLightBuilderSize + valueAt,
                                sizeof(TlightData));
        ++done;
    }
    for (unsigned k = 0; k < slots; ++k) {
        TmultiHeader* h = new (builders + k) TmultiHeader();
        TmultiHandle::setHeaderBits(*h, done, stride);
        h->data = done ? storage + size_t(k) * fLightBuilderSize : nullptr;
    }
    // Samples that share a slot share its records; a light table of their
    // own gets a copy.
    for (unsigned s = 0; s < count; ++s) {
        const Tsample* rep = reps[slotOf[s]];
        if (rep == samples[s] || !done)
            continue;
        auto* const* mine =
            static_cast<TlightData* const*>(samples[s]->slot(TsampleFields::lightTable));
        auto* const* theirs = static_cast<TlightData* const*>(rep->slot(TsampleFields::lightTable));
        if (mine && *mine && theirs && *theirs)
            std::memcpy(*mine, *theirs, sizeof(TlightData) * done);
    }
}

void TshadingOpus::addIlluminationData(std::vector<TbitFieldFixedN> rows, unsigned lights) {
    fLitBy = std::move(rows);
    fLightCount = lights;
    fLightOpuses.assign(lights, nullptr);
    fLightNodes.assign(lights, nullptr);
    fLightBuilderSize =
        unsigned(TmultiBuilder::computeSize(TDNshadingEngine::aBogusAttribute, lights));
    fPerSampleSize += fLightBuilderSize + unsigned(sizeof(TmultiHeader));
}

void TshadingOpus::addIlluminatingLight(unsigned i, TshadingOpus* light) {
    if (i >= fLightOpuses.size())
        return;
    fLightOpuses[i] = light;
    fLightNodes[i] = light ? light->node() : nullptr;
    // One reservation of the frame serves the group and every light.
    fFrameSize = std::max(fFrameSize, light ? light->fFrameSize : 0u);
}

void TshadingOpus::computeValue(void* frame, uint16_t segment, const Tattribute* attribute,
                                uint8_t** value, void** block, unsigned first, unsigned count) {
    if (!frame || !attribute)
        return;
    static_cast<Frame*>(frame)->computeValue(segment, *attribute, value,
                                             reinterpret_cast<TdataBlock**>(block), first, count);
}

void TshadingOpus::sampleLights(void* frame, unsigned first, unsigned count, unsigned flags,
                                T3Float* points, TlightData** table) {
    if (!frame || !count || !points || !table)
        return;
    static_cast<Frame*>(frame)->sampleLights(first, count, flags, points, table);
}

void TshadingOpus::releaseOpus() {
    // The engine's slot must not keep an opus that is going away.
    if (fOwner && fOwner->controlBlock(fOption) == this)
        fOwner->releaseOpus(fOption);
    for (const TSEudSampleEntry& e : fUserTable)
        for (uint32_t i = 0; i < e.fillCount; ++i)
            if (e.fills && e.fills[i])
                e.fills[i]->release();
    fUserTable.clear();
    // Light opuses are shared between groups through the table: give back
    // this group's reference.
    // The lights' nodes, not their opuses: when the whole table goes, a
    // light's opus may already be gone.
    std::vector<TdependNode*> lights;
    lights.swap(fLightNodes);
    fLightOpuses.clear();
    for (TdependNode* light : lights)
        if (light && light != fNode)
            TrenderThreadBase::deleteOpus(light, kTSElightOption, false);
}
