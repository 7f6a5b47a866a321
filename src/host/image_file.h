#pragma once

// Image files of the host's image library, read through OpenImageIO. The
// first subimage at its full resolution is what a pixel map gets; the file's
// values go in as they are stored (alpha is not multiplied in), and rows are
// flipped once on the way so that the map's row 0 is the image's bottom row.

#include <memory>

#include "host/pixel_map.h"
#include "host/types.h"

class TimageFile {
public:
    ~TimageFile();
    TimageFile(const TimageFile&) = delete;
    TimageFile& operator=(const TimageFile&) = delete;

    // Opens NAME with whatever reader knows its format. Null when none can,
    // with the reason in `error` when it is given.
    static std::unique_ptr<TimageFile> identifyAndOpen(const Tstring& name,
                                                       Tstring* error = nullptr);

    const Tstring& name() const { return fName; }
    unsigned width() const { return fWidth; }
    unsigned height() const { return fHeight; }
    // Channels stored in the file (an RGBA image has 4).
    unsigned channels() const { return fChannels; }
    // The file's samples are floating point (half, float or double).
    bool isFloat() const { return fIsFloat; }
    // The samples hold more than 8 bits, so an 8-bit map loses precision.
    bool isDeeperThan8Bits() const { return fDeeperThan8; }
    // The format's name as the reader gives it ("png", "openexr", ...).
    const Tstring& formatName() const { return fFormat; }

    // Reads the whole image, converted to 8 bits (clamped to the range and
    // rounded). False with errorText() set when the file cannot be read.
    bool readPixelMap(TpixelMap& map);
    // Reads the whole image as floats (8-bit files give value / 255).
    bool readPixelMap(TgenericPixelMap<float>& map);

    const Tstring& errorText() const { return fError; }

private:
    struct Reader;
    explicit TimageFile(std::unique_ptr<Reader> reader);
    template <class T>
    bool read(TgenericPixelMap<T>& map);

    std::unique_ptr<Reader> fReader;
    Tstring fName;
    Tstring fFormat;
    Tstring fError;
    unsigned fWidth = 0;
    unsigned fHeight = 0;
    unsigned fChannels = 0;
    bool fIsFloat = false;
    bool fDeeperThan8 = false;
};

// The extension, with its dot, of the files of an image format the image
// library knows, by the format's key: its name gives its first extension
// ("openexr" ".exr", "tiff" ".tif"), one of its extensions itself ("qt"
// ".qt"). False, with `extension` untouched, for a key no format of the
// library has.
bool PIO_getExtFromFormatKey(const Tstring& key, Tstring& extension);
