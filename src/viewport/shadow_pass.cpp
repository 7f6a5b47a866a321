#include "viewport/shadow_pass.h"

#include <algorithm>
#include <cmath>

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
        if (fContext.expired())
            light.depthTexture = 0;
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
}
