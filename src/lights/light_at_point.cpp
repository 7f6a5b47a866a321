#include "lights/light_at_point.h"

#include "host/scene/dag.h"
#include "shading/sample_manager.h"
#include "shading/shading_engine.h"

// The renderer's side of the one-sample render: which object the point
// lies on.
class TlightAtPoint::Group : public TrenderGroupBase {
public:
    explicit Group(int index) : fIndex(index) {}
    int objectIndex() const override { return fIndex; }

private:
    int fIndex;
};

TlightAtPoint::TlightAtPoint(uint32_t option, int32_t objectIndex, uint32_t flags,
                             const std::vector<TDNshadingEngine*>& groups, const TdagPath* camera,
                             const TdagPath* object)
    : fGroup(std::make_unique<Group>(objectIndex)),
      fOption(option < kTSEoptionCount ? option : 10u), fFlags(flags) {
    if (!groups.empty())
        fEngine = groups.front();
    if (camera && camera->isValid()) {
        fCameraToWorld = camera->inclusiveMatrix();
        fHasCamera = true;
    }
    if (object && object->isValid()) {
        fWorldToObject = object->inclusiveMatrixInverse();
        fHasObject = true;
    }
    if (!fEngine)
        return;
    fThread.initShadingGroup(fEngine);
    fThread.startSampling(fEngine, fOption, fGroup.get());
    fTable.resize(numberOfLights());
}

TlightAtPoint::~TlightAtPoint() {
    if (fEngine) {
        if (fSample[0])
            fThread.sampleManager()->releaseSamples(1, fSample);
        fThread.endSampling(fEngine, fOption, fGroup.get());
    }
}

unsigned TlightAtPoint::numberOfLights() const {
    return fEngine ? fEngine->numberOfLights(fOption) : 0u;
}

unsigned TlightAtPoint::lightAtPoint(const T3Float& point, _lightAtPointInformation* out) {
    const unsigned lights = numberOfLights();
    if (!fEngine || !out || lights == 0)
        return 0;
    TsampleManager& manager = *fThread.sampleManager();
    if (fSample[0])
        manager.reuseSamples(fEngine, fOption, fGroup.get(), 1, fSample);
    else
        manager.allocateSamples(fEngine, fOption, fGroup.get(), 1, fSample);
    Tsample& sample = *fSample[0];
    sample.setPointCamera(point);
    // Nodes that read the point in other spaces find it there too.
    const T3dDblVector p{point.x, point.y, point.z};
    const T3dDblVector world = fHasCamera ? fCameraToWorld.transformPoint(p) : p;
    sample.setPointWorld(float(world.x), float(world.y), float(world.z));
    const T3dDblVector local =
        fHasObject && !fWorldToObject.isIdentity() ? fWorldToObject.transformPoint(world) : world;
    sample.setPointObj(T3Float{float(local.x), float(local.y), float(local.z)});
    TlightData* table = fTable.data();
    sample.setLightTable(table);
    manager.dispatchSamples(1, fSample);
    manager.flushDispatchedSamples();

    // The light table has one entry per light of the object's row, in
    // light number order.
    const TshadingOpus* opus = fEngine->controlBlock(fOption);
    const TbitFieldFixedN* row =
        fGroup->objectIndex() >= 0 ? fEngine->lightRow(unsigned(fGroup->objectIndex())) : nullptr;
    unsigned written = 0;
    for (unsigned i = 0; opus && i < lights; ++i) {
        const TshadingOpus* light = opus->illuminatingLight(i);
        if (!light || (row && !row->test(i)))
            continue;
        const TlightData& d = fTable[written];
        _lightAtPointInformation& o = out[written++];
        o = _lightAtPointInformation();
        o.reference = reinterpret_cast<uint64_t>(static_cast<const void*>(light->node()));
        o.flags = (d.ambient ? 1u : 0u) | (d.diffuse ? 2u : 0u) | (d.specular ? 4u : 0u);
        for (int c = 0; c < 3; ++c) {
            o.direction[c] = d.direction[c];
            o.intensity[c] = d.intensity[c];
        }
        o.ambient = d.ambient;
        o.diffuse = d.diffuse;
        o.specular = d.specular;
        o.shadowFraction = d.shadowFraction;
        o.preShadowIntensity = d.preShadowIntensity;
    }
    for (TlightData& d : fTable)
        d = TlightData();
    return written;
}

unsigned TlightAtPoint::lightAtPoint(const T3Float* points, unsigned count,
                                     _lightAtPointInformation** out) {
    unsigned lights = 0;
    for (unsigned i = 0; points && out && i < count; ++i)
        lights = lightAtPoint(points[i], out[i]);
    return lights;
}
