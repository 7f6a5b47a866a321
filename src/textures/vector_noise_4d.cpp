#include "textures/vector_noise_4d.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <new>
#include <vector>

#include "textures/noise_functions.h"

int8_t* T4dVectorNoise::fsData = nullptr;
float T4dVectorNoise::fsMaxMagnitude = 0.0f;
double T4dVectorNoise::fsGaussAdd = 0.0;
double T4dVectorNoise::fsGaussFac = 0.0;
std::mutex T4dVectorNoise::fsCS;
std::atomic<bool> T4dVectorNoise::fsFirstTime{true};
std::atomic<int> T4dVectorNoise::fsClassCounter{0};

namespace {

using Complex = std::complex<double>;
constexpr int kN = T4dVectorNoise::fsNs; // the same count on every axis
constexpr int kCells = kN * kN * kN * kN;
static_assert(T4dVectorNoise::fsNs == T4dVectorNoise::fsNt, "one FFT size for all four axes");

// Only used under fsCS, while the field is built.
Trand48 sRandom;

inline int cellIndex(int x, int y, int z, int t) {
    return x + kN * (y + kN * (z + kN * t));
}

// A signed frequency from an FFT index.
inline int frequencyOf(int i) {
    return i < kN / 2 ? i : i - kN;
}

// In-place inverse transform of one line of kN values (radix 2).
void inverseLine(Complex* a) {
    for (int i = 1, j = 0; i < kN; ++i) {
        int bit = kN >> 1;
        for (; j & bit; bit >>= 1)
            j ^= bit;
        j ^= bit;
        if (i < j)
            std::swap(a[i], a[j]);
    }
    for (int len = 2; len <= kN; len <<= 1) {
        const double angle = 2.0 * M_PI / len;
        const Complex step(std::cos(angle), std::sin(angle));
        for (int i = 0; i < kN; i += len) {
            Complex w(1.0, 0.0);
            for (int k = 0; k < len / 2; ++k) {
                const Complex u = a[i + k];
                const Complex v = a[i + k + len / 2] * w;
                a[i + k] = u + v;
                a[i + k + len / 2] = u - v;
                w *= step;
            }
        }
    }
}

// The four-dimensional inverse transform, one axis after another.
void fourn(std::vector<Complex>& data) {
    Complex line[kN];
    int stride = 1;
    for (int axis = 0; axis < 4; ++axis, stride *= kN) {
        for (int start = 0; start < kCells; ++start) {
            if ((start / stride) % kN != 0)
                continue; // not the first cell of a line along this axis
            for (int k = 0; k < kN; ++k)
                line[k] = data[size_t(start + k * stride)];
            inverseLine(line);
            for (int k = 0; k < kN; ++k)
                data[size_t(start + k * stride)] = line[k];
        }
    }
}

} // namespace

T4dVectorNoise::T4dVectorNoise() {
    ++fsClassCounter;
}

T4dVectorNoise::~T4dVectorNoise() {
    --fsClassCounter;
}

void T4dVectorNoise::InitGauss() {
    fsGaussAdd = std::sqrt(24.0);
    fsGaussFac = 2.0 * std::sqrt(24.0) / 8.0;
}

// Near normal: the sum of 8 uniform values, centred and scaled.
double T4dVectorNoise::NGauss() {
    double sum = 0.0;
    for (int i = 0; i < 8; ++i)
        sum += sRandom.drand48();
    return sum * fsGaussFac - fsGaussAdd;
}

double T4dVectorNoise::Unif(double a, double b) {
    return a + (b - a) * sRandom.drand48();
}

namespace {

// The energy of wave number k at temporal frequency w.
double energy(double k, double w) {
    if (k < T4dVectorNoise::fsKc)
        return 0.0;
    double v = T4dVectorNoise::fsSigma * k * k;
    if (!(v > 0.0))
        v = 0.001;
    return (1.5 / std::pow(k, T4dVectorNoise::fsEpsilon)) * std::exp(-0.5 * w * w / v) /
           std::sqrt(2.0 * M_PI * v);
}

} // namespace

void T4dVectorNoise::initTable() {
    if (!fsFirstTime.load(std::memory_order_acquire))
        return;
    std::lock_guard<std::mutex> lock(fsCS);
    if (!fsFirstTime.load(std::memory_order_relaxed))
        return;
    sRandom.srand48(5);
    InitGauss();
    try {
        std::vector<Complex> field[3];
        for (auto& f : field)
            f.assign(kCells, Complex(0.0, 0.0));
        for (int t = 0; t < kN; ++t)
            for (int z = 0; z < kN; ++z)
                for (int y = 0; y < kN; ++y)
                    for (int x = 0; x < kN; ++x) {
                        const int n = cellIndex(x, y, z, t);
                        const int mirror =
                            cellIndex((kN - x) % kN, (kN - y) % kN, (kN - z) % kN, (kN - t) % kN);
                        if (mirror < n)
                            continue; // filled as the conjugate of its partner
                        // CalcField: the spectral tensor's square root applied
                        // to a complex normal vector. The tensor is a scalar
                        // times the projection away from k, so its root is the
                        // root of the scalar times that projection.
                        const double k[3] = {double(frequencyOf(x)), double(frequencyOf(y)),
                                             double(frequencyOf(z))};
                        const double k2 = k[0] * k[0] + k[1] * k[1] + k[2] * k[2];
                        const double length = std::sqrt(k2);
                        const double e = energy(length, double(frequencyOf(t)));
                        Complex g[3];
                        // A normal amplitude at a uniform phase per component.
                        for (Complex& c : g) {
                            const double r = NGauss(), a = Unif(0.0, 2.0 * M_PI);
                            c = Complex(r * std::cos(a), r * std::sin(a));
                        }
                        if (e <= 0.0)
                            continue;
                        const double amplitude = std::sqrt(e / (4.0 * M_PI * k2));
                        for (int i = 0; i < 3; ++i) {
                            Complex sum(0.0, 0.0);
                            for (int j = 0; j < 3; ++j)
                                sum += ((i == j ? 1.0 : 0.0) - k[i] * k[j] / k2) * g[j];
                            Complex value = amplitude * sum;
                            // CalcSymField: a real field needs F(-k) = conj F(k);
                            // a cell that is its own partner holds a real value.
                            if (mirror == n)
                                value = Complex(value.real(), 0.0);
                            field[i][size_t(n)] = value;
                            field[i][size_t(mirror)] = std::conj(value);
                        }
                    }
        for (auto& f : field)
            fourn(f);

        double largest = 0.0;
        for (int n = 0; n < kCells; ++n) {
            const double x = field[0][size_t(n)].real(), y = field[1][size_t(n)].real(),
                         z = field[2][size_t(n)].real();
            largest = std::max(largest, std::sqrt(x * x + y * y + z * z));
        }
        auto* bytes = new (std::nothrow) int8_t[size_t(kCells) * 4];
        if (bytes && largest > 0.0) {
            for (int n = 0; n < kCells; ++n) {
                for (int i = 0; i < 3; ++i)
                    bytes[n * 4 + i] =
                        int8_t(std::lround(field[i][size_t(n)].real() / largest * 127.0));
                bytes[n * 4 + 3] = 0;
            }
            fsMaxMagnitude = float(largest);
            fsData = bytes;
        } else {
            delete[] bytes;
        }
    } catch (const std::bad_alloc&) {
        // The field stays without data: every read gives zero vectors.
    }
    fsFirstTime.store(false, std::memory_order_release);
}

T3Float T4dVectorNoise::sample(const T3Float& p, float t, Blend blend) {
    initTable();
    if (!fsData)
        return {};
    const float coords[4] = {p.x * float(fsNs / 2), p.y * float(fsNs / 2), p.z * float(fsNs / 2),
                             t * float(fsNt / 2)};
    int cell[4];
    float weight[4];
    for (int a = 0; a < 4; ++a) {
        const float fl = std::floor(coords[a]);
        float f = coords[a] - fl;
        // The cell modulo 16, taken without converting a huge value to int.
        cell[a] = int(fl - float(kN) * std::floor(fl / float(kN))) & (kN - 1);
        const bool cubic = blend == Blend::Cubic || (blend == Blend::CubicTime && a == 3);
        if (cubic)
            f = f * f * (3.0f - 2.0f * f);
        weight[a] = f;
    }
    float out[3] = {0.0f, 0.0f, 0.0f};
    for (int corner = 0; corner < 16; ++corner) {
        float w = 1.0f;
        int at[4];
        for (int a = 0; a < 4; ++a) {
            const int up = (corner >> a) & 1;
            w *= up ? weight[a] : 1.0f - weight[a];
            at[a] = (cell[a] + up) & (kN - 1);
        }
        const int8_t* v = fsData + size_t(cellIndex(at[0], at[1], at[2], at[3])) * 4;
        for (int i = 0; i < 3; ++i)
            out[i] += w * float(v[i]);
    }
    return {out[0] / 127.0f, out[1] / 127.0f, out[2] / 127.0f};
}

T3Float T4dVectorNoise::getNoise(const T3Float& p, float t) const {
    return sample(p, t, Blend::Linear);
}

T3Float T4dVectorNoise::getNoiseSmooth(const T3Float& p, float t) const {
    return sample(p, t, Blend::Cubic);
}

T3Float T4dVectorNoise::getNoiseSmoothTime(const T3Float& p, float t) const {
    return sample(p, t, Blend::CubicTime);
}
