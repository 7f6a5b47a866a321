#include "framework/nodes/utility/shading_switch.h"

#include <algorithm>
#include <cstring>
#include <initializer_list>

#include "host/scene/shape.h"
#include "shading/shading_engine.h"

ORVO_DEFINE_SCHEMA(TdnBaseSwitch)
ORVO_DEPENDENCIES(TdnBaseSwitch) {
    (void)m;
}

ORVO_REGISTER_NODE(TdnSingleSwitch)
ORVO_REGISTER_NODE(TdnDoubleSwitch)
ORVO_REGISTER_NODE(TdnTripleSwitch)
ORVO_REGISTER_NODE(TdnQuadSwitch)

// The object, each element and the default feed the output.
#define ORVO_SWITCH_DEPENDENCIES(T)                                                                \
    ORVO_DEPENDENCIES(T) {                                                                         \
        affectsAll(m, Input, Output);                                                              \
        affectsAll(m, Default, Output);                                                            \
        affectsAll(m, TdnBaseSwitch::aObjectId, Output);                                           \
    }
ORVO_SWITCH_DEPENDENCIES(TdnSingleSwitch)
ORVO_SWITCH_DEPENDENCIES(TdnDoubleSwitch)
ORVO_SWITCH_DEPENDENCIES(TdnTripleSwitch)
ORVO_SWITCH_DEPENDENCIES(TdnQuadSwitch)
#undef ORVO_SWITCH_DEPENDENCIES

namespace {

Tmetaclass* baseSwitchMeta() {
    static Tmetaclass meta(nullptr, "baseShadingSwitch", sizeof(TdnBaseSwitch), nullptr, 0, 0,
                           TshadingDependNode::sTypeof());
    return &meta;
}

// Where `attribute` lies inside an element of the array `top`.
uint32_t offsetBelow(const Tattribute& attribute, const Tattribute& top) {
    uint32_t at = 0;
    for (const Tattribute* a = &attribute; a && a != &top; a = a->parent())
        at += a->offsetInParent();
    return at;
}

// One piece of a value: `count` floats from `from` bytes into the source to
// `to` bytes into the output.
struct Piece {
    uint32_t to, from, count;
};

void copyPieces(TdataHandle& out, const TdataHandle& in, std::initializer_list<Piece> pieces) {
    auto* dst = static_cast<std::byte*>(out.address());
    const auto* src = static_cast<const std::byte*>(in.address());
    if (!dst || !src)
        return;
    for (const Piece& p : pieces)
        std::memcpy(dst + p.to, src + p.from, sizeof(float) * p.count);
}

// The element of logical index `index` in a sorted array, or null.
const std::byte* findElement(const TmultiHeader* array, uint32_t index) {
    if (!array || array->count == 0 || !array->data)
        return nullptr;
    unsigned lo = 0, hi = array->count;
    while (lo < hi) {
        const unsigned mid = (lo + hi) / 2;
        uint32_t at;
        std::memcpy(&at, array->data + size_t(mid) * array->stride, sizeof at);
        if (at < index)
            lo = mid + 1;
        else
            hi = mid;
    }
    if (lo == array->count)
        return nullptr;
    const std::byte* element = array->data + size_t(lo) * array->stride;
    uint32_t at;
    std::memcpy(&at, element, sizeof at);
    return at == index ? element : nullptr;
}

} // namespace

// ---------------------------------------------------------------- pattern face

TdnBaseSwitch::VS* TdnBaseSwitch::sVsData() {
    auto& storage = TdnAttr<TdnBaseSwitch>::fsVsData;
    VS* vs = storage.ensure();
    if (!storage.wired) {
        storage.wired = true;
        vs->setParentData(TshadingDependNode::sVsBaseData());
    }
    return vs;
}

Tmetaclass* TdnBaseSwitch::sTypeof() {
    return baseSwitchMeta();
}

Tmetaclass* TdnBaseSwitch::typeof() const {
    return baseSwitchMeta();
}

void* TdnBaseSwitch::cast(Tmetaclass* meta) {
    if (meta && meta == baseSwitchMeta())
        return this;
    return TshadingDependNode::cast(meta);
}

// ---------------------------------------------------------------- analysis

void TdnBaseSwitch::analyse(TDNshadingEngine* engine, TSEnodeDescription* description, void* option,
                            TbitField64& fields) {
    TshadingDependNode::analyse(engine, description, option, fields);
    if (!engine)
        return;
    const TuInt32Array indices = elementIndices();
    const std::lock_guard<std::mutex> lock(fMembersLock);
    fMembers.reserve(fMembers.size() + indices.size());
    for (const uint32_t index : indices) {
        Tplug shape(this, &shapeAttr());
        shape.setMultiIndex(&multiParent(), index);
        const Tplug source = shape.source();
        // A reference stands for a shape elsewhere; it names no object here.
        if (source.isNull() || source.node()->typeName() == "reference")
            continue;
        void* id = engine->getObjectId(description, &source);
        if (!id)
            continue;
        const std::pair<uint64_t, uint32_t> entry(uint64_t(reinterpret_cast<uintptr_t>(id)), index);
        const auto at =
            std::lower_bound(fMembers.begin(), fMembers.end(), entry,
                             [](const auto& a, const auto& b) { return a.first < b.first; });
        // One entry an id: the first element that names an object wins.
        if (at == fMembers.end() || at->first != entry.first)
            fMembers.insert(at, entry);
    }
}

void TdnBaseSwitch::endOfRender() {
    {
        const std::lock_guard<std::mutex> lock(fMembersLock);
        fMembers.clear();
    }
    TshadingDependNode::endOfRender();
}

uint32_t TdnBaseSwitch::lookUpMultiIndex(void* objectId) const {
    const uint64_t id = uint64_t(reinterpret_cast<uintptr_t>(objectId));
    const auto at = std::lower_bound(
        fMembers.begin(), fMembers.end(), id,
        [](const std::pair<uint64_t, uint32_t>& a, uint64_t b) { return a.first < b; });
    return at != fMembers.end() && at->first == id ? at->second : kNotFound;
}

bool TdnBaseSwitch::legalConnection(const Tplug& mine, const Tplug& other, bool asSource) {
    if (!asSource && mine.attribute() == &shapeAttr())
        return Tshape::fromNode(other.node()) != nullptr || other.node()->typeName() == "reference";
    return TshadingDependNode::legalConnection(mine, other, asSource);
}

// ---------------------------------------------------------------- compute

bool TdnBaseSwitch::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                                      unsigned count) {
    const Tattribute* top = plug.attribute();
    while (top && top->parent())
        top = top->parent();
    if (top != &outputAttr())
        return TshadingDependNode::vectorComputePlug(plug, block, first, count);
    const TvectorDataHandle out = block.vectorOutputValue(outputAttr(), first);
    if (count == 0 || out.isNull())
        return true;
    const TvectorDataHandle ids = block.vectorInputValue(aObjectId, first, count);
    // A run comes from one object: its first sample decides for all.
    const uint32_t index = ids.isNull() ? kNotFound : lookUpMultiIndex(ids[0].as<void*>());
    if (index != kNotFound) {
        const TvectorDataHandle arrays = block.vectorInputValue(multiParent(), first, count);
        const uint32_t valueAt =
            TmultiBuilder::valueOffset(multiParent()) + offsetBelow(valueAttr(), multiParent());
        // An element with no data of its own holds the value's default.
        alignas(16) std::byte stored[4 * sizeof(float)];
        valueAttr().writeDefault(stored);
        const TdataHandle unset(&block, &valueAttr(), stored);
        for (unsigned n = 0; n < count; ++n) {
            const int i = int(n);
            TdataHandle o = out[i];
            const std::byte* element =
                arrays.isNull() ? nullptr : findElement(arrays[i].asMultiHeader(), index);
            if (element)
                copyInput(o, TdataHandle(&block, &valueAttr(),
                                         const_cast<std::byte*>(element) + valueAt));
            else
                copyInput(o, unset);
        }
    } else {
        const TvectorDataHandle fallback = block.vectorInputValue(defaultAttr(), first, count);
        for (unsigned n = 0; n < count; ++n) {
            TdataHandle o = out[int(n)];
            copyDefault(o, fallback[int(n)]);
        }
    }
    out[0].setClean();
    return true;
}

bool TdnBaseSwitch::computePlug(const Tplug& plug, TdataBlock& block) {
    const Tattribute* top = plug.attribute();
    while (top && top->parent())
        top = top->parent();
    if (top != &outputAttr())
        return TshadingDependNode::computePlug(plug, block);
    TdataHandle out = block.outputValue(outputAttr());
    copyDefault(out, block.inputValue(defaultAttr()));
    out.setClean();
    return true;
}

// ---------------------------------------------------------------- user interface

TuInt32Array TdnBaseSwitch::elementIndices() const {
    TuInt32Array indices;
    getExistingMultiAttributeIndices(Tplug(this, &multiParent()), indices);
    // An element whose shape is connected but whose value was never set
    // holds no data yet; it is an element all the same.
    if (graph())
        for (const auto& [source, destination] : graph()->connections())
            if (destination.node() == this && destination.attribute() == &shapeAttr())
                indices.push_back(destination.multiIndex(&multiParent()));
    std::sort(indices.begin(), indices.end());
    indices.erase(std::unique(indices.begin(), indices.end()), indices.end());
    return indices;
}

unsigned TdnBaseSwitch::inputPlugCount() const {
    return unsigned(elementIndices().size());
}

Tplug TdnBaseSwitch::shapeIndexPlug(unsigned i) const {
    const TuInt32Array indices = elementIndices();
    if (i >= indices.size())
        return {};
    Tplug plug(this, &shapeAttr());
    plug.setMultiIndex(&multiParent(), indices[i]);
    return plug;
}

Tplug TdnBaseSwitch::shadeIndexPlug(unsigned i) const {
    const TuInt32Array indices = elementIndices();
    if (i >= indices.size())
        return {};
    Tplug plug(this, &valueAttr());
    plug.setMultiIndex(&multiParent(), indices[i]);
    return plug;
}

TdependNode* TdnBaseSwitch::shapeIndexPath(unsigned i) const {
    const Tplug shape = shapeIndexPlug(i);
    return shape.isNull() ? nullptr : shape.source().node();
}

// ---------------------------------------------------------------- the four copies

void TdnSingleSwitch::copyInput(TdataHandle& out, const TdataHandle& in) const {
    copyPieces(out, in, {{0, 0, 1}});
}
void TdnSingleSwitch::copyDefault(TdataHandle& out, const TdataHandle& in) const {
    copyPieces(out, in, {{0, 0, 1}});
}

void TdnDoubleSwitch::copyInput(TdataHandle& out, const TdataHandle& in) const {
    copyPieces(out, in,
               {{aOutComp1.offsetInParent(), aInComp1.offsetInParent(), 1},
                {aOutComp2.offsetInParent(), aInComp2.offsetInParent(), 1}});
}
void TdnDoubleSwitch::copyDefault(TdataHandle& out, const TdataHandle& in) const {
    copyPieces(out, in,
               {{aOutComp1.offsetInParent(), aDefComp1.offsetInParent(), 1},
                {aOutComp2.offsetInParent(), aDefComp2.offsetInParent(), 1}});
}

void TdnTripleSwitch::copyInput(TdataHandle& out, const TdataHandle& in) const {
    copyPieces(out, in, {{0, 0, 3}});
}
void TdnTripleSwitch::copyDefault(TdataHandle& out, const TdataHandle& in) const {
    copyPieces(out, in, {{0, 0, 3}});
}

void TdnQuadSwitch::copyInput(TdataHandle& out, const TdataHandle& in) const {
    copyPieces(out, in,
               {{aOutTriple.offsetInParent(), aInTriple.offsetInParent(), 3},
                {aOutSingle.offsetInParent(), aInSingle.offsetInParent(), 1}});
}
void TdnQuadSwitch::copyDefault(TdataHandle& out, const TdataHandle& in) const {
    copyPieces(out, in,
               {{aOutTriple.offsetInParent(), aDefTriple.offsetInParent(), 3},
                {aOutSingle.offsetInParent(), aDefSingle.offsetInParent(), 1}});
}
