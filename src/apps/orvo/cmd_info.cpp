#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <numbers>

#include "apps/orvo/cli.h"
#include "apps/orvo/colour_report.h"
#include "apps/orvo/scene.h"
#include "host/graph.h"
#include "host/iff/iff_image_file.h"
#include "host/scene/camera.h"
#include "host/scene/dag.h"
#include "host/scene/light_shape.h"
#include "host/scene/mesh.h"
#include "host/scene/object_set.h"
#include "host/scene/render_layer.h"

namespace orvo::cli {

namespace {

std::string vec(const T3dDblVector& v) {
    return fmt::format("({:g}, {:g}, {:g})", v.x, v.y, v.z);
}

std::string vec(const T3Float& v) {
    return fmt::format("({:g}, {:g}, {:g})", v.x, v.y, v.z);
}

// What one DAG path is, in a few words.
std::string describe(const TdagPath& path, const TdnRenderLayer* layer) {
    std::vector<std::string> facts;
    TdagObject* node = path.node();
    if (dynamic_cast<Ttransform*>(node)) {
        facts.push_back("at " + vec(path.inclusiveMatrix().translationPart()));
    } else if (auto* mesh = dynamic_cast<Tmesh*>(node)) {
        const auto built = mesh->mesh();
        if (!mesh->lastError().empty())
            facts.push_back("cannot be built: " + mesh->lastError());
        else if (built->empty())
            facts.push_back("empty");
        else
            facts.push_back(fmt::format("{} triangles, bounds {} to {}", built->triangleCount(),
                                        vec(built->boundsMin), vec(built->boundsMax)));
    } else if (auto* camera = dynamic_cast<TcameraShape*>(node)) {
        constexpr double kDegrees = 180.0 / std::numbers::pi;
        const TcameraShape::Values v = camera->values();
        facts.push_back(v.orthographic
                            ? fmt::format("orthographic, width {:g}", v.orthographicWidth)
                            : fmt::format("focal length {:g} mm, view {:.4g} x {:.4g} degrees",
                                          v.focalLength, camera->horizontalFieldOfView() * kDegrees,
                                          camera->verticalFieldOfView() * kDegrees));
        facts.push_back(camera->isRenderable(layer) ? "renderable" : "not renderable");
    } else if (auto* light = dynamic_cast<TlightShape*>(node)) {
        facts.push_back(
            fmt::format("colour {}, intensity {:g}", vec(light->color()), light->intensity()));
    }
    if (node->isInstanced())
        facts.push_back(
            fmt::format("instance {} of {}", path.whichInstance(), node->instanceCount()));
    if (!TdagPathUtils::isObjectVisible(path, layer))
        facts.push_back("hidden");
    if (!TdagPathUtils::inRenderLayer(path, layer))
        facts.push_back("not in the current layer");
    std::string text;
    for (const std::string& f : facts)
        text += (text.empty() ? "" : ", ") + f;
    return text;
}

std::string valueText(const TplugValue& value) {
    std::string text;
    for (const std::string& w : value.words())
        text += (text.empty() ? "" : " ") + w;
    return text;
}

int describeScene(const std::string& file) {
    auto graph = loadScene(file);
    const TdnRenderLayer* layer = TdnRenderLayerManager::currentLayer(*graph);
    std::string out = fmt::format("Scene {}: {} nodes\n", file, graph->nodes().size());

    // The DAG, one line a path, children indented under their parents.
    std::vector<std::pair<std::string, std::string>> rows;
    for (TdagIterator it(*graph); !it.isDone(); it.next())
        rows.emplace_back(
            std::string(2 * it.depth(), ' ') + it.path().fullPathName(),
            fmt::format("{:<10} {}", it.node()->typeName(), describe(it.path(), layer)));
    out += "\nDAG\n";
    if (rows.empty())
        out += "  (empty)\n";
    size_t width = 0;
    for (const auto& [path, what] : rows)
        width = std::max(width, path.size());
    for (const auto& [path, what] : rows)
        out += fmt::format("  {:<{}}  {}\n", path, width, what);

    std::vector<TobjectSet*> sets;
    std::vector<Tpartition*> partitions;
    for (TdependNode* node : graph->nodes()) {
        if (auto* set = static_cast<TobjectSet*>(node->cast(TobjectSet::sTypeof())))
            sets.push_back(set);
        if (auto* partition = static_cast<Tpartition*>(node->cast(Tpartition::sTypeof())))
            partitions.push_back(partition);
    }
    if (!sets.empty()) {
        out += "\nSets\n";
        for (const TobjectSet* set : sets) {
            TselectionList members;
            set->completeGroupedMembers(members);
            out += fmt::format("  {} ({}): {} member{}\n", set->name(), set->typeName(),
                               members.length(), members.length() == 1 ? "" : "s");
            for (const TdagSelectionItem& item : members)
                out += fmt::format("    {}\n", item.name());
        }
    }
    if (!partitions.empty()) {
        out += "\nPartitions\n";
        for (const Tpartition* partition : partitions) {
            std::string names;
            for (const TobjectSet* set : partition->sets())
                names += (names.empty() ? "" : ", ") + set->name();
            out += fmt::format("  {}: {}\n", partition->name(), names.empty() ? "no sets" : names);
        }
    }
    const std::vector<TdnRenderLayer*> layers = TdnRenderLayerManager::layers(*graph);
    if (!layers.empty()) {
        out += fmt::format("\nRender layers (current: {})\n", layer ? layer->name() : "none");
        for (const TdnRenderLayer* l : layers) {
            std::vector<std::string> facts;
            if (l->isDefaultLayer())
                facts.push_back("default");
            if (l == layer)
                facts.push_back("current");
            facts.push_back(l->isRenderable() ? "renderable" : "not renderable");
            facts.push_back(fmt::format("order {}", l->order()));
            std::string text;
            for (const std::string& f : facts)
                text += (text.empty() ? "" : ", ") + f;
            out += fmt::format("  {}: {}\n", l->name(), text);
            for (const TdependNode* member : l->members())
                out += fmt::format("    member {}\n", member->name());
            for (const Tplug& plug : l->adjustedPlugs())
                out += fmt::format("    {} = {} (plain value {})\n", plug.name(),
                                   valueText(TdnRenderLayer::readValue(plug, l)),
                                   valueText(TdnRenderLayer::readValue(plug, nullptr)));
        }
    }
    out += colourReport(*graph);
    fmt::print("{}", out);
    return kExitSuccess;
}

// Depth map files (FOR4 DMAP) are known by their first twelve bytes, whatever
// their name; a file named .iff that is not one goes to the depth map reader
// too, which says what is wrong with it.
bool isDepthMapFile(const std::string& file) {
    if (std::filesystem::path(file).extension() == ".iff")
        return true;
    std::ifstream in(file, std::ios::binary);
    char head[12] = {};
    return in.read(head, sizeof head) && std::string(head, 4) == "FOR4" &&
           std::string(head + 8, 4) == "DMAP";
}

int describeDepthMap(const std::string& file) {
    TiffImageFile map;
    if (map.open(file, "r") != 0)
        throw UserError("orvo info: " + map.errorText());
    const TiffImageHeader& h = map.header();
    static const char* const kFaces[] = {"+X", "+Y", "+Z", "-X", "-Y", "-Z"};
    std::string out =
        fmt::format("Depth map {}: {} x {}, {}, {}\n", file, h.width, h.height,
                    map.perspective() ? "perspective" : "orthographic",
                    h.face < 0 ? std::string("a single map")
                               : fmt::format("face {} ({}) of a cube", h.face, kFaces[h.face]));
    std::string channels;
    for (int bit = 0; bit < 4; ++bit)
        if (h.channels & (1u << bit))
            channels += "RGBA"[bit];
    if (map.hasDepth())
        channels += channels.empty() ? "depth" : " and depth";
    out += fmt::format("  channels: {}\n", channels.empty() ? "none" : channels);
    auto row = [](const T4dFltMatrix& m, int r) {
        return fmt::format("{:g} {:g} {:g} {:g}", m.m[r][0], m.m[r][1], m.m[r][2], m.m[r][3]);
    };
    out += "  world to camera:";
    for (int r = 0; r < 4; ++r)
        out += (r ? " | " : " ") + row(h.worldToCamera, r);
    out += "\n  projection:";
    for (int r = 0; r < 4; ++r)
        out += (r ? " | " : " ") + row(h.projection, r);
    out += "\n";
    if (map.hasDepth()) {
        // Texels hold 1/z of what they see, z negative in front of the
        // camera: the distance along the view axis is -1/value.
        std::vector<float> depth(map.texelCount());
        if (map.readDepth(depth.data()) != 0)
            throw UserError("orvo info: " + map.errorText());
        size_t seen = 0, odd = 0;
        double nearest = INFINITY, farthest = 0.0;
        uint32_t left = h.width, right = 0, bottom = h.height, top = 0;
        for (uint32_t y = 0; y < h.height; ++y)
            for (uint32_t x = 0; x < h.width; ++x) {
                const float v = depth[size_t(y) * h.width + x];
                if (v == 0.0f)
                    continue;
                const double distance = -1.0 / double(v);
                if (!std::isfinite(distance) || distance <= 0.0) {
                    ++odd;
                    continue;
                }
                ++seen;
                nearest = std::min(nearest, distance);
                farthest = std::max(farthest, distance);
                left = std::min(left, x);
                right = std::max(right, x);
                bottom = std::min(bottom, y);
                top = std::max(top, y);
            }
        out += fmt::format("  texels that see a surface: {} of {} ({:.1f}%)\n", seen, depth.size(),
                           100.0 * double(seen) / double(depth.size()));
        if (seen)
            out += fmt::format("  they lie in x {} to {}, y {} to {}; distances {:g} to {:g} "
                               "from the camera\n",
                               left, right, bottom, top, nearest, farthest);
        if (odd)
            out += fmt::format("  {} texels hold a depth behind the camera or not a number\n", odd);
    }
    fmt::print("{}", out);
    return kExitSuccess;
}

} // namespace

// Block-ordered textures and images (cmd_info_texture.cpp).
int describeTextureOrImage(const std::string& file);

void addInfoCommand(CLI::App& app, CommandRun& run) {
    auto file = std::make_shared<std::string>();
    CLI::App* sub = app.add_subcommand(
        "info", "Describe a scene (its DAG, sets and layers), or a texture, depth map or image");
    sub->add_option("file", *file, "Scene file (.qsl), texture, depth map or image")->required();
    sub->callback([&run, file] {
        run = [file]() -> int {
            if (std::filesystem::path(*file).extension() == ".qsl")
                return describeScene(*file);
            if (isDepthMapFile(*file))
                return describeDepthMap(*file);
            return describeTextureOrImage(*file);
        };
    });
}

} // namespace orvo::cli
