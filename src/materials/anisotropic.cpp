#include "materials/anisotropic.h"

#include <algorithm>
#include <cmath>

ORVO_REGISTER_NODE(TdnAnisotropy)

ORVO_DEPENDENCIES(TdnAnisotropy) {
    Tattribute* inputs[] = {
        &TangentUCamera,         &TangentVCamera,         &SpreadX, &SpreadY, &Roughness, &Angle,
        &FresnelRefractiveIndex, &AnisotropicReflectivity};
    for (Tattribute* a : inputs)
        forTree(*a, [&](Tattribute& input) {
            affects(m, input, TdnLambert::aOutColor);
            affects(m, input, TdnLambert::aOutGlowColor);
        });
}

namespace {

constexpr float kPi = 3.14159265f;
constexpr float kTwoPi = 6.2831855f;
constexpr float kHalfPi = 1.5707964f;
// 4 pi^2: k^2 over it is 1 / wavelength^2.
constexpr float kFourPiSquared = 39.47842f;
// Half a degree in radians: the angle turns the tangents by half of it.
constexpr float kHalfDegree = 0.008726646f;

// The polar angle of `d` to the normal and its azimuth from U, turning
// toward V.
void anglesOf(const T3Float& d, const T3Float& N, const T3Float& U, const T3Float& V, float& theta,
              float& phi) {
    const float c = OrvoDot(d, N);
    theta = std::acos(std::clamp(c, -1.0f, 1.0f));
    const T3Float projection = TdnReflect::normalised(d - N * c);
    phi = std::acos(std::clamp(OrvoDot(projection, U), -1.0f, 1.0f));
    if (OrvoDot(projection, V) < 0.0f)
        phi = kTwoPi - phi;
}

} // namespace

// ---------------------------------------------------------------- the model

float TdnAnisotropy::S_smooth(float a, float b, float c, float d, float e) {
    const float q = 0.25f / a;
    return expf(-(b * d) * (b * d) * q - (c * e) * (c * e) * q) * kPi * d * e / a;
}

void TdnAnisotropy::C_der_smooth(float spreadX, float spreadY, float out[3]) {
    // A Gaussian correlation exp(-x^2/sx^2 - y^2/sy^2): its second
    // derivatives at 0, negated.
    out[0] = 2.0f / (spreadX * spreadX);
    out[1] = 2.0f / (spreadY * spreadY);
    out[2] = 0.0f;
}

float TdnAnisotropy::S_g_analytical(float g, float r, float k, float spreadX, float spreadY,
                                    float vx, float vy) {
    const float t = (g * r * k) * (g * r * k);
    // A very rough surface: the sum is its limit.
    if (t > 20.0f)
        return sStatistic(t, vx, vy, spreadX, spreadY);
    // Sum over i of t^i e^-t / i! times the statistic of order i, with the
    // Poisson weight carried as a running logarithm.
    float sum = 0.0f, a = 0.0f, last = 1.0f;
    for (int i = 1; (i < 200 && std::fabs(last) > 1e-7f) || float(i) < t; ++i) {
        a += logf(t / float(i));
        const float w = expf(a - t);
        last = w * sStatistic(float(i), vx, vy, spreadX, spreadY);
        sum += last;
    }
    return sum;
}

float TdnAnisotropy::fresnel(float x, float n) {
    const float c = std::cos(x);
    const float s = std::sqrt(c * c + n * n - 1.0f);
    const float a = (c * n * n - s) / (c * n * n + s);
    const float b = (c - s) / (c + s);
    return (a * a + b * b) * 0.5f;
}

float TdnAnisotropy::compute_D(float x1, float x2, float x3, float x4) {
    const float w =
        (std::sin(x1) * std::sin(x3) + std::cos(x1) * std::cos(x3)) * std::sin(x2) * std::sin(x4) +
        1.0f + std::cos(x4) * std::cos(x2);
    const float sum = -std::cos(x2) - std::cos(x4);
    return w * w / (std::cos(x2) * std::cos(x4) * sum * sum);
}

float TdnAnisotropy::compute_shadow(float r, float spreadX, float spreadY, float tI, float pI,
                                    float tR, float pR) {
    auto inside = [](float t) {
        return t >= 0.0f && t <= kHalfPi;
    };
    if (!inside(tI) || !inside(tR))
        return 0.0f;
    float c[3];
    sDerivatives(spreadX, spreadY, c);
    for (float& v : c)
        v *= r * r;
    // Smith's term of one direction, for the slope variance along its
    // azimuth.
    auto lambda = [&](float t, float p) {
        const float cp = std::cos(p), sp = std::sin(p);
        const float m = 2.0f * std::fabs(2.0f * c[2] * cp * sp + c[0] * cp * cp + c[1] * sp * sp);
        const float tanT = std::tan(t);
        const float u = std::fabs(tanT) < 1e-5f ? 1e7f : 1.0f / tanT;
        return (expf(-u * u / m) * std::sqrt(m / kPi) * tanT - std::erfc(u / std::sqrt(m))) * 0.5f;
    };
    return 1.0f / (lambda(tI, pI) + lambda(tR, pR) + 1.0f);
}

float TdnAnisotropy::compute_BRDF(float k, float r, float spreadX, float spreadY, float n, float tI,
                                  float pI, float tR, float pR) {
    // The scattering vector's tangent components.
    const float vx = k * (std::sin(tI) * std::cos(pI) + std::sin(tR) * std::cos(pR));
    const float vy = k * (std::sin(tI) * std::sin(pI) + std::sin(tR) * std::sin(pR));
    const float g = -std::cos(tI) - std::cos(tR);
    return S_g_analytical(g, r, k, spreadX, spreadY, vx, vy) * (k * k / kFourPiSquared) *
           compute_D(pI, tI, pR, tR) * compute_shadow(r, spreadX, spreadY, tI, pI, tR, pR) *
           fresnel(tI, n);
}

float TdnAnisotropy::compute_specular(float k, float r, float spreadX, float spreadY, float n,
                                      float tI, float pI, float tR, float pR) {
    const float g = k * r * (-std::cos(tI) - std::cos(tR));
    return compute_shadow(r, spreadX, spreadY, tI, pI, tR, pR) * fresnel(tI, n) * expf(-g * g);
}

// ---------------------------------------------------------------- shading

void TdnAnisotropy::highlight(TdataBlock& block, unsigned first, unsigned count, int pass,
                              const T3Float* mirror, T3Float* S) {
    const SpecularInputs in(block, first, count);
    const TvectorDataHandle tangentU = block.vectorInputValue(aTangentUCamera, first, count);
    const TvectorDataHandle tangentV = block.vectorInputValue(aTangentVCamera, first, count);
    const TvectorDataHandle spreadX = block.vectorInputValue(aSpreadX, first, count);
    const TvectorDataHandle spreadY = block.vectorInputValue(aSpreadY, first, count);
    const TvectorDataHandle roughness = block.vectorInputValue(aRoughness, first, count);
    const TvectorDataHandle angle = block.vectorInputValue(aAngle, first, count);
    const TvectorDataHandle index = block.vectorInputValue(aFresnelRefractiveIndex, first, count);
    const TvectorDataHandle modelled =
        block.vectorInputValue(aAnisotropicReflectivity, first, count);
    const TvectorDataHandle reflectivity = block.vectorInputValue(aReflectivity, first, count);
    for (unsigned i = 0; i < count; ++i) {
        const int e = int(i);
        const SpecularSample s = in.at(e);
        const T3Float& N = s.normal;
        const float* u = tangentU[e].asFloat3();
        const float* v = tangentV[e].asFloat3();
        T3Float U = normalised({u[0], u[1], u[2]});
        T3Float V = normalised({v[0], v[1], v[2]});
        if (const float turn = angle[e].asFloat(); turn != 0.0f) {
            const float a = turn * kHalfDegree;
            const float ca = std::cos(a), sa = std::sin(a);
            const T3Float turnedU = U * ca + V * sa;
            V = V * ca - U * sa;
            U = turnedU;
        }
        // A frame in the tangent plane: from V when there is no U, else
        // from U; each axis made unit again.
        if (U.x == 0.0f && U.y == 0.0f && U.z == 0.0f) {
            U = normalised(OrvoCross(V, N));
            V = normalised(OrvoCross(N, U));
        } else {
            V = normalised(OrvoCross(N, U));
            U = normalised(OrvoCross(V, N));
        }
        const T3Float view = s.rayDirection * -1.0f;
        const float viewCosine = OrvoDot(view, N);
        float thetaR = 0.0f, phiR = 0.0f;
        anglesOf(view, N, U, V, thetaR, phiR);
        const float r = roughness[e].asFloat(), sx = spreadX[e].asFloat(),
                    sy = spreadY[e].asFloat(), n = index[e].asFloat();

        S[i] = T3Float{0.0f, 0.0f, 0.0f};
        if (pass != kRenderPassDiffuse && viewCosine > 0.0f)
            addSpecularLights(
                in.lights[e], s, S[i], [&](const T3Float& L, const TlightData&, float& value) {
                    const float nl = OrvoDot(L, N);
                    if (!(nl > 0.0f))
                        return false;
                    float thetaI = 0.0f, phiI = 0.0f;
                    anglesOf(L, N, U, V, thetaI, phiI);
                    const float brdf =
                        compute_BRDF(kWaveNumber, r, sx, sy, n, thetaI, phiI, thetaR, phiR);
                    if (!(brdf >= 0.0f))
                        return false;
                    value = brdf * std::min(nl, 1.0f);
                    return true;
                });
        // The reflection: plain, or weighted by the model in the mirror
        // direction.
        if (!modelled[e].asBool()) {
            S[i] = S[i] + mirror[i] * reflectivity[e].asFloat();
        } else if (viewCosine > 0.0f) {
            const float k =
                compute_specular(kWaveNumber, r, sx, sy, n, thetaR, phiR + kPi, thetaR, phiR);
            if (k > 0.0f)
                S[i] = S[i] + mirror[i] * k;
        }
    }
    applySpecularColor(block, first, count, S);
}
