#pragma once

// The cameras and the render layers a render walks.

#include <vector>

#include "host/scene/dag.h"
#include "host/types.h"

class TdependGraph;
class TdnRenderLayer;

// Paths to the cameras to render through. With a name: the one camera it
// names (the last match that leads to a camera). With none and
// `useActiveView`: the camera of the active 3D view (this host has no
// views, so none). Otherwise every camera whose own `renderable` is on,
// in creation order, each camera's paths last first.
class TcameraList : public std::vector<TdagPath> {
public:
    TcameraList(bool useActiveView, const Tstring& name, TdependGraph* graph = nullptr);

    void buildCameraList();
    const TdagPath& renderableCamera(unsigned index) const { return at(index); }
    unsigned renderableCameraCount() const { return unsigned(size()); }

private:
    bool fUseActiveView;
    Tstring fName;
    TdependGraph* fGraph;
};

// The render layers to render. A scene without a layer manager or default
// layer gives one null entry: it renders once, through no layer.
class TlayerList : public std::vector<TdnRenderLayer*> {
public:
    // `all` off: the default layer; on: every layer whose `renderable` is on.
    explicit TlayerList(bool all, TdependGraph* graph = nullptr);
    // The layer of that name; the default layer for an empty or unknown name.
    explicit TlayerList(const Tstring& name, TdependGraph* graph = nullptr);
    // The layers named in the array, in the scene's order; the default
    // layer when none matches.
    explicit TlayerList(const std::vector<Tstring>& names, TdependGraph* graph = nullptr);

    // Sorts by displayOrder, ascending.
    void sortPerDisplayOrder();
    // Writes the list to standard error.
    void print() const;

    TdnRenderLayer* renderLayer(unsigned i) const { return at(i); }
    int renderableLayerId(unsigned i) const;
    Tstring renderableLayerName(unsigned i) const;
    unsigned length() const { return unsigned(size()); }

private:
    // False (with one null entry) when the scene has no manager or default layer.
    bool start(TdependGraph* graph, TdnRenderLayer*& fallback);
};
