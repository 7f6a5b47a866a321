// The shading interpreter beside hand-fused C++ on the same inputs.
//
// A shading group's network is compiled into an instruction list and shaded
// 64 samples at a time so that the interpreter's cost (instruction dispatch,
// data block look-ups, copies between blocks and sample fields) is spread
// over a batch. This program measures how much of that works: each network
// is shaded three ways over the same samples,
//   opus/64  through the sample manager, dispatched in batches of 64,
//   opus/1   through the sample manager, one sample a batch (dispatch, flush),
//   fused    one hand-written loop computing the same values from the same
//            inputs, with the network's formulas written out inline,
//            built for baseline x86-64 as the rest of the build,
//   wide     the same loop built for x86-64-v4 (AVX-512 and FMA) where the
//            processor has it, the vectors the engine's run kernels reach,
// and every output the renderer reads back must agree to a small tolerance
// over all samples before anything is timed.
//
// Networks:
//   lambert N  place2dTexture (repeat 4) -> checker (filtered) -> lambert,
//              lit by N directional lights (1, 4, 16); the FLOP per sample
//              of the fused loop against the core's arithmetic peak.
//   blinn N    the same network through blinn (1 and 16 lights): lambert's
//              terms and a microfacet highlight a light.
//   chain K    a placement feeding K utility nodes in a chain
//              (multiplyDivide, or plusMinusAverage), then a condition whose
//              outColor is the group's surface shader; the cost per node per
//              sample is the slope between K = 1 and K = 16.
//   one node   a checker read straight from the sample's coordinates as the
//              whole network: opus less fused is what every network pays
//              before its first node.
//
// Timing: passes over all samples, the ways interleaved so that a
// change of machine load touches all of them alike; the median pass gives
// ns per sample. Other work on the machine moves the numbers: compare the
// ratios of one run, and runs by their medians.
//
// --profile NAME WAY PASSES runs one row one way (64, 1, fused or wide) without
// timing, for perf or valgrind --tool=callgrind.

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <numbers>
#include <sstream>
#include <string>
#include <vector>

#include "host/graph.h"
#include "host/qsl/interpreter.h"
#include "shading/opus.h"
#include "shading/render_thread.h"
#include "shading/sample.h"
#include "shading/sample_manager.h"
#include "shading/shading_engine.h"

namespace {

constexpr unsigned kWidth = 64;
constexpr unsigned kHeight = 64;
constexpr unsigned kSamples = kWidth * kHeight;
constexpr int kPasses = 31;

// ---------------------------------------------------------------- inputs and outputs

// What a renderer knows of each sample; all three ways read these. The
// same values are kept as structures of arrays too, for the fused loops
// that run over many samples at once.
// The engine's run kernels use the widest vectors the processor has,
// chosen when they first run. Each vectorised fused loop is timed twice:
// built for baseline x86-64 (SSE2, as the rest of the build; the ratios of
// earlier runs are against this one) and built for x86-64-v4 (AVX-512 with
// FMA), the widest this machine has, which is the limit the run kernels
// reach for. The body is inlined into both.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
#define ORVO_FUSED_BODY [[gnu::always_inline]] inline
#define ORVO_FUSED_WIDE __attribute__((target("arch=x86-64-v4")))
bool wideFusedRuns() {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512vl") &&
           __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512dq") &&
           __builtin_cpu_supports("fma") && __builtin_cpu_supports("avx2");
}
#else
#define ORVO_FUSED_BODY inline
#define ORVO_FUSED_WIDE
bool wideFusedRuns() {
    return false;
}
#endif
// name(params) for baseline x86-64 and nameWide(params) for x86-64-v4.
#define ORVO_FUSED_WAYS(name, params, args)                                                        \
    void name params {                                                                             \
        name##Body args;                                                                           \
    }                                                                                              \
    ORVO_FUSED_WIDE void name##Wide params {                                                       \
        name##Body args;                                                                           \
    }

struct Inputs {
    std::vector<T2Float> uv, uvFilter;
    std::vector<T3Float> point, normal, ray;
    std::vector<float> u, v, fu, fv, nx, ny, nz;
};

Inputs makeInputs() {
    Inputs in;
    for (unsigned j = 0; j < kHeight; ++j)
        for (unsigned i = 0; i < kWidth; ++i) {
            const float u = (float(i) + 0.5f) / float(kWidth);
            const float v = (float(j) + 0.5f) / float(kHeight);
            in.uv.push_back({u, v});
            in.uvFilter.push_back({1.0f / float(kWidth), 1.0f / float(kHeight)});
            // A sphere seen head on: the normal turns across the image.
            const float x = 2.0f * u - 1.0f, y = 1.0f - 2.0f * v;
            const float r2 = std::min(x * x + y * y, 0.98f);
            const float z = std::sqrt(1.0f - r2);
            const float length = std::sqrt(x * x + y * y + z * z);
            in.normal.push_back({x / length, y / length, z / length});
            in.point.push_back({x, y, z - 5.0f});
            in.ray.push_back({0.0f, 0.0f, -1.0f});
        }
    for (unsigned s = 0; s < kSamples; ++s) {
        in.u.push_back(in.uv[s].x);
        in.v.push_back(in.uv[s].y);
        in.fu.push_back(in.uvFilter[s].x);
        in.fv.push_back(in.uvFilter[s].y);
        in.nx.push_back(in.normal[s].x);
        in.ny.push_back(in.normal[s].y);
        in.nz.push_back(in.normal[s].z);
    }
    return in;
}

// What the renderer reads back.
struct Outputs {
    std::vector<T3Float> color, transparency, glow, matte;
    explicit Outputs(size_t n) : color(n), transparency(n), glow(n), matte(n) {}
};

enum OutputBits : unsigned { kColour = 1, kTransparency = 2, kGlow = 4, kMatte = 8 };

// ---------------------------------------------------------------- the network side

// A renderer's group: the completion callback copies the outputs of each
// shaded batch into the output arrays, in the order the samples were
// dispatched.
class Group : public TrenderGroupBase {
public:
    Completion completion() const override { return &Group::done; }
    void* completionData() const override { return const_cast<Group*>(this); }
    bool receiveShadows() const override { return false; }

    Outputs* out = nullptr;
    unsigned next = 0;
    unsigned outputs = kColour;

private:
    static void done(unsigned, TrenderGroupBase*, Tsample** samples, unsigned count, void* user) {
        auto* self = static_cast<Group*>(user);
        Outputs& o = *self->out;
        for (unsigned i = 0; i < count; ++i, ++self->next) {
            const Tsample& s = *samples[i];
            o.color[self->next] = *s.outColor();
            if (self->outputs & kTransparency)
                o.transparency[self->next] = *s.outTransparency();
            if (self->outputs & kGlow)
                o.glow[self->next] = *s.outGlowColor();
            if (self->outputs & kMatte)
                o.matte[self->next] = *s.outMatteOpacity();
        }
    }
};

// One shading group loaded from scene text, compiled for option 0, with
// samples allocated once and filled from the inputs.
class Network {
public:
    Network(const std::string& scene, const Inputs& in) {
        std::ostringstream out;
        try {
            qsl::Interpreter(fGraph, out).runText(scene, "bench.qsl");
        } catch (const std::exception& e) {
            std::fprintf(stderr, "shading_opus: the scene does not load: %s\n", e.what());
            std::exit(1);
        }
        fEngine = dynamic_cast<TDNshadingEngine*>(fGraph.findNode("sg"));
        if (!fEngine) {
            std::fprintf(stderr, "shading_opus: the scene has no shading group sg\n");
            std::exit(1);
        }
        fThread.initShadingGroup(fEngine);
        const TbitField64 provided = fThread.startSampling(fEngine, 0, &fGroup);
        fGroup.outputs = 0;
        if (provided.test(TsampleFields::outColor))
            fGroup.outputs |= kColour;
        if (provided.test(TsampleFields::outTransparency))
            fGroup.outputs |= kTransparency;
        if (provided.test(TsampleFields::outGlowColor))
            fGroup.outputs |= kGlow;
        if (provided.test(TsampleFields::outMatteOpacity))
            fGroup.outputs |= kMatte;
        fSamples.assign(kSamples, nullptr);
        manager().allocateSamples(fEngine, 0, &fGroup, kSamples, fSamples.data());
        for (unsigned s = 0; s < kSamples; ++s) {
            Tsample& sample = *fSamples[s];
            sample.setUvCoord(in.uv[s]);
            sample.setUvFilterSize(in.uvFilter[s]);
            sample.setPointCamera(in.point[s]);
            sample.setNormalCamera(in.normal[s]);
            sample.setRayDirection(in.ray[s]);
        }
    }
    ~Network() {
        manager().releaseSamples(kSamples, fSamples.data());
        fThread.endSampling(fEngine, 0, &fGroup);
        fThread.destroyContents();
        TrenderThreadBase::resetShadingGroups();
    }
    Network(const Network&) = delete;
    Network& operator=(const Network&) = delete;

    unsigned outputs() const { return fGroup.outputs; }
    const TshadingOpus& opus() const { return *fEngine->controlBlock(0); }

    // All samples in batches of 64: a full batch runs as it is dispatched.
    void shade64(Outputs& out) {
        begin(out);
        manager().dispatchSamples(kSamples, fSamples.data());
        manager().flushDispatchedSamples();
    }
    // One sample a batch: each dispatch is followed by a flush.
    void shade1(Outputs& out) {
        begin(out);
        for (Tsample* s : fSamples) {
            manager().dispatchSamples(1, &s);
            manager().flushDispatchedSamples();
        }
    }
    unsigned delivered() const { return fGroup.next; }

private:
    TsampleManager& manager() { return *fThread.sampleManager(); }
    void begin(Outputs& out) {
        fGroup.out = &out;
        fGroup.next = 0;
    }

    TdependGraph fGraph;
    TDNshadingEngine* fEngine = nullptr;
    TrenderThreadBase fThread;
    Group fGroup;
    std::vector<Tsample*> fSamples;
};

// ---------------------------------------------------------------- agreement and timing

bool agree(const char* what, const std::vector<T3Float>& a, const std::vector<T3Float>& b,
           float tolerance) {
    float worst = 0.0f;
    size_t at = 0;
    for (size_t s = 0; s < a.size(); ++s)
        for (int c = 0; c < 3; ++c) {
            const float x = a[s][c], y = b[s][c];
            const float d = std::fabs(x - y) / std::max(1.0f, std::fabs(y));
            if (!(d <= worst)) { // NaN counts as the worst
                worst = std::isnan(d) ? INFINITY : d;
                at = s;
            }
        }
    if (worst <= tolerance)
        return true;
    std::printf("    %s differs: sample %zu (%u, %u): (%.9g %.9g %.9g) against (%.9g %.9g %.9g)\n",
                what, at, unsigned(at % kWidth), unsigned(at / kWidth), double(a[at].x),
                double(a[at].y), double(a[at].z), double(b[at].x), double(b[at].y),
                double(b[at].z));
    return false;
}

bool agreeAll(const char* way, const Outputs& got, const Outputs& fused, unsigned outputs) {
    constexpr float kTolerance = 2e-6f;
    bool ok = true;
    std::string prefix = std::string(way) + " against fused: ";
    if (outputs & kColour)
        ok &= agree((prefix + "outColor").c_str(), got.color, fused.color, kTolerance);
    if (outputs & kTransparency)
        ok &= agree((prefix + "outTransparency").c_str(), got.transparency, fused.transparency,
                    kTolerance);
    if (outputs & kGlow)
        ok &= agree((prefix + "outGlowColor").c_str(), got.glow, fused.glow, kTolerance);
    if (outputs & kMatte)
        ok &= agree((prefix + "outMatteOpacity").c_str(), got.matte, fused.matte, kTolerance);
    return ok;
}

// The outputs must not be flat: a network that lost its inputs would agree
// with a fused loop that lost them too.
bool varies(const std::vector<T3Float>& values) {
    float lo = values[0].x, hi = values[0].x;
    for (const T3Float& c : values) {
        lo = std::min(lo, c.x);
        hi = std::max(hi, c.x);
    }
    return hi - lo > 1e-3f;
}

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

template <typename F>
double nsOf(F&& f) {
    const auto start = std::chrono::steady_clock::now();
    f();
    const auto end = std::chrono::steady_clock::now();
    return std::chrono::duration<double, std::nano>(end - start).count();
}

struct Timing {
    double opus64 = 0, opus1 = 0, fused = 0, wide = 0; // ns per sample
};

using FusedFn = std::function<void(const Inputs&, Outputs&)>;

// --profile NAME WAY PASSES: only the row NAME, only one way (64, 1, fused
// or wide), many passes and no timing, for perf or callgrind.
struct Profile {
    std::string name;
    std::string way;
    int passes = 0;
} gProfile;

// Checks agreement, then times the three ways interleaved.
// `wide` is the fused loop built for the widest vectors (empty: the same
// loop as `fused`).
bool measure(const char* name, const std::string& scene, const Inputs& in, const FusedFn& fused,
             Timing& t, const FusedFn& wideFn = {}) {
    const FusedFn& wide = wideFn && wideFusedRuns() ? wideFn : fused;
    if (gProfile.passes && gProfile.name != name)
        return false;
    Network net(scene, in);
    Outputs a(kSamples), b(kSamples), f(kSamples), w(kSamples);
    net.shade64(a);
    const bool all64 = net.delivered() == kSamples;
    net.shade1(b);
    const bool all1 = net.delivered() == kSamples;
    fused(in, f);
    wide(in, w);
    bool ok = all64 && all1;
    if (!ok)
        std::printf("    %s: %s samples came back\n", name,
                    all64 ? "not all batch-1" : "not all batch-64");
    ok &= agreeAll("opus/64", a, f, net.outputs());
    ok &= agreeAll("opus/1", b, f, net.outputs());
    ok &= agreeAll("wide fused", w, f, net.outputs());
    if (!varies(f.color)) {
        std::printf("    %s: outColor is flat over the image\n", name);
        ok = false;
    }
    std::printf("  %-34s %s\n", name, ok ? "agree" : "DISAGREE");
    if (!ok)
        return false;
    if (gProfile.passes) {
        for (int pass = 0; pass < gProfile.passes; ++pass) {
            if (gProfile.way == "64")
                net.shade64(a);
            else if (gProfile.way == "1")
                net.shade1(b);
            else if (gProfile.way == "wide")
                wide(in, w);
            else
                fused(in, f);
        }
        return true;
    }

    std::vector<double> t64, t1, tf, tw;
    volatile float sink = 0;
    for (int pass = 0; pass < kPasses; ++pass) {
        t64.push_back(nsOf([&] { net.shade64(a); }));
        t1.push_back(nsOf([&] { net.shade1(b); }));
        tf.push_back(nsOf([&] { fused(in, f); }));
        tw.push_back(nsOf([&] { wide(in, w); }));
        sink = sink + a.color[pass].x + b.color[pass].x + f.color[pass].x + w.color[pass].x;
    }
    t.opus64 = median(t64) / kSamples;
    t.opus1 = median(t1) / kSamples;
    t.fused = median(tf) / kSamples;
    t.wide = median(tw) / kSamples;
    return true;
}

// ---------------------------------------------------------------- the placement, by hand

// place2dTexture with its defaults (no rotation, noise or stagger; wrap on,
// coverage and repeat 1): inside samples keep their coordinate, a 1.0
// becomes 0.9999, and the filter size is scaled by repeat / coverage = 1.
inline void placeDefault(float& u, float& v) {
    if (u <= -1e7f && v <= -1e7f)
        return;
    if (u == 1.0f)
        u = 0.9999f;
    if (v == 1.0f)
        v = 0.9999f;
    // Coverage 1: x - translate (0); wrap on: x * repeat + offset.
    u = (u - 0.0f) * 1.0f + 0.0f;
    v = (v - 0.0f) * 1.0f + 0.0f;
}

// ---------------------------------------------------------------- B4b: utility chains

// The factors of node k of a chain (k from 1).
T3Float chainFactor(int k) {
    return {1.0f + 0.01f * float(k), 1.0f - 0.01f * float(k), 1.0f + 0.005f * float(k)};
}
T3Float chainTerm(int k) {
    return {0.01f * float(k), -0.02f * float(k), 0.03f};
}

std::string fmt3(const T3Float& c) {
    char text[96];
    std::snprintf(text, sizeof text, "%.9g %.9g %.9g", double(c.x), double(c.y), double(c.z));
    return text;
}

// place2dTexture p feeds a head multiplyDivide (factors 1): outU to x and
// z, outV to y. The K nodes of the chain follow the head, each fed whole by
// the one before; the last goes through a condition that always picks
// colorIfTrue, since the surface shader port wants an outColor. The head
// and the condition are the same for every K and drop out of the slope.
std::string chainScene(bool multiply, int k) {
    std::ostringstream s;
    s << "node place2dTexture p\nnode shadingEngine sg\n"
         "node condition pick\nset pick.operation 0\n"
         "connect pick.outColor sg.surfaceShader\n"
         "node multiplyDivide head\nset head.operation 1\n"
         "connect p.outU head.input1X\nconnect p.outV head.input1Y\n"
         "connect p.outU head.input1Z\n";
    std::string previous = "head.output";
    for (int i = 1; i <= k; ++i) {
        const std::string n = std::string("n").append(std::to_string(i));
        if (multiply)
            s << "node multiplyDivide " << n << "\nset " << n << ".operation 1\nset " << n
              << ".input2 " << fmt3(chainFactor(i)) << "\nconnect " << previous << " " << n
              << ".input1\n";
        else
            s << "node plusMinusAverage " << n << "\nset " << n << ".operation 1\nset " << n
              << ".input3D[1] " << fmt3(chainTerm(i)) << "\nconnect " << previous << " " << n
              << ".input3D[0]\n";
        previous = n + (multiply ? ".output" : ".output3D");
    }
    s << "connect " << previous << " pick.colorIfTrue\n";
    return s.str();
}

ORVO_FUSED_BODY void fusedMultiplyChainBody(int k, const Inputs& in, Outputs& out) {
    T3Float factors[16];
    for (int i = 0; i < k; ++i)
        factors[i] = chainFactor(i + 1);
    for (unsigned s = 0; s < kSamples; ++s) {
        float u = in.uv[s].x, v = in.uv[s].y;
        placeDefault(u, v);
        float x = u * 1.0f, y = v * 1.0f, z = u * 1.0f; // the head
        for (int i = 0; i < k; ++i) {
            x *= factors[i].x;
            y *= factors[i].y;
            z *= factors[i].z;
        }
        out.color[s] = {x, y, z};
    }
}
ORVO_FUSED_WAYS(fusedMultiplyChain, (int k, const Inputs& in, Outputs& out), (k, in, out))

ORVO_FUSED_BODY void fusedSumChainBody(int k, const Inputs& in, Outputs& out) {
    T3Float terms[16];
    for (int i = 0; i < k; ++i)
        terms[i] = chainTerm(i + 1);
    for (unsigned s = 0; s < kSamples; ++s) {
        float u = in.uv[s].x, v = in.uv[s].y;
        placeDefault(u, v);
        float x = u * 1.0f, y = v * 1.0f, z = u * 1.0f; // the head
        // Each node sums its two elements from zero, in element order.
        for (int i = 0; i < k; ++i) {
            x = 0.0f + x + terms[i].x;
            y = 0.0f + y + terms[i].y;
            z = 0.0f + z + terms[i].z;
        }
        out.color[s] = {x, y, z};
    }
}
ORVO_FUSED_WAYS(fusedSumChain, (int k, const Inputs& in, Outputs& out), (k, in, out))

void printHeader() {
    std::printf("  %-34s %9s %9s %9s %9s %10s %10s %10s\n", "", "opus/64", "opus/1", "fused",
                "wide", "64/fused", "64/wide", "1/64");
}

void printRow(const char* name, const Timing& t) {
    std::printf("  %-34s %9.2f %9.2f %9.2f %9.2f %10.2f %10.2f %10.2f\n", name, t.opus64, t.opus1,
                t.fused, t.wide, t.opus64 / t.fused, t.opus64 / t.wide, t.opus1 / t.opus64);
}

bool runChains() {
    std::printf("\nB4b: a chain of K utility nodes, ns per sample (median of %d passes over %u "
                "samples)\n",
                kPasses, kSamples);
    bool ok = true;
    for (bool multiply : {true, false}) {
        const char* type = multiply ? "multiplyDivide" : "plusMinusAverage";
        Timing first, last;
        std::vector<std::pair<std::string, Timing>> rows;
        for (int k : {1, 4, 16}) {
            const std::string name = std::string(type) + ", K = " + std::to_string(k);
            Timing t;
            const FusedFn fused = [k, multiply](const Inputs& in, Outputs& out) {
                multiply ? fusedMultiplyChain(k, in, out) : fusedSumChain(k, in, out);
            };
            const FusedFn wide = [k, multiply](const Inputs& in, Outputs& out) {
                multiply ? fusedMultiplyChainWide(k, in, out) : fusedSumChainWide(k, in, out);
            };
            if (!measure(name.c_str(), chainScene(multiply, k), makeInputs(), fused, t, wide)) {
                ok = false;
                continue;
            }
            rows.emplace_back(name, t);
            if (k == 1)
                first = t;
            if (k == 16)
                last = t;
        }
        printHeader();
        for (const auto& [name, t] : rows)
            printRow(name.c_str(), t);
        std::printf("  %-34s %9.2f %9.2f %9.3f %9.3f  (ns per node per sample, K 1 to 16)\n",
                    (std::string(type) + ", per node").c_str(), (last.opus64 - first.opus64) / 15,
                    (last.opus1 - first.opus1) / 15, (last.fused - first.fused) / 15,
                    (last.wide - first.wide) / 15);
    }
    return ok;
}

// ---------------------------------------------------------------- B4a: lambert, checker, lights

constexpr float kRepeat = 4.0f;
const T3Float kColor1{0.9f, 0.75f, 0.2f};
const T3Float kColor2{0.1f, 0.3f, 0.8f};
constexpr float kDiffuse = 0.8f;

// A directional light: where it stands (its transform's rotation in
// degrees), and what it sends.
struct LightSetup {
    float rotateX, rotateY;
    T3Float color;
    float intensity;
};

std::vector<LightSetup> lightSetups(int n) {
    std::vector<LightSetup> lights;
    for (int k = 0; k < n; ++k) {
        const float a = (float(k) + 0.5f) / float(n);
        const float b = (float((k * 7) % n) + 0.5f) / float(n);
        lights.push_back({-60.0f + 120.0f * a, -50.0f + 100.0f * b,
                          T3Float{0.6f + 0.1f * float(k % 5), 0.7f, 1.0f - 0.2f * float(k % 3)},
                          1.5f / float(n)});
    }
    return lights;
}

// The direction towards a light, in camera space (there is no camera: camera
// space is world space). The light shines down its local -Z; its transform
// turns about X first, then Y, so (0, 0, 1) goes to
// (cos x sin y, -sin x, cos x cos y).
T3Float towardsLight(const LightSetup& l) {
    const double x = double(l.rotateX) * std::numbers::pi / 180.0;
    const double y = double(l.rotateY) * std::numbers::pi / 180.0;
    return {float(std::cos(x) * std::sin(y)), float(-std::sin(x)),
            float(std::cos(x) * std::cos(y))};
}

std::string lambertScene(int lights, const char* material = "lambert") {
    std::ostringstream s;
    s << "node place2dTexture p\nset p.repeatUV " << kRepeat << " " << kRepeat << "\n"
      << "node checker c\nset c.color1 " << fmt3(kColor1) << "\nset c.color2 " << fmt3(kColor2)
      << "\nconnect p.outUV c.uvCoord\nconnect p.outUvFilterSize c.uvFilterSize\n"
      << "node " << material << " l\nset l.diffuse " << kDiffuse << "\nconnect c.outColor l.color\n"
      << "node shadingEngine sg\nconnect l.outColor sg.surfaceShader\n";
    const std::vector<LightSetup> setups = lightSetups(lights);
    for (size_t k = 0; k < setups.size(); ++k) {
        const LightSetup& l = setups[k];
        s << "node transform t" << k << "\nset t" << k << ".rotate " << l.rotateX << " "
          << l.rotateY << " 0\n"
          << "node directionalLight d" << k << " -parent t" << k << "\nset d" << k << ".color "
          << fmt3(l.color) << "\nset d" << k << ".intensity " << l.intensity << "\n";
    }
    return s.str();
}

// blinn's defaults.
constexpr float kEccentricity = 0.3f;
constexpr float kRollOff = 0.7f;
constexpr float kSpecular = 0.5f;

// The lights of the fused loops, the same at every point (directional
// lights without shadows): the unit direction towards each and its colour
// times its intensity.
struct FusedLight {
    float dir[3];
    float rgb[3];
};

void fusedLightTable(int lights, FusedLight* table) {
    const std::vector<LightSetup> setups = lightSetups(lights);
    for (int k = 0; k < lights; ++k) {
        const T3Float d = towardsLight(setups[size_t(k)]);
        const float length = std::sqrt(d.x * d.x + d.y * d.y + d.z * d.z);
        const float scale = length > 1e-6f ? 1.0f / length : 1.0f;
        const LightSetup& l = setups[size_t(k)];
        table[k] = {{d.x * scale, d.y * scale, d.z * scale},
                    {l.color.x * l.intensity, l.color.y * l.intensity, l.color.z * l.intensity}};
    }
}

// The checker with its colours and filter 1 at (u, v), its filter box
// (fu, fv) in the texture's own coordinates.
inline void fusedChecker(float u, float v, float fu, float fv, float* colour) {
    // The fraction of the coordinate, the box filter's loss of contrast near
    // an edge, the weights of the two colours.
    if (u < 0.0f || u > 1.0f)
        u -= std::floor(u);
    if (v < 0.0f || v > 1.0f)
        v -= std::floor(v);
    const float a = std::max(1e-8f, 2.0f * std::fabs(1.0f * fu + 0.0f));
    const float b = std::max(1e-8f, 2.0f * std::fabs(1.0f * fv + 0.0f));
    float c = 0.0f;
    if (a < 2.0f && b < 2.0f) {
        c = 1.0f;
        float p = 2.0f * u - std::floor(2.0f * u);
        float q = 2.0f * v - std::floor(2.0f * v);
        if (p > 0.5f)
            p = 1.0f - p;
        if (q > 0.5f)
            q = 1.0f - q;
        if (a > p || b > q)
            c = p * b > q * a ? q * c / b : p * c / a;
        const float widest = std::max(a, b);
        c = widest > 1.0f ? std::max(0.0f, c * (2.0f - widest)) : std::max(0.0f, c);
    }
    const float e = (c + 1.0f) / 2.0f;
    const bool first = (u <= 0.5f && v <= 0.5f) || (u > 0.5f && v > 0.5f);
    const float w1 = first ? e : 1.0f - e, w2 = first ? 1.0f - e : e;
    for (int ch = 0; ch < 3; ++ch)
        colour[ch] = w1 < 1e-5f   ? kColor2[ch]
                     : w2 < 1e-5f ? kColor1[ch]
                                  : w1 * kColor1[ch] + w2 * kColor2[ch];
}

// What the network computes, written out: the placement with repeat 4, the
// checker with its filter, lambert with one term per light, and with
// `blinn` blinn's highlight of each light (eccentricity 0.3, roll-off 0.7,
// specularColor 0.5; no ray sampler, so no reflection). The light records
// are the same at every point (directional lights without shadows), so
// they are made once.
void fusedMaterial(int lights, bool blinn, const Inputs& in, Outputs& out) {
    FusedLight table[16];
    fusedLightTable(lights, table);
    for (unsigned s = 0; s < kSamples; ++s) {
        // Placement: coverage 1, wrap on, repeat 4; the filter box scales
        // by repeat / coverage.
        float u = in.uv[s].x, v = in.uv[s].y;
        const float fu = kRepeat * in.uvFilter[s].x, fv = kRepeat * in.uvFilter[s].y;
        if (u == 1.0f)
            u = 0.9999f;
        if (v == 1.0f)
            v = 0.9999f;
        u = (u - 0.0f) * kRepeat + 0.0f;
        v = (v - 0.0f) * kRepeat + 0.0f;

        float colour[3];
        fusedChecker(u, v, fu, fv, colour);

        // Lambert: diffuse from each light facing the normal.
        const T3Float n = in.normal[s];
        float sum[3] = {0.0f, 0.0f, 0.0f};
        for (int k = 0; k < lights; ++k) {
            const FusedLight& l = table[k];
            const float d = l.dir[0] * n.x + l.dir[1] * n.y + l.dir[2] * n.z;
            float amount = 0.0f;
            if (d >= 0.0f)
                amount += d * kDiffuse;
            for (int ch = 0; ch < 3; ++ch)
                sum[ch] += colour[ch] * l.rgb[ch] * amount;
        }
        // Blinn: the view is the sample's ray; a term for each light in
        // front of the surface.
        if (blinn) {
            const T3Float I = in.ray[s];
            const float nv = -(n.x * I.x + n.y * I.y + n.z * I.z);
            float highlight[3] = {0.0f, 0.0f, 0.0f};
            for (int k = 0; k < lights; ++k) {
                const FusedLight& l = table[k];
                const float nl = l.dir[0] * n.x + l.dir[1] * n.y + l.dir[2] * n.z;
                if (!(nl > 0.0f))
                    continue;
                float h[3] = {l.dir[0] - I.x, l.dir[1] - I.y, l.dir[2] - I.z};
                const float hl = std::sqrt(h[0] * h[0] + h[1] * h[1] + h[2] * h[2]);
                for (float& c : h)
                    c *= 1.0f / hl;
                const float vh = -(h[0] * I.x + h[1] * I.y + h[2] * I.z);
                const float nh = h[0] * n.x + h[1] * n.y + h[2] * n.z;
                constexpr float e = kEccentricity * kEccentricity - 1.0f;
                const float D = (e + 1.0f) / (e * nh * nh + 1.0f);
                const float g = 2.0f * nh;
                const float G = nl <= nv ? (vh > g * nl ? g * nl / (vh * nv) : 1.0f / nv)
                                         : (vh > g * nv ? g / vh : 1.0f / nv);
                const float f = (1.0f - vh) * (1.0f - vh) * (1.0f - vh);
                const float v = ((1.0f - f) * kRollOff + f) * G * D * D;
                if (v > 0.0f)
                    for (int ch = 0; ch < 3; ++ch)
                        highlight[ch] += l.rgb[ch] * v;
            }
            for (int ch = 0; ch < 3; ++ch)
                sum[ch] += highlight[ch] * kSpecular;
        }
        // No ambient colour, transparency or incandescence; glow 0; the
        // matte follows the opacity.
        out.color[s] = {sum[0], sum[1], sum[2]};
        out.transparency[s] = {0.0f, 0.0f, 0.0f};
        out.glow[s] = {0.0f, 0.0f, 0.0f};
        out.matte[s] = {1.0f, 1.0f, 1.0f};
    }
}

// floor for |x| < 2^31 through a truncating conversion, which baseline
// x86-64 has in vector form (the rounding instructions came later).
inline float floorOf(float x) {
    const float t = float(int(x));
    const float below = t - 1.0f;
    return t > x ? below : t;
}

// The checker's colour at fractions (u, v) with filter sizes (fu, fv), as
// the vectorised loops compute it: both arms of every choice, then a select.
[[gnu::always_inline]] inline void fusedCheckerLane(float u, float v, float fu, float fv, float& c0,
                                                    float& c1, float& c2) {
    const float a = std::max(1e-8f, 2.0f * std::fabs(1.0f * fu + 0.0f));
    const float b = std::max(1e-8f, 2.0f * std::fabs(1.0f * fv + 0.0f));
    float p = 2.0f * u - floorOf(2.0f * u);
    float q = 2.0f * v - floorOf(2.0f * v);
    const float pFlipped = 1.0f - p, qFlipped = 1.0f - q;
    p = p > 0.5f ? pFlipped : p;
    q = q > 0.5f ? qFlipped : q;
    const float qb = q / b, pa = p / a;
    const float overlap = p * b > q * a ? qb : pa;
    float c = b > q ? overlap : 1.0f;
    c = a > p ? overlap : c;
    const float widest = std::max(a, b);
    const float faded = std::max(0.0f, c * (2.0f - widest));
    c = widest > 1.0f ? faded : std::max(0.0f, c);
    c = b < 2.0f ? c : 0.0f;
    c = a < 2.0f ? c : 0.0f;
    const float e = (c + 1.0f) / 2.0f;
    const float f = 1.0f - e;
    // The first colour where both halves agree.
    const float side = (u <= 0.5f ? 1.0f : -1.0f) * (v <= 0.5f ? 1.0f : -1.0f);
    const float w1 = side > 0.0f ? e : f;
    const float w2 = side > 0.0f ? f : e;
    const float m0 = w1 * kColor1[0] + w2 * kColor2[0];
    const float m1 = w1 * kColor1[1] + w2 * kColor2[1];
    const float m2 = w1 * kColor1[2] + w2 * kColor2[2];
    const float x0 = w2 < 1e-5f ? kColor1[0] : m0;
    const float x1 = w2 < 1e-5f ? kColor1[1] : m1;
    const float x2 = w2 < 1e-5f ? kColor1[2] : m2;
    c0 = w1 < 1e-5f ? kColor2[0] : x0;
    c1 = w1 < 1e-5f ? kColor2[1] : x1;
    c2 = w1 < 1e-5f ? kColor2[2] : x2;
}

// A checker alone, as fusedLambertVector computes it but from the sample's
// own coordinates (no placement): structures of arrays, both arms of every
// choice computed, then selected.
ORVO_FUSED_BODY void fusedCheckerVectorBody(const Inputs& in, Outputs& out) {
    constexpr unsigned kRun = 256;
    static_assert(kSamples % kRun == 0, "whole runs only");
    alignas(64) float c0[kRun], c1[kRun], c2[kRun];
    for (unsigned base = 0; base < kSamples; base += kRun) {
        const float* __restrict U = in.u.data() + base;
        const float* __restrict V = in.v.data() + base;
        const float* __restrict FU = in.fu.data() + base;
        const float* __restrict FV = in.fv.data() + base;
        for (unsigned i = 0; i < kRun; ++i) {
            const float uFraction = U[i] - floorOf(U[i]), vFraction = V[i] - floorOf(V[i]);
            const float u = U[i] >= 0.0f && U[i] <= 1.0f ? U[i] : uFraction;
            const float v = V[i] >= 0.0f && V[i] <= 1.0f ? V[i] : vFraction;
            fusedCheckerLane(u, v, FU[i], FV[i], c0[i], c1[i], c2[i]);
        }
        for (unsigned i = 0; i < kRun; ++i)
            out.color[base + i] = {c0[i], c1[i], c2[i]};
    }
}
ORVO_FUSED_WAYS(fusedCheckerVector, (const Inputs& in, Outputs& out), (in, out))

// The lambert network as a careful engineer writes it for speed: the same
// formulas as fusedMaterial, over structures of arrays, a run of samples
// at a time, each step a loop that the compiler turns into vector code; the
// lights are the outer loop, the samples the inner. Both arms of every
// choice are computed and then selected: the compiler won't compute a
// floating point value on a path the source doesn't take (it might trap),
// so a branch with arithmetic in it would keep the loop scalar.
ORVO_FUSED_BODY void fusedLambertVectorBody(int lights, const Inputs& in, Outputs& out) {
    FusedLight table[16];
    fusedLightTable(lights, table);
    constexpr unsigned kRun = 256;
    static_assert(kSamples % kRun == 0, "whole runs only");
    alignas(64) float c0[kRun], c1[kRun], c2[kRun], s0[kRun], s1[kRun], s2[kRun];
    for (unsigned base = 0; base < kSamples; base += kRun) {
        const float* __restrict U = in.u.data() + base;
        const float* __restrict V = in.v.data() + base;
        const float* __restrict FU = in.fu.data() + base;
        const float* __restrict FV = in.fv.data() + base;
        for (unsigned i = 0; i < kRun; ++i) {
            // Placement and checker, as in fusedMaterial. A fraction below
            // 1 is its own fraction: only an exact 1 keeps its value.
            float u = U[i] == 1.0f ? 0.9999f : U[i];
            float v = V[i] == 1.0f ? 0.9999f : V[i];
            const float fu = kRepeat * FU[i], fv = kRepeat * FV[i];
            u = (u - 0.0f) * kRepeat + 0.0f;
            v = (v - 0.0f) * kRepeat + 0.0f;
            const float uFraction = u - floorOf(u), vFraction = v - floorOf(v);
            u = u == 1.0f ? 1.0f : uFraction;
            v = v == 1.0f ? 1.0f : vFraction;
            fusedCheckerLane(u, v, fu, fv, c0[i], c1[i], c2[i]);
            s0[i] = s1[i] = s2[i] = 0.0f;
        }
        const float* __restrict NX = in.nx.data() + base;
        const float* __restrict NY = in.ny.data() + base;
        const float* __restrict NZ = in.nz.data() + base;
        for (int k = 0; k < lights; ++k) {
            const float dx = table[k].dir[0], dy = table[k].dir[1], dz = table[k].dir[2];
            const float r = table[k].rgb[0], g = table[k].rgb[1], bl = table[k].rgb[2];
            for (unsigned i = 0; i < kRun; ++i) {
                const float d = dx * NX[i] + dy * NY[i] + dz * NZ[i];
                const float lit = 0.0f + d * kDiffuse;
                const float amount = d >= 0.0f ? lit : 0.0f;
                s0[i] += c0[i] * r * amount;
                s1[i] += c1[i] * g * amount;
                s2[i] += c2[i] * bl * amount;
            }
        }
        for (unsigned i = 0; i < kRun; ++i) {
            out.color[base + i] = {s0[i], s1[i], s2[i]};
            out.transparency[base + i] = {0.0f, 0.0f, 0.0f};
            out.glow[base + i] = {0.0f, 0.0f, 0.0f};
            out.matte[base + i] = {1.0f, 1.0f, 1.0f};
        }
    }
}
ORVO_FUSED_WAYS(fusedLambertVector, (int lights, const Inputs& in, Outputs& out), (lights, in, out))

// Floating point operations per sample, counted in the fused loop: adds,
// subtracts, multiplies, divides and floors; compares and absolute values
// are not counted.
//   placement 8: the filter box 2; each coordinate minus translate, times
//     repeat, plus offset, 2 x 3.
//   checker 32: the filter widths 2 x (mul, add, mul) = 6; 2u - floor(2u)
//     and 1 - p, 2 x 4 = 8; the overlap p b, q a, q c / b = 4;
//     c (2 - widest) = 2; (c + 1) / 2 and 1 - e = 3; the mix 3 x 3 = 9.
//   each light 16: the dot product 5, the diffuse term 2, colour times
//     light times amount plus the sum, 3 x 3.
double lambertFlops(int lights) {
    return 8.0 + 32.0 + 16.0 * lights;
}

// One core's arithmetic peak: clock x 2 FMA pipes x lanes x 2. The clock
// is measured: a chain of dependent integer adds retires one add a cycle,
// whatever clock the virtual machine reports in /proc/cpuinfo.
struct Peak {
    double ghz = 0.0;
    double nominalGhz = 0.0;
    int lanes = 4;
    const char* isa = "SSE";
    double gflops() const { return ghz * 2.0 * lanes * 2.0; }
};

double measuredGhz() {
#if defined(__x86_64__)
    double best = 0.0;
    for (int attempt = 0; attempt < 3; ++attempt) {
        constexpr long kRounds = 20000000;
        uint64_t x = 0;
        const auto start = std::chrono::steady_clock::now();
        for (long i = 0; i < kRounds; ++i)
            asm volatile("add $1, %0\n\tadd $1, %0\n\tadd $1, %0\n\tadd $1, %0\n\t"
                         "add $1, %0\n\tadd $1, %0\n\tadd $1, %0\n\tadd $1, %0"
                         : "+r"(x));
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        best = std::max(best, 8.0 * double(kRounds) / seconds / 1e9);
    }
    return best;
#else
    return 0.0;
#endif
}

Peak machinePeak() {
    Peak peak;
    std::ifstream info("/proc/cpuinfo");
    std::string line;
    while (std::getline(info, line)) {
        if (peak.nominalGhz == 0.0 && line.rfind("cpu MHz", 0) == 0)
            peak.nominalGhz = std::atof(line.substr(line.find(':') + 1).c_str()) / 1000.0;
        if (line.rfind("flags", 0) == 0) {
            if (line.find(" avx512f") != std::string::npos) {
                peak.lanes = 16;
                peak.isa = "AVX-512";
            } else if (line.find(" avx2") != std::string::npos) {
                peak.lanes = 8;
                peak.isa = "AVX2";
            }
            break;
        }
    }
    peak.ghz = measuredGhz();
    if (peak.ghz == 0.0)
        peak.ghz = peak.nominalGhz;
    return peak;
}

bool runLambert() {
    const Peak peak = machinePeak();
    std::printf("\nB4a: place2dTexture -> checker -> lambert, lit by N directional lights, ns per "
                "sample (median of %d passes over %u samples)\n",
                kPasses, kSamples);
    bool ok = true;
    std::vector<std::pair<int, Timing>> rows;
    for (int n : {1, 4, 16}) {
        const std::string name = "lambert, " + std::to_string(n) + (n > 1 ? " lights" : " light");
        Timing t;
        const FusedFn fused = [n](const Inputs& in, Outputs& out) {
            fusedLambertVector(n, in, out);
        };
        const FusedFn wide = [n](const Inputs& in, Outputs& out) {
            fusedLambertVectorWide(n, in, out);
        };
        if (!measure(name.c_str(), lambertScene(n), makeInputs(), fused, t, wide)) {
            ok = false;
            continue;
        }
        rows.emplace_back(n, t);
    }
    // The same network through blinn: the lambert terms and a highlight a
    // light.
    std::vector<std::pair<int, Timing>> blinnRows;
    for (int n : {1, 16}) {
        const std::string name = "blinn, " + std::to_string(n) + (n > 1 ? " lights" : " light");
        Timing t;
        const FusedFn fused = [n](const Inputs& in, Outputs& out) {
            fusedMaterial(n, true, in, out);
        };
        if (!measure(name.c_str(), lambertScene(n, "blinn"), makeInputs(), fused, t)) {
            ok = false;
            continue;
        }
        blinnRows.emplace_back(n, t);
    }
    printHeader();
    for (const auto& [n, t] : rows)
        printRow(("lambert, " + std::to_string(n) + (n > 1 ? " lights" : " light")).c_str(), t);
    if (rows.size() == 3) {
        const Timing& one = rows.front().second;
        const Timing& sixteen = rows.back().second;
        std::printf("  %-34s %9.2f %9.2f %9.2f %9.2f  (ns per light per sample, 1 to 16 "
                    "lights)\n",
                    "lambert, per light", (sixteen.opus64 - one.opus64) / 15,
                    (sixteen.opus1 - one.opus1) / 15, (sixteen.fused - one.fused) / 15,
                    (sixteen.wide - one.wide) / 15);
    }
    for (const auto& [n, t] : blinnRows)
        printRow(("blinn, " + std::to_string(n) + (n > 1 ? " lights" : " light")).c_str(), t);
    std::printf("\n  arithmetic: FLOP per sample counted in the fused loop; peak %.1f GFLOP/s "
                "(%.2f GHz measured, %.2f nominal, x 2 FMA pipes x %d lanes (%s) x 2)\n",
                peak.gflops(), peak.ghz, peak.nominalGhz, peak.lanes, peak.isa);
    std::printf("  %-34s %9s %13s %13s %13s %13s\n", "", "FLOP", "opus/64 %", "opus/1 %", "fused %",
                "wide %");
    for (const auto& [n, t] : rows) {
        const double flops = lambertFlops(n);
        auto percent = [&](double ns) {
            return 100.0 * flops / ns / peak.gflops();
        };
        std::printf("  %-34s %9.0f %13.3f %13.3f %13.3f %13.3f\n",
                    ("lambert, " + std::to_string(n) + (n > 1 ? " lights" : " light")).c_str(),
                    flops, percent(t.opus64), percent(t.opus1), percent(t.fused), percent(t.wide));
    }
    return ok;
}

// One node: a checker read straight from the sample's coordinates is the
// whole network. What the opus costs above the fused loop here is what
// any network pays before its first node: the dispatch, the frame, the
// copies in and out.
bool runOneNode() {
    std::printf("\nB4c: one node (a checker as the surface shader), ns per sample (median of %d "
                "passes over %u samples)\n",
                kPasses, kSamples);
    std::ostringstream scene;
    scene << "node checker c\nset c.color1 " << fmt3(kColor1) << "\nset c.color2 " << fmt3(kColor2)
          << "\nnode shadingEngine sg\nconnect c.outColor sg.surfaceShader\n";
    Timing t;
    if (!measure("checker alone", scene.str(), makeInputs(), fusedCheckerVector, t,
                 fusedCheckerVectorWide))
        return gProfile.passes != 0;
    printHeader();
    printRow("checker alone", t);
    std::printf("  %-34s %9.2f %9.2f  (opus less fused, ns per sample)\n", "fixed cost",
                t.opus64 - t.fused, t.opus1 - t.fused);
    std::printf("  %-34s %9.2f %9.2f  (opus less wide fused, ns per sample)\n", "fixed cost, wide",
                t.opus64 - t.wide, t.opus1 - t.wide);
    return true;
}

} // namespace

int main(int argc, char** argv) {
    if (argc == 5 && std::string(argv[1]) == "--profile") {
        gProfile.name = argv[2];
        gProfile.way = argv[3];
        gProfile.passes = std::atoi(argv[4]);
    }
    std::printf("shading_opus: %u samples (%ux%u), option 0\n", kSamples, kWidth, kHeight);
    bool ok = runLambert();
    ok &= runChains();
    ok &= runOneNode();
    if (!ok && !gProfile.passes) {
        std::fprintf(stderr, "shading_opus: the ways disagree\n");
        return 1;
    }
    return 0;
}
