#include "shading/data_block_rendering.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <ostream>

#include <fmt/format.h>

#include "host/debug.h"
#include "host/dependnode.h"

namespace {

constexpr uint64_t kCachedByNode = TattrFlag::kCachedByNode0 | TattrFlag::kCachedByNode1;

bool isVariable(uint32_t type) {
    return type & kAttrInfoVariable;
}
bool isOtherDB(uint32_t type) {
    return type == kVarPresentOtherDB || type == kVarUseParentOtherDB;
}

// Offset of `a` inside the value of `top` (an ancestor): the sum of the
// offsets in parent on the way up.
uint32_t offsetWithin(const Tattribute& a, const Tattribute& top) {
    uint32_t offset = 0;
    for (const Tattribute* p = &a; p && p != &top; p = p->parent())
        offset += p->offsetInParent();
    return offset;
}

const Tattribute& rootOf(const Tattribute& a) {
    const Tattribute* r = &a;
    while (r->parent() && !r->isArray())
        r = r->parent();
    return *r;
}

int arrayLevels(const Tattribute& a) {
    int levels = 0;
    for (const Tattribute* p = &a; p; p = p->parent())
        levels += p->isArray();
    return levels;
}

const TattributeList& attributesOf(const TdependNode* node) {
    return node->vsData()->attributes();
}

// Number of element records that follow an array's header record.
uint32_t elementCountOf(const MultiInfo* header) {
    return header && header->numKids > 0 ? uint32_t(header->numKids) : 0u;
}

} // namespace

const char* OrvoAttrInfoTypeName(uint32_t type) {
    switch (type) {
    case kConstDefaultValue:
        return "kConstDefaultValue";
    case kVarDefaultValue:
        return "kVarDefaultValue";
    case kConstPresent:
        return "kConstPresent";
    case kVarPresent:
        return "kVarPresent";
    case kConstUseParent:
        return "kConstUseParent";
    case kVarUseParent:
        return "kVarUseParent";
    case kConstUseChild:
        return "kConstUseChild";
    case kVarUseChild:
        return "kVarUseChild";
    case kVarPreferChild:
        return "kVarPreferChild";
    case kConstUseParentAndChild:
        return "kConstUseParentAndChild";
    case kVarUseParentAndChild:
        return "kVarUseParentAndChild";
    case kVarPresentNoProp:
        return "kVarPresentNoProp";
    case kConstantType:
        return "kConstantType";
    case kVariableType:
        return "kVariableType";
    case kNotConnectedType:
        return "kNotConnectedType";
    case kConstPreferChild:
        return "kConstPreferChild";
    case kVarPresentOtherDB:
        return "kVarPresentOtherDB";
    case kVarUseParentOtherDB:
        return "kVarUseParentOtherDB";
    default:
        return "*** INVALID VALUE ***";
    }
}

TdataBlockRendering::~TdataBlockRendering() = default;

// ---------------------------------------------------------------- layout

uint32_t TdataBlockRendering::arraySlotSize(const Tattribute& array, const MultiInfo* header) {
    return uint32_t(sizeof(TmultiHeader) +
                    TmultiBuilder::computeSize(array, elementCountOf(header)));
}

TdataBlockRendering::Layout TdataBlockRendering::layout(const TdependNode& node,
                                                        const uint32_t* types, AttrInfo* infos,
                                                        MultiInfo* multiInfos, uint16_t* initList) {
    const TattributeList& attributes = node.vsData()->attributes();
    const size_t n = attributes.size();
    for (size_t i = 0; i < n; ++i) {
        const Tattribute& a = *attributes[i];
        const uint16_t keepThread = a.isArray() ? infos[i].thread : 0; // the MultiInfo index
        infos[i] = AttrInfo{types[i], 0, keepThread, 0};
    }
    size_t sizes[2] = {0, 0}; // constant, variable
    uint16_t inits = 0;
    auto place = [&](bool variable, size_t size, size_t align) {
        size_t& running = sizes[variable ? 1 : 0];
        running = OrvoAlignUp(running, align);
        const uint32_t offset = uint32_t(running);
        running += size;
        return offset;
    };
    for (size_t i = 0; i < n; ++i) {
        const Tattribute& a = *attributes[i];
        AttrInfo& info = infos[i];
        if (a.isArrayDescendant()) {
            // Lives inside its array's elements; the dump shows the array.
            info.offset = a.arrayAncestor()->index();
            continue;
        }
        const bool root = !a.parent();
        if (root || a.isArray()) {
            if (isOtherDB(info.type)) {
                // Two pointers; aligned as pointers are.
                info.offset = place(true, sizeof(OtherDBPair), alignof(OtherDBPair));
            } else if (a.isArray()) {
                MultiInfo* header = multiInfos ? multiInfos + info.thread : nullptr;
                const uint32_t size = arraySlotSize(a, header);
                info.offset = place(isVariable(info.type), size, 8);
                // A varying array is copied into each element from a slot
                // prepared once in the constant block.
                if (isVariable(info.type) && header)
                    header->setTemplateOffset(place(false, size, 8));
            } else {
                info.offset = place(isVariable(info.type), a.dataSize(),
                                    std::max<uint32_t>(1, a.dataAlignment()));
            }
            if (isOtherDB(info.type) || a.isArray() ||
                a.hasFlag(TattrFlag::kValueIsObject | TattrFlag::kCompoundConstructs))
                initList[++inits] = uint16_t(i);
            continue;
        }
        const Tattribute& top = rootOf(a);
        const AttrInfo& topInfo = infos[top.index()];
        if (!isVariable(info.type) && isVariable(topInfo.type)) {
            // A constant child of a varying compound gets its own constant
            // slot rather than a copy in every element.
            info.offset = place(false, a.dataSize(), std::max<uint32_t>(1, a.dataAlignment()));
        } else {
            info.offset = topInfo.offset + offsetWithin(a, top);
        }
    }
    initList[0] = inits;
    return Layout{uint32_t(OrvoAlignUp(sizes[0], 8)), uint32_t(OrvoAlignUp(sizes[1], 8))};
}

uint32_t TdataBlockRendering::elementOffset(const Tattribute& array, const MultiInfo* header,
                                            unsigned logicalIndex, const Tattribute& leaf) {
    const uint32_t count = elementCountOf(header);
    const MultiInfo* record = header ? header + 1 : nullptr;
    for (uint32_t e = 0; e < count; ++e, record += OrvoMultiSpan(record))
        if (record->logicalIndex() == logicalIndex)
            return uint32_t(sizeof(TmultiHeader) + e * TmultiBuilder::calcStride(array) +
                            TmultiBuilder::valueOffset(array) + offsetWithin(leaf, array));
    return ~0u;
}

// ---------------------------------------------------------------- set-up

namespace {

bool constructs(const Tattribute& a) {
    return a.hasFlag(TattrFlag::kValueIsObject | TattrFlag::kCompoundConstructs);
}

void constructArraySlot(const Tattribute& array, const MultiInfo* header, std::byte* slot) {
    auto* h = new (slot) TmultiHeader();
    const uint32_t count = elementCountOf(header);
    const uint32_t stride = TmultiBuilder::calcStride(array);
    const uint32_t valueAt = TmultiBuilder::valueOffset(array);
    std::byte* data = slot + sizeof(TmultiHeader);
    const MultiInfo* record = header ? header + 1 : nullptr;
    for (uint32_t e = 0; e < count; ++e, record += OrvoMultiSpan(record)) {
        std::byte* element = data + size_t(e) * stride;
        const uint32_t index = record->logicalIndex();
        std::memcpy(element, &index, 4);
        array.constructValue(element + valueAt);
    }
    TmultiHandle::setHeaderBits(*h, count, stride);
    TmultiHandle::setFatChannel(*h, header);
    h->data = count ? data : nullptr;
}

// A copy of a prepared slot of objects: each value constructed, then
// copied. Slots of plain values are copied by bytes (copyPlainSlots).
void copyArraySlot(const Tattribute& array, const MultiInfo* header, const std::byte* from,
                   std::byte* to) {
    constructArraySlot(array, header, to);
    const auto* source = reinterpret_cast<const TmultiHeader*>(from);
    auto* destination = reinterpret_cast<TmultiHeader*>(to);
    const uint32_t valueAt = TmultiBuilder::valueOffset(array);
    for (uint32_t e = 0; e < destination->count; ++e)
        array.copyValue(destination->data + size_t(e) * destination->stride + valueAt,
                        source->data + size_t(e) * source->stride + valueAt);
}

// Copies of a prepared slot of plain values into `count` elements, each
// with its data pointer aimed at its own values. A slot of a few values is
// copied with a size the compiler knows, as a handful of moves rather than
// a call for each element.
template <uint32_t Size>
void copySlots(const std::byte* from, std::byte* first, size_t stride, uint32_t size,
               unsigned count) {
    for (unsigned e = 0; e < count; ++e) {
        std::byte* to = first + size_t(e) * stride;
        std::memcpy(to, from, Size ? Size : size);
        auto* h = reinterpret_cast<TmultiHeader*>(to);
        h->data = h->count ? to + sizeof(TmultiHeader) : nullptr;
    }
}

void copyPlainSlots(const std::byte* from, std::byte* first, size_t stride, uint32_t size,
                    unsigned count) {
    switch (size) {
    case 64: // the header and one to six values of 16 bytes (a float triple with its index)
        return copySlots<64>(from, first, stride, size, count);
    case 80:
        return copySlots<80>(from, first, stride, size, count);
    case 96:
        return copySlots<96>(from, first, stride, size, count);
    case 112:
        return copySlots<112>(from, first, stride, size, count);
    case 128:
        return copySlots<128>(from, first, stride, size, count);
    case 144:
        return copySlots<144>(from, first, stride, size, count);
    default:
        return copySlots<0>(from, first, stride, size, count);
    }
}

void destroyArraySlot(const Tattribute& array, std::byte* slot) {
    auto* h = reinterpret_cast<TmultiHeader*>(slot);
    if (constructs(array)) {
        const uint32_t valueAt = TmultiBuilder::valueOffset(array);
        for (uint32_t e = 0; e < h->count; ++e)
            array.destroyValue(h->data + size_t(e) * h->stride + valueAt);
    }
    h->~TmultiHeader();
}

template <class F>
void forInitList(const TdependNode* node, const uint16_t* initList, F&& f) {
    if (!initList)
        return;
    const TattributeList& attributes = attributesOf(node);
    for (uint16_t k = 1; k <= initList[0]; ++k)
        f(*attributes[initList[k]]);
}

// The node's own value of `a` (a non-array), copied to `address`: the
// node's cache first for attributes it caches, then its block, else the
// attribute's default.
void fetchNodeValue(TdependNode* node, const Tattribute& a, std::byte* address) {
    if (a.hasFlag(kCachedByNode) && node) {
        TdataHandle h(nullptr, &a, address);
        if (node->getCachedValue(Tplug(node, &a), h))
            return;
    }
    if (TordinaryDataBlock* own = node ? node->getDatablock() : nullptr)
        a.copyValue(address, own->valueAddress(a, 0));
    else
        a.writeDefault(address);
}

// The node's elements of `array`, copied into the elements of `slot` that
// both have; the others keep their defaults.
void fetchNodeElements(TdependNode* node, const Tattribute& array, std::byte* slot) {
    TordinaryDataBlock* own = node ? node->getDatablock() : nullptr;
    if (!own)
        return;
    TmultiHandle from(TdataHandle(own, &array, own->valueAddress(array, 0), TdataHandle::kIsArray));
    TmultiHandle to(TdataHandle(nullptr, &array, slot, TdataHandle::kIsArray));
    for (unsigned i = 0; to.jumpToArrayElement(i); ++i)
        if (from.jumpToElement(to.elementIndex()))
            array.copyValue(to.reference().address(), from.reference().address());
}

} // namespace

void TdataBlockRendering::initialize(TdependNode* node, const AttrInfo* infos,
                                     const MultiInfo* multiInfos, const uint16_t* initList,
                                     const std::byte* constantBlock, unsigned count,
                                     std::byte* variableBase, uint32_t stride,
                                     TrenderingEvaluator* evaluator, const Outside* outside) {
    fNode = node;
    fInfos = infos;
    fMultis = multiInfos;
    fInitList = initList;
    fConstant = constantBlock;
    fEvaluator = evaluator;
    fStride = stride;
    fFirst = fCurrent = variableBase;
    fLast = variableBase + size_t(count ? count - 1 : 0) * stride;
    fOutside = nullptr;
    fOutsideFrom = fOutsideSize = fOutsideStride = 0;
    if (outside && outside->attribute && outside->base) {
        // Only a plain value that the node itself writes can live
        // elsewhere: arrays, values in other blocks and values a segment
        // brings from upstream keep their places.
        const AttrInfo& info = fInfos[outside->attribute->index()];
        if (isVariable(info.type) && !isOtherDB(info.type) && info.thread == 0 &&
            !outside->attribute->isArray()) {
            fOutside = outside->base;
            fOutsideFrom = info.offset;
            fOutsideSize = outside->attribute->dataSize();
            fOutsideStride = outside->stride;
        }
    }
    if (!node)
        return;
    forInitList(node, initList, [&](const Tattribute& a) {
        const AttrInfo& info = fInfos[a.index()];
        if (!isVariable(info.type))
            return;
        if (isOtherDB(info.type)) {
            // Unlinked until a link or the producer's segment says where.
            if (count)
                linkOf(info)->base = nullptr;
        } else if (a.isArray()) {
            std::byte* first = fFirst + info.offset;
            const MultiInfo* header = fMultis ? fMultis + info.thread : nullptr;
            if (header && !constructs(a)) {
                copyPlainSlots(fConstant + header->templateOffset(), first, fStride,
                               arraySlotSize(a, header), count);
                return;
            }
            for (unsigned e = 0; e < count; ++e) {
                std::byte* at = first + size_t(e) * fStride;
                if (header)
                    copyArraySlot(a, header, fConstant + header->templateOffset(), at);
                else
                    constructArraySlot(a, header, at);
            }
        } else {
            for (unsigned e = 0; e < count; ++e)
                a.constructValue(variableAt(info, e));
        }
    });
}

void TdataBlockRendering::initializeConstant(TdependNode* node, const AttrInfo* infos,
                                             const MultiInfo* multiInfos, const uint16_t* initList,
                                             std::byte* constantBlock) {
    forInitList(node, initList, [&](const Tattribute& a) {
        const AttrInfo& info = infos[a.index()];
        if (a.isArray()) {
            const MultiInfo* header = multiInfos ? multiInfos + info.thread : nullptr;
            if (!isVariable(info.type))
                constructArraySlot(a, header, constantBlock + info.offset);
            else if (header)
                constructArraySlot(a, header, constantBlock + header->templateOffset());
            return;
        }
        if (!isVariable(info.type))
            a.constructValue(constantBlock + info.offset);
    });
}

void TdataBlockRendering::resolveConstants(TdependNode* node, AttrInfo* infos,
                                           MultiInfo* multiInfos, const uint16_t*,
                                           std::byte* constantBlock) {
    for (const Tattribute* a : attributesOf(node)) {
        if (a->isArrayDescendant())
            continue;
        AttrInfo& info = infos[a->index()];
        if (a->isArray()) {
            MultiInfo* header = multiInfos ? multiInfos + info.thread : nullptr;
            if (isVariable(info.type)) {
                // The elements that don't vary are prepared once; each
                // batch copies them.
                if (header)
                    fetchNodeElements(node, *a, constantBlock + header->templateOffset());
            } else if (info.type == kConstDefaultValue) {
                fetchNodeElements(node, *a, constantBlock + info.offset);
                info.type = kConstPresent;
                if (header)
                    header->kind = kConstPresent;
            }
            continue;
        }
        // Children of a compound that uses its children lie inside it (or,
        // under a varying compound, in slots of their own): each fetch lands
        // in place, so the compound is present once its children are.
        if (info.type == kConstDefaultValue) {
            fetchNodeValue(node, *a, constantBlock + info.offset);
            info.type = kConstPresent;
        }
    }
    for (const Tattribute* a : attributesOf(node))
        if (!a->isArrayDescendant() && infos[a->index()].type == kConstUseChild)
            infos[a->index()].type = kConstPresent;
}

void TdataBlockRendering::tearDownVariable() {
    if (!fNode)
        return;
    const unsigned count = elementCount();
    forInitList(fNode, fInitList, [&](const Tattribute& a) {
        const AttrInfo& info = fInfos[a.index()];
        if (!isVariable(info.type) || isOtherDB(info.type))
            return;
        // Arrays of plain values have nothing to destroy.
        if (a.isArray() && !constructs(a))
            return;
        for (unsigned e = 0; e < count; ++e) {
            if (a.isArray())
                destroyArraySlot(a, fFirst + size_t(e) * fStride + info.offset);
            else
                a.destroyValue(variableAt(info, e));
        }
    });
}

void TdataBlockRendering::tearDownConstant(TdependNode* node, const AttrInfo* infos,
                                           const MultiInfo* multiInfos, const uint16_t* initList,
                                           std::byte* constantBlock) {
    forInitList(node, initList, [&](const Tattribute& a) {
        const AttrInfo& info = infos[a.index()];
        if (a.isArray()) {
            const MultiInfo* header = multiInfos ? multiInfos + info.thread : nullptr;
            if (!isVariable(info.type))
                destroyArraySlot(a, constantBlock + info.offset);
            else if (header)
                destroyArraySlot(a, constantBlock + header->templateOffset());
            return;
        }
        if (!isVariable(info.type))
            a.destroyValue(constantBlock + info.offset);
    });
}

// ---------------------------------------------------------------- values

std::byte* TdataBlockRendering::addressOf(const Tattribute& a, unsigned element) const {
    const AttrInfo& info = fInfos[a.index()];
    if (isVariable(info.type))
        return variableAt(info, element);
    // Constant values are only read while shading; handles are not const.
    return const_cast<std::byte*>(fConstant) + info.offset;
}

TdataHandle TdataBlockRendering::handleOf(const Tattribute& a, unsigned element,
                                          uint32_t extraMode) const {
    uint32_t mode = extraMode;
    if (a.isArray())
        mode |= TdataHandle::kIsArray;
    return TdataHandle(const_cast<TdataBlockRendering*>(this), &a, addressOf(a, element), mode);
}

void TdataBlockRendering::restoreCurrent(unsigned index) {
    std::byte* at = fFirst + size_t(index) * fStride;
    if (at <= fLast)
        fCurrent = at;
}

void TdataBlockRendering::compute(uint16_t segment, const Tattribute& a, std::byte* destination,
                                  unsigned first, unsigned count) {
    if (!segment || !fEvaluator)
        return;
    const unsigned index = currentIndex();
    auto* value = reinterpret_cast<uint8_t*>(destination);
    TdataBlock* caller = this;
    fEvaluator->computeValue(segment, a, &value, &caller, first, count);
    restoreCurrent(index);
}

void TdataBlockRendering::fetchVaryingDefault(const Tattribute& a, unsigned first, unsigned count) {
    // Not connected, but in the variable block because a compound around it
    // varies: the node's value in every element of the run.
    std::byte* address = addressOf(a, first);
    fetchNodeValue(fNode, a, address);
    const uint32_t stride = variableStride(fInfos[a.index()]);
    for (unsigned e = 1; e < count; ++e)
        a.copyValue(address + size_t(e) * stride, address);
}

void TdataBlockRendering::assembleChildren(const Tattribute& compound, unsigned first,
                                           unsigned count) {
    for (const Tattribute* child : compound.children()) {
        const Tattribute& c = *child;
        const AttrInfo& ci = fInfos[c.index()];
        switch (ci.type) {
        case kVarDefaultValue:
            fetchVaryingDefault(c, first, count);
            break;
        case kConstPresent:
        case kConstUseParentAndChild:
            // A constant child over a varying compound: into each element.
            for (unsigned e = first; e < first + count; ++e) {
                std::byte* place = addressOf(compound, e) + c.offsetInParent();
                const std::byte* from = addressOf(c, e);
                if (place != from)
                    c.copyValue(place, from);
            }
            break;
        case kVarPresent:
            compute(ci.thread, c, addressOf(c, first), first, count);
            break;
        case kVarUseChild:
        case kVarUseParentAndChild:
        case kConstPreferChild:
            assembleChildren(c, first, count);
            break;
        case kVarPreferChild:
            compute(ci.thread, c, addressOf(c, first), first, count);
            assembleChildren(c, first, count);
            break;
        default:
            break; // its value comes with the compound's
        }
    }
}

const MultiInfo* TdataBlockRendering::headerRecord(const Tattribute& array) const {
    return fMultis ? fMultis + fInfos[array.index()].thread : nullptr;
}

void TdataBlockRendering::evaluateRecord(const MultiInfo* record, const Tattribute& a,
                                         std::byte* at, std::ptrdiff_t inSlot, unsigned first,
                                         unsigned count) {
    const bool own = record->kind == kVarPresent || record->kind == kVarPreferChild;
    if (own && record->segment())
        compute(record->segment(), a, at, first, count);
    if (record->numKids <= 0)
        return;
    // The template of the array's slot, for children that keep a constant
    // value over their own varying parent.
    const Tattribute& array = *(a.isArray() ? &a : a.arrayAncestor());
    const std::byte* prepared = fConstant + headerRecord(array)->templateOffset();
    const MultiInfo* kid = record + 1;
    for (const Tattribute* child : a.children()) {
        const uint32_t offset = child->offsetInParent();
        if (own && (kid->kind == kConstPresent || kid->kind == kConstUseParentAndChild))
            for (unsigned e = 0; e < count; ++e)
                child->copyValue(at + offset + size_t(e) * fStride, prepared + inSlot + offset);
        evaluateRecord(kid, *child, at + offset, inSlot + std::ptrdiff_t(offset), first, count);
        kid += OrvoMultiSpan(kid);
    }
}

void TdataBlockRendering::evaluateArray(const Tattribute& array, unsigned first, unsigned count) {
    // A constant array was made whole when the network was compiled.
    if (!isVariable(fInfos[array.index()].type) || !fMultis)
        return;
    const MultiInfo* header = headerRecord(array);
    const uint32_t stride = TmultiBuilder::calcStride(array);
    const uint32_t valueAt = TmultiBuilder::valueOffset(array);
    std::byte* slot = addressOf(array, first);
    const MultiInfo* record = header + 1;
    for (int e = 0; e < header->numKids; ++e, record += OrvoMultiSpan(record)) {
        const std::ptrdiff_t inSlot =
            std::ptrdiff_t(sizeof(TmultiHeader) + size_t(e) * stride + valueAt);
        evaluateRecord(record, array, slot + inSlot, inSlot, first, count);
    }
}

void TdataBlockRendering::evaluate(const Tattribute& a, unsigned first, unsigned count) {
    if (a.isArray()) {
        evaluateArray(a, first, count);
        return;
    }
    const AttrInfo& info = fInfos[a.index()];
    switch (info.type) {
    case kVarDefaultValue:
        fetchVaryingDefault(a, first, count);
        break;
    case kVarPresent:
        compute(info.thread, a, addressOf(a, first), first, count);
        break;
    case kVarUseParent:
    case kVarUseParentAndChild:
        if (info.thread) {
            const Tattribute* p = a.parent();
            while (p && !(fInfos[p->index()].type & kAttrInfoPresent))
                p = p->parent();
            if (p)
                compute(info.thread, *p, addressOf(*p, first), first, count);
        }
        if (info.type == kVarUseParentAndChild)
            assembleChildren(a, first, count);
        break;
    case kVarUseChild:
    case kConstPreferChild:
        assembleChildren(a, first, count);
        break;
    case kVarPreferChild:
        compute(info.thread, a, addressOf(a, first), first, count);
        assembleChildren(a, first, count);
        break;
    default:
        // Constants, defaults included, were fetched when the network was
        // compiled.
        break;
    }
}

void TdataBlockRendering::setLink(const Tattribute& attribute, std::byte* base,
                                  TdataBlock* source) {
    *linkOf(fInfos[attribute.index()]) = OtherDBPair{base, source};
}

TdataHandle TdataBlockRendering::otherBlockHandle(const Tattribute& a, unsigned element,
                                                  unsigned count) {
    const AttrInfo& info = fInfos[a.index()];
    const Tattribute& holder = info.type == kVarUseParentOtherDB ? rootOf(a) : a;
    const AttrInfo& holderInfo = fInfos[holder.index()];
    OtherDBPair* pair = linkOf(holderInfo);
    if (holderInfo.thread && fEvaluator) {
        // One run of the producer's segment serves the whole run here.
        uint8_t* base = nullptr;
        TdataBlock* other = this;
        const unsigned index = currentIndex();
        fEvaluator->computeValue(holderInfo.thread, holder, &base, &other, element, count);
        restoreCurrent(index);
        *pair = OtherDBPair{reinterpret_cast<std::byte*>(base), other};
    }
    if (!pair->base)
        return {};
    const uint32_t extra = info.type == kVarUseParentOtherDB ? offsetWithin(a, holder) : 0u;
    return TdataHandle(pair->block, &a,
                       pair->base + size_t(element) * pair->block->elementStride() + extra, 0);
}

TdataHandle TdataBlockRendering::inputValue(const Tattribute& attribute) {
    const unsigned index = currentIndex();
    const AttrInfo& info = fInfos[attribute.index()];
    if (isOtherDB(info.type)) {
        TdataHandle h = otherBlockHandle(attribute, index, 1);
        if (!h.isNull())
            return h;
    } else {
        evaluate(attribute, index, 1);
    }
    return handleOf(attribute, index);
}

TdataHandle TdataBlockRendering::outputValue(const Tattribute& attribute) {
    const unsigned index = currentIndex();
    const AttrInfo& info = fInfos[attribute.index()];
    if (isOtherDB(info.type)) {
        const Tattribute& holder =
            info.type == kVarUseParentOtherDB ? rootOf(attribute) : attribute;
        const OtherDBPair* pair = linkOf(fInfos[holder.index()]);
        if (pair->base) {
            const uint32_t extra =
                info.type == kVarUseParentOtherDB ? offsetWithin(attribute, holder) : 0u;
            return TdataHandle(pair->block, &attribute,
                               pair->base + size_t(index) * pair->block->elementStride() + extra,
                               0);
        }
    }
    return handleOf(attribute, index);
}

TvectorDataHandle TdataBlockRendering::vectorInputValue(const Tattribute& attribute, unsigned first,
                                                        unsigned count) {
    const AttrInfo& info = fInfos[attribute.index()];
    // Most inputs of most nodes are constants fetched when the network was
    // compiled: nothing to evaluate, one value for the run. A node asks for
    // each of its inputs every batch, so this is the first test.
    if (!isVariable(info.type) && info.type != kConstPreferChild && !attribute.isArray())
        return TvectorDataHandle(
            TdataHandle(this, &attribute, const_cast<std::byte*>(fConstant) + info.offset, 0), 0);
    if (isOtherDB(info.type)) {
        // The producer runs the whole run: its elements follow by its stride.
        TdataHandle h = otherBlockHandle(attribute, first, count);
        if (!h.isNull())
            return TvectorDataHandle(h, h.block()->elementStride());
    } else {
        evaluate(attribute, first, count);
    }
    const AttrInfo& own = fInfos[attribute.index()];
    if (isVariable(own.type))
        return TvectorDataHandle(handleOf(attribute, first, TdataHandle::kIsVarying),
                                 variableStride(own));
    return TvectorDataHandle(handleOf(attribute, first), 0);
}

TvectorDataHandle TdataBlockRendering::vectorOutputValue(const Tattribute& attribute,
                                                         unsigned first) {
    const AttrInfo& info = fInfos[attribute.index()];
    if (isOtherDB(info.type)) {
        // The value lives in the producer's block: walk it there.
        const unsigned saved = currentIndex();
        restoreCurrent(first);
        const TdataHandle h = outputValue(attribute);
        restoreCurrent(saved);
        if (h.block() != this && !h.isNull())
            return TvectorDataHandle(h, h.block()->elementStride());
    }
    const AttrInfo& own = fInfos[attribute.index()];
    if (isVariable(own.type))
        return TvectorDataHandle(handleOf(attribute, first, TdataHandle::kIsVarying),
                                 variableStride(own));
    return TvectorDataHandle(handleOf(attribute, first), 0);
}

// ---------------------------------------------------------------- arrays

const Tattribute* TdataBlockRendering::servedArray(const Tplug& plug) const {
    const Tattribute* leaf = plug.attribute();
    if (!leaf || arrayLevels(*leaf) != 1)
        return nullptr;
    return leaf->arrayAncestor();
}

TmultiHeader* TdataBlockRendering::headerOf(const Tattribute& array, unsigned element) const {
    return reinterpret_cast<TmultiHeader*>(addressOf(array, element));
}

void TdataBlockRendering::evaluateElement(const Tattribute& array, unsigned logicalIndex,
                                          unsigned first, unsigned count) {
    if (!isVariable(fInfos[array.index()].type) || !fMultis)
        return;
    const MultiInfo* header = headerRecord(array);
    const MultiInfo* record = header + 1;
    for (int e = 0; e < header->numKids; ++e, record += OrvoMultiSpan(record)) {
        if (record->logicalIndex() != logicalIndex)
            continue;
        const std::ptrdiff_t inSlot =
            std::ptrdiff_t(sizeof(TmultiHeader) + size_t(e) * TmultiBuilder::calcStride(array) +
                           TmultiBuilder::valueOffset(array));
        evaluateRecord(record, array, addressOf(array, first) + inSlot, inSlot, first, count);
        return;
    }
}

TdataHandle TdataBlockRendering::elementValue(const Tplug& plug, bool) {
    const Tattribute* array = servedArray(plug);
    if (!array)
        return {};
    const unsigned logicalIndex = plug.multiIndex(array);
    TmultiHandle mh(
        TdataHandle(this, array, headerOf(*array, currentIndex()), TdataHandle::kIsArray));
    if (logicalIndex == Tplug::kNoIndex || !mh.jumpToElement(logicalIndex))
        throw TDEbadMultiIndex(array, logicalIndex);
    TdataHandle element = mh.reference();
    const Tattribute& leaf = *plug.attribute();
    if (&leaf == array)
        return element;
    return TdataHandle(this, &leaf,
                       static_cast<std::byte*>(element.address()) + offsetWithin(leaf, *array));
}

TvectorDataHandle TdataBlockRendering::elementVectorValue(const Tplug& plug, unsigned first,
                                                          unsigned count) {
    const Tattribute* array = servedArray(plug);
    if (!array)
        return {};
    const unsigned saved = currentIndex();
    restoreCurrent(first);
    TdataHandle h;
    try {
        h = elementValue(plug, false);
    } catch (...) {
        restoreCurrent(saved);
        throw;
    }
    restoreCurrent(saved);
    // Elements of an array lie at the same place in every element of the
    // run, so the run steps by the block's stride (0 when constant).
    const bool variable = isVariable(fInfos[array->index()].type);
    return TvectorDataHandle(
        TdataHandle(this, plug.attribute(), h.address(),
                    variable ? TdataHandle::kIsVarying | (count > 1 ? 6u : 0u) : 0u),
        variable ? fStride : 0u);
}

TmultiHeader* TdataBlockRendering::elementStorage(const Tplug& plug) {
    const Tattribute* array = servedArray(plug);
    return array ? headerOf(*array, currentIndex()) : nullptr;
}

bool TdataBlockRendering::addMultiInstance(const Tplug&) {
    return false; // the element set of a compiled network is fixed
}

bool TdataBlockRendering::removeMultiInstance(const Tplug&) {
    return false;
}

namespace {
bool servedByMultiPath(const Tplug& plug) {
    const Tattribute* a = plug.attribute();
    return a && (a->isArrayDescendant() || (a->isArray() && !(plug.mode() & Tplug::kWholeArray)));
}
} // namespace

TdataHandle TdataBlockRendering::inputValue(const Tplug& plug) {
    if (!servedByMultiPath(plug))
        return plug.attribute() ? inputValue(*plug.attribute()) : TdataHandle();
    const Tattribute* array = servedArray(plug);
    if (!array)
        return {};
    const unsigned logicalIndex = plug.multiIndex(array);
    if (logicalIndex == Tplug::kNoIndex)
        throw TDEbadMultiIndex(array, logicalIndex);
    evaluateElement(*array, logicalIndex, currentIndex(), 1);
    return elementValue(plug, false);
}

TdataHandle TdataBlockRendering::outputValue(const Tplug& plug) {
    if (!servedByMultiPath(plug))
        return plug.attribute() ? outputValue(*plug.attribute()) : TdataHandle();
    return elementValue(plug, false);
}

TvectorDataHandle TdataBlockRendering::vectorInputValue(const Tplug& plug, unsigned first,
                                                        unsigned count) {
    if (!servedByMultiPath(plug))
        return plug.attribute() ? vectorInputValue(*plug.attribute(), first, count)
                                : TvectorDataHandle();
    const Tattribute* array = servedArray(plug);
    if (!array)
        return {};
    const unsigned logicalIndex = plug.multiIndex(array);
    if (logicalIndex == Tplug::kNoIndex)
        throw TDEbadMultiIndex(array, logicalIndex);
    evaluateElement(*array, logicalIndex, first, count);
    return elementVectorValue(plug, first, count);
}

TvectorDataHandle TdataBlockRendering::vectorOutputValue(const Tplug& plug, unsigned first,
                                                         unsigned count) {
    if (!servedByMultiPath(plug))
        return plug.attribute() ? vectorOutputValue(*plug.attribute(), first) : TvectorDataHandle();
    return elementVectorValue(plug, first, count);
}

void TdataBlockRendering::sampleLights(void*, unsigned first, unsigned count, unsigned flags,
                                       T3Float* points, TlightData** table) {
    if (fEvaluator)
        fEvaluator->sampleLights(first, count, flags, points, table);
}

uint32_t TdataBlockRendering::dataBlockMemorySize() const {
    return uint32_t(size_t(fStride) * elementCount());
}

// ---------------------------------------------------------------- dumps

void TdataBlockRendering::debug(TdebugOutput& out, const TdebugDetails& details) const {
    out.print("DataBlockRendering for Node:{}\n", fNode ? fNode->name() : std::string("NULL"));
    TdataBlock::debug(out, details);
    if (!details.deep() || !fNode)
        return;
    const TattributeList& attributes = attributesOf(fNode);
    auto line = [&](const Tattribute& a, std::byte* at) {
        const AttrInfo& info = fInfos[a.index()];
        if (a.isArray()) {
            auto* h = reinterpret_cast<TmultiHeader*>(at);
            out.print("{} : {} : {}\n", a.index(), a.longName(), h->count);
            TmultiHandle(
                TdataHandle(const_cast<TdataBlockRendering*>(this), &a, at, TdataHandle::kIsArray))
                .debug(out);
            return;
        }
        out.print("{} : {} : {} : {} : ", a.index(), a.longName(), info.offset,
                  OrvoAttrInfoTypeName(info.type));
        if (!isOtherDB(info.type))
            a.printValue(out, at);
        out.write("\n");
    };
    out.write("Constant Block\n");
    out.write("--------------\n");
    out.write("Index : AttrName : Offset : Type [: Value]\n");
    for (const Tattribute* a : attributes)
        if (!a->isArrayDescendant() && !isVariable(fInfos[a->index()].type))
            line(*a, const_cast<std::byte*>(fConstant) + fInfos[a->index()].offset);
    out.write("\nVariable Block\n");
    out.write("--------------\n");
    out.write("Index : AttrName : Offset : Type [: Value]\n");
    for (unsigned e = 0; e < elementCount(); ++e) {
        out.print("Vector Element {}\n", e);
        for (const Tattribute* a : attributes)
            if (!a->isArrayDescendant() && isVariable(fInfos[a->index()].type))
                line(*a, fFirst + size_t(e) * fStride + fInfos[a->index()].offset);
    }
}

void TdataBlockRendering::dumpAttrInfo(std::ostream& out) const {
    out << "AttrInfo structure for Node: " << (fNode ? fNode->name() : "NULL") << '\n'
        << "----------------------------------------\n";
    if (!fNode)
        return;
    for (const Tattribute* a : attributesOf(fNode)) {
        const AttrInfo& info = fInfos[a->index()];
        out << a->longName() << '\t' << OrvoAttrInfoTypeName(info.type);
        if (a->isArrayDescendant()) {
            out << " Parent_Array_Index: " << info.offset;
        } else {
            out << " offset: " << info.offset;
            if (a->isArray())
                out << " multiInfo[" << info.thread << "]";
            else
                out << " thread: " << info.thread;
        }
        out << '\n';
    }
}

void TdataBlockRendering::dumpMultiInfo(std::ostream& out) const {
    out << "MultiInfo structure for Node: " << (fNode ? fNode->name() : "NULL") << '\n'
        << "----------------------------------------\n";
    if (!fMultis)
        return;
    for (int i = 0; fMultis[i].numKids != -1; ++i) {
        const MultiInfo& m = fMultis[i];
        out << i << ' ' << OrvoAttrInfoTypeName(m.kind) << " numKids: " << m.numKids
            << " pOff: " << m.pOff;
        if (m.kind & kAttrInfoVariable)
            out << " thread: " << m.threadOrCOff;
        else
            out << " cOff: " << m.threadOrCOff << " dOff: " << m.dOff << " bOff: " << m.bOff;
        out << '\n';
    }
}
