// Depth files: a light's maps written after its depth pass and read back by
// a later render instead of rendering them again (reuseDmap).
//
// A file holds 1/z in the camera the map was rendered from, and its header
// says where that camera was; reading converts the texels into the depths
// of the map being made. Every fault of a file is a warning that names it,
// and leaves the light without that map: the render goes on.

#include <sys/wait.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <vector>

#include <fmt/format.h>

#include "host/iff/iff_image_file.h"
#include "host/messages.h"
#include "host/mmap_alloc.h"
#include "host/scene/matrix.h"
#include "lights/shadow_map.h"

namespace {

template <class... Args>
void warn(const char* id, Args&&... args) {
    TcommandEngine::displayWarning(TstringId(id).format(std::forward<Args>(args)...));
}

bool fileExists(const Tstring& path) {
    std::error_code ec;
    return !path.empty() && std::filesystem::is_regular_file(path, ec);
}

// A word for the shell: in single quotes, each quote inside written '\''.
std::string shellWord(const std::string& text) {
    std::string out = "'";
    for (const char c : text) {
        if (c == '\'')
            out += "'\\''";
        else
            out += c;
    }
    return out + "'";
}

bool sameMatrix(const T4dFltMatrix& a, const T4dFltMatrix& b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

bool isIdentity(const T4dFltMatrix& m) {
    return sameMatrix(m, T4dFltMatrix());
}

double determinant(const T4dDblMatrix& d) {
    // Along the first row, each term a 3 x 3 minor.
    auto minor = [&](int skip) {
        int c[3], k = 0;
        for (int j = 0; j < 4; ++j)
            if (j != skip)
                c[k++] = j;
        const auto& m = d.m;
        return m[1][c[0]] * (m[2][c[1]] * m[3][c[2]] - m[2][c[2]] * m[3][c[1]]) -
               m[1][c[1]] * (m[2][c[0]] * m[3][c[2]] - m[2][c[2]] * m[3][c[0]]) +
               m[1][c[2]] * (m[2][c[0]] * m[3][c[1]] - m[2][c[1]] * m[3][c[0]]);
    };
    return d.m[0][0] * minor(0) - d.m[0][1] * minor(1) + d.m[0][2] * minor(2) -
           d.m[0][3] * minor(3);
}

// The inverse, or false when the determinant is within `tolerance` of 0.
bool invert(const T4dFltMatrix& m, double tolerance, T4dDblMatrix& out) {
    const T4dDblMatrix d = T4dDblMatrix::fromFloat(m);
    if (!(std::fabs(determinant(d)) > tolerance))
        return false;
    out = d.inverse();
    return true;
}

T3dDblVector transform(const T4dDblMatrix& m, const T3dDblVector& p) {
    return m.transformPoint(p);
}

} // namespace

// ---------------------------------------------------------------- conversions

void TuseShadowMap::zbufferToIffBuffer(int width, int height, const float* in, float* out) const {
    const size_t n = size_t(width) * size_t(height);
    for (size_t i = 0; i < n; ++i) {
        if (in[i] == 0.0f)
            out[i] = 0.0f;
        else
            // Perspective: 1/(-z) in the map, 1/z in the file. Orthographic:
            // -z in the map.
            out[i] = fPerspective ? -in[i] : -1.0f / in[i];
    }
}

bool TuseShadowMap::iffBufferToZbuffer(int width, int height, const T4dFltMatrix& matrix,
                                       const T4dFltMatrix& projection, const float* in,
                                       float* out) const {
    const size_t n = size_t(width) * size_t(height);
    // A depth that the map cannot hold (behind the camera, not a number)
    // is taken for nothing seen.
    auto keep = [](double depth) {
        const float f = float(depth);
        return std::isfinite(f) && f > 0.0f ? f : 0.0f;
    };
    if (isIdentity(matrix)) {
        // The light has not moved: the depth along the view axis is the
        // file's, and no texel moves.
        for (size_t i = 0; i < n; ++i)
            out[i] =
                in[i] == 0.0f ? 0.0f : keep(fPerspective ? -double(in[i]) : -1.0 / double(in[i]));
        return true;
    }
    T4dDblMatrix back, unproject;
    if (!invert(matrix, 1e-5, back) || !invert(projection, 1e-5, unproject))
        return false;
    const double halfWidth = width * 0.5, halfHeight = height * 0.5;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const size_t i = size_t(y) * size_t(width) + size_t(x);
            const double v = in[i];
            if (v == 0.0 || !std::isfinite(v)) {
                out[i] = 0.0f;
                continue;
            }
            // The texel's point in the file's camera: its depth, and the
            // place its centre projects from.
            const double z = 1.0 / v;
            double px = double(x) / halfWidth - 1.0, py = double(y) / halfHeight - 1.0;
            if (fPerspective) {
                px *= -z;
                py *= -z;
            }
            const T3dDblVector seen = transform(unproject, {px, py, z});
            const T3dDblVector here = transform(back, {seen.x, seen.y, z});
            out[i] = keep(fPerspective ? -1.0 / here.z : -here.z);
        }
    }
    return true;
}

// ---------------------------------------------------------------- reading

int TuseShadowMap::loadFile(const Tstring& lightName, const Tstring& path, int face, bool mid,
                            int& width, int& height, float*& buffer) {
    TiffImageFile file;
    auto failed = [&](const std::string& reason) {
        if (mid) {
            warn("s_TuseShadowMapStrings.rNotLoad2ShadowMap", path, reason);
        } else {
            warn("s_TuseShadowMapStrings.rFailedOpenShadowMap", lightName, reason);
            if (buffer)
                warn("s_TuseShadowMapStrings.rNotLoadShadowMap", lightName);
        }
        return -1;
    };
    if (file.open(path, "r") != 0)
        return failed(file.errorText());
    TcommandEngine::displayInfo(TstringId("s_TuseShadowMapStrings.rReadingShadowMap").format(path));
    if (!file.hasDepth()) {
        warn("s_TuseShadowMapStrings.rZbufferShadowMap", path);
        return failed(path + ": no depth channel");
    }
    const TiffImageHeader& header = file.header();
    if (file.perspective() != fPerspective)
        return failed(fmt::format("{}: a {} map, where the light makes {} ones", path,
                                  file.perspective() ? "perspective" : "orthographic",
                                  fPerspective ? "perspective" : "orthographic"));
    const int fileWidth = int(header.width), fileHeight = int(header.height);
    if (fileWidth != width || fileHeight != height) {
        if (mid) {
            warn("s_TuseShadowMapStrings.rResolution2ShadowMap", path, fileWidth, fileHeight, width,
                 height);
            warn("s_TuseShadowMapStrings.rNotLoad2ShadowMap", path,
                 "its size differs from the first-surface map's");
            return -1;
        }
        if (fRendered[face])
            warn("s_TuseShadowMapStrings.rResolutionShadowMap", path, fileWidth, fileHeight, width,
                 height);
        warn("s_TuseShadowMapStrings.rReuseShadowMap", path, fileWidth, fileHeight, width, height);
        width = fileWidth;
        height = fileHeight;
        mmapFree(buffer);
        buffer = nullptr;
    }
    const size_t bytes = file.texelCount() * sizeof(float);
    float* target =
        buffer ? buffer
               : static_cast<float*>(mmapAlloc(bytes, mid ? "Mid Dist Map" : "loaded depth map"));
    auto* scratch = static_cast<float*>(mmapAlloc(bytes, mid ? "IFF map" : "loaded iff depth map"));
    auto release = [&] {
        mmapFree(scratch);
        if (target != buffer)
            mmapFree(target);
    };
    if (!target || !scratch) {
        release();
        return failed(path + ": not enough memory to read it");
    }
    if (file.readDepth(scratch) != 0) {
        const std::string reason = file.errorText();
        release();
        return failed(reason);
    }
    ++fLoadedMaps;
    // This face's view in the file camera's terms: the identity when the
    // light is where it was.
    T4dFltMatrix toFile;
    if (!sameMatrix(header.worldToCamera, fMatrices[face])) {
        T4dDblMatrix fromView;
        if (invert(fMatrices[face], 1e-5, fromView))
            toFile = (fromView * T4dDblMatrix::fromFloat(header.worldToCamera)).asFloat();
    }
    if (!iffBufferToZbuffer(fileWidth, fileHeight, toFile, header.projection, scratch, target)) {
        release();
        return failed(path + ": its camera cannot be inverted");
    }
    mmapFree(scratch);
    buffer = target;
    return 1;
}

int TuseShadowMap::readZmap(int face, bool single, const Tstring& lightName,
                            const Tstring& readCallback, const TdepthMapFiles& files,
                            int wantedWidth, int wantedHeight) {
    if (face < 0 || face >= kMaxFaces)
        return -1;
    const int slot = single ? 0 : face + 1;
    const Tstring& mapName = files.maps[slot];
    const Tstring& midName = files.mids[slot];

    // A callback may fetch or make the files first.
    if (!readCallback.empty()) {
        if (!fileExists(readCallback)) {
            warn("s_TuseShadowMapStrings.rNotFindShadowMap", readCallback, lightName);
        } else {
            warn("s_TuseShadowMapStrings.rCallbackShadowMap", readCallback, lightName);
            const std::string command = fmt::format(
                "{} mapname={} middistmapname={} lightname={} pathname={} curranimextname={} "
                "readanimextname={} lastdumpanimextname={} {}",
                shellWord(readCallback), shellWord(mapName), shellWord(midName),
                shellWord(lightName), shellWord(files.directory), shellWord(files.currentExtension),
                shellWord(files.readExtension), shellWord(files.lastWrittenExtension), face);
            const int status = std::system(command.c_str());
            if (status != 0) {
                const int code = status > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : status;
                TcommandEngine::displayError(
                    TstringId("s_TuseShadowMapStrings.rCallbackShadowMapFail")
                        .format(readCallback, lightName, code));
                return -1;
            }
        }
    }

    if (!fileExists(mapName))
        return 0;
    const bool midWanted = fUseMidDistance && fileExists(midName);

    int width = fDepthBuffers[face] ? fWidths[face] : wantedWidth;
    int height = fDepthBuffers[face] ? fHeights[face] : wantedHeight;
    if (loadFile(lightName, mapName, face, false, width, height, fDepthBuffers[face]) < 0)
        return -1;
    fWidths[face] = width;
    fHeights[face] = height;
    // The second surfaces come with it, or not at all: a map rendered this
    // frame may have its own, which a file's first surfaces do not match.
    mmapFree(fMidBuffers[face]);
    fMidBuffers[face] = nullptr;
    if (midWanted) {
        int midWidth = width, midHeight = height;
        loadFile(lightName, midName, face, true, midWidth, midHeight, fMidBuffers[face]);
    }
    return 1;
}

// ---------------------------------------------------------------- writing

int TuseShadowMap::writeZmap(int face, const Tstring& mapName, const Tstring& midName) const {
    if (face < 0 || face >= kMaxFaces || !fDepthBuffers[face])
        return -1;
    const int width = fWidths[face], height = fHeights[face];
    TiffImageHeader header;
    header.width = uint32_t(width);
    header.height = uint32_t(height);
    header.channels = TiffImageFile::kDepthChannel;
    header.flags = fPerspective ? TiffImageFile::kPerspective : 0u;
    header.face = fCubeFlag ? face : -1;
    header.worldToCamera = fMatrices[face];
    header.projection = fProjections[face];
    auto* values = static_cast<float*>(
        mmapAlloc(size_t(width) * size_t(height) * sizeof(float), "depth map file"));
    if (!values)
        return -1;
    int status = 0;
    auto writeOne = [&](const Tstring& path, const float* buffer) {
        zbufferToIffBuffer(width, height, buffer, values);
        std::string error;
        if (TiffImageFile::write(path, header, values, nullptr, error) != 0) {
            warn("s_TuseShadowMapStrings.rWriteShadowMap", error);
            status = -1;
        }
    };
    writeOne(mapName, fDepthBuffers[face]);
    if (fMidBuffers[face] && !midName.empty())
        writeOne(midName, fMidBuffers[face]);
    mmapFree(values);
    return status;
}
