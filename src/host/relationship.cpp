#include "host/relationship.h"

#include <algorithm>

#include "host/dependnode.h"

void TreferenceEditList::addConnection(const Tplug& source, const Tplug& destination,
                                       bool connect) {
    fEdits.push_back({source.name(), destination.name(), connect});
}

Trelationship::~Trelationship() = default;

bool Trelationship::duplicateRelationship(Trelationship** out, const TdependNodePtrTable&) const {
    if (out)
        *out = nullptr;
    return false;
}

bool Trelationship::replaceParticipant(TdependNode*, TdependNode*) {
    return false;
}

bool Trelationship::replaceParticipant(const Tplug&, const Tplug&) {
    return false;
}

void TrelationshipPlugList::setPlug(unsigned i, const Tplug& plug) {
    if (i >= fPlugs.size())
        fPlugs.resize(i + 1);
    fPlugs[i] = plug;
}

Tplug TrelationshipPlugList::plugOnNode(const Tplug& plug, TdependNode* to) {
    if (plug.node() == to)
        return plug;
    const Tattribute* a = to ? to->findAttribute(plug.attribute()->longName()) : nullptr;
    if (!a)
        return {};
    Tplug moved(to, a);
    // The chain of arrays above the leaf keeps its indices.
    std::vector<const Tattribute*> chain;
    plug.attribute()->parentPath(chain);
    chain.push_back(plug.attribute());
    for (const Tattribute* level : chain)
        if (level->isArray()) {
            const Tattribute* there = to->findAttribute(level->longName());
            if (there)
                moved.setMultiIndex(there, plug.multiIndex(level));
        }
    return moved;
}

bool TrelationshipPlugList::replaceParticipant(TdependNode* from, TdependNode* to) {
    bool replaced = false;
    for (Tplug& p : fPlugs)
        if (!p.isNull() && p.node() == from) {
            p = plugOnNode(p, to);
            replaced = true;
        }
    return replaced;
}

bool TrelationshipPlugList::replaceParticipant(const Tplug& from, const Tplug& to) {
    bool replaced = false;
    for (Tplug& p : fPlugs)
        if (p == from) {
            p = to;
            replaced = true;
        }
    return replaced;
}

bool TrelationshipPlugList::isValid() const {
    return isValidType() && !fPlugs.empty() &&
           std::none_of(fPlugs.begin(), fPlugs.end(), [](const Tplug& p) { return p.isNull(); });
}
