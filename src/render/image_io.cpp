#include "render/image_io.h"

#include <OpenImageIO/imageio.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>

#include "render/render_error.h"

const char* OrvoImageExtension(TimageFormat format) {
    return format == TimageFormat::Png ? "png" : "exr";
}

float OrvoSrgbEncode(float linear) {
    const float x = std::clamp(linear, 0.0f, 1.0f);
    return x <= 0.0031308f ? 12.92f * x : 1.055f * std::pow(x, 1.0f / 2.4f) - 0.055f;
}

uint8_t OrvoToByte(float encoded) {
    return uint8_t(std::lround(std::clamp(encoded, 0.0f, 1.0f) * 255.0f));
}

std::vector<uint8_t> OrvoEncodeRgba8(const TrenderedImage& image) {
    std::vector<uint8_t> out(size_t(image.width) * image.height * 4);
    for (size_t i = 0; i < size_t(image.width) * image.height; ++i) {
        const float* p = &image.pixels[i * TrenderedImage::kChannels];
        for (int c = 0; c < 3; ++c)
            out[i * 4 + size_t(c)] = OrvoToByte(OrvoSrgbEncode(p[c]));
        out[i * 4 + 3] = OrvoToByte(p[3]);
    }
    return out;
}

void OrvoWriteImage(const std::string& path, const TrenderedImage& image, TimageFormat format) {
    namespace fs = std::filesystem;
    const fs::path target(path);
    const fs::path temporary =
        target.parent_path() / fmt::format(".{}.{}.tmp.{}", target.filename().string(),
                                           long(::getpid()), OrvoImageExtension(format));
    auto out = OIIO::ImageOutput::create(OrvoImageExtension(format));
    if (!out)
        throw TrenderError(
            fmt::format("{}: error: cannot write {} images", path, OrvoImageExtension(format)));
    bool written = false;
    std::string why;
    if (format == TimageFormat::Png) {
        OIIO::ImageSpec spec(int(image.width), int(image.height), 4, OIIO::TypeDesc::UINT8);
        spec.alpha_channel = 3;
        // The bytes go out as they are: no division by alpha on the way.
        spec.attribute("oiio:UnassociatedAlpha", 1);
        const std::vector<uint8_t> bytes = OrvoEncodeRgba8(image);
        written = out->open(temporary.string(), spec) &&
                  out->write_image(OIIO::TypeDesc::UINT8, bytes.data());
    } else {
        const auto type =
            format == TimageFormat::ExrHalf ? OIIO::TypeDesc::HALF : OIIO::TypeDesc::FLOAT;
        OIIO::ImageSpec spec(int(image.width), int(image.height), int(TrenderedImage::kChannels),
                             type);
        spec.channelnames = {"R", "G", "B", "A", "matteOpacity"};
        spec.alpha_channel = 3;
        spec.attribute("compression", "zip");
        written = out->open(temporary.string(), spec) &&
                  out->write_image(OIIO::TypeDesc::FLOAT, image.pixels.data());
    }
    written = out->close() && written;
    if (!written)
        why = out->geterror();
    std::error_code ec;
    if (written) {
        fs::rename(temporary, target, ec);
        if (!ec)
            return;
        why = ec.message();
    }
    fs::remove(temporary, ec);
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
