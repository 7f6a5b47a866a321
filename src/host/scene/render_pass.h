#pragma once

#include <cstdint>

// The render pass of a frame: which terms the materials and lights compute.
// A render layer renders one image per pass it has on; the renderer hands
// the pass to every material through the frame's settings.
enum TrenderPass : int32_t {
    kRenderPassBeauty = 0,   // the full colour
    kRenderPassColor = 1,    // colour without shadows
    kRenderPassAmbient = 2,  // the ambient term alone
    kRenderPassDiffuse = 3,  // the lit terms without highlights
    kRenderPassSpecular = 4, // highlights alone: a diffuse material is black
    kRenderPassShadow = 5,   // the shadow fraction in the matte, colour black
};
