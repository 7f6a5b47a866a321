#include "host/scene/object_set.h"

#include <algorithm>

#include <fmt/format.h>

#include "host/scene/shape.h"

ORVO_REGISTER_NODE(TobjectSet)
ORVO_DEPENDENCIES(TobjectSet) {}

ORVO_REGISTER_NODE(Tpartition)
ORVO_DEPENDENCIES(Tpartition) {}

// ---------------------------------------------------------------- items

TdependNode* TdagSelectionItem::node() const {
    return fPath.isValid() ? fPath.node() : fNode;
}

std::string TdagSelectionItem::name() const {
    if (fPath.isValid())
        return fPath.fullPathName();
    return fNode ? fNode->name() : std::string();
}

bool TselectionList::add(const TdagSelectionItem& item) {
    if (has(item))
        return false;
    fItems.push_back(item);
    return true;
}

bool TselectionList::remove(const TdagSelectionItem& item) {
    const int i = indexOf(item);
    if (i < 0)
        return false;
    fItems.erase(fItems.begin() + i);
    return true;
}

int TselectionList::indexOf(const TdagSelectionItem& item) const {
    const auto it = std::find(fItems.begin(), fItems.end(), item);
    return it == fItems.end() ? -1 : int(it - fItems.begin());
}

bool TselectionList::hasNode(const TdependNode* node) const {
    return std::any_of(fItems.begin(), fItems.end(),
                       [&](const TdagSelectionItem& i) { return i.node() == node; });
}

// ---------------------------------------------------------------- sets

TobjectSet::~TobjectSet() {
    const std::vector<Client> clients = std::move(fClients);
    for (const Client& c : clients)
        if (c.deleted)
            c.deleted(*this, c.client);
}

bool TobjectSet::addMembershipClient(void* client, MembersChangedFn changed, SetDeletedFn deleted) {
    if (!client || hasMembershipClient(client))
        return false;
    fClients.push_back({client, changed, deleted});
    return true;
}

bool TobjectSet::removeMembershipClient(const void* client) {
    const auto it = std::find_if(fClients.begin(), fClients.end(),
                                 [client](const Client& c) { return c.client == client; });
    if (it == fClients.end())
        return false;
    fClients.erase(it);
    return true;
}

bool TobjectSet::hasMembershipClient(const void* client) const {
    return std::any_of(fClients.begin(), fClients.end(),
                       [client](const Client& c) { return c.client == client; });
}

void TobjectSet::membersChanged() {
    // A copy: a client may leave from its callback.
    const std::vector<Client> clients = fClients;
    for (const Client& c : clients)
        if (c.changed && hasMembershipClient(c.client))
            c.changed(*this, c.client);
}

void* TobjectSet::cast(Tmetaclass* meta) {
    // A shading group mixes the shading-node interface into a set.
    if (meta && meta == TshadingNodeTmeta())
        return dynamic_cast<TshadingNode*>(this);
    return TdnPattern::cast(meta);
}

void TobjectSet::completeGroupedMembers(TselectionList& members) const {
    members.clear();
    for (const auto& [index, member] : fDagMembers) {
        const TdagPathArray paths = member.node->getAllPaths();
        if (member.instance < paths.size())
            members.add(paths[member.instance]);
    }
    for (const auto& [index, node] : fNodeMembers)
        members.add(node);
}

Tplug TobjectSet::sourcePlugOf(const TdagSelectionItem& item) {
    if (item.isDag()) {
        Tplug plug(item.path().node(), &TdagObject::aInstObjGroups);
        plug.setMultiIndex(&TdagObject::aInstObjGroups, item.path().whichInstance());
        return plug;
    }
    TdependNode* node = item.node();
    const Tattribute* message = node ? node->findAttribute("message") : nullptr;
    return message ? Tplug(node, message) : Tplug();
}

void TobjectSet::elementsOf(const TdagSelectionItem& item, std::vector<Tplug>& out) const {
    out.clear();
    if (item.isDag()) {
        const unsigned instance = item.path().whichInstance();
        for (const auto& [index, member] : fDagMembers)
            if (member.node == item.path().node() && member.instance == instance) {
                Tplug slot(this, &aDagSetMembers);
                slot.setMultiIndex(&aDagSetMembers, index);
                out.push_back(slot);
            }
        return;
    }
    for (const auto& [index, node] : fNodeMembers)
        if (node == item.node()) {
            Tplug slot(this, &aDNSetMembers);
            slot.setMultiIndex(&aDNSetMembers, index);
            out.push_back(slot);
        }
}

bool TobjectSet::isMember(const TdagSelectionItem& item) const {
    std::vector<Tplug> slots;
    elementsOf(item, slots);
    return !slots.empty();
}

std::string TobjectSet::whyNotMember(const TdagSelectionItem& item) const {
    TdependNode* node = item.node();
    if (!node)
        return fmt::format("nothing to add to set '{}'", name());
    if (node == this)
        return fmt::format("set '{}' cannot hold itself", name());
    if (!item.isDag() && TdagObject::fromNode(node))
        return {}; // a DAG node named whole joins with its paths
    if (fRestrictions & kRenderableOnly) {
        const Tshape* shape = Tshape::fromNode(node);
        if (!item.isDag() ||
            (!(shape && shape->isRenderableGeometry()) && !dynamic_cast<const Ttransform*>(node)))
            return fmt::format("set '{}' holds only renderable geometry; '{}' ({}) is not", name(),
                               item.name(), node->typeName());
    }
    if (!item.isDag() && !node->findAttribute("message"))
        return fmt::format("'{}' ({}) has no message attribute and cannot join set '{}'",
                           item.name(), node->typeName(), name());
    return {};
}

TselectionList TobjectSet::membersFor(const TdagSelectionItem& item) const {
    TselectionList out;
    if (!item.isDag()) {
        // A DAG node given by name joins with every one of its instances.
        if (auto* dag = TdagObject::fromNode(item.node())) {
            for (const TdagPath& path : dag->getAllPaths())
                for (const TdagSelectionItem& i : membersFor(TdagSelectionItem(path)))
                    out.add(i);
            return out;
        }
        out.add(item);
        return out;
    }
    if ((fRestrictions & kRenderableOnly) && dynamic_cast<const Ttransform*>(item.node())) {
        for (TdagIterator it(item.path()); !it.isDone(); it.next()) {
            const Tshape* shape = Tshape::fromNode(it.node());
            if (shape && shape->isRenderableGeometry())
                out.add(it.path());
        }
        return out;
    }
    out.add(item);
    return out;
}

void TobjectSet::addMembers(const TselectionList& items, TDGcommand& command) {
    for (const TdagSelectionItem& given : items) {
        if (const std::string why = whyNotMember(given); !why.empty())
            throw TgraphError(why);
        for (const TdagSelectionItem& item : membersFor(given)) {
            if (const std::string why = whyNotMember(item); !why.empty())
                throw TgraphError(why);
            if (isMember(item))
                continue;
            // Exclusive partitions: the item leaves the other sets first.
            for (const Tpartition* partition : partitions())
                for (TobjectSet* other : partition->sets())
                    if (other != this && other->isMember(item)) {
                        TselectionList one;
                        one.add(item);
                        other->removeMembers(one, command);
                    }
            const Tattribute& array = item.isDag() ? aDagSetMembers : aDNSetMembers;
            const auto& used = item.isDag() ? fDagMembers.size() : fNodeMembers.size();
            unsigned next = 0;
            if (used)
                next = item.isDag() ? fDagMembers.rbegin()->first + 1
                                    : fNodeMembers.rbegin()->first + 1;
            Tplug slot(this, &array);
            slot.setMultiIndex(&array, next);
            const Tplug source = sourcePlugOf(item);
            // A message element that a member connects from exists in its
            // node's block, so that evaluating the set never misses it.
            if (item.isDag())
                source.node()->forceGetDatablock().addMultiInstance(source);
            command.newConnectionToMake(source, slot);
        }
    }
}

void TobjectSet::removeMembers(const TselectionList& items, TDGcommand& command) {
    for (const TdagSelectionItem& given : items)
        for (const TdagSelectionItem& item : membersFor(given)) {
            std::vector<Tplug> slots;
            elementsOf(item, slots);
            for (const Tplug& slot : slots)
                command.newConnectionToBreak(slot.source(), slot);
        }
}

std::vector<Tpartition*> TobjectSet::partitions() const {
    std::vector<Tpartition*> out;
    TplugArray destinations;
    Tplug(this, &aPartition).getAllDestinations(destinations);
    for (const Tplug& d : destinations)
        if (d.attribute() == &Tpartition::aSets)
            out.push_back(static_cast<Tpartition*>(d.node()));
    return out;
}

std::vector<TobjectSet*> TobjectSet::setsOf(const TdagPath& path) {
    std::vector<TobjectSet*> out;
    if (!path.isValid())
        return out;
    Tplug plug(path.node(), &TdagObject::aInstObjGroups);
    plug.setMultiIndex(&TdagObject::aInstObjGroups, path.whichInstance());
    TplugArray destinations;
    plug.getAllDestinations(destinations);
    for (const Tplug& d : destinations)
        if (d.attribute() == &aDagSetMembers) {
            auto* set = static_cast<TobjectSet*>(d.node());
            if (std::find(out.begin(), out.end(), set) == out.end())
                out.push_back(set);
        }
    return out;
}

std::vector<TobjectSet*> TobjectSet::setsOfPathAndGroups(const TdagPath& path) {
    std::vector<TobjectSet*> out;
    for (TdagPathIterator it(path); !it.isDone(); it.next())
        for (TobjectSet* set : setsOf(it.path()))
            if (std::find(out.begin(), out.end(), set) == out.end())
                out.push_back(set);
    return out;
}

std::vector<TobjectSet*> TobjectSet::setsOf(const TdependNode* node) {
    std::vector<TobjectSet*> out;
    const Tattribute* message = node ? node->findAttribute("message") : nullptr;
    if (!message)
        return out;
    TplugArray destinations;
    Tplug(node, message).getAllDestinations(destinations);
    for (const Tplug& d : destinations)
        if (d.attribute() == &aDNSetMembers) {
            auto* set = static_cast<TobjectSet*>(d.node());
            if (std::find(out.begin(), out.end(), set) == out.end())
                out.push_back(set);
        }
    return out;
}

bool TobjectSet::legalConnection(const Tplug& mine, const Tplug& other, bool asSource) {
    if (!asSource && mine.attribute() == &aDagSetMembers)
        return other.attribute() == &TdagObject::aInstObjGroups;
    if (!asSource && mine.attribute() == &aDNSetMembers)
        return other.node() != this && other.attribute()->longName() == "message";
    return TdnPattern::legalConnection(mine, other, asSource);
}

void TobjectSet::connectionMade(const Tplug& mine, const Tplug& other, bool asSource) {
    TdnPattern::connectionMade(mine, other, asSource);
    if (asSource)
        return;
    if (mine.attribute() == &aDagSetMembers)
        fDagMembers[mine.logicalIndex()] = {static_cast<TdagObject*>(other.node()),
                                            other.logicalIndex()};
    else if (mine.attribute() == &aDNSetMembers)
        fNodeMembers[mine.logicalIndex()] = other.node();
    else
        return;
    membersChanged();
}

void TobjectSet::connectionBroken(const Tplug& mine, const Tplug& other, bool asSource) {
    TdnPattern::connectionBroken(mine, other, asSource);
    if (asSource)
        return;
    if (mine.attribute() == &aDagSetMembers)
        fDagMembers.erase(mine.logicalIndex());
    else if (mine.attribute() == &aDNSetMembers)
        fNodeMembers.erase(mine.logicalIndex());
    else
        return;
    membersChanged();
}

// ---------------------------------------------------------------- partitions

std::vector<TobjectSet*> Tpartition::sets() const {
    std::vector<TobjectSet*> out;
    for (const auto& [index, set] : fSets)
        out.push_back(set);
    return out;
}

void Tpartition::addSet(TobjectSet& set, TDGcommand& command) {
    const std::vector<TobjectSet*> current = sets();
    if (std::find(current.begin(), current.end(), &set) != current.end())
        return;
    TselectionList incoming;
    set.completeGroupedMembers(incoming);
    for (const TobjectSet* other : current)
        for (const TdagSelectionItem& item : incoming)
            if (other->isMember(item))
                throw TgraphError(fmt::format(
                    "set '{}' cannot join partition '{}': '{}' is already in its set '{}'",
                    set.name(), name(), item.name(), other->name()));
    Tplug slot(this, &aSets);
    slot.setMultiIndex(&aSets, fSets.empty() ? 0 : fSets.rbegin()->first + 1);
    command.newConnectionToMake(Tplug(&set, &TobjectSet::aPartition), slot);
}

bool Tpartition::legalConnection(const Tplug& mine, const Tplug& other, bool asSource) {
    if (!asSource && mine.attribute() == &aSets)
        return other.attribute() == &TobjectSet::aPartition;
    return TdnPattern::legalConnection(mine, other, asSource);
}

void Tpartition::connectionMade(const Tplug& mine, const Tplug& other, bool asSource) {
    TdnPattern::connectionMade(mine, other, asSource);
    if (!asSource && mine.attribute() == &aSets)
        fSets[mine.logicalIndex()] = static_cast<TobjectSet*>(other.node());
}

void Tpartition::connectionBroken(const Tplug& mine, const Tplug& other, bool asSource) {
    TdnPattern::connectionBroken(mine, other, asSource);
    if (!asSource && mine.attribute() == &aSets)
        fSets.erase(mine.logicalIndex());
}

// ---------------------------------------------------------------- utility

void TobjectSet_utility::moveItemsToSet(const TselectionList& items, TobjectSet* from,
                                        TobjectSet& to, TDGcommand& command) {
    if (from && from != &to)
        from->removeMembers(items, command);
    to.addMembers(items, command);
}
