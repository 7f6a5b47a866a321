// orvo view: the scene drawn as the viewport draws it, into an image. The
// preview of a scene in a second, before a full render.

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <filesystem>
#include <memory>

#include "apps/orvo/cli.h"
#include "apps/orvo/scene.h"
#include "apps/orvo/viewport_draw.h"
#include "colour/colour_choice.h"
#include "host/graph.h"
#include "render/image_io.h"
#include "render/render_error.h"

namespace orvo::cli {

namespace {

struct ViewOptions {
    std::string scene;
    std::string image;
    std::vector<unsigned> resolution{640, 360};
    std::string camera;
};

// The format of an image by its extension: PNG through the sRGB view, or
// half-float OpenEXR in the rendering space.
TimageFormat formatOf(const std::string& path, const char* command) {
    std::string extension = std::filesystem::path(path).extension().string();
    for (char& c : extension)
        c = char(std::tolower(static_cast<unsigned char>(c)));
    if (extension == ".png")
        return TimageFormat::Png;
    if (extension == ".exr")
        return TimageFormat::ExrHalf;
    throw UserError(fmt::format("orvo {}: -o {}: write a .png or an .exr image", command, path));
}

int runView(const ViewOptions& options) {
    if (options.resolution.size() != 2 || options.resolution[0] == 0 ||
        options.resolution[1] == 0 || options.resolution[0] > 16384 ||
        options.resolution[1] > 16384)
        throw UserError("orvo view: --res takes a width and a height from 1 to 16384");
    const std::string image =
        options.image.empty() ? std::filesystem::path(options.scene).stem().string() + ".view.png"
                              : options.image;
    const TimageFormat format = formatOf(image, "view");
    std::unique_ptr<TdependGraph> graph = loadScene(options.scene);
    ViewRequest request;
    request.sceneName = options.scene;
    request.width = options.resolution[0];
    request.height = options.resolution[1];
    if (!options.camera.empty())
        request.camera = findCameraPath(*graph, options.camera, "orvo view");
    try {
        const TrenderedImage picture = drawViewport(*graph, request);
        // The draw is in the rendering space: a PNG goes through the scene's
        // output transform, as a render's does.
        TimageWriteSpec spec;
        if (format == TimageFormat::Png) {
            spec.format = "png";
            spec.label = "PNG";
            const TcolourRenderSettings colour = OrvoColourRenderSettings(graph.get());
            spec.colour = {colour.workingSpace, colour.outputTransform,
                           colour.outputUseColorConversion};
        } else {
            spec.format = "openexr";
            spec.label = "EXR";
            spec.bits = 16;
            spec.compression = "zip";
        }
        OrvoWriteImage(image, picture, spec);
    } catch (const TrenderError& error) {
        throw UserError(fmt::format("orvo view: {}", error.what()));
    }
    return kExitSuccess;
}

} // namespace

void addViewCommand(CLI::App& app, CommandRun& run) {
    auto options = std::make_shared<ViewOptions>();
    CLI::App* sub = app.add_subcommand(
        "view", "Draw the scene as the viewport does (material colours, textures, lights)");
    sub->add_option("scene", options->scene, "Scene file (.qsl)")->required();
    sub->add_option("-o,--output", options->image,
                    "Image to write, .png or .exr (default: SCENE.view.png here)");
    sub->add_option("--res", options->resolution, "Width and height (default 640 360)")
        ->expected(2);
    sub->add_option("--camera", options->camera,
                    "The camera to look through (default: the first renderable one)");
    sub->callback([&run, options] {
        run = [options] {
            return runView(*options);
        };
    });
}

} // namespace orvo::cli
