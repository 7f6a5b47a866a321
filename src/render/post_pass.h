#pragma once

// The post effects of a frame. Set up before the frame's threads start, so
// that they know whether to gather glow; run after the frame on the
// rendering-space picture before it is written, in this order: shader glow,
// then the lights' optical effects, then depth of field.

#include <cstdint>

#include "post/shader_glow.h"

class TdependGraph;
class TdnShaderGlow;
class TrenderScene;
struct TrenderedImage;

class TpostPass {
public:
    // `enabled` false turns every effect off (`orvo render --no-post`).
    TpostPass(TdependGraph& graph, const TrenderScene& scene, unsigned width, unsigned height,
              bool enabled);
    ~TpostPass();
    TpostPass(const TpostPass&) = delete;
    TpostPass& operator=(const TpostPass&) = delete;

    // Whether samples' glow is gathered while the frame renders.
    bool gathersGlow() const { return fGlow != nullptr; }
    // Readies a thread's glow tile for the pixels [x0, x1) x [y0, y1).
    void resetTile(orvo::post::TglowTile& tile, unsigned x0, unsigned y0, unsigned x1,
                   unsigned y1) const;
    // Adds a finished tile's glow into the frame's array; tiles come in
    // tile order.
    void mergeTile(const orvo::post::TglowTile& tile) const;

    // Runs the effects over the finished picture.
    void run(TrenderedImage& image);

private:
    TdependGraph& fGraph;
    const TrenderScene& fScene;
    bool fEnabled = false;
    TdnShaderGlow* fGlow = nullptr;
};
