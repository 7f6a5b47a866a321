#pragma once

// Rendered images to files and back, through OpenImageIO. A file is written
// under a hidden temporary name beside its final one and renamed into place
// only once complete, so a failed or interrupted write never leaves a
// partial image under the final name.

#include <cstdint>
#include <string>
#include <vector>

#include "render/pixel_filter.h"

// How colour goes into an integer image file: from the rendering space
// through an output transform (a view transform "View (Display)", or with
// the colour conversion a colour space). Empty names stand for the native
// defaults: scene-linear Rec.709 through the standard sRGB view.
struct TimageColour {
    std::string workingSpace;
    std::string outputTransform;
    bool useColorConversion = false;
};

enum class TimageFormat {
    // 8 bits a channel, RGBA, colour through the output transform (the sRGB
    // view by default). The colour is written as rendered, background
    // included, beside the alpha.
    Png,
    ExrHalf,  // 16-bit float, linear: R, G, B, A and matteOpacity
    ExrFloat, // the same in 32-bit float
};

// The file extension of a format, without the dot.
const char* OrvoImageExtension(TimageFormat format);

// How an image goes into a file of one of the output formats a scene names.
// Integer formats hold colour through the output transform with alpha where
// the format has it; OpenEXR holds R, G, B, A and matteOpacity in the
// rendering space.
struct TimageWriteSpec {
    std::string format;      // the image library's format name ("png", "openexr", "tiff"...)
    std::string label;       // the scene's name of the format, for messages
    int bits = 8;            // 8 or 16 for integer formats; 16 (half) or 32 for OpenEXR
    bool alpha = true;       // the format keeps an alpha channel
    std::string compression; // OpenEXR: "none", "zip", "piz"...
    TimageColour colour;     // integer formats only
    bool linear() const { return format == "openexr"; }
};

// How to write the scene's output format (renderGlobals.imageFormat, with
// the plug-in key of formats 50 and 51, and the EXR pixel type and
// compression). False, with `why` saying so, for a format that cannot be
// written.
bool OrvoImageWriteSpec(int imageFormat, const std::string& pluginKey, int exrPixelType,
                        int exrCompression, TimageWriteSpec& spec, std::string& why);
// The imageFormat value of a format keyword ("png", "tif", "exr", "jpg"...)
// for a command line, or -1.
int OrvoImageFormatFromKeyword(const std::string& keyword);
// The keywords OrvoImageFormatFromKeyword knows, for messages.
std::string OrvoWritableFormatKeywords();

// Writes the image; throws TrenderError naming the file when it cannot.
void OrvoWriteImage(const std::string& path, const TrenderedImage& image, TimageFormat format);
void OrvoWriteImage(const std::string& path, const TrenderedImage& image,
                    const TimageWriteSpec& spec);

// An encoded value in [0, 1] as a byte.
uint8_t OrvoToByte(float encoded);

// The image as a PNG file holds it: RGBA bytes, rows from the top. Throws
// TrenderError when the output transform is not in the colour
// configuration.
std::vector<uint8_t> OrvoEncodeRgba8(const TrenderedImage& image,
                                     const TimageColour& colour = TimageColour());

// Reads an 8-bit RGBA image (as the PNG writer makes them). Throws
// TrenderError naming the file when it cannot be read or is not RGBA.
std::vector<uint8_t> OrvoReadRgba8(const std::string& path, unsigned& width, unsigned& height);

// How far two RGBA byte images of one size are apart.
struct TimageDifference {
    unsigned maxDifference = 0; // the largest difference of one channel
    size_t pixelsOver = 0;      // pixels with a channel beyond the tolerance
    double percentOver = 0.0;   // the same as a share of all pixels, in percent
};
TimageDifference OrvoCompareRgba8(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b,
                                  unsigned tolerance);
