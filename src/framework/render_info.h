#pragma once

// The render info of a scene: the root of what rendering needs from the
// graph. It is the scene's render partition (the partition that keeps the
// shading groups apart), it makes the scene's default nodes, keeps the
// lists that render nodes join, and links shading groups to the default
// light set, so that a new light lights every shading group.
//
// A scene made by the scene language has its render info from the start:
// render_info.cpp registers a scene initialiser and a node observer with
// the graph. In a loaded scene the defaults are
//
//   renderPartition       partition         (this object)
//   initialShadingGroup   shadingEngine     in renderPartition, linked to
//                                           defaultLightSet on link and
//                                           shadowLink of lightLinker1,
//                                           lambert1 its surface shader
//   initialParticleSE     shadingEngine     the same
//   defaultLightList1     defaultLightList
//   lightList1            lightList
//   lambert1              lambert           the default shader, in shaderList1
//   shaderList1, textureList1, renderUtilityList1, renderingList1,
//   postProcessList1      the lists of the scene's render nodes by class
//   shaderGlow1           shaderGlow        the glow settings, in postProcessList1
//   defaultLightSet       objectSet
//   defaultObjectSet      objectSet
//   lightLinker1          lightLinker
//
// all implicitly created and default: a written scene leaves them out and
// keeps only what was changed on them.
//
// Also here: the process-wide list of render callbacks.

#include <cstdint>
#include <vector>

#include "host/scene/dag.h"
#include "host/scene/object_set.h"

class TDNshadingEngine;
class TdnDefaultLightList;
class TdnLambert;
class TdnPostProcessList;
class TdnRenderingList;
class TdnRenderUtilityList;
class TdnShaderList;
class TdnTextureList;
class TdnLightList;
class TdnLightLink;
class TdnRenderGlobals;
class TdnRenderGlobalsList;
class TdnRenderLayer;
class TdnRenderQuality;
class TdnResolution;
class TcommonRenderGlobalsData;
struct TrenderSettingsOverrides;
class TplugValue;

class TrenderInfo : public Tpartition {
public:
    // The render info of `graph`, made (with the default nodes) if the graph
    // has none yet. A node already there under a default's name is taken
    // as that default when its type fits; otherwise TgraphError.
    static TrenderInfo* getRenderInfo(TdependGraph& graph);
    // Takes the render info and its default nodes out of their scene and
    // frees them. Null is accepted.
    static void deleteRenderInfo(TrenderInfo* info);
    // The render info of `graph`, or null.
    static TrenderInfo* find(const TdependGraph& graph);

    ~TrenderInfo() override;

    TrenderInfo* renderPartition() { return this; }
    TDNshadingEngine* initialShadingGroup() const { return fInitialShadingGroup; }
    TdnDefaultLightList* defaultLightList() const { return fDefaultLightList; }
    TdnLightList* lightList() const { return fLightList; }
    TobjectSet* defaultLightSet() const { return fDefaultLightSet; }
    TobjectSet* defaultObjectSet() const { return fDefaultObjectSet; }

    // The shading group of objects given none; the initial one unless set.
    TDNshadingEngine* defaultShadingGroup() const { return fDefaultShadingGroup; }
    void setDefaultShadingGroup(TDNshadingEngine* group) { fDefaultShadingGroup = group; }
    void resetDefaultShadingGroup() { fDefaultShadingGroup = fInitialShadingGroup; }

    // ---- the shading defaults and the lists of render nodes by class
    TDNshadingEngine* initialParticleSE() const { return fInitialParticleSE; }
    // The lambert that new shading groups are given as surface shader.
    TdnLambert* defaultShader() const { return fDefaultShader; }
    TdnShaderList* shaderList() const { return fShaderList; }
    TdnTextureList* textureList() const { return fTextureList; }
    TdnRenderUtilityList* utilityList() const { return fUtilityList; }
    TdnRenderingList* renderingList() const { return fRenderingList; }
    TdnPostProcessList* postProcessList() const { return fPostProcessList; }
    // The scene's shader glow settings, shaderGlow1.
    TdependNode* shaderGlow() const { return fShaderGlow; }

    // Each connects the node's message to the next free element of its
    // list, through `command`. Throws TgraphError from the graph.
    void addShader(TdependNode* node, TDGcommand& command);
    void addTexture(TdependNode* node, TDGcommand& command);
    void addUtility(TdependNode* node, TDGcommand& command);
    void addRendering(TdependNode* node, TDGcommand& command);
    void addPostProcess(TdependNode* node, TDGcommand& command);
    // The node's message feeds that list.
    bool isShader(const TdependNode* node) const;
    bool isTexture(const TdependNode* node) const;
    bool isUtility(const TdependNode* node) const;
    bool isRendering(const TdependNode* node) const;
    bool isPostProcess(const TdependNode* node) const;
    // A new node of the scene joins the list its type's classification
    // names: the first of its ":"-separated paths that starts with
    // "shader", "texture", "utility", "rendering" or "postprocess" decides.
    // False when no path names a list.
    bool addByClassification(TdependNode* node, TDGcommand& command);

    // The light linker that new links go to: the first one from a
    // referenced scene, else the first; null when the scene has none.
    TdnLightLink* activeLinkNode() const;

    // ---- joining the lists, through `command` so that it can be undone
    // A light joins the light list (its `lightData`, or its `message` when
    // it has none) and the default light set (the first instance of a DAG
    // light, else the node). Throws TgraphError from the graph.
    void addLight(TdependNode* node, TDGcommand& command);
    // The node feeds the light list, by the plug addLight connects.
    bool isLight(const TdependNode* node) const;
    // A shading group (a set of renderable geometry only; nothing happens
    // for another) gets, with `connectDefault`, the default shader as its
    // surface shader (unless one is connected already), joins the render
    // partition and is linked to the default light set for light and
    // shadow. The material info that a group is also given is left for when
    // its type exists.
    bool addShadingGroup(TDNshadingEngine* engine, TDGcommand& command, bool connectDefault);
    // Links the group's message to the default light set's on the active
    // linker's `link` list (shadowLink, both); a pair there already is
    // left alone. False when the scene has no linker.
    bool linkShadingGroupToDefaultLightSet(TDNshadingEngine* engine, TDGcommand& command);
    bool shadowLinkShadingGroupToDefaultLightSet(TDNshadingEngine* engine, TDGcommand& command);
    bool linkWithShadowsShadingGroupToDefaultLightSet(TDNshadingEngine* engine,
                                                      TDGcommand& command);

    // ---- class tests
    // A node that joins a scene as a light: a light shape, or a node with
    // a "lightData" record other than a light list's or a swatch light's.
    static bool isSceneLight(const TdependNode* node);
    // The node's type is classified as a render node (a render node, a
    // utility, rendering, post process, shader, texture, light, image plane
    // or camera).
    static bool isRenderNode(const TdependNode* node);
    // The node's outColor feeds a volumeShader somewhere.
    static bool usedForVolumeShading(const TdependNode* node);

    // What a user's new node brings into a scene: lights and shading groups
    // join, and render nodes their lists (addByClassification). Registered
    // as the graph's node observer.
    static void nodeAddedToScene(TdependNode& node, TDGcommand& command);

    // ---- render settings (render_info_settings.cpp in src/settings)
    // The scene's settings defaults: renderGlobalsList1, defaultRenderGlobals,
    // defaultRenderQuality and defaultResolution; the globals link to the
    // quality and resolution, and all three join the list.
    TdnRenderGlobalsList* renderGlobalsList() const { return fRenderGlobalsList; }
    TdnRenderGlobals* defaultGlobals() const { return fDefaultGlobals; }
    TdnRenderQuality* defaultQuality() const { return fDefaultQuality; }
    TdnResolution* defaultResolution() const { return fDefaultResolution; }
    // A settings node joins its list on the render globals list.
    void addRenderGlobals(TdependNode* node, TDGcommand& command);
    void addRenderQuality(TdependNode* node, TDGcommand& command);
    void addResolution(TdependNode* node, TDGcommand& command);
    // The quality (resolution) that the default globals link to; a link to
    // anything else is replaced by one to the default.
    TdnRenderQuality* currentQuality();
    TdnResolution* currentResolution();
    // Links the default globals to another quality (resolution); false for null.
    bool setCurrentQuality(TdnRenderQuality* quality, TDGcommand& command);
    bool setCurrentResolution(TdnResolution* resolution, TDGcommand& command);

    // Fills `data` with the settings as `layer` sees them (null: the current
    // layer), and the name patterns that follow from them. What `overrides`
    // sets stands in for the scene's value.
    void setCommonRenderGlobals(TcommonRenderGlobalsData& data, const TdnRenderLayer* layer,
                                const TrenderSettingsOverrides* overrides = nullptr);
    // The value of `plug` as `layer` sees it: the layer's adjustment when it
    // has one, else the plug's own value. A null layer stands for the
    // scene's current layer. The other two layers are the default and the
    // current one as a caller knows them; an adjustment only on the default
    // layer reads through `currentLayer`.
    static TplugValue getDataFromPlug(const Tplug& plug, const TdnRenderLayer* layer,
                                      const TdnRenderLayer* defaultLayer,
                                      const TdnRenderLayer* currentLayer);
    // The longest EXR channel name: 252 with ORVO_EXR_LONGNAME=1, else 28.
    int32_t maxExrBufferNameLength() const { return fMaxExrBufferNameLength; }

private:
    void makeSettingsDefaults(TdependGraph& graph);
    std::vector<TdependNode*> settingsMembers() const;

    TrenderInfo() = default;
    void makeDefaults(TdependGraph& graph);
    bool linkToDefaultLightSet(TDNshadingEngine* engine, int list, TDGcommand& command);
    // The shading defaults and the lists: made with the other defaults by
    // `made` (type, name or null), then connected through `command`.
    template <class Made>
    void makeShadingDefaults(Made&& made);
    void connectDefaultShader(TDNshadingEngine* engine, TDGcommand& command);
    void connectShadingDefaults(TDGcommand& command);
    void appendShadingDefaults(std::vector<TdependNode*>& members) const;

    TDNshadingEngine* fInitialShadingGroup = nullptr;
    TDNshadingEngine* fDefaultShadingGroup = nullptr;
    TdnDefaultLightList* fDefaultLightList = nullptr;
    TdnLightList* fLightList = nullptr;
    TobjectSet* fDefaultLightSet = nullptr;
    TobjectSet* fDefaultObjectSet = nullptr;
    TDNshadingEngine* fInitialParticleSE = nullptr;
    TdnLambert* fDefaultShader = nullptr;
    TdnShaderList* fShaderList = nullptr;
    TdnTextureList* fTextureList = nullptr;
    TdnRenderUtilityList* fUtilityList = nullptr;
    TdnRenderingList* fRenderingList = nullptr;
    TdnPostProcessList* fPostProcessList = nullptr;
    TdependNode* fShaderGlow = nullptr;
    TdnRenderGlobalsList* fRenderGlobalsList = nullptr;
    TdnRenderGlobals* fDefaultGlobals = nullptr;
    TdnRenderQuality* fDefaultQuality = nullptr;
    TdnResolution* fDefaultResolution = nullptr;
    int32_t fMaxExrBufferNameLength = 28;
};

// ---------------------------------------------------------------- callbacks

// What a renderer hands its render callbacks. The renderer that fills the
// record gives its fields their meaning.
struct TrenderCallbackData {
    virtual ~TrenderCallbackData() = default;
    uint64_t words0[7] = {};
    TdagPath path;
    T4dFltMatrix matrix;
    uint32_t ints0[2] = {};
    uint64_t words1[3] = {};
    int16_t shorts0[6] = {};
    uint8_t flags[2] = {};
    uint64_t words2[2] = {};
    int16_t shorts1[2] = {};
    uint32_t int1 = 0;
};

// The same for shadow casting.
struct TshadowCallbackData : TrenderCallbackData {};

// A hook into renders. Callbacks run in ascending priority; the process
// keeps one list, filled before a render starts.
class TrenderCallback {
public:
    virtual ~TrenderCallback();

    virtual void initialize() {}
    virtual int shadowCastCallback(const TshadowCallbackData&) { return 0; }
    virtual int renderCallback(const TrenderCallbackData&) { return 0; }
    virtual int postProcessCallback(const TrenderCallbackData&) { return 0; }
    virtual void finalize() {}
    virtual bool useShaderGlow() { return false; }
    virtual bool castsShadows() { return false; }

    int priority() const { return fPriority; }
    // Callbacks compare by priority and nothing else.
    friend bool operator<(const TrenderCallback& a, const TrenderCallback& b) {
        return a.fPriority < b.fPriority;
    }
    friend bool operator==(const TrenderCallback& a, const TrenderCallback& b) {
        return a.fPriority == b.fPriority;
    }

    // Inserts in priority order, before the callbacks of the same priority.
    // False for a callback in the list already, or, with unique
    // priorities, for a priority that is taken.
    static bool addCallback(TrenderCallback* callback);
    static bool removeCallback(TrenderCallback* callback);
    static bool callbacksExist();
    static const std::vector<TrenderCallback*>& callbacks();
    static void setUniquePriorities(bool on);

    // Every callback in order.
    static void invokeInitialize();
    static void invokeFinalize();
    // In order until one answers non-zero, whose answer is returned; 0
    // when none does. invokeRender also puts the current graph's time back
    // when a callback moved it.
    static int invokeShadowCast(const TshadowCallbackData& data);
    static int invokeRender(const TrenderCallbackData& data);
    static int invokePostProcess(const TrenderCallbackData& data);
    static bool invokeCastsShadows();
    // Every callback, without stopping: whether any wants shader glow.
    static bool invokeUseShaderGlow();

protected:
    explicit TrenderCallback(int priority) : fPriority(priority) {}

private:
    int fPriority;
};
