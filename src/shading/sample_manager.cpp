#include "shading/sample_manager.h"

#include <atomic>
#include <cstdio>
#include <new>

#include "host/arena.h"
#include "shading/shading_engine.h"

namespace {
std::atomic<unsigned> gManagers{0};
std::atomic<unsigned> gBatches{0};
} // namespace

TsampleManager::TsampleManager(TrenderThreadBase& thread, TbaseDeepRaster* raster)
    : fThread(thread), fRaster(raster) {
    ++gManagers;
}

TsampleManager::~TsampleManager() {
    try {
        flushDispatchedSamples();
    } catch (...) {
        // A destructor cannot pass a node's exception on; the batch is lost.
    }
    while (fBatches) {
        TsampleBatch* b = fBatches;
        fBatches = b->fListNext;
        destroyBatch(b);
    }
    --gManagers;
}

unsigned TsampleManager::managerCount() {
    return gManagers.load();
}
unsigned TsampleManager::batchCount() {
    return gBatches.load();
}

unsigned TsampleManager::bucketOf(const TshadingOpus* opus, const TrenderGroupBase* group) const {
    const uint32_t sum = uint32_t(reinterpret_cast<uintptr_t>(opus) >> 3) +
                         uint32_t(reinterpret_cast<uintptr_t>(group) >> 3);
    return sum % kBucketCount;
}

TsampleBatch* TsampleManager::findBatch(TrenderGroupBase* group, TshadingOpus* opus) const {
    if (fLastBatchCache && fLastBatchCache->fGroup == group && fLastBatchCache->fOpus == opus)
        return fLastBatchCache;
    for (TsampleBatch* b = fBuckets[bucketOf(opus, group)]; b; b = b->fBucketNext)
        if (b->fGroup == group && b->fOpus == opus)
            return b;
    return nullptr;
}

TbitField64 TsampleManager::startSampling(TDNshadingEngine* engine, unsigned option,
                                          TrenderGroupBase* group, TframeSampleData* frame,
                                          const TgeoManagerBase* geometry,
                                          const unsigned* offsets) {
    TbitField64 provided;
    const TframeConstants::Scope current(fThread.frameConstants());
    engine->analyse(option, &provided, frame, geometry, &fThread);
    if (engine->controlBlock(option))
        setLastBatch(engine, option, group, offsets);
    return provided;
}

void TsampleManager::setLastBatch(TDNshadingEngine* engine, unsigned option,
                                  TrenderGroupBase* group, const unsigned* offsets) {
    TshadingOpus* opus = engine->controlBlock(option);
    if (!opus) {
        fLastBatchCache = nullptr;
        TbitField64 ignored;
        const TgeoManagerBase* geometry = group ? group->geometryManager() : nullptr;
        TframeSampleData* frame =
            fThread.frameConstants() ? fThread.frameConstants()->frameSampleData() : nullptr;
        if (frame) {
            engine->analyse(option, &ignored, frame, geometry, &fThread);
            opus = engine->controlBlock(option);
        }
    }
    if (opus) {
        if (TsampleBatch* found = findBatch(group, opus)) {
            fLastBatchCache = found;
            return;
        }
        // A new batch: the record with its pointer array behind it.
        unsigned size = (engine->sampleSize(option) + 7) & ~7u;
        if (offsets)
            size = (opus->userSampleSize() + (opus->userSampleData() ? 36 : 0) + offsets[64] + 7) &
                   ~7u;
        void* memory = ::operator new(sizeof(TsampleBatch) + sizeof(Tsample*) * kBatchSize);
        auto* batch = new (memory) TsampleBatch();
        batch->fSamples = reinterpret_cast<Tsample**>(batch + 1);
        batch->fGroup = group;
        batch->fOpus = opus;
        batch->fOption = option;
        batch->fCapacity = kBatchSize;
        batch->fSampleSize = size;
        batch->fCompletion = group ? group->completion() : nullptr;
        batch->fCompletionData = group ? group->completionData() : nullptr;
        batch->fArena = new TfixedArena(fThread.asArenaAllocator(), size, kBatchSize);
        TsampleBatch*& head = fBuckets[bucketOf(opus, group)];
        batch->fBucketNext = head;
        if (head)
            head->fBucketPrev = batch;
        head = batch;
        batch->fListNext = fBatches;
        fBatches = batch;
        fLastBatchCache = batch;
        ++gBatches;
    }
    if (!fLastBatchCache) {
        std::fprintf(stderr, "\nTsampleManager::setLastBatch() failed on\n");
        std::fprintf(stderr, "shading group %s:\n", engine->name().c_str());
        std::fprintf(stderr, "Postcondition violated, fLastBatchCache is NULL.\n\n");
    }
}

unsigned TsampleManager::allocateSamples(TDNshadingEngine* engine, unsigned option,
                                         TrenderGroupBase* group, unsigned count, Tsample** samples,
                                         const unsigned* offsets) {
    for (unsigned i = 0; i < count; ++i)
        samples[i] = nullptr;
    return reuseSamples(engine, option, group, count, samples, offsets);
}

unsigned TsampleManager::reuseSamples(TDNshadingEngine* engine, unsigned option,
                                      TrenderGroupBase* group, unsigned count, Tsample** samples,
                                      const unsigned* offsets) {
    setLastBatch(engine, option, group, offsets);
    TsampleBatch* batch = fLastBatchCache;
    if (!batch || count == 0)
        return 0;
    const unsigned* table = offsets ? offsets : engine->fieldOffsetTable(option);
    if (samples[0]) {
        // Already made: only the header is set again; no field is touched.
        for (unsigned i = 0; i < count; ++i)
            if (samples[i])
                samples[i]->initialize(this, batch,
                                       offsets ? offsets : samples[i]->fieldOffsetTable());
        return count;
    }
    for (unsigned i = 0; i < count; ++i) {
        void* memory = batch->fArena->allocate();
        if (!memory)
            return i;
        samples[i] = static_cast<Tsample*>(memory);
        samples[i]->initialize(this, batch, table);
    }
    return count;
}

void TsampleManager::runBatch(TsampleBatch& batch) {
    const unsigned count = batch.fCount;
    if (count == 0)
        return;
    if (batch.fGroup) {
        const bool receive = batch.fGroup->receiveShadows();
        for (unsigned i = 0; i < count; ++i)
            batch.fSamples[i]->setReceiveShadows(receive);
    }
    batch.fCount = 0; // a node's exception leaves the batch empty, not half run
    const TframeConstants::Scope current(fThread.frameConstants());
    batch.fOpus->shade(count, batch.fSamples);
    if (batch.fCompletion)
        batch.fCompletion(batch.fOption, batch.fGroup, batch.fSamples, count,
                          batch.fCompletionData);
}

unsigned TsampleManager::dispatchSamples(unsigned count, Tsample** samples) {
    for (unsigned i = 0; i < count; ++i) {
        Tsample* sample = samples[i];
        TsampleBatch* batch = sample->batch();
        if (!batch)
            continue;
        ++fPending;
        sample->setDispatched();
        batch->fSamples[batch->fCount++] = sample;
        if (batch->fCount == batch->fCapacity) {
            const unsigned done = batch->fCount;
            try {
                runBatch(*batch);
            } catch (...) {
                fPending = 0;
                throw;
            }
            fPending -= done;
        }
    }
    return 0;
}

unsigned TsampleManager::flushDispatchedSamples() {
    try {
        while (fPending != 0) {
            bool ran = false;
            for (TsampleBatch* b = fBatches; b; b = b->fListNext) {
                if (b->fCount == 0)
                    continue;
                const unsigned done = b->fCount;
                runBatch(*b);
                fPending -= std::min(fPending, done);
                ran = true;
            }
            if (!ran)
                fPending = 0; // nothing left to run: the count was stale
        }
    } catch (...) {
        fPending = 0;
        throw;
    }
    return 0;
}

void TsampleManager::releaseSamples(unsigned count, Tsample** samples) {
    for (unsigned i = 0; i < count; ++i) {
        if (!samples[i])
            continue;
        if (TsampleBatch* batch = samples[i]->batch())
            batch->fArena->deallocate(samples[i]);
        samples[i] = nullptr;
    }
}

void TsampleManager::releaseSamples(TsampleArray& samples) {
    releaseSamples(unsigned(samples.size()), samples.data());
}

void TsampleManager::destroyBatch(TsampleBatch* batch) {
    delete batch->fArena;
    batch->~TsampleBatch();
    ::operator delete(batch);
    --gBatches;
}

void TsampleManager::endSampling(TDNshadingEngine* engine, unsigned option,
                                 TrenderGroupBase* group) {
    TshadingOpus* opus = engine->controlBlock(option);
    if (!opus)
        return;
    if (TsampleBatch* batch = findBatch(group, opus)) {
        TsampleBatch*& head = fBuckets[bucketOf(opus, group)];
        if (batch->fBucketPrev)
            batch->fBucketPrev->fBucketNext = batch->fBucketNext;
        else
            head = batch->fBucketNext;
        if (batch->fBucketNext)
            batch->fBucketNext->fBucketPrev = batch->fBucketPrev;
        for (TsampleBatch** link = &fBatches; *link; link = &(*link)->fListNext)
            if (*link == batch) {
                *link = batch->fListNext;
                break;
            }
        fPending -= std::min(fPending, batch->fCount);
        destroyBatch(batch);
    }
    fLastBatchCache = nullptr;
    TrenderThreadBase::deleteOpus(engine, option, false);
}
