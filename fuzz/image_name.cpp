// Image-name patterns come from scene files and command lines: any text
// must give a name, without hanging, growing without bound or breaking the
// rules that the rest of a render relies on.
//
// Input: a flags byte, a frame byte, a length byte, then lines: the pattern,
// the custom tokens, the camera, the layer, the pass and the frame override.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "settings/common_render_globals.h"
#include "settings/image_name.h"

namespace {

// No "<" stands before the last ">": what removing unknown tokens leaves.
bool noTokenLeft(const std::string& text) {
    const size_t close = text.rfind('>');
    return close == std::string::npos || text.rfind('<', close) == std::string::npos;
}

// No "%[-_./]?[0-9]*n" is left.
bool noFrameToken(const std::string& text) {
    for (size_t at = text.find('%'); at != std::string::npos; at = text.find('%', at + 1)) {
        size_t i = at + 1;
        if (i < text.size() && std::string_view("-_./").find(text[i]) != std::string_view::npos)
            ++i;
        while (i < text.size() && text[i] >= '0' && text[i] <= '9')
            ++i;
        if (i < text.size() && text[i] == 'n')
            return false;
    }
    return true;
}

void check(bool holds) {
    if (!holds)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 3 || size > 4096)
        return 0;
    const unsigned flags = data[0];
    const int frame = int(int8_t(data[1])) * 37;
    const int maxLength = data[2];
    std::vector<std::string> parts(6);
    size_t part = 0;
    for (size_t i = 3; i < size; ++i) {
        if (data[i] == '\n' && part + 1 < parts.size())
            ++part;
        else
            parts[part].push_back(char(data[i]));
    }
    const std::string& pattern = parts[0];
    const std::string& custom = parts[1];
    const std::string& camera = parts[2];
    const std::string& layer = parts[3];
    const std::string& pass = parts[4];
    const std::string& override = parts[5];
    const bool keepUnknown = flags & 16;

    const std::string fixed =
        TimageName::fixPattern(pattern, flags & 1, flags & 2, flags & 4, flags & 8);
    const std::string name =
        TimageName::relativeFileName(fixed, frame, flags & 32, override, "ext", "scene", camera,
                                     layer, pass, "", "v1", flags & 64, custom, keepUnknown);
    if (!keepUnknown)
        check(noTokenLeft(name));
    // A token grows at most to its longest value and a separator.
    const size_t longest = std::max({camera.size(), layer.size() + pass.size() + 1, override.size(),
                                     custom.size(), size_t(66)});
    check(name.size() <= fixed.size() * (longest + 2) + 1);

    const std::string numbered =
        TimageName::replaceNumberFormatString(pattern, "n", frame, true, "");
    check(noFrameToken(numbered));

    std::string whole;
    const std::string buffer =
        TimageName::getBufferName(TimageName::fixBufferNamePattern(pattern, flags & 2), pass, layer,
                                  camera, layer, whole, maxLength, custom, keepUnknown);
    if (whole.size() > size_t(maxLength) && maxLength >= 10)
        check(buffer.size() == size_t(maxLength));
    else if (whole.size() <= size_t(maxLength))
        check(buffer == whole);

    // The same through a render's snapshot, with a naming scheme and padding.
    TcommonRenderGlobalsData globals;
    globals.namingScheme = int(flags % 9);
    globals.framePadding = data[2] % 11;
    globals.outFormat = int(data[1] % 64);
    globals.multipleCameras = flags & 2;
    globals.multipleLayers = flags & 4;
    globals.setImageName(pattern);
    globals.setFrameOverride(override);
    (void)globals.getImageName(0, frame * 0.5, "scene", camera, nullptr, {}, false, flags & 64,
                               custom, keepUnknown, flags & 8);
    return 0;
}
