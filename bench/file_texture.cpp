// A render-like pass of the file texture node against OpenImageIO's
// TextureSystem with its trilinear mipmap filter, on the same 4096 x 4096
// 8-bit texture and the same coordinates.
//
// The coordinates are those of a sphere filling a 512 x 512 image seen
// from a pinhole camera: (u, v) from longitude and latitude at each pixel's
// hit, and ray differentials from the hits of the rays one pixel across and
// one pixel down, visited in 16 x 16 buckets as a renderer's tiles go.
//
// Ours: a `file` node reading the texture's PNG, computing outColor for
// batches of 64 samples through its data block (uvCoord and uvFilterSize
// per sample, the larger derivative on each axis), as a render's shading
// network does; the node decodes sRGB to linear. Two filters: Mipmap (two
// levels blended, as OpenImageIO's trilinear) and Quadratic (the node's
// default). Theirs: TextureSystem::texture with the four derivatives,
// MipModeTrilinear and bilinear interpolation, from the .tx file its
// make_texture wrote, the result decoded from sRGB the same way.
//
// Before timing, the Mipmap results are compared with OpenImageIO's: both
// blend levels around the footprint, but pick and weigh them by different
// rules, so the mean and largest differences are printed rather than held
// to a bound. Times: ns per lookup, the median of the passes (default 5),
// ways interleaved pass by pass, one thread.

#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>
#include <OpenImageIO/texture.h>
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <functional>
#include <vector>

#include "host/graph.h"
#include "texture_bench_support.h"
#include "textures/file_texture.h"

namespace {

using namespace orvo_bench;

constexpr unsigned kImage = 512;
constexpr unsigned kBatch = 64;

struct Hit {
    float u, v, du, dv;           // coordinate and the node's filter size
    float dsdx, dtdx, dsdy, dtdy; // the derivatives, for OpenImageIO
};

// The sphere of radius 1 at the origin, the camera at z = 3 looking down -z
// with a field that just holds it.
bool intersect(double px, double py, double& u, double& v) {
    const double fov = 0.75; // half height of the image plane at distance 1
    double dx = (2.0 * px / kImage - 1.0) * fov, dy = (1.0 - 2.0 * py / kImage) * fov, dz = -1.0;
    const double len = std::sqrt(dx * dx + dy * dy + dz * dz);
    dx /= len, dy /= len, dz /= len;
    const double oz = 3.0;
    const double b = oz * dz, c = oz * oz - 1.0, disc = b * b - c;
    if (disc < 0.0)
        return false;
    const double t = -b - std::sqrt(disc);
    const double x = t * dx, y = t * dy, z = oz + t * dz;
    u = 0.5 + std::atan2(x, z) / (2.0 * M_PI);
    v = 0.5 + std::asin(std::clamp(y, -1.0, 1.0)) / M_PI;
    return true;
}

std::vector<Hit> sphereHits() {
    std::vector<Hit> hits;
    for (unsigned by = 0; by < kImage; by += 16)
        for (unsigned bx = 0; bx < kImage; bx += 16)
            for (unsigned y = by; y < by + 16; ++y)
                for (unsigned x = bx; x < bx + 16; ++x) {
                    double u, v, ux, vx, uy, vy;
                    const double px = x + 0.5, py = y + 0.5;
                    if (!intersect(px, py, u, v) || !intersect(px + 1, py, ux, vx) ||
                        !intersect(px, py + 1, uy, vy))
                        continue;
                    Hit h;
                    h.u = float(u), h.v = float(v);
                    h.dsdx = float(ux - u), h.dtdx = float(vx - v);
                    h.dsdy = float(uy - u), h.dtdy = float(vy - v);
                    h.du = std::max(std::fabs(h.dsdx), std::fabs(h.dsdy));
                    h.dv = std::max(std::fabs(h.dtdx), std::fabs(h.dtdy));
                    hits.push_back(h);
                }
    return hits;
}

float srgb(float c) {
    return c <= 0.04045f ? c / 12.92f : std::pow((c + 0.055f) / 1.055f, 2.4f);
}

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

} // namespace

int main(int argc, char** argv) {
    const int passes = argc > 1 ? std::max(1, std::atoi(argv[1])) : 5;
    const BenchFolder folder;

    std::vector<uint8_t> pixels = texturePixels();
    const std::string png = folder.file("texture.png"), tx = folder.file("texture.tx");
    {
        OIIO::ImageBuf buffer(OIIO::ImageSpec(kSide, kSide, 3, OIIO::TypeDesc::UINT8),
                              pixels.data());
        if (!buffer.write(png) ||
            !OIIO::ImageBufAlgo::make_texture(OIIO::ImageBufAlgo::MakeTxTexture, buffer, tx,
                                              OIIO::ImageSpec())) {
            fmt::print(stderr, "cannot write the texture: {}\n", OIIO::geterror());
            return 2;
        }
    }
    pixels = {};
    const std::vector<Hit> hits = sphereHits();
    const size_t n = hits.size();

    // Ours: one node a filter, each with a data block of one batch.
    TdependGraph graph;
    struct Node {
        TdnFileTexture* node;
        std::unique_ptr<TordinaryDataBlock> block;
    };
    auto makeNode = [&](const char* name, const char* filter) {
        auto* node = static_cast<TdnFileTexture*>(graph.createNode("file", name));
        graph.setPlugValueFromWords(graph.findPlug(std::string(name) + ".fileTextureName"), {png});
        graph.setPlugValueFromWords(graph.findPlug(std::string(name) + ".filterType"), {filter});
        if (!node->currentPyramid())
            throw std::runtime_error("the file node cannot read its texture");
        return Node{node, std::make_unique<TordinaryDataBlock>(node, kBatch)};
    };
    Node mip = makeNode("mip", "Mipmap"), quad = makeNode("quad", "Quadratic");
    auto ours = [&](Node& node, float* out) {
        const Tplug plug(node.node, &TdnTx2D::aOutColor);
        TordinaryDataBlock& block = *node.block;
        for (size_t first = 0; first < n; first += kBatch) {
            const unsigned count = unsigned(std::min<size_t>(kBatch, n - first));
            for (unsigned i = 0; i < count; ++i) {
                const Hit& h = hits[first + i];
                auto* uv = static_cast<float*>(block.valueAddress(TdnTx2D::aUvCoord, i));
                uv[0] = h.u, uv[1] = h.v;
                auto* fs = static_cast<float*>(block.valueAddress(TdnTx2D::aUvFilterSize, i));
                fs[0] = h.du, fs[1] = h.dv;
            }
            node.node->vectorComputePlug(plug, block, 0, count);
            for (unsigned i = 0; i < count; ++i) {
                const auto* c =
                    static_cast<const float*>(block.valueAddress(TdnTx2D::aOutColor, i));
                std::copy(c, c + 3, out + (first + i) * 3);
            }
        }
    };

    OIIO::TextureSystem* system = OIIO::TextureSystem::create(true);
    system->attribute("max_memory_MB", 1024.0f);
    OIIO::TextureSystem::TextureHandle* handle = system->get_texture_handle(OIIO::ustring(tx));
    OIIO::TextureSystem::Perthread* thread = system->get_perthread_info();
    auto theirs = [&](float* out) {
        OIIO::TextureOpt opt;
        opt.mipmode = OIIO::TextureOpt::MipModeTrilinear;
        opt.interpmode = OIIO::TextureOpt::InterpBilinear;
        for (size_t i = 0; i < n; ++i) {
            const Hit& h = hits[i];
            // Rows run from the top in the file: t = 1 - v.
            system->texture(handle, thread, opt, h.u, 1.0f - h.v, h.dsdx, -h.dtdx, h.dsdy, -h.dtdy,
                            3, out + i * 3);
            for (int c = 0; c < 3; ++c)
                out[i * 3 + c] = srgb(out[i * 3 + c]);
        }
    };

    std::vector<float> a(n * 3), b(n * 3), q(n * 3);
    ours(mip, a.data());
    theirs(b.data());
    ours(quad, q.data());
    double sum = 0.0, largest = 0.0;
    for (size_t i = 0; i < n * 3; ++i) {
        const double d = std::fabs(double(a[i]) - double(b[i]));
        sum += d;
        largest = std::max(largest, d);
    }
    fmt::print("{} lookups on the sphere; Mipmap against OpenImageIO trilinear: mean "
               "difference {:.5f}, largest {:.4f} (linear colour)\n",
               n, sum / double(n * 3), largest);

    std::vector<double> tMip, tQuad, tTheirs;
    auto time = [&](const std::function<void()>& f) {
        const auto t0 = std::chrono::steady_clock::now();
        f();
        return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - t0)
                   .count() /
               double(n);
    };
    for (int p = 0; p < passes; ++p) {
        tTheirs.push_back(time([&] { theirs(b.data()); }));
        tMip.push_back(time([&] { ours(mip, a.data()); }));
        tQuad.push_back(time([&] { ours(quad, q.data()); }));
    }
    const double m = median(tMip), qd = median(tQuad), t = median(tTheirs);
    fmt::print("ns per lookup, median of {} passes:\n", passes);
    fmt::print("  OpenImageIO TextureSystem, trilinear   {:8.1f}\n", t);
    fmt::print("  file node, Mipmap                      {:8.1f}   ratio to OIIO {:.2f}\n", m,
               m / t);
    fmt::print("  file node, Quadratic (default)         {:8.1f}   ratio to OIIO {:.2f}\n", qd,
               qd / t);
    OIIO::TextureSystem::destroy(system);
    return 0;
}
