#pragma once

// Light linking. A light linker holds nothing but connections: pairs of a
// light (or a set of lights) and an object (or a set of objects, or a
// shading group), in four lists. An element of a list is one pair; its index
// is the pair's identity, and only the message connections into its two
// children say anything. The shading engine reads the lists when it gathers
// the lights of a shading group.
//
//   list 0  link          light              object               lights that shine
//   list 1  ignore        lightIgnored       objectIgnored        lights that don't
//   list 2  shadowLink    shadowLight        shadowObject         lights that shadow
//   list 3  shadowIgnore  shadowLightIgnored shadowObjectIgnored  lights that don't
//
// TrelationshipLightLink presents one pair to the relationship machinery,
// so that linking can be made, undone, duplicated and recorded as a
// reference edit.

#include <set>
#include <vector>

#include "framework/node_pattern.h"
#include "host/relationship.h"
#include "host/trigger.h"

class TobjectSet;

#define ORVO_SCHEMA_TdnLightLink(A, C2, C3)                                                        \
    A(TattributeArrayOf<TattributeCompound>, Link, "link", "lnk", .flagsOn(0))                     \
    A(TattributeMessage, Light, "light", "llnk", .childOf(Link))                                   \
    A(TattributeMessage, Object, "object", "olnk", .childOf(Link))                                 \
    A(TattributeArrayOf<TattributeCompound>, Ignore, "ignore", "ign", .flagsOn(0))                 \
    A(TattributeMessage, LightIgnored, "lightIgnored", "lign", .childOf(Ignore))                   \
    A(TattributeMessage, ObjectIgnored, "objectIgnored", "oign", .childOf(Ignore))                 \
    A(TattributeArrayOf<TattributeCompound>, ShadowLink, "shadowLink", "slnk", .flagsOn(0))        \
    A(TattributeMessage, ShadowLight, "shadowLight", "sllk", .childOf(ShadowLink))                 \
    A(TattributeMessage, ShadowObject, "shadowObject", "solk", .childOf(ShadowLink))               \
    A(TattributeArrayOf<TattributeCompound>, ShadowIgnore, "shadowIgnore", "sign", .flagsOn(0))    \
    A(TattributeMessage, ShadowLightIgnored, "shadowLightIgnored", "slig", .childOf(ShadowIgnore)) \
    A(TattributeMessage, ShadowObjectIgnored, "shadowObjectIgnored", "soig", .childOf(ShadowIgnore))

ORVO_NODE(TdnLightLink, TdependNode, "lightLinker", "RLLK", 755, "kLightLink",
          "rendernode/lightLinker", "n_lightLinker")

class TdnLightLink : public TdnPattern<TdnLightLink, TdependNode> {
public:
    enum List : int { kLink = 0, kIgnore = 1, kShadowLink = 2, kShadowIgnore = 3 };
    static constexpr int kListCount = 4;

    // Per list, in the order above: the compound, its light child, its
    // object child.
    static Tattribute* const fMultiParentAttr[kListCount];
    static Tattribute* const fLightAttr[kListCount];
    static Tattribute* const fObjectAttr[kListCount];

    // Every light linker alive, of every scene; getLinkNodes picks a
    // scene's own.
    static TDNarray& fsAllLightLinkers;
    // Fire when a pair that takes effect is made or broken, or when a set
    // in such a pair changes its members.
    static Ttrigger& fsChangedTrigger;
    static Ttrigger& fsChangedNonSGTrigger;

    TdnLightLink();
    ~TdnLightLink() override;

    // Appends the light linkers of `graph` (the current graph when null).
    // With `createIfNone` and none there, first makes one, implicitly
    // created, through a command of its own.
    static void getLinkNodes(TDNarray& out, bool createIfNone, TdependGraph* graph = nullptr);

    // The list number of a list's compound or of one of its children; -1
    // for any other attribute.
    static int listOf(const Tattribute* attribute);

    // `object` and `light` already form a pair of `list` on this linker.
    bool isAlreadyConnected(const TdependNode* object, const TdependNode* light, int list) const;
    // The other member of `plug`'s pair (same compound, same index):
    // from a light plug the object plug, with `isObject` true; from an
    // object plug the light plug, with `isObject` false. Null for a null
    // plug, a whole array, or any other attribute.
    Tplug getPairPlug(const Tplug& plug, bool& isObject) const;
    // The next element of `list` whose two children are both free, from the
    // index stored for the list on. The stored index then moves past it and
    // never moves back by itself: a pair broken below it leaves a hole that
    // is not reused. The element's plugs go to `lightOut` and `objectOut`
    // when given. -1 for a list number out of range.
    int getNextFreeMultiIndex(int list, Tplug* lightOut = nullptr, Tplug* objectOut = nullptr);
    // The stored next index of a list.
    int nextIndexToTry(int list) const;

    // The sources of an element's two children (null plugs when free).
    Tplug lightSource(int list, unsigned index) const;
    Tplug objectSource(int list, unsigned index) const;
    // Indices of the elements of a list that have a connection, ascending.
    std::vector<unsigned> usedIndices(int list) const;
    // The pair takes effect: both sides are connected, and neither side is
    // an object set without members.
    bool isPairEffective(int list, unsigned index) const;

    // The relationships of the four lists, element by element: only
    // complete pairs unless `includeIncomplete`; only pairs with a
    // participant from a referenced scene if `onlyReferenced`. The elements
    // are marked while gathering; the marks stay when `keepMarks`, else
    // they are cleared at the end. Answers how many were added to `out`.
    unsigned gatherAllRelationships(TrelationshipPtrArray& out, bool includeIncomplete,
                                    bool onlyReferenced, bool keepMarks);
    // The complete pairs in which `participant` takes part, marked so that
    // gatherAndMarkBrokenRelationships can find them once they break.
    unsigned gatherAndMarkRelationships(TrelationshipPtrArray& out, const TdependNode* participant);
    // The marked elements that no longer hold a complete pair (what an
    // edit since marking broke, with what is left of them); all marks are
    // cleared.
    unsigned gatherAndMarkBrokenRelationships(TrelationshipPtrArray& out);
    bool isMarked(int list, unsigned index) const;
    // Two plugs for each element in use.
    unsigned estimateNumberOfRelationshipPlugs() const;

    // The node's gathering operation: the relationship of one element.
    virtual Trelationship* makeRelationship(int list, unsigned index) const;

    // A connection into a list records the element and watches a set at
    // its end; outside file reading, a pair it completes (or breaks) that
    // takes effect fires the change triggers.
    void connectionMade(const Tplug& mine, const Tplug& other, bool asSource) override;
    void connectionBroken(const Tplug& mine, const Tplug& other, bool asSource) override;
    void datablockAdded(TdataBlock& block, bool) override;

    // Membership callbacks registered on the sets that take part in pairs.
    static void setMembershipChangedCB(TobjectSet& set, void* client);
    static void serverDeletedCB(TobjectSet& set, void* client);

private:
    Tplug elementPlug(const Tattribute* child, unsigned index) const;
    bool endIsEffective(const TdependNode* end) const;
    void watchSet(TobjectSet* set);
    void forgetSetIfUnused(TobjectSet* set);
    void fireChanged();
    // The linker's scene is being read from a file.
    bool isReadingFile() const;

    int fNextIndex[kListCount] = {0, 0, 0, 0};
    std::set<unsigned> fUsed[kListCount];
    std::set<unsigned> fMarked[kListCount];
    // Sets this linker is a membership client of.
    std::vector<TobjectSet*> fSets;
};

// One pair of a light linker's list, as a relationship. Its plug list holds
// the object's and the light's message plugs, in that order.
class TrelationshipLightLink : public TrelationshipPlugList {
public:
    // `linker` holds the pair; `list` is a list's compound attribute, or
    // its name ("link", "ignore", "shadowLink", "shadowIgnore").
    TrelationshipLightLink(TdependNode* linker, const Tattribute* list);
    TrelationshipLightLink(TdependNode* linker, const Tstring& listName);
    // With the participants' message plugs.
    TrelationshipLightLink(TdependNode* linker, const Tstring& listName, TdependNode* object,
                           TdependNode* light);
    TrelationshipLightLink(TdependNode* linker, const Tattribute* list, TdependNode* object,
                           TdependNode* light);

    void setParticipants(TdependNode* object, TdependNode* light);
    Tplug objectPlug() const { return plug(0); }
    Tplug lightPlug() const { return plug(1); }
    // The list number, or -1 when the attribute names none.
    int list() const;
    TdnLightLink* linker() const;

    bool applyRelationship(TDGcommand* command) override;
    bool unapplyRelationship(TDGcommand* command) override;
    bool duplicateRelationship(Trelationship** out,
                               const TdependNodePtrTable& table) const override;
    bool fakeApplyRelationshipAsReferenceEdit() override;
    bool fakeUnapplyRelationshipAsReferenceEdit() override;
    bool isValidType() const override;
    bool isValid() const override;
    bool canDuplicate() const override { return true; }

private:
    // The element where this pair stands, or -1.
    int findElement() const;
};
