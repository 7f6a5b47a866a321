#include "host/plug.h"

#include <algorithm>
#include <iterator>

#include <fmt/format.h>

#include "host/attribute.h"
#include "host/dependnode.h"
#include "host/graph.h"

namespace {
// Array attributes on the chain from the root down to `a`, root first.
int arrayLevels(const Tattribute* a, const Tattribute* out[Tplug::kMaxArrayLevels + 1]) {
    const Tattribute* chain[64];
    int n = 0;
    for (const Tattribute* p = a; p && n < 64; p = p->parent())
        chain[n++] = p;
    int levels = 0;
    for (int i = n - 1; i >= 0; --i)
        if (chain[i]->isArray() && levels <= Tplug::kMaxArrayLevels)
            out[levels++] = chain[i];
    return levels;
}
} // namespace

Tplug::Tplug(const TdependNode* node, const Tattribute* attribute, bool)
    : fNode(const_cast<TdependNode*>(node)), fAttribute(attribute) {
    updateMode();
}

void Tplug::reset(TdependNode* node, const Tattribute* attribute) {
    fNode = node;
    fAttribute = attribute;
    fIndices[0] = fIndices[1] = kNoIndex;
    updateMode();
}

int Tplug::levelOf(const Tattribute* arrayAttribute) const {
    const Tattribute* levels[kMaxArrayLevels + 1];
    const int n = arrayLevels(fAttribute, levels);
    for (int i = 0; i < n && i < kMaxArrayLevels; ++i)
        if (levels[i] == arrayAttribute)
            return i;
    return -1;
}

void Tplug::setMultiIndex(const Tattribute* arrayAttribute, unsigned index) {
    const int level = levelOf(arrayAttribute);
    if (level >= 0)
        fIndices[level] = index;
    updateMode();
}

unsigned Tplug::multiIndex(const Tattribute* arrayAttribute) const {
    const int level = levelOf(arrayAttribute);
    return level >= 0 ? fIndices[level] : kNoIndex;
}

unsigned Tplug::logicalIndex() const {
    const Tattribute* levels[kMaxArrayLevels + 1];
    const int n = arrayLevels(fAttribute, levels);
    return n > 0 && n <= kMaxArrayLevels ? fIndices[n - 1] : kNoIndex;
}

Tplug Tplug::findIndexedPlug(unsigned index) const {
    Tplug p(*this);
    if (const Tattribute* array = fAttribute ? fAttribute->arrayAncestor() : nullptr)
        p.setMultiIndex(array, index);
    return p;
}

bool Tplug::indicesComplete() const {
    const Tattribute* levels[kMaxArrayLevels + 1];
    const int n = arrayLevels(fAttribute, levels);
    for (int i = 0; i < n; ++i)
        if (i >= kMaxArrayLevels || fIndices[i] == kNoIndex)
            return false;
    return true;
}

void Tplug::updateMode() {
    fMode = 0;
    if (!fAttribute)
        return;
    const Tattribute* levels[kMaxArrayLevels + 1];
    const int n = arrayLevels(fAttribute, levels);
    const bool leafIsArray = fAttribute->isArray();
    if (leafIsArray && (n == 0 || fIndices[n - 1] == kNoIndex))
        fMode |= kWholeArray;
    if (fAttribute->parent() || (leafIsArray && !(fMode & kWholeArray)))
        fMode |= kChildOrElement;
    // Inside an element: an array above the leaf has its index.
    for (int i = 0; i < n && i < kMaxArrayLevels; ++i)
        if (levels[i] != fAttribute && fIndices[i] != kNoIndex)
            fMode |= kInElement;
}

TplugArray Tplug::children() const {
    TplugArray out;
    if (!fAttribute)
        return out;
    for (Tattribute* c : fAttribute->children())
        out.push_back((*this)[c]);
    return out;
}

unsigned Tplug::numChildren() const {
    return fAttribute ? fAttribute->numChildren() : 0;
}

Tplug Tplug::operator[](const Tattribute* child) const {
    Tplug p(*this);
    p.becomeChild(child);
    return p;
}

void Tplug::becomeChild(const Tattribute* child) {
    fAttribute = child;
    updateMode();
}

Tplug Tplug::parent() const {
    if (!fAttribute || !fAttribute->parent())
        return {};
    Tplug p(*this);
    p.fAttribute = fAttribute->parent();
    // Leaving an element for its array drops that level's index.
    if (fAttribute->isArray()) {
        const int level = levelOf(fAttribute);
        if (level >= 0)
            p.fIndices[level] = kNoIndex;
    }
    p.updateMode();
    return p;
}

Tplug Tplug::source() const {
    if (isNull() || !fNode->graph())
        return {};
    return fNode->graph()->sourceOf(*this);
}

void Tplug::getAllDestinations(TplugArray& out) const {
    out.clear();
    if (!isNull() && fNode->graph())
        fNode->graph()->destinationsOf(*this, out);
}

void Tplug::getAllDestinationsToNode(const TdependNode* node, TplugArray& out) const {
    TplugArray all;
    getAllDestinations(all);
    out.clear();
    for (const Tplug& p : all)
        if (p.node() == node)
            out.push_back(p);
}

unsigned Tplug::getNumOfDestinationsToNode(const TdependNode* node) const {
    TplugArray to;
    getAllDestinationsToNode(node, to);
    return unsigned(to.size());
}

bool Tplug::isDestination() const {
    return !source().isNull();
}

bool Tplug::isSource() const {
    TplugArray out;
    getAllDestinations(out);
    return !out.empty();
}

bool Tplug::isChildDestination() const {
    for (const Tplug& c : children())
        if (c.isDestination() || c.isChildDestination())
            return true;
    return false;
}

bool Tplug::isChildSource() const {
    for (const Tplug& c : children())
        if (c.isSource() || c.isChildSource())
            return true;
    return false;
}

std::string Tplug::partialName(bool useLongNames) const {
    if (!fAttribute)
        return {};
    // A child of a compound that is not inside an array is named on its own.
    if (!fAttribute->arrayAncestor())
        return useLongNames ? fAttribute->longName() : fAttribute->shortName();
    std::vector<const Tattribute*> chain;
    fAttribute->parentPath(chain);
    chain.push_back(fAttribute);
    std::string out;
    int level = 0;
    for (const Tattribute* a : chain) {
        if (!out.empty())
            out.push_back('.');
        out.append(useLongNames ? a->longName() : a->shortName());
        if (a->isArray()) {
            if (level < kMaxArrayLevels && fIndices[level] != kNoIndex)
                fmt::format_to(std::back_inserter(out), "[{}]", fIndices[level]);
            ++level;
        }
    }
    return out;
}

std::string Tplug::name(bool useLongNames) const {
    if (!fNode)
        return partialName(useLongNames);
    return fNode->name() + "." + partialName(useLongNames);
}

bool operator==(const Tplug& a, const Tplug& b) {
    return a.fNode == b.fNode && a.fAttribute == b.fAttribute && a.fIndices[0] == b.fIndices[0] &&
           a.fIndices[1] == b.fIndices[1];
}
