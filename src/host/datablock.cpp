#include "host/datablock.h"

#include <algorithm>
#include <cstring>
#include <new>

#include <fmt/format.h>

#include "host/attribute.h"
#include "host/data.h"
#include "host/debug.h"

// ---------------------------------------------------------------- handles

bool TdataHandle::set(const Tdata& value, bool clean) {
    if (!fAddress || !fAttribute || fAttribute->kind() != TattrKind::Typed)
        return false;
    *reinterpret_cast<Tdata*>(fAddress) = value;
    if (clean)
        setClean();
    return true;
}

TdataHandle TdataHandle::child(const Tattribute& child) const {
    if (!fAddress)
        return {};
    return TdataHandle(fBlock, &child, fAddress + child.offsetInParent(), fMode);
}

bool TdataHandle::getValue(T2Float& out) const {
    if (!fAddress)
        return false;
    std::memcpy(&out, fAddress, sizeof out);
    return true;
}

bool TdataHandle::getValue(Tdata& out) const {
    if (!fAddress || !fAttribute || fAttribute->kind() != TattrKind::Typed)
        return false;
    out = *reinterpret_cast<const Tdata*>(fAddress);
    return true;
}

bool TdataHandle::deepCopy(const TdataHandle& other) {
    if (!fAddress || other.isNull() || !fAttribute)
        return false;
    if (fAttribute->isArray() && (fMode & kIsArray)) {
        TmultiHeader& dst = *asMultiHeader();
        TmultiHandle::release(dst, *fAttribute);
        TmultiHandle::copyInto(dst, *other.asMultiHeader(), *fAttribute);
        return true;
    }
    fAttribute->copyValue(fAddress, other.address());
    return true;
}

Tmetaclass* TdataHandle::dataType() const {
    if (!fAttribute)
        return nullptr;
    if (auto* typed = dynamic_cast<const TattributeTyped*>(fAttribute))
        return typed->dataType();
    return fAttribute->metaclass();
}

TDEbadMultiIndex::TDEbadMultiIndex(const Tattribute* attribute, unsigned index)
    : std::runtime_error(fmt::format("no element {} in array '{}'", index,
                                     attribute ? attribute->longName() : std::string("?"))),
      fAttribute(attribute), fIndex(index) {}

// ---------------------------------------------------------------- arrays

uint32_t TmultiBuilder::calcStride(const Tattribute& attribute) {
    const uint32_t align = std::max<uint32_t>(4, attribute.dataAlignment());
    return uint32_t(OrvoAlignUp(valueOffset(attribute) + attribute.dataSize(), align));
}

uint32_t TmultiBuilder::valueOffset(const Tattribute& attribute) {
    return uint32_t(OrvoAlignUp(4, std::max<uint32_t>(4, attribute.dataAlignment())));
}

size_t TmultiBuilder::computeSize(const Tattribute& attribute, uint32_t count) {
    return size_t(calcStride(attribute)) * count;
}

size_t TmultiBuilder::singleConnectionSize(const Tattribute& attribute) {
    return computeSize(attribute, 1);
}

void TmultiBuilder::addElement(unsigned logicalIndex) {
    const auto it = std::lower_bound(fIndices.begin(), fIndices.end(), logicalIndex);
    if (it == fIndices.end() || *it != logicalIndex)
        fIndices.insert(it, logicalIndex);
}

namespace {
uint32_t indexAt(const TmultiHeader& h, unsigned position) {
    uint32_t index;
    std::memcpy(&index, h.data + size_t(position) * h.stride, 4);
    return index;
}

// The header's element storage; alignment 16 covers every value type.
std::byte* allocateElements(size_t bytes) {
    return static_cast<std::byte*>(::operator new(bytes, std::align_val_t(16)));
}
void freeElements(std::byte* data) {
    ::operator delete(data, std::align_val_t(16));
}
} // namespace

TmultiHandle::TmultiHandle(const TdataHandle& arrayValue)
    : fBlock(arrayValue.block()), fAttribute(arrayValue.attribute()),
      fHeader(arrayValue.asMultiHeader()) {
    // A handle on an array descendant opens the array it lies in.
    if (fAttribute)
        fAttribute = fAttribute->arrayAncestor();
}

unsigned TmultiHandle::elementIndex() const {
    return isDone() ? ~0u : indexAt(*fHeader, fPosition);
}

bool TmultiHandle::advance() {
    if (isDone())
        return false;
    ++fPosition;
    return !isDone();
}

TdataHandle TmultiHandle::reference() const {
    if (isDone() || !fAttribute)
        return {};
    return TdataHandle(fBlock, fAttribute,
                       fHeader->data + size_t(fPosition) * fHeader->stride +
                           TmultiBuilder::valueOffset(*fAttribute));
}

bool TmultiHandle::jumpToElement(unsigned logicalIndex) {
    if (!fHeader || fHeader->count == 0)
        return false;
    unsigned lo = 0, hi = fHeader->count;
    while (lo < hi) {
        const unsigned mid = (lo + hi) / 2;
        if (indexAt(*fHeader, mid) < logicalIndex)
            lo = mid + 1;
        else
            hi = mid;
    }
    if (lo < fHeader->count && indexAt(*fHeader, lo) == logicalIndex) {
        fPosition = lo;
        return true;
    }
    return false;
}

bool TmultiHandle::jumpToArrayElement(unsigned position) {
    if (!fHeader || position >= fHeader->count)
        return false;
    fPosition = position;
    return true;
}

TvectorDataHandle TmultiHandle::valueAll(const Tattribute& attribute, unsigned from,
                                         unsigned to) const {
    if (!fHeader || !fAttribute || from >= to || from >= fHeader->count)
        return {};
    std::byte* first =
        fHeader->data + size_t(from) * fHeader->stride + TmultiBuilder::valueOffset(*fAttribute);
    // A child of the element's compound lies at its offset inside the value.
    if (&attribute != fAttribute)
        first += attribute.offsetInParent();
    return TvectorDataHandle(TdataHandle(fBlock, &attribute, first, TdataHandle::kIsVarying),
                             fHeader->stride);
}

void TmultiHandle::vectorAdvance(uint32_t blockStride) {
    fHeader = reinterpret_cast<TmultiHeader*>(reinterpret_cast<std::byte*>(fHeader) + blockStride);
    fPosition = 0;
}

TmultiBuilder TmultiHandle::builder() const {
    TmultiBuilder b(fAttribute);
    if (fHeader)
        for (unsigned i = 0; i < fHeader->count; ++i)
            b.addElement(indexAt(*fHeader, i));
    return b;
}

void TmultiHandle::set(const TmultiBuilder& builder) {
    if (!fHeader || !fAttribute)
        return;
    const Tattribute& a = *fAttribute;
    const uint32_t stride = TmultiBuilder::calcStride(a);
    const uint32_t valueAt = TmultiBuilder::valueOffset(a);
    const auto& indices = builder.indices();
    const uint32_t count = uint32_t(indices.size());
    std::byte* data = count ? allocateElements(size_t(stride) * count) : nullptr;
    if (data)
        std::memset(data, 0, size_t(stride) * count);
    TmultiHandle old(*this);
    for (uint32_t i = 0; i < count; ++i) {
        std::byte* element = data + size_t(i) * stride;
        std::memcpy(element, &indices[i], 4);
        a.constructValue(element + valueAt);
        if (old.jumpToElement(indices[i]))
            a.copyValue(element + valueAt, old.reference().address());
    }
    release(*fHeader, a);
    const void* info = fHeader->multiInfo;
    setHeaderBits(*fHeader, count, stride);
    fHeader->countTimes2 |= data ? TmultiHeader::kOwnsData : 0;
    fHeader->multiInfo = info;
    fHeader->data = data;
    fPosition = 0;
}

bool TmultiHandle::removeElement(unsigned logicalIndex) {
    if (!jumpToElement(logicalIndex))
        return false;
    TmultiBuilder b(fAttribute);
    for (unsigned i = 0; i < fHeader->count; ++i)
        if (indexAt(*fHeader, i) != logicalIndex)
            b.addElement(indexAt(*fHeader, i));
    set(b);
    return true;
}

void TmultiHandle::debug(TdebugOutput& out) const {
    if (!fHeader || !fAttribute)
        return;
    for (unsigned i = 0; i < fHeader->count; ++i) {
        out.print("[{}] ", indexAt(*fHeader, i));
        fAttribute->printValue(out, fHeader->data + size_t(i) * fHeader->stride +
                                        TmultiBuilder::valueOffset(*fAttribute));
        out.write("\n");
    }
}

void TmultiHandle::setHeaderBits(TmultiHeader& header, uint32_t count, uint32_t stride) {
    header.countTimes2 = count * 2;
    header.count = count;
    header.stride = stride;
}

void TmultiHandle::setFatChannel(TmultiHeader& header, const void* multiInfo) {
    header.multiInfo = multiInfo;
}

void TmultiHandle::release(TmultiHeader& header, const Tattribute& attribute) {
    if (header.data && header.ownsData()) {
        const uint32_t valueAt = TmultiBuilder::valueOffset(attribute);
        for (uint32_t i = 0; i < header.count; ++i)
            attribute.destroyValue(header.data + size_t(i) * header.stride + valueAt);
        freeElements(header.data);
    }
    header.data = nullptr;
    header.count = 0;
    header.countTimes2 = 0;
}

void TmultiHandle::copyInto(TmultiHeader& dst, const TmultiHeader& src,
                            const Tattribute& attribute) {
    const uint32_t stride = TmultiBuilder::calcStride(attribute);
    const uint32_t valueAt = TmultiBuilder::valueOffset(attribute);
    std::byte* data = src.count ? allocateElements(size_t(stride) * src.count) : nullptr;
    if (data)
        std::memset(data, 0, size_t(stride) * src.count);
    for (uint32_t i = 0; i < src.count; ++i) {
        std::byte* element = data + size_t(i) * stride;
        const std::byte* from = src.data + size_t(i) * src.stride;
        std::memcpy(element, from, 4);
        attribute.constructValue(element + valueAt);
        attribute.copyValue(element + valueAt, from + valueAt);
    }
    setHeaderBits(dst, src.count, stride);
    dst.countTimes2 |= data ? TmultiHeader::kOwnsData : 0;
    dst.data = data;
}

// ---------------------------------------------------------------- block

TdataBlock::~TdataBlock() = default;

void TdataBlock::debug(TdebugOutput& out, const TdebugDetails&) const {
    out.print("stride {} elements {} current {}\n", fStride, elementCount(), currentIndex());
}

void TdataBlock::footprint(Footprint& fp) const {
    fp.size += dataBlockMemorySize();
}

void TdataBlock::sampleLights(void*, unsigned, unsigned, unsigned, T3Float*, TlightData**) {}
