#include <gtest/gtest.h>

#include <algorithm>
#include <map>
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
            // Short names are short: the longest scene files know are a
            // curve entry's channel ("clrcr") and imfPluginKey's "imfkey".
            EXPECT_LE(a->shortName().size(), 6u) << a->longName();
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

namespace {

// Inputs that, by design, dirty no output of their own node: values stored
// for other renderers and the viewport, and depth map settings that the
// renderer's depth pass reads before a frame rather than through the light
// data. Attributes every node or every DAG node has (message, visibility,
// instObjGroups, dagChildren) are left out of the check as well.
// Depth map settings make the map before the frame; the light's compute
// never reads them.
const std::set<std::string> kDepthMapSettings = {
    "castSoftShadows",   "reuseDmap",        "useMidDistDmap",    "dmapResolution",
    "dmapFocus",         "dmapWidthFocus",   "useDmapAutoFocus",  "useDmapAutoClipping",
    "dmapNearClipPlane", "dmapFarClipPlane", "useOnlySingleDmap", "useXPlusDmap",
    "useXMinusDmap",     "useYPlusDmap",     "useYMinusDmap",     "useZPlusDmap",
    "useZMinusDmap",     "dmapUseMacro",     "dmapName",          "dmapLightName",
    "dmapSceneName",     "dmapFrameExt",     "writeDmap",         "lastWrittenDmapAnimExtName"};

// The same, and the messages that name a light's fog and glow.
const std::set<std::string> kLightWithFog = [] {
    std::set<std::string> names = kDepthMapSettings;
    names.insert({"fogGeometry", "lightGlow"});
    return names;
}();

const std::map<std::string, std::set<std::string>> kInputsOfNoOutput = {
    {"lambert",
     {"opacityDepth", "vrOverwriteDefaults", "vrFillObject", "vrEdgeWeight", "vrEdgeColor",
      "vrEdgeStyle", "vrEdgePriority", "vrHiddenEdges", "vrHiddenEdgesOnTransparent",
      "vrOutlinesAtIntersections", "materialAlphaGain", "hardwareShader"}},
    {"rampShader", {"opacityDepth"}},
    {"place2dTexture", {"vertexUvOne", "vertexUvTwo", "vertexUvThree", "vertexCameraOne"}},
    {"ambientLight", {"castSoftShadows"}},
    // The file texture reads its coordinate placed already; the placement's
    // copies, the sample fields of a projected footprint, the hardware
    // cycling, tile proxies, Ptex filtering and the colour management
    // settings are kept for the tools that read them.
    {"file",
     {"computedFileTextureNamePattern",
      "useHardwareTextureCycling",
      "startCycleExtension",
      "endCycleExtension",
      "byCycleIncrement",
      "forceSwatchGen",
      "uvTileProxyDirty",
      "uvTileProxyGenerate",
      "uvTileProxyQuality",
      "translateFrameU",
      "translateFrameV",
      "rotateFrame",
      "doTransform",
      "mirrorU",
      "mirrorV",
      "stagger",
      "offset",
      "rotateUV",
      "noiseU",
      "noiseV",
      "vertexCameraOne",
      "vertexCameraTwo",
      "vertexCameraThree",
      "vertexUvOne",
      "vertexUvTwo",
      "vertexUvThree",
      "objectType",
      "rayDepth",
      "primitiveId",
      "pixelCenter",
      "dirtyPixelRegion",
      "ptexFilterType",
      "ptexFilterWidth",
      "ptexFilterBlur",
      "ptexFilterSharpness",
      "ptexFilterInterpolateLevels",
      "colorProfile",
      "workingSpace",
      "colorManagementConfigFileEnabled",
      "colorManagementConfigFilePath"}},
    // Sample values handed on as they are: a network reads them directly.
    {"samplerInfo",
     {"pointCamera", "pointObj", "pointWorld", "uvCoord", "tangentUCamera", "tangentVCamera",
      "matrixEyeToWorld", "pixelCenter", "flippedNormal"}},
    {"directionalLight", kDepthMapSettings},
    {"spotLight", kLightWithFog},
    {"areaLight", kLightWithFog},
    {"volumeLight", kLightWithFog},
};

const std::set<std::string> kEveryNodesAttributes = {"message", "visibility", "instObjGroups",
                                                     "dagChildren"};

// The root compound of an attribute: a child counts with its parent.
const Tattribute& rootOf(const Tattribute& a) {
    const Tattribute* r = &a;
    while (r->parent())
        r = r->parent();
    return *r;
}

// Every input of a type with outputs dirties some output, and every output
// is dirtied by some input, as the node's dependency list says: a list that
// forgot an input (or named the wrong one) leaves a render showing a stale
// value when the user changes it. Compound children count with their root.
TEST(Registry, EveryInputReachesAnOutputAndEveryOutputHasAnInput) {
    for (TdependNodeClass* c : productTypes()) {
        if (c->typeName().rfind("test", 0) == 0)
            continue;
        SCOPED_TRACE(c->typeName());
        TdependNodeVS* vs = c->vsData();
        ASSERT_TRUE(vs->initializeClass());
        const TdependencyMatrix& m = vs->dependencies();
        std::vector<const Tattribute*> inputs, outputs;
        for (const Tattribute* a : vs->attributes())
            if (!a->parent())
                (a->isComputed() ? outputs : inputs).push_back(a);
        // A type with no output holds settings; a base type's dependencies
        // are set by the types built on it.
        const auto types = productTypes();
        const bool base = std::any_of(types.begin(), types.end(), [&](TdependNodeClass* d) {
            return d != c && d->metaclass()->parent(0) == c->metaclass();
        });
        if (outputs.empty() || base)
            continue;
        std::set<const Tattribute*> reached, fed;
        for (uint32_t from = 0; from < m.size(); ++from)
            for (uint32_t to = 0; to < m.size(); ++to)
                if (from != to && m.affects(from, to)) {
                    const Tattribute& in = rootOf(*vs->attributes()[from]);
                    const Tattribute& out = rootOf(*vs->attributes()[to]);
                    if (!in.isComputed() && out.isComputed()) {
                        reached.insert(&in);
                        fed.insert(&out);
                    }
                }
        // A type's list holds for the types built on it too.
        std::set<std::string> listed;
        for (Tmetaclass* t = c->metaclass(); t; t = t->parent(0))
            if (const auto it = kInputsOfNoOutput.find(t->typeName());
                it != kInputsOfNoOutput.end())
                listed.insert(it->second.begin(), it->second.end());
        for (const Tattribute* in : inputs) {
            if (kEveryNodesAttributes.count(in->longName()))
                continue;
            const bool allowed = listed.count(in->longName()) != 0;
            EXPECT_NE(reached.count(in) != 0, allowed)
                << in->longName()
                << (allowed ? " is listed as reaching no output, but it does: take it off the list"
                            : " dirties no output");
        }
        for (const Tattribute* out : outputs)
            EXPECT_TRUE(fed.count(out)) << out->longName() << " is dirtied by no input";
    }
}

} // namespace
