#include <gtest/gtest.h>

#include <sstream>
#include <thread>
#include <vector>

#include "host/arena.h"
#include "host/graph.h"
#include "host/qsl/interpreter.h"
#include "shading/sample_manager.h"
#include "shading/shading_engine.h"
#include "test_nodes.h"

namespace {

// A renderer's group that records what comes back.
class RecordingGroup : public TrenderGroupBase {
public:
    Completion completion() const override { return &RecordingGroup::done; }
    void* completionData() const override { return const_cast<RecordingGroup*>(this); }
    bool receiveShadows() const override { return false; }

    std::vector<unsigned> batches; // sizes of the batches handed back
    std::vector<float> red;        // outColor.x in the order samples came back

private:
    static void done(unsigned, TrenderGroupBase*, Tsample** samples, unsigned count, void* user) {
        auto* self = static_cast<RecordingGroup*>(user);
        self->batches.push_back(count);
        for (unsigned i = 0; i < count; ++i)
            self->red.push_back(samples[i]->outColor()->x);
    }
};

class SampleManagerTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::ostringstream out;
        qsl::Interpreter(graph, out)
            .runText("node testUvColor uv\nnode shadingEngine sg\n"
                     "connect uv.outColor sg.surfaceShader\n",
                     "scene.qsl");
        engine = dynamic_cast<TDNshadingEngine*>(graph.findNode("sg"));
    }
    void TearDown() override { TrenderThreadBase::resetShadingGroups(); }

    std::vector<Tsample*> allocate(TrenderThreadBase& thread, unsigned count) {
        std::vector<Tsample*> samples(count, nullptr);
        thread.sampleManager()->allocateSamples(engine, 0, &group, count, samples.data());
        for (unsigned i = 0; i < count; ++i)
            samples[i]->setUvCoord(float(i), 0.0f);
        return samples;
    }

    TdependGraph graph;
    TDNshadingEngine* engine = nullptr;
    RecordingGroup group;
};

TEST_F(SampleManagerTest, AFullBatchRunsAtOnceAndTheRestAtTheFlush) {
    TrenderThreadBase thread;
    ASSERT_TRUE(thread.initShadingGroup(engine));
    EXPECT_FALSE(thread.initShadingGroup(engine)); // once
    const TbitField64 provided = thread.startSampling(engine, 0, &group);
    EXPECT_TRUE(provided.test(TsampleFields::outColor));
    TsampleManager& manager = *thread.sampleManager();

    std::vector<Tsample*> samples = allocate(thread, 127);
    manager.dispatchSamples(63, samples.data());
    EXPECT_TRUE(group.batches.empty()); // 63: nothing runs yet
    EXPECT_EQ(manager.pending(), 63u);
    manager.dispatchSamples(1, samples.data() + 63);
    ASSERT_EQ(group.batches.size(), 1u); // the 64th runs the batch
    EXPECT_EQ(group.batches[0], 64u);
    EXPECT_EQ(manager.pending(), 0u);
    manager.dispatchSamples(63, samples.data() + 64);
    manager.flushDispatchedSamples();
    ASSERT_EQ(group.batches.size(), 2u);
    EXPECT_EQ(group.batches[1], 63u);
    ASSERT_EQ(group.red.size(), 127u);
    EXPECT_EQ(group.red[100], 100.0f); // outColor.x is the sample's u
    // Dispatch wrote the group into objectId (every option has its slot);
    // the group's shadow flag was set, though this option has no slot for it.
    EXPECT_EQ(*samples[5]->objectId(), static_cast<void*>(&group));
    EXPECT_TRUE(samples[5]->isSet(TsampleFields::receiveShadows));
    EXPECT_TRUE(*samples[5]->receiveShadows()); // the default
    manager.releaseSamples(127, samples.data());
    thread.endSampling(engine, 0, &group);
}

TEST_F(SampleManagerTest, ReuseAllocatesOnlyWhenTheFirstEntryIsNull) {
    TrenderThreadBase thread;
    thread.initShadingGroup(engine);
    thread.startSampling(engine, 0, &group);
    TsampleManager& manager = *thread.sampleManager();
    std::vector<Tsample*> samples = allocate(thread, 4);
    const std::vector<Tsample*> first = samples;
    samples[0]->setOutColor(T3Float{1, 1, 1});
    EXPECT_EQ(manager.reuseSamples(engine, 0, &group, 4, samples.data()), 4u);
    EXPECT_EQ(samples, first);                                // the same records ...
    EXPECT_FALSE(samples[0]->isSet(TsampleFields::outColor)); // ... made anew
    std::vector<Tsample*> fresh(4, nullptr);
    manager.reuseSamples(engine, 0, &group, 4, fresh.data());
    for (Tsample* s : fresh)
        EXPECT_EQ(std::count(first.begin(), first.end(), s), 0);
    thread.endSampling(engine, 0, &group);
}

TEST_F(SampleManagerTest, TwoThreadsShareTheOpusThroughTheTable) {
    TrenderThreadBase prototype;
    prototype.initShadingGroup(engine);
    TrenderThreadBase worker(prototype); // a copy: its own manager and arena
    prototype.startSampling(engine, 0, &group);
    worker.startSampling(engine, 0, &group);
    EXPECT_EQ(TrenderThreadBase::opusReferences(engine, 0), 2u);
    EXPECT_NE(prototype.sampleManager(), worker.sampleManager());

    // Both shade at once: the opus is read only.
    RecordingGroup groupA, groupB;
    auto work = [&](TrenderThreadBase& thread, RecordingGroup& g) {
        thread.startSampling(engine, 0, &g);
        std::vector<Tsample*> samples(256, nullptr);
        thread.sampleManager()->allocateSamples(engine, 0, &g, 256, samples.data());
        for (unsigned i = 0; i < 256; ++i)
            samples[i]->setUvCoord(float(i) * 0.5f, 1.0f);
        thread.sampleManager()->dispatchSamples(256, samples.data());
        thread.sampleManager()->flushDispatchedSamples();
        thread.endSampling(engine, 0, &g);
    };
    std::thread a([&] { work(prototype, groupA); });
    std::thread b([&] { work(worker, groupB); });
    a.join();
    b.join();
    ASSERT_EQ(groupA.red.size(), 256u);
    EXPECT_EQ(groupB.red[255], 127.5f);
    EXPECT_EQ(TrenderThreadBase::opusReferences(engine, 0), 2u);

    TrenderThreadBase::deleteOpus(engine, 0, false);
    EXPECT_EQ(TrenderThreadBase::opusReferences(engine, 0), 1u);
    TrenderThreadBase::deleteOpus(graph.findNode("uv"), 0, false); // unknown key: nothing
    TrenderThreadBase::deleteOpus(engine, 0, true);
    EXPECT_EQ(TrenderThreadBase::opusReferences(engine, 0), 0u);
    EXPECT_EQ(engine->controlBlock(0), nullptr); // the engine's slot follows
}

TEST(SampleUserData, AUserFieldFollowsThePositionRecord) {
    TdependGraph graph;
    std::ostringstream out;
    qsl::Interpreter(graph, out)
        .runText(
            "node testUserData u\nnode shadingEngine sg\nconnect u.outColor sg.surfaceShader\n",
            "scene.qsl");
    auto* engine = dynamic_cast<TDNshadingEngine*>(graph.findNode("sg"));
    TrenderThreadBase thread;
    thread.initShadingGroup(engine);
    thread.startSampling(engine, 0, nullptr);
    const unsigned* offsets = engine->fieldOffsetTable(0);
    // The fixed fields end where the 36-byte record begins; the 12-byte user
    // field (number 65) follows it; the last entry is the total.
    ASSERT_GT(offsets[64], 0u);
    EXPECT_EQ(offsets[65], offsets[64] + 36);
    EXPECT_EQ(offsets[66], (offsets[65] + 12 + 7) & ~7u);
    EXPECT_EQ(engine->sampleSize(0), offsets[66]);

    Tsample* sample = nullptr;
    thread.sampleManager()->allocateSamples(engine, 0, nullptr, 1, &sample);
    ASSERT_TRUE(sample->hasUserSampleData());
    const T2Float corners[3] = {{0, 1}, {2, 3}, {4, 5}};
    sample->setUserSamplePosition(corners, T2Float{0.5f, 0.25f}, 7);
    T2Float back[3];
    T2Float position;
    int index = 0;
    ASSERT_TRUE(sample->userSamplePosition(back, position, index));
    EXPECT_EQ(back[2].y, 5.0f);
    EXPECT_EQ(position.y, 0.25f);
    EXPECT_EQ(index, 7);
    const float value[3] = {1, 2, 3};
    sample->setUserSampleData(65, sizeof value, value);
    EXPECT_EQ(static_cast<float*>(sample->userSampleSlot(65))[2], 3.0f);
    thread.endSampling(engine, 0, nullptr);
    TrenderThreadBase::resetShadingGroups();
}

// A renderer's group that knows its object and reads the user field back.
class ObjectGroup : public TrenderGroupBase {
public:
    explicit ObjectGroup(int object) : fObject(object) {}
    int objectIndex() const override { return fObject; }
    Completion completion() const override { return &ObjectGroup::done; }
    void* completionData() const override { return const_cast<ObjectGroup*>(this); }
    std::vector<float> user;

private:
    static void done(unsigned, TrenderGroupBase*, Tsample** samples, unsigned count, void* self) {
        for (unsigned i = 0; i < count; ++i)
            static_cast<ObjectGroup*>(self)->user.push_back(
                static_cast<const float*>(samples[i]->userSampleSlot(65))[1]);
    }
    int fObject;
};

TEST(SampleUserData, TheGroupsObjectPicksTheFillObject) {
    TdependGraph graph;
    std::ostringstream out;
    qsl::Interpreter(graph, out)
        .runText(
            "node testUserData u\nnode shadingEngine sg\nconnect u.outColor sg.surfaceShader\n",
            "scene.qsl");
    auto* engine = dynamic_cast<TDNshadingEngine*>(graph.findNode("sg"));
    TrenderThreadBase thread;
    thread.initShadingGroup(engine);
    // The node's fill table has objects 0 (10) and 1 (20); object 5 has
    // none, and takes the default of the source field (pointCamera, 0).
    for (const auto& [object, expected] : {std::pair{1, 20.0f}, {0, 10.0f}, {5, 0.0f}}) {
        ObjectGroup group(object);
        thread.startSampling(engine, 0, &group);
        std::vector<Tsample*> samples(3, nullptr);
        thread.sampleManager()->allocateSamples(engine, 0, &group, 3, samples.data());
        thread.sampleManager()->dispatchSamples(3, samples.data());
        thread.sampleManager()->flushDispatchedSamples();
        thread.endSampling(engine, 0, &group);
        EXPECT_EQ(group.user, std::vector<float>(3, expected)) << "object " << object;
    }
    TrenderThreadBase::resetShadingGroups();
}

TEST_F(SampleManagerTest, ReferenceCountedGroupsResetWithTheLastReference) {
    TrenderThreadBase thread;
    EXPECT_TRUE(thread.refInitShadingGroup(engine));
    EXPECT_FALSE(thread.refInitShadingGroup(engine));
    EXPECT_EQ(engine->referenceCount(), 2u);
    EXPECT_FALSE(TrenderThreadBase::refResetShadingGroup(engine));
    EXPECT_TRUE(TrenderThreadBase::refResetShadingGroup(engine));
    EXPECT_FALSE(engine->isInitialized());

    engine->disableReferenceCounting();
    thread.refInitShadingGroup(engine);
    EXPECT_TRUE(TrenderThreadBase::refResetShadingGroup(engine)); // off: the first call resets
}

} // namespace
