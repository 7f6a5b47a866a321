#pragma once

// Services of the application that the drawing side of the render model
// calls: baking a shading network into an image for the viewport, and the
// swatch (a small preview image) of a shading node. The host does not
// shade; the render model installs the baker when it loads.

#include <memory>

#include "host/pixel_map.h"
#include "host/plug.h"
#include "host/scene/dag.h"
#include "host/types.h"

class TbaseAccessor {
public:
    // Bakes the network behind `plug` into `map` (width by height, row 0 at
    // v = 0, pixel (i, j) at UV ((i + 0.5) / width, (j + 0.5) / height)),
    // as it looks on `object` seen from `camera` (either may be empty). With
    // `alpha` the map holds the network's opacity, otherwise it is opaque.
    // The UV range baked goes into uvMin and uvMax. False when it cannot.
    using ConvertSolidTx = bool (*)(const TdagPath& object, const TdagPath& camera,
                                    const Tplug& plug, unsigned width, unsigned height, bool alpha,
                                    TpixelMap& map, T2Float& uvMin, T2Float& uvMax);
    static void setConvertSolidTx(ConvertSolidTx baker);
    static bool appConvertSolidTx(const TdagPath& object, const TdagPath& camera, const Tplug& plug,
                                  unsigned width, unsigned height, bool alpha, TpixelMap& map,
                                  T2Float& uvMin, T2Float& uvMax);

    // The swatch of `plug`'s node: its network baked square at the swatch
    // size, with no object. Null when nothing can bake it.
    static std::shared_ptr<const TpixelMap> appRetrieveShared(const Tplug& plug);
    // The side of a swatch, in pixels.
    static unsigned swatchSize() { return 128; }
};
