// Copies a frame can leave out: a sample field copied into a block value
// that the same segment has already copied it into, where nothing in the
// network can have changed either side since.
//
// A material's surface network computes its colour and then its matte
// opacity (or its transparency) as separate outputs, and the list gives
// each compute the copies of the sample fields it reads: the same ten or so
// fields go into the same block twice in a batch. The list stays as it is
// compiled (it is what the compile report shows); the frame skips the
// repeats.

#include <algorithm>

#include "host/attribute.h"
#include "shading/data_block_rendering.h"
#include "shading/opus.h"

namespace {

// The bytes of a block's elements that an instruction writes.
struct Span {
    uint32_t block;
    uint32_t from, to; // [from, to); to == ~0u: anything in the block
};

bool overlaps(const Span& a, const Span& b) {
    return a.block == b.block && a.from < b.to && b.from < a.to;
}

// The copy as its two ends and its conversion: two copies with the same key
// put the same bytes in the same place.
bool sameCopy(const TSEinstruction& a, const TSEinstruction& b) {
    const TSEconnectionDescriptor& x = *a.copy.descriptor;
    const TSEconnectionDescriptor& y = *b.copy.descriptor;
    return x.source.mode == y.source.mode && x.source.block == y.source.block &&
           x.destination.block == y.destination.block &&
           x.destination.attribute == y.destination.attribute &&
           a.copy.function == b.copy.function && a.copy.bytes == b.copy.bytes;
}

} // namespace

void TshadingOpus::findRepeatedCopies() {
    const std::vector<TSEinstruction>& list = fLayout.instructions;
    fRepeated.assign(list.size(), 0);

    // Everything any instruction writes, in any segment: a segment run on
    // demand from inside a compute runs between two copies of the root.
    std::vector<std::pair<const TSEinstruction*, Span>> writes; // into blocks
    std::vector<uint32_t> fieldsWritten;
    auto attributeSpan = [&](uint32_t block, const Tattribute* a, uint8_t depth) -> Span {
        if (!a || depth || block >= fLayout.attrInfos.size() || !fLayout.attrInfos[block])
            return {block, 0, ~0u};
        const uint32_t offset = fLayout.attrInfos[block][a->index()].offset;
        return {block, offset, offset + uint32_t(a->dataSize())};
    };
    for (const TSEinstruction& in : list) {
        if (in.opcode == kOpCopy || in.opcode == kOpCopyFromStack) {
            const TSEdescriptorHalf& to = in.copy.descriptor->destination;
            if (to.mode == kDataSampleField)
                fieldsWritten.push_back(to.block);
            else if (to.mode == kDataInBlock)
                writes.push_back({&in, attributeSpan(to.block, to.attribute, to.depth)});
        } else if (in.opcode == kOpLinkOtherDB) {
            writes.push_back({&in, attributeSpan(in.link.destinationBlock, in.link.attribute, 0)});
        }
    }

    // A copy that may repeat: a sample field that nothing writes, into a
    // plain value of a block that only the node's own inputs hold (not
    // computed, not assembled from children, not brought by a segment).
    auto candidate = [&](const TSEinstruction& in) {
        if (in.opcode != kOpCopy)
            return false;
        const TSEdescriptorHalf& from = in.copy.descriptor->source;
        const TSEdescriptorHalf& to = in.copy.descriptor->destination;
        if (from.mode != kDataSampleField || to.mode != kDataInBlock || to.depth || !to.attribute)
            return false;
        if (std::find(fieldsWritten.begin(), fieldsWritten.end(), from.block) !=
            fieldsWritten.end())
            return false;
        const Tattribute& a = *to.attribute;
        if (a.parent() || a.isArray() || a.isComputed() || to.block >= fLayout.attrInfos.size() ||
            !fLayout.attrInfos[to.block])
            return false;
        const AttrInfo* infos = fLayout.attrInfos[to.block].get();
        const AttrInfo& info = infos[a.index()];
        if (info.type != kVarPresent || info.thread)
            return false;
        for (const Tattribute* child : a.children())
            if (infos[child->index()].type != kVarUseParent || infos[child->index()].thread ||
                child->isComputed())
                return false;
        return true;
    };

    const std::vector<uint32_t>& segments = fLayout.segments;
    for (size_t s = 1; s < segments.size(); ++s) {
        for (uint32_t j = segments[s - 1]; j < segments[s]; ++j) {
            const TSEinstruction& in = list[j];
            if (!candidate(in))
                continue;
            const TSEdescriptorHalf& to = in.copy.descriptor->destination;
            const Span mine = attributeSpan(to.block, to.attribute, 0);
            // Every write of these bytes must be this same copy.
            bool alone = true;
            for (const auto& [other, span] : writes)
                if (overlaps(span, mine) && (other->opcode != kOpCopy || !sameCopy(*other, in)))
                    alone = false;
            if (!alone)
                continue;
            // An earlier copy of the same in this segment, with no set-up of
            // the block in between, has put the values in place already.
            for (uint32_t i = j; i-- > segments[s - 1];) {
                const TSEinstruction& earlier = list[i];
                if (earlier.opcode == kOpSetUpBlock && earlier.setUp.block == to.block)
                    break;
                if (earlier.opcode == kOpCopy && sameCopy(earlier, in)) {
                    fRepeated[j] = 1;
                    break;
                }
            }
        }
    }
}

unsigned TshadingOpus::repeatedCopies() const {
    return unsigned(std::count(fRepeated.begin(), fRepeated.end(), uint8_t(1)));
}
