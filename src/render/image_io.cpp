#include "render/image_io.h"

#include <OpenImageIO/imageio.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>

#include "host/colour/catalog.h"
#include "host/file_replace.h"
#include "render/render_error.h"

const char* OrvoImageExtension(TimageFormat format) {
    return format == TimageFormat::Png ? "png" : "exr";
}

uint8_t OrvoToByte(float encoded) {
    return uint8_t(std::lround(std::clamp(encoded, 0.0f, 1.0f) * 255.0f));
}

namespace {

struct WritableFormat {
    int imageFormat;        // renderGlobals.imageFormat
    const char* keyword;    // for command lines and plug-in keys
    const char* label;      // the scene's name of the format
    const char* oiioFormat; // the image library's writer
    int bits;
    bool alpha;
};

// The output formats of a scene that the image library writes.
constexpr WritableFormat kWritable[] = {
    {0, "gif", "GIF", "gif", 8, false},
    {2, "rla", "RLA", "rla", 8, true},
    {3, "tif", "Tiff", "tiff", 8, true},
    {4, "tif16", "Tiff16", "tiff", 16, true},
    {5, "sgi", "SGI", "sgi", 8, true},
    {7, "iff", "Orvo IFF", "iff", 8, true},
    {8, "jpg", "JPEG", "jpeg", 8, false},
    {10, "iff16", "Orvo16 IFF", "iff", 16, true},
    {13, "sgi16", "SGI16", "sgi", 16, true},
    {19, "tga", "Targa", "targa", 8, true},
    {20, "bmp", "Windows Bitmap", "bmp", 8, true},
    {32, "png", "PNG", "png", 8, true},
    {40, "exr", "EXR(exr)", "openexr", 32, true},
};

const WritableFormat* writableByKeyword(const std::string& keyword) {
    const std::string key = keyword == "tiff"   ? "tif"
                            : keyword == "jpeg" ? "jpg"
                            : keyword == "tifu" ? "tif"
                                                : keyword;
    for (const WritableFormat& f : kWritable)
        if (key == f.keyword)
            return &f;
    return nullptr;
}

constexpr const char* kExrCompressions[] = {"none", "rle", "zips", "zip", "piz", "pxr24", "b44"};

// The processor from the rendering space through the output transform.
TcolourProcessor outputProcessor(const TimageColour& colour) {
    const std::string working =
        colour.workingSpace.empty() ? TcolorMgtCatalog::kSceneLinear : colour.workingSpace;
    const std::string output =
        colour.outputTransform.empty() ? TcolorMgtCatalog::kStandardView : colour.outputTransform;
    TcolourProcessor processor;
    std::string why;
    if (!TcolorMgtCatalog::instance().outputProcessor(working, output, colour.useColorConversion,
                                                      processor, why))
        throw TrenderError(fmt::format("error: the output transform '{}' from '{}' cannot be "
                                       "used: {}",
                                       output, working, why));
    return processor;
}

// The colour as the file holds it: integers through the output transform,
// rows from the top.
template <class T>
std::vector<T> encodeIntegers(const TrenderedImage& image, unsigned channels, float scale,
                              const TimageColour& colour) {
    const size_t count = size_t(image.width) * image.height;
    std::vector<float> rgba(image.pixels.begin(),
                            image.pixels.begin() +
                                std::ptrdiff_t(count * TrenderedImage::kChannels));
    outputProcessor(colour).apply(rgba.data(), count, TrenderedImage::kChannels);
    std::vector<T> out(count * channels);
    for (size_t i = 0; i < count; ++i) {
        const float* p = &rgba[i * TrenderedImage::kChannels];
        for (unsigned c = 0; c < channels; ++c)
            out[i * channels + c] = T(std::lround(std::clamp(p[c], 0.0f, 1.0f) * scale));
    }
    return out;
}

} // namespace

std::vector<uint8_t> OrvoEncodeRgba8(const TrenderedImage& image, const TimageColour& colour) {
    return encodeIntegers<uint8_t>(image, 4, 255.0f, colour);
}

int OrvoImageFormatFromKeyword(const std::string& keyword) {
    const WritableFormat* f = writableByKeyword(keyword);
    return f ? f->imageFormat : -1;
}

std::string OrvoWritableFormatKeywords() {
    std::string all;
    for (const WritableFormat& f : kWritable)
        all += (all.empty() ? "" : ", ") + std::string(f.keyword);
    return all;
}

bool OrvoImageWriteSpec(int imageFormat, const std::string& pluginKey, int exrPixelType,
                        int exrCompression, TimageWriteSpec& spec, std::string& why) {
    const WritableFormat* found = nullptr;
    if (imageFormat == 50 || imageFormat == 51) {
        // A plug-in or custom format names its writer by its key.
        found = writableByKeyword(pluginKey);
        if (!found) {
            why = fmt::format("the image format key '{}' names no format orvo writes ({})",
                              pluginKey, OrvoWritableFormatKeywords());
            return false;
        }
    } else {
        for (const WritableFormat& f : kWritable)
            if (f.imageFormat == imageFormat)
                found = &f;
        if (!found) {
            why = fmt::format("image format {} cannot be written; orvo writes {}", imageFormat,
                              OrvoWritableFormatKeywords());
            return false;
        }
    }
    spec = TimageWriteSpec();
    spec.format = found->oiioFormat;
    spec.label = found->label;
    spec.bits = found->bits;
    spec.alpha = found->alpha;
    if (spec.linear()) {
        spec.bits = exrPixelType == 1 ? 16 : 32;
        spec.compression =
            exrCompression >= 0 && exrCompression < 7 ? kExrCompressions[exrCompression] : "none";
    }
    // The library of this machine must have the writer.
    if (!OIIO::ImageOutput::create(spec.format)) {
        why = fmt::format("{} images cannot be written: the image library has no {} writer",
                          spec.label, spec.format);
        return false;
    }
    return true;
}

void OrvoWriteImage(const std::string& path, const TrenderedImage& image, TimageFormat format) {
    TimageWriteSpec spec;
    if (format == TimageFormat::Png) {
        spec.format = "png";
        spec.label = "PNG";
    } else {
        spec.format = "openexr";
        spec.label = "EXR";
        spec.bits = format == TimageFormat::ExrHalf ? 16 : 32;
        spec.compression = "zip";
    }
    OrvoWriteImage(path, image, spec);
}

void OrvoWriteImage(const std::string& path, const TrenderedImage& image,
                    const TimageWriteSpec& spec) {
    namespace fs = std::filesystem;
    TfileReplacement file(path);
    const fs::path temporary(file.temporary());
    auto out = OIIO::ImageOutput::create(spec.format);
    if (!out)
        throw TrenderError(fmt::format("{}: error: cannot write {} images", path, spec.label));
    bool written = false;
    std::string why;
    if (!spec.linear()) {
        const unsigned channels = spec.alpha ? 4 : 3;
        const auto type = spec.bits == 16 ? OIIO::TypeDesc::UINT16 : OIIO::TypeDesc::UINT8;
        OIIO::ImageSpec header(int(image.width), int(image.height), int(channels), type);
        if (spec.alpha)
            header.alpha_channel = 3;
        // The values go out as they are: no division by alpha on the way.
        header.attribute("oiio:UnassociatedAlpha", 1);
        if (spec.bits == 16) {
            const std::vector<uint16_t> values =
                encodeIntegers<uint16_t>(image, channels, 65535.0f, spec.colour);
            written = out->open(temporary.string(), header) &&
                      out->write_image(OIIO::TypeDesc::UINT16, values.data());
        } else {
            const std::vector<uint8_t> values =
                encodeIntegers<uint8_t>(image, channels, 255.0f, spec.colour);
            written = out->open(temporary.string(), header) &&
                      out->write_image(OIIO::TypeDesc::UINT8, values.data());
        }
    } else {
        const auto type = spec.bits == 16 ? OIIO::TypeDesc::HALF : OIIO::TypeDesc::FLOAT;
        OIIO::ImageSpec header(int(image.width), int(image.height), int(TrenderedImage::kChannels),
                               type);
        header.channelnames = {"R", "G", "B", "A", "matteOpacity"};
        header.alpha_channel = 3;
        header.attribute("compression", spec.compression.empty() ? "zip" : spec.compression);
        written = out->open(temporary.string(), header) &&
                  out->write_image(OIIO::TypeDesc::FLOAT, image.pixels.data());
    }
    written = out->close() && written;
    if (!written)
        why = out->geterror();
    if (written) {
        why = file.commit(true);
        if (why.empty())
            return;
    }
    throw TrenderError(fmt::format("{}: error: cannot write the image: {}", path,
                                   why.empty() ? "unknown failure" : why));
}

std::vector<uint8_t> OrvoReadRgba8(const std::string& path, unsigned& width, unsigned& height) {
    // The bytes as the file holds them, not multiplied by alpha.
    OIIO::ImageSpec config;
    config.attribute("oiio:UnassociatedAlpha", 1);
    auto in = OIIO::ImageInput::open(path, &config);
    if (!in)
        throw TrenderError(
            fmt::format("{}: error: cannot read the image: {}", path, OIIO::geterror()));
    const OIIO::ImageSpec& spec = in->spec();
    if (spec.nchannels != 4)
        throw TrenderError(
            fmt::format("{}: error: {} channels where RGBA was expected", path, spec.nchannels));
    width = unsigned(spec.width);
    height = unsigned(spec.height);
    std::vector<uint8_t> pixels(size_t(width) * height * 4);
    if (!in->read_image(0, 0, 0, 4, OIIO::TypeDesc::UINT8, pixels.data()))
        throw TrenderError(
            fmt::format("{}: error: cannot read the image: {}", path, in->geterror()));
    return pixels;
}

TimageDifference OrvoCompareRgba8(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b,
                                  unsigned tolerance) {
    TimageDifference d;
    const size_t pixels = std::min(a.size(), b.size()) / 4;
    for (size_t i = 0; i < pixels; ++i) {
        unsigned worst = 0;
        for (size_t c = 0; c < 4; ++c)
            worst = std::max(worst, unsigned(std::abs(int(a[4 * i + c]) - int(b[4 * i + c]))));
        d.maxDifference = std::max(d.maxDifference, worst);
        if (worst > tolerance)
            ++d.pixelsOver;
    }
    d.percentOver = pixels ? 100.0 * double(d.pixelsOver) / double(pixels) : 0.0;
    return d;
}
