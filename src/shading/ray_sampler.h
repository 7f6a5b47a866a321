#pragma once

// The ray tracing service a material or a light reaches through its
// `raySampler` input. The render model only calls it: a renderer that traces
// rays supplies the implementation and writes its address into the sample
// field `raySampler`. Also the render pass switch that the renderer sets and
// every material reads.

#include <cfloat>
#include <cstddef>
#include <cstdint>

class TdependNode;

// An RGB quantity carried by a ray: a colour, or a transmission.
struct Tspectrum {
    float r = 0.0f;
    float g = 0.0f;
    float b = 0.0f;

    constexpr Tspectrum() = default;
    constexpr Tspectrum(float red, float green, float blue) : r(red), g(green), b(blue) {}

    float& operator[](int i) { return (&r)[i]; }
    float operator[](int i) const { return (&r)[i]; }
    constexpr bool operator==(const Tspectrum&) const = default;
    Tspectrum& operator+=(const Tspectrum& o) {
        r += o.r;
        g += o.g;
        b += o.b;
        return *this;
    }
    Tspectrum& operator*=(const Tspectrum& o) {
        r *= o.r;
        g *= o.g;
        b *= o.b;
        return *this;
    }
    Tspectrum& operator*=(float s) {
        r *= s;
        g *= s;
        b *= s;
        return *this;
    }
    friend Tspectrum operator*(Tspectrum a, const Tspectrum& b) { return a *= b; }
    friend Tspectrum operator*(Tspectrum a, float s) { return a *= s; }
    friend Tspectrum operator+(Tspectrum a, const Tspectrum& b) { return a += b; }
};

inline constexpr Tspectrum kWhiteSpectrum{1.0f, 1.0f, 1.0f};
inline constexpr Tspectrum kBlackSpectrum{0.0f, 0.0f, 0.0f};
inline constexpr Tspectrum kRedSpectrum{1.0f, 0.0f, 0.0f};
inline constexpr Tspectrum kGreenSpectrum{0.0f, 1.0f, 0.0f};
inline constexpr Tspectrum kBlueSpectrum{0.0f, 0.0f, 1.0f};

// One ray as the render model fills it. A sampler may keep more per ray
// after these fields: callers ask rayRecordSize() for the stride and step
// through their records by it.
struct TgenericRay {
    float origin[3] = {0.0f, 0.0f, 0.0f};
    float direction[3] = {0.0f, 0.0f, 1.0f};
    // The farthest hit that counts. The sampler replaces it by the distance
    // of the hit it found (left as it was when the ray hit nothing).
    float maxDistance = FLT_MAX;
    int32_t depth = 0;   // the depth of the ray: the depth of its origin + 1
    float medium = 1.0f; // refractive index of the medium the ray travels in
    int32_t primitiveId = 0;
    void* objectId = nullptr; // the surface the ray leaves, so it doesn't hit itself
    int32_t instance = 0;     // the ray's number in the low-discrepancy sequences
};

class TraySampler {
public:
    virtual ~TraySampler() = default;

    // Bytes of one ray record when `rayCount` rays are made at once; at least
    // sizeof(TgenericRay) and a multiple of 8.
    virtual size_t rayRecordSize(unsigned rayCount) const = 0;

    // The deepest ray this sampler traces; rays deeper than that aren't made.
    virtual int maxRayDepth() const = 0;

    // Shadow rays toward a light. For each ray, `transmission[i]` comes in
    // white and `fraction[i]` 1.0: the sampler multiplies the transmission
    // by the transparency of every surface between the origin and the ray's
    // maxDistance (black for an opaque one) and scales the fraction by the
    // surfaces' shadow attenuation. Rays deeper than `depthLimit` are left
    // as they came. `objectId` is the surface being shaded.
    virtual void traceShadowRays(const TdependNode* light, unsigned count, TgenericRay** rays,
                                 float* transmission /* 3 floats a ray */, float* fraction,
                                 int depthLimit, const void* objectId) = 0;

    // Reflection and refraction rays: shade what each ray hits through the
    // shading engine and return its colour; when `transmissions` is given,
    // also what the hit surface lets through. `hits`, when given, gets 1 for
    // a ray that hit something and 0 for one that didn't. Each ray's
    // maxDistance becomes its hit distance.
    virtual void traceRays(const TdependNode* node, unsigned count, TgenericRay** rays,
                           Tspectrum* colours, Tspectrum* transmissions,
                           uint8_t* hits = nullptr) = 0;

    // The number of rays traced since the sampler was made (statistics).
    virtual uint64_t raysTraced() const = 0;

    // The colour seen where a ray leaves the scene.
    virtual void backgroundColor(Tspectrum& colour) const = 0;
};

// The pass of a render, set by the renderer before it shades and read by
// every material: 0, 1 and 3 colour; 2 ambient only; 4 highlights only;
// 5 shadows only (the matte channel carries the shadow).
extern "C" int32_t currentRenderPassControl;
// True while swatches are being rendered.
extern "C" bool inSampleSwatchMode;
