// Baking a shading network into an image for the viewport: the network's
// plug goes into a shading group of its own as its surface, and a grid of
// samples is shaded through it as a renderer would (one sample a pixel, at
// the pixel's centre in UV), so that a bake shows what a render shows at
// the same UVs. Installed as the host's baker when the library loads.

#include <algorithm>
#include <unordered_map>
#include <vector>

#include "host/arena.h"
#include "host/draw/accessor.h"
#include "host/graph.h"
#include "shading/sample_manager.h"
#include "shading/shading_engine.h"
#include "viewport/convert_solid.h"

namespace {

uint8_t toByte(float v) {
    return uint8_t(std::clamp(v, 0.0f, 1.0f) * 255.0f + 0.5f);
}

// Hands each shaded sample to the bake, with its pixel.
class BakeGroup : public TrenderGroupBase {
public:
    BakeGroup(TpixelMap& map, bool alpha, int colourField, int transparencyField)
        : fMap(map), fAlpha(alpha), fColour(colourField), fTransparency(transparencyField) {}
    std::unordered_map<const Tsample*, unsigned> cellOf;
    Completion completion() const override { return &BakeGroup::finished; }
    void* completionData() const override { return const_cast<BakeGroup*>(this); }
    // The network gives no transparency: the bake is opaque.
    void dropAlpha() { fAlpha = false; }

private:
    static void finished(unsigned, TrenderGroupBase*, Tsample** samples, unsigned count,
                         void* user) {
        auto* self = static_cast<BakeGroup*>(user);
        for (unsigned s = 0; s < count; ++s) {
            const Tsample& sample = *samples[s];
            const unsigned cell = self->cellOf.at(&sample);
            const unsigned x = cell % self->fMap.width(), y = cell / self->fMap.width();
            const auto* c = static_cast<const float*>(sample.field(unsigned(self->fColour)));
            float a = 1.0f;
            if (self->fAlpha && self->fTransparency >= 0) {
                const auto* t =
                    static_cast<const float*>(sample.field(unsigned(self->fTransparency)));
                a = 1.0f - OrvoLuminance(t[0], t[1], t[2]);
            }
            self->fMap.setRGBA(x, y, toByte(c[0]), toByte(c[1]), toByte(c[2]), toByte(a));
        }
    }
    TpixelMap& fMap;
    bool fAlpha;
    int fColour, fTransparency;
};

struct ShadingGroupsReset {
    ~ShadingGroupsReset() { TrenderThreadBase::resetShadingGroups(); }
};

bool bakeThroughEngine(TDNshadingEngine& engine, unsigned width, unsigned height, bool alpha,
                       TpixelMap& map) {
    const int colourField = Tsample::fieldNumber("outColor");
    const int transparencyField = Tsample::fieldNumber("outTransparency");
    if (colourField < 0)
        return false;
    map = TpixelMap(width, height, alpha ? 4 : 3);
    TstackArena frameArena(theMallocAllocator(), 4096, "viewport bake frame");
    TframeConstants frame(frameArena);
    TrenderThreadBase thread(frame);
    BakeGroup group(map, alpha, colourField, transparencyField);
    ShadingGroupsReset reset;
    thread.initShadingGroup(&engine);
    const TbitField64 provided = thread.startSampling(&engine, kTSEsurfaceOption, &group);
    if (!provided.test(unsigned(colourField)))
        return false;
    const bool withTransparency =
        transparencyField >= 0 && provided.test(unsigned(transparencyField));
    if (!withTransparency) {
        group.dropAlpha();
        map.setChannels(3);
    }
    const unsigned cells = width * height;
    group.cellOf.reserve(cells);
    TsampleManager& manager = *thread.sampleManager();
    std::vector<Tsample*> all;
    all.reserve(cells);
    std::vector<Tsample*> samples(manager.batchSize(), nullptr);
    for (unsigned start = 0; start < cells; start += manager.batchSize()) {
        const unsigned count = std::min(manager.batchSize(), cells - start);
        if (manager.allocateSamples(&engine, kTSEsurfaceOption, &group, count, samples.data()) !=
            count)
            break;
        for (unsigned s = 0; s < count; ++s) {
            const unsigned cell = start + s;
            samples[s]->setUvCoord((float(cell % width) + 0.5f) / float(width),
                                   (float(cell / width) + 0.5f) / float(height));
            group.cellOf[samples[s]] = cell;
        }
        manager.dispatchSamples(count, samples.data());
        all.insert(all.end(), samples.begin(), samples.begin() + count);
    }
    manager.flushDispatchedSamples();
    manager.releaseSamples(unsigned(all.size()), all.data());
    thread.endSampling(&engine, kTSEsurfaceOption, &group);
    return all.size() == cells;
}

bool gBaking = false;

bool bake(const TdagPath&, const TdagPath&, const Tplug& plug, unsigned width, unsigned height,
          bool alpha, TpixelMap& map, T2Float& uvMin, T2Float& uvMax) {
    TdependNode* node = plug.node();
    TdependGraph* graph = node ? node->graph() : nullptr;
    if (!graph || gBaking)
        return false;
    gBaking = true;
    struct Done {
        bool& flag;
        ~Done() { flag = false; }
    } done{gBaking};
    // A group of its own, gone again once the bake is over.
    TdependNode* made = graph->createNode("shadingEngine");
    auto* engine = static_cast<TDNshadingEngine*>(made->cast(TDNshadingEngine::sTypeof()));
    struct Remove {
        TdependGraph& graph;
        TdependNode* node;
        ~Remove() { graph.deleteNode(node); }
    } remove{*graph, made};
    try {
        graph->connect(plug, Tplug(engine, &TDNshadingEngine::aSurfaceShader));
    } catch (const TgraphError&) {
        return false;
    }
    uvMin = {0, 0};
    uvMax = {1, 1};
    return bakeThroughEngine(*engine, width, height, alpha, map);
}

[[maybe_unused]] const bool gInstalled = [] {
    TbaseAccessor::setConvertSolidTx(&bake);
    return true;
}();

} // namespace

bool OrvoViewportIsBaking() {
    return gBaking;
}
