// The depth map half of nonExtendedLightShapeNode: the names of its depth
// files, the shadow map it owns around a render, and the lookup through it
// in the light's pipeline.

#include <alloca.h>

#include <algorithm>

#include "host/app_mode.h"
#include "lights/non_extended_light_shape.h"
#include "lights/shadow_map.h"

namespace {

Tstring underscored(Tstring name) {
    std::replace(name.begin(), name.end(), ':', '_');
    return name;
}

} // namespace

TnonExtendedLightShape::~TnonExtendedLightShape() {
    deleteShadowMap();
}

void TnonExtendedLightShape::setShadowMap(TuseShadowMap* map) {
    if (fOwnsShadowMap && map != fShadowMap)
        delete fShadowMap;
    fShadowMap = map;
    fOwnsShadowMap = false;
}

void TnonExtendedLightShape::deleteShadowMap() {
    if (fOwnsShadowMap)
        delete fShadowMap;
    fShadowMap = nullptr;
    fOwnsShadowMap = false;
    fMapFaceCount = 0;
}

int TnonExtendedLightShape::getDepthMapName(const Tstring& dir, const Tstring& sceneName,
                                            bool forceScene, Tstring& out) const {
    const bool lightName = plainValue(aDmapLightName) != 0.0;
    const bool scene = forceScene || plainValue(aDmapSceneName) != 0.0;
    const Tstring base = depthMapName();
    out = !base.empty() && base[0] == '/' ? base : dir + base;
    if (lightName) {
        if (!out.empty())
            out += "_";
        out += underscored(name());
    }
    if (scene) {
        if (!out.empty())
            out += "_";
        if (!gBatchMode)
            out += "int";
        else if (!sceneName.empty())
            out += underscored(sceneName);
    }
    return 0;
}

TuseShadowMap* TnonExtendedLightShape::prepareShadowMap(TrenderCache*, const TdepthMapSetup& setup,
                                                        bool keep, const TdepthMapFiles* files,
                                                        int* readResults) {
    const int faces = std::clamp(setup.faceCount, 0, TuseShadowMap::kMaxFaces);
    if (keep && fShadowMap)
        return fShadowMap;
    deleteShadowMap();
    fShadowMap =
        new TuseShadowMap(setup.position, setup.perspective, setup.cubeFlag, useMidDistDepthMap());
    fOwnsShadowMap = true;
    fMapFaceCount = faces;
    for (int k = 0; k < faces; ++k) {
        const int face = setup.faces[k];
        fMapFaces[k] = face;
        fShadowMap->setFaceCamera(face, setup.worldToView[face], setup.projection[face]);
    }
    if (files) {
        const bool single = setup.cubeFlag == 0;
        for (int k = 0; k < faces; ++k) {
            const int face = fMapFaces[k];
            const int result = fShadowMap->readZmap(face, single, name(), depthMapReadPreCallback(),
                                                    *files, setup.width, setup.height);
            if (readResults)
                readResults[face] = result;
        }
    }
    return fShadowMap;
}

int TnonExtendedLightShape::createShadowMap(TrenderCache* cache) {
    if (!fShadowMap)
        return 0;
    float biases[TuseShadowMap::kMaxFaces];
    std::fill(std::begin(biases), std::end(biases), depthMapBias());
    int count = 0;
    for (int k = 0; k < fMapFaceCount; ++k)
        count = fShadowMap->initMap(fMapFaces[k], cache, biases);
    if (count == 0)
        deleteShadowMap();
    return count;
}

bool TnonExtendedLightShape::sampleDepthMapShadows(LightBatch& b, float* fractions) {
    if (!fShadowMap)
        return false;
    // Surfaces are looked up at their points, fog samples along their
    // segments; each lookup leaves the other kind of sample alone.
    auto* fog = static_cast<uint8_t*>(alloca(b.count));
    const bool anyFog = markFogSamples(b, fog) && fogNearAttribute() && fogFarAttribute();
    auto* skip = static_cast<uint8_t*>(alloca(b.count));
    // The maps live in world space.
    auto* points = static_cast<T3dFltPoint*>(alloca(sizeof(T3dFltPoint) * b.count));
    for (unsigned i = 0; i < b.count; ++i) {
        points[i] = OrvoTransformPoint(fEyeToWorld, b.point(i));
        skip[i] = b.skip[i] || (anyFog && fog[i]);
    }
    ShadowMapVecSamples samples;
    samples.count = b.count;
    samples.fractions = fractions;
    samples.skip = skip;
    samples.surface = true;
    samples.pointLightFog = pointLightFogLookup(b);
    samples.points = TvectorDataHandle(TdataHandle(nullptr, nullptr, points), sizeof(T3dFltPoint));
    const TvectorDataHandle filterSizes =
        b.block.vectorInputValue(aDmapFilterSize, b.first, b.count);
    const TvectorDataHandle biases = b.block.vectorInputValue(aDmapBias, b.first, b.count);
    const short fogIntensity =
        b.block.vectorInputValue(aFogShadowIntensity, b.first, 1)[0].asShort();
    if (fShadowMap->sampleShadow(samples, filterSizes, biases, fogIntensity) != 0)
        return false;
    if (!anyFog)
        return true;
    auto* fogFractions = static_cast<float*>(alloca(sizeof(float) * b.count));
    for (unsigned i = 0; i < b.count; ++i)
        skip[i] = b.skip[i] || !fog[i];
    samples.fractions = fogFractions;
    samples.surface = false;
    samples.pointWorld = b.block.vectorInputValue(*fogNearAttribute(), b.first, b.count);
    samples.farPointWorld = b.block.vectorInputValue(*fogFarAttribute(), b.first, b.count);
    samples.volumeShadowSamples = b.block.vectorInputValue(aVolumeShadowSamples, b.first, b.count);
    samples.rayInstance = b.block.vectorInputValue(aRayInstance, b.first, b.count);
    if (fShadowMap->sampleShadow(samples, filterSizes, biases, fogIntensity) != 0)
        return false;
    for (unsigned i = 0; i < b.count; ++i)
        if (fog[i])
            fractions[i] = fogFractions[i];
    return true;
}
