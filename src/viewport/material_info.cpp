#include "viewport/material_info.h"

#include <cmath>
#include <cstring>

#include "framework/nodes/utility/render_utilities.h"
#include "host/env.h"
#include "host/graph.h"
#include "materials/blinn.h"
#include "materials/lambert.h"
#include "materials/phong.h"
#include "materials/ramp_shader.h"
#include "shading/shading_engine.h"
#include "viewport/convert_solid.h"
#include "viewport/material_texture.h"

ORVO_REGISTER_NODE(TmaterialInfo)
// Everything here is a relation or a setting the draw reads: nothing is
// computed through the graph.
ORVO_DEPENDENCIES(TmaterialInfo) {}

bool TmaterialInfo::gsForceTextureMaterialColor = false;
bool TmaterialInfo::gsLockDepthBuffer = false;
bool TmaterialInfo::gsConnectionsAreProcedural = false;

namespace {

// The attributes of a material whose change alters its colours.
bool isColourAttribute(const Tstring& name) {
    static const char* const kNames[] = {"diffuse",      "hardwareColor", "color",
                                         "transparency", "incandescence", "specularColor",
                                         "shininess"};
    for (const char* n : kNames)
        if (name == n)
            return true;
    return false;
}

template <class T>
T unconnected(const TdependNode* node, const char* name, T fallback) {
    T value = fallback;
    return TrenderUtilities::getUnconnectedValue(node, name, value) ? value : fallback;
}

T3Float rgb(const TportColor& c) {
    return {c.r, c.g, c.b};
}

} // namespace

TmaterialInfo::TmaterialInfo() = default;

TmaterialInfo::~TmaterialInfo() {
    fMaterialTexture.reset();
    if (graph())
        OrvoRemoveClient(*graph(), static_cast<Tclient*>(this));
}

bool TmaterialInfo::isKindOf(const TdependNode* node, const char* typeName) {
    if (!node)
        return false;
    // Breadth over all parents: a type may have more than one.
    std::vector<const Tmetaclass*> todo{node->typeof()};
    while (!todo.empty()) {
        const Tmetaclass* m = todo.back();
        todo.pop_back();
        if (!m)
            continue;
        if (std::strcmp(m->typeName(), typeName) == 0)
            return true;
        for (int i = 0; i < Tmetaclass::kMaxParents; ++i)
            todo.push_back(m->parent(i));
    }
    return false;
}

bool TmaterialInfo::drawsItself(const TdependNode*) {
    return false;
}

// ---------------------------------------------------------------- finding and making infos

TmaterialInfo* TmaterialInfo::findFor(const TDNshadingEngine* engine) {
    if (!engine)
        return nullptr;
    TplugArray destinations;
    Tplug(engine, &TdependNode::aMessage).getAllDestinations(destinations);
    for (const Tplug& d : destinations)
        if (auto* info =
                static_cast<TmaterialInfo*>(d.node() ? d.node()->cast(sTypeof()) : nullptr);
            info && d.attribute() == &aShadingGroup)
            return info;
    return nullptr;
}

TmaterialInfo& TmaterialInfo::ensureShadingEngineHasInfo(TDNshadingEngine& engine) {
    if (TmaterialInfo* info = findFor(&engine))
        return *info;
    TdependGraph& g = *engine.graph();
    auto* info = static_cast<TmaterialInfo*>(g.createNode("materialInfo")->cast(sTypeof()));
    g.connect(Tplug(&engine, &TdependNode::aMessage), Tplug(info, &aShadingGroup));
    return *info;
}

void TmaterialInfo::purgeTextures(TdependGraph& graph) {
    for (TdependNode* n : graph.nodes())
        if (auto* info = static_cast<TmaterialInfo*>(n->cast(sTypeof()));
            info && info->fMaterialTexture)
            info->fMaterialTexture->purge();
}

// ---------------------------------------------------------------- connections

void TmaterialInfo::connectionMade(const Tplug& mine, const Tplug& other, bool asSource) {
    TdnPattern::connectionMade(mine, other, asSource);
    if (!asSource)
        initializeConnection(mine, other, true);
}

void TmaterialInfo::initializeConnection(const Tplug& destination, const Tplug& source,
                                         bool makeTexture) {
    const Tattribute* a = destination.attribute();
    TdependNode* node = source.node();
    if (a == &aShadingGroup) {
        auto* engine = static_cast<TDNshadingEngine*>(node ? node->cast(TDNshadingEngine::sTypeof())
                                                           : nullptr);
        if (fShadingEngine || !engine)
            return;
        fShadingEngine = engine;
        OrvoAddClient(*graph(), engine, this, kAttributeChangedMessage);
        if (!fMaterial) {
            const Tplug surface = Tplug(engine, &TDNshadingEngine::aSurfaceShader).source();
            if (!surface.isNull())
                graph()->connect(Tplug(surface.node(), &TdependNode::aMessage),
                                 Tplug(this, &aMaterial));
        }
    } else if (a == &aMaterial) {
        if (!fMaterial && node)
            setMaterialNode(node, makeTexture);
    } else if (a == &aTexture && destination.logicalIndex() == 0) {
        if (!fMaterialTexture && node) {
            const Tplug plug = connectionPlug(node);
            if (!plug.isNull()) {
                fMaterialTexture = std::make_unique<TmaterialTexture>(this, plug);
            }
        }
    }
}

void TmaterialInfo::setMaterialNode(TdependNode* material, bool makeTexture) {
    fMaterial = material;
    if (!OrvoEnvIsSet("ORVO_DISABLE_VIEWPORT_EXT_SHADERS"))
        fFactory = TmaterialInfoMgr::createMatInfoFactory(material);
    transformsDirty();
    setState(kStale, true);
    TdependGraph& g = *graph();
    if (drawsItself(material)) {
        setState(kDrawsAsHwShader, true);
        if (fFactory && fFactory->useMaterialAsTexture())
            setState(kTextureable, true);
    } else if (fFactory) {
        if (fFactory->useMaterialAsTexture())
            setState(kTextureable, true);
        OrvoAddClient(g, material, this, kAttributeChangedMessage | kNodeDirtyMessage);
    } else if (isKindOf(material, "lambert") || isKindOf(material, "layeredShader")) {
        setState(kTextureable, true);
        OrvoAddClient(g, material, this, kAttributeChangedMessage | kNodeDirtyMessage);
    } else if (isKindOf(material, "surfaceShader")) {
        setState(kTextureable, true);
        OrvoAddClient(g, material, this, kAttributeChangedMessage);
    } else {
        setState(kTextureable, true);
        OrvoAddClient(g, material, this, kNodeDirtyMessage);
    }
    if (makeTexture)
        createTextureConnection();
}

void TmaterialInfo::createTextureConnection() {
    if (!fMaterial || drawsItself(fMaterial))
        return;
    rebuildShadingNodes();
    Tplug slot(this, &aTexture);
    slot.setMultiIndex(&aTexture, 0);
    if (!slot.source().isNull())
        return;
    if (isKindOf(fMaterial, "lambert")) {
        if (const Tattribute* color = fMaterial->findAttribute("color")) {
            const Tplug source = Tplug(fMaterial, color).source();
            if (!source.isNull())
                connectTexture(source.node());
        }
    } else if (isKindOf(fMaterial, "layeredShader")) {
        const Tattribute* hw = fMaterial->findAttribute("hardwareShader");
        if (!hw || Tplug(fMaterial, hw).source().isNull())
            connectTexture(fMaterial);
    } else if (!fFactory || fFactory->useMaterialAsTexture()) {
        connectTexture(fMaterial);
    }
}

void TmaterialInfo::connectTexture(TdependNode* node) {
    Tplug slot(this, &aTexture);
    slot.setMultiIndex(&aTexture, 0);
    if (!node || !slot.source().isNull())
        return;
    graph()->connect(Tplug(node, &TdependNode::aMessage), slot);
}

void TmaterialInfo::disconnectTexture() {
    Tplug slot(this, &aTexture);
    slot.setMultiIndex(&aTexture, 0);
    const Tplug source = slot.source();
    if (!source.isNull())
        graph()->disconnect(source, slot);
}

void TmaterialInfo::rebuildShadingNodes() {
    for (TdependNode* n : fShadingNodes)
        OrvoRemoveClient(*graph(), n, this);
    fShadingNodes.clear();
    if (!fMaterial)
        return;
    const Tattribute* hw = fMaterial->findAttribute("hardwareShader");
    const Tplug source = hw ? Tplug(fMaterial, hw).source() : Tplug();
    if (!source.isNull() && drawsItself(source.node()))
        fShadingNodes.push_back(source.node());
    for (TdependNode* n : fShadingNodes) {
        OrvoAddClient(*graph(), n, this, kNodeDirtyMessage);
        setState(kDrawsAsHwShader | kTextureable, true);
    }
}

void TmaterialInfo::forgetMaterial() {
    if (!fMaterial)
        return;
    OrvoRemoveClient(*graph(), fMaterial, this);
    disconnectTexture();
    fMaterial = nullptr;
    fFactory.reset();
    setState(kTextureable, false);
    fShininess = 1.0f;
    fAmbient = {0, 0, 0, 1};
    fDiffuse = kDarkGreen;
    fEmission = {0, 0, 0, 1};
    fSpecular = {0, 0, 0, 1};
    rebuildShadingNodes();
    transformsDirty();
    setState(kStale, false);
}

void TmaterialInfo::connectionBroken(const Tplug& mine, const Tplug& other, bool asSource) {
    TdnPattern::connectionBroken(mine, other, asSource);
    if (asSource)
        return;
    const Tattribute* a = mine.attribute();
    if (a == &aShadingGroup) {
        if (other.node() != fShadingEngine)
            return;
        const Tplug material = Tplug(this, &aMaterial).source();
        if (!material.isNull())
            graph()->disconnect(material, Tplug(this, &aMaterial));
        OrvoRemoveClient(*graph(), fShadingEngine, this);
        fShadingEngine = nullptr;
    } else if (a == &aMaterial) {
        if (other.node() == fMaterial)
            forgetMaterial();
    } else if (a == &aTexture && mine.logicalIndex() == 0) {
        fMaterialTexture.reset();
        transformsDirty();
        const Tplug channel = Tplug(this, &aTextureChannel).source();
        if (!channel.isNull())
            graph()->disconnect(channel, Tplug(this, &aTextureChannel));
    }
}

// ---------------------------------------------------------------- listening

void TmaterialInfo::setDirty(TmsgDirty& msg) {
    TdnPattern::setDirty(msg);
    if (!msg.plug)
        return;
    if (msg.plug->attribute() == &aTextureFilter && fMaterialTexture)
        fMaterialTexture->dirty(*msg.plug);
}

void TmaterialInfo::materialChanged() {
    if (!hasState(kStale)) {
        transformsDirty();
        setState(kStale, true);
    }
}

void TmaterialInfo::attributeChanged(TdependNode& node, const TattributeChangedMsg& msg) {
    if (!msg.plug || OrvoViewportIsBaking())
        return;
    const Tplug& plug = *msg.plug;
    const bool connection = msg.flags & TattributeChangedMsg::kConnectionChange;
    const bool made = msg.flags & TattributeChangedMsg::kConnectionMade;
    const bool broken = msg.flags & TattributeChangedMsg::kConnectionBroken;
    if (&node == fShadingEngine) {
        // The group's surface material changed.
        if (connection &&
            &OrvoRootAttribute(*plug.attribute()) == &TDNshadingEngine::aSurfaceShader) {
            const Tplug slot(this, &aMaterial);
            const Tplug current = slot.source();
            if (broken && !current.isNull() && msg.other && current.node() == msg.other->node())
                graph()->disconnect(current, slot);
            else if (made && msg.other && current.isNull())
                graph()->connect(Tplug(msg.other->node(), &TdependNode::aMessage), slot);
        }
        return;
    }
    if (&node != fMaterial)
        return;
    const Tstring& name = OrvoRootAttribute(*plug.attribute()).longName();
    if (connection &&
        (name == "materialAlphaGain" || name == "color" || name == "hardwareShader")) {
        if (fFactory) {
            if (made && msg.other && fFactory->connectAsTexture(plug))
                connectTexture(msg.other->node());
            else if (broken && fFactory->textureDisconnected(plug))
                disconnectTexture();
        } else if (name == "hardwareShader") {
            rebuildShadingNodes();
        } else if (name == "color") {
            if (made && msg.other)
                connectTexture(msg.other->node());
            else if (broken)
                disconnectTexture();
        }
    }
    // A value set on the material: the graph would dirty the material's
    // outputs from it, which is what makes the colours stale.
    if ((msg.flags & TattributeChangedMsg::kAttributeSet) || connection)
        if (fFactory ? fFactory->attributeChangeMatters(plug) : true)
            materialChanged();
}

void TmaterialInfo::nodeDirty(TdependNode& node, const TnodeDirtyMsg& msg) {
    if (&node != fMaterial || !msg.plug || hasState(kStale) || OrvoViewportIsBaking())
        return;
    const Tattribute& root = OrvoRootAttribute(*msg.plug->attribute());
    const bool matters = fFactory ? fFactory->attributeChangeMatters(*msg.plug)
                                  : drawsItself(fMaterial) || isColourAttribute(root.longName()) ||
                                        root.isComputed();
    if (matters)
        materialChanged();
}

void TmaterialInfo::nodeDeleted(TdependNode&) {}

// ---------------------------------------------------------------- the colours

void TmaterialInfo::computeMaterial() {
    if (!fMaterial) {
        setState(kStale, false);
        return;
    }
    if (!hasState(kStale))
        return;
    if (fFactory) {
        TmaterialInputData data;
        data.ambient = fAmbient;
        data.diffuse = fDiffuse;
        data.emission = fEmission;
        data.specular = fSpecular;
        data.shininess = fShininess;
        fFactory->computeMaterial(data);
        fShininess = data.shininess;
        fAmbient = data.ambient;
        fDiffuse = data.diffuse;
        fEmission = data.emission;
        fSpecular = data.specular;
        fFactoryTransparent = data.transparent;
        setState(kTransparent, data.transparent);
    } else {
        defaultMaterial();
    }
    setState(kStale, false);
}

void TmaterialInfo::defaultMaterial() {
    const TdependNode* m = fMaterial;
    const T3Float black{0, 0, 0};
    const T3Float green = rgb(kDarkGreen);
    float shininess = 1.0f, d = 1.0f, g = 1.0f;
    T3Float ambient = black, colour = green, transparency = black, incandescence = black,
            specular = black;

    // The Lambert family reads its own attributes while its network is
    // shown through the info (which it always is, unless it draws itself).
    const bool lambertPath = hasState(kTextureable) && !hasState(kDrawsAsHwShader);
    if (lambertPath && isKindOf(m, "lambert")) {
        ambient = unconnected(m, "ambientColor", black);
        d = unconnected(m, "diffuse", 1.0f);
        colour = unconnected(m, "color", green);
        transparency = unconnected(m, "transparency", black);
        incandescence = unconnected(m, "incandescence", black);
        g = unconnected(m, "materialAlphaGain", 1.0f);
        if (isKindOf(m, "phong")) {
            specular = unconnected(m, "specularColor", black);
            const float power = unconnected(m, "cosinePower", 20.0f);
            shininess = power > 32.0f ? 128.0f : 4.0f * power;
        } else if (isKindOf(m, "blinn")) {
            specular = unconnected(m, "specularColor", black);
            const float e = unconnected(m, "eccentricity", 0.3f);
            shininess = std::fabs(e) < 0.03125f ? 128.0f : 4.0f / e;
        }
    } else if (isKindOf(m, "rampShader")) {
        auto* ramp = static_cast<TdnRampShader*>(
            const_cast<TdependNode*>(m)->cast(TdnRampShader::sTypeof()));
        colour = ramp->getHardwareShadingAttributes();
    } else if (!isKindOf(m, "surfaceShader") && !isKindOf(m, "hwShader")) {
        d = unconnected(m, "diffuse", 1.0f);
        if (!TrenderUtilities::getUnconnectedValue(m, "hardwareColor", colour))
            colour = unconnected(m, "color", green);
        ambient = unconnected(m, "ambientColor", black);
        // A one-number transparency stands for a grey one.
        float grey = 0.0f;
        if (!TrenderUtilities::getUnconnectedValue(m, "transparency", transparency) &&
            TrenderUtilities::getUnconnectedValue(m, "transparency", grey))
            transparency = {grey, grey, grey};
        incandescence = unconnected(m, "incandescence", black);
        specular = unconnected(m, "specularColor", black);
        shininess = unconnected(m, "shininess", 1.0f);
    } else {
        g = unconnected(m, "materialAlphaGain", 1.0f);
        colour = unconnected(m, "outColor", green);
        transparency = unconnected(m, "outTransparency", black);
    }

    const float t = (transparency.x + transparency.y + transparency.z) / 3.0f;
    const float alpha = (1.0f - t) * g;
    fAmbient = {ambient.x, ambient.y, ambient.z, alpha};
    fDiffuse = {colour.x * d, colour.y * d, colour.z * d, alpha};
    setState(kTransparent, alpha < 1.0f);
    fEmission = {incandescence.x, incandescence.y, incandescence.z, 1.0f};
    fSpecular = {specular.x, specular.y, specular.z, 1.0f};
    fShininess = shininess;
}

// ---------------------------------------------------------------- the drawing interface

bool TmaterialInfo::evaluateMaterial(T3dPort* port, const TdagPath& object,
                                     const TdagPath& camera) {
    if (!port)
        return false;
    fPort = port;
    if (!object.isValid()) {
        fPort = nullptr;
        return false;
    }
    fObjectPath = object;
    fCameraPath = camera;
    if (hasState(kStale))
        computeMaterial();
    return !hasState(kStale);
}

bool TmaterialInfo::evaluatePart(T3dPort* port, const TdagPath& object, const TdagPath& camera) {
    if (!port || !fMaterial)
        return false;
    return evaluateMaterial(port, object, camera);
}

bool TmaterialInfo::evaluateShininess(T3dPort* p, const TdagPath& o, const TdagPath& c) {
    return evaluatePart(p, o, c);
}
bool TmaterialInfo::evaluateDiffuse(T3dPort* p, const TdagPath& o, const TdagPath& c) {
    return evaluatePart(p, o, c);
}
bool TmaterialInfo::evaluateEmission(T3dPort* p, const TdagPath& o, const TdagPath& c) {
    return evaluatePart(p, o, c);
}
bool TmaterialInfo::evaluateSpecular(T3dPort* p, const TdagPath& o, const TdagPath& c) {
    return evaluatePart(p, o, c);
}

bool TmaterialInfo::getShininess(float& out) const {
    if (!ready())
        return false;
    out = fShininess;
    return true;
}

#define ORVO_MATERIAL_INFO_GETTER(Name, member)                                                    \
    bool TmaterialInfo::get##Name(TportColor& out) const {                                         \
        if (!ready())                                                                              \
            return false;                                                                          \
        out = member;                                                                              \
        return true;                                                                               \
    }
ORVO_MATERIAL_INFO_GETTER(Ambient, fAmbient)
ORVO_MATERIAL_INFO_GETTER(Diffuse, fDiffuse)
ORVO_MATERIAL_INFO_GETTER(Emission, fEmission)
ORVO_MATERIAL_INFO_GETTER(Specular, fSpecular)
#undef ORVO_MATERIAL_INFO_GETTER

bool TmaterialInfo::getHasTransparency(bool& out, bool wide) const {
    if (!ready())
        return false;
    out = hasState(kTransparent) || (wide && hasState(kWideTransparent));
    return true;
}

bool TmaterialInfo::hasTransparency(T3dPort* port, const TdagPath& object, const TdagPath& camera) {
    fPort = port;
    fObjectPath = object;
    fCameraPath = camera;
    computeMaterial();
    bool textureAlpha = false;
    if (fMaterialTexture && port) {
        const TsharedGlTextureObject texture = fMaterialTexture->textureObject(*port, object);
        textureAlpha = texture && texture->format() == 4;
    }
    return hasState(kTransparent) || textureAlpha;
}

bool TmaterialInfo::disableLighting() const {
    // The surface shader itself, not a type built on it.
    return fMaterial && fMaterial->typeName() == "surfaceShader";
}

bool TmaterialInfo::isUseBackground() const {
    return isKindOf(fMaterial, "useBackground");
}

bool TmaterialInfo::materialIsTextured() const {
    return fMaterialTexture != nullptr;
}

TsharedGlTextureObject TmaterialInfo::textureObject(T3dPort* port, const TdagPath& object,
                                                    const TdagPath&) {
    if (!port || !fMaterialTexture)
        return nullptr;
    return fMaterialTexture->textureObject(*port, object);
}

bool TmaterialInfo::setMaterial(const TdagPath& object, bool transparent) {
    if (!fPort || hasState(kStale) ||
        (fPort->flags() & (T3dPort::kWireframe | T3dPort::kBoundingBox)))
        return false;
    T3dPort& port = *fPort;
    if (OrvoEnvIsSet("ORVO_HW_AMBIENT_DIFFUSE_ADJUST"))
        port.setAmbientColor(
            {fDiffuse.r + fAmbient.r, fDiffuse.g + fAmbient.g, fDiffuse.b + fAmbient.b, 1.0f});
    TportColor draw = fDiffuse;
    if (object.isValid() && fMaterialTexture && !port.usesOwnDrawColor() &&
        !gsForceTextureMaterialColor) {
        T3Float c = hasState(kTextureable) ? fMaterialTexture->getTextureColor(object)
                                           : fMaterialTexture->getDefaultColor(object);
        draw = {c.x, c.y, c.z, 1.0f};
    }
    const bool xray = port.flags() & T3dPort::kXray;
    if (transparent || xray) {
        port.setAlphaBlend(true);
        port.setDepthWrite(gsLockDepthBuffer);
        draw.a = xray ? T3dPort::fsXrayAlpha : fDiffuse.a;
    } else {
        port.setAlphaBlend(false);
        port.setDepthWrite(gsLockDepthBuffer == xray);
        draw.a = fDiffuse.a;
    }
    port.setDepthTest(true);
    port.setShininess(fShininess);
    port.setSpecularColor(fSpecular);
    port.setEmissionColor(fEmission);
    port.setDiffuseColor(draw);
    if (!(port.flags() & T3dPort::kColorMaterial) && !disableLighting())
        port.setCurrentColor({1, 1, 1, 1});
    else
        port.setCurrentColor(draw);
    return true;
}

// ---------------------------------------------------------------- the texture's plug

Tplug TmaterialInfo::connectionPlug(TdependNode* textureNode) const {
    if (!textureNode)
        return {};
    // Whether the network downstream of `plug` reaches the shading group.
    const auto reachesGroup = [&](const Tplug& start) {
        if (!fShadingEngine)
            return false;
        std::vector<Tplug> todo{start};
        std::vector<const TdependNode*> seen;
        while (!todo.empty()) {
            const Tplug p = todo.back();
            todo.pop_back();
            TplugArray destinations;
            p.getAllDestinations(destinations);
            for (const Tplug& d : destinations) {
                if (d.node() == fShadingEngine)
                    return true;
                if (std::find(seen.begin(), seen.end(), d.node()) != seen.end())
                    continue;
                seen.push_back(d.node());
                for (const Tattribute* out : d.node()->vsData()->attributes())
                    if (out->isComputed() && !out->parent())
                        todo.emplace_back(d.node(), out);
            }
        }
        return false;
    };
    const auto intoMaterial = [&](const Tplug& p) {
        return fMaterial && p.getNumOfDestinationsToNode(fMaterial) > 0;
    };

    // Outputs that hold a value: a number, or a colour or point of numbers
    // (which counts as one value, not as a compound of several).
    const auto holdsValue = [](const Tattribute& a) {
        if (a.kind() == TattrKind::Compound) {
            if (a.numChildren() == 0)
                return false;
            for (uint32_t i = 0; i < a.numChildren(); ++i)
                if (a.child(i)->kind() != TattrKind::Float &&
                    a.child(i)->kind() != TattrKind::Double)
                    return false;
            return true;
        }
        return a.kind() != TattrKind::Message && a.kind() != TattrKind::Typed &&
               a.kind() != TattrKind::Addr;
    };
    std::vector<Tplug> plugs;
    for (const Tattribute* a : textureNode->vsData()->attributes()) {
        if (!a->isComputed() || a->parent() || a->isArray() || !a->hasFlag(TattrFlag::kReadable) ||
            !holdsValue(*a))
            continue;
        const Tplug p(textureNode, a);
        if (reachesGroup(p))
            plugs.push_back(p);
    }
    if (plugs.size() >= 2 && fMaterial) {
        const Tplug channel = Tplug(this, &aTextureChannel).source();
        for (const Tplug& p : plugs)
            if (!channel.isNull() && p == channel)
                return p;
        for (const Tplug& p : plugs)
            if (p.attribute()->longName() == "outColor" && intoMaterial(p))
                return p;
        for (const Tplug& p : plugs)
            if (intoMaterial(p))
                return p;
        return plugs.front();
    }
    if (plugs.size() == 1)
        return plugs.front();
    if (const Tattribute* a = textureNode->findAttribute("outColor"))
        return Tplug(textureNode, a);
    if (const Tattribute* a = textureNode->findAttribute("outValue"))
        return Tplug(textureNode, a);
    return {};
}
