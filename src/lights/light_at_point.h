#pragma once

// What the lights of a shading group give at points outside a render: a
// tool asks, for a point on an object, which lights reach it and how
// strongly (a light meter, a preview of shadow fractions). It shades one
// sample through the group's opus with the light table requested, so that
// the answer is exactly what a material would see.

#include <cstdint>
#include <memory>
#include <vector>

#include "host/attribute.h"
#include "host/scene/matrix.h"
#include "host/types.h"
#include "shading/render_thread.h"

class TDNshadingEngine;
class TdagPath;
class Tsample;

// One light's contribution at a point.
struct _lightAtPointInformation {
    uint64_t reference = 0; // the light's node, as an integer
    uint32_t flags = 0;     // 1 ambient, 2 diffuse, 4 specular
    float direction[3] = {0.0f, 0.0f, 0.0f};
    float intensity[3] = {0.0f, 0.0f, 0.0f};
    bool ambient = false;
    bool diffuse = false;
    bool specular = false;
    float shadowFraction = 0.0f;
    float preShadowIntensity = 0.0f;
};

class TlightAtPoint {
public:
    // `option` is the compilation to shade with (one that serves the light
    // table: 5, 9 or 10); `objectIndex` the object's position among the
    // group's members (-1: every light of the group); `flags` is kept for
    // the caller. The first group of `groups` is the one shaded. `camera`
    // and `object`, when given, place the point: it is in camera space, and
    // the object's matrices give its object and world positions.
    TlightAtPoint(uint32_t option, int32_t objectIndex, uint32_t flags,
                  const std::vector<TDNshadingEngine*>& groups, const TdagPath* camera,
                  const TdagPath* object);
    ~TlightAtPoint();
    TlightAtPoint(const TlightAtPoint&) = delete;
    TlightAtPoint& operator=(const TlightAtPoint&) = delete;

    // The lights at one point, into out[0 .. n); returns n. `out` must
    // have room for numberOfLights() entries.
    unsigned lightAtPoint(const T3Float& point, _lightAtPointInformation* out);
    // The same for `count` points: out[i] receives the lights of point i.
    unsigned lightAtPoint(const T3Float* points, unsigned count, _lightAtPointInformation** out);
    // The number of lights of the group, 0 without one.
    unsigned numberOfLights() const;

private:
    class Group;
    TrenderThreadBase fThread;
    std::unique_ptr<Group> fGroup;
    TDNshadingEngine* fEngine = nullptr;
    unsigned fOption;
    uint32_t fFlags;
    T4dDblMatrix fWorldToObject;
    T4dDblMatrix fCameraToWorld;
    bool fHasObject = false;
    bool fHasCamera = false;
    Tsample* fSample[1] = {nullptr};
    std::vector<TlightData> fTable;
};
