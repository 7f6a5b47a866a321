#include "lights/area_light.h"
#include "lights/point_light.h"
#include "shading/hammersley.h"
#include "shading/scratch.h"

#include <cmath>
#include <cstring>

ORVO_REGISTER_NODE(TareaLightShape)

ORVO_DEPENDENCIES(TareaLightShape) {
    Tattribute* inputs[] = {&PointWorld, &NormalCamera, &ObjectType};
    for (Tattribute* input : inputs)
        affectsAll(m, *input, TlightShape::aLightData);
}

namespace {

// 2 pi as the hemisphere's coverage is measured against.
constexpr float kTwoPi = 6.2831855f;

// Aims each ray at a point of the square: bilinear in two values of the
// low-discrepancy sequence, from the sample's point in the light's space.
class SquareAim final : public TshadowRayAim {
public:
    SquareAim(const T3Float* local, const TvectorDataHandle& instance, const T4dFltMatrix& toWorld,
              const T4dFltMatrix& toEye)
        : fLocal(local), fInstance(instance), fToWorld(toWorld), fToEye(toEye) {}

    void aim(unsigned sample, unsigned first, unsigned count,
             TgenericRay* const* rays) const override {
        const TrenderHammersley& h = TrenderHammersley::theHammersley();
        const uint32_t start = uint32_t(fInstance[int(sample)].asInt()) + first;
        const T3Float* c = TareaLightShape::kCorners;
        for (unsigned k = 0; k < count; ++k) {
            const float h1 = h.thetaValue(start + k);
            const float h2 = h.phiValue(start + k);
            const T3Float target = c[0] * (h1 * h2) + c[1] * ((1.0f - h1) * h2) +
                                   c[2] * (h1 * (1.0f - h2)) + c[3] * ((1.0f - h1) * (1.0f - h2));
            // Left at its length: the ray ends on the square.
            const T3Float d =
                OrvoTransformVector(fToEye, OrvoTransformVector(fToWorld, target - fLocal[sample]));
            std::memcpy(rays[k]->direction, &d, sizeof rays[k]->direction);
            rays[k]->maxDistance = OrvoLength(d);
        }
    }

private:
    const T3Float* fLocal;
    TvectorDataHandle fInstance;
    const T4dFltMatrix& fToWorld;
    const T4dFltMatrix& fToEye;
};

} // namespace

void TareaLightShape::shadingNodeOnDemand(Tplug& plug, TdataBlock& block) {
    TnonExtendedLightShape::shadingNodeOnDemand(plug, block);
    prepareExtendedLight(fWorldToEye);
    fDecayRate = block.inputValue(aDecayRate).asShort();
}

void TareaLightShape::prepareExtendedLight(const T4dFltMatrix& toEye) {
    fExtended.removeAllVertices();
    for (const T3Float& corner : kCorners)
        fExtended.addVertex(OrvoTransformPoint(toEye, OrvoTransformPoint(fLocalToWorld, corner)));
    const T3Float normal =
        OrvoTransformVector(toEye, OrvoTransformVector(fLocalToWorld, {0.0f, 0.0f, -1.0f}));
    fEyeNormal = OrvoNormalizeIfLong(normal);
    fExtended.setNormal(fEyeNormal);
    fExtended.setName(name());
}

float TareaLightShape::integrateLambertianReflectance(const T3dFltVector&, const T4dFltPoint& point,
                                                      const T3dFltVector& normal, bool flag) {
    return fExtended.integrateLambertianReflectance(point.xyz(), normal, flag);
}

float TareaLightShape::hemisphereCoverage(const T3dFltVector& lightDirection,
                                          const T4dFltPoint& point, const T3dFltVector& normal,
                                          bool flag) {
    return integrateLambertianReflectance(lightDirection, point, normal, flag) / kTwoPi;
}

float TareaLightShape::lightAttenuation(const T4dFltPoint& point, const T3dFltVector& normal,
                                        bool flag) {
    return std::fabs(integrateLambertianReflectance(T3dFltVector(), point, normal, flag));
}

T3dFltVector TareaLightShape::maxPhongSpecularDirection(const T3dFltVector&,
                                                        const T4dFltPoint& point,
                                                        const T3dFltVector& view,
                                                        const T3dFltVector& normal,
                                                        const T3dFltVector* hint) {
    // Without a mirror direction given, the view's about the normal.
    const T3Float reflected =
        hint ? T3Float(*hint) : view - normal * (2.0f * OrvoDot(normal, view));
    return fExtended.maxPhongSpecularDirection(point.xyz(), reflected);
}

bool TareaLightShape::projectTextureCoordinates(LightBatch& b, T2Float* uv) {
    const TvectorDataHandle world = b.block.vectorInputValue(aPointWorld, b.first, b.count);
    for (unsigned i = 0; i < b.count; ++i) {
        const float* w = world[int(i)].asFloat3();
        uv[i] = TpointLightShape::projection(OrvoTransformPoint(fWorldToLocal, {w[0], w[1], w[2]}));
    }
    return true;
}

void TareaLightShape::computeShadowColors(LightBatch& b, float, unsigned rays, const uint8_t* mask,
                                          Tspectrum* reflectance, uint8_t* penumbra) {
    TshadeScratch scratch;
    auto* local = ORVO_SCRATCH_ARRAY(scratch, T3Float, b.count);
    auto* casts = ORVO_SCRATCH_ARRAY(scratch, uint8_t, b.count);
    shadowCasters(b, mask, casts, local);
    const TvectorDataHandle instance = b.block.vectorInputValue(aRayInstance, b.first, b.count);
    const SquareAim aim(local, instance, fLocalToWorld, fWorldToEye);
    traceShadowStage(b, rays, casts, aim, reflectance, penumbra);
}
