#include <gtest/gtest.h>

#include <set>

#include "host/graph.h"
#include "host/messages.h"

// Checks that hold for every registered node type, present and future.
namespace {

std::vector<TdependNodeClass*> productTypes() {
    std::vector<TdependNodeClass*> types;
    for (TdependNodeClass* c : TdependGraph::nodeTypes())
        if (c->classification.rfind("test/", 0) != 0) // types of this test binary
            types.push_back(c);
    return types;
}

TEST(Registry, IdentitiesAreUniqueAndWellFormed) {
    std::set<std::string> names, tags;
    const auto types = productTypes();
    ASSERT_FALSE(types.empty());
    for (TdependNodeClass* c : types) {
        SCOPED_TRACE(c->typeName());
        EXPECT_TRUE(names.insert(c->typeName()).second) << "type name used twice";
        ASSERT_NE(c->iffTag(), nullptr);
        EXPECT_TRUE(tags.insert(c->iffTag()->text()).second) << "IFF tag used twice";
        EXPECT_EQ(c->apiTypeString.rfind('k', 0), 0u);
        EXPECT_FALSE(c->classification.empty());
        EXPECT_EQ(c->flags(), 32u);
        // Every type knows its parent's metaclass, whatever the load order.
        ASSERT_NE(c->metaclass()->parent(0), nullptr);
        EXPECT_TRUE(c->metaclass()->istype(TdependNode::sTypeof()));
        EXPECT_EQ(TdependGraph::findNodeType(c->typeName()), c);
        EXPECT_EQ(TdependGraph::findNodeTypeByTag(c->iffTag()->value()), c);
    }
}

// The family of a type by the first path of its classification: the
// shading engine, the utilities (general and colour), the lights, the
// materials, the textures; -1 for the others.
int familyOf(const TdependNodeClass* c) {
    const std::string first = c->classification.substr(0, c->classification.find(':'));
    if (first == "shadingEngine")
        return 0;
    if (first == "utility/general" || first == "utility/color")
        return 1;
    if (first == "light" || first.rfind("light/", 0) == 0)
        return 2;
    if (first.rfind("shader/surface", 0) == 0)
        return 3;
    if (first.rfind("texture/", 0) == 0)
        return 4;
    return -1;
}

TEST(Registry, TypesRegisterByFamilyInTheLibrarysOrder) {
    // The library's own types (the host's register first, from their own
    // library): the shading engine, then every utility, every light, every
    // material, every texture.
    int last = -1;
    std::string lastName;
    std::set<int> seen;
    for (TdependNodeClass* c : productTypes()) {
        const int family = familyOf(c);
        if (family < 0 || c->typeName().rfind("test", 0) == 0) // a light of this binary
            continue;
        EXPECT_GE(family, last) << c->typeName() << " registers after " << lastName;
        if (family >= last) {
            last = family;
            lastName = c->typeName();
        }
        seen.insert(family);
    }
    EXPECT_EQ(seen.size(), 5u); // each family has a type to order
}

TEST(Registry, EveryTypeBuildsItsSchemaAndConstructsWithDefaults) {
    for (TdependNodeClass* c : productTypes()) {
        SCOPED_TRACE(c->typeName());
        TdependNodeVS* vs = c->vsData();
        ASSERT_TRUE(vs->initializeClass());
        const TattributeList& attributes = vs->attributes();
        ASSERT_GT(attributes.size(), 0u);
        std::string nodeName;
        for (size_t i = 0; i < attributes.size(); ++i) {
            const Tattribute* a = attributes[i];
            EXPECT_EQ(a->index(), i);
            EXPECT_EQ(a->nodeNameString().rfind("n_", 0), 0u) << a->longName();
            EXPECT_GE(a->shortName().size(), 1u);
            // Short names take 1 to 4 letters; imfPluginKey keeps the longer
            // one that scene files know it by.
            if (a->shortName() != "imfkey") {
                EXPECT_LE(a->shortName().size(), 4u) << a->longName();
            }
            if (a->parent()) {
                EXPECT_LT(a->parent()->index(), a->index()) << "parent after child";
            }
        }
        TdependGraph graph;
        TdependNode* node = graph.createNode(c->typeName(), "n");
        ASSERT_NE(node, nullptr);
        EXPECT_EQ(node->typeName(), c->typeName());
        EXPECT_EQ(node->typeof(), c->metaclass());
        EXPECT_EQ(node->cast(c->metaclass()) != nullptr, true);
    }
}

TEST(Registry, EveryOutputComputesFromDefaults) {
    auto quiet = TcommandEngine::setSink([](TcommandEngine::Severity, const std::string&) {});
    for (TdependNodeClass* c : productTypes()) {
        SCOPED_TRACE(c->typeName());
        TdependGraph graph;
        TdependNode* node = graph.createNode(c->typeName(), "n");
        for (const Tattribute* a : c->vsData()->attributes()) {
            if (!a->isComputed() || a->isArrayDescendant() || a->isArray())
                continue;
            EXPECT_NO_THROW(graph.evaluateToWords(Tplug(node, a))) << a->longName();
        }
    }
    TcommandEngine::setSink(quiet);
}

} // namespace
