#include <algorithm>
#include <cstring>

#include <fmt/format.h>

#include "host/graph.h"
#include "host/node_mutex.h"
#include "host/shadingnode.h"
#include "shading/analysis_pvt.h"

namespace {

uint32_t offsetWithin(const Tattribute& a, const Tattribute& top) {
    uint32_t offset = 0;
    for (const Tattribute* p = &a; p && p != &top; p = p->parent())
        offset += p->offsetInParent();
    return offset;
}

const char* stateName(uint8_t s) {
    return s == 2 ? "varying" : s == 1 ? "constant" : "-";
}

} // namespace

// ---------------------------------------------------------------- segments

void TSEanalysis::cutLoops() {
    // A node read by more than one consumer is computed on demand, in a
    // segment of its own: counting the reads of each description.
    std::map<const TSEnodeDescription*, unsigned> uses;
    auto count = [&](const TSEnodeDescription& consumer) {
        for (const TSEconnection& c : consumer.connections)
            if (c.upstream && c.upstream != &fRoot &&
                (c.kind == kConnVarying || c.kind == kConnToField))
                ++uses[c.upstream];
    };
    count(fRoot);
    for (const TSEnodeDescription* d : fOrder)
        count(*d);
    for (TSEnodeDescription* d : fOrder) {
        d->useCounts[1] = uses[d];
        d->segmented = d->live && uses[d] > 1;
    }
    // A value computed on demand lands when its consumer reads it, after
    // every copy made in line: a child that overrides part of it must then
    // be computed on demand too, so that it lands after its parent.
    for (bool changed = true; changed;) {
        changed = false;
        for (const TSEnodeDescription* d : fOrder)
            for (const TSEconnection& parent : d->connections) {
                if (parent.kind != kConnVarying || !parent.upstream->segmented)
                    continue;
                for (const TSEconnection& child : d->connections)
                    if (child.kind == kConnVarying && !child.upstream->segmented &&
                        child.upstream->live && child.logicalIndex == parent.logicalIndex &&
                        child.destination->isDescendentOf(*parent.destination)) {
                        child.upstream->segmented = true;
                        changed = true;
                    }
            }
    }
}

void TSEanalysis::segment() {
    // One pending entry per output of a segmented node that consumers read.
    fPending.clear();
    auto pend = [&](TSEnodeDescription* d, const Tplug& plug) {
        for (const TSEpending& p : fPending)
            if (p.description == d && p.plug == plug)
                return;
        fPending.push_back({d, plug, false});
    };
    for (TSEnodeDescription* consumer : fOrder)
        for (const TSEconnection& c : consumer->connections)
            if (c.kind == kConnVarying && c.upstream && c.upstream->segmented)
                pend(c.upstream, Tplug(c.upstream->node, c.source.attribute()));
}

// ---------------------------------------------------------------- emission

TSEdescriptorHalf TSEanalysis::blockHalf(const TSEnodeDescription& d, const Tattribute& attribute,
                                         unsigned logicalIndex) const {
    TSEdescriptorHalf half;
    half.mode = kDataInBlock;
    half.block = uint32_t(d.block);
    half.attribute = &attribute;
    half.strideMultiplier = 1;
    const Tattribute* array = attribute.arrayAncestor();
    if (!array || logicalIndex == Tplug::kNoIndex) {
        half.attributeIndex = attribute.index();
        half.varying = uint8_t(d.infos[attribute.index()].type & kAttrInfoVariable);
        return half;
    }
    const auto& elements = d.arrayElements.at(array);
    const size_t position =
        size_t(std::find(elements.begin(), elements.end(), logicalIndex) - elements.begin());
    half.attributeIndex = array->index();
    half.varying = uint8_t(d.infos[array->index()].type & kAttrInfoVariable);
    half.depth = 1;
    half.arrayOffsets[0] =
        uint32_t(sizeof(TmultiHeader) + position * TmultiBuilder::calcStride(*array) +
                 TmultiBuilder::valueOffset(*array) + offsetWithin(attribute, *array));
    return half;
}

void TSEanalysis::emitCopy(TSEopusLayout& layout, const TSEdescriptorHalf& source,
                           const TSEdescriptorHalf& destination) {
    TSEconnectionDescriptor& d = layout.descriptors.emplace_back();
    d.source = source;
    d.destination = destination;
    const Tattribute* from = source.attribute ? source.attribute : destination.attribute;
    const Tattribute* to = destination.attribute ? destination.attribute : source.attribute;
    d.source.attribute = from;
    d.destination.attribute = to;
    TSEinstruction in;
    in.opcode = kOpCopy;
    in.copy.descriptor = &d;
    in.copy.function = OrvoCopyFunction(*from, *to);
    in.copy.bytes = OrvoCopyBytes(*from, *to);
    layout.instructions.push_back(in);
}

void TSEanalysis::emit(TSEnodeDescription& d, const Tattribute& attribute, int segment,
                       bool topLevel, TSEopusLayout& layout) {
    if (!d.live)
        return; // a constant node: its value is in its consumers' constants
    const uint32_t index = attribute.index();
    if (d.segmentMark[index] == segment)
        return;
    if (d.segmented && !topLevel)
        return; // its consumers run its segment when they read it
    d.segmentMark[index] = segment;
    auto* shading = static_cast<TshadingNode*>(d.node->cast(TshadingNode::sTypeof()));
    // Attributes that one compute writes together: the compute runs once for
    // all of them, with the inputs of all of them ready.
    TattributeArray grouped;
    if (shading) {
        shading->groupedAttrs(&attribute, grouped);
        for (const Tattribute* g : grouped)
            if (g != &attribute && d.segmentMark[g->index()] == segment)
                return;
        for (const Tattribute* g : grouped)
            d.segmentMark[g->index()] = segment;
    }
    grouped.push_back(&attribute);
    // An input feeds what it affects, and itself: a node read through one
    // of its inputs (samplerInfo hands the sample's values on) needs that
    // input filled, whether its parent or its child is asked for.
    auto feeds = [&](const Tattribute& input) {
        for (const Tattribute* g : grouped)
            if (&input == g || input.isDescendentOf(*g) || g->isDescendentOf(input) ||
                affects(d, input, *g))
                return true;
        return false;
    };
    for (const TSEconnection& c : d.connections) {
        if (!c.destination || !feeds(*c.destination))
            continue;
        switch (c.kind) {
        case kConnVarying:
            emit(*c.upstream, *c.source.attribute(), segment, false, layout);
            if (c.upstream->segmented)
                break; // the consumer's read runs the upstream's segment
            if (c.otherDB) {
                TSEinstruction link;
                link.opcode = kOpLinkOtherDB;
                link.link.attribute = c.destination;
                link.link.destinationBlock = uint32_t(d.block);
                link.link.sourceBlock = uint32_t(c.upstream->block);
                link.link.sourceAttribute = c.source.attribute();
                layout.instructions.push_back(link);
            } else {
                emitCopy(layout, blockHalf(*c.upstream, *c.source.attribute(), Tplug::kNoIndex),
                         blockHalf(d, *c.destination, c.logicalIndex));
            }
            break;
        case kConnFieldRequest: {
            TSEdescriptorHalf field;
            field.mode = kDataSampleField;
            field.block = uint32_t(c.field);
            field.strideMultiplier = 1;
            emitCopy(layout, field, blockHalf(d, *c.destination, c.logicalIndex));
            break;
        }
        case kConnLightData: {
            // The array header of the sample's slot, whose elements are the
            // light records: the material walks the records where they lie.
            TSEdescriptorHalf lights;
            lights.mode = kDataLightBuilder;
            lights.attribute = c.destination;
            lights.strideMultiplier = 1;
            TSEconnectionDescriptor& copy = layout.descriptors.emplace_back();
            copy.source = lights;
            copy.destination = blockHalf(d, *c.destination, Tplug::kNoIndex);
            TSEinstruction in;
            in.opcode = kOpCopy;
            in.copy.descriptor = &copy;
            in.copy.function = [](const void* from, void* to, const Tattribute*,
                                  const Tattribute*) {
                std::memcpy(to, from, sizeof(TmultiHeader));
            };
            in.copy.bytes = sizeof(TmultiHeader);
            layout.instructions.push_back(in);
            break;
        }
        case kConnConstantBuffer: {
            TSEdescriptorHalf constant;
            constant.mode = kDataConstant;
            constant.raw = c.constant->data();
            constant.attribute = c.source.attribute();
            emitCopy(layout, constant, blockHalf(d, *c.destination, c.logicalIndex));
            break;
        }
        default:
            break; // constants are in the constant block; loop edges emit nothing
        }
    }
    TSEinstruction in;
    in.opcode = kOpCompute;
    in.compute.node = d.node;
    in.compute.plug = &layout.plugs.emplace_back(d.node, &attribute);
    in.compute.block = uint32_t(d.block);
    in.compute.shadingNode = shading;
    in.compute.mutex = nullptr;
    if (d.node->schedulingType() != 0) {
        // The mutex is obtained once here and returned with the opus.
        in.opcode = kOpComputeLocked;
        in.compute.mutex = TdepNodeMutexMgr::obtainNodeMutex(d.node);
        layout.mutexNodes.push_back(d.node);
    }
    layout.instructions.push_back(in);
}

void TSEanalysis::shortenChains(TSEnodeDescription& d) {
    // A varying value that a consumer takes whole, unchanged, from a
    // producer's output of the same class isn't copied: the consumer's slot
    // points into the producer's block.
    for (TSEconnection& c : d.connections) {
        if (c.kind != kConnVarying || !c.upstream || !c.destination || c.upstream == &fRoot)
            continue;
        const Tattribute& to = *c.destination;
        const Tattribute& from = *c.source.attribute();
        if (to.parent() || to.isArray() || from.isArray() || from.isArrayDescendant() ||
            c.logicalIndex != Tplug::kNoIndex || to.hasFlag(0x1000) ||
            std::strcmp(to.className(), from.className()) != 0 ||
            c.upstream->kind[from.index()] != kVarPresent || d.kind[to.index()] != kVarPresent)
            continue;
        // Children read on their own would find nothing in this block.
        bool childFed = false;
        for (const TSEconnection& other : d.connections)
            if (other.destination && other.destination->isDescendentOf(to))
                childFed = true;
        if (childFed)
            continue;
        c.otherDB = true;
        d.kind[to.index()] = kVarPresentOtherDB;
        for (const Tattribute* child : to.children())
            d.kind[child->index()] = kVarUseParentOtherDB;
    }
}

void TSEanalysis::layoutBlock(TSEnodeDescription& d, TSEopusLayout& layout) {
    shortenChains(d);
    const TattributeList& attributes = d.node->vsData()->attributes();
    const size_t n = attributes.size();
    d.block = int(layout.blockCount++);
    auto infos = std::make_unique<AttrInfo[]>(n);
    for (const auto& [array, header] : d.arrayHeader)
        infos[array->index()].thread = uint16_t(header);
    auto multis = std::make_unique<MultiInfo[]>(d.multis.size() + 1);
    std::copy(d.multis.begin(), d.multis.end(), multis.get());
    multis[d.multis.size()].numKids = -1;
    auto initList = std::make_unique<uint16_t[]>(n + 1);
    const auto sizes = TdataBlockRendering::layout(*d.node, d.kind.data(), infos.get(),
                                                   multis.get(), initList.get());
    auto constant = std::make_unique<std::byte[]>(sizes.constantSize + 16);
    std::memset(constant.get(), 0, sizes.constantSize + 16);
    TdataBlockRendering::initializeConstant(d.node, infos.get(), multis.get(), initList.get(),
                                            constant.get());
    // The node's own values first, then the constant sources over them.
    TdataBlockRendering::resolveConstants(d.node, infos.get(), multis.get(), initList.get(),
                                          constant.get());
    d.infos = infos.get();
    d.multiTable = multis.get();
    layout.blockStrides.push_back(sizes.variableSize);
    layout.constantBlocks.push_back(constant.get());
    layout.blockNodes.push_back(d.node);
    layout.attrInfos.push_back(std::move(infos));
    layout.multiInfos.push_back(std::move(multis));
    layout.initLists.push_back(std::move(initList));
    layout.constants.push_back(std::move(constant));
    fillConstants(d, layout);
}

void TSEanalysis::fillConstants(TSEnodeDescription& d, TSEopusLayout& layout) {
    std::byte* constantBlock = layout.constants.back().get();
    for (TSEconnection& c : d.connections) {
        if (!c.upstream || c.upstream == &fRoot || !c.destination)
            continue;
        if (c.kind != kConnPlaceholder && c.kind != kConnLoopEdge)
            continue;
        // A constant source (or the first value round a loop): evaluate it
        // through the graph once.
        bool zero = false;
        c.constant = capture(c.source, zero);
        const Tattribute& to = *c.destination;
        const TSEcopyFn fn = OrvoCopyFunction(*c.source.attribute(), to);
        const Tattribute* array = to.arrayAncestor();
        AttrInfo& info = d.infos[(array ? *array : to).index()];
        if (array) {
            // Into the array's constant slot, or into the slot that every
            // batch of a varying array starts from.
            const MultiInfo* header = d.multiTable + d.arrayHeader.at(array);
            const uint32_t within =
                TdataBlockRendering::elementOffset(*array, header, c.logicalIndex, to);
            if (within == ~0u)
                continue;
            std::byte* slot =
                constantBlock +
                ((info.type & kAttrInfoVariable) ? header->templateOffset() : info.offset);
            fn(c.constant->data(), slot + within, c.source.attribute(), &to);
        } else if (!(info.type & kAttrInfoVariable)) {
            info.type = kConstPresent;
            fn(c.constant->data(), constantBlock + info.offset, c.source.attribute(), &to);
        } else if (c.kind == kConnPlaceholder) {
            c.kind = kConnConstantBuffer; // copied into each element at every shade
        }
    }
}

void TSEanalysis::assignThreads(TSEnodeDescription& d) {
    for (const TSEconnection& c : d.connections) {
        if (c.kind != kConnVarying || !c.upstream || !c.upstream->segmented)
            continue;
        const auto it = fSegmentOf.find({c.upstream, c.source.attribute()});
        if (it == fSegmentOf.end())
            continue;
        const Tattribute* array = c.destination->arrayAncestor();
        if (!array || c.logicalIndex == Tplug::kNoIndex) {
            d.infos[c.destination->index()].thread = it->second;
            continue;
        }
        if (MultiInfo* record = recordOf(d, *array, c.logicalIndex, *c.destination))
            record->threadOrCOff = it->second;
    }
}

MultiInfo* TSEanalysis::recordOf(TSEnodeDescription& d, const Tattribute& array,
                                 unsigned logicalIndex, const Tattribute& leaf) {
    MultiInfo* header = d.multiTable + d.arrayHeader.at(&array);
    MultiInfo* record = header + 1;
    int e = 0;
    for (; e < header->numKids && record->logicalIndex() != logicalIndex; ++e)
        record += OrvoMultiSpan(record);
    if (e == header->numKids)
        return nullptr;
    // Down the chain from the element to the leaf, child by child.
    std::vector<const Tattribute*> chain;
    for (const Tattribute* a = &leaf; a && a != &array; a = a->parent())
        chain.push_back(a);
    const Tattribute* at = &array;
    for (auto step = chain.rbegin(); step != chain.rend(); ++step) {
        MultiInfo* kid = record + 1;
        for (const Tattribute* child : at->children()) {
            if (child == *step)
                break;
            kid += OrvoMultiSpan(kid);
        }
        record = kid;
        at = *step;
    }
    return record;
}

uint16_t TSEanalysis::familyOf(const TSEpending& p,
                               const std::vector<TSEopusLayout::SegmentOutput>& earlier) const {
    auto* shading = static_cast<TshadingNode*>(p.description->node->cast(TshadingNode::sTypeof()));
    if (!shading)
        return 0;
    // Both ways: each output's compute writes the other.
    auto within = [shading](const Tattribute& of, const Tattribute& a) {
        TattributeArray grouped;
        shading->groupedAttrs(&of, grouped);
        for (const Tattribute* g : grouped)
            if (&a == g || a.isDescendentOf(*g))
                return true;
        return false;
    };
    const Tattribute& mine = *p.plug.attribute();
    const auto block = uint32_t(p.description->block);
    for (size_t s = 2; s < earlier.size(); ++s) {
        const TSEopusLayout::SegmentOutput& o = earlier[s];
        if (o.block == block && within(mine, *o.attribute) && within(*o.attribute, mine))
            return o.family ? o.family : uint16_t(s);
    }
    return 0;
}

void TSEanalysis::distribute(TshadingOpus& opus) {
    TSEopusLayout layout;
    for (TSEnodeDescription* d : fOrder)
        if (d->live)
            layoutBlock(*d, layout);
    // Blocks are set up first, in the root's range.
    for (TSEnodeDescription* d : fOrder) {
        if (!d->live)
            continue;
        TSEinstruction in;
        in.opcode = kOpSetUpBlock;
        in.setUp.block = uint32_t(d->block);
        in.setUp.stride = layout.blockStrides[size_t(d->block)];
        in.setUp.node = d->node;
        in.setUp.infos = d->infos;
        in.setUp.multis = d->multiTable;
        in.setUp.constantBlock = layout.constants[size_t(d->block)].get();
        in.setUp.initList = layout.initLists[size_t(d->block)].get();
        layout.instructions.push_back(in);
    }
    // Segment 1: the root, from the requested fields back.
    for (const TSEconnection& c : fRoot.connections) {
        TSEdescriptorHalf field;
        field.mode = kDataSampleField;
        field.block = uint32_t(c.field);
        field.strideMultiplier = 1;
        if (c.kind == kConnToField) {
            TSEnodeDescription& u = *c.upstream;
            const bool segmented = u.segmented;
            u.segmented = false; // computed in line for the root
            emit(u, *c.source.attribute(), 1, true, layout);
            u.segmented = segmented;
            field.attribute = c.source.attribute();
            emitCopy(layout, blockHalf(u, *c.source.attribute(), Tplug::kNoIndex), field);
        } else if (c.kind == kConnCapturedConstant) {
            TSEdescriptorHalf constant;
            constant.mode = kDataConstant;
            constant.raw = c.constant->data();
            constant.attribute = c.source.attribute();
            field.attribute = c.source.attribute();
            emitCopy(layout, constant, field);
        }
    }
    layout.segments = {0, uint32_t(layout.instructions.size())};
    layout.segmentOutputs.assign(2, {});
    // Segments 2 and on: the outputs that several consumers read.
    uint16_t next = 2;
    for (TSEpending& p : fPending) {
        if (p.cleared)
            continue;
        const uint16_t number = next++;
        fSegmentOf[{p.description, p.plug.attribute()}] = number;
        emit(*p.description, *p.plug.attribute(), number, true, layout);
        layout.segments.push_back(uint32_t(layout.instructions.size()));
        layout.segmentOutputs.push_back({uint32_t(p.description->block), p.plug.attribute(),
                                         familyOf(p, layout.segmentOutputs)});
    }
    for (TSEnodeDescription* d : fOrder)
        if (d->live)
            assignThreads(*d);
    // The captured constants live as long as the opus reads them.
    for (TSEnodeDescription* d : fOrder)
        for (TSEconnection& c : d->connections)
            if (c.constant)
                layout.buffers.push_back(c.constant);
    for (TSEconnection& c : fRoot.connections)
        if (c.constant)
            layout.buffers.push_back(c.constant);

    // The report the compile command prints.
    fReport.clear();
    fReport.push_back(fmt::format(
        "option {}: {} node(s), {} block(s), {} segment(s), {} instruction(s)", fOption,
        fOrder.size(), layout.blockCount, layout.segments.size() - 1, layout.instructions.size()));
    for (const TSEnodeDescription* d : fOrder) {
        fReport.push_back(
            fmt::format("node {} ({}){}{}", d->node->name(), d->node->typeName(),
                        d->live ? fmt::format(", block {}", d->block) : std::string(", constant"),
                        d->segmented ? ", on demand" : ""));
        const TattributeList& attributes = d->node->vsData()->attributes();
        for (const Tattribute* a : attributes) {
            const uint32_t i = a->index();
            if (d->state[i] == 0)
                continue;
            std::string line =
                fmt::format("  {:<28} {:<9} {}", a->longName(), stateName(d->state[i]),
                            OrvoAttrInfoTypeName(d->infos ? d->infos[i].type : d->kind[i]));
            if (d->infos && !a->isArrayDescendant())
                line += fmt::format("  offset {}{}", d->infos[i].offset,
                                    d->infos[i].thread && !a->isArray()
                                        ? fmt::format("  segment {}", d->infos[i].thread)
                                        : std::string());
            fReport.push_back(line);
        }
    }
    opus.initialize(std::move(layout), fNeeded, fOffsets.data(), fOffsets.size());
}
