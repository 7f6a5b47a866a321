#include <gtest/gtest.h>

#include <cstring>

#include "host/attribute.h"
#include "host/datablock.h"

namespace {

TEST(MultiBuilder, StrideLeavesRoomForTheIndexAndAligns) {
    TattributeFloat f("f", "f");
    EXPECT_EQ(TmultiBuilder::valueOffset(f), 4u);
    EXPECT_EQ(TmultiBuilder::calcStride(f), 8u); // index + float
    TattributeDouble d("d", "d");
    EXPECT_EQ(TmultiBuilder::valueOffset(d), 8u);
    EXPECT_EQ(TmultiBuilder::calcStride(d), 16u); // index, pad to 8, double
    TattributeLightData light("l", "l");
    EXPECT_EQ(TmultiBuilder::calcStride(light), 56u); // 8 + 48
    EXPECT_EQ(TmultiBuilder::computeSize(f, 5), 40u);
}

class MultiHandleTest : public ::testing::Test {
protected:
    void SetUp() override {
        array.setNativeDefaultData(-1.0f);
        header = TmultiHeader();
    }
    void TearDown() override { TmultiHandle::release(header, array); }

    TmultiHandle open() { return TmultiHandle(TdataHandle(nullptr, &array, &header, 1)); }
    void setElements(std::initializer_list<unsigned> indices) {
        TmultiHandle mh = open();
        TmultiBuilder b = mh.builder();
        for (unsigned i : indices)
            b.addElement(i);
        mh.set(b);
    }

    TattributeArrayOf<TattributeFloat> array{"input1D", "i1"};
    TmultiHeader header;
};

TEST_F(MultiHandleTest, ElementsStaySortedAndKeepTheirValues) {
    setElements({7, 2});
    TmultiHandle mh = open();
    ASSERT_EQ(mh.elementCount(), 2u);
    EXPECT_EQ(mh.elementIndex(), 2u);
    EXPECT_EQ(mh.reference().asFloat(), -1.0f); // new elements take the default
    ASSERT_TRUE(mh.jumpToElement(7));
    mh.reference().as<float>() = 3.5f;

    setElements({4}); // adding keeps what was there
    mh = open();
    ASSERT_EQ(mh.elementCount(), 3u);
    std::vector<unsigned> order;
    for (unsigned i = 0; mh.jumpToArrayElement(i); ++i)
        order.push_back(mh.elementIndex());
    EXPECT_EQ(order, (std::vector<unsigned>{2, 4, 7}));
    ASSERT_TRUE(mh.jumpToElement(7));
    EXPECT_EQ(mh.reference().asFloat(), 3.5f);
    EXPECT_FALSE(mh.jumpToElement(5));

    EXPECT_TRUE(mh.removeElement(4));
    EXPECT_FALSE(mh.removeElement(4));
    EXPECT_EQ(open().elementCount(), 2u);
}

TEST_F(MultiHandleTest, ValueAllWalksElementsByStride) {
    setElements({0, 1, 2});
    TmultiHandle mh = open();
    for (unsigned i = 0; mh.jumpToArrayElement(i); ++i)
        mh.reference().as<float>() = float(i * 10);
    const TvectorDataHandle run = mh.valueAll(array, 1, 3);
    EXPECT_EQ(run.stride(), 8u);
    EXPECT_EQ(run[0].asFloat(), 10.0f);
    EXPECT_EQ(run[1].asFloat(), 20.0f);
    EXPECT_TRUE(mh.valueAll(array, 3, 5).isNull());
}

TEST(VectorDataHandle, ConstantValuesHaveStrideZero) {
    TattributeFloat f("f", "f");
    float value = 2.0f;
    const TvectorDataHandle constant(TdataHandle(nullptr, &f, &value));
    EXPECT_TRUE(constant.isConstant());
    EXPECT_EQ(constant[0].address(), constant[99].address());

    float run[4] = {1, 2, 3, 4};
    const TvectorDataHandle varying(TdataHandle(nullptr, &f, run), sizeof(float));
    EXPECT_EQ(varying[3].asFloat(), 4.0f);
    varying[1].set(9.0f);
    EXPECT_EQ(run[1], 9.0f);
}

} // namespace
