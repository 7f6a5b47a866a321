#pragma once

// materialInfo: what the viewport draws in place of a shading group. The
// viewport cannot run shading networks, so this node reduces the group's
// surface material to fixed-function colours (ambient, diffuse, emission,
// specular, shininess, transparency) and a texture, recomputed lazily when
// a draw asks after something it listens to changed.
//
// Wiring: the group's `message` into `shadingGroup`; the node then connects
// the group's surface material into `material` and the texture to show into
// `texture[0]` by itself.

#include <memory>

#include "framework/node_pattern.h"
#include "host/node_messages.h"
#include "viewport/material.h"
#include "viewport/material_info_factory.h"

class TmaterialTexture;

#define ORVO_SCHEMA_TmaterialInfo(A, C2, C3)                                                       \
    A(TattributeMessage, ShadingGroup, "shadingGroup", "sg", .flagsOff(TattrFlag::kStorable))      \
    A(TattributeMessage, Material, "material", "m", .flagsOn(0))                                   \
    A(TattributeArrayOf<TattributeMessage>, Texture, "texture", "t", .flagsOn(0))                  \
    A(TattributeTyped, TextureName, "textureName", "tn", .flagsOn(TattrFlag::kHidden))             \
    A(TattributeMessage, TextureChannel, "textureChannel", "tc", .flagsOn(0))                      \
    A(TattributeTyped, TexturePlug, "texturePlug", "tp", .flagsOff(TattrFlag::kStorable))          \
    A(TattributeEnum, TextureFilter, "textureFilter", "tmip",                                      \
      .ORVO_FIELD(kFilterDefault, "Global Settings")                                               \
          .ORVO_FIELD(kFilterNearest, "Nearest(Unfiltered)")                                       \
          .ORVO_FIELD(kFilterLinear, "Bilinear")                                                   \
          .ORVO_FIELD(kMipNearest, "Mipmap Nearest")                                               \
          .ORVO_FIELD(kMipLinear, "Mipmap Linear")                                                 \
          .ORVO_FIELD(kMipBilinear, "Mipmap Bilinear")                                             \
          .ORVO_FIELD(kMipTrilinear, "MipMap Trilinear")                                           \
          .setNativeDefaultData(1))

class TmaterialInfo;
template <>
struct TdnKernel<TmaterialInfo> {
    enum eTextureFilter : int16_t {
        kFilterDefault = 1,
        kFilterNearest = 2,
        kFilterLinear = 3,
        kMipNearest = 4,
        kMipLinear = 5,
        kMipBilinear = 6,
        kMipTrilinear = 7,
    };
};

ORVO_NODE(TmaterialInfo, TdependNode, "materialInfo", "DMTI", 385, "kMaterialInfo",
          "drawdb/materialInfo", "n_materialInfo")

class TmaterialInfo : public TdnPattern<TmaterialInfo, TdependNode>,
                      public viewport::Tmaterial,
                      public Tclient {
public:
    // State bits.
    enum : uint32_t {
        kStale = 0x1,            // the colours must be computed again
        kTransparent = 0x2,      // the material lets light through
        kTextureable = 0x4,      // the network may be shown as a texture
        kWideTransparent = 0x8,  // transparent in a wider sense; only read here
        kDrawsAsHwShader = 0x10, // the material draws itself
    };
    // The colour a material shows when it says nothing else.
    static constexpr TportColor kDarkGreen{0.0f, 100.0f / 255.0f, 0.0f, 1.0f};

    TmaterialInfo();
    ~TmaterialInfo() override;

    // ---- the drawing interface
    bool evaluateMaterial(T3dPort* port, const TdagPath& object, const TdagPath& camera) override;
    bool evaluateShininess(T3dPort* port, const TdagPath& object, const TdagPath& camera) override;
    bool evaluateDiffuse(T3dPort* port, const TdagPath& object, const TdagPath& camera) override;
    bool evaluateEmission(T3dPort* port, const TdagPath& object, const TdagPath& camera) override;
    bool evaluateSpecular(T3dPort* port, const TdagPath& object, const TdagPath& camera) override;
    bool setMaterial(const TdagPath& object, bool transparent) override;
    bool getShininess(float& out) const override;
    bool getAmbient(TportColor& out) const override;
    bool getDiffuse(TportColor& out) const override;
    bool getEmission(TportColor& out) const override;
    bool getSpecular(TportColor& out) const override;
    bool getHasTransparency(bool& out, bool wide) const override;
    bool hasTransparency(T3dPort* port, const TdagPath& object, const TdagPath& camera) override;
    TsharedGlTextureObject textureObject(T3dPort* port, const TdagPath& object,
                                         const TdagPath& camera) override;
    bool materialIsTextured() const override;
    bool disableLighting() const override;
    bool isUseBackground() const override;
    TDNshadingEngine* shadingEngine() const override { return fShadingEngine; }

    // ---- state
    uint32_t stateBits() const { return fState; }
    bool hasState(uint32_t bits) const { return (fState & bits) != 0; }
    TdependNode* material() const { return fMaterial; }
    TmaterialInfoFactory* factory() const { return fFactory.get(); }
    TmaterialTexture* materialTexture() const { return fMaterialTexture.get(); }
    // Draws of the group's members must be refreshed (a counter, so that a
    // caller can tell a new request from one it already served).
    unsigned refreshRequests() const { return fRefreshRequests; }
    T3dPort* port() const { return fPort; }

    // Reduces the material to colours when they are stale.
    void computeMaterial();
    // The plug of `textureNode` that this info should show: one of its
    // outputs that reaches the shading group, preferring the one the user
    // chose through textureChannel, then outColor, then any going into the
    // material.
    Tplug connectionPlug(TdependNode* textureNode) const;

    // ---- class settings
    // Textured draws take the texture's colour, never the material's.
    static bool gsForceTextureMaterialColor;
    // See-through draws keep writing depth.
    static bool gsLockDepthBuffer;
    // Connections made by this node are marked procedural.
    static bool gsConnectionsAreProcedural;

    // The info that draws `engine`, or null.
    static TmaterialInfo* findFor(const TDNshadingEngine* engine);
    // The info of `engine`, made and wired when it has none.
    static TmaterialInfo& ensureShadingEngineHasInfo(TDNshadingEngine& engine);
    // Every info of the graph frees its texture images (structure stays).
    static void purgeTextures(TdependGraph& graph);

    // ---- graph
    void connectionMade(const Tplug& mine, const Tplug& other, bool asSource) override;
    void connectionBroken(const Tplug& mine, const Tplug& other, bool asSource) override;
    void setDirty(TmsgDirty& msg) override;
    void attributeChanged(TdependNode& node, const TattributeChangedMsg& msg) override;
    void nodeDirty(TdependNode& node, const TnodeDirtyMsg& msg) override;
    void nodeDeleted(TdependNode& node) override;

    // A material node that draws itself (a hardware shader): none of this
    // system's types do.
    static bool drawsItself(const TdependNode* node);
    // True when `node`'s type is `typeName` or built on it.
    static bool isKindOf(const TdependNode* node, const char* typeName);

private:
    friend class TmaterialTexture;
    void setState(uint32_t bits, bool on) { fState = on ? fState | bits : fState & ~bits; }
    void initializeConnection(const Tplug& destination, const Tplug& source, bool makeTexture);
    void setMaterialNode(TdependNode* material, bool makeTexture);
    void forgetMaterial();
    void createTextureConnection();
    void connectTexture(TdependNode* node);
    void disconnectTexture();
    void rebuildShadingNodes();
    void defaultMaterial();
    void transformsDirty() { ++fRefreshRequests; }
    void materialChanged();
    bool ready() const { return fPort && fMaterial && !hasState(kStale); }
    bool evaluatePart(T3dPort* port, const TdagPath& object, const TdagPath& camera);

    uint32_t fState = kStale;
    std::unique_ptr<TmaterialInfoFactory> fFactory;
    TDNshadingEngine* fShadingEngine = nullptr;
    TdependNode* fMaterial = nullptr;
    std::unique_ptr<TmaterialTexture> fMaterialTexture;
    float fShininess = 1.0f;
    TportColor fAmbient{0, 0, 0, 1};
    TportColor fDiffuse = kDarkGreen;
    TportColor fEmission{0, 0, 0, 1};
    TportColor fSpecular{0, 0, 0, 1};
    bool fFactoryTransparent = false;
    T3dPort* fPort = nullptr;
    TdagPath fObjectPath, fCameraPath;
    TDNarray fShadingNodes;
    unsigned fRefreshRequests = 0;
};
