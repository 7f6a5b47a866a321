#include "apps/orvo/viewport_draw.h"

#include <GL/gl.h>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "apps/orvo/cli.h"
#include "framework/nodes/utility/render_utilities.h"
#include "host/draw/port.h"
#include "host/graph.h"
#include "host/scene/camera.h"
#include "host/scene/light_shape.h"
#include "render/render_scene.h"
#include "shading/shading_engine.h"
#include "viewport/evaluate_texture_info.h"
#include "viewport/material_info.h"
#include "viewport/material_texture.h"
#include "viewport/shadow_pass.h"

namespace orvo::cli {

namespace {

template <class T>
T plainValue(const TdependNode* node, const char* name, T fallback) {
    const Tattribute* a = node->findAttribute(name);
    T out = fallback;
    return a && TrenderUtilities::getValue(Tplug(node, a), out) ? out : fallback;
}

// The scene's lights as fixed-function lights, in eye space. Ambient lights
// add to the global ambient; the card takes eight of the others. Gives each
// light's GL light, and the global ambient.
std::vector<std::pair<const TlightShape*, GLenum>>
setUpLights(TdependGraph& graph, const T4dDblMatrix& worldToEye, GLfloat ambientOut[4]) {
    std::vector<std::pair<const TlightShape*, GLenum>> made;
    glMatrixMode(GL_MODELVIEW);
    glLoadIdentity();
    glEnable(GL_LIGHTING);
    glLightModeli(GL_LIGHT_MODEL_TWO_SIDE, GL_TRUE);
    float ambient[4] = {0, 0, 0, 1};
    int next = 0;
    for (TdependNode* node : graph.nodes()) {
        auto* light = static_cast<TlightShape*>(node->cast(TlightShape::sTypeof()));
        if (!light)
            continue;
        const T3Float colour = plainValue(light, "color", T3Float{1, 1, 1});
        const float intensity = plainValue(light, "intensity", 1.0f);
        const GLfloat c[4] = {colour.x * intensity, colour.y * intensity, colour.z * intensity, 1};
        const std::string type = light->typeName();
        if (type == "ambientLight") {
            for (int k = 0; k < 3; ++k)
                ambient[k] += c[k];
            continue;
        }
        if (next >= 8)
            continue;
        const GLenum gl = GLenum(GL_LIGHT0 + next++);
        made.emplace_back(light, gl);
        glEnable(gl);
        glLightfv(gl, GL_DIFFUSE, c);
        glLightfv(gl, GL_SPECULAR, c);
        const T4dDblMatrix toEye = light->localToWorld() * worldToEye;
        // A light shines down its own -Z.
        const T3dDblVector down = toEye.transformVector({0, 0, -1});
        if (type == "directionalLight") {
            const double length = std::max(down.length(), 1e-12);
            const GLfloat towards[4] = {GLfloat(-down.x / length), GLfloat(-down.y / length),
                                        GLfloat(-down.z / length), 0};
            glLightfv(gl, GL_POSITION, towards);
            continue;
        }
        const T3dDblVector at = toEye.transformPoint({0, 0, 0});
        const GLfloat position[4] = {GLfloat(at.x), GLfloat(at.y), GLfloat(at.z), 1};
        glLightfv(gl, GL_POSITION, position);
        const int decay = plainValue<int>(light, "decayRate", 0);
        glLightf(gl, GL_CONSTANT_ATTENUATION, decay == 0 ? 1.0f : 0.0f);
        glLightf(gl, GL_LINEAR_ATTENUATION, decay == 1 ? 1.0f : 0.0f);
        glLightf(gl, GL_QUADRATIC_ATTENUATION, decay >= 2 ? 1.0f : 0.0f);
        if (type == "spotLight") {
            const GLfloat direction[3] = {GLfloat(down.x), GLfloat(down.y), GLfloat(down.z)};
            glLightfv(gl, GL_SPOT_DIRECTION, direction);
            const double cone = plainValue(light, "coneAngle", 40.0);
            const double penumbra = plainValue(light, "penumbraAngle", 0.0);
            const double cutoff = std::clamp(cone / 2.0 + std::max(penumbra, 0.0), 0.0, 90.0);
            glLightf(gl, GL_SPOT_CUTOFF, GLfloat(cutoff));
            glLightf(gl, GL_SPOT_EXPONENT,
                     GLfloat(std::clamp(plainValue(light, "dropoff", 0.0), 0.0, 128.0)));
        }
    }
    glLightModelfv(GL_LIGHT_MODEL_AMBIENT, ambient);
    std::copy_n(ambient, 4, ambientOut);
    return made;
}

// The texture matrix of a placement: the texture's UV range, then scale
// and offset about the origin, the angles about the texture's centre, and
// for a UV tile the move of its unit square onto the texture's.
void loadTextureMatrix(const TevaluateTextureInfo& info, const std::pair<int, int>* tile) {
    glMatrixMode(GL_TEXTURE);
    glLoadIdentity();
    // Applied to a UV from the last call up: ...
    if (tile)
        glTranslatef(-float(tile->first), -float(tile->second), 0.0f);
    // ... into the range baked, ...
    const T2Float lo = info.uvMin, hi = info.uvMax;
    glScalef(1.0f / std::max(hi.x - lo.x, 1e-6f), 1.0f / std::max(hi.y - lo.y, 1e-6f), 1.0f);
    glTranslatef(-lo.x, -lo.y, 0.0f);
    // ... turned by the last angle, scaled and offset, turned by the first.
    glTranslatef(0.5f, 0.5f, 0.0f);
    glRotatef(-info.rotate, 0, 0, 1);
    glTranslatef(-0.5f, -0.5f, 0.0f);
    glScalef(1.0f / info.repeatU, 1.0f / info.repeatV, 1.0f);
    glTranslatef(-info.offsetU, -info.offsetV, 0.0f);
    glTranslatef(0.5f, 0.5f, 0.0f);
    glRotatef(-info.angle, 0, 0, 1);
    glTranslatef(-0.5f, -0.5f, 0.0f);
    glMatrixMode(GL_MODELVIEW);
}

// The texture unit that cuts a draw down to one UV tile: a single opaque
// texel clamped to a transparent border, so that the fragment's alpha is 1
// inside the tile's unit square and 0 outside, with no blend at the edges.
constexpr GLenum kTileMaskUnit = GL_TEXTURE3;

GLuint makeTileMask() {
    GLuint name = 0;
    glGenTextures(1, &name);
    glBindTexture(GL_TEXTURE_2D, name);
    const GLubyte white[4] = {255, 255, 255, 255};
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, 1, 1, 0, GL_RGBA, GL_UNSIGNED_BYTE, white);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_BORDER);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_BORDER);
    const GLfloat none[4] = {0, 0, 0, 0};
    glTexParameterfv(GL_TEXTURE_2D, GL_TEXTURE_BORDER_COLOR, none);
    glBindTexture(GL_TEXTURE_2D, 0);
    return name;
}

void drawObject(const TrenderObject& object, bool textured, bool masked = false) {
    const auto& positions = object.positions();
    const auto& normals = object.normals();
    const auto& uvs = object.mesh().uvs;
    glEnableClientState(GL_VERTEX_ARRAY);
    glVertexPointer(3, GL_FLOAT, sizeof(T3Float), positions.data());
    if (normals.size() == positions.size()) {
        glEnableClientState(GL_NORMAL_ARRAY);
        glNormalPointer(GL_FLOAT, sizeof(T3Float), normals.data());
    }
    const bool withUvs = textured && uvs.size() == positions.size();
    if (withUvs) {
        glEnableClientState(GL_TEXTURE_COORD_ARRAY);
        glTexCoordPointer(2, GL_FLOAT, sizeof(T2Float), uvs.data());
        if (masked) {
            glClientActiveTexture(kTileMaskUnit);
            glEnableClientState(GL_TEXTURE_COORD_ARRAY);
            glTexCoordPointer(2, GL_FLOAT, sizeof(T2Float), uvs.data());
            glClientActiveTexture(GL_TEXTURE0);
        }
    }
    const auto& indices = object.mesh().indices;
    glDrawElements(GL_TRIANGLES, GLsizei(indices.size()), GL_UNSIGNED_INT, indices.data());
    glDisableClientState(GL_VERTEX_ARRAY);
    glDisableClientState(GL_NORMAL_ARRAY);
    glDisableClientState(GL_TEXTURE_COORD_ARRAY);
    if (withUvs && masked) {
        glClientActiveTexture(kTileMaskUnit);
        glDisableClientState(GL_TEXTURE_COORD_ARRAY);
        glClientActiveTexture(GL_TEXTURE0);
    }
}

// A texture in UV tiles: the object once in the texture's default colour
// (the render shows it where no tile lies), unless it is see-through or
// only a light's share is added, then once a tile, each cut to its tile's
// square by the mask unit and drawn over the first at equal depth.
void drawTiles(const TrenderObject& object, const TevaluateTextureInfo& pieces,
               const TmaterialTexture& texture, T3dPort& port, GLuint mask, bool overBase) {
    const TportColor diffuse = port.diffuseColor();
    if (overBase) {
        const T3Float d = texture.getDefaultColor(object.path());
        port.setDiffuseColor({d.x, d.y, d.z, diffuse.a});
        drawObject(object, false);
        port.setDiffuseColor(diffuse);
    }
    GLint depthFunc = GL_LESS, alphaFunc = GL_ALWAYS;
    GLfloat alphaRef = 0.0f;
    glGetIntegerv(GL_DEPTH_FUNC, &depthFunc);
    glGetIntegerv(GL_ALPHA_TEST_FUNC, &alphaFunc);
    glGetFloatv(GL_ALPHA_TEST_REF, &alphaRef);
    const bool alphaTest = glIsEnabled(GL_ALPHA_TEST);
    if (depthFunc == GL_LESS)
        glDepthFunc(GL_LEQUAL);
    glEnable(GL_ALPHA_TEST);
    glAlphaFunc(GL_GREATER, alphaTest ? std::max(alphaRef, 0.5f) : 0.5f);
    glActiveTexture(kTileMaskUnit);
    glBindTexture(GL_TEXTURE_2D, mask);
    glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_MODULATE);
    glEnable(GL_TEXTURE_2D);
    for (size_t i = 0; i < pieces.tileSources.size(); ++i) {
        glActiveTexture(GL_TEXTURE0);
        if (!pieces.tileSources[i]->apply())
            continue;
        loadTextureMatrix(pieces, &pieces.tilePositions[i]);
        glActiveTexture(kTileMaskUnit);
        loadTextureMatrix(pieces, &pieces.tilePositions[i]);
        drawObject(object, true, true);
    }
    glActiveTexture(kTileMaskUnit);
    glDisable(GL_TEXTURE_2D);
    glMatrixMode(GL_TEXTURE);
    glLoadIdentity();
    glMatrixMode(GL_MODELVIEW);
    glActiveTexture(GL_TEXTURE0);
    glDisable(GL_TEXTURE_2D);
    glDepthFunc(GLenum(depthFunc));
    glAlphaFunc(GLenum(alphaFunc), alphaRef);
    if (!alphaTest)
        glDisable(GL_ALPHA_TEST);
}

} // namespace

TdagPath findCameraPath(TdependGraph& graph, const std::string& name, const std::string& command) {
    TdependNode* node = graph.findNode(name);
    auto* dag = node ? dynamic_cast<TdagObject*>(node) : nullptr;
    if (auto* transform = dynamic_cast<Ttransform*>(dag))
        for (TdagObject* child : transform->children())
            if (child->cast(TcameraShape::sTypeof())) {
                dag = child;
                break;
            }
    if (!dag || !dag->cast(TcameraShape::sTypeof()))
        throw UserError(
            fmt::format("{}: --camera {}: {}", command, name,
                        node ? fmt::format("'{}' is a {}, not a camera", name, node->typeName())
                             : fmt::format("no node named '{}'", name)));
    return dag->firstPath();
}

TrenderedImage drawViewport(TdependGraph& graph, const ViewRequest& request) {
    TrenderView view;
    view.camera = request.camera;
    TrenderScene scene(graph, request.sceneName, request.width, request.height, view);
    T3dPort port(request.width, request.height);
    T3dPort::fsTexturePort = &port;
    struct ForgetPort {
        ~ForgetPort() { T3dPort::fsTexturePort = nullptr; }
    } forget;

    const T3Float background = scene.background();
    port.clear({background.x, background.y, background.z, 1.0f});

    const TpinholeCamera& camera = scene.camera();
    glMatrixMode(GL_PROJECTION);
    glLoadIdentity();
    const double n = camera.nearClip(), f = camera.farClip();
    if (camera.orthographic())
        glOrtho(-camera.halfWidth(), camera.halfWidth(), -camera.halfHeight(), camera.halfHeight(),
                n, f);
    else
        glFrustum(-camera.halfWidth() * n, camera.halfWidth() * n, -camera.halfHeight() * n,
                  camera.halfHeight() * n, n, f);
    GLfloat ambient[4];
    const auto glLights = setUpLights(graph, scene.worldToEye(), ambient);
    glEnable(GL_NORMALIZE);
    glShadeModel(GL_SMOOTH);
    // Material ambient is the draw's business, not the card's default grey.
    port.setAmbientColor({0, 0, 0, 1});

    const GLuint tileMask = makeTileMask();
    struct ForgetMask {
        GLuint name;
        ~ForgetMask() { glDeleteTextures(1, &name); }
    } forgetMask{tileMask};

    // Opaque objects first, then the see-through ones over them.
    struct Draw {
        const TrenderObject* object;
        TmaterialInfo* info;
        bool transparent;
    };
    std::vector<Draw> draws;
    for (const auto& object : scene.objects()) {
        TmaterialInfo* info = object->engine()
                                  ? &TmaterialInfo::ensureShadingEngineHasInfo(*object->engine())
                                  : nullptr;
        bool transparent = false;
        if (info) {
            info->evaluateMaterial(&port, object->path(), scene.cameraPath());
            transparent = info->hasTransparency(&port, object->path(), scene.cameraPath());
        }
        draws.push_back({object.get(), info, transparent});
    }
    std::stable_sort(draws.begin(), draws.end(),
                     [](const Draw& a, const Draw& b) { return !a.transparent && b.transparent; });

    const auto drawOne = [&](const Draw& d, bool lightOnly) {
        glActiveTexture(GL_TEXTURE0);
        const TdagPath& path = d.object->path();
        bool textured = false;
        TevaluateTextureInfo pieces;
        if (!d.info || !d.info->setMaterial(path, d.transparent)) {
            // No usable group: the render's plain default material.
            port.setDepthTest(true);
            port.setAlphaBlend(false);
            port.setDepthWrite(true);
            port.setShininess(1.0f);
            port.setSpecularColor({0, 0, 0, 1});
            port.setEmissionColor({0, 0, 0, 1});
            port.setDiffuseColor(
                {kDefaultMaterialColour.x, kDefaultMaterialColour.y, kDefaultMaterialColour.z, 1});
            port.setCurrentColor({1, 1, 1, 1});
        } else if (TmaterialTexture* texture = d.info->materialTexture()) {
            texture->textureObject(port, path, &pieces);
            if (!pieces.tiled() && pieces.texture) {
                glActiveTexture(GL_TEXTURE0);
                textured = pieces.texture->apply();
                if (textured)
                    loadTextureMatrix(pieces, nullptr);
            }
        }
        const bool unlit = d.info && d.info->disableLighting();
        if (lightOnly) {
            // One light's share, added where the light reaches.
            if (unlit)
                return;
            port.setEmissionColor({0, 0, 0, 1});
            port.setDepthWrite(false);
            glEnable(GL_BLEND);
            glBlendFunc(GL_ONE, GL_ONE);
        }
        if (unlit)
            glDisable(GL_LIGHTING);
        else
            glEnable(GL_LIGHTING);
        if (pieces.tiled())
            drawTiles(*d.object, pieces, *d.info->materialTexture(), port, tileMask,
                      !lightOnly && !d.transparent);
        else
            drawObject(*d.object, textured);
        if (textured)
            glDisable(GL_TEXTURE_2D);
    };

    // Depth map shadows: each shadowing light's view drawn into a depth
    // texture first, where the card can compare depth textures.
    TshadowPassProcess shadows;
    TshadowPassProcess::setUseHighPrecisionShadows(true);
    if (shadows.checkExtensions(port) != TshadowPassProcess::kNoShadows &&
        !scene.objects().empty()) {
        T3dDblVector lo{1e30, 1e30, 1e30}, hi{-1e30, -1e30, -1e30};
        for (const auto& object : scene.objects())
            for (const T3Float& p : object->positions()) {
                lo = {std::min(lo.x, double(p.x)), std::min(lo.y, double(p.y)),
                      std::min(lo.z, double(p.z))};
                hi = {std::max(hi.x, double(p.x)), std::max(hi.y, double(p.y)),
                      std::max(hi.z, double(p.z))};
            }
        const T3dDblVector centre{(lo.x + hi.x) / 2, (lo.y + hi.y) / 2, (lo.z + hi.z) / 2};
        const double radius = (hi - lo).length() / 2;
        shadows.getAllShadowingLights(graph, scene.eyeToWorld(), centre, radius);
        for (TlightInfoShadowPass& light : shadows.lights())
            shadows.updateDepthMap(port, light, [&] {
                for (const Draw& d : draws)
                    if (!d.transparent)
                        drawObject(*d.object, false);
            });
    }
    const auto glLightOf = [&](const TlightShape* light) {
        for (const auto& [l, gl] : glLights)
            if (l == light)
                return gl;
        return GLenum(0);
    };

    // The opaque objects without the shadowing lights...
    for (const TlightInfoShadowPass& light : shadows.lights())
        if (const GLenum gl = glLightOf(light.light))
            glDisable(gl);
    for (const Draw& d : draws)
        if (!d.transparent)
            drawOne(d, false);
    // ...then each shadowing light added where its map sees the surface.
    const GLfloat none[4] = {0, 0, 0, 1};
    for (const TlightInfoShadowPass& light : shadows.lights()) {
        const GLenum gl = glLightOf(light.light);
        if (!gl)
            continue;
        for (const auto& [l, other] : glLights)
            glDisable(other);
        glEnable(gl);
        glLightModelfv(GL_LIGHT_MODEL_AMBIENT, none);
        shadows.bindDMapTextures(light);
        shadows.configTexgen(light);
        shadows.configCombiners();
        glEnable(GL_ALPHA_TEST);
        glAlphaFunc(GL_GREATER, 0.5f);
        glDepthFunc(GL_EQUAL);
        for (const Draw& d : draws)
            if (!d.transparent)
                drawOne(d, true);
        glDepthFunc(GL_LESS);
        glDisable(GL_ALPHA_TEST);
        shadows.disableTexgen();
        shadows.disableCombiners();
        port.setAlphaBlend(false);
    }
    for (const auto& [l, gl] : glLights)
        glEnable(gl);
    glLightModelfv(GL_LIGHT_MODEL_AMBIENT, ambient);
    // See-through objects last, under every light: each one's far side
    // first, then its near side blended over it, so that a closed object
    // shows its inside behind its front rather than over it.
    glEnable(GL_CULL_FACE);
    for (const Draw& d : draws)
        if (d.transparent) {
            glCullFace(GL_FRONT);
            drawOne(d, false);
            glCullFace(GL_BACK);
            drawOne(d, false);
        }
    glDisable(GL_CULL_FACE);

    const std::vector<uint8_t> rgba = port.readPixels();
    TrenderedImage image;
    image.width = request.width;
    image.height = request.height;
    image.pixels.assign(size_t(image.width) * image.height * TrenderedImage::kChannels, 0.0f);
    for (size_t p = 0; p < size_t(image.width) * image.height; ++p) {
        float* out = &image.pixels[p * TrenderedImage::kChannels];
        for (int k = 0; k < 3; ++k)
            out[k] = float(rgba[p * 4 + size_t(k)]) / 255.0f;
        out[3] = 1.0f;
        out[4] = 1.0f;
    }
    return image;
}

} // namespace orvo::cli
