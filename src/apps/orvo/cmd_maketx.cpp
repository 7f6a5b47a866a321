// orvo maketx IMAGE [-o OUT]: an image to a block-ordered texture.

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <memory>

#include "apps/orvo/cli.h"
#include "host/file_replace.h"
#include "host/image_file.h"
#include "host/messages.h"
#include "textures/pyramid.h"

namespace orvo::cli {

namespace {

namespace fs = std::filesystem;

// Collects what the texture code reports while a command runs, so that a
// failure can be told in one line; restores the reporter after.
class CollectReports {
public:
    CollectReports()
        : fPrevious(TcommandEngine::setSink(
              [this](TcommandEngine::Severity, const std::string& text) { fText += text; })) {}
    ~CollectReports() { TcommandEngine::setSink(std::move(fPrevious)); }
    // The reports, on one line, without their "Error: " heads.
    std::string oneLine() const {
        std::string line;
        for (char c : fText)
            line += c == '\n' ? ' ' : c;
        for (const char* head : {"Error: ", "Warning: "})
            for (size_t at; (at = line.find(head)) != std::string::npos;)
                line.erase(at, std::strlen(head));
        while (!line.empty() && line.back() == ' ')
            line.pop_back();
        return line;
    }

private:
    std::string fText;
    TcommandEngine::Sink fPrevious;
};

int makeTexture(const std::string& image, std::string out) {
    if (out.empty())
        out = fs::path(image).replace_extension(".bot").string();
    if (Tpyramid::IsItABOTFile(image, nullptr, nullptr))
        throw UserError(
            fmt::format("orvo maketx: {}: already a block-ordered texture (see orvo info)", image));
    std::error_code ec;
    if (fs::equivalent(image, out, ec))
        throw UserError(fmt::format("orvo maketx: {}: the output would replace the image; "
                                    "name another with -o",
                                    image));

    std::string why;
    std::unique_ptr<TimageFile> file = TimageFile::identifyAndOpen(image, &why);
    if (!file)
        throw UserError(fmt::format("orvo maketx: {}: cannot read the image: {}", image, why));
    const unsigned width = file->width(), height = file->height();
    if (width > Tpyramid::kMaxSide || height > Tpyramid::kMaxSide ||
        std::min(width, height) > Tpyramid::kMaxShortSide)
        throw UserError(fmt::format("orvo maketx: {}: {} x {} is too big for a texture: sides "
                                    "go up to {} and the short side up to {}",
                                    image, width, height, Tpyramid::kMaxSide,
                                    Tpyramid::kMaxShortSide));
    // The file holds bytes: finer values are rounded, and floats clamped to
    // 0 .. 1 first.
    if (file->isFloat())
        fmt::print(stderr,
                   "orvo maketx: warning: {} holds floating-point values; they are clamped to "
                   "0 .. 1 and rounded to 8 bits\n",
                   image);
    else if (file->isDeeperThan8Bits())
        fmt::print(stderr,
                   "orvo maketx: warning: {} holds more than 8 bits a channel; they are "
                   "rounded to 8 bits\n",
                   image);

    TpixelMap map;
    if (!file->readPixelMap(map))
        throw UserError(
            fmt::format("orvo maketx: {}: cannot read the image: {}", image, file->errorText()));
    file.reset();

    TpyramidNonSwatch pyramid;
    pyramid.setFileName(image);
    if (!pyramid.buildPyramidFromPixelMap(map))
        throw UserError(fmt::format("orvo maketx: {}: not enough memory for its pyramid", image));
    map = TpixelMap();

    // Written beside the output under a name of this process, then moved
    // into place: a failed write never leaves a file under either name.
    TfileReplacement bot(out);
    {
        CollectReports reports;
        if (!pyramid.writeBOT(bot.temporary(), true))
            throw UserError(fmt::format("orvo maketx: {}: cannot write the texture: {}", out,
                                        reports.oneLine()));
    }
    // The texture is a file like any other the user makes, not a private
    // cache: the usual permissions.
    if (const std::string why = bot.commit(true); !why.empty())
        throw UserError(fmt::format("orvo maketx: {}: cannot write the texture: {}", out, why));
    fmt::print("{}: {} x {}, {} channel{}, {} level{}\n", out, width, height, pyramid.pixelSize(),
               pyramid.pixelSize() == 1 ? "" : "s", pyramid.maxLevel() + 1,
               pyramid.maxLevel() == 0 ? "" : "s");
    return kExitSuccess;
}

} // namespace

void addMaketxCommand(CLI::App& app, CommandRun& run) {
    auto image = std::make_shared<std::string>();
    auto out = std::make_shared<std::string>();
    CLI::App* sub = app.add_subcommand(
        "maketx", "Write a block-ordered texture (mip pyramid in 32x32 blocks) from an image");
    sub->add_option("image", *image, "Any image OpenImageIO reads")->required();
    sub->add_option("-o,--output", *out, "The texture to write (default: IMAGE with .bot)");
    sub->callback([&run, image, out] {
        run = [image, out] {
            return makeTexture(*image, *out);
        };
    });
}

} // namespace orvo::cli
