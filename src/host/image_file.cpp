#include "host/image_file.h"

#include <OpenImageIO/imageio.h>

#include <algorithm>
#include <limits>
#include <string_view>
#include <utility>
#include <vector>

struct TimageFile::Reader {
    std::unique_ptr<OIIO::ImageInput> input;
};

TimageFile::TimageFile(std::unique_ptr<Reader> reader) : fReader(std::move(reader)) {}

TimageFile::~TimageFile() = default;

std::unique_ptr<TimageFile> TimageFile::identifyAndOpen(const Tstring& name, Tstring* error) {
    // The values as stored: a texture's colour must not change with whether
    // its file keeps alpha multiplied in or not.
    OIIO::ImageSpec config;
    config.attribute("oiio:UnassociatedAlpha", 1);
    auto input = OIIO::ImageInput::open(name, &config);
    if (!input) {
        if (error) {
            *error = OIIO::geterror();
            if (error->empty())
                *error = "not an image any reader knows";
        }
        return nullptr;
    }
    const OIIO::ImageSpec& spec = input->spec();
    if (spec.width <= 0 || spec.height <= 0 || spec.depth > 1 || spec.nchannels <= 0) {
        if (error)
            *error = "not a flat image with pixels";
        return nullptr;
    }
    auto reader = std::make_unique<Reader>();
    reader->input = std::move(input);
    std::unique_ptr<TimageFile> file(new TimageFile(std::move(reader)));
    file->fName = name;
    file->fFormat = file->fReader->input->format_name();
    file->fWidth = unsigned(spec.width);
    file->fHeight = unsigned(spec.height);
    file->fChannels = unsigned(spec.nchannels);
    const OIIO::TypeDesc type = spec.format;
    file->fIsFloat = type.basetype == OIIO::TypeDesc::HALF ||
                     type.basetype == OIIO::TypeDesc::FLOAT ||
                     type.basetype == OIIO::TypeDesc::DOUBLE;
    file->fDeeperThan8 = type.size() > 1;
    for (const OIIO::TypeDesc& channel : spec.channelformats)
        if (channel.size() > 1)
            file->fDeeperThan8 = true;
    return file;
}

namespace {

template <class T>
constexpr OIIO::TypeDesc oiioType() {
    if constexpr (std::is_same_v<T, float>)
        return OIIO::TypeDesc::FLOAT;
    else
        return OIIO::TypeDesc::UINT8;
}

template <class T>
constexpr T fullValue() {
    if constexpr (std::is_same_v<T, float>)
        return 1.0f;
    else
        return std::numeric_limits<T>::max();
}

} // namespace

template <class T>
bool TimageFile::read(TgenericPixelMap<T>& map) {
    using Map = TgenericPixelMap<T>;
    OIIO::ImageInput& in = *fReader->input;
    const OIIO::ImageSpec& spec = in.spec();
    // One or two channels are grey (and alpha); three or more are red,
    // green, blue and maybe alpha; channels beyond the fourth are left out.
    const unsigned stored = std::min(fChannels, 4u);
    const unsigned mapChannels = stored == 2 ? 4 : stored;
    map.resize(fWidth, fHeight, mapChannels);

    // A band of rows at a time keeps the staging buffer small and warm.
    constexpr unsigned kBand = 64;
    std::vector<T> band(size_t(kBand) * fWidth * stored);
    const T full = fullValue<T>();
    for (unsigned top = 0; top < fHeight; top += kBand) {
        const unsigned rows = std::min(kBand, fHeight - top);
        if (!in.read_scanlines(0, 0, spec.y + int(top), spec.y + int(top + rows), spec.z, 0,
                               int(stored), oiioType<T>(), band.data())) {
            fError = in.geterror();
            if (fError.empty())
                fError = "cannot read the pixels";
            return false;
        }
        for (unsigned r = 0; r < rows; ++r) {
            // The file's rows run from the top; the map's from the bottom.
            const T* from = band.data() + size_t(r) * fWidth * stored;
            T* to = map.row(fHeight - 1 - (top + r));
            switch (stored) {
            case 1:
                for (unsigned x = 0; x < fWidth; ++x, to += 4)
                    to[0] = to[1] = to[2] = to[3] = from[x];
                break;
            case 2:
                for (unsigned x = 0; x < fWidth; ++x, to += 4, from += 2) {
                    to[Map::kBlue] = to[Map::kGreen] = to[Map::kRed] = from[0];
                    to[Map::kAlpha] = from[1];
                }
                break;
            case 3:
                for (unsigned x = 0; x < fWidth; ++x, to += 4, from += 3) {
                    to[Map::kBlue] = from[2];
                    to[Map::kGreen] = from[1];
                    to[Map::kRed] = from[0];
                    to[Map::kAlpha] = full;
                }
                break;
            default:
                for (unsigned x = 0; x < fWidth; ++x, to += 4, from += 4) {
                    to[Map::kBlue] = from[2];
                    to[Map::kGreen] = from[1];
                    to[Map::kRed] = from[0];
                    to[Map::kAlpha] = from[3];
                }
                break;
            }
        }
    }
    return true;
}

bool TimageFile::readPixelMap(TpixelMap& map) {
    return read<uint8_t>(map);
}

bool TimageFile::readPixelMap(TgenericPixelMap<float>& map) {
    return read<float>(map);
}

bool PIO_getExtFromFormatKey(const Tstring& key, Tstring& extension) {
    if (key.empty())
        return false;
    // "tiff:tif,tiff,tx;openexr:exr,sxr,mxr;...": each format, its extensions.
    std::string list;
    OIIO::getattribute("extension_list", list);
    std::vector<std::pair<std::string_view, std::string_view>> formats;
    for (size_t at = 0; at < list.size();) {
        size_t end = list.find(';', at);
        if (end == std::string::npos)
            end = list.size();
        const std::string_view entry(list.data() + at, end - at);
        at = end + 1;
        const size_t colon = entry.find(':');
        if (colon != std::string_view::npos && colon + 1 < entry.size())
            formats.emplace_back(entry.substr(0, colon), entry.substr(colon + 1));
    }
    // A format's name gives its first extension...
    for (const auto& [name, extensions] : formats)
        if (name == key) {
            extension = "." + std::string(extensions.substr(0, extensions.find(',')));
            return true;
        }
    // ...and an extension of any format gives itself.
    for (const auto& [name, extensions] : formats)
        for (size_t from = 0; from < extensions.size();) {
            size_t comma = extensions.find(',', from);
            if (comma == std::string_view::npos)
                comma = extensions.size();
            if (extensions.substr(from, comma - from) == key) {
                extension = "." + key;
                return true;
            }
            from = comma + 1;
        }
    return false;
}
