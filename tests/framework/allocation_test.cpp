#include <gtest/gtest.h>

#include <OpenImageIO/imageio.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "framework/allocation_count.h"
#include "framework/nodes/utility/reverse.h"
#include "host/graph.h"
#include "host/qsl/interpreter.h"
#include "shading/shading_engine.h"
#include "support/temp_folder.h"
#include <sstream>

// Counts heap allocations made by this thread while counting is on: the
// value paths of a data block must make none. Sanitizer runtimes bring their
// own allocator, which a replacement here would fight, so the count runs in
// the ordinary build only.
#ifndef ORVO_SANITIZED
#define ORVO_COUNT_ALLOCATIONS 1
#endif

namespace {
thread_local bool tCounting = false;
thread_local long tAllocations = 0;
} // namespace

#ifdef ORVO_COUNT_ALLOCATIONS
// The replacements pair malloc with free; GCC sees new and free after inlining.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
void* operator new(std::size_t size) {
    if (tCounting)
        ++tAllocations;
    if (void* p = std::malloc(size ? size : 1))
        return p;
    throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    if (tCounting)
        ++tAllocations;
    return std::malloc(size ? size : 1);
}
void* operator new[](std::size_t size) {
    return operator new(size);
}
void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept {
    return operator new(size, tag);
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}
void operator delete[](void* p) noexcept {
    std::free(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    std::free(p);
}
void operator delete(void* p, const std::nothrow_t&) noexcept {
    std::free(p);
}
void operator delete[](void* p, const std::nothrow_t&) noexcept {
    std::free(p);
}
#endif

bool OrvoTestAllocationsAreCounted() {
#ifdef ORVO_COUNT_ALLOCATIONS
    return true;
#else
    return false;
#endif
}

void OrvoTestStartCountingAllocations() {
    tAllocations = 0;
    tCounting = true;
}

long OrvoTestStopCountingAllocations() {
    tCounting = false;
    return tAllocations;
}

namespace {

// 64 samples of a shading group's option 0, u across and v = 0.5.
struct ShadeBatch {
    std::vector<uint64_t> storage;
    std::vector<Tsample*> samples;

    explicit ShadeBatch(TDNshadingEngine& engine) {
        const unsigned size = engine.sampleSize(0);
        storage.resize(size_t(size) * 64 / 8 + 1);
        for (unsigned i = 0; i < 64; ++i) {
            auto* s = reinterpret_cast<Tsample*>(reinterpret_cast<std::byte*>(storage.data()) +
                                                 size_t(i) * size);
            s->initialize(nullptr, nullptr, engine.fieldOffsetTable(0));
            s->setUvCoord(float(i) / 64.0f, 0.5f);
            samples.push_back(s);
        }
    }

    // Heap allocations of five more shades of the batch, after a first
    // that does the work a render does once (on-demand set-up, files).
    long allocationsOfFiveShades(TshadingOpus& opus) {
        opus.shade(64, samples.data());
        tAllocations = 0;
        tCounting = true;
        for (int pass = 0; pass < 5; ++pass)
            opus.shade(64, samples.data());
        tCounting = false;
        return tAllocations;
    }
};

// Shading group sg of a scene given as text, analysed for option 0.
TDNshadingEngine* analysedGroup(TdependGraph& graph, const std::string& scene) {
    std::ostringstream out;
    qsl::Interpreter(graph, out).runText(scene, "scene.qsl");
    auto* engine = dynamic_cast<TDNshadingEngine*>(graph.findNode("sg"));
    return engine && engine->analyse(0, nullptr) ? engine : nullptr;
}

TEST(DataBlockAllocation, VectorAccessAndComputeAllocateNothing) {
#ifndef ORVO_COUNT_ALLOCATIONS
    GTEST_SKIP() << "allocations are counted in the ordinary build";
#endif
    TdependGraph graph;
    TdependNode* node = graph.createNode("reverse", "r");
    TordinaryDataBlock block(node, 64);
    const Tplug output(node, &TdnReverse::aOutput);
    node->vectorComputePlug(output, block, 0, 64); // warm up

    tAllocations = 0;
    tCounting = true;
    float sum = 0.0f;
    for (int pass = 0; pass < 10; ++pass) {
        const TvectorDataHandle in = block.vectorInputValue(TdnReverse::aInput, 0, 64);
        const TvectorDataHandle out = block.vectorOutputValue(TdnReverse::aOutput, 0);
        for (int i = 0; i < 64; ++i)
            sum += in[i].asFloat3()[0] + out[i].asFloat3()[1];
        node->vectorComputePlug(output, block, 0, 64);
    }
    tCounting = false;
    EXPECT_EQ(tAllocations, 0);
    EXPECT_EQ(sum, 640.0f); // outputs are 1 - 0 = 1 in every element
}

TEST(DataBlockAllocation, ShadeAllocatesNothing) {
#ifndef ORVO_COUNT_ALLOCATIONS
    GTEST_SKIP() << "allocations are counted in the ordinary build";
#endif
    TdependGraph graph;
    TDNshadingEngine* engine =
        analysedGroup(graph, "node testUvColor shared\nnode reverse a\nnode reverse b\n"
                             "node testUvColor top\nnode shadingEngine sg\n"
                             "connect shared.outColor a.input\nconnect shared.outColor b.input\n"
                             "connect a.outputX top.gain\nconnect b.output top.transparency\n"
                             "connect top.outColor sg.surfaceShader\n");
    ASSERT_NE(engine, nullptr);
    ShadeBatch batch(*engine);
    std::vector<Tsample*>& samples = batch.samples;
    TshadingOpus* opus = engine->controlBlock(0);
    EXPECT_EQ(batch.allocationsOfFiveShades(*opus), 0);
    EXPECT_EQ(samples[32]->outColor()->z, 0.5f); // gain = 1 - shared.u = 1 - 0.5
    TrenderThreadBase::deleteAllOpuses();
}

// The placement and the checker shade a batch through their run kernels
// (their settings are the same for every sample): the arrays they gather
// into live on the stack.
TEST(DataBlockAllocation, ShadeThroughRunKernelsAllocatesNothing) {
#ifndef ORVO_COUNT_ALLOCATIONS
    GTEST_SKIP() << "allocations are counted in the ordinary build";
#endif
    TdependGraph graph;
    TDNshadingEngine* engine =
        analysedGroup(graph, "node place2dTexture p\nset p.repeatUV 4 4\nnode checker c\n"
                             "connect p.outUV c.uvCoord\nconnect p.outUvFilterSize c.uvFilterSize\n"
                             "node lambert l\nconnect c.outColor l.color\n"
                             "node shadingEngine sg\nconnect l.outColor sg.surfaceShader\n");
    ASSERT_NE(engine, nullptr);
    ShadeBatch batch(*engine);
    TshadingOpus* opus = engine->controlBlock(0);
    EXPECT_EQ(batch.allocationsOfFiveShades(*opus), 0);
    TrenderThreadBase::deleteAllOpuses();
}

// A file texture read from memory with the default filter, feeding the
// gain of one read from a BOT file through the block cache: once the first
// batch has loaded the files, shading allocates nothing.
TEST(DataBlockAllocation, ShadeWithFileTexturesAllocatesNothing) {
#ifndef ORVO_COUNT_ALLOCATIONS
    GTEST_SKIP() << "allocations are counted in the ordinary build";
#endif
    TempFolder dir;
    const std::string png = dir.file("grey.png");
    {
        auto image = OIIO::ImageOutput::create(png);
        ASSERT_TRUE(image && image->open(png, OIIO::ImageSpec(8, 8, 3, OIIO::TypeDesc::UINT8)));
        const std::vector<uint8_t> pixels(8 * 8 * 3, 255);
        ASSERT_TRUE(image->write_image(OIIO::TypeDesc::UINT8, pixels.data()));
        image->close();
    }
    TdependGraph graph;
    TDNshadingEngine* engine = analysedGroup(
        graph, "node file a\nnode file b\nnode shadingEngine sg\n"
               "set a.fileTextureName \"" +
                   png +
                   "\"\nset a.useCache true\n"
                   "set b.fileTextureName \"" +
                   png +
                   "\"\nset b.filterType \"Box\"\n"
                   "connect a.outColor b.colorGain\nconnect b.outColor sg.surfaceShader\n");
    ASSERT_NE(engine, nullptr);
    ShadeBatch batch(*engine);
    std::vector<Tsample*>& samples = batch.samples;
    TshadingOpus* opus = engine->controlBlock(0);
    EXPECT_EQ(batch.allocationsOfFiveShades(*opus), 0);
    // White everywhere: 1 * gain 1.
    EXPECT_FLOAT_EQ(samples[17]->outColor()->x, 1.0f);
    TrenderThreadBase::deleteAllOpuses();
}

TEST(DataBlockRuns, ARunOfNEqualsNRunsOfOne) {
    TdependGraph graph;
    TdependNode* node = graph.createNode("reverse", "r");
    const unsigned n = 37;
    TordinaryDataBlock run(node, n), single(node, n);
    for (unsigned i = 0; i < n; ++i) {
        const float v[3] = {float(i) * 0.5f, -float(i), 1.0f / float(i + 1)};
        std::memcpy(run.valueAddress(TdnReverse::aInput, i), v, sizeof v);
        std::memcpy(single.valueAddress(TdnReverse::aInput, i), v, sizeof v);
    }
    const Tplug output(node, &TdnReverse::aOutput);
    node->vectorComputePlug(output, run, 0, n);
    for (unsigned i = 0; i < n; ++i) {
        single.setCurrentIndex(i);
        node->computePlug(output, single);
    }
    for (unsigned i = 0; i < n; ++i)
        EXPECT_EQ(std::memcmp(run.valueAddress(TdnReverse::aOutput, i),
                              single.valueAddress(TdnReverse::aOutput, i), 12),
                  0)
            << "element " << i;
    const float* last = static_cast<float*>(run.valueAddress(TdnReverse::aOutput, n - 1));
    EXPECT_EQ(last[0], 1.0f - 18.0f);
}

} // namespace
