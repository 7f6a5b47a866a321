#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <sstream>
#include <vector>

#include "framework/nodes/utility/plus_minus_average.h"
#include "framework/nodes/utility/reverse.h"
#include "host/graph.h"
#include "host/messages.h"
#include "shading/data_block_rendering.h"

namespace {

// Plays the network around a block: records which segments run and writes
// the values a test gives each segment.
class FakeEvaluator : public TrenderingEvaluator {
public:
    struct Call {
        uint16_t segment;
        const Tattribute* attribute;
        unsigned first, count;
    };
    std::vector<Call> calls;
    std::vector<std::pair<uint16_t, std::vector<float>>> values;

    void computeValue(uint16_t segment, const Tattribute& attribute, uint8_t** value,
                      TdataBlock** block, unsigned first, unsigned count) override {
        calls.push_back({segment, &attribute, first, count});
        (*block)->setCurrentIndex(0); // running a segment may move the caller; it must not show
        for (const auto& [s, v] : values)
            if (s == segment)
                for (unsigned e = 0; e < count; ++e)
                    std::memcpy(*value + size_t(e) * (*block)->elementStride(), v.data(),
                                v.size() * sizeof(float));
    }
    void sampleLights(unsigned, unsigned, unsigned, T3Float*, TlightData**) override {}
};

// A block of a reverse node with the given AttrInfo types, `count` elements.
struct ReverseBlock {
    TdependGraph graph;
    TdependNode* node = graph.createNode("reverse", "rev");
    std::vector<AttrInfo> infos;
    std::vector<uint16_t> initList;
    std::vector<uint64_t> constant, variable; // zeroed, 8-aligned
    TdataBlockRendering::Layout layout;
    AttrInfo* own = nullptr; // the records of reverse's own attributes, after message
    TdataBlockRendering block;
    FakeEvaluator evaluator;

    ReverseBlock(std::vector<uint32_t> types, unsigned count) {
        const size_t n = node->vsData()->attributes().size();
        infos.resize(n);
        initList.resize(n + 1);
        types.insert(types.begin(), kConstDefaultValue); // the message plug
        types.resize(n, kConstDefaultValue);
        layout = TdataBlockRendering::layout(*node, types.data(), infos.data(), nullptr,
                                             initList.data());
        constant.resize(layout.constantSize / 8 + 1);
        variable.resize(size_t(layout.variableSize) * count / 8 + 1);
        own = infos.data() + 1;
        block.initialize(node, infos.data(), nullptr, initList.data(),
                         reinterpret_cast<std::byte*>(constant.data()), count,
                         reinterpret_cast<std::byte*>(variable.data()), layout.variableSize,
                         &evaluator);
    }
    // What compiling the network does once: the constants fetched.
    void resolve() {
        TdataBlockRendering::resolveConstants(node, infos.data(), nullptr, initList.data(),
                                              reinterpret_cast<std::byte*>(constant.data()));
    }
    float* var(const Tattribute& a, unsigned e) {
        return reinterpret_cast<float*>(reinterpret_cast<std::byte*>(variable.data()) +
                                        size_t(e) * layout.variableSize + infos[a.index()].offset);
    }
};

// Attribute indices of reverse, counted after message: input 0, inputX..Z 1-3, output 4, outputX..Z
// 5-7.
constexpr uint32_t C = kConstDefaultValue, P = kConstUseParent, V = kVarPresent, VP = kVarUseParent;

TEST(RenderingBlockLayout, ConstantAndVariableBlocksHoldTheirAttributes) {
    ReverseBlock r({C, P, P, P, V, VP, VP, VP}, 4);
    EXPECT_EQ(r.own[0].offset, 0u);
    EXPECT_EQ(r.own[2].offset, 4u); // inputY inside input
    EXPECT_EQ(r.own[4].offset, 0u); // output first in the variable block
    EXPECT_EQ(r.own[7].offset, 8u);
    EXPECT_EQ(r.layout.constantSize, 16u); // 12 rounded up to 8
    EXPECT_EQ(r.layout.variableSize, 16u);
    EXPECT_EQ(r.initList[0], 0u); // floats need no construction
    EXPECT_EQ(r.block.elementCount(), 4u);
    EXPECT_EQ(r.block.lastElement() - r.block.firstElement(), 3 * 16);
}

TEST(RenderingBlockLayout, AConstantChildOfAVaryingCompoundHasItsOwnConstantSlot) {
    // input varies (assembled from children); inputY is constant.
    ReverseBlock r({kVarUseChild, VP, C, VP, V, VP, VP, VP}, 2);
    EXPECT_EQ(r.own[0].offset, 0u);
    EXPECT_EQ(r.own[1].offset, 0u);  // inputX inside input, in every element
    EXPECT_EQ(r.own[2].offset, 0u);  // inputY: first slot of the constant block
    EXPECT_EQ(r.own[3].offset, 8u);  // inputZ inside input
    EXPECT_EQ(r.own[4].offset, 12u); // output right after input: floats align at 4
    EXPECT_EQ(r.layout.constantSize, 8u);
    EXPECT_EQ(r.layout.variableSize, 24u); // 24 bytes, already a multiple of 8
}

TEST(RenderingBlockValues, ConstantsReadWithStrideZeroAndDefaultsAreFetchedOnce) {
    ReverseBlock r({C, P, P, P, V, VP, VP, VP}, 100);
    r.graph.setPlugValueFromWords(r.graph.findPlug("rev.input"), {"0.25", "0.5", "1"});
    r.resolve();
    const TvectorDataHandle in = r.block.vectorInputValue(TdnReverse::aInput, 0, 100);
    EXPECT_EQ(in.stride(), 0u);
    EXPECT_EQ(in[99].asFloat3()[1], 0.5f);
    EXPECT_EQ(r.own[0].type, uint32_t(kConstPresent));

    // A second read does not consult the node again.
    r.graph.setPlugValueFromWords(r.graph.findPlug("rev.input"), {"9", "9", "9"});
    EXPECT_EQ(r.block.inputValue(TdnReverse::aInput).asFloat3()[0], 0.25f);

    const TvectorDataHandle out = r.block.vectorOutputValue(TdnReverse::aOutput, 0);
    EXPECT_EQ(out.stride(), 16u);
}

TEST(RenderingBlockValues, SegmentZeroComputesNothingAndOthersRunOnDemand) {
    ReverseBlock r({V, VP, VP, VP, V, VP, VP, VP}, 8);
    r.var(TdnReverse::aInput, 5)[0] = 0.75f;
    r.block.setCurrentIndex(5);
    EXPECT_EQ(r.block.inputValue(TdnReverse::aInput).asFloat3()[0], 0.75f);
    EXPECT_TRUE(r.evaluator.calls.empty());

    r.own[0].thread = 3;
    r.evaluator.values = {{3, {0.5f, 0.5f, 0.5f}}};
    const TvectorDataHandle in = r.block.vectorInputValue(TdnReverse::aInput, 2, 4);
    ASSERT_EQ(r.evaluator.calls.size(), 1u);
    EXPECT_EQ(r.evaluator.calls[0].segment, 3u);
    EXPECT_EQ(r.evaluator.calls[0].first, 2u);
    EXPECT_EQ(r.evaluator.calls[0].count, 4u);
    EXPECT_EQ(in[3].asFloat3()[2], 0.5f);
    EXPECT_EQ(r.var(TdnReverse::aInput, 1)[0], 0.0f); // outside the run: untouched
    EXPECT_EQ(r.block.currentIndex(), 5u);            // position restored after the segment
}

// input read in place from another block: a batch clears one word for the
// link, and one link serves every element, the whole compound and a child.
TEST(RenderingBlockValues, OneLinkServesEveryElementOfTheRun) {
    constexpr uint32_t L = kVarPresentOtherDB, LP = kVarUseParentOtherDB;
    ReverseBlock producer({C, P, P, P, V, VP, VP, VP}, 8);
    ReverseBlock consumer({L, LP, LP, LP, V, VP, VP, VP}, 8);
    for (unsigned e = 0; e < 8; ++e)
        for (int c = 0; c < 3; ++c)
            producer.var(TdnReverse::aOutput, e)[c] = float(10 * e + c);

    // A batch over memory a previous batch left: only element 0's link is
    // cleared, the other elements' slots are never looked at.
    std::memset(consumer.variable.data(), 0xab, consumer.variable.size() * 8);
    consumer.block.initialize(consumer.node, consumer.infos.data(), nullptr,
                              consumer.initList.data(),
                              reinterpret_cast<std::byte*>(consumer.constant.data()), 8,
                              reinterpret_cast<std::byte*>(consumer.variable.data()),
                              consumer.layout.variableSize, &consumer.evaluator);
    const auto* slot = reinterpret_cast<const std::byte*>(consumer.var(TdnReverse::aInput, 0));
    EXPECT_EQ(*reinterpret_cast<void* const*>(slot), nullptr);
    EXPECT_EQ(std::to_integer<int>(slot[consumer.layout.variableSize]), 0xab); // element 1

    consumer.block.setLink(TdnReverse::aInput,
                           reinterpret_cast<std::byte*>(producer.var(TdnReverse::aOutput, 0)),
                           &producer.block);
    consumer.block.setCurrentIndex(5);
    EXPECT_EQ(consumer.block.inputValue(TdnReverse::aInput).asFloat3()[0], 50.0f);
    EXPECT_EQ(consumer.block.inputValue(TdnReverse::aInputZ).asFloat(), 52.0f);
    const TvectorDataHandle run = consumer.block.vectorInputValue(TdnReverse::aInput, 2, 4);
    EXPECT_EQ(run.stride(), producer.layout.variableSize);
    EXPECT_EQ(run[3].asFloat3()[1], 51.0f); // element 2 + 3
    EXPECT_TRUE(consumer.evaluator.calls.empty());
}

TEST(RenderingBlockValues, AChildConnectedInsideAVaryingCompoundOverridesAfterTheParent) {
    ReverseBlock r({kVarPreferChild, VP, V, VP, V, VP, VP, VP}, 2);
    r.own[0].thread = 1; // the compound's own source
    r.own[2].thread = 2; // inputY's own source
    r.evaluator.values = {{1, {1, 1, 1}}, {2, {5}}};
    const TdataHandle h = r.block.inputValue(TdnReverse::aInput);
    EXPECT_EQ(h.asFloat3()[0], 1.0f);
    EXPECT_EQ(h.asFloat3()[1], 5.0f);
    EXPECT_EQ(h.asFloat3()[2], 1.0f);
    ASSERT_EQ(r.evaluator.calls.size(), 2u);
    EXPECT_EQ(r.evaluator.calls[0].segment, 1u); // parent first, then the child
}

TEST(RenderingBlockValues, ComputeThroughTheBlockMatchesTheOrdinaryBlock) {
    ReverseBlock r({V, VP, VP, VP, V, VP, VP, VP}, 64);
    TordinaryDataBlock ordinary(r.node, 64);
    std::mt19937 random(7);
    std::uniform_real_distribution<float> value(-2.0f, 2.0f);
    for (unsigned e = 0; e < 64; ++e) {
        float v[3] = {value(random), value(random), value(random)};
        std::memcpy(r.var(TdnReverse::aInput, e), v, sizeof v);
        std::memcpy(ordinary.valueAddress(TdnReverse::aInput, e), v, sizeof v);
    }
    const Tplug output(r.node, &TdnReverse::aOutput);
    r.node->vectorComputePlug(output, r.block, 0, 64);
    r.node->vectorComputePlug(output, ordinary, 0, 64);
    for (unsigned e = 0; e < 64; ++e)
        EXPECT_EQ(std::memcmp(r.var(TdnReverse::aOutput, e),
                              ordinary.valueAddress(TdnReverse::aOutput, e), 12),
                  0);
}

TEST(RenderingBlockValues, TheScalarEntryComputesTheCurrentElementOnly) {
    // Four elements with inputs (e, 0.25, -1); outputs start at 7.
    ReverseBlock r({V, VP, VP, VP, V, VP, VP, VP}, 4);
    for (unsigned e = 0; e < 4; ++e) {
        const float v[3] = {float(e), 0.25f, -1.0f};
        std::memcpy(r.var(TdnReverse::aInput, e), v, sizeof v);
        std::fill_n(r.var(TdnReverse::aOutput, e), 3, 7.0f);
    }
    r.block.setCurrentIndex(2);
    ASSERT_TRUE(r.node->computePlug(Tplug(r.node, &TdnReverse::aOutput), r.block));
    // Element 2 reversed: 1 - 2, 1 - 0.25, 1 - (-1); the others untouched.
    EXPECT_EQ(r.var(TdnReverse::aOutput, 2)[0], -1.0f);
    EXPECT_EQ(r.var(TdnReverse::aOutput, 2)[1], 0.75f);
    EXPECT_EQ(r.var(TdnReverse::aOutput, 2)[2], 2.0f);
    for (unsigned e : {0u, 1u, 3u})
        EXPECT_EQ(r.var(TdnReverse::aOutput, e)[0], 7.0f) << e;
}

TEST(RenderingBlockArrays, ElementsAreServedByLogicalIndexAndBadIndicesThrow) {
    TdependGraph graph;
    TdependNode* node = graph.createNode("plusMinusAverage", "pma");
    graph.setPlugValueFromWords(graph.findPlug("pma.input1D[3]"), {"2.5"});
    graph.setPlugValueFromWords(graph.findPlug("pma.input1D[7]"), {"4"});
    const TattributeList& attributes = node->vsData()->attributes();
    const size_t n = attributes.size();
    std::vector<AttrInfo> infos(n);
    std::vector<uint16_t> initList(n + 1);
    std::vector<uint32_t> types(n, kConstDefaultValue);
    // One array described: header, elements 3 and 7, end of table.
    std::vector<MultiInfo> multis(4);
    multis[0].kind = kConstDefaultValue;
    multis[0].numKids = 2;
    multis[1].setLogicalIndex(3);
    multis[1].pOff = 1;
    multis[2].setLogicalIndex(7);
    multis[2].pOff = 2;
    multis[3].numKids = -1;
    infos[TdnPlusMinusAverage::aInput1D.index()].thread = 0;
    for (const Tattribute* a : attributes)
        if (a->isArray() && a != &TdnPlusMinusAverage::aInput1D)
            infos[a->index()].thread = 3; // the other arrays: no elements
    const auto layout = TdataBlockRendering::layout(*node, types.data(), infos.data(),
                                                    multis.data(), initList.data());
    EXPECT_GE(initList[0], 3u); // the three arrays need their headers made
    std::vector<uint64_t> constant(layout.constantSize / 8 + 1);
    std::vector<uint64_t> variable(layout.variableSize / 8 + 2);
    auto* constantBlock = reinterpret_cast<std::byte*>(constant.data());
    TdataBlockRendering::initializeConstant(node, infos.data(), multis.data(), initList.data(),
                                            constantBlock);
    TdataBlockRendering::resolveConstants(node, infos.data(), multis.data(), initList.data(),
                                          constantBlock);
    TdataBlockRendering block;
    block.initialize(node, infos.data(), multis.data(), initList.data(), constantBlock, 1,
                     reinterpret_cast<std::byte*>(variable.data()), layout.variableSize, nullptr);

    // The array's values were fetched from the node, element by element,
    // when the network was compiled.
    const TdataHandle whole = block.inputValue(TdnPlusMinusAverage::aInput1D);
    TmultiHandle mh(whole);
    ASSERT_EQ(mh.elementCount(), 2u);
    ASSERT_TRUE(mh.jumpToElement(7));
    EXPECT_EQ(mh.reference().asFloat(), 4.0f);

    Tplug element(node, &TdnPlusMinusAverage::aInput1D);
    element.setMultiIndex(&TdnPlusMinusAverage::aInput1D, 3);
    EXPECT_EQ(block.inputValue(element).asFloat(), 2.5f);
    EXPECT_EQ(block.vectorInputValue(element, 0, 1).stride(), 0u);

    element.setMultiIndex(&TdnPlusMinusAverage::aInput1D, 5);
    EXPECT_THROW(block.inputValue(element), TDEbadMultiIndex);
    EXPECT_FALSE(block.addMultiInstance(element));
    EXPECT_EQ(TmultiHandle(block.inputValue(TdnPlusMinusAverage::aInput1D)).elementCount(), 2u);

    std::ostringstream dump;
    block.dumpMultiInfo(dump);
    EXPECT_EQ(dump.str(), "MultiInfo structure for Node: pma\n"
                          "----------------------------------------\n"
                          "0 kConstPresent numKids: 2 pOff: 0 cOff: 0 dOff: 0 bOff: 0\n"
                          "1 kConstDefaultValue numKids: 0 pOff: 1 cOff: 0 dOff: 3 bOff: 0\n"
                          "2 kConstDefaultValue numKids: 0 pOff: 2 cOff: 0 dOff: 7 bOff: 0\n");
    block.tearDownVariable();
    TdataBlockRendering::tearDownConstant(node, infos.data(), multis.data(), initList.data(),
                                          constantBlock);
}

TEST(RenderingBlockDump, DeepDumpShowsBothBlocks) {
    ReverseBlock r({C, P, P, P, V, VP, VP, VP}, 2);
    r.resolve();
    r.var(TdnReverse::aOutput, 1)[0] = 0.5f;
    TdebugOutput out;
    r.block.debug(out, TdebugDetails{1});
    const std::string& text = out.text();
    EXPECT_EQ(text.rfind("DataBlockRendering for Node:rev\n", 0), 0u) << text;
    EXPECT_NE(text.find("Constant Block\n--------------\nIndex : AttrName : Offset : Type [: "
                        "Value]\n0 : message : 0 : kConstPresent : \n1 : input : 0 : "
                        "kConstPresent : 0 0 0\n"),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("\nVariable Block\n"), std::string::npos);
    EXPECT_NE(text.find("Vector Element 1\n5 : output : 0 : kVarPresent : 0.5 0 0\n"),
              std::string::npos)
        << text;
    EXPECT_EQ(OrvoAttrInfoTypeName(99), std::string("*** INVALID VALUE ***"));

    std::ostringstream attrs;
    r.block.dumpAttrInfo(attrs);
    EXPECT_NE(attrs.str().find("inputY\tkConstUseParent offset: 4 thread: 0\n"), std::string::npos)
        << attrs.str();
}

} // namespace
