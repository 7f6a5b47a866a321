#include "host/draw/port.h"

#include <GL/osmesa.h>

#include <cstring>
#include <stdexcept>

float T3dPort::fsXrayAlpha = 0.3f;
unsigned T3dPort::fsMaxUserTextureSize = 4096;
T3dPort* T3dPort::fsTexturePort = nullptr;

namespace {

std::vector<std::vector<TportColor>>& colorTables() {
    // The user's table first, then the copies pushed over it.
    static std::vector<std::vector<TportColor>> tables(1);
    return tables;
}

} // namespace

std::vector<TportColor>& T3dPort::modelViewColorTable() {
    return colorTables().back();
}

T3dPort::ColorTableCopy::~ColorTableCopy() {
    if (colorTables().size() > 1)
        colorTables().pop_back();
}

std::unique_ptr<T3dPort::ColorTableCopy> T3dPort::pushCopyModelViewColorTable() {
    colorTables().push_back(colorTables().back());
    return std::unique_ptr<ColorTableCopy>(new ColorTableCopy());
}

struct T3dPort::Context {
    OSMesaContext context = nullptr;
    std::vector<uint8_t> buffer;
};

namespace {

void material(GLenum name, const TportColor& c) {
    const GLfloat v[4] = {c.r, c.g, c.b, c.a};
    glMaterialfv(GL_FRONT_AND_BACK, name, v);
}

} // namespace

T3dPort::T3dPort(unsigned width, unsigned height)
    : fContext(std::make_unique<Context>()), fToken(std::make_shared<int>(0)), fWidth(width),
      fHeight(height) {
    if (width == 0 || height == 0)
        throw std::runtime_error("a drawing port needs a size of at least 1 by 1");
    fContext->context = OSMesaCreateContextExt(OSMESA_RGBA, 24, 8, 0, nullptr);
    if (!fContext->context)
        throw std::runtime_error("cannot make an offscreen OpenGL context");
    fContext->buffer.assign(size_t(width) * height * 4, 0);
    makeCurrent();
    // Rows bottom-up, as pixel maps and GL both keep them.
    OSMesaPixelStore(OSMESA_Y_UP, 1);
    glViewport(0, 0, GLsizei(width), GLsizei(height));
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    glDisable(GL_DEPTH_TEST);
    glDepthMask(GL_TRUE);
}

T3dPort::~T3dPort() {
    fToken.reset();
    if (fsTexturePort == this)
        fsTexturePort = nullptr;
    if (fContext->context) {
        if (OSMesaGetCurrentContext() == fContext->context)
            OSMesaMakeCurrent(nullptr, nullptr, GL_UNSIGNED_BYTE, 0, 0);
        OSMesaDestroyContext(fContext->context);
    }
}

void T3dPort::makeCurrent() {
    if (!OSMesaMakeCurrent(fContext->context, fContext->buffer.data(), GL_UNSIGNED_BYTE,
                           GLsizei(fWidth), GLsizei(fHeight)))
        throw std::runtime_error("cannot make the offscreen OpenGL context current");
}

bool T3dPort::isCurrent() const {
    return OSMesaGetCurrentContext() == fContext->context;
}

bool T3dPort::hasExtension(const char* name) const {
    const char* all = reinterpret_cast<const char*>(glGetString(GL_EXTENSIONS));
    if (!all || !name || !*name)
        return false;
    for (const std::string& hidden : fHidden)
        if (hidden == name)
            return false;
    // Whole words only: GL_ARB_shadow must not match GL_ARB_shadow_ambient.
    const size_t length = std::strlen(name);
    for (const char* p = std::strstr(all, name); p; p = std::strstr(p + 1, name)) {
        const bool starts = p == all || p[-1] == ' ';
        const bool ends = p[length] == ' ' || p[length] == '\0';
        if (starts && ends)
            return true;
    }
    return false;
}

std::string T3dPort::rendererName() const {
    const char* name = reinterpret_cast<const char*>(glGetString(GL_RENDERER));
    return name ? name : "";
}

void T3dPort::setShininess(float shininess) {
    // Fixed function takes exponents up to 128.
    glMaterialf(GL_FRONT_AND_BACK, GL_SHININESS,
                shininess < 0     ? 0
                : shininess > 128 ? 128
                                  : shininess);
}

void T3dPort::setSpecularColor(const TportColor& colour) {
    material(GL_SPECULAR, colour);
}
void T3dPort::setEmissionColor(const TportColor& colour) {
    material(GL_EMISSION, colour);
}

void T3dPort::setDiffuseColor(const TportColor& colour) {
    fDiffuse = colour;
    material(GL_DIFFUSE, colour);
}

void T3dPort::setAmbientColor(const TportColor& colour) {
    fAmbient = colour;
    material(GL_AMBIENT, colour);
}

void T3dPort::setCurrentColor(const TportColor& colour) {
    fCurrent = colour;
    glColor4f(colour.r, colour.g, colour.b, colour.a);
}

void T3dPort::setAlphaBlend(bool on) {
    fBlend = on;
    if (on) {
        glEnable(GL_BLEND);
        glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    } else {
        glDisable(GL_BLEND);
    }
}

void T3dPort::setDepthWrite(bool on) {
    fDepthWrite = on;
    glDepthMask(on ? GL_TRUE : GL_FALSE);
}

void T3dPort::setDepthTest(bool on) {
    fDepthTest = on;
    if (on)
        glEnable(GL_DEPTH_TEST);
    else
        glDisable(GL_DEPTH_TEST);
}

void T3dPort::clear(const TportColor& colour) {
    glClearColor(colour.r, colour.g, colour.b, colour.a);
    glClearDepth(1.0);
    // A clear honours the depth mask: open it for the clear, then put it back.
    glDepthMask(GL_TRUE);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    glDepthMask(fDepthWrite ? GL_TRUE : GL_FALSE);
}

std::vector<uint8_t> T3dPort::readPixels() const {
    glFinish();
    std::vector<uint8_t> rows(size_t(fWidth) * fHeight * 4);
    glReadPixels(0, 0, GLsizei(fWidth), GLsizei(fHeight), GL_RGBA, GL_UNSIGNED_BYTE, rows.data());
    // GL reads bottom-up; images go top-down.
    std::vector<uint8_t> out(rows.size());
    const size_t stride = size_t(fWidth) * 4;
    for (unsigned y = 0; y < fHeight; ++y)
        std::memcpy(&out[y * stride], &rows[(fHeight - 1 - y) * stride], stride);
    return out;
}

std::vector<float> T3dPort::readDepth() const {
    glFinish();
    std::vector<float> rows(size_t(fWidth) * fHeight);
    glReadPixels(0, 0, GLsizei(fWidth), GLsizei(fHeight), GL_DEPTH_COMPONENT, GL_FLOAT,
                 rows.data());
    std::vector<float> out(rows.size());
    for (unsigned y = 0; y < fHeight; ++y)
        std::memcpy(&out[size_t(y) * fWidth], &rows[size_t(fHeight - 1 - y) * fWidth],
                    fWidth * sizeof(float));
    return out;
}
