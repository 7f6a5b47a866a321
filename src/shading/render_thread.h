#pragma once

// What render threads share with the shading core. Renderers subclass or
// hold these: the per-thread state through which a thread reaches the
// shading groups, the per-frame constants, the process-wide table of
// compiled opuses (keyed by node and option, so that a light's opus is
// shared by every shading group it lights), and the base classes renderers
// derive their frames, groups and geometry managers from.

#include <cstdint>
#include <thread>
#include <vector>

#include "host/scene/render_pass.h"
#include "host/types.h"

class TdependNode;
class TshadingOpus;
class TDNshadingEngine;
class TsampleManager;
class TvariantArena;
class TstackArena;
class Tallocator;
class TrenderCache;
class TrenderSwap;

// Per-frame data renderers pass through; the shading core only hands it on.
class TframeSampleData {
public:
    virtual ~TframeSampleData() = default;
};

// A renderer's geometry manager: it may ask for sample fields of its own.
class TgeoManagerBase {
public:
    virtual ~TgeoManagerBase() = default;
    virtual uint64_t fieldsWanted() const { return 0; }
};

// A renderer's group of samples (an object): its identity and shadow flag.
class TrenderGroupBase {
public:
    virtual ~TrenderGroupBase() = default;
    virtual unsigned objectId() const { return 0; }
    // The object's position among the members of its shading group (the
    // order of completeGroupedMembers), which picks its row of lights; -1
    // when the renderer doesn't know it, and then every light of the group
    // lights it.
    virtual int objectIndex() const { return -1; }
    virtual const TgeoManagerBase* geometryManager() const { return nullptr; }
    virtual bool receiveShadows() const { return true; }
    // Called with each shaded batch: the option, the group, the samples.
    using Completion = void (*)(unsigned option, TrenderGroupBase* group, class Tsample** samples,
                                unsigned count, void* user);
    virtual Completion completion() const { return nullptr; }
    virtual void* completionData() const { return nullptr; }
};

class TbaseDeepRaster {
public:
    virtual ~TbaseDeepRaster() = default;
};

class TrenderFrameBase {
public:
    virtual ~TrenderFrameBase() = default;
    virtual TbaseDeepRaster* deepRaster() const { return nullptr; }
};

class TrenderCamera;
class TdependNode;

// How a renderer names its objects to the nodes that vary by object (the
// shading switches): the id its samples carry in objectId for the surfaces
// that `node` (a shape) makes, or null when it renders none of them.
class TobjectIdentity {
public:
    virtual ~TobjectIdentity() = default;
    virtual void* objectIdOf(const TdependNode* node) const = 0;
};

// What all render threads of a frame share, read-mostly.
class TframeConstants {
public:
    explicit TframeConstants(TstackArena& frameArena) : fFrameArena(frameArena) {}
    virtual ~TframeConstants() = default;

    TrenderCamera* renderCamera() const { return fCamera; }
    void setRenderCamera(TrenderCamera* camera) { fCamera = camera; }
    TrenderSwap* renderSwap() const { return fSwap; }
    void setRenderSwap(TrenderSwap* swap) { fSwap = swap; }
    TframeSampleData* frameSampleData() const { return fSampleData; }
    void setFrameSampleData(TframeSampleData* data) { fSampleData = data; }
    TstackArena& frameArena() const { return fFrameArena; }
    void* glowBuffer() const { return fGlow; }
    void setGlowBuffer(void* glow) { fGlow = glow; }
    TrenderCache* renderCache() const { return fCache; }
    void setRenderCache(TrenderCache* cache) { fCache = cache; }
    bool suspendSwap() const { return fSuspendSwap; }
    void setSuspendSwap(bool on) { fSuspendSwap = on; }
    // A renderer's frame makes its glow buffer here.
    virtual void createGlowBuffer() {}

    // The settings of this render that nodes read while they shade. Each
    // render has its own, so that two renders (or a render and a shade) in
    // one process never see each other's: the render pass (TrenderPass),
    // whether rays may be traced, and the camera's eye-to-world matrix.
    int renderPass() const { return fRenderPass; }
    void setRenderPass(int pass) { fRenderPass = pass; }
    bool rayTracing() const { return fRayTracing; }
    void setRayTracing(bool on) { fRayTracing = on; }
    const T4dFltMatrix& eyeToWorld() const { return fEyeToWorld; }
    void setEyeToWorld(const T4dFltMatrix& m) { fEyeToWorld = m; }
    // Null without a renderer's objects (a shade of a plain grid).
    const TobjectIdentity* objectIdentity() const { return fObjects; }
    void setObjectIdentity(const TobjectIdentity* objects) { fObjects = objects; }

    // The frame whose samples this thread shades now, or null. A sample
    // manager makes its thread's frame current while it compiles and runs
    // batches; nested shading (rays traced from inside a material) sees the
    // same frame.
    static TframeConstants* current();
    class Scope {
    public:
        explicit Scope(TframeConstants* frame);
        ~Scope();
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

    private:
        TframeConstants* fPrevious;
    };

private:
    TrenderCamera* fCamera = nullptr;
    TrenderSwap* fSwap = nullptr;
    TframeSampleData* fSampleData = nullptr;
    TstackArena& fFrameArena;
    void* fGlow = nullptr;
    TrenderCache* fCache = nullptr;
    bool fSuspendSwap = false;
    int fRenderPass = 0;
    bool fRayTracing = true;
    T4dFltMatrix fEyeToWorld;
    const TobjectIdentity* fObjects = nullptr;
};

// The render pass of the frame this thread shades (a TrenderPass value);
// with no frame, the process-wide currentRenderPassControl.
int OrvoRenderPass();
// Whether the frame this thread shades or compiles for traces rays; on
// without a frame.
bool OrvoRayTracingEnabled();

class TrenderThreadBase {
public:
    TrenderThreadBase();
    explicit TrenderThreadBase(TframeConstants& frame);
    // A copy is how a renderer makes its workers: it shares the frame and
    // the cache state, and gets an arena and a sample manager of its own.
    TrenderThreadBase(const TrenderThreadBase& other);
    TrenderThreadBase& operator=(const TrenderThreadBase&) = delete;
    virtual ~TrenderThreadBase();

    // Samplers of a ray tracing renderer; the base has none.
    virtual void* raySampler() { return nullptr; }
    virtual void deleteRaySampler() {}
    virtual void* backgroundSampler() { return nullptr; }
    virtual void deleteBackgroundSampler() {}
    // Enters the engine into the initialised engines, initialising it on
    // first entry; false when it was there already.
    virtual bool initShadingGroup(TDNshadingEngine* engine);
    // The same, taking a reference on the engine first.
    virtual bool refInitShadingGroup(TDNshadingEngine* engine);

    static bool resetShadingGroup(TDNshadingEngine* engine);
    static bool refResetShadingGroup(TDNshadingEngine* engine);
    // Resets every initialised engine, then frees every opus of the table.
    static void resetShadingGroups();

    // ---- set-up
    void setFrameConstants(TframeConstants* frame) { fFrame = frame; }
    void setRenderFrame(TrenderFrameBase* frame) { fRenderFrame = frame; }
    void setTileNode(void* tile) { fTile = tile; }
    void setThreadIndex(unsigned index) { fThreadIndex = index; }
    void setProcID(long id) { fThreadId = id; }
    TframeConstants* frameConstants() const { return fFrame; }
    TrenderFrameBase* renderFrame() const { return fRenderFrame; }
    void* tileNode() const { return fTile; }
    unsigned threadIndex() const { return fThreadIndex; }
    long procID() const { return fThreadId; }
    TrenderCamera* renderCamera() const { return fFrame ? fFrame->renderCamera() : nullptr; }
    TrenderCache* cache() const;
    TvariantArena* arena();

    // ---- memory: from the thread's arena, freed when the arena goes
    void* allocate(size_t size);
    static void free(void*) {}
    Tallocator& asArenaAllocator();
    // Destroys the sample manager and the arena; the thread id becomes -1.
    void destroyContents();

    // ---- shading
    TsampleManager* sampleManager();
    TbitField64 startSampling(TDNshadingEngine* engine, unsigned option, TrenderGroupBase* group,
                              const TgeoManagerBase* geometry = nullptr,
                              const unsigned* offsets = nullptr);
    void endSampling(TDNshadingEngine* engine, unsigned option, TrenderGroupBase* group);

    // ---- the opus table
    // The opus record of (node, option). Sets *slot to the record's opus
    // slot; answers whether an opus is already in it. The first caller of a
    // new record fills the slot. Each call takes a reference.
    static bool getOpus(TshadingOpus**& slot, TdependNode* node, unsigned option);
    // Gives back a reference; the opus goes with the last one, or at once
    // with `force`. An unknown key does nothing.
    static void deleteOpus(TdependNode* node, unsigned option, bool force);
    // Releases every record (end of render).
    static void deleteAllOpuses();
    // The reference count of a record, 0 when there is none (for tests).
    static unsigned opusReferences(const TdependNode* node, unsigned option);

    // The engines entered by initShadingGroup and not yet reset (sorted).
    static const std::vector<TDNshadingEngine*>& initializedEngines();

private:
    void ensureArena();

    TframeConstants* fFrame = nullptr;
    TrenderFrameBase* fRenderFrame = nullptr;
    void* fTile = nullptr;
    TvariantArena* fArena = nullptr;
    Tallocator* fAllocator = nullptr;
    unsigned fThreadIndex = 0;
    TsampleManager* fManager = nullptr;
    long fThreadId = -1;
};
