#pragma once

// Render layers: named views of one scene. A layer holds objects (members,
// with what lies below them) and adjustments: a value that a plug takes
// while the layer renders. Reading a plug through a layer gives the
// adjustment; reading it plainly gives the value the scene holds, which a
// layer never changes. The default layer holds everything and adjusts
// nothing. The layer manager names the default and the current layer.

#include <map>
#include <string>
#include <vector>

#include "host/node_pattern.h"
#include "host/scene/render_pass.h"

class TDGcommand;

// A value of one attribute, held outside any data block.
class TplugValue {
public:
    explicit TplugValue(const Tattribute& attribute);
    TplugValue(const TplugValue& other);
    TplugValue& operator=(const TplugValue&) = delete;
    ~TplugValue();

    const Tattribute& attribute() const { return *fAttribute; }
    void* address() { return fStorage.data(); }
    const void* address() const { return fStorage.data(); }

    bool asBool() const { return number(0) != 0.0; }
    float asFloat() const { return float(number(0)); }
    double asDouble() const { return number(0); }
    int asInt() const { return int(number(0)); }
    T3Float asFloat3() const { return {float(number(0)), float(number(1)), float(number(2))}; }
    // The i-th number of the value (0 past its end).
    double number(int i) const;
    // The value as words of the scene language.
    std::vector<std::string> words() const;

private:
    const Tattribute* fAttribute;
    std::vector<std::max_align_t> fStorage;
};

#define ORVO_SCHEMA_TdnRenderLayer(A, C2, C3)                                                      \
    A(TattributeInt32, Identification, "identification", "rlid", .input())                         \
    A(TattributeBoolean, Renderable, "renderable", "rndr", .input().setNativeDefaultData(true))    \
    A(TattributeInt32, DisplayOrder, "displayOrder", "do", .input())                               \
    A(TattributeArrayOf<TattributeMessage>, Members, "members", "mbrs",                            \
      .flagsOn(TattrFlag::kHidden))                                                                \
    A(TattributeArrayOf<TattributeCompound>, Adjustments, "adjustments", "adj", .flagsOn(0))       \
    A(TattributeMessage, AdjustmentPlug, "plug", "plg", .childOf(Adjustments))                     \
    A(TattributeTyped, AdjustmentValue, "value", "val", .childOf(Adjustments))                     \
    A(TattributeBoolean, Beauty, "beauty", "bty", .input().setNativeDefaultData(true))             \
    A(TattributeBoolean, Color, "color", "clr", .input())                                          \
    A(TattributeBoolean, Shadow, "shadow", "shdw", .input())                                       \
    A(TattributeBoolean, Diffuse, "diffuse", "dif", .input())                                      \
    A(TattributeBoolean, Specular, "specular", "spc", .input())
ORVO_NODE(TdnRenderLayer, TdependNode, "renderLayer", "RLAY", 2120, "kRenderLayer",
          "host/renderLayer", "n_renderLayer")

// A render layer. An adjustment is an element of `adjustments`: the plug it
// adjusts connects to the element's `plug`, and its `value` holds the
// layer's value as scene-language words ("0.5 0.5 1", "false").
//
// A layer renders one image per pass that it has on: `beauty` (the full
// colour, on by default), `color` (colour without shadows), `shadow` (the
// shadows alone), `diffuse` and `specular`. A pass is known by its state,
// the render pass control value a renderer renders it with.
class TdnRenderLayer : public TdnPattern<TdnRenderLayer, TdependNode> {
public:
    // The pass states, in the order the layer keeps its passes.
    static constexpr int kPassStates[5] = {kRenderPassBeauty, kRenderPassColor, kRenderPassShadow,
                                           kRenderPassDiffuse, kRenderPassSpecular};
    // "beauty", "color", "shadow", "diffuse", "specular"; null for a state
    // that is none of them.
    static const char* passName(int state);
    // The pass is on (the layer's own value).
    bool passState(int state) const;
    // The states of the passes that are on, in the layer's order.
    std::vector<int> passesOn() const;
    // Turns the named pass on or off through `command`; false when the
    // layer has no pass of that name.
    bool setPassByName(const std::string& name, bool on, TDGcommand& command);
    void setAllPasses(bool on, TDGcommand& command);

    int id() const;
    bool isRenderable() const;
    int order() const;
    // The layer that the graph's layer manager names as its default.
    bool isDefaultLayer() const;

    // Nodes joined to the layer, in element order.
    std::vector<TdependNode*> members() const;
    bool hasMember(const TdependNode* node) const;
    // Joins nodes through `command`; a node already in is left alone.
    void addMembers(const std::vector<TdependNode*>& nodes, TDGcommand& command);
    void removeMembers(const std::vector<TdependNode*>& nodes, TdependGraph& graph,
                       TDGcommand& command);

    // The plug that holds this layer's value for `plug` (the `value` child
    // of its adjustment), or a null plug when the layer leaves it alone.
    Tplug adjustmentPlug(const Tplug& plug) const;
    // Every adjusted plug, in element order.
    std::vector<Tplug> adjustedPlugs() const;
    // What is wrong with the adjustments (a value the plug cannot take),
    // empty when nothing is.
    std::string checkAdjustments() const;

    // The value of `plug` as `layer` sees it: the adjustment when the layer
    // has one, otherwise the plug's own value. A null layer reads plainly.
    static TplugValue readValue(const Tplug& plug, const TdnRenderLayer* layer);

    void connectionMade(const Tplug& mine, const Tplug& other, bool asSource) override;
    void connectionBroken(const Tplug& mine, const Tplug& other, bool asSource) override;

private:
    std::map<unsigned, TdependNode*> fMembers; // element index -> node
    std::map<unsigned, Tplug> fAdjusted;       // element index -> adjusted plug
};

#define ORVO_SCHEMA_TdnRenderLayerManager(A, C2, C3)                                               \
    A(TattributeMessage, DefaultRenderLayer, "defaultRenderLayer", "drl", .flagsOn(0))             \
    A(TattributeMessage, CurrentRenderLayer, "currentRenderLayer", "crl", .flagsOn(0))
ORVO_NODE(TdnRenderLayerManager, TdependNode, "renderLayerManager", "RLMN", 2121,
          "kRenderLayerManager", "host/renderLayer/manager", "n_renderLayerManager")

// The layer manager of a scene: the first node of this type in the graph.
// Its `defaultRenderLayer` and `currentRenderLayer` take a layer's
// `message`; with no current layer connected the default layer is current.
class TdnRenderLayerManager : public TdnPattern<TdnRenderLayerManager, TdependNode> {
public:
    static TdnRenderLayerManager* find(const TdependGraph& graph);
    // Null when the scene has no manager or the manager no default layer.
    static TdnRenderLayer* defaultLayer(const TdependGraph& graph);
    static TdnRenderLayer* currentLayer(const TdependGraph& graph);
    // Every layer of the scene, in creation order.
    static std::vector<TdnRenderLayer*> layers(const TdependGraph& graph);
    // No layer but the default one renders.
    static bool defaultLayerOnly(const TdependGraph& graph);

    // Makes `layer` current through `command` (null: back to the default).
    void setCurrentLayer(TdnRenderLayer* layer, TDGcommand& command);
};
