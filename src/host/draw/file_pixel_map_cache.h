#pragma once

// The images of files as the viewport draws them, read once per file name
// and frame and shared by everything that shows that file.

#include <memory>

#include "host/pixel_map.h"
#include "host/types.h"

class TdependNode;

class TfilePixelMapCache {
public:
    // The image of `fileName`, or null when it cannot be read. `useAlpha`
    // false gives the image with its alpha opaque. `node` names the asker in
    // the warning a missing file gives (once per file name).
    static std::shared_ptr<const TpixelMap> pixelMap(const Tstring& fileName, int frame,
                                                     bool useAlpha, const TdependNode* node);
    static std::shared_ptr<const TpixelMap> pixelMap(const Tstring& fileName,
                                                     const TdependNode* node) {
        return pixelMap(fileName, 0, true, node);
    }
    // Forgets every image (a file changed on disk).
    static void clear();
};
