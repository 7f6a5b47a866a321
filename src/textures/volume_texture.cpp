#include "textures/volume_texture.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "textures/noise_functions.h"

namespace {

constexpr float kTwoPi = 6.28318530717958647692f;
constexpr float kPi = 3.14159265358979323846f;
constexpr float kDegrees = kPi / 180.0f;

// One plane rotation: a' = a cos - b sin, b' = b cos + a sin.
inline void turn(float& a, float& b, float degrees) {
    if (degrees == 0.0f)
        return;
    const float c = std::cos(degrees * kDegrees);
    const float s = std::sin(degrees * kDegrees);
    const float a0 = a;
    a = a0 * c - b * s;
    b = b * c + a0 * s;
}

// The result of a sum: the signed sum moves into 0 .. 1, and only the top is
// clamped.
inline float finishSum(float sum, bool absolute, float threshold) {
    if (!absolute)
        sum = sum * 0.5f + 0.5f;
    return std::min(1.0f, sum + threshold);
}

inline float tableAt(int i) {
    return float(Tnoise::randomNoise(i));
}

} // namespace

// ---------------------------------------------------------------- TvolumeTexture

TvolumeTexture::~TvolumeTexture() = default;

void TvolumeTexture::setScale(const T3Float& v) {
    scale = v;
    for (int i = 0; i < 3; ++i)
        if (scale[i] == 0.0f)
            scale[i] = 1e-5f;
}

void TvolumeTexture::applyImplode(float& x, float& y, float& z) const {
    if (std::fabs(implode) <= 1e-5f)
        return;
    x -= implodeCenter.x;
    y -= implodeCenter.y;
    z -= implodeCenter.z;
    const float r = std::sqrt(x * x + y * y + z * z);
    if (r > 1e-5f) {
        const float k = std::pow(r, 1.0f - implode) / r;
        x *= k;
        y *= k;
        z *= k;
    }
    x += implodeCenter.x;
    y += implodeCenter.y;
    z += implodeCenter.z;
}

void TvolumeTexture::applyImplode2(float& u, float& v) const {
    if (std::fabs(implode) <= 1e-5f)
        return;
    u -= implodeCenter.x;
    v -= implodeCenter.y;
    const float r = std::sqrt(u * u + v * v);
    if (r > 1e-5f) {
        const float k = std::pow(r, 1.0f - implode) / r;
        u *= k;
        v *= k;
    }
    u += implodeCenter.x;
    v += implodeCenter.y;
}

void TvolumeTexture::applyRotate(float& x, float& y, float& z) const {
    turn(x, y, -rotate.z);
    turn(x, z, rotate.y);
    turn(y, z, -rotate.x);
}

void TvolumeTexture::applyRotate2(float& u, float& v) const {
    turn(u, v, -rotate.x);
}

float TvolumeTexture::getNoise(float, float, float, float, int) const {
    return 0.0f;
}

float TvolumeTexture::getNoise2(float, float, float, int) const {
    return 0.0f;
}

float TvolumeTexture::getValue(float x, float y, float z, float time) const {
    x -= offset.x;
    y -= offset.y;
    z -= offset.z;
    applyImplode(x, y, z);
    float q[3] = {frequency * x / scale.x + origin.x, frequency * y / scale.y + origin.y,
                  frequency * z / scale.z + origin.z};
    const float m = octaveFactor();
    const float timeFactor = std::sqrt(m);
    float amp = gain, sum = 0.0f;
    for (int h = 0; h < harmonics; ++h) {
        float n = getNoise(q[0], q[1], q[2], time, h);
        if (absolute)
            n = std::fabs(n);
        sum += n * amp;
        amp *= ampRatio;
        for (float& c : q)
            c *= m;
        time *= timeFactor;
    }
    return finishSum(sum, absolute, threshold);
}

float TvolumeTexture::getValue2(float u, float v, float time) const {
    u -= offset.x;
    v -= offset.y;
    applyImplode2(u, v);
    float qu = frequency * u / scale.x + origin.x;
    float qv = frequency * v / scale.y + origin.y;
    const float m = octaveFactor();
    const float timeFactor = std::sqrt(m);
    float amp = gain, sum = 0.0f;
    for (int h = 0; h < harmonics; ++h) {
        float n = getNoise2(qu, qv, time, h);
        if (absolute)
            n = std::fabs(n);
        sum += n * amp;
        amp *= ampRatio;
        qu *= m;
        qv *= m;
        time *= timeFactor;
    }
    return finishSum(sum, absolute, threshold);
}

// ---------------------------------------------------------------- TperlinTexture

namespace {

// The first triple from entry octave * 10 on that has a length, normalised.
T3Float directionFromTable(const float* table, int octave) {
    auto at = [table](int k) {
        return table[(k < 0 ? 0u - unsigned(k) : unsigned(k)) % unsigned(Tnoise::kTableSize)];
    };
    int i = octave * 10;
    for (;;) {
        const float a = at(i), b = at(i + 1), c = at(i + 2);
        i += 3;
        const float length = std::sqrt(a * a + b * b + c * c);
        if (length > 0.0f)
            return {a / length, b / length, c / length};
    }
}

// The directions of the first octaves over the shipped table, made once:
// every octave of every sample asks for one.
constexpr int kCachedOctaves = 64;
const T3Float* shippedTableDirections() {
    static const auto directions = [] {
        std::array<T3Float, kCachedOctaves> d;
        for (int o = 0; o < kCachedOctaves; ++o)
            d[size_t(o)] = directionFromTable(Tnoise::newTable(), o);
        return d;
    }();
    return directions.data();
}

} // namespace

T3Float TperlinTexture::octaveDirection(int octave) {
    if (Tnoise::fsTable == Tnoise::newTable() && octave >= 0 && octave < kCachedOctaves)
        return shippedTableDirections()[octave];
    return directionFromTable(Tnoise::fsTable, octave);
}

float TperlinTexture::getNoise(float x, float y, float z, float time, int octave) const {
    if (animated)
        return Tnoise::noise4(x, y, z, time, timeSteps);
    const T3Float d = octaveDirection(octave);
    const float m = float(octave) + time;
    return Tnoise::noise3(x + d.x * m, y + d.y * m, z + d.z * m);
}

float TperlinTexture::getNoise2(float u, float v, float time, int octave) const {
    return TperlinTexture::getNoise(u, v, 0.0f, time, octave);
}

float TperlinTexture::getSmearNoise(float& x, float& y, float& z, float ox, float oy, float oz,
                                    float time, int octave) const {
    const T3Float d = octaveDirection(octave);
    float a[3] = {x + ox, y + oy, z + oz};
    const float m = time * 0.3f * 0.0625f + float(octave) * 0.5f;
    const float n =
        Tnoise::noise3(m * d.x + a[0] * 0.1f, m * d.y + a[1] * 0.1f, m * d.z + a[2] * 0.1f) *
        0.3125f;
    const float shift[3] = {n * d.x, n * d.y, n * d.z};
    for (int i = 0; i < 3; ++i)
        a[i] += shift[i];
    x += shift[0] * 0.5f;
    y += shift[1] * 0.5f;
    z += shift[2] * 0.5f;
    if (animated)
        return Tnoise::noise4(a[0], a[1], a[2], time, timeSteps);
    return Tnoise::noise3(a[0], a[1], a[2]);
}

// The harmonics at point q, each octave scaled up from the last; a smear
// may move q as it goes.
float TperlinTexture::harmonicSum(float (&q)[3], float time) const {
    const float m = octaveFactor();
    const float timeFactor = std::sqrt(m);
    float amp = gain, sum = 0.0f;
    for (int h = 0; h < harmonics; ++h) {
        float n = doSmear ? getSmearNoise(q[0], q[1], q[2], 0.0f, 0.0f, 0.0f, time, h)
                          : TperlinTexture::getNoise(q[0], q[1], q[2], time, h);
        if (absolute)
            n = std::fabs(n);
        sum += n * amp;
        amp *= ampRatio;
        for (float& c : q)
            c *= m;
        time *= timeFactor;
    }
    return finishSum(sum, absolute, threshold);
}

float TperlinTexture::getValue(float x, float y, float z, float time) const {
    x -= offset.x;
    y -= offset.y;
    z -= offset.z;
    applyRotate(x, y, z);
    applyImplode(x, y, z);
    float q[3] = {frequency * x / scale.x + origin.x, frequency * y / scale.y + origin.y,
                  frequency * z / scale.z + origin.z};
    return harmonicSum(q, time);
}

float TperlinTexture::getValue2(float u, float v, float time) const {
    u -= offset.x;
    v -= offset.y;
    applyRotate2(u, v);
    applyImplode2(u, v);
    // The plane z = 0; a smear may push the point off it, and the push stays.
    float q[3] = {frequency * u / scale.x + origin.x, frequency * v / scale.y + origin.y, 0.0f};
    return harmonicSum(q, time);
}

// ---------------------------------------------------------------- TbillowTexture

float TbillowTexture::blob(float e, float sizeTerm, float spotTerm) const {
    if (sizeRand > 0.0f)
        e = e / ((sizeTerm + 1.0f) * 0.5f * sizeRand + (1.0f - sizeRand));
    if (!(e < 1.0f))
        return 0.0f;
    float v;
    switch (falloff) {
    case kLinear:
        v = 1.0f - std::sqrt(e);
        break;
    case kSmooth:
        v = (2.0f * std::sqrt(e) - 3.0f) * e + 1.0f;
        break;
    case kBubble: {
        const float b = 1.1f * e;
        v = b > 1.0f ? 1.0f - (b - 1.0f) * 10.0f : b;
        break;
    }
    case kFast:
    default:
        v = 1.0f - e;
        break;
    }
    if (spottyness > 0.0f)
        v *= (spotTerm + 1.0f) * spottyness + (1.0f - spottyness);
    return v;
}

namespace {
// The cell of a coordinate on the 20-cell grid, with the fraction inside it.
inline void gridCell(float x, int& i, float& f) {
    const float g = (x - Tnoise::fastFloor(x)) * float(TbillowTexture::kGrid);
    const int cell = int(g); // g is in 0 .. 20
    i = cell % TbillowTexture::kGrid;
    f = g - float(cell);
}
inline int wrapGrid(int i) {
    return i < 0 ? i + TbillowTexture::kGrid
                 : (i >= TbillowTexture::kGrid ? i - TbillowTexture::kGrid : i);
}
} // namespace

float TbillowTexture::getNoise(float x, float y, float z, float time, int) const {
    const float d = std::min(density, 2.0f - randomness);
    if (d < 0.0001f)
        return 0.0f;
    const float w = 2.0f / d;
    const float r = randomness / 2.0f;
    int ix, iy, iz;
    float fx, fy, fz;
    gridCell(x, ix, fx);
    gridCell(y, iy, fy);
    gridCell(z, iz, fz);
    const float* tab = Tnoise::fsTable;

    // The 27 neighbours' table indices and blob centres first, then the
    // distances.
    int cells[27];
    float centres[27][3];
    for (int n = 0; n < 27; ++n) {
        const int dx = n % 3 - 1, dy = (n / 3) % 3 - 1, dz = n / 9 - 1;
        const int c =
            wrapGrid(ix + dx) + kGrid * wrapGrid(iy + dy) + kGrid * kGrid * wrapGrid(iz + dz);
        cells[n] = c;
        if (r == 0.0f) {
            centres[n][0] = centres[n][1] = centres[n][2] = 0.5f;
        } else {
            centres[n][0] = std::sin(tab[c] * kTwoPi + 2.0f * time) * r + 0.5f;
            centres[n][1] = std::cos(tab[c + 1] * kTwoPi + 1.5f * time) * r + 0.5f;
            centres[n][2] = std::cos(tab[c + 2] * kTwoPi + time) * r + 0.5f;
        }
    }
    float result = 0.0f;
    for (int n = 0; n < 27; ++n) {
        const float px = fx - float(n % 3 - 1) - centres[n][0];
        const float py = fy - float((n / 3) % 3 - 1) - centres[n][1];
        const float pz = fz - float(n / 9 - 1) - centres[n][2];
        const float e = (px * px + py * py + pz * pz) * w;
        const int c = cells[n];
        result += blob(e, tab[c], tab[c + 1]);
    }
    return result;
}

float TbillowTexture::getNoise2(float u, float v, float time, int) const {
    const float d = std::min(density, 2.0f - randomness);
    if (d < 0.0001f)
        return 0.0f;
    const float w = 2.0f / d;
    const float r = randomness / 2.0f;
    int iu, iv;
    float fu, fv;
    gridCell(u, iu, fu);
    gridCell(v, iv, fv);
    const float* tab = Tnoise::fsTable;
    float result = 0.0f;
    for (int n = 0; n < 9; ++n) {
        const int du = n % 3 - 1, dv = n / 3 - 1;
        // Two phases, then the size term and the spot term: one entry on
        // from where the three-axis form reads them.
        const int c = wrapGrid(iu + du) + kGrid * wrapGrid(iv + dv);
        float cu = 0.5f, cv = 0.5f;
        if (r != 0.0f) {
            cu = std::sin(tab[c] * kTwoPi + 2.0f * time) * r + 0.5f;
            cv = std::cos(tab[c + 1] * kTwoPi + time) * r + 0.5f;
        }
        const float pu = fu - float(du) - cu;
        const float pv = fv - float(dv) - cv;
        result += blob((pu * pu + pv * pv) * w, tab[c + 2], tab[c + 3]);
    }
    return result;
}

float TbillowTexture::getValue(float x, float y, float z, float time) const {
    x -= offset.x;
    y -= offset.y;
    z -= offset.z;
    applyRotate(x, y, z);
    applyImplode(x, y, z);
    const float s = frequency / 20.0f;
    const float q[3] = {s * x / scale.x + origin.x, s * y / scale.y + origin.y,
                        s * z / scale.z + origin.z};
    const float m = octaveFactor();
    const float timeFactor = std::sqrt(m);
    float amp = 1.0f, weight = 0.0f, sum = 0.0f, k = 1.0f;
    float ox = 0.0f, oy = 0.0f, oz = 0.0f;
    for (int h = 0; h < harmonics; ++h) {
        ox += 0.021f;
        oy += 0.33f;
        oz += 0.011f;
        float n = TbillowTexture::getNoise(k * q[0] + ox, k * q[1] + oy, k * q[2] + oz, time, h);
        if (absolute)
            n = std::fabs(n);
        sum += n * amp;
        weight += amp;
        amp *= ampRatio;
        k *= m;
        time *= timeFactor;
    }
    // With no octave the weight stays 0: not guarded, by design.
    return std::min(1.0f, sum * gain / weight + threshold);
}

float TbillowTexture::getValue2(float u, float v, float time) const {
    u -= offset.x;
    v -= offset.y;
    applyRotate2(u, v);
    applyImplode2(u, v);
    const float s = frequency / 20.0f;
    const float qu = s * u / scale.x + origin.x;
    const float qv = s * v / scale.y + origin.y;
    const float m = octaveFactor();
    const float timeFactor = std::sqrt(m);
    float amp = 1.0f, weight = 0.0f, sum = 0.0f, k = 1.0f;
    float ou = 0.0f, ov = 0.0f;
    for (int h = 0; h < harmonics; ++h) {
        ou += 0.021f;
        ov += 0.33f;
        float n = TbillowTexture::getNoise2(k * qu + ou, k * qv + ov, time, h);
        if (absolute)
            n = std::fabs(n);
        sum += n * amp;
        weight += amp;
        amp *= ampRatio;
        k *= m;
        time *= timeFactor;
    }
    return std::min(1.0f, sum * gain / weight + threshold);
}

// ---------------------------------------------------------------- TcosTexture

float TcosTexture::getNoise(float x, float y, float z, float time, int octave) const {
    int i = octave * 50;
    float sum = 0.0f;
    for (int wave = 0; wave < nWaves;) {
        float a = tableAt(i), b = tableAt(i + 1), c = tableAt(i + 2);
        i += 3;
        const float length = std::sqrt(a * a + b * b + c * c);
        if (length == 0.0f)
            continue; // not a direction: the next triple, and no wave counted
        a /= length;
        b /= length;
        c /= length;
        const float phase = tableAt(i);
        i += 1;
        sum +=
            std::cos(a * x * kTwoPi + b * y * kTwoPi + c * z * kTwoPi + phase * kPi + time * kPi);
        ++wave;
    }
    return sum / float(nWaves);
}

float TcosTexture::getNoise2(float u, float v, float time, int octave) const {
    int i = octave * 50;
    float sum = 0.0f;
    for (int wave = 0; wave < nWaves;) {
        float a = tableAt(i), b = tableAt(i + 1);
        i += 2;
        const float length = std::sqrt(a * a + b * b);
        if (length == 0.0f)
            continue;
        a /= length;
        b /= length;
        const float phase = tableAt(i);
        i += 1;
        sum += std::cos(a * u * kTwoPi + b * v * kTwoPi + phase * kPi + time * kPi);
        ++wave;
    }
    return sum / float(nWaves);
}
