#pragma once

// Image sources: nodes that stand for an image a render makes or uses. One
// source can depend on others through its connections (a render target is
// made from the images connected to it); a renderer planning its work walks
// them from a root source. Each kind says which of its connections name a
// source it needs rendered, and whether the walk goes on past it when it is
// reached through a connection that does not count.
//
// This file holds the base and the kinds of the scene model: a render pass
// (one set of terms of a camera in a layer: "beauty", "diffuse"...) and a
// render target (the images connected to its `imageSources`).

#include "host/node_pattern.h"

class TdnRenderLayer;

#define ORVO_SCHEMA_TdnImageSource(A, C2, C3)                                                      \
    A(TattributeMessage, Camera, "camera", "cam", .flagsOn(0))
ORVO_NODE(TdnImageSource, TdependNode, "imageSource", "IMSR", 2140, "kImageSource",
          "host/imageSource", "n_imageSource")

class TdnImageSource : public TdnPattern<TdnImageSource, TdependNode> {
public:
    // The camera the source renders through: the node connected to
    // `camera`, otherwise `fallback`.
    virtual const TdependNode* getImageSourceCamera(const TdependNode* fallback) const;
    // The layer the source renders: `fallback` unless a kind names its own.
    virtual const TdnRenderLayer* getImageSourceRenderLayer(const TdnRenderLayer* fallback) const;
    // Custom name tokens ("Name=value" words) that the source's images use.
    virtual Tstring getImageSourceTokens() const;
    // A source upstream, connected to `plug` of this one, must render for
    // this one. No plug of the base counts.
    virtual bool isRenderDependencyFor(const Tplug& plug) const;
    // Reached through a connection that does not count, a walk for render
    // dependencies stops here (what is upstream of this source belongs to it).
    virtual bool stopsDependencyWalk() const { return true; }

protected:
    // The node connected to this source's `attribute`, or null.
    const TdependNode* connectedTo(const Tattribute& attribute) const;
};

#define ORVO_SCHEMA_TdnRenderPass(A, C2, C3) A(TattributeTyped, PassId, "passID", "pid", .input())
ORVO_NODE(TdnRenderPass, TdnImageSource, "renderPass", "RPSS", 2141, "kRenderPass",
          "host/imageSource/renderPass", "n_renderPass")

// One pass: `passID` names the terms ("beauty", "color", "shadow",
// "diffuse", "specular"). Its images carry the token RenderPass=<passID>.
class TdnRenderPass : public TdnPattern<TdnRenderPass, TdnImageSource> {
public:
    Tstring passId() const;
    Tstring getImageSourceTokens() const override;
};

#define ORVO_SCHEMA_TdnRenderTarget(A, C2, C3)                                                     \
    A(TattributeArrayOf<TattributeMessage>, ImageSources, "imageSources", "isrc", .flagsOn(0))
ORVO_NODE(TdnRenderTarget, TdnImageSource, "renderTarget", "RTGT", 2142, "kRenderTarget",
          "host/imageSource/renderTarget", "n_renderTarget")

// An image made of others: each source whose `message` is connected to an
// element of `imageSources` renders for it.
class TdnRenderTarget : public TdnPattern<TdnRenderTarget, TdnImageSource> {
public:
    bool isRenderDependencyFor(const Tplug& plug) const override;
};
