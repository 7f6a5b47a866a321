#pragma once

// The sample manager of a render thread: it hands out samples with the
// layout of a compiled option, collects dispatched samples into batches by
// render group and opus, and shades a batch as soon as it is full.

#include <cstdint>

#include "host/types.h"
#include "shading/render_thread.h"
#include "shading/sample.h"

class TfixedArena;
class TshadingOpus;

// The samples of one (render group, opus): a record with the pointer array
// behind it, and an arena of the samples, 64 a chunk.
class TsampleBatch {
public:
    void* renderGroup() const { return fGroup; }
    TshadingOpus* opus() const { return fOpus; }
    unsigned count() const { return fCount; }
    unsigned capacity() const { return fCapacity; }
    Tsample** samples() { return fSamples; }

private:
    friend class TsampleManager;
    TrenderGroupBase* fGroup = nullptr;
    TshadingOpus* fOpus = nullptr;
    TsampleBatch* fBucketNext = nullptr;
    TsampleBatch* fBucketPrev = nullptr;
    TsampleBatch* fListNext = nullptr;
    unsigned fCount = 0;
    unsigned fCapacity = 0;
    unsigned fOption = 0;
    unsigned fSampleSize = 0;
    TrenderGroupBase::Completion fCompletion = nullptr;
    void* fCompletionData = nullptr;
    TfixedArena* fArena = nullptr;
    Tsample** fSamples = nullptr; // behind the record
};

class TsampleManager {
public:
    static constexpr unsigned kBatchSize = 64;
    static constexpr unsigned kBucketCount = 128;

    TsampleManager(TrenderThreadBase& thread, TbaseDeepRaster* raster);
    ~TsampleManager();
    TsampleManager(const TsampleManager&) = delete;
    TsampleManager& operator=(const TsampleManager&) = delete;

    TrenderThreadBase& renderThread() const { return fThread; }
    unsigned batchSize() const { return kBatchSize; }
    unsigned pending() const { return fPending; }

    // Compiles the option if needed; the fields the network can deliver.
    TbitField64 startSampling(TDNshadingEngine* engine, unsigned option, TrenderGroupBase* group,
                              TframeSampleData* frame, const TgeoManagerBase* geometry,
                              const unsigned* offsets);
    // Fills `samples` with fresh samples of the option's layout.
    unsigned allocateSamples(TDNshadingEngine* engine, unsigned option, TrenderGroupBase* group,
                             unsigned count, Tsample** samples, const unsigned* offsets = nullptr);
    // Re-initialises the samples in place when the first is not null,
    // otherwise allocates them all.
    unsigned reuseSamples(TDNshadingEngine* engine, unsigned option, TrenderGroupBase* group,
                          unsigned count, Tsample** samples, const unsigned* offsets = nullptr);
    // Hands samples to their batches; a batch that fills up runs at once.
    unsigned dispatchSamples(unsigned count, Tsample** samples);
    // Runs every batch with samples in it.
    unsigned flushDispatchedSamples();
    void releaseSamples(unsigned count, Tsample** samples);
    void releaseSamples(TsampleArray& samples);
    void endSampling(TDNshadingEngine* engine, unsigned option, TrenderGroupBase* group);

    // Diagnosis: managers and batches alive in the process.
    static unsigned managerCount();
    static unsigned batchCount();

private:
    void setLastBatch(TDNshadingEngine* engine, unsigned option, TrenderGroupBase* group,
                      const unsigned* offsets);
    TsampleBatch* findBatch(TrenderGroupBase* group, TshadingOpus* opus) const;
    unsigned bucketOf(const TshadingOpus* opus, const TrenderGroupBase* group) const;
    void runBatch(TsampleBatch& batch);
    void destroyBatch(TsampleBatch* batch);

    TrenderThreadBase& fThread;
    TsampleBatch* fBuckets[kBucketCount] = {};
    TsampleBatch* fBatches = nullptr;
    TsampleBatch* fLastBatchCache = nullptr;
    TbaseDeepRaster* fRaster;
    unsigned fPending = 0;
};
