#pragma once

#include <stdexcept>

// A scene the renderer cannot render as it stands (no camera, a bad
// resolution, an image that cannot be written). The message names the
// scene file, the node or the output, so the user knows where to look.
class TrenderError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};
