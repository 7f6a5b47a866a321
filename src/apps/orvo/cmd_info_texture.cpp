// orvo info on block-ordered textures and on images.

#include <OpenImageIO/imageio.h>
#include <fmt/format.h>

#include <filesystem>

#include "apps/orvo/cli.h"
#include "textures/bot_file_info.h"
#include "textures/pyramid.h"

namespace orvo::cli {

namespace {

std::string bytesText(uint64_t bytes) {
    if (bytes < 10 * 1024)
        return fmt::format("{} bytes", bytes);
    if (bytes < 10 * 1024 * 1024)
        return fmt::format("{:.1f} KiB", double(bytes) / 1024.0);
    return fmt::format("{:.1f} MiB", double(bytes) / (1024.0 * 1024.0));
}

// Reads the whole file and decodes every block, so that damage shows here
// and not in the middle of a render.
int describeBOT(const std::string& file) {
    TbotFileInfo info;
    std::string why;
    if (!info.readFile(file, why))
        throw UserError(fmt::format("orvo info: {}: damaged block-ordered texture: {}", file, why));
    const botHeader& h = info.header;
    std::string out = fmt::format("Block-ordered texture {}\n", file);
    out += fmt::format("  size      {} x {}, {} channel{} ({}), 8-bit\n", h.width, h.height,
                       h.pixelSize, h.pixelSize == 1 ? "" : "s",
                       h.pixelSize == 1   ? "grey"
                       : h.pixelSize == 3 ? "RGB"
                                          : "RGBA");
    out += fmt::format("  levels    {}\n",
                       info.allLevels ? fmt::format("0 .. {} (mipmapped)", unsigned(h.maxLevel))
                                      : fmt::format("{} only (no mipmaps)", unsigned(h.maxLevel)));
    uint64_t raw = 0, coded = 0;
    for (const TbotFileInfo::Level& level : info.levels) {
        raw += uint64_t(level.width) * level.height * h.pixelSize;
        coded += level.codedBytes;
    }
    out += fmt::format("  blocks    {}, 32 x 32 pixels at most\n", info.blockCount);
    out += fmt::format("  file      {}: header 14, offset table {}, blocks {} ({:.2f} of the "
                       "{} of pixels)\n",
                       bytesText(info.fileBytes), bytesText(info.tableBytes), bytesText(coded),
                       raw ? double(coded) / double(raw) : 0.0, bytesText(raw));
    out += "\n  level  size           blocks  coded bytes  bits a pixel\n";
    for (unsigned l = 0; l < info.levels.size(); ++l) {
        const TbotFileInfo::Level& level = info.levels[l];
        if (level.blocks == 0)
            continue;
        out += fmt::format("  {:>5}  {:<13}  {:>6}  {:>11}  {:>12.2f}\n", l,
                           fmt::format("{} x {}", level.width, level.height), level.blocks,
                           level.codedBytes,
                           8.0 * double(level.codedBytes) / (double(level.width) * level.height));
    }
    fmt::print("{}", out);
    return kExitSuccess;
}

int describeImage(const std::string& file) {
    auto in = OIIO::ImageInput::open(file);
    if (!in) {
        std::string why = OIIO::geterror();
        if (why.empty())
            why = "not an image any reader knows";
        throw UserError(fmt::format(
            "orvo info: {}: not a scene, block-ordered texture or readable image: {}", file, why));
    }
    std::string out = fmt::format("Image {} ({})\n", file, in->format_name());
    int subimages = 0;
    for (; in->seek_subimage(subimages, 0); ++subimages) {
        const OIIO::ImageSpec& spec = in->spec();
        int levels = 1;
        while (in->seek_subimage(subimages, levels))
            ++levels;
        in->seek_subimage(subimages, 0);
        std::string names;
        for (const std::string& n : spec.channelnames)
            names += (names.empty() ? "" : ", ") + n;
        const std::string prefix = subimages ? fmt::format("  subimage {}\n", subimages) : "";
        out += prefix;
        out += fmt::format("  size      {} x {}", spec.width, spec.height);
        if (spec.x || spec.y || spec.full_width != spec.width || spec.full_height != spec.height)
            out += fmt::format(" at ({}, {}) of {} x {}", spec.x, spec.y, spec.full_width,
                               spec.full_height);
        out += "\n";
        out += fmt::format("  channels  {} ({})\n", spec.nchannels, names);
        out += fmt::format("  type      {}\n", spec.format.c_str());
        if (spec.tile_width)
            out += fmt::format("  tiles     {} x {}\n", spec.tile_width, spec.tile_height);
        if (levels > 1)
            out += fmt::format("  mipmap    {} levels\n", levels);
        const std::string space = spec.get_string_attribute("oiio:ColorSpace");
        if (!space.empty())
            out += fmt::format("  colour    {}\n", space);
    }
    fmt::print("{}", out);
    return kExitSuccess;
}

} // namespace

int describeTextureOrImage(const std::string& file) {
    std::error_code ec;
    if (!std::filesystem::exists(file, ec))
        throw UserError(fmt::format("orvo info: {}: no such file", file));
    if (Tpyramid::IsItABOTFile(file, nullptr, nullptr))
        return describeBOT(file);
    return describeImage(file);
}

} // namespace orvo::cli
