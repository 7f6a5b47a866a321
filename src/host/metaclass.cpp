#include "host/metaclass.h"

std::string TiffTag::text() const {
    std::string code(4, ' ');
    for (int i = 0; i < 4; ++i)
        code[size_t(i)] = char((fValue >> (24 - 8 * i)) & 0xff);
    return code;
}

Tmetaclass::Tmetaclass(Tmetaclass** slot, const char* typeName, size_t instanceSize,
                       Factory factory, uint32_t iffTag, unsigned flags, Tmetaclass* parent0,
                       Tmetaclass* parent1, Tmetaclass* parent2, Tmetaclass* parent3)
    : fSlot(slot), fTypeName(typeName), fInstanceSize(instanceSize), fFactory(factory),
      fIffTag(iffTag), fFlags(flags), fParents{parent0, parent1, parent2, parent3} {
    if (fSlot)
        *fSlot = this;
}

Tmetaclass::~Tmetaclass() {
    if (fSlot && *fSlot == this)
        *fSlot = nullptr;
}

bool Tmetaclass::istype(const Tmetaclass* other) const {
    if (!other)
        return false;
    if (other == this)
        return true;
    for (Tmetaclass* parent : fParents)
        if (parent && parent->istype(other))
            return true;
    return false;
}

void* Tmetaclass::construct(Tmetaclass* requested) const {
    return fFactory ? fFactory(requested, nullptr) : nullptr;
}

void* Tmetaclass::constructInPlace(Tmetaclass* requested, void* where) const {
    return fFactory && where ? fFactory(requested, where) : nullptr;
}
