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

void TdnTestUserData::analyse(TDNshadingEngine* engine, TSEnodeDescription* description,
                              void* option, TbitField64& fields) {
    TshadingDependNode::analyse(engine, description, option, fields);
    engine->defineUserSampleData(description, &aOutColor, 0, 0, nullptr, 0);
}
