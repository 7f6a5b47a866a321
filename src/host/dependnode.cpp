#include "host/dependnode.h"
#include "host/scene_folder.h"

#include <algorithm>
#include <cstring>
#include <new>

#include <fmt/format.h>

#include "host/debug.h"
#include "host/graph.h"

// ---------------------------------------------------------------- descriptor

TdependNodeVS::TdependNodeVS() = default;
TdependNodeVS::TdependNodeVS(const TdependNodeVS& other)
    : fClass(other.fClass), fParentData(other.fParentData) {}
TdependNodeVS& TdependNodeVS::operator=(const TdependNodeVS& other) {
    fClass = other.fClass;
    fParentData = other.fParentData;
    return *this;
}
TdependNodeVS::~TdependNodeVS() = default;

namespace {
TattributeMessage& baseMessage() {
    // Made once and never destroyed: every type's list refers to it.
    static auto* message = [] {
        auto* a = new TattributeMessage("message", "msg");
        a->flagsOn(TattrFlag::kHidden);
        a->setNodeNameString("n_node");
        a->ref();
        return a;
    }();
    return *message;
}
} // namespace

TattributeMessage& TdependNode::aMessage = baseMessage();

bool TdependNodeVS::appendAttributes(TattributeList& list) {
    return list.addAttribute(&baseMessage());
}
bool TdependNodeVS::setupDependencies(TdependencyMatrix&) {
    return true;
}
void TdependNodeVS::initializeThreadSafety() {
    if (fClass)
        fClass->threadSafety = 0;
}

bool TdependNodeVS::initializeClass() {
    if (fInitialized)
        return true;
    fAttributes.clear();
    bool ok = appendAttributes(fAttributes);
    for (size_t i = 0; i < fAttributes.size(); ++i) {
        auto* a = const_cast<Tattribute*>(fAttributes[i]);
        a->setIndex(uint32_t(i));
        for (const Tattribute* p = a->parent(); p; p = p->parent())
            if (p->isArray())
                a->setFlags(TattrFlag::kArrayDescendant);
    }
    fDependencies.resize(fAttributes.size());
    ok = setupDependencies(fDependencies) && ok;
    initializeThreadSafety();
    computeLayout();
    fInitialized = true;
    return ok;
}

bool TdependNodeVS::cleanupClass() {
    fAttributes.clear();
    fDependencies.clear();
    fOffsets.clear();
    fRoots.clear();
    fConstructed.clear();
    fElementSize = 0;
    fInitialized = false;
    return true;
}

void TdependNodeVS::computeLayout() {
    const size_t n = fAttributes.size();
    fOffsets.assign(n, 0);
    fRoots.clear();
    fConstructed.clear();
    size_t size = 0;
    for (const Tattribute* a : fAttributes) {
        if (a->parent())
            continue;
        size_t slot = 0, align = 1;
        if (a->isArray()) {
            slot = sizeof(TmultiHeader);
            align = 8;
        } else {
            slot = a->dataSize();
            align = std::max<uint32_t>(1, a->dataAlignment());
        }
        size = OrvoAlignUp(size, align);
        fOffsets[a->index()] = uint32_t(size);
        size += slot;
        fRoots.push_back(a);
        if (a->isArray() || a->hasFlag(TattrFlag::kValueIsObject | TattrFlag::kCompoundConstructs))
            fConstructed.push_back(a);
    }
    // A compound lays its children out on first use of its size; an array's
    // slot is only a header, so ask every compound now, before reading the
    // children's offsets in their parents.
    for (const Tattribute* a : fAttributes)
        if (!a->children().empty())
            (void)a->dataSize();
    // Children: inside their root's value, or inside an array element's value.
    for (const Tattribute* a : fAttributes) {
        if (!a->parent())
            continue;
        uint32_t offset = 0;
        const Tattribute* p = a;
        while (p->parent() && !p->isArray()) {
            offset += p->offsetInParent();
            p = p->parent();
        }
        if (!p->isArray())
            offset += fOffsets[p->index()];
        fOffsets[a->index()] = offset;
    }
    fElementSize = uint32_t(OrvoAlignUp(std::max<size_t>(size, 8), 16));
}

// ---------------------------------------------------------------- class record

TdependNodeClass::TdependNodeClass(Tmetaclass* meta, VsDataFn vsBaseData, VsDataFn vsParentData,
                                   TypeNameFn typeName, IffTagFn iffTag, CleanupFn cleanup,
                                   unsigned flags)
    : fMeta(meta), fVsBaseData(vsBaseData), fVsParentData(vsParentData), fTypeName(typeName),
      fIffTag(iffTag), fCleanup(cleanup), fFlags(flags) {}

// ---------------------------------------------------------------- ordinary block

namespace {
std::byte* allocateBlock(size_t bytes) {
    auto* p =
        static_cast<std::byte*>(::operator new(std::max<size_t>(bytes, 16), std::align_val_t(16)));
    std::memset(p, 0, bytes);
    return p;
}
} // namespace

TordinaryDataBlock::TordinaryDataBlock(TdependNode* node, unsigned elementCount)
    : fNode(node), fVs(node->vsData()), fCount(std::max(1u, elementCount)) {
    node->vsData()->initializeClass();
    fStride = fVs->elementSize();
    fFirst = allocateBlock(size_t(fStride) * fCount);
    fLast = fFirst + size_t(fStride) * (fCount - 1);
    fCurrent = fFirst;
    for (unsigned e = 0; e < fCount; ++e)
        for (const Tattribute* root : fVs->roots()) {
            void* at = element(e) + fVs->valueOffset(*root);
            if (root->isArray())
                new (at) TmultiHeader();
            else
                root->constructValue(at);
        }
    fDirty.resize(fVs->attributes().size());
    for (const Tattribute* a : fVs->attributes())
        if (a->isComputed())
            fDirty.set(a->index());
}

TordinaryDataBlock::~TordinaryDataBlock() {
    for (unsigned e = 0; e < fCount; ++e)
        for (const Tattribute* root : fVs->roots()) {
            void* at = element(e) + fVs->valueOffset(*root);
            if (root->isArray())
                TmultiHandle::release(*static_cast<TmultiHeader*>(at), *root);
            else
                root->destroyValue(at);
        }
    ::operator delete(fFirst, std::align_val_t(16));
}

void* TordinaryDataBlock::valueAddress(const Tattribute& a, unsigned e) const {
    if (a.isArrayDescendant())
        return nullptr;
    return element(e) + fVs->valueOffset(a);
}

TdataHandle TordinaryDataBlock::handleAt(const Tattribute& a, unsigned e) {
    if (a.isArrayDescendant() || e >= fCount)
        return {};
    return TdataHandle(this, &a, element(e) + fVs->valueOffset(a),
                       a.isArray() ? TdataHandle::kIsArray : 0u);
}

TmultiHeader* TordinaryDataBlock::headerOf(const Tattribute& array, unsigned e) const {
    return reinterpret_cast<TmultiHeader*>(element(e) + fVs->valueOffset(array));
}

void TordinaryDataBlock::pull(const Tattribute& a, unsigned first, unsigned count) {
    if (!fNode || !fNode->graph())
        return;
    const Tattribute* root = a.valueRoot();
    while (root->parent())
        root = root->parent();
    if (fDirty.test(root->index()))
        fNode->graph()->pullInputs(fNode, *this, *root, first, count);
}

void TordinaryDataBlock::debug(TdebugOutput& out, const TdebugDetails& details) const {
    out.openSection("DataBlock for Node:{}", fNode ? fNode->name() : std::string("NULL"));
    TdataBlock::debug(out, details);
    if (details.deep()) {
        for (unsigned e = 0; e < fCount; ++e) {
            out.print("Element {}\n", e);
            for (const Tattribute* root : fVs->roots()) {
                void* at = element(e) + fVs->valueOffset(*root);
                out.print("{} : ", root->longName());
                if (root->isArray()) {
                    out.print("{} elements\n", static_cast<TmultiHeader*>(at)->count);
                    TmultiHandle(TdataHandle(const_cast<TordinaryDataBlock*>(this), root, at,
                                             TdataHandle::kIsArray))
                        .debug(out);
                } else {
                    root->printValue(out, at);
                    out.write("\n");
                }
            }
        }
    }
    out.closeSection();
}

TdataHandle TordinaryDataBlock::inputValue(const Tattribute& attribute) {
    pull(attribute, currentIndex(), 1);
    return handleAt(attribute, currentIndex());
}

TdataHandle TordinaryDataBlock::inputValue(const Tplug& plug) {
    const Tattribute* a = plug.attribute();
    if (!a)
        return {};
    if (a->isArrayDescendant() || (a->isArray() && !(plug.mode() & Tplug::kWholeArray))) {
        pull(*a, currentIndex(), 1);
        return elementValue(plug, false);
    }
    return inputValue(*a);
}

TdataHandle TordinaryDataBlock::outputValue(const Tattribute& attribute) {
    return handleAt(attribute, currentIndex());
}

TdataHandle TordinaryDataBlock::outputValue(const Tplug& plug) {
    const Tattribute* a = plug.attribute();
    if (!a)
        return {};
    if (a->isArrayDescendant() || (a->isArray() && !(plug.mode() & Tplug::kWholeArray)))
        return elementValue(plug, true);
    return outputValue(*a);
}

TvectorDataHandle TordinaryDataBlock::vectorInputValue(const Tplug& plug, unsigned first,
                                                       unsigned count) {
    const Tattribute* a = plug.attribute();
    if (!a)
        return {};
    if (a->isArrayDescendant() || (a->isArray() && !(plug.mode() & Tplug::kWholeArray))) {
        pull(*a, first, count);
        return elementVectorValue(plug, first, count);
    }
    return vectorInputValue(*a, first, count);
}

TvectorDataHandle TordinaryDataBlock::vectorInputValue(const Tattribute& attribute, unsigned first,
                                                       unsigned count) {
    pull(attribute, first, count);
    TdataHandle h = handleAt(attribute, first);
    if (h.isNull())
        return {};
    return TvectorDataHandle(
        TdataHandle(this, &attribute, h.address(), h.mode() | TdataHandle::kIsVarying), fStride);
}

TvectorDataHandle TordinaryDataBlock::vectorOutputValue(const Tplug& plug, unsigned first,
                                                        unsigned count) {
    const Tattribute* a = plug.attribute();
    if (!a)
        return {};
    if (a->isArrayDescendant() || (a->isArray() && !(plug.mode() & Tplug::kWholeArray)))
        return elementVectorValue(plug, first, count);
    return vectorOutputValue(*a, first);
}

TvectorDataHandle TordinaryDataBlock::vectorOutputValue(const Tattribute& attribute,
                                                        unsigned first) {
    TdataHandle h = handleAt(attribute, first);
    if (h.isNull())
        return {};
    return TvectorDataHandle(
        TdataHandle(this, &attribute, h.address(), h.mode() | TdataHandle::kIsVarying), fStride);
}

uint32_t TordinaryDataBlock::dataBlockMemorySize() const {
    size_t bytes = sizeof(*this) + size_t(fStride) * fCount;
    for (unsigned e = 0; e < fCount; ++e)
        for (const Tattribute* root : fVs->constructedRoots())
            if (root->isArray()) {
                const TmultiHeader* h = headerOf(*root, e);
                bytes += size_t(h->count) * h->stride;
            }
    return uint32_t(bytes);
}

bool TordinaryDataBlock::addMultiInstance(const Tplug& plug) {
    return !elementValue(plug, true).isNull();
}

bool TordinaryDataBlock::removeMultiInstance(const Tplug& plug) {
    const Tattribute* a = plug.attribute();
    const Tattribute* array = a ? a->arrayAncestor() : nullptr;
    if (!array)
        return false;
    const unsigned index = plug.multiIndex(array);
    TmultiHandle mh(
        TdataHandle(this, array, headerOf(*array, currentIndex()), TdataHandle::kIsArray));
    return mh.removeElement(index);
}

TdataHandle TordinaryDataBlock::elementValue(const Tplug& plug, bool create) {
    const Tattribute* a = plug.attribute();
    const Tattribute* array = a ? a->arrayAncestor() : nullptr;
    if (!array || array->isArrayDescendant()) // nested arrays are not served here
        return {};
    const unsigned index = plug.multiIndex(array);
    if (index == Tplug::kNoIndex)
        return {};
    TmultiHandle mh(
        TdataHandle(this, array, headerOf(*array, currentIndex()), TdataHandle::kIsArray));
    if (!mh.jumpToElement(index)) {
        if (!create)
            throw TDEbadMultiIndex(array, index);
        TmultiBuilder builder = mh.builder();
        builder.addElement(index);
        mh.set(builder);
        mh.jumpToElement(index);
    }
    TdataHandle element = mh.reference();
    if (a == array)
        return element;
    return TdataHandle(this, a, static_cast<std::byte*>(element.address()) + fVs->valueOffset(*a));
}

TvectorDataHandle TordinaryDataBlock::elementVectorValue(const Tplug& plug, unsigned first,
                                                         unsigned count) {
    // Each element of the run has its own array storage, so only a run of
    // one element can be served by stride.
    if (count != 1)
        return {};
    const unsigned saved = currentIndex();
    setCurrentIndex(first);
    TdataHandle h = elementValue(plug, false);
    setCurrentIndex(saved);
    return TvectorDataHandle(h);
}

TmultiHeader* TordinaryDataBlock::elementStorage(const Tplug& plug) {
    const Tattribute* a = plug.attribute();
    const Tattribute* array = a ? a->arrayAncestor() : nullptr;
    return array ? headerOf(*array, currentIndex()) : nullptr;
}

void TordinaryDataBlock::markClean(const Tattribute& attribute) {
    fDirty.clear(attribute.index());
    for (const Tattribute* c : attribute.children())
        markClean(*c);
}

// ---------------------------------------------------------------- node

namespace {
// Made on first use: node types name it as a parent from their own static
// initialisers, in any order.
Tmetaclass* dependNodeMeta() {
    static Tmetaclass meta(nullptr, "dependNode", sizeof(TdependNode), nullptr, 0, 0);
    return &meta;
}
} // namespace

TdependNode::TdependNode() = default;
TdependNode::~TdependNode() {
    OrvoForgetNodeSceneFolder(this);
}

Tmetaclass* TdependNode::sTypeof() {
    return dependNodeMeta();
}
Tmetaclass* TdependNode::typeof() const {
    return dependNodeMeta();
}

void* TdependNode::cast(Tmetaclass* meta) {
    return meta && meta == dependNodeMeta() ? this : nullptr;
}

TdependNodeVS* TdependNode::sVsData() {
    static TdependNodeVS base;
    return &base;
}

TdependNodeVS* TdependNode::vsData() const {
    return sVsData();
}
Tstring TdependNode::typeName() const {
    return "dependNode";
}
const TiffTag* TdependNode::iffTag() const {
    return nullptr;
}

void TdependNode::footprint(Footprint& fp) const {
    if (fBlock)
        fBlock->footprint(fp);
}

void TdependNode::debug(TdebugOutput& out, const TdebugDetails& details) const {
    if (fBlock)
        fBlock->debug(out, details);
}

bool TdependNode::computePlug(const Tplug&, TdataBlock&) {
    return false;
}

bool TdependNode::vectorComputePlug(const Tplug&, TdataBlock&, unsigned, unsigned) {
    return false;
}

bool TdependNode::shouldBeWritten(const Tplug& plug, bool isDefault, bool treatAsDefault) {
    const Tattribute* a = plug.attribute();
    if (!a || !a->isStorable())
        return false;
    return !(isDefault && treatAsDefault);
}

void TdependNode::setDirty(TmsgDirty&) {}
void TdependNode::setDependentsDirty(TmsgDirty&) {}
void TdependNode::connectionMade(const Tplug&, const Tplug&, bool) {}
void TdependNode::connectionBroken(const Tplug&, const Tplug&, bool) {}
bool TdependNode::legalConnection(const Tplug&, const Tplug&, bool) {
    return true;
}
void TdependNode::datablockAdded(TdataBlock&, bool) {}
bool TdependNode::setCachedValue(const Tplug&, const TdataHandle&) {
    return false;
}
bool TdependNode::getCachedValue(const Tplug&, TdataHandle&) {
    return false;
}

void TdependNode::setName(const Tstring& name) {
    if (fGraph)
        fGraph->renameNode(this, name);
    else
        fName = name;
}

Tstring TdependNode::defaultName() const {
    return typeName();
}

void TdependNode::finishCreation(Tmetaclass*) {}

void TdependNode::setAttributeValue(const Tattribute* attribute, const void* value,
                                    unsigned element) {
    TordinaryDataBlock& block = forceGetDatablock();
    if (void* at = block.valueAddress(*attribute, element))
        attribute->copyValue(at, value);
}

TordinaryDataBlock& TdependNode::forceGetDatablock() {
    if (!fBlock) {
        fBlock = std::make_unique<TordinaryDataBlock>(this);
        // Connected inputs start dirty so that the first read pulls them.
        if (fGraph)
            for (const auto& [source, destination] : fGraph->connections())
                if (destination.node() == this) {
                    const Tattribute* root = destination.attribute();
                    while (root->parent())
                        root = root->parent();
                    fBlock->setDirty(*root);
                }
        datablockAdded(*fBlock, true);
    }
    return *fBlock;
}

void TdependNode::getExistingMultiAttributeIndices(const Tplug& plug, TuInt32Array& out) const {
    out.clear();
    const Tattribute* array = plug.attribute() ? plug.attribute()->arrayAncestor() : nullptr;
    if (!fBlock || !array)
        return;
    TmultiHandle mh(
        TdataHandle(fBlock.get(), array, fBlock->elementStorage(plug), TdataHandle::kIsArray));
    for (unsigned i = 0; mh.jumpToArrayElement(i); ++i)
        out.push_back(mh.elementIndex());
}

void TdependNode::destroyNode() {
    if (fGraph)
        fGraph->deleteNode(this);
}

const Tattribute* TdependNode::findAttribute(std::string_view name) const {
    return vsData()->findAttribute(name);
}
