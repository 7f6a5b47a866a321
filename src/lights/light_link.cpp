#include "lights/light_link.h"

#include <algorithm>

#include "host/graph.h"
#include "host/scene/object_set.h"

ORVO_REGISTER_NODE(TdnLightLink)
ORVO_DEPENDENCIES(TdnLightLink) {}

// Defined after the attribute references they take the addresses of, so
// that they are filled after them at load.
Tattribute* const TdnLightLink::fMultiParentAttr[kListCount] = {&aLink, &aIgnore, &aShadowLink,
                                                                &aShadowIgnore};
Tattribute* const TdnLightLink::fLightAttr[kListCount] = {&aLight, &aLightIgnored, &aShadowLight,
                                                          &aShadowLightIgnored};
Tattribute* const TdnLightLink::fObjectAttr[kListCount] = {&aObject, &aObjectIgnored,
                                                           &aShadowObject, &aShadowObjectIgnored};

// Never destroyed: linkers of graphs that outlive static destruction still
// leave the list from their destructors.
TDNarray& TdnLightLink::fsAllLightLinkers = *new TDNarray;
Ttrigger& TdnLightLink::fsChangedTrigger = *new Ttrigger;
Ttrigger& TdnLightLink::fsChangedNonSGTrigger = *new Ttrigger;

namespace {

TobjectSet* asSet(const TdependNode* node) {
    return node ? static_cast<TobjectSet*>(
                      const_cast<TdependNode*>(node)->cast(TobjectSet::sTypeof()))
                : nullptr;
}

bool validList(int list) {
    return list >= 0 && list < TdnLightLink::kListCount;
}

} // namespace

TdnLightLink::TdnLightLink() {
    fsAllLightLinkers.push_back(this);
}

TdnLightLink::~TdnLightLink() {
    for (TobjectSet* set : fSets)
        set->removeMembershipClient(this);
    fsAllLightLinkers.erase(std::remove(fsAllLightLinkers.begin(), fsAllLightLinkers.end(), this),
                            fsAllLightLinkers.end());
}

void TdnLightLink::datablockAdded(TdataBlock& block, bool b) {
    TdnPattern::datablockAdded(block, b);
    if (std::find(fsAllLightLinkers.begin(), fsAllLightLinkers.end(), this) ==
        fsAllLightLinkers.end())
        fsAllLightLinkers.push_back(this);
}

void TdnLightLink::getLinkNodes(TDNarray& out, bool createIfNone, TdependGraph* graph) {
    if (!graph)
        graph = TdependGraph::fsCurrentGraph;
    if (!graph)
        return;
    const auto inGraph = [graph](const TdependNode* n) {
        return n->graph() == graph;
    };
    if (createIfNone && std::none_of(fsAllLightLinkers.begin(), fsAllLightLinkers.end(), inGraph)) {
        TDGcommand command(*graph);
        TdependNode* made = command.newNodeToAdd(Identity::kTypeName, {});
        made->setImplicitlyCreated(true);
    }
    for (TdependNode* n : fsAllLightLinkers)
        if (inGraph(n))
            out.push_back(n);
}

int TdnLightLink::listOf(const Tattribute* attribute) {
    if (!attribute)
        return -1;
    for (int l = 0; l < kListCount; ++l)
        if (attribute == fMultiParentAttr[l] || attribute == fLightAttr[l] ||
            attribute == fObjectAttr[l])
            return l;
    return -1;
}

Tplug TdnLightLink::elementPlug(const Tattribute* child, unsigned index) const {
    Tplug p(this, child);
    p.setMultiIndex(child->parent(), index);
    return p;
}

Tplug TdnLightLink::lightSource(int list, unsigned index) const {
    return validList(list) ? elementPlug(fLightAttr[list], index).source() : Tplug();
}

Tplug TdnLightLink::objectSource(int list, unsigned index) const {
    return validList(list) ? elementPlug(fObjectAttr[list], index).source() : Tplug();
}

std::vector<unsigned> TdnLightLink::usedIndices(int list) const {
    if (!validList(list))
        return {};
    return {fUsed[list].begin(), fUsed[list].end()};
}

bool TdnLightLink::endIsEffective(const TdependNode* end) const {
    if (!end)
        return false;
    const TobjectSet* set = asSet(end);
    return !set || set->memberCount() > 0;
}

bool TdnLightLink::isPairEffective(int list, unsigned index) const {
    return endIsEffective(lightSource(list, index).node()) &&
           endIsEffective(objectSource(list, index).node());
}

bool TdnLightLink::isAlreadyConnected(const TdependNode* object, const TdependNode* light,
                                      int list) const {
    if (!object || !light || !validList(list))
        return false;
    TplugArray destinations;
    Tplug(object, &aMessage).getAllDestinationsToNode(this, destinations);
    for (const Tplug& d : destinations) {
        if (d.attribute() != fObjectAttr[list])
            continue;
        const unsigned index = d.multiIndex(fMultiParentAttr[list]);
        if (lightSource(list, index).node() == light)
            return true;
    }
    return false;
}

Tplug TdnLightLink::getPairPlug(const Tplug& plug, bool& isObject) const {
    if (plug.isNull() || (plug.mode() & Tplug::kWholeArray))
        return {};
    const Tattribute* a = plug.attribute();
    for (int l = 0; l < kListCount; ++l) {
        const Tattribute* other = nullptr;
        if (a == fLightAttr[l]) {
            other = fObjectAttr[l];
            isObject = true;
        } else if (a == fObjectAttr[l]) {
            other = fLightAttr[l];
            isObject = false;
        }
        if (other)
            return elementPlug(other, plug.multiIndex(fMultiParentAttr[l]));
    }
    return {};
}

int TdnLightLink::getNextFreeMultiIndex(int list, Tplug* lightOut, Tplug* objectOut) {
    if (!validList(list))
        return -1;
    const auto connected = [](const Tplug& p) {
        return p.isDestination() || p.isSource();
    };
    int index = fNextIndex[list];
    Tplug light, object;
    for (;; ++index) {
        light = elementPlug(fLightAttr[list], unsigned(index));
        object = elementPlug(fObjectAttr[list], unsigned(index));
        if (!connected(light) && !connected(object))
            break;
    }
    fNextIndex[list] = index + 1;
    if (lightOut)
        *lightOut = light;
    if (objectOut)
        *objectOut = object;
    return index;
}

int TdnLightLink::nextIndexToTry(int list) const {
    return validList(list) ? fNextIndex[list] : -1;
}

// ---------------------------------------------------------------- changes

bool TdnLightLink::isReadingFile() const {
    return graph() && graph()->isReadingFile();
}

void TdnLightLink::fireChanged() {
    fsChangedTrigger.fire();
    fsChangedNonSGTrigger.fire();
}

void TdnLightLink::watchSet(TobjectSet* set) {
    if (!set || std::find(fSets.begin(), fSets.end(), set) != fSets.end())
        return;
    set->addMembershipClient(this, &setMembershipChangedCB, &serverDeletedCB);
    fSets.push_back(set);
}

void TdnLightLink::forgetSetIfUnused(TobjectSet* set) {
    if (!set || std::find(fSets.begin(), fSets.end(), set) == fSets.end())
        return;
    for (int l = 0; l < kListCount; ++l)
        for (unsigned i : fUsed[l])
            if (lightSource(l, i).node() == set || objectSource(l, i).node() == set)
                return;
    set->removeMembershipClient(this);
    fSets.erase(std::remove(fSets.begin(), fSets.end(), set), fSets.end());
}

void TdnLightLink::connectionMade(const Tplug& mine, const Tplug& other, bool asSource) {
    TdnPattern::connectionMade(mine, other, asSource);
    const int list = listOf(mine.attribute());
    if (asSource || !validList(list) || mine.attribute() == fMultiParentAttr[list])
        return;
    fUsed[list].insert(mine.multiIndex(fMultiParentAttr[list]));
    if (TobjectSet* set = asSet(other.node()))
        watchSet(set);
    // A file makes its pairs a half at a time: what they complete is not
    // looked at while it is read.
    if (!isReadingFile()) {
        bool isObject = false;
        const Tplug pairSource = getPairPlug(mine, isObject).source();
        if (!pairSource.isNull() && endIsEffective(other.node()) &&
            endIsEffective(pairSource.node()))
            fireChanged();
    }
    // The node at the far end takes part in a relationship now.
    other.node()->setFlagBits(kInRelationship);
}

void TdnLightLink::connectionBroken(const Tplug& mine, const Tplug& other, bool asSource) {
    TdnPattern::connectionBroken(mine, other, asSource);
    const int list = listOf(mine.attribute());
    if (asSource || !validList(list) || mine.attribute() == fMultiParentAttr[list])
        return;
    const unsigned index = mine.multiIndex(fMultiParentAttr[list]);
    bool isObject = false;
    const Tplug pair = getPairPlug(mine, isObject);
    const Tplug pairSource = pair.source();
    // The pair took effect until now if both ends did.
    if (!isReadingFile() && !pairSource.isNull() && endIsEffective(other.node()) &&
        endIsEffective(pairSource.node()))
        fireChanged();
    if (pairSource.isNull())
        fUsed[list].erase(index);
    forgetSetIfUnused(asSet(other.node()));
}

void TdnLightLink::setMembershipChangedCB(TobjectSet& set, void* client) {
    auto* linker = static_cast<TdnLightLink*>(client);
    for (int l = 0; l < kListCount; ++l)
        for (unsigned i : linker->fUsed[l]) {
            const TdependNode* light = linker->lightSource(l, i).node();
            const TdependNode* object = linker->objectSource(l, i).node();
            if (!light || !object || (light != &set && object != &set))
                continue;
            // What the pair reaches changed, unless its other end reaches
            // nothing anyway.
            const TdependNode* otherEnd = light == &set ? object : light;
            if (otherEnd == &set || linker->endIsEffective(otherEnd)) {
                linker->fireChanged();
                return;
            }
        }
}

void TdnLightLink::serverDeletedCB(TobjectSet& set, void* client) {
    auto* linker = static_cast<TdnLightLink*>(client);
    linker->fSets.erase(std::remove(linker->fSets.begin(), linker->fSets.end(), &set),
                        linker->fSets.end());
}

// ---------------------------------------------------------------- gathering

Trelationship* TdnLightLink::makeRelationship(int list, unsigned index) const {
    auto* r = new TrelationshipLightLink(const_cast<TdnLightLink*>(this), fMultiParentAttr[list]);
    r->setPlug(0, objectSource(list, index));
    r->setPlug(1, lightSource(list, index));
    return r;
}

unsigned TdnLightLink::gatherAllRelationships(TrelationshipPtrArray& out, bool includeIncomplete,
                                              bool onlyReferenced, bool keepMarks) {
    const size_t before = out.size();
    const auto referenced = [](const TdependNode* n) {
        return n && ((n->flagWord() & kFromReferencedScene) || n->isFromReferencedScene());
    };
    std::vector<std::pair<int, unsigned>> visited;
    for (int l = 0; l < kListCount; ++l)
        for (unsigned i : fUsed[l]) {
            if (!fMarked[l].insert(i).second)
                continue; // gathered already
            visited.emplace_back(l, i);
            const TdependNode* light = lightSource(l, i).node();
            const TdependNode* object = objectSource(l, i).node();
            if (!includeIncomplete && (!light || !object))
                continue;
            if (onlyReferenced && !referenced(light) && !referenced(object))
                continue;
            out.emplace_back(makeRelationship(l, i));
        }
    if (!keepMarks)
        for (const auto& [l, i] : visited)
            fMarked[l].erase(i);
    return unsigned(out.size() - before);
}

unsigned TdnLightLink::gatherAndMarkRelationships(TrelationshipPtrArray& out,
                                                  const TdependNode* participant) {
    const size_t before = out.size();
    for (int l = 0; l < kListCount; ++l)
        for (unsigned i : fUsed[l]) {
            const TdependNode* light = lightSource(l, i).node();
            const TdependNode* object = objectSource(l, i).node();
            if (!light || !object || (light != participant && object != participant))
                continue;
            fMarked[l].insert(i);
            out.emplace_back(makeRelationship(l, i));
        }
    return unsigned(out.size() - before);
}

unsigned TdnLightLink::gatherAndMarkBrokenRelationships(TrelationshipPtrArray& out) {
    const size_t before = out.size();
    for (int l = 0; l < kListCount; ++l) {
        for (unsigned i : fMarked[l])
            if (lightSource(l, i).isNull() || objectSource(l, i).isNull())
                out.emplace_back(makeRelationship(l, i));
        fMarked[l].clear();
    }
    return unsigned(out.size() - before);
}

bool TdnLightLink::isMarked(int list, unsigned index) const {
    return validList(list) && fMarked[list].count(index);
}

unsigned TdnLightLink::estimateNumberOfRelationshipPlugs() const {
    size_t n = 0;
    for (const auto& used : fUsed)
        n += used.size();
    return unsigned(2 * n);
}

// ---------------------------------------------------------------- relationship

TrelationshipLightLink::TrelationshipLightLink(TdependNode* linker, const Tattribute* list)
    : TrelationshipPlugList(linker, list) {
    fPlugs.resize(2);
}

TrelationshipLightLink::TrelationshipLightLink(TdependNode* linker, const Tstring& listName)
    : TrelationshipLightLink(linker, linker ? linker->findAttribute(listName) : nullptr) {}

TrelationshipLightLink::TrelationshipLightLink(TdependNode* linker, const Tstring& listName,
                                               TdependNode* object, TdependNode* light)
    : TrelationshipLightLink(linker, listName) {
    setParticipants(object, light);
}

TrelationshipLightLink::TrelationshipLightLink(TdependNode* linker, const Tattribute* list,
                                               TdependNode* object, TdependNode* light)
    : TrelationshipLightLink(linker, list) {
    setParticipants(object, light);
}

void TrelationshipLightLink::setParticipants(TdependNode* object, TdependNode* light) {
    setPlug(0, object ? Tplug(object, &TdependNode::aMessage) : Tplug());
    setPlug(1, light ? Tplug(light, &TdependNode::aMessage) : Tplug());
}

TdnLightLink* TrelationshipLightLink::linker() const {
    return fNode ? static_cast<TdnLightLink*>(fNode->cast(TdnLightLink::sTypeof())) : nullptr;
}

int TrelationshipLightLink::list() const {
    // Only a list's compound names a list here.
    for (int l = 0; l < TdnLightLink::kListCount; ++l)
        if (fAttribute == TdnLightLink::fMultiParentAttr[l])
            return l;
    return -1;
}

bool TrelationshipLightLink::isValidType() const {
    return linker() && list() >= 0;
}

bool TrelationshipLightLink::isValid() const {
    return isValidType() && !objectPlug().isNull() && !lightPlug().isNull();
}

bool TrelationshipLightLink::applyRelationship(TDGcommand* command) {
    TdnLightLink* l = linker();
    if (!l || !l->graph() || objectPlug().isNull() || lightPlug().isNull())
        return false;
    const int n = list();
    if (n < 0 || n > 3)
        return false;
    // Nodes that came with a referenced scene may bring the pair along; a
    // second one would light twice.
    const auto referenced = [](const TdependNode* node) {
        return (node->flagWord() & TdependNode::kFromReferencedScene) ||
               node->isFromReferencedScene();
    };
    TdependNode* object = objectPlug().node();
    TdependNode* light = lightPlug().node();
    if ((referenced(object) || referenced(light)) && l->isAlreadyConnected(object, light, n))
        return true;
    Tplug lightSlot, objectSlot;
    l->getNextFreeMultiIndex(n, &lightSlot, &objectSlot);
    if (command) {
        try {
            command->newConnectionToMake(objectPlug(), objectSlot);
            command->newConnectionToMake(lightPlug(), lightSlot);
        } catch (const TgraphError&) {
            return false;
        }
        return true;
    }
    TDGcommand own(*l->graph());
    try {
        own.newConnectionToMake(objectPlug(), objectSlot);
        own.newConnectionToMake(lightPlug(), lightSlot);
        own.doDG();
    } catch (const TgraphError&) {
        own.undoDG();
        return false;
    }
    return true;
}

int TrelationshipLightLink::findElement() const {
    const TdnLightLink* l = linker();
    const int n = list();
    if (!l || n < 0 || objectPlug().isNull() || lightPlug().isNull())
        return -1;
    for (unsigned i : l->usedIndices(n))
        if (l->objectSource(n, i) == objectPlug() && l->lightSource(n, i) == lightPlug())
            return int(i);
    return -1;
}

bool TrelationshipLightLink::unapplyRelationship(TDGcommand* command) {
    const int index = findElement();
    if (index < 0)
        return false;
    TdnLightLink* l = linker();
    const int n = list();
    Tplug objectSlot(l, TdnLightLink::fObjectAttr[n]);
    objectSlot.setMultiIndex(TdnLightLink::fMultiParentAttr[n], unsigned(index));
    Tplug lightSlot(l, TdnLightLink::fLightAttr[n]);
    lightSlot.setMultiIndex(TdnLightLink::fMultiParentAttr[n], unsigned(index));
    TDGcommand own(*l->graph());
    TDGcommand& edits = command ? *command : own;
    try {
        edits.newConnectionToBreak(objectPlug(), objectSlot);
        edits.newConnectionToBreak(lightPlug(), lightSlot);
    } catch (const TgraphError&) {
        if (!command)
            own.undoDG();
        return false;
    }
    return true;
}

bool TrelationshipLightLink::duplicateRelationship(Trelationship** out,
                                                   const TdependNodePtrTable& table) const {
    if (!out)
        return false;
    const auto mapped = [&table](TdependNode* n) -> TdependNode* {
        const auto it = table.find(n);
        return it == table.end() ? n : it->second;
    };
    auto* copy = new TrelationshipLightLink(mapped(fNode), fAttribute);
    for (unsigned i = 0; i < 2; ++i) {
        const Tplug p = plug(i);
        if (!p.isNull())
            copy->setPlug(i, plugOnNode(p, mapped(p.node())));
    }
    copy->setReferenceEdits(fReferenceEdits);
    *out = copy;
    return true;
}

bool TrelationshipLightLink::fakeApplyRelationshipAsReferenceEdit() {
    TdnLightLink* l = linker();
    if (!fReferenceEdits || !isValid())
        return false;
    Tplug lightSlot, objectSlot;
    l->getNextFreeMultiIndex(list(), &lightSlot, &objectSlot);
    fReferenceEdits->addConnection(objectPlug(), objectSlot, true);
    fReferenceEdits->addConnection(lightPlug(), lightSlot, true);
    return true;
}

bool TrelationshipLightLink::fakeUnapplyRelationshipAsReferenceEdit() {
    const int index = findElement();
    if (!fReferenceEdits || index < 0)
        return false;
    const int n = list();
    Tplug objectSlot(linker(), TdnLightLink::fObjectAttr[n]);
    objectSlot.setMultiIndex(TdnLightLink::fMultiParentAttr[n], unsigned(index));
    Tplug lightSlot(linker(), TdnLightLink::fLightAttr[n]);
    lightSlot.setMultiIndex(TdnLightLink::fMultiParentAttr[n], unsigned(index));
    fReferenceEdits->addConnection(objectPlug(), objectSlot, false);
    fReferenceEdits->addConnection(lightPlug(), lightSlot, false);
    return true;
}
