#pragma once

// What a material texture hands a caller that draws the pieces itself
// rather than one bound texture: the texture, or one texture a UV tile with
// the tile's place, and the placement the draw applies in its texture
// matrix.

#include <utility>
#include <vector>

#include "host/draw/texture_object.h"
#include "host/types.h"

struct TevaluateTextureInfo {
    TsharedGlTextureObject texture;
    Tstring textureName; // the node shown
    Tstring uvSetName;   // empty: the default UV set
    // The placement: rotate (degrees, first), repeat, offset, last angle.
    float rotate = 0.0f, repeatU = 1.0f, repeatV = 1.0f, offsetU = 0.0f, offsetV = 0.0f,
          angle = 0.0f;
    // A texture in UV tiles: one texture a tile, and the lower left corner
    // of the tile's unit square in UV, in the same order. Empty otherwise.
    std::vector<TsharedGlTextureObject> tileSources;
    std::vector<std::pair<int, int>> tilePositions;
    // The UV range the texture covers.
    T2Float uvMin{0.0f, 0.0f}, uvMax{1.0f, 1.0f};

    void reset() { *this = TevaluateTextureInfo(); }
    bool tiled() const { return !tileSources.empty(); }
};
