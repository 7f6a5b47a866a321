#pragma once

// What the drawing code asks of a shading group's material: fixed-function
// colours, shininess, transparency and the texture to show. TmaterialInfo
// implements it for the shading groups of a scene. (It lives in a namespace
// of its own: the host's Tmaterial is the base of material node types.)

#include "host/draw/port.h"
#include "host/draw/texture_object.h"
#include "host/scene/dag.h"

class TDNshadingEngine;

namespace viewport {

class Tmaterial {
public:
    virtual ~Tmaterial() = default;

    // Readies the material for a draw of `object` seen from `camera` in
    // `port`: recomputes the colours when they are stale. True when they
    // are current afterwards.
    virtual bool evaluateMaterial(T3dPort* port, const TdagPath& object,
                                  const TdagPath& camera) = 0;
    virtual bool evaluateShininess(T3dPort* port, const TdagPath& object,
                                   const TdagPath& camera) = 0;
    virtual bool evaluateDiffuse(T3dPort* port, const TdagPath& object, const TdagPath& camera) = 0;
    virtual bool evaluateEmission(T3dPort* port, const TdagPath& object,
                                  const TdagPath& camera) = 0;
    virtual bool evaluateSpecular(T3dPort* port, const TdagPath& object,
                                  const TdagPath& camera) = 0;

    // Sets the port's material state for a draw; false when the port draws
    // no material or the material is stale.
    virtual bool setMaterial(const TdagPath& object, bool transparent) = 0;

    // The colours as last computed; false when stale, or without a port or
    // a material.
    virtual bool getShininess(float& out) const = 0;
    virtual bool getAmbient(TportColor& out) const = 0;
    virtual bool getDiffuse(TportColor& out) const = 0;
    virtual bool getEmission(TportColor& out) const = 0;
    virtual bool getSpecular(TportColor& out) const = 0;
    virtual bool getHasTransparency(bool& out, bool wide) const = 0;
    virtual bool hasTransparency(T3dPort* port, const TdagPath& object, const TdagPath& camera) = 0;

    // The texture the draw shows for `object`, or null.
    virtual TsharedGlTextureObject textureObject(T3dPort* port, const TdagPath& object,
                                                 const TdagPath& camera) = 0;
    virtual bool materialIsTextured() const = 0;
    // The material is drawn without lighting (its colour is its look).
    virtual bool disableLighting() const = 0;
    // The material shows what lies behind it.
    virtual bool isUseBackground() const = 0;
    virtual TDNshadingEngine* shadingEngine() const = 0;
};

} // namespace viewport
