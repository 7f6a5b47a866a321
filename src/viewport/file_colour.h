#pragma once

// The image of a file texture in the rendering space: the viewport lights
// and blends in the space the renderer shades in, and its picture goes
// through the scene's output transform as a render's does, so a file's
// bytes are read through the same input colour the render chooses for that
// file (the file rules, or the node's own colour space).

#include <memory>

#include "host/pixel_map.h"
#include "host/types.h"

class TdnFileTexture;

// `map` as read from `fileName` for `node`, converted; the same map when
// the conversion changes nothing. Values the rendering space holds outside
// 0 to 1 are clipped to what a byte holds.
std::shared_ptr<const TpixelMap> OrvoFileMapInRenderingSpace(std::shared_ptr<const TpixelMap> map,
                                                             TdnFileTexture& node,
                                                             const Tstring& fileName);
