#include "test_nodes.h"

#include "shading/shading_engine.h"

#include <chrono>
#include <thread>

std::atomic<int> TdnTestUvColor::sComputes{0};
std::atomic<int> TdnTestUvColor::sElements{0};
std::atomic<int> TdnTestUvColor::sOnDemand{0};

ORVO_REGISTER_NODE(TdnTestUvColor)

ORVO_DEPENDENCIES(TdnTestUvColor) {
    affectsAll(m, UvCoord, OutColor);
    affectsAll(m, Gain, OutColor);
    affectsPaired(m, Transparency, OutTransparency);
}

bool TdnTestUvColor::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                                       unsigned count) {
    if (!computesAttribute(plug.attribute()))
        return TshadingDependNode::computePlug(plug, block);
    ++sComputes;
    sElements += int(count);
    const TvectorDataHandle uv = block.vectorInputValue(aUvCoord, first, count);
    const TvectorDataHandle gain = block.vectorInputValue(aGain, first, count);
    const TvectorDataHandle transparency = block.vectorInputValue(aTransparency, first, count);
    const TvectorDataHandle outColor = block.vectorOutputValue(aOutColor, first);
    const TvectorDataHandle outTransparency = block.vectorOutputValue(aOutTransparency, first);
    for (unsigned i = 0; i < count; ++i) {
        const float* p = uv[int(i)].asFloats();
        const float c[3] = {p[0], p[1], gain[int(i)].asFloat()};
        outColor[int(i)].set(3, c);
        outTransparency[int(i)].set(3, transparency[int(i)].asFloat3());
    }
    return true;
}

void TdnTestUvColor::shadingNodeOnDemand(Tplug&, TdataBlock&) {
    // Slow enough that a second thread arrives while the first is inside.
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    ++sOnDemand;
}

void TdnTestUvColor::groupedAttrs(const Tattribute*, TattributeArray& out) {
    out = {&aOutColor, &aOutTransparency};
}

ORVO_REGISTER_NODE(TdnTestUserData)
ORVO_DEPENDENCIES(TdnTestUserData) {
    affects(m, OutColor, OutColor);
}

namespace {
// Fills the user field of every sample with one value per object: 10 for
// object 0, 20 for object 1.
class TestFill final : public TuserSampleFill {
public:
    explicit TestFill(float value) : fValue(value) {}
    void fill(unsigned count, Tsample** samples, unsigned destination, unsigned,
              unsigned) const override {
        for (unsigned i = 0; i < count; ++i)
            if (auto* to = static_cast<float*>(samples[i]->slot(destination)))
                to[0] = to[1] = to[2] = fValue;
    }

private:
    float fValue;
};
const TestFill kFill0(10.0f), kFill1(20.0f);
const TuserSampleFill* kFills[2] = {&kFill0, &kFill1};
} // namespace

void TdnTestUserData::analyse(TDNshadingEngine* engine, TSEnodeDescription* description,
                              void* option, TbitField64& fields) {
    TshadingDependNode::analyse(engine, description, option, fields);
    engine->defineUserSampleData(description, &aOutColor, 0, 0, kFills, 2);
}

std::atomic<int> TdnTestLight::sComputes{0};
std::atomic<int> TdnTestLight::sElements{0};
std::vector<const void*> TdnTestLight::sWrittenAt;
std::vector<const void*> TdnTestLightSum::sReadAt;
std::vector<TlightData> TdnTestLightSum::sRecords;

ORVO_REGISTER_NODE(TdnTestLight)
ORVO_DEPENDENCIES(TdnTestLight) {
    for (Tattribute* in :
         {static_cast<Tattribute*>(&TlightShape::aPointCamera),
          static_cast<Tattribute*>(&PointWorld), static_cast<Tattribute*>(&TlightShape::aColor),
          static_cast<Tattribute*>(&TlightShape::aIntensity)})
        affects(m, *in, TlightShape::aLightData);
}

bool TdnTestLight::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                                     unsigned count) {
    if (plug.attribute() != &aLightData && !plug.attribute()->isDescendentOf(aLightData))
        return TlightShape::vectorComputePlug(plug, block, first, count);
    ++sComputes;
    sElements += int(count);
    const TvectorDataHandle point = block.vectorInputValue(aPointCamera, first, count);
    const TvectorDataHandle world = block.vectorInputValue(aPointWorld, first, count);
    const TvectorDataHandle colour = block.vectorInputValue(aColor, first, count);
    const TvectorDataHandle intensity = block.vectorInputValue(aIntensity, first, count);
    const TvectorDataHandle out = block.vectorOutputValue(aLightData, first);
    for (unsigned i = 0; i < count; ++i) {
        const int e = int(i);
        auto* record = static_cast<TlightData*>(out[e].address());
        sWrittenAt.push_back(record);
        const float* c = colour[e].asFloat3();
        const float k = intensity[e].asFloat();
        *record =
            TlightData{{0.0f, 0.0f, 1.0f},     {c[0] * k, c[1] * k, c[2] * k}, false,  true, false,
                       world[e].asFloat3()[0], point[e].asFloat3()[0],         nullptr};
    }
    return true;
}

ORVO_REGISTER_NODE(TdnTestLightSum)
ORVO_DEPENDENCIES(TdnTestLightSum) {
    affectsAll(m, LightDataArray, OutColor);
    affectsAll(m, LightDataArray, OutTransparency);
    affectsAll(m, Probe, OutTransparency);
    affectsAll(m, PointCamera, OutTransparency);
}

bool TdnTestLightSum::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                                        unsigned count) {
    if (!computesAttribute(plug.attribute()))
        return TshadingDependNode::computePlug(plug, block);
    const TvectorDataHandle lights = block.vectorInputValue(aLightDataArray, first, count);
    const TvectorDataHandle outColor = block.vectorOutputValue(aOutColor, first);
    const TvectorDataHandle outTransparency = block.vectorOutputValue(aOutTransparency, first);
    for (unsigned i = 0; i < count; ++i) {
        TmultiHandle elements(lights[int(i)]);
        float sum[3] = {0, 0, 0}, info[3] = {float(elements.elementCount()), 0, 0};
        for (unsigned k = 0; k < elements.elementCount(); ++k) {
            elements.jumpToArrayElement(k);
            const auto* record = static_cast<const TlightData*>(elements.reference().address());
            sReadAt.push_back(record);
            sRecords.push_back(*record);
            for (int c = 0; c < 3; ++c)
                sum[c] += record->intensity[c];
            info[1] += record->preShadowIntensity;
            info[2] += record->direction[0];
        }
        if (block.inputValue(aProbe).asBool()) {
            const float x =
                block.vectorInputValue(aPointCamera, first, count)[int(i)].asFloat3()[0];
            T3Float points[2] = {{x + 100.0f, 0, 0}, {x + 200.0f, 0, 0}};
            TlightData rows[2][4] = {};
            TlightData* table[2] = {rows[0], rows[1]};
            block.sampleLights(nullptr, first + i, 2, 0, points, table);
            info[1] = info[2] = 0.0f;
            for (auto& row : rows)
                for (const TlightData& l : row) {
                    info[1] += l.shadowFraction;
                    info[2] += l.preShadowIntensity;
                }
        }
        outColor[int(i)].set(3, sum);
        outTransparency[int(i)].set(3, info);
    }
    return true;
}

void TdnTestLightSum::groupedAttrs(const Tattribute*, TattributeArray& out) {
    out = {&aOutColor, &aOutTransparency};
}
