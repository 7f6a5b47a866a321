#pragma once

// Object sets, partitions and selection lists.
//
// A set holds DAG objects instance by instance, and other nodes whole. An
// instance joins through a connection from its node's `instObjGroups[i]`
// (i its instance number) to an element of the set's `dagSetMembers`; a
// node joins from its `message` to an element of `dnSetMembers`. Members are
// numbered in that order: DAG members by element, then node members by
// element. A partition makes its sets exclusive: a member joining one of
// them leaves the others.

#include <map>
#include <string>
#include <vector>

#include "host/node_pattern.h"
#include "host/scene/dag.h"

class Tpartition;

// One member of a set or a selection: a DAG path, or a node that is not
// placed in the DAG.
class TdagSelectionItem {
public:
    TdagSelectionItem() = default;
    explicit TdagSelectionItem(TdagPath path) : fPath(std::move(path)) {}
    explicit TdagSelectionItem(TdependNode* node) : fNode(node) {}

    bool isDag() const { return fPath.isValid(); }
    const TdagPath& path() const { return fPath; }
    // The path's node, or the node.
    TdependNode* node() const;
    // "|group|ball" for a path, the node's name otherwise.
    std::string name() const;

    friend bool operator==(const TdagSelectionItem&, const TdagSelectionItem&) = default;

private:
    TdagPath fPath;
    TdependNode* fNode = nullptr;
};

// An ordered list of items without repeats.
class TselectionList {
public:
    // Adds the item unless it is there already; true when added.
    bool add(const TdagSelectionItem& item);
    bool add(const TdagPath& path) { return add(TdagSelectionItem(path)); }
    bool add(TdependNode* node) { return add(TdagSelectionItem(node)); }
    bool remove(const TdagSelectionItem& item);
    void clear() { fItems.clear(); }

    unsigned length() const { return unsigned(fItems.size()); }
    bool isEmpty() const { return fItems.empty(); }
    const TdagSelectionItem& operator[](unsigned i) const { return fItems[i]; }
    // Position of the item, or -1.
    int indexOf(const TdagSelectionItem& item) const;
    bool has(const TdagSelectionItem& item) const { return indexOf(item) >= 0; }
    bool has(const TdagPath& path) const { return has(TdagSelectionItem(path)); }
    // The node as a node item, or any path to it.
    bool hasNode(const TdependNode* node) const;

    auto begin() const { return fItems.begin(); }
    auto end() const { return fItems.end(); }

private:
    std::vector<TdagSelectionItem> fItems;
};

#define ORVO_SCHEMA_TobjectSet(A, C2, C3)                                                          \
    A(TattributeArrayOf<TattributeMessage>, DagSetMembers, "dagSetMembers", "dsm", .flagsOn(0))    \
    A(TattributeArrayOf<TattributeMessage>, DNSetMembers, "dnSetMembers", "dnsm", .flagsOn(0))     \
    A(TattributeMessage, Partition, "partition", "pa", .flagsOn(0))
ORVO_NODE(TobjectSet, TdependNode, "objectSet", "OSET", 2110, "kSet", "host/set", "n_objectSet")

class TobjectSet : public TdnPattern<TobjectSet, TdependNode> {
public:
    ~TobjectSet() override;

    // Restriction bits. Bit 4: only renderable geometry joins, and a group
    // that joins brings the renderable shapes below it instead of itself.
    // The other bits are kept for the types that set them.
    static constexpr unsigned kRenderableOnly = 1u << 4;
    void setRestrictions(unsigned bits) { fRestrictions = bits; }
    unsigned restrictions() const { return fRestrictions; }

    // Every member, numbered as the set numbers them.
    void completeGroupedMembers(TselectionList& members) const;
    unsigned memberCount() const { return unsigned(fDagMembers.size() + fNodeMembers.size()); }
    bool isMember(const TdagSelectionItem& item) const;
    bool isMember(const TdagPath& path) const { return isMember(TdagSelectionItem(path)); }

    // Why an item cannot join (empty when it can).
    std::string whyNotMember(const TdagSelectionItem& item) const;
    // What joins when `item` is added: the item, or for a renderable-only
    // set the renderable shapes below a group.
    TselectionList membersFor(const TdagSelectionItem& item) const;
    // Adds through `command`; an item already in is left alone, and in a
    // partition the item leaves the partition's other sets. Throws
    // TgraphError naming the item and the set when one cannot join; the
    // items before it have joined, so callers undo the command.
    void addMembers(const TselectionList& items, TDGcommand& command);
    void removeMembers(const TselectionList& items, TDGcommand& command);

    // The partitions this set is in.
    std::vector<Tpartition*> partitions() const;

    // The sets that hold the path itself.
    static std::vector<TobjectSet*> setsOf(const TdagPath& path);
    // The sets that hold the path or a group above it.
    static std::vector<TobjectSet*> setsOfPathAndGroups(const TdagPath& path);
    // The sets that hold a node as a node member.
    static std::vector<TobjectSet*> setsOf(const TdependNode* node);

    // Clients of the set hear when its members change (after the change)
    // and when the set goes away. A client is known by its address; adding
    // one that is there already changes nothing and answers false.
    using MembersChangedFn = void (*)(TobjectSet& set, void* client);
    using SetDeletedFn = void (*)(TobjectSet& set, void* client);
    bool addMembershipClient(void* client, MembersChangedFn changed, SetDeletedFn deleted);
    bool removeMembershipClient(const void* client);
    bool hasMembershipClient(const void* client) const;

    void* cast(Tmetaclass* meta) override;
    bool legalConnection(const Tplug& mine, const Tplug& other, bool asSource) override;
    void connectionMade(const Tplug& mine, const Tplug& other, bool asSource) override;
    void connectionBroken(const Tplug& mine, const Tplug& other, bool asSource) override;

private:
    struct Client {
        void* client;
        MembersChangedFn changed;
        SetDeletedFn deleted;
    };
    void membersChanged();

    std::vector<Client> fClients;
    struct DagMember {
        TdagObject* node;
        unsigned instance;
    };
    // The plug an item joins through, and the element where it stands.
    static Tplug sourcePlugOf(const TdagSelectionItem& item);
    void elementsOf(const TdagSelectionItem& item, std::vector<Tplug>& out) const;

    unsigned fRestrictions = 0;
    std::map<unsigned, DagMember> fDagMembers;     // element index -> instance
    std::map<unsigned, TdependNode*> fNodeMembers; // element index -> node
};

#define ORVO_SCHEMA_Tpartition(A, C2, C3)                                                          \
    A(TattributeArrayOf<TattributeMessage>, Sets, "sets", "st", .flagsOn(0))
ORVO_NODE(Tpartition, TdependNode, "partition", "PRTN", 2111, "kPartition", "host/set/partition",
          "n_partition")

// A partition: sets whose members are exclusive. A set joins when its
// `partition` feeds an element of `sets`.
class Tpartition : public TdnPattern<Tpartition, TdependNode> {
public:
    void setRenderPartition(bool on) { fRenderPartition = on; }
    bool isRenderPartition() const { return fRenderPartition; }

    // The sets, in element order.
    std::vector<TobjectSet*> sets() const;
    // Adds a set through `command`. Throws TgraphError when the set shares
    // a member with a set already in.
    void addSet(TobjectSet& set, TDGcommand& command);

    bool legalConnection(const Tplug& mine, const Tplug& other, bool asSource) override;
    void connectionMade(const Tplug& mine, const Tplug& other, bool asSource) override;
    void connectionBroken(const Tplug& mine, const Tplug& other, bool asSource) override;

private:
    bool fRenderPartition = false;
    std::map<unsigned, TobjectSet*> fSets;
};

struct TobjectSet_utility {
    // Moves the items out of `from` (when given) and into `to`, through
    // `command`; `to`'s partitions take them out of their other sets.
    static void moveItemsToSet(const TselectionList& items, TobjectSet* from, TobjectSet& to,
                               TDGcommand& command);
};
