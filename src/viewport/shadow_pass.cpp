#include "viewport/shadow_pass.h"

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <utility>
#include <vector>

#include "framework/nodes/utility/render_utilities.h"
#include "host/graph.h"
#include "host/scene/light_shape.h"

#ifndef GL_DEPTH_COMPONENT16
#define GL_DEPTH_COMPONENT16 0x81A5
#define GL_DEPTH_COMPONENT24 0x81A6
#endif

bool TshadowPassProcess::sHighPrecision = false;

TshadowPassProcess::~TshadowPassProcess() {
    removeDepthMaps();
}

TshadowPassProcess::Path TshadowPassProcess::checkExtensions(const T3dPort& port) {
    const bool depthTextures =
        port.hasExtension("GL_ARB_depth_texture") || port.hasExtension("GL_SGIX_depth_texture");
    if (depthTextures &&
        (port.hasExtension("GL_SGIX_shadow") || port.hasExtension("GL_ARB_shadow")))
        fPath = kSGIXshadows;
    else if (depthTextures && port.hasExtension("GL_ARB_texture_env_combine"))
        fPath = kTextureCombiners;
    else
        fPath = kNoShadows;
    return fPath;
}

void TshadowPassProcess::getAllShadowingLights(TdependGraph& graph,
                                               const T4dDblMatrix& geometryToWorld,
                                               const T3dDblVector& centre, double radius) {
    removeDepthMaps();
    fLights.clear();
    radius = std::max(radius, 1e-6);
    for (TdependNode* node : graph.nodes()) {
        auto* light = static_cast<TlightShape*>(node->cast(TlightShape::sTypeof()));
        if (!light || light->typeName() != "directionalLight")
            continue;
        bool on = false;
        if (!TrenderUtilities::getValue(Tplug(light, light->findAttribute("useDepthMapShadows")),
                                        on) ||
            !on)
            continue;
        TlightInfoShadowPass info;
        info.light = light;
        int16_t resolution = 512;
        TrenderUtilities::getValue(Tplug(light, light->findAttribute("dmapResolution")),
                                   resolution);
        info.resolution = unsigned(std::clamp<int>(resolution, 16, 8192));
        // The light's frame in world space: its own axes, placed back along
        // its -Z from the centre so that the whole sphere lies in front.
        const T4dDblMatrix local = light->localToWorld();
        const T4dDblMatrix rotation = [&] {
            T4dDblMatrix r = local;
            for (int k = 0; k < 3; ++k) {
                T3dDblVector axis{r.m[k][0], r.m[k][1], r.m[k][2]};
                const double length = std::max(axis.length(), 1e-12);
                for (int j = 0; j < 3; ++j)
                    r.m[k][j] /= length;
            }
            r.m[3][0] = r.m[3][1] = r.m[3][2] = 0.0;
            return r;
        }();
        const T3dDblVector worldCentre = geometryToWorld.transformPoint(centre);
        const T3dDblVector back = rotation.transformVector({0, 0, 1});
        T4dDblMatrix lightToWorld = rotation;
        lightToWorld.m[3][0] = worldCentre.x + back.x * 2.0 * radius;
        lightToWorld.m[3][1] = worldCentre.y + back.y * 2.0 * radius;
        lightToWorld.m[3][2] = worldCentre.z + back.z * 2.0 * radius;
        info.toLight = geometryToWorld * lightToWorld.inverse();
        info.halfWidth = radius;
        info.nearClip = radius;
        info.farClip = 3.0 * radius;
        fLights.push_back(info);
    }
}

T4dDblMatrix TshadowPassProcess::computeProjectionMatrix(const TlightInfoShadowPass& light) {
    // An orthographic box, as glOrtho makes it, for row vectors.
    const double w = light.halfWidth, n = light.nearClip, f = light.farClip;
    T4dDblMatrix projection;
    projection.m[0][0] = 1.0 / w;
    projection.m[1][1] = 1.0 / w;
    projection.m[2][2] = -2.0 / (f - n);
    projection.m[3][2] = -(f + n) / (f - n);
    return light.toLight * projection;
}

void TshadowPassProcess::setupGL_OffsetPolygons(const TlightInfoShadowPass& light) {
    glEnable(GL_POLYGON_OFFSET_FILL);
    glPolygonOffset(kOffsetFactor, light.offsetUnits * kOffsetUnitsScale);
}

void TshadowPassProcess::updateDepthMap(T3dPort& port, TlightInfoShadowPass& light,
                                        const std::function<void()>& drawGeometry) {
    if (!port.isCurrent())
        port.makeCurrent();
    if (fPort != &port || fContext.expired()) {
        for (TlightInfoShadowPass& l : fLights)
            if (&l != &light && fContext.expired())
                l.depthTexture = 0;
        if (fContext.expired()) {
            light.depthTexture = 0;
            fRamp = 0;
        }
        fPort = &port;
        fContext = port.contextToken();
    }
    // The map is drawn in the port's own buffer: no larger than the port.
    const unsigned side = std::min({light.resolution, port.width(), port.height()});
    light.resolution = side;

    glPushAttrib(GL_ALL_ATTRIB_BITS);
    glViewport(0, 0, GLsizei(side), GLsizei(side));
    glMatrixMode(GL_PROJECTION);
    glPushMatrix();
    glLoadIdentity();
    glOrtho(-light.halfWidth, light.halfWidth, -light.halfWidth, light.halfWidth, light.nearClip,
            light.farClip);
    glMatrixMode(GL_MODELVIEW);
    glPushMatrix();
    GLdouble view[16];
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            view[r * 4 + c] = light.toLight.m[r][c];
    glLoadMatrixd(view);

    glColorMask(GL_FALSE, GL_FALSE, GL_FALSE, GL_FALSE);
    glDepthMask(GL_TRUE);
    glEnable(GL_DEPTH_TEST);
    glDisable(GL_LIGHTING);
    glDisable(GL_TEXTURE_2D);
    glDisable(GL_BLEND);
    glClear(GL_DEPTH_BUFFER_BIT);
    setupGL_OffsetPolygons(light);
    drawGeometry();

    if (!light.depthTexture)
        glGenTextures(1, &light.depthTexture);
    glBindTexture(GL_TEXTURE_2D, light.depthTexture);
    const GLint format = sHighPrecision ? GL_DEPTH_COMPONENT24 : GL_DEPTH_COMPONENT16;
    glTexImage2D(GL_TEXTURE_2D, 0, format, GLsizei(side), GLsizei(side), 0, GL_DEPTH_COMPONENT,
                 GL_UNSIGNED_INT, nullptr);
    glCopyTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, 0, 0, GLsizei(side), GLsizei(side));
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP);
    glBindTexture(GL_TEXTURE_2D, 0);

    glMatrixMode(GL_PROJECTION);
    glPopMatrix();
    glMatrixMode(GL_MODELVIEW);
    glPopMatrix();
    glPopAttrib();
    // The camera's draw starts from a clear depth buffer.
    glClear(GL_DEPTH_BUFFER_BIT);
}

namespace {

constexpr GLenum kDepthTextureMode = 0x884B;
constexpr GLenum kTextureCompareMode = 0x884C;
constexpr GLenum kTextureCompareFunc = 0x884D;
constexpr GLenum kCompareRToTexture = 0x884E;

// Eye-linear texgen on the active unit for the coordinates listed, each
// plane a column of the light's clip matrix taken from [-1, 1] to [0, 1]
// (q stays as it is). `from` gives the column each coordinate takes.
void eyeLinear(const T4dDblMatrix& clip, std::initializer_list<std::pair<GLenum, int>> planes) {
    for (const auto& [coordinate, column] : planes) {
        GLdouble plane[4];
        for (int r = 0; r < 4; ++r)
            plane[r] = column < 3 ? 0.5 * clip.m[r][column] + 0.5 * clip.m[r][3] : clip.m[r][3];
        glTexGeni(coordinate, GL_TEXTURE_GEN_MODE, GL_EYE_LINEAR);
        glTexGendv(coordinate, GL_EYE_PLANE, plane);
        glEnable(coordinate == GL_S   ? GL_TEXTURE_GEN_S
                 : coordinate == GL_T ? GL_TEXTURE_GEN_T
                 : coordinate == GL_R ? GL_TEXTURE_GEN_R
                                      : GL_TEXTURE_GEN_Q);
    }
}

} // namespace

void TshadowPassProcess::bindDMapTextures(const TlightInfoShadowPass& light) {
    glActiveTexture(kDepthUnit);
    glBindTexture(GL_TEXTURE_2D, light.depthTexture);
    glEnable(GL_TEXTURE_2D);
    if (fPath == kSGIXshadows) {
        // The unit compares the fragment's r with the map: 1 lit, 0 not.
        glTexParameteri(GL_TEXTURE_2D, kTextureCompareMode, GLint(kCompareRToTexture));
        glTexParameteri(GL_TEXTURE_2D, kTextureCompareFunc, GL_LEQUAL);
        glTexParameteri(GL_TEXTURE_2D, kDepthTextureMode, GL_ALPHA);
        glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_MODULATE);
    } else if (fPath == kTextureCombiners) {
        // No comparison on the card: the map's depth is read as alpha, and
        // the fragment's own depth from the light as the alpha of a ramp.
        glTexParameteri(GL_TEXTURE_2D, kDepthTextureMode, GL_ALPHA);
        glActiveTexture(kRampUnit);
        if (!fRamp) {
            std::vector<float> ramp(kRampTexels);
            for (unsigned i = 0; i < kRampTexels; ++i)
                ramp[i] = (float(i) + 0.5f) / float(kRampTexels) - kRampBias;
            glGenTextures(1, &fRamp);
            glBindTexture(GL_TEXTURE_1D, fRamp);
            glTexImage1D(GL_TEXTURE_1D, 0, GL_ALPHA16, GLsizei(kRampTexels), 0, GL_ALPHA, GL_FLOAT,
                         ramp.data());
            glTexParameteri(GL_TEXTURE_1D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
            glTexParameteri(GL_TEXTURE_1D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
            glTexParameteri(GL_TEXTURE_1D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
        }
        glBindTexture(GL_TEXTURE_1D, fRamp);
        glEnable(GL_TEXTURE_1D);
    }
    glActiveTexture(GL_TEXTURE0);
}

void TshadowPassProcess::configTexgen(const TlightInfoShadowPass& light) {
    const T4dDblMatrix clip = computeProjectionMatrix(light);
    glActiveTexture(kDepthUnit);
    glMatrixMode(GL_TEXTURE);
    glLoadIdentity();
    glMatrixMode(GL_MODELVIEW);
    eyeLinear(clip, {{GL_S, 0}, {GL_T, 1}, {GL_R, 2}, {GL_Q, 3}});
    if (fPath == kTextureCombiners) {
        // The ramp's s is the depth the map would hold for the fragment.
        glActiveTexture(kRampUnit);
        glMatrixMode(GL_TEXTURE);
        glLoadIdentity();
        glMatrixMode(GL_MODELVIEW);
        eyeLinear(clip, {{GL_S, 2}});
    }
    glActiveTexture(GL_TEXTURE0);
}

namespace {
// Makes `unit` a combiner that hands the colour so far on unchanged; the
// caller sets what it does with alpha.
void combinePassingColour(GLenum unit) {
    glActiveTexture(unit);
    glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_COMBINE);
    glTexEnvi(GL_TEXTURE_ENV, GL_COMBINE_RGB, GL_REPLACE);
    glTexEnvi(GL_TEXTURE_ENV, GL_SOURCE0_RGB, GL_PREVIOUS);
    glTexEnvi(GL_TEXTURE_ENV, GL_OPERAND0_RGB, GL_SRC_COLOR);
}
} // namespace

void TshadowPassProcess::configCombiners() {
    if (fPath != kTextureCombiners)
        return;
    // Unit 1: the colour so far, with the map's depth as alpha.
    combinePassingColour(kDepthUnit);
    glTexEnvi(GL_TEXTURE_ENV, GL_COMBINE_ALPHA, GL_REPLACE);
    glTexEnvi(GL_TEXTURE_ENV, GL_SOURCE0_ALPHA, GL_TEXTURE);
    glTexEnvi(GL_TEXTURE_ENV, GL_OPERAND0_ALPHA, GL_SRC_ALPHA);
    // Unit 2: map depth + (1 - fragment depth) - 0.5, above 0.5 exactly
    // where the map lies beyond the fragment (the polygon offset of the
    // map keeps a lit surface from shadowing itself).
    combinePassingColour(kRampUnit);
    glTexEnvi(GL_TEXTURE_ENV, GL_COMBINE_ALPHA, GL_ADD_SIGNED);
    glTexEnvi(GL_TEXTURE_ENV, GL_SOURCE0_ALPHA, GL_PREVIOUS);
    glTexEnvi(GL_TEXTURE_ENV, GL_OPERAND0_ALPHA, GL_SRC_ALPHA);
    glTexEnvi(GL_TEXTURE_ENV, GL_SOURCE1_ALPHA, GL_TEXTURE);
    glTexEnvi(GL_TEXTURE_ENV, GL_OPERAND1_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    glActiveTexture(GL_TEXTURE0);
}

void TshadowPassProcess::disableTexgen() {
    for (GLenum unit : {kDepthUnit, kRampUnit}) {
        glActiveTexture(unit);
        glDisable(GL_TEXTURE_GEN_S);
        glDisable(GL_TEXTURE_GEN_T);
        glDisable(GL_TEXTURE_GEN_R);
        glDisable(GL_TEXTURE_GEN_Q);
    }
    glActiveTexture(GL_TEXTURE0);
}

void TshadowPassProcess::disableCombiners() {
    for (GLenum unit : {kDepthUnit, kRampUnit}) {
        glActiveTexture(unit);
        glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_MODULATE);
        glDisable(GL_TEXTURE_2D);
        glDisable(GL_TEXTURE_1D);
    }
    glActiveTexture(GL_TEXTURE0);
}

void TshadowPassProcess::removeDepthMaps() {
    for (TlightInfoShadowPass& light : fLights)
        if (light.depthTexture) {
            if (fPort && !fContext.expired()) {
                if (!fPort->isCurrent())
                    fPort->makeCurrent();
                glDeleteTextures(1, &light.depthTexture);
            }
            light.depthTexture = 0;
        }
    if (fRamp) {
        if (fPort && !fContext.expired()) {
            if (!fPort->isCurrent())
                fPort->makeCurrent();
            glDeleteTextures(1, &fRamp);
        }
        fRamp = 0;
    }
}
