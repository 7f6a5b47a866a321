// Light linkers: the pairs of the four lists, the search for a free
// element, the pair of a plug, the change triggers and the relationship
// that makes, breaks, copies and records a pair.

#include <gtest/gtest.h>

#include "host/graph.h"
#include "host/scene/object_set.h"
#include "lights/light_link.h"

namespace {

// A plain graph, not a scene: no default nodes, nothing joins by itself.
class LightLink : public ::testing::Test {
protected:
    void SetUp() override {
        linker = dynamic_cast<TdnLightLink*>(graph.createNode("lightLinker", "links"));
        ASSERT_NE(linker, nullptr);
        lamp = graph.createNode("reverse", "lamp");
        lamp2 = graph.createNode("reverse", "lamp2");
        thing = graph.createNode("reverse", "thing");
        lampSet = set("lamps");
    }
    TobjectSet* set(const char* name) {
        return static_cast<TobjectSet*>(
            graph.createNode("objectSet", name)->cast(TobjectSet::sTypeof()));
    }
    Tplug message(TdependNode* node) { return Tplug(node, &TdependNode::aMessage); }
    Tplug slot(const Tattribute* child, unsigned index) {
        Tplug p(linker, child);
        p.setMultiIndex(child->parent(), index);
        return p;
    }
    void addMember(TobjectSet* s, TdependNode* node) {
        TDGcommand command(graph);
        TselectionList items;
        items.add(node);
        s->addMembers(items, command);
    }
    unsigned pairs(int list) { return unsigned(linker->usedIndices(list).size()); }

    TdependGraph graph;
    TdnLightLink* linker = nullptr;
    TdependNode* lamp = nullptr;
    TdependNode* lamp2 = nullptr;
    TdependNode* thing = nullptr;
    TobjectSet* lampSet = nullptr;
};

TEST_F(LightLink, ListsAreTheFourCompoundsInTableOrder) {
    const char* names[4][6] = {
        {"link", "lnk", "light", "llnk", "object", "olnk"},
        {"ignore", "ign", "lightIgnored", "lign", "objectIgnored", "oign"},
        {"shadowLink", "slnk", "shadowLight", "sllk", "shadowObject", "solk"},
        {"shadowIgnore", "sign", "shadowLightIgnored", "slig", "shadowObjectIgnored", "soig"},
    };
    EXPECT_EQ(linker->typeName(), "lightLinker");
    EXPECT_EQ(linker->iffTag()->text(), "RLLK");
    for (int l = 0; l < 4; ++l) {
        SCOPED_TRACE(names[l][0]);
        const Tattribute* tables[3] = {TdnLightLink::fMultiParentAttr[l],
                                       TdnLightLink::fLightAttr[l], TdnLightLink::fObjectAttr[l]};
        for (int k = 0; k < 3; ++k) {
            EXPECT_EQ(linker->findAttribute(names[l][2 * k]), tables[k]);
            EXPECT_EQ(linker->findAttribute(names[l][2 * k + 1]), tables[k]);
            EXPECT_EQ(TdnLightLink::listOf(tables[k]), l);
        }
        EXPECT_TRUE(tables[0]->isArray());
        EXPECT_EQ(tables[1]->parent(), tables[0]);
        EXPECT_EQ(tables[2]->parent(), tables[0]);
    }
    EXPECT_EQ(TdnLightLink::listOf(&TdependNode::aMessage), -1);
}

TEST_F(LightLink, ApplyingTwiceMakesASecondPairUnlessAParticipantIsReferenced) {
    TrelationshipLightLink link(linker, "link", thing, lamp);
    ASSERT_TRUE(link.isValid());
    EXPECT_TRUE(link.applyRelationship(nullptr));
    EXPECT_TRUE(link.applyRelationship(nullptr));
    EXPECT_EQ(pairs(TdnLightLink::kLink), 2u);

    // A participant from a referenced scene: the pair is found and kept one.
    TrelationshipLightLink shadow(linker, "shadowLink", thing, lamp2);
    lamp2->setFlagBits(TdependNode::kFromReferencedScene);
    EXPECT_TRUE(shadow.applyRelationship(nullptr));
    EXPECT_TRUE(shadow.applyRelationship(nullptr));
    EXPECT_EQ(pairs(TdnLightLink::kShadowLink), 1u);
    // Object first, light second, on the element the pair took.
    EXPECT_EQ(slot(&TdnLightLink::aShadowObject, 0).source(), message(thing));
    EXPECT_EQ(slot(&TdnLightLink::aShadowLight, 0).source(), message(lamp2));
}

TEST_F(LightLink, ARelationshipThroughACommandIsUndoneWithIt) {
    TDGcommand command(graph);
    TrelationshipLightLink link(linker, &TdnLightLink::aIgnore, thing, lamp);
    ASSERT_TRUE(link.applyRelationship(&command));
    EXPECT_EQ(command.size(), 2u);
    EXPECT_TRUE(linker->isAlreadyConnected(thing, lamp, TdnLightLink::kIgnore));
    command.undoDG();
    EXPECT_FALSE(linker->isAlreadyConnected(thing, lamp, TdnLightLink::kIgnore));
    EXPECT_EQ(pairs(TdnLightLink::kIgnore), 0u);

    // Unapplying breaks both connections of its element.
    ASSERT_TRUE(link.applyRelationship(nullptr));
    EXPECT_TRUE(link.unapplyRelationship(nullptr));
    EXPECT_TRUE(slot(&TdnLightLink::aObjectIgnored, 1).source().isNull());
    EXPECT_TRUE(slot(&TdnLightLink::aLightIgnored, 1).source().isNull());
    EXPECT_FALSE(link.unapplyRelationship(nullptr)); // nothing left to break
}

TEST_F(LightLink, RelationshipsThatCannotBeMadeFail) {
    // Not a linker, no such list, a missing participant.
    EXPECT_FALSE(TrelationshipLightLink(thing, "link", thing, lamp).applyRelationship(nullptr));
    EXPECT_FALSE(TrelationshipLightLink(linker, "message", thing, lamp).applyRelationship(nullptr));
    EXPECT_FALSE(TrelationshipLightLink(linker, "light", thing, lamp).isValidType());
    TrelationshipLightLink half(linker, "link", thing, nullptr);
    EXPECT_TRUE(half.isValidType());
    EXPECT_FALSE(half.isValid());
    EXPECT_FALSE(half.applyRelationship(nullptr));
    EXPECT_EQ(pairs(TdnLightLink::kLink), 0u);
}

TEST_F(LightLink, TheNextFreeIndexStepsOverConnectionsAndNeverBack) {
    for (int i = 0; i < 3; ++i)
        ASSERT_TRUE(TrelationshipLightLink(linker, "link", thing, lamp).applyRelationship(nullptr));
    EXPECT_EQ(linker->usedIndices(0), (std::vector<unsigned>{0, 1, 2}));
    EXPECT_EQ(linker->nextIndexToTry(0), 3);

    // Element 1 broken: a hole that the search, starting at 3, does not see.
    graph.disconnect(message(thing), slot(&TdnLightLink::aObject, 1));
    graph.disconnect(message(lamp), slot(&TdnLightLink::aLight, 1));
    // An element made by hand beyond the stored index is stepped over; one
    // side connected is enough to take it.
    graph.connect(message(lamp2), slot(&TdnLightLink::aLight, 4));
    Tplug light, object;
    EXPECT_EQ(linker->getNextFreeMultiIndex(0, &light, &object), 3);
    EXPECT_EQ(light, slot(&TdnLightLink::aLight, 3));
    EXPECT_EQ(object, slot(&TdnLightLink::aObject, 3));
    EXPECT_EQ(linker->getNextFreeMultiIndex(0), 5);
    EXPECT_EQ(linker->nextIndexToTry(0), 6);
    // The lists keep their own indices.
    EXPECT_EQ(linker->getNextFreeMultiIndex(3), 0);
    EXPECT_EQ(linker->getNextFreeMultiIndex(-1), -1);
    EXPECT_EQ(linker->getNextFreeMultiIndex(4), -1);
}

TEST_F(LightLink, APlugsPairIsTheOtherChildAtTheSameIndex) {
    bool isObject = false;
    EXPECT_EQ(linker->getPairPlug(slot(&TdnLightLink::aLight, 3), isObject),
              slot(&TdnLightLink::aObject, 3));
    EXPECT_TRUE(isObject);
    EXPECT_EQ(linker->getPairPlug(slot(&TdnLightLink::aShadowObjectIgnored, 2), isObject),
              slot(&TdnLightLink::aShadowLightIgnored, 2));
    EXPECT_FALSE(isObject);
    EXPECT_EQ(linker->getPairPlug(slot(&TdnLightLink::aShadowLight, 7), isObject),
              slot(&TdnLightLink::aShadowObject, 7));
    EXPECT_TRUE(isObject);

    isObject = true;
    EXPECT_TRUE(linker->getPairPlug(Tplug(), isObject).isNull());
    EXPECT_TRUE(linker->getPairPlug(message(linker), isObject).isNull());
    EXPECT_TRUE(linker->getPairPlug(Tplug(linker, &TdnLightLink::aLink), isObject).isNull());
    Tplug element(linker, &TdnLightLink::aLink);
    element.setMultiIndex(&TdnLightLink::aLink, 0);
    EXPECT_TRUE(linker->getPairPlug(element, isObject).isNull());
    EXPECT_TRUE(isObject); // untouched when there is no pair
}

TEST_F(LightLink, AlreadyConnectedLooksAtTheListAndBothRoles) {
    ASSERT_TRUE(
        TrelationshipLightLink(linker, "shadowIgnore", thing, lamp).applyRelationship(nullptr));
    EXPECT_TRUE(linker->isAlreadyConnected(thing, lamp, TdnLightLink::kShadowIgnore));
    EXPECT_FALSE(linker->isAlreadyConnected(thing, lamp, TdnLightLink::kShadowLink));
    EXPECT_FALSE(linker->isAlreadyConnected(thing, lamp2, TdnLightLink::kShadowIgnore));
    EXPECT_FALSE(linker->isAlreadyConnected(lamp, thing, TdnLightLink::kShadowIgnore));
    EXPECT_FALSE(linker->isAlreadyConnected(thing, lamp, 9));
    // The light half of an element alone is no pair.
    graph.connect(message(lamp2), slot(&TdnLightLink::aLight, 5));
    EXPECT_FALSE(linker->isAlreadyConnected(thing, lamp2, TdnLightLink::kLink));
}

TEST_F(LightLink, PairsAreNotCheckedWhileAFileIsRead) {
    Ttrigger& changed = TdnLightLink::fsChangedTrigger;
    const uint64_t c0 = changed.fireCount();
    addMember(lampSet, lamp);
    {
        TdependGraph::TfileReadScope reading(graph);
        graph.connect(message(lamp), slot(&TdnLightLink::aLight, 0));
        graph.connect(message(thing), slot(&TdnLightLink::aObject, 0)); // completes a pair
        graph.connect(message(lampSet), slot(&TdnLightLink::aLight, 1));
        graph.connect(message(thing), slot(&TdnLightLink::aObject, 1));
        graph.disconnect(message(thing), slot(&TdnLightLink::aObject, 0)); // breaks one
    }
    EXPECT_EQ(changed.fireCount(), c0);
    // The pairs themselves stand, and a set in one is still watched.
    EXPECT_TRUE(linker->isAlreadyConnected(thing, lampSet, 0));
    EXPECT_TRUE(lampSet->hasMembershipClient(linker));
    EXPECT_EQ(pairs(0), 2u); // element 0 keeps its light, element 1 is whole
    // Once read, a change is checked again.
    graph.disconnect(message(thing), slot(&TdnLightLink::aObject, 1));
    EXPECT_EQ(changed.fireCount(), c0 + 1);
}

TEST_F(LightLink, TriggersFireForPairsThatTakeEffect) {
    Ttrigger& changed = TdnLightLink::fsChangedTrigger;
    Ttrigger& nonSG = TdnLightLink::fsChangedNonSGTrigger;
    const uint64_t c0 = changed.fireCount(), n0 = nonSG.fireCount();

    // Half a pair is nothing; the second half completes it.
    graph.connect(message(lamp), slot(&TdnLightLink::aLight, 0));
    EXPECT_EQ(changed.fireCount(), c0);
    graph.connect(message(thing), slot(&TdnLightLink::aObject, 0));
    EXPECT_EQ(changed.fireCount(), c0 + 1);
    EXPECT_EQ(nonSG.fireCount(), n0 + 1);
    graph.disconnect(message(thing), slot(&TdnLightLink::aObject, 0));
    EXPECT_EQ(changed.fireCount(), c0 + 2);
    graph.disconnect(message(lamp), slot(&TdnLightLink::aLight, 0));
    EXPECT_EQ(changed.fireCount(), c0 + 2);

    // An object linked to an empty set of lights: it stands, and takes
    // effect when the set gets a member.
    ASSERT_TRUE(TrelationshipLightLink(linker, "link", thing, lampSet).applyRelationship(nullptr));
    EXPECT_TRUE(linker->isAlreadyConnected(thing, lampSet, 0));
    EXPECT_EQ(changed.fireCount(), c0 + 2);
    EXPECT_TRUE(lampSet->hasMembershipClient(linker));
    addMember(lampSet, lamp);
    EXPECT_EQ(changed.fireCount(), c0 + 3);
    EXPECT_EQ(nonSG.fireCount(), n0 + 3);
    // Members of a set that is in no pair change nothing.
    TobjectSet* other = set("others");
    addMember(other, lamp2);
    EXPECT_EQ(changed.fireCount(), c0 + 3);
    // Unlinking the set, now with a member, takes effect; the linker stops
    // listening to it.
    EXPECT_TRUE(
        TrelationshipLightLink(linker, "link", thing, lampSet).unapplyRelationship(nullptr));
    EXPECT_EQ(changed.fireCount(), c0 + 4);
    EXPECT_FALSE(lampSet->hasMembershipClient(linker));
}

TEST_F(LightLink, TheFarEndIsMarkedAsInARelationship) {
    EXPECT_FALSE(thing->flagWord() & TdependNode::kInRelationship);
    ASSERT_TRUE(TrelationshipLightLink(linker, "link", thing, lamp).applyRelationship(nullptr));
    EXPECT_TRUE(thing->flagWord() & TdependNode::kInRelationship);
    EXPECT_TRUE(lamp->flagWord() & TdependNode::kInRelationship);
    EXPECT_FALSE(lamp2->flagWord() & TdependNode::kInRelationship);
}

TEST_F(LightLink, GatheringFindsThePairsAndWhatBroke) {
    ASSERT_TRUE(TrelationshipLightLink(linker, "link", thing, lamp).applyRelationship(nullptr));
    ASSERT_TRUE(TrelationshipLightLink(linker, "ignore", thing, lamp2).applyRelationship(nullptr));
    ASSERT_TRUE(
        TrelationshipLightLink(linker, "shadowLink", lampSet, lamp2).applyRelationship(nullptr));
    graph.connect(message(lamp), slot(&TdnLightLink::aShadowLightIgnored, 4)); // half a pair
    EXPECT_EQ(linker->estimateNumberOfRelationshipPlugs(), 8u);

    TrelationshipPtrArray all;
    EXPECT_EQ(linker->gatherAllRelationships(all, false, false, false), 3u);
    ASSERT_EQ(all.size(), 3u);
    auto* ignored = dynamic_cast<TrelationshipLightLink*>(all[1].get());
    ASSERT_NE(ignored, nullptr);
    EXPECT_EQ(ignored->list(), TdnLightLink::kIgnore);
    EXPECT_EQ(ignored->objectPlug(), message(thing));
    EXPECT_EQ(ignored->lightPlug(), message(lamp2));
    EXPECT_FALSE(linker->isMarked(TdnLightLink::kIgnore, 0)); // cleared at the end

    TrelationshipPtrArray withHalves;
    EXPECT_EQ(linker->gatherAllRelationships(withHalves, true, false, false), 4u);
    EXPECT_FALSE(withHalves[3]->isValid());
    TrelationshipPtrArray referenced;
    lamp2->setFlagBits(TdependNode::kFromReferencedScene);
    EXPECT_EQ(linker->gatherAllRelationships(referenced, false, true, false), 2u);

    // The pairs of `thing`, marked; deleting it breaks them.
    TrelationshipPtrArray ofThing;
    EXPECT_EQ(linker->gatherAndMarkRelationships(ofThing, thing), 2u);
    EXPECT_TRUE(linker->isMarked(TdnLightLink::kLink, 0));
    graph.deleteNode(thing);
    TrelationshipPtrArray broken;
    EXPECT_EQ(linker->gatherAndMarkBrokenRelationships(broken), 2u);
    EXPECT_FALSE(linker->isMarked(TdnLightLink::kLink, 0));
    // The light halves stay: the elements are still in use.
    EXPECT_EQ(linker->estimateNumberOfRelationshipPlugs(), 8u);
}

TEST_F(LightLink, DuplicatesMapParticipantsAndFakeEditsLeaveTheGraph) {
    TrelationshipLightLink link(linker, "shadowIgnore", thing, lamp);
    TdependNode* copyOfThing = graph.createNode("reverse", "copyOfThing");
    Trelationship* made = nullptr;
    ASSERT_TRUE(link.canDuplicate());
    ASSERT_TRUE(link.duplicateRelationship(&made, {{thing, copyOfThing}}));
    std::unique_ptr<Trelationship> copy(made);
    auto* light = dynamic_cast<TrelationshipLightLink*>(copy.get());
    ASSERT_NE(light, nullptr);
    EXPECT_EQ(light->linker(), linker);
    EXPECT_EQ(light->list(), TdnLightLink::kShadowIgnore);
    EXPECT_EQ(light->objectPlug(), message(copyOfThing));
    EXPECT_EQ(light->lightPlug(), message(lamp));

    TreferenceEditList edits;
    link.setReferenceEdits(&edits);
    EXPECT_TRUE(link.fakeApplyRelationshipAsReferenceEdit());
    EXPECT_EQ(pairs(TdnLightLink::kShadowIgnore), 0u);
    EXPECT_EQ(edits.edits(),
              (std::vector<TreferenceEditList::Edit>{
                  {"thing.message", "links.shadowIgnore[0].shadowObjectIgnored", true},
                  {"lamp.message", "links.shadowIgnore[0].shadowLightIgnored", true}}));
    // Nothing to unapply until the pair exists.
    EXPECT_FALSE(link.fakeUnapplyRelationshipAsReferenceEdit());
    ASSERT_TRUE(link.applyRelationship(nullptr)); // index 0 was only noted: 1 is next
    edits.clear();
    EXPECT_TRUE(link.fakeUnapplyRelationshipAsReferenceEdit());
    EXPECT_EQ(edits.edits(),
              (std::vector<TreferenceEditList::Edit>{
                  {"thing.message", "links.shadowIgnore[1].shadowObjectIgnored", false},
                  {"lamp.message", "links.shadowIgnore[1].shadowLightIgnored", false}}));
    EXPECT_TRUE(linker->isAlreadyConnected(thing, lamp, TdnLightLink::kShadowIgnore));
}

TEST(LightLinkNodes, EachGraphHasItsOwnAndOneIsMadeOnDemand) {
    TdependGraph a, b;
    TDNarray found;
    TdnLightLink::getLinkNodes(found, false, &a);
    EXPECT_TRUE(found.empty());
    TdnLightLink::getLinkNodes(found, true, &a);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_TRUE(found[0]->isImplicitlyCreated());
    EXPECT_EQ(found[0]->graph(), &a);
    found.clear();
    TdnLightLink::getLinkNodes(found, true, &a);
    EXPECT_EQ(found.size(), 1u); // none made the second time
    b.createNode("lightLinker", "mine");
    found.clear();
    TdnLightLink::getLinkNodes(found, false, &b);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0]->name(), "mine");
}

} // namespace
