#pragma once

// How a material type from outside the render model is drawn: a factory,
// made per material node, turns the node's values into fixed-function
// colours, and says whether the node's own output is shown as a texture.
// TmaterialInfoMgr keeps the generators of factories by name, and which
// generator serves which node classification.

#include <map>
#include <memory>

#include "host/draw/port.h"
#include "host/plug.h"
#include "host/types.h"

class TdependNode;

// What a factory hands back for a draw.
struct TmaterialInputData {
    float shininess = 1.0f;
    TportColor ambient, diffuse, emission, specular;
    bool transparent = false;
};

class TmaterialInfoFactory {
public:
    explicit TmaterialInfoFactory(TdependNode* material) : fMaterial(material) {}
    virtual ~TmaterialInfoFactory() = default;

    // Fills `data`; true on success.
    virtual bool computeMaterial(TmaterialInputData& data) = 0;
    // A connection into the material became, or stopped being, the texture.
    virtual bool connectAsTexture(const Tplug& plug) = 0;
    virtual bool textureDisconnected(const Tplug& plug) = 0;
    // A change of this plug of the material changes its colours.
    virtual bool attributeChangeMatters(const Tplug& plug) const;

    TdependNode* material() const { return fMaterial; }
    // The material's own output is shown as its texture.
    bool useMaterialAsTexture() const { return fFlags == 1; }

protected:
    TdependNode* fMaterial;
    int fFlags = 0;
};

// The factory for the materials of an outside ray-tracing renderer, with
// their own names for the colours ("diffuse", "ambience", "transp",
// "shiny"...). A node not classified "rendernode/external/material" is
// shown through its own output, baked as a texture.
class TmaterialExtFactory : public TmaterialInfoFactory {
public:
    explicit TmaterialExtFactory(TdependNode* material);
    bool computeMaterial(TmaterialInputData& data) override;
    bool connectAsTexture(const Tplug& plug) override;
    bool textureDisconnected(const Tplug& plug) override;
};

// A generator of factories.
struct TmaterialInfoFunctions {
    TmaterialInfoFactory* (*create)(TdependNode* material) = nullptr;
    void* reserved0 = nullptr;
    void* reserved1 = nullptr;
};

class TmaterialInfoMgr {
public:
    // Adds a generator under `name`; false when the name is taken.
    static bool registerMaterialInfoGen(const Tstring& name, const TmaterialInfoFunctions& gen);
    static bool unregisterMaterialInfoGen(const Tstring& name);
    // Nodes of classification `classification` are served by generator `name`.
    static void registerNodeMaterialInfo(const Tstring& classification, const Tstring& name);
    // A new factory for the node, or null when no generator serves it.
    static std::unique_ptr<TmaterialInfoFactory> createMatInfoFactory(TdependNode* node);

protected:
    static const TmaterialInfoFunctions* getObjectCreator(const TdependNode* node);
};
