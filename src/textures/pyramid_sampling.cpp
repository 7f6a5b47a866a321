// Reading a pyramid: texels, bilinear fetches at a level, and the blend of
// two levels for a footprint. One sample at a time or a batch; a batch
// chooses its kernel (bytes or floats, channel count, memory or BOT) once.

#include <algorithm>
#include <cmath>
#include <cstring>

#include "textures/file_texture_cache.h"
#include "textures/pyramid.h"

namespace {

// Bytes become floats by this factor, 1 / 255 as a 32-bit float.
constexpr float kByteScale = 0.0039215684f;

// The two texels around a coordinate on one axis, and the weight of the
// first. x is in texels with texel centres at whole numbers.
struct Axis {
    unsigned i0;
    unsigned i1;
    double f;
};

inline Axis axisAt(double x, unsigned n, bool wrap) {
    const double last = double(n) - 1.0;
    if (x >= 0.0 && x < last) {
        const unsigned i = unsigned(x);
        return {i, i + 1, double(i + 1) - x};
    }
    if (x >= last)
        // At or beyond the last centre: towards the first texel when
        // wrapping, the last one again otherwise.
        return {n - 1, wrap ? 0u : n - 1, double(n) - x};
    // Left of the first centre (a NaN lands here too, harmlessly).
    return {wrap ? n - 1 : 0u, 0u, -x};
}

// The texel under t (0 .. 1 across n texels), wrapped or clamped.
inline unsigned nearestAt(double t, unsigned n, bool wrap) {
    double x = std::floor(t * double(n));
    if (wrap && std::isfinite(x))
        x -= double(n) * std::floor(x / double(n));
    if (!(x >= 0.0))
        x = 0.0;
    if (x > double(n) - 1.0)
        x = double(n) - 1.0;
    return unsigned(x);
}

} // namespace

// The kernels, by channel type T, channel count C and where the texels come
// from (memory, or a BOT file through this thread's block cache).
struct TpyramidSampling {
    template <class T, unsigned C, bool kBot>
    struct Kernel {
        static constexpr unsigned kChannels = C;
        const Tpyramid& p;
        TfileTextureCache* cache;

        const uint8_t* texel(unsigned level, unsigned x, unsigned y) const {
            if constexpr (kBot)
                return cache->fetch(p, level, x, y);
            else
                return p.levelPointer(level) +
                       (size_t(y) * p.levelWidth(level) + x) * (C * sizeof(T));
        }

        // The texel's first `channels` channels as floats, read at once: a
        // BOT texel lives in a slot that the next fetch may reuse.
        template <unsigned N>
        void read(unsigned level, unsigned x, unsigned y, float* out) const {
            convert<N>(texel(level, x, y), out);
        }

        template <unsigned N>
        static void convert(const uint8_t* t, float* out) {
            for (unsigned c = 0; c < N; ++c) {
                if constexpr (std::is_same_v<T, float>) {
                    float value;
                    std::memcpy(&value, t + c * sizeof(float), sizeof value);
                    out[c] = value;
                } else {
                    out[c] = float(t[c]) * kByteScale;
                }
            }
        }

        unsigned levelFor(unsigned level) const {
            return p.fHasMipmaps ? std::min<unsigned>(level, p.fMaxLevel) : p.fMaxLevel;
        }

        // levelCol / levelVal: N channels of one fetch at `level`.
        template <unsigned N>
        void fetch(const TfileTextureWrapper& wrapper, unsigned level, float u, float v,
                   bool nearest, float* out) const {
            level = levelFor(level);
            const unsigned w = p.levelWidth(level), h = p.levelHeight(level);
            if (nearest && wrapper.noFilter) {
                read<N>(level, nearestAt(u, w, wrapper.wrapU), nearestAt(v, h, wrapper.wrapV), out);
                return;
            }
            const Axis ax = axisAt(double(w) * double(u) - 0.5, w, wrapper.wrapU);
            const Axis ay = axisAt(double(h) * double(v) - 0.5, h, wrapper.wrapV);
            float a[N], b[N], c[N], d[N];
            const uint8_t* quad[4];
            if (kBot && cache->fetchQuad(p, level, ax.i0, ax.i1, ay.i0, ay.i1, quad)) {
                // The four texels in one block, found with one lookup.
                convert<N>(quad[0], a);
                convert<N>(quad[1], b);
                convert<N>(quad[2], c);
                convert<N>(quad[3], d);
            } else {
                read<N>(level, ax.i0, ay.i0, a);
                read<N>(level, ax.i0, ay.i1, b);
                read<N>(level, ax.i1, ay.i0, c);
                read<N>(level, ax.i1, ay.i1, d);
            }
            const double w00 = ax.f * ay.f, w01 = ax.f * (1.0 - ay.f);
            const double w10 = (1.0 - ax.f) * ay.f, w11 = (1.0 - ax.f) * (1.0 - ay.f);
            for (unsigned k = 0; k < N; ++k)
                out[k] = float(w00 * a[k] + w01 * b[k] + w10 * c[k] + w11 * d[k]);
        }

        // The level or the two levels getMapColor reads for a footprint of
        // `filter` in UV, and the weight of the second.
        struct Levels {
            unsigned first;
            unsigned count;
            float t;
        };
        Levels levelsFor(const TfileTextureWrapper& wrapper, float filter, bool forceTop) const {
            const unsigned top = p.fMaxLevel;
            if (filter >= 1.0f)
                return {forceTop || wrapper.noFilter ? top : 0, 1, 0.0f};
            // No filtering, or a footprint below one texel of the top image
            // (a NaN filter lands here too).
            if (forceTop || wrapper.noFilter || !(p.fAspect < float(p.fShortSide) * filter))
                return {top, 1, 0.0f};
            // The footprint, in texels across: between level L's side and
            // the next one's, a blend of the two.
            const float desired = p.fAspect / filter;
            unsigned level = top - 1;
            while (level > 0 && int(desired) < int(1u << level))
                --level;
            const float low = float(1u << level);
            return {level, 2, (desired - low) / (2.0f * low - low)};
        }

        // getMapColor: the level or the two levels for a footprint of
        // `filter` in UV.
        void mapColor(const TfileTextureWrapper& wrapper, float u, float v, float filter,
                      bool forceTop, float* out) const {
            const Levels levels = levelsFor(wrapper, filter, forceTop);
            if (levels.count == 1) {
                fetch<C>(wrapper, levels.first, u, v, true, out);
                return;
            }
            float a[C], b[C];
            fetch<C>(wrapper, levels.first, u, v, true, a);
            fetch<C>(wrapper, levels.first + 1, u, v, true, b);
            for (unsigned k = 0; k < C; ++k)
                out[k] = (1.0f - levels.t) * a[k] + levels.t * b[k];
        }

        // Starts loading what a fetch at (u, v) of `level` will read, for a
        // BOT pyramid under a large cache, whose lookups wait on memory: a
        // batch asks a few samples ahead, so that those waits overlap.
        void prefetch(const TfileTextureWrapper& wrapper, unsigned level, float u, float v,
                      bool nearest) const {
            if constexpr (kBot) {
                level = levelFor(level);
                const unsigned w = p.levelWidth(level), h = p.levelHeight(level);
                if (nearest && wrapper.noFilter) {
                    const unsigned y = nearestAt(v, h, wrapper.wrapV);
                    cache->prefetch(p, level, nearestAt(u, w, wrapper.wrapU), y, y);
                    return;
                }
                const Axis ax = axisAt(double(w) * double(u) - 0.5, w, wrapper.wrapU);
                const Axis ay = axisAt(double(h) * double(v) - 0.5, h, wrapper.wrapV);
                cache->prefetch(p, level, ax.i0, ay.i0, ay.i1);
            }
        }

        bool prefetching() const {
            if constexpr (kBot)
                return cache->capacity() > TfileTextureCache::kMaxFlaggedSlots;
            return false;
        }

        static void store(const float* in, T3Float& color, float& alpha) {
            if constexpr (C == 1) {
                color = {in[0], in[0], in[0]};
            } else {
                color = {in[0], in[1], in[2]};
                if constexpr (C == 4)
                    alpha = in[3];
            }
        }

        void mapColors(const TfileTextureWrapper& wrapper, unsigned n, const float* u,
                       const float* v, const float* filter, unsigned filterStride, bool forceTop,
                       T3Float* color, float* alpha) const {
            float out[C];
            if (prefetching()) {
                constexpr unsigned kAhead = 8;
                for (unsigned i = 0; i < n; ++i) {
                    if (const unsigned j = i + kAhead; j < n) {
                        const Levels levels =
                            levelsFor(wrapper, filter[size_t(j) * filterStride], forceTop);
                        for (unsigned l = 0; l < levels.count; ++l)
                            prefetch(wrapper, levels.first + l, u[j], v[j], true);
                    }
                    mapColor(wrapper, u[i], v[i], filter[size_t(i) * filterStride], forceTop, out);
                    store(out, color[i], alpha[i]);
                }
                return;
            }
            for (unsigned i = 0; i < n; ++i) {
                mapColor(wrapper, u[i], v[i], filter[size_t(i) * filterStride], forceTop, out);
                store(out, color[i], alpha[i]);
            }
        }

        void levelCols(const TfileTextureWrapper& wrapper, unsigned level, unsigned n,
                       const float* u, const float* v, bool nearest, T3Float* color,
                       float* alpha) const {
            float out[C];
            const bool ahead = prefetching();
            for (unsigned i = 0; i < n; ++i) {
                if (ahead && i + 3 < n)
                    prefetch(wrapper, level, u[i + 3], v[i + 3], nearest);
                fetch<C>(wrapper, level, u[i], v[i], nearest, out);
                store(out, color[i], alpha[i]);
            }
        }
    };

    // Calls f with the kernel that fits the pyramid.
    template <class F>
    static void dispatch(const Tpyramid& p, F&& f) {
        if (p.fIsBOT) {
            TfileTextureCache* cache = &TfileTextureCache::forThisThread();
            switch (p.fPixelSize) {
            case 1:
                return f(Kernel<uint8_t, 1, true>{p, cache});
            case 3:
                return f(Kernel<uint8_t, 3, true>{p, cache});
            default:
                return f(Kernel<uint8_t, 4, true>{p, cache});
            }
        }
        if (p.fPixelType == kPixelTypeFloat) {
            switch (p.fPixelSize) {
            case 1:
                return f(Kernel<float, 1, false>{p, nullptr});
            case 3:
                return f(Kernel<float, 3, false>{p, nullptr});
            default:
                return f(Kernel<float, 4, false>{p, nullptr});
            }
        }
        switch (p.fPixelSize) {
        case 1:
            return f(Kernel<uint8_t, 1, false>{p, nullptr});
        case 3:
            return f(Kernel<uint8_t, 3, false>{p, nullptr});
        default:
            return f(Kernel<uint8_t, 4, false>{p, nullptr});
        }
    }
};

void Tpyramid::getMapColor(const TfileTextureWrapper& wrapper, float u, float v, T3Float& color,
                           float& alpha, bool forceTop, float filter) const {
    if (!isBuilt())
        return;
    TpyramidSampling::dispatch(*this, [&](const auto& kernel) {
        float out[4];
        kernel.mapColor(wrapper, u, v, filter, forceTop, out);
        kernel.store(out, color, alpha);
    });
}

void Tpyramid::levelCol(const TfileTextureWrapper& wrapper, unsigned level, float u, float v,
                        T3Float& color, float& alpha, bool nearest) const {
    if (!isBuilt())
        return;
    TpyramidSampling::dispatch(*this, [&](const auto& kernel) {
        using K = std::decay_t<decltype(kernel)>;
        float out[K::kChannels];
        kernel.template fetch<K::kChannels>(wrapper, level, u, v, nearest, out);
        kernel.store(out, color, alpha);
    });
}

void Tpyramid::levelVal(const TfileTextureWrapper& wrapper, unsigned level, float u, float v,
                        float& value, bool nearest) const {
    if (!isBuilt())
        return;
    TpyramidSampling::dispatch(*this, [&](const auto& kernel) {
        kernel.template fetch<1>(wrapper, level, u, v, nearest, &value);
    });
}

void Tpyramid::getTexel(unsigned level, unsigned x, unsigned y, T3Float& color,
                        float& alpha) const {
    if (!isBuilt())
        return;
    TpyramidSampling::dispatch(*this, [&](const auto& kernel) {
        using K = std::decay_t<decltype(kernel)>;
        const unsigned l = kernel.levelFor(level);
        float out[K::kChannels];
        kernel.template read<K::kChannels>(l, std::min(x, levelWidth(l) - 1),
                                           std::min(y, levelHeight(l) - 1), out);
        kernel.store(out, color, alpha);
    });
}

void Tpyramid::weightedSum(unsigned level, int x0, unsigned nx, const float* wx, int y0,
                           unsigned ny, const float* wy, bool wrapU, bool wrapV, T3Float& color,
                           float& alpha) const {
    if (!isBuilt() || nx == 0 || ny == 0)
        return;
    TpyramidSampling::dispatch(*this, [&](const auto& kernel) {
        using K = std::decay_t<decltype(kernel)>;
        constexpr unsigned C = K::kChannels;
        const unsigned l = kernel.levelFor(level);
        const int w = int(levelWidth(l)), h = int(levelHeight(l));
        auto index = [](int i, int n, bool wrap) {
            if (wrap)
                return unsigned(((i % n) + n) % n);
            return unsigned(std::clamp(i, 0, n - 1));
        };
        double sum[C] = {};
        for (unsigned j = 0; j < ny; ++j) {
            if (wy[j] == 0.0f)
                continue;
            const unsigned y = index(y0 + int(j), h, wrapV);
            double row[C] = {};
            for (unsigned i = 0; i < nx; ++i) {
                if (wx[i] == 0.0f)
                    continue;
                float t[C];
                kernel.template read<C>(l, index(x0 + int(i), w, wrapU), y, t);
                for (unsigned c = 0; c < C; ++c)
                    row[c] += double(wx[i]) * t[c];
            }
            for (unsigned c = 0; c < C; ++c)
                sum[c] += double(wy[j]) * row[c];
        }
        float out[C];
        for (unsigned c = 0; c < C; ++c)
            out[c] = float(sum[c]);
        kernel.store(out, color, alpha);
    });
}

const uint8_t* Tpyramid::texelData(unsigned level, unsigned x, unsigned y) const {
    if (!isBuilt())
        return nullptr;
    const uint8_t* data = nullptr;
    TpyramidSampling::dispatch(*this, [&](const auto& kernel) {
        const unsigned l = kernel.levelFor(level);
        data = kernel.texel(l, std::min(x, levelWidth(l) - 1), std::min(y, levelHeight(l) - 1));
    });
    return data;
}

void Tpyramid::getMapColors(const TfileTextureWrapper& wrapper, unsigned n, const float* u,
                            const float* v, const float* filter, unsigned filterStride,
                            bool forceTop, T3Float* color, float* alpha) const {
    if (!isBuilt() || n == 0)
        return;
    TpyramidSampling::dispatch(*this, [&](const auto& kernel) {
        kernel.mapColors(wrapper, n, u, v, filter, filterStride, forceTop, color, alpha);
    });
}

void Tpyramid::levelCols(const TfileTextureWrapper& wrapper, unsigned level, unsigned n,
                         const float* u, const float* v, T3Float* color, float* alpha,
                         bool nearest) const {
    if (!isBuilt() || n == 0)
        return;
    TpyramidSampling::dispatch(*this, [&](const auto& kernel) {
        kernel.levelCols(wrapper, level, n, u, v, nearest, color, alpha);
    });
}
