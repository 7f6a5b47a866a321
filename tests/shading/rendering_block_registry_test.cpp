#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "host/graph.h"
#include "host/messages.h"
#include "shading/data_block_rendering.h"

// Every node type computes through a rendering block exactly what it
// computes through its ordinary block, for random varying inputs.
namespace {

void randomValue(const Tattribute& a, void* where, std::mt19937& random) {
    if (const auto* e = dynamic_cast<const TattributeEnum*>(&a)) {
        if (!e->fields().empty()) {
            const auto& f = e->fields()[random() % e->fields().size()];
            *static_cast<int16_t*>(where) = f.value;
        }
        return;
    }
    std::uniform_real_distribution<double> value(-3.0, 3.0);
    for (int i = 0; i < a.numericCount(); ++i)
        a.numericSet(where, i,
                     a.kind() == TattrKind::Boolean ? double(random() & 1) : value(random));
}

// Shading networks hold render-model nodes: the host's scene types and this
// binary's test types are not compiled into them.
std::vector<TdependNodeClass*> shadingTypes() {
    std::vector<TdependNodeClass*> types;
    for (TdependNodeClass* c : TdependGraph::nodeTypes())
        if (c->classification.rfind("test/", 0) != 0 && c->classification.rfind("host/", 0) != 0)
            types.push_back(c);
    return types;
}

TEST(RenderingBlockRegistry, EveryTypeComputesTheSameAsThroughItsOrdinaryBlock) {
    auto quiet = TcommandEngine::setSink([](TcommandEngine::Severity, const std::string&) {});
    constexpr unsigned kCount = 64;
    std::mt19937 random(1234);
    int checked = 0;
    for (TdependNodeClass* c : shadingTypes()) {
        SCOPED_TRACE(c->typeName());
        TdependGraph graph;
        TdependNode* node = graph.createNode(c->typeName(), "n");
        const TattributeList& attributes = node->vsData()->attributes();
        const size_t n = attributes.size();

        // Every value varies; arrays are constant and empty.
        std::vector<uint32_t> types(n);
        std::vector<AttrInfo> infos(n);
        std::vector<uint16_t> initList(n + 1);
        std::vector<MultiInfo> multis(2);
        multis[1].numKids = -1;
        for (const Tattribute* a : attributes) {
            if (a->isArray() || a->isArrayDescendant())
                types[a->index()] = kConstDefaultValue;
            else
                types[a->index()] = a->parent() ? kVarUseParent : kVarPresent;
        }
        const auto layout = TdataBlockRendering::layout(*node, types.data(), infos.data(),
                                                        multis.data(), initList.data());
        std::vector<uint64_t> constant(layout.constantSize / 8 + 1);
        std::vector<uint64_t> variable(size_t(layout.variableSize) * kCount / 8 + 1);
        auto* constantBlock = reinterpret_cast<std::byte*>(constant.data());
        auto* variableBase = reinterpret_cast<std::byte*>(variable.data());
        TdataBlockRendering::initializeConstant(node, infos.data(), multis.data(), initList.data(),
                                                constantBlock);
        TdataBlockRendering rendering;
        rendering.initialize(node, infos.data(), multis.data(), initList.data(), constantBlock,
                             kCount, variableBase, layout.variableSize, nullptr);
        TordinaryDataBlock ordinary(node, kCount);

        // The same random inputs in both.
        for (const Tattribute* root : node->vsData()->roots()) {
            if (root->isArray() || root->isComputed() || root->numericCount() == 0)
                continue;
            for (unsigned e = 0; e < kCount; ++e) {
                void* at = ordinary.valueAddress(*root, e);
                randomValue(*root, at, random);
                root->copyValue(variableBase + size_t(e) * layout.variableSize +
                                    infos[root->index()].offset,
                                at);
            }
        }
        for (const Tattribute* out : node->vsData()->roots()) {
            if (!out->isComputed() || out->isArray())
                continue;
            const Tplug plug(node, out);
            const bool vector = node->vectorComputePlug(plug, ordinary, 0, kCount);
            if (!vector)
                continue; // scalar-only types compute one element at a time elsewhere
            ASSERT_TRUE(node->vectorComputePlug(plug, rendering, 0, kCount));
            for (unsigned e = 0; e < kCount; ++e) {
                const std::byte* r =
                    variableBase + size_t(e) * layout.variableSize + infos[out->index()].offset;
                // Bit for bit: random inputs make NaNs (powers of negatives),
                // which must come out the same too.
                const void* o = ordinary.valueAddress(*out, e);
                if (out->numericCount() > 0)
                    EXPECT_EQ(std::memcmp(r, o, out->dataSize()), 0)
                        << out->longName() << " element " << e;
                else
                    EXPECT_TRUE(out->equalValues(r, o)) << out->longName() << " element " << e;
            }
            ++checked;
        }
        rendering.tearDownVariable();
        TdataBlockRendering::tearDownConstant(node, infos.data(), multis.data(), initList.data(),
                                              constantBlock);
    }
    EXPECT_GT(checked, 10);
    TcommandEngine::setSink(quiet);
}

// A node's outputs for one value of every input, the inputs held either
// once in the constant block (stride 0, the fast paths) or repeated in
// every element of the variable block (the general path).
struct UniformRun {
    static constexpr unsigned kCount = 16;
    std::vector<AttrInfo> infos;
    std::vector<uint16_t> initList;
    std::vector<MultiInfo> multis{2};
    std::vector<uint64_t> constant, variable;
    TdataBlockRendering::Layout layout{};
    TdataBlockRendering rendering;
    TdependNode* node;

    UniformRun(TdependNode* n, bool constantInputs,
               const std::vector<std::vector<std::byte>>& values)
        : node(n) {
        const TattributeList& attributes = node->vsData()->attributes();
        std::vector<uint32_t> types(attributes.size());
        infos.resize(attributes.size());
        initList.resize(attributes.size() + 1);
        multis[1].numKids = -1;
        for (const Tattribute* a : attributes) {
            const bool varies = a->isComputed() || !constantInputs;
            if (a->isArray() || a->isArrayDescendant())
                types[a->index()] = kConstDefaultValue;
            else if (a->parent())
                types[a->index()] = varies ? kVarUseParent : kConstUseParent;
            else
                types[a->index()] = varies ? kVarPresent : kConstPresent;
        }
        layout = TdataBlockRendering::layout(*node, types.data(), infos.data(), multis.data(),
                                             initList.data());
        constant.resize(layout.constantSize / 8 + 1);
        variable.resize(size_t(layout.variableSize) * kCount / 8 + 1);
        auto* constantBlock = reinterpret_cast<std::byte*>(constant.data());
        TdataBlockRendering::initializeConstant(node, infos.data(), multis.data(), initList.data(),
                                                constantBlock);
        rendering.initialize(node, infos.data(), multis.data(), initList.data(), constantBlock,
                             kCount, base(), layout.variableSize, nullptr);
        for (const Tattribute* root : inputs(*node)) {
            const std::vector<std::byte>& v = values[root->index()];
            if (constantInputs)
                root->copyValue(constantBlock + infos[root->index()].offset, v.data());
            else
                for (unsigned e = 0; e < kCount; ++e)
                    root->copyValue(at(*root, e), v.data());
        }
    }
    ~UniformRun() {
        rendering.tearDownVariable();
        TdataBlockRendering::tearDownConstant(node, infos.data(), multis.data(), initList.data(),
                                              reinterpret_cast<std::byte*>(constant.data()));
    }
    std::byte* base() { return reinterpret_cast<std::byte*>(variable.data()); }
    std::byte* at(const Tattribute& a, unsigned e) {
        return base() + size_t(e) * layout.variableSize + infos[a.index()].offset;
    }
    static std::vector<const Tattribute*> inputs(TdependNode& node) {
        std::vector<const Tattribute*> found;
        for (const Tattribute* root : node.vsData()->roots())
            if (!root->isArray() && !root->isComputed() && root->numericCount() > 0)
                found.push_back(root);
        return found;
    }
};

TEST(RenderingBlockRegistry, ConstantInputsComputeWhatTheSameValuesInEveryElementCompute) {
    auto quiet = TcommandEngine::setSink([](TcommandEngine::Severity, const std::string&) {});
    std::mt19937 random(99);
    int checked = 0;
    for (TdependNodeClass* c : shadingTypes()) {
        SCOPED_TRACE(c->typeName());
        TdependGraph graph;
        TdependNode* node = graph.createNode(c->typeName(), "n");
        // Three draws of the inputs, so that a fast path meets more than one
        // combination of its switches.
        for (int draw = 0; draw < 3; ++draw) {
            std::vector<std::vector<std::byte>> values(node->vsData()->attributes().size());
            for (const Tattribute* root : UniformRun::inputs(*node)) {
                values[root->index()].resize(root->dataSize() + 8);
                root->writeDefault(values[root->index()].data());
                randomValue(*root, values[root->index()].data(), random);
            }
            UniformRun once(node, true, values), every(node, false, values);
            for (const Tattribute* out : node->vsData()->roots()) {
                if (!out->isComputed() || out->isArray() || out->numericCount() == 0)
                    continue;
                const Tplug plug(node, out);
                if (!node->vectorComputePlug(plug, every.rendering, 0, UniformRun::kCount))
                    continue;
                ASSERT_TRUE(node->vectorComputePlug(plug, once.rendering, 0, UniformRun::kCount));
                for (unsigned e = 0; e < UniformRun::kCount; ++e)
                    EXPECT_EQ(std::memcmp(once.at(*out, e), every.at(*out, e), out->dataSize()), 0)
                        << out->longName() << " element " << e << " draw " << draw;
                ++checked;
            }
        }
    }
    EXPECT_GT(checked, 30);
    TcommandEngine::setSink(quiet);
}

} // namespace
