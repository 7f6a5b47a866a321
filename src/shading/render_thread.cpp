#include "shading/render_thread.h"

#include <algorithm>
#include <functional>
#include <new>

#include "cache/render_cache.h"
#include "host/arena.h"
#include "shading/ray_sampler.h"
#include "shading/sample_manager.h"
#include "shading/shading_engine.h"

namespace {

std::vector<TDNshadingEngine*>& engines() {
    static std::vector<TDNshadingEngine*> initialized;
    return initialized;
}

long currentThreadId() {
    return long(std::hash<std::thread::id>{}(std::this_thread::get_id()) & 0x7fffffff);
}

// Forwards to the thread's arena; freeing is a no-op, arena memory goes
// with the arena.
class ThreadAllocator final : public Tallocator {
public:
    explicit ThreadAllocator(TrenderThreadBase& thread) : fThread(thread) {}
    void* allocate(size_t size) override { return fThread.allocate(size); }
    void deallocate(void*) override {}

private:
    TrenderThreadBase& fThread;
};

thread_local TframeConstants* tCurrentFrame = nullptr;

} // namespace

// ---------------------------------------------------------------- frame

TframeConstants* TframeConstants::current() {
    return tCurrentFrame;
}

TframeConstants::Scope::Scope(TframeConstants* frame) : fPrevious(tCurrentFrame) {
    if (frame)
        tCurrentFrame = frame;
}

TframeConstants::Scope::~Scope() {
    tCurrentFrame = fPrevious;
}

int OrvoRenderPass() {
    const TframeConstants* frame = tCurrentFrame;
    return frame ? frame->renderPass() : currentRenderPassControl;
}

bool OrvoRayTracingEnabled() {
    const TframeConstants* frame = tCurrentFrame;
    return !frame || frame->rayTracing();
}

// ---------------------------------------------------------------- thread

TrenderThreadBase::TrenderThreadBase() : fThreadId(currentThreadId()) {}

TrenderThreadBase::TrenderThreadBase(TframeConstants& frame)
    : fFrame(&frame), fThreadId(currentThreadId()) {}

TrenderThreadBase::TrenderThreadBase(const TrenderThreadBase& other)
    : fFrame(other.fFrame), fRenderFrame(other.fRenderFrame), fTile(other.fTile),
      fThreadIndex(other.fThreadIndex), fThreadId(currentThreadId()) {}

TrenderThreadBase::~TrenderThreadBase() {
    destroyContents();
}

TrenderCache* TrenderThreadBase::cache() const {
    TrenderCache* frameCache = fFrame ? fFrame->renderCache() : nullptr;
    return frameCache ? frameCache : theGlobalRenderCache();
}

void TrenderThreadBase::ensureArena() {
    if (fArena)
        return;
    Tallocator& parent = cache() ? cache()->asArenaAllocator() : theMallocAllocator();
    fArena = new (std::nothrow) TvariantArena(parent, 0x10000, 0xFFFFFFFFu, "Render Thread");
}

TvariantArena* TrenderThreadBase::arena() {
    ensureArena();
    return fArena;
}

void* TrenderThreadBase::allocate(size_t size) {
    ensureArena();
    return fArena ? fArena->allocate(size) : nullptr;
}

Tallocator& TrenderThreadBase::asArenaAllocator() {
    ensureArena();
    if (!fAllocator)
        fAllocator = new ThreadAllocator(*this);
    return *fAllocator;
}

void TrenderThreadBase::destroyContents() {
    delete fManager;
    fManager = nullptr;
    delete fAllocator;
    fAllocator = nullptr;
    delete fArena;
    fArena = nullptr;
    fThreadId = -1;
}

TsampleManager* TrenderThreadBase::sampleManager() {
    if (!fManager) {
        ensureArena();
        fManager = new (std::nothrow)
            TsampleManager(*this, fRenderFrame ? fRenderFrame->deepRaster() : nullptr);
    }
    return fManager;
}

TbitField64 TrenderThreadBase::startSampling(TDNshadingEngine* engine, unsigned option,
                                             TrenderGroupBase* group,
                                             const TgeoManagerBase* geometry,
                                             const unsigned* offsets) {
    TframeSampleData* frame = fFrame ? fFrame->frameSampleData() : nullptr;
    TsampleManager* manager = sampleManager();
    if (!manager)
        return TbitField64();
    return manager->startSampling(engine, option, group, frame, geometry, offsets);
}

void TrenderThreadBase::endSampling(TDNshadingEngine* engine, unsigned option,
                                    TrenderGroupBase* group) {
    if (fManager)
        fManager->endSampling(engine, option, group);
}

const std::vector<TDNshadingEngine*>& TrenderThreadBase::initializedEngines() {
    return engines();
}

bool TrenderThreadBase::initShadingGroup(TDNshadingEngine* engine) {
    ensureArena();
    auto& list = engines();
    const auto at = std::lower_bound(list.begin(), list.end(), engine);
    if (at != list.end() && *at == engine)
        return false;
    list.insert(at, engine);
    engine->initializeConnected(fFrame ? fFrame->frameSampleData() : nullptr, nullptr);
    return true;
}

bool TrenderThreadBase::refInitShadingGroup(TDNshadingEngine* engine) {
    engine->incrementReferenceCount();
    return initShadingGroup(engine);
}

bool TrenderThreadBase::resetShadingGroup(TDNshadingEngine* engine) {
    auto& list = engines();
    const auto at = std::lower_bound(list.begin(), list.end(), engine);
    if (at == list.end() || *at != engine)
        return false;
    list.erase(at);
    engine->resetShadingEngine();
    return true;
}

bool TrenderThreadBase::refResetShadingGroup(TDNshadingEngine* engine) {
    if (engine->referenceCountingEnabled() && engine->decrementReferenceCount() != 0)
        return false;
    return resetShadingGroup(engine);
}

void TrenderThreadBase::resetShadingGroups() {
    auto& list = engines();
    while (!list.empty()) {
        TDNshadingEngine* engine = list.back();
        list.pop_back();
        engine->resetShadingEngine();
    }
    deleteAllOpuses();
}
