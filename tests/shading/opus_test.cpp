#include <gtest/gtest.h>

#include <cstring>

#include "framework/nodes/utility/reverse.h"
#include "host/graph.h"
#include "shading/opus.h"
#include "shading/sample.h"

namespace {

// An opus written by hand around one reverse node, to run the opcodes that
// no node type's network emits yet: the field stacks.
class HandWrittenOpus : public ::testing::Test {
protected:
    void SetUp() override {
        node = graph.createNode("reverse", "r");
        const size_t n = node->vsData()->attributes().size();
        std::vector<uint32_t> types(n, kVarUseParent);
        types[TdnReverse::aInput.index()] = kVarPresent;
        types[TdnReverse::aOutput.index()] = kVarPresent;
        auto infos = std::make_unique<AttrInfo[]>(n);
        auto initList = std::make_unique<uint16_t[]>(n + 1);
        const auto sizes =
            TdataBlockRendering::layout(*node, types.data(), infos.get(), nullptr, initList.get());
        auto constant = std::make_unique<std::byte[]>(16);
        layout.blockCount = 1;
        layout.blockStrides = {sizes.variableSize};
        layout.blockNodes = {node};
        layout.constantBlocks = {constant.get()};
        infoTable = infos.get();
        TSEinstruction setUp;
        setUp.opcode = kOpSetUpBlock;
        setUp.setUp.block = 0;
        setUp.setUp.stride = sizes.variableSize;
        setUp.setUp.node = node;
        setUp.setUp.infos = infos.get();
        setUp.setUp.initList = initList.get();
        setUp.setUp.constantBlock = constant.get();
        layout.instructions.push_back(setUp);
        layout.attrInfos.push_back(std::move(infos));
        layout.multiInfos.emplace_back();
        layout.initLists.push_back(std::move(initList));
        layout.constants.push_back(std::move(constant));
    }

    TSEdescriptorHalf blockValue(const Tattribute& a) {
        TSEdescriptorHalf h;
        h.block = 0;
        h.attribute = &a;
        h.attributeIndex = a.index();
        h.varying = 1;
        return h;
    }
    TSEdescriptorHalf field(unsigned number) {
        TSEdescriptorHalf h;
        h.mode = kDataSampleField;
        h.block = number;
        h.attribute = &TdnReverse::aOutput;
        return h;
    }
    void copy(TSEdescriptorHalf from, TSEdescriptorHalf to, bool fromStack) {
        TSEconnectionDescriptor& d = layout.descriptors.emplace_back();
        d.source = from;
        d.destination = to;
        TSEinstruction in;
        in.opcode = fromStack ? kOpCopyFromStack : kOpCopy;
        in.copy.descriptor = &d;
        in.copy.function = OrvoCopyFunction(*to.attribute, *to.attribute);
        in.copy.stack = 0;
        layout.instructions.push_back(in);
    }
    void stackOp(TSEopcode op, const char* key, const void* pointer, uint32_t capacity = 2) {
        TSEinstruction in;
        in.opcode = op;
        in.stack.stack = 0;
        in.stack.capacity = capacity;
        std::memset(in.stack.key, 0, sizeof in.stack.key);
        std::memcpy(in.stack.key, key, std::strlen(key));
        in.stack.pointer = pointer;
        layout.instructions.push_back(in);
    }
    void compute() {
        TSEinstruction in;
        in.opcode = kOpCompute;
        in.compute.node = node;
        in.compute.plug = &layout.plugs.emplace_back(node, &TdnReverse::aOutput);
        in.compute.block = 0;
        layout.instructions.push_back(in);
    }
    // Two samples with slots for outColor and outTransparency.
    void shade(TshadingOpus& opus) {
        offsets[TsampleFields::outColor] = 40;
        offsets[TsampleFields::outTransparency] = 52;
        offsets[64] = 64;
        for (int s = 0; s < 2; ++s) {
            samples[s] = reinterpret_cast<Tsample*>(storage[s]);
            samples[s]->initialize(nullptr, nullptr, offsets);
        }
        opus.shade(2, samples);
    }

    TdependGraph graph;
    TdependNode* node = nullptr;
    TSEopusLayout layout;
    AttrInfo* infoTable = nullptr;
    unsigned offsets[65] = {};
    alignas(16) std::byte storage[2][64] = {};
    Tsample* samples[2] = {};
};

TEST_F(HandWrittenOpus, FieldStacksPushPopAndFeedCopies) {
    const T3Float outer{0.25f, 0.5f, 0.75f}, inner{1.0f, 2.0f, 3.0f};
    layout.fieldStackBytes = 8 + 24 * 2 + 24;
    stackOp(kOpResetStack, "outer", &outer);
    stackOp(kOpPushField, "inner", &inner);
    copy({}, blockValue(TdnReverse::aInput), true);
    compute();
    copy(blockValue(TdnReverse::aOutput), field(TsampleFields::outColor), false);
    stackOp(kOpPopField, "inner", &inner);
    copy({}, blockValue(TdnReverse::aInput), true);
    compute();
    copy(blockValue(TdnReverse::aOutput), field(TsampleFields::outTransparency), false);
    layout.segments = {0, uint32_t(layout.instructions.size())};
    layout.segmentOutputs.resize(2);

    TshadingOpus opus(node, 0);
    opus.initialize(std::move(layout), TbitField64(), offsets);
    shade(opus);
    // With "inner" on top the input is (1, 2, 3); after the pop it is outer's.
    EXPECT_EQ(samples[1]->outColor()->y, -1.0f);
    EXPECT_EQ(samples[1]->outTransparency()->x, 0.75f);
    EXPECT_EQ(samples[0]->outTransparency()->z, 0.25f);
}

TEST_F(HandWrittenOpus, AFullStackCountsRepeatsOnItsTop) {
    const T3Float a{0.5f, 0.5f, 0.5f}, b{0.0f, 0.0f, 0.0f};
    layout.fieldStackBytes = 8 + 24 * 1 + 24;
    stackOp(kOpResetStack, "a", &a, 1);
    stackOp(kOpPushField, "b", &b, 1); // room for one more: b on top
    stackOp(kOpPushField, "a", &a, 1); // full: b's repeat count takes it
    stackOp(kOpPopField, "a", &a, 1);  // undoes the repeat: b still on top
    copy({}, blockValue(TdnReverse::aInput), true);
    compute();
    copy(blockValue(TdnReverse::aOutput), field(TsampleFields::outColor), false);
    layout.segments = {0, uint32_t(layout.instructions.size())};
    layout.segmentOutputs.resize(2);

    TshadingOpus opus(node, 0);
    opus.initialize(std::move(layout), TbitField64(), offsets);
    shade(opus);
    EXPECT_EQ(samples[0]->outColor()->x, 1.0f); // 1 - b
}

TEST(CopyFunctions, ConvertElementWiseBetweenNumericClasses) {
    TattributeFloat f("f", "f");
    TattributeInt16 i("i", "i");
    TattributeBoolean b("b", "b");
    TattributeDouble d("d", "d");
    float from = 2.6f;
    int16_t to = 0;
    OrvoCopyFunction(f, i)(&from, &to, &f, &i);
    EXPECT_EQ(to, 3); // rounded, not truncated
    bool flag = false;
    OrvoCopyFunction(f, b)(&from, &flag, &f, &b);
    EXPECT_TRUE(flag);
    double wide = 0;
    OrvoCopyFunction(f, d)(&from, &wide, &f, &d);
    EXPECT_EQ(wide, double(2.6f));
    EXPECT_EQ(OrvoCopyClassCode(f), 1);
    EXPECT_EQ(OrvoCopyClassCode(d), 0);
    TattributeMessage m("m", "m");
    EXPECT_EQ(OrvoCopyClassCode(m), -1);
}

TEST(CopyFunctions, ExactCopiesKnowTheirBytes) {
    TattributeFloat f("f", "f");
    TattributeDouble d("d", "d");
    Tattribute3Float c("c", "c");
    TattributeAddr a("a", "a");
    // One class on both sides: the class's bytes, 4 and 12.
    EXPECT_EQ(OrvoCopyBytes(f, f), 4u);
    EXPECT_EQ(OrvoCopyBytes(c, c), 12u);
    // A conversion has no byte count: the function runs.
    EXPECT_EQ(OrvoCopyBytes(f, d), 0u);
    EXPECT_EQ(OrvoCopyBytes(a, f), 0u);
    // An address outside the table of classes is copied exactly: 8 bytes.
    EXPECT_EQ(OrvoCopyBytes(a, a), 8u);
}

} // namespace
