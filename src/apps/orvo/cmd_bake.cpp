// orvo bake: the texture a shading group shows in the viewport, baked
// through the shading engine into an image. Pixel (i, j) holds the network
// at UV ((i + 0.5) / W, (j + 0.5) / H) with v = 0 at the image's bottom, so
// that a bake equals `orvo shade` of the texture at the same UVs.

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <OpenImageIO/imageio.h>

#include <memory>

#include "apps/orvo/cli.h"
#include "apps/orvo/scene.h"
#include "apps/orvo/shade_grid.h"
#include "host/draw/accessor.h"
#include "host/file_replace.h"
#include "host/graph.h"
#include "shading/shading_engine.h"
#include "viewport/material_info.h"
#include "viewport/material_texture.h"

namespace orvo::cli {

namespace {

struct BakeOptions {
    std::string scene;
    std::string group;
    std::vector<unsigned> resolution{256, 256};
    std::string image;
};

void writeMap(const std::string& path, const TpixelMap& map) {
    const unsigned channels = map.channels() == 4 ? 4 : 3;
    std::vector<uint8_t> rows(size_t(map.width()) * map.height() * channels);
    // Top row first, red, green, blue (and alpha).
    for (unsigned y = 0; y < map.height(); ++y)
        for (unsigned x = 0; x < map.width(); ++x) {
            const uint8_t* p = map.pixel(x, map.height() - 1 - y);
            uint8_t* o = &rows[(size_t(y) * map.width() + x) * channels];
            o[0] = p[TpixelMap::kRed];
            o[1] = p[TpixelMap::kGreen];
            o[2] = p[TpixelMap::kBlue];
            if (channels == 4)
                o[3] = p[TpixelMap::kAlpha];
        }
    TfileReplacement file(path);
    auto out = OIIO::ImageOutput::create(path);
    if (!out)
        throw UserError(fmt::format("orvo bake: {}: cannot write this image format", path));
    OIIO::ImageSpec spec(int(map.width()), int(map.height()), int(channels), OIIO::TypeDesc::UINT8);
    if (!out->open(file.temporary(), spec) ||
        !out->write_image(OIIO::TypeDesc::UINT8, rows.data()) || !out->close())
        throw UserError(fmt::format("orvo bake: {}: {}", path, out->geterror()));
    if (const std::string why = file.commit(true); !why.empty())
        throw UserError(fmt::format("orvo bake: {}: {}", path, why));
}

int runBake(const BakeOptions& options) {
    if (options.resolution.size() != 2 || options.resolution[0] == 0 ||
        options.resolution[1] == 0 || options.resolution[0] > 16384 ||
        options.resolution[1] > 16384)
        throw UserError("orvo bake: --res takes a width and a height from 1 to 16384");
    std::unique_ptr<TdependGraph> graph = loadScene(options.scene);
    TDNshadingEngine& engine = findShadingGroup(*graph, options.group, options.scene, "orvo bake");
    TmaterialInfo& info = TmaterialInfo::ensureShadingEngineHasInfo(engine);
    if (!info.material())
        throw UserError(fmt::format("orvo bake: {}: '{}' has no surface material", options.scene,
                                    options.group));
    const TmaterialTexture* texture = info.materialTexture();
    if (!texture)
        throw UserError(fmt::format("orvo bake: {}: '{}' shows no texture: its material's colour "
                                    "is not connected",
                                    options.scene, options.group));
    TpixelMap map;
    T2Float lo, hi;
    if (!TbaseAccessor::appConvertSolidTx({}, {}, texture->plug(), options.resolution[0],
                                          options.resolution[1],
                                          texture->plug().node() != info.material(), map, lo, hi))
        throw UserError(fmt::format("orvo bake: {}: '{}' cannot be baked", options.scene,
                                    texture->plug().name()));
    writeMap(options.image, map);
    return kExitSuccess;
}

} // namespace

void addBakeCommand(CLI::App& app, CommandRun& run) {
    auto options = std::make_shared<BakeOptions>();
    CLI::App* sub = app.add_subcommand(
        "bake", "Bake the texture a shading group shows in the viewport into an image");
    sub->add_option("scene", options->scene, "Scene file (.qsl)")->required();
    sub->add_option("-g,--group", options->group, "The shading group (a shadingEngine node)")
        ->required();
    sub->add_option("--res", options->resolution, "Width and height (default 256 256)")
        ->expected(2);
    sub->add_option("-o,--output", options->image, "Image to write")->required();
    sub->callback([&run, options] {
        run = [options] {
            return runBake(*options);
        };
    });
}

} // namespace orvo::cli
