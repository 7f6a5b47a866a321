#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <fmt/printf.h>

#include <OpenImageIO/imageio.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <limits>
#include <memory>
#include <new>

#include "apps/orvo/cli.h"
#include "apps/orvo/scene.h"
#include "apps/orvo/shade_grid.h"
#include "host/env.h"
#include "host/file_replace.h"
#include "host/graph.h"
#include "shading/shading_engine.h"

namespace orvo::cli {

namespace {

struct ShadeOptions {
    std::string scene;
    std::string group;
    unsigned option = 0;
    int pass = 0;
    std::vector<unsigned> resolution{4, 4};
    std::vector<std::string> fields;
    std::vector<std::string> print;
    bool json = false;
    std::string image;
};

// A field given as NAME=v,v,v.
GridField parseField(const std::string& text) {
    const size_t eq = text.find('=');
    if (eq == std::string::npos || eq == 0)
        throw UserError(fmt::format("orvo shade: --field '{}' is not NAME=v,v,v", text));
    const std::string name = text.substr(0, eq);
    std::vector<double> values;
    std::string rest = text.substr(eq + 1);
    size_t start = 0;
    while (start <= rest.size()) {
        const size_t comma = rest.find(',', start);
        const std::string word =
            rest.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
        const auto v = OrvoParseDouble(word);
        if (!v)
            throw UserError(
                fmt::format("orvo shade: --field {}: '{}' is not a number", name, word));
        values.push_back(*v);
        if (comma == std::string::npos)
            break;
        start = comma + 1;
    }
    return makeGridField(name, values, "orvo shade: --field");
}

// What the grid's samples gave back, per cell and printed field.
struct GridValues {
    std::vector<unsigned> printed;
    std::vector<std::vector<std::vector<double>>> values; // cell, printed field, numbers
};

void writeImage(const std::string& path, unsigned width, unsigned height, const GridValues& grid) {
    // outColor and the opacity of outTransparency, RGBA.
    int color = -1, transparency = -1;
    for (size_t f = 0; f < grid.printed.size(); ++f) {
        if (grid.printed[f] == TsampleFields::outColor)
            color = int(f);
        if (grid.printed[f] == TsampleFields::outTransparency)
            transparency = int(f);
    }
    if (color < 0)
        throw UserError("orvo shade: -o writes outColor, which is not printed");
    std::vector<float> pixels(size_t(width) * height * 4, 0.0f);
    for (size_t cell = 0; cell < size_t(width) * height; ++cell) {
        const auto& c = grid.values[cell][size_t(color)];
        float alpha = 1.0f;
        if (transparency >= 0) {
            const auto& t = grid.values[cell][size_t(transparency)];
            alpha = 1.0f - OrvoLuminance(float(t[0]), float(t[1]), float(t[2]));
        }
        for (int k = 0; k < 3; ++k)
            pixels[cell * 4 + size_t(k)] = float(c[size_t(k)]);
        pixels[cell * 4 + 3] = alpha;
    }
    // Written beside its name and renamed into place: no half-written file.
    TfileReplacement file(path);
    auto out = OIIO::ImageOutput::create(path);
    if (!out)
        throw UserError(fmt::format("orvo shade: {}: cannot write this image format", path));
    OIIO::ImageSpec spec(int(width), int(height), 4, OIIO::TypeDesc::FLOAT);
    if (!out->open(file.temporary(), spec) ||
        !out->write_image(OIIO::TypeDesc::FLOAT, pixels.data()) || !out->close())
        throw UserError(fmt::format("orvo shade: {}: {}", path, out->geterror()));
    if (const std::string why = file.commit(true); !why.empty())
        throw UserError(fmt::format("orvo shade: {}: {}", path, why));
}

// A grid is held whole until it is printed: its samples, values and text.
// One that a 32-bit count cannot number, or that needs more memory than the
// machine has, is refused before anything is made for it.
void checkGridFits(unsigned width, unsigned height, size_t printedFloats, size_t printedFields,
                   unsigned sampleSize) {
    const uint64_t cells = uint64_t(width) * height;
    if (cells > std::numeric_limits<unsigned>::max())
        throw UserError(fmt::format("orvo shade: --res {} {}: {} samples are more than the {} a "
                                    "grid can hold",
                                    width, height, cells, std::numeric_limits<unsigned>::max()));
    // Per sample: the sample itself and its pointer and map entry, the
    // printed values, and some 20 characters for each printed number.
    const uint64_t perCell =
        uint64_t(sampleSize) + sizeof(Tsample*) + 64 + sizeof(std::vector<std::vector<double>>) +
        printedFields * sizeof(std::vector<double>) + printedFloats * (sizeof(double) + 20) + 40;
    const long pages = ::sysconf(_SC_PHYS_PAGES), pageSize = ::sysconf(_SC_PAGE_SIZE);
    if (pages <= 0 || pageSize <= 0)
        return;
    const uint64_t memory = uint64_t(pages) * uint64_t(pageSize);
    if (cells > memory / perCell)
        throw UserError(fmt::format("orvo shade: --res {} {}: {} samples need about {:.1f} GiB, "
                                    "more than the {:.1f} GiB of this machine",
                                    width, height, cells,
                                    double(cells) * double(perCell) / double(1ull << 30),
                                    double(memory) / double(1ull << 30)));
}

int shadeGridCommand(const ShadeOptions& options);

int runShade(const ShadeOptions& options) {
    try {
        return shadeGridCommand(options);
    } catch (const std::bad_alloc&) {
        throw UserError(fmt::format("orvo shade: --res {} {}: not enough memory for the grid",
                                    options.resolution.at(0), options.resolution.at(1)));
    }
}

int shadeGridCommand(const ShadeOptions& options) {
    if (options.resolution.size() != 2 || options.resolution[0] == 0 || options.resolution[1] == 0)
        throw UserError("orvo shade: --res takes a width and a height above 0");
    const unsigned width = options.resolution[0], height = options.resolution[1];
    checkGridFits(width, height, 0, 0, 0);
    GridRequest request;
    for (const std::string& f : options.fields)
        request.fields.push_back(parseField(f));

    auto graph = loadScene(options.scene);
    request.group = options.group;
    request.sceneName = options.scene;
    request.command = "orvo shade";
    request.option = options.option;
    request.pass = options.pass;
    request.width = width;
    request.height = height;
    request.outputs = options.print;
    GridValues grid;
    shadeGrid(
        *graph, request,
        [&](const std::vector<unsigned>& printed, unsigned sampleSize) {
            grid.printed = printed;
            size_t printedFloats = 0;
            for (unsigned f : printed)
                printedFloats += floatsOf(Tsample::fieldKind(f));
            checkGridFits(width, height, printedFloats, printed.size(), sampleSize);
            grid.values.resize(size_t(width) * height);
        },
        [&](unsigned cell, const Tsample& sample) {
            auto& values = grid.values[cell];
            values.clear();
            for (unsigned field : grid.printed)
                values.push_back(readField(sample, field));
        });
    const unsigned cells = width * height;

    const char* const* names = Tsample::fieldNames();
    std::string out;
    for (unsigned cell = 0; cell < cells; ++cell) {
        const unsigned i = cell % width, j = cell / width;
        if (options.json) {
            out += fmt::format("{{\"i\": {}, \"j\": {}", i, j);
            for (size_t f = 0; f < grid.printed.size(); ++f) {
                const auto& v = grid.values[cell][f];
                out += fmt::format(", {}: ", jsonString(names[grid.printed[f]]));
                if (v.size() == 1) {
                    out += jsonValue(fmt::sprintf("%.9g", v[0]));
                } else {
                    out += "[";
                    for (size_t k = 0; k < v.size(); ++k)
                        out += (k ? ", " : "") + jsonValue(fmt::sprintf("%.9g", v[k]));
                    out += "]";
                }
            }
            out += "}\n";
        } else {
            out += fmt::format("{} {}", i, j);
            for (size_t f = 0; f < grid.printed.size(); ++f) {
                out += fmt::format("  {} =", names[grid.printed[f]]);
                for (double x : grid.values[cell][f])
                    out += " " + fmt::sprintf("%.9g", x);
            }
            out += "\n";
        }
    }
    if (!options.image.empty())
        writeImage(options.image, width, height, grid);
    std::fputs(out.c_str(), stdout);
    return kExitSuccess;
}

} // namespace

void addShadeCommand(CLI::App& app, CommandRun& run) {
    auto options = std::make_shared<ShadeOptions>();
    CLI::App* sub = app.add_subcommand("shade", "Shade a grid of samples through a shading group");
    sub->add_option("scene", options->scene, "Scene file (.qsl)")->required();
    sub->add_option("-g,--group", options->group, "The shading group (a shadingEngine node)")
        ->required();
    sub->add_option("--option", options->option, "What to shade for, 0 to 11 (0: surface)")
        ->check(CLI::Range(0u, kTSEoptionCount - 1));
    sub->add_option("--pass", options->pass,
                    "Render pass: 0 colour, 2 ambient only, 4 highlights only, 5 shadows only")
        ->check(CLI::Range(0, 5));
    sub->add_option("--res", options->resolution, "Grid width and height (default 4 4)")
        ->expected(2);
    sub->add_option("--field", options->fields,
                    "A sample field for every sample, NAME=v,v,v (repeatable)");
    sub->add_option("--print", options->print,
                    "Fields to print (default: every field the group provides)");
    sub->add_flag("--json", options->json, "One JSON object per sample");
    sub->add_option("-o,--output", options->image,
                    "Write outColor (and the opacity of outTransparency) as an image");
    sub->callback([&run, options] {
        run = [options] {
            return runShade(*options);
        };
    });
}

} // namespace orvo::cli
