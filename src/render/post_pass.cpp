#include "render/post_pass.h"

#include <cmath>

#include "effects/dof.h"
#include "effects/optical_fx.h"
#include "effects/shader_glow.h"
#include "framework/render_info.h"
#include "render/pixel_filter.h"
#include "render/render_scene.h"

TpostPass::TpostPass(TdependGraph& graph, const TrenderScene& scene, unsigned width,
                     unsigned height, bool enabled)
    : fGraph(graph), fScene(scene), fEnabled(enabled) {
    if (!enabled)
        return;
    TdnShaderGlow* glow = TdnShaderGlow::find(graph);
    // The glow pass costs a gathered array and a large convolution: only
    // when a shader of the scene glows, or a render callback asks for it.
    if (glow && (TdnShaderGlow::isShaderGlowOn(graph) || TrenderCallback::invokeUseShaderGlow()) &&
        glow->initShaderGlow(int(width), int(height), int(width), false))
        fGlow = glow;
}

TpostPass::~TpostPass() {
    if (fGlow)
        TdnShaderGlow::clear();
}

void TpostPass::resetTile(orvo::post::TglowTile& tile, unsigned x0, unsigned y0, unsigned x1,
                          unsigned y1) const {
    if (fGlow)
        tile.reset(x0, y0, x1, y1, TdnShaderGlow::sgWide(), TdnShaderGlow::sgHigh(),
                   TdnShaderGlow::sgRes());
}

void TpostPass::mergeTile(const orvo::post::TglowTile& tile) const {
    if (fGlow)
        TdnShaderGlow::addShaderGlowTile(tile);
}

void TpostPass::run(TrenderedImage& image) {
    const orvo::post::TpostImage post{image.pixels.data(), image.width, image.height,
                                      TrenderedImage::kChannels};
    if (fGlow) {
        fGlow->calculateGlow();
        fGlow->addShaderGlowToArray(post);
        TdnShaderGlow::clear();
        fGlow = nullptr;
    }
    if (!fEnabled)
        return;
    // The lights' optical effects see the picture as the camera does; an
    // orthographic view has no line of sight to a light.
    const TpinholeCamera& camera = fScene.camera();
    if (!camera.orthographic()) {
        const orvo::post::TpostView view{image.width, image.height, camera.halfWidth(),
                                         camera.halfHeight()};
        const TopticalFXarray effects = TopticalFXarray::collect(fGraph);
        for (unsigned i = 0; i < effects.length(); ++i)
            if (effects[i]->reset(fScene.worldToEye(), view))
                effects[i]->addOpticalFXtoArray(post);
    }
    // Depth of field last: it blurs glow and flares with what they lie on.
    const TcameraShape* shape = fScene.cameraShape();
    if (shape && TdnDOF::wanted(*shape) && image.depth.size() == size_t(image.width) * image.height)
        TdnDOF::computeDOF(image.width, image.height, *shape, 2.0 * std::atan(camera.halfHeight()),
                           post, image.depth.data());
}
