#include "host/scene/mesh_data.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <sstream>
#include <unordered_map>

#include <fmt/format.h>
#include <tiny_obj_loader.h>

#include "host/scene/matrix.h"

namespace {

T3Float normalised(const T3Float& v, const T3Float& fallback) {
    const float length = OrvoLength(v);
    return length > 1e-20f && std::isfinite(length) ? v * (1.0f / length) : fallback;
}

// Any unit vector at right angles to the unit vector n.
T3Float perpendicular(const T3Float& n) {
    const T3Float axis = std::abs(n.x) < 0.9f ? T3Float{1, 0, 0} : T3Float{0, 1, 0};
    return normalised(axis - n * OrvoDot(n, axis), {0, 0, 1});
}

struct CornerKey {
    int64_t point, normal, uv;
    friend bool operator==(const CornerKey&, const CornerKey&) = default;
};
struct CornerHash {
    size_t operator()(const CornerKey& k) const {
        size_t h = std::hash<int64_t>()(k.point);
        h = h * 1000003u ^ std::hash<int64_t>()(k.normal);
        return h * 1000003u ^ std::hash<int64_t>()(k.uv);
    }
};

void checkIndices(const std::vector<int64_t>& indices, size_t available, const char* kind,
                  const TpolygonSoup& soup, const std::string& what) {
    size_t corner = 0;
    for (size_t face = 0; face < soup.faceCounts.size(); ++face)
        for (uint32_t c = 0; c < soup.faceCounts[face]; ++c, ++corner)
            if (indices[corner] < 0 || uint64_t(indices[corner]) >= available)
                throw TmeshError(fmt::format("{}: face {} refers to {} {}, but there are {}", what,
                                             face + size_t(soup.indexBase), kind,
                                             indices[corner] + soup.indexBase, available));
}

} // namespace

TmeshData OrvoBuildMesh(const TpolygonSoup& soup, const std::string& what) {
    size_t corners = 0;
    for (size_t face = 0; face < soup.faceCounts.size(); ++face) {
        if (soup.faceCounts[face] < 3)
            throw TmeshError(fmt::format("{}: face {} has {} corners; a face needs at least 3",
                                         what, face + size_t(soup.indexBase),
                                         soup.faceCounts[face]));
        corners += soup.faceCounts[face];
    }
    if (corners != soup.pointIndices.size())
        throw TmeshError(fmt::format("{}: the faces have {} corners but {} point indices are given",
                                     what, corners, soup.pointIndices.size()));
    const bool hasNormals = !soup.normalIndices.empty();
    const bool hasUvs = !soup.uvIndices.empty();
    if (hasNormals && soup.normalIndices.size() != corners)
        throw TmeshError(fmt::format("{}: {} normal indices for {} corners", what,
                                     soup.normalIndices.size(), corners));
    if (hasUvs && soup.uvIndices.size() != corners)
        throw TmeshError(
            fmt::format("{}: {} UV indices for {} corners", what, soup.uvIndices.size(), corners));
    checkIndices(soup.pointIndices, soup.points.size(), "point", soup, what);
    if (hasNormals)
        checkIndices(soup.normalIndices, soup.normals.size(), "normal", soup, what);
    if (hasUvs)
        checkIndices(soup.uvIndices, soup.uvs.size(), "UV", soup, what);
    for (const T3Float& p : soup.points)
        if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z))
            throw TmeshError(fmt::format("{}: a point is not a finite number", what));

    // Smooth normals per point, each face weighted by its area (the cross
    // product of a fan triangle is twice its area).
    std::vector<T3Float> pointNormals(soup.points.size());
    for (size_t face = 0, first = 0; face < soup.faceCounts.size();
         first += soup.faceCounts[face], ++face)
        for (uint32_t c = 1; c + 1 < soup.faceCounts[face]; ++c) {
            const size_t i0 = size_t(soup.pointIndices[first]);
            const size_t i1 = size_t(soup.pointIndices[first + c]);
            const size_t i2 = size_t(soup.pointIndices[first + c + 1]);
            const T3Float n =
                OrvoCross(soup.points[i1] - soup.points[i0], soup.points[i2] - soup.points[i0]);
            for (size_t i : {i0, i1, i2})
                pointNormals[i] = pointNormals[i] + n;
        }
    for (T3Float& n : pointNormals)
        n = normalised(n, {0, 0, 1});

    // Without UVs, project on the two widest axes of the points' bounds.
    T3Float lo{0, 0, 0}, hi{0, 0, 0};
    if (!soup.points.empty()) {
        lo = hi = soup.points.front();
        for (const T3Float& p : soup.points)
            for (int k = 0; k < 3; ++k) {
                lo[k] = std::min(lo[k], p[k]);
                hi[k] = std::max(hi[k], p[k]);
            }
    }
    int axes[3] = {0, 1, 2};
    std::stable_sort(axes, axes + 3, [&](int a, int b) { return hi[a] - lo[a] > hi[b] - lo[b]; });
    const int uAxis = std::min(axes[0], axes[1]), vAxis = std::max(axes[0], axes[1]);
    auto projected = [&](const T3Float& p) {
        const float du = hi[uAxis] - lo[uAxis], dv = hi[vAxis] - lo[vAxis];
        return T2Float{du > 0 ? (p[uAxis] - lo[uAxis]) / du : 0.0f,
                       dv > 0 ? (p[vAxis] - lo[vAxis]) / dv : 0.0f};
    };

    // Weld corners into vertices.
    TmeshData mesh;
    std::unordered_map<CornerKey, uint32_t, CornerHash> welded;
    std::vector<uint32_t> cornerVertex(corners);
    for (size_t c = 0; c < corners; ++c) {
        const CornerKey key{soup.pointIndices[c], hasNormals ? soup.normalIndices[c] : -1,
                            hasUvs ? soup.uvIndices[c] : -1};
        const auto [it, added] = welded.try_emplace(key, uint32_t(mesh.positions.size()));
        cornerVertex[c] = it->second;
        if (!added)
            continue;
        const T3Float& p = soup.points[size_t(key.point)];
        const T3Float& smooth = pointNormals[size_t(key.point)];
        mesh.positions.push_back(p);
        mesh.normals.push_back(hasNormals ? normalised(soup.normals[size_t(key.normal)], smooth)
                                          : smooth);
        mesh.uvs.push_back(hasUvs ? soup.uvs[size_t(key.uv)] : projected(p));
    }
    for (size_t face = 0, first = 0; face < soup.faceCounts.size();
         first += soup.faceCounts[face], ++face)
        for (uint32_t c = 1; c + 1 < soup.faceCounts[face]; ++c) {
            mesh.indices.push_back(cornerVertex[first]);
            mesh.indices.push_back(cornerVertex[first + c]);
            mesh.indices.push_back(cornerVertex[first + c + 1]);
        }

    // Tangents: per triangle, the directions in which u and v grow, summed
    // per vertex, then made orthogonal to the normal.
    const size_t n = mesh.positions.size();
    std::vector<T3Float> du(n), dv(n);
    for (size_t t = 0; t + 2 < mesh.indices.size(); t += 3) {
        const uint32_t a = mesh.indices[t], b = mesh.indices[t + 1], c = mesh.indices[t + 2];
        const T3Float e1 = mesh.positions[b] - mesh.positions[a];
        const T3Float e2 = mesh.positions[c] - mesh.positions[a];
        const float u1 = mesh.uvs[b].x - mesh.uvs[a].x, v1 = mesh.uvs[b].y - mesh.uvs[a].y;
        const float u2 = mesh.uvs[c].x - mesh.uvs[a].x, v2 = mesh.uvs[c].y - mesh.uvs[a].y;
        const float det = u1 * v2 - u2 * v1;
        if (std::abs(det) < 1e-20f)
            continue;
        const T3Float tu = (e1 * v2 - e2 * v1) * (1.0f / det);
        const T3Float tv = (e2 * u1 - e1 * u2) * (1.0f / det);
        for (uint32_t i : {a, b, c}) {
            du[i] = du[i] + tu;
            dv[i] = dv[i] + tv;
        }
    }
    mesh.tangentsU.resize(n);
    mesh.tangentsV.resize(n);
    for (size_t i = 0; i < n; ++i) {
        const T3Float& nn = mesh.normals[i];
        const T3Float t = normalised(du[i] - nn * OrvoDot(nn, du[i]), perpendicular(nn));
        T3Float b = OrvoCross(nn, t);
        if (OrvoDot(b, dv[i]) < 0.0f)
            b = b * -1.0f;
        mesh.tangentsU[i] = t;
        mesh.tangentsV[i] = b;
    }

    if (!mesh.positions.empty()) {
        mesh.boundsMin = mesh.boundsMax = mesh.positions.front();
        for (const T3Float& p : mesh.positions)
            for (int k = 0; k < 3; ++k) {
                mesh.boundsMin[k] = std::min(mesh.boundsMin[k], p[k]);
                mesh.boundsMax[k] = std::max(mesh.boundsMax[k], p[k]);
            }
    }
    return mesh;
}

// ---------------------------------------------------------------- OBJ

namespace {

std::string oneLine(const std::string& text) {
    std::string out;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        if (!line.empty())
            out += (out.empty() ? "" : "; ") + line;
    return out;
}

TpolygonSoup soupFromReader(const tinyobj::ObjReader& reader, const std::string& name) {
    if (!reader.Valid())
        throw TmeshError(
            fmt::format("cannot read OBJ file '{}': {}", name,
                        oneLine(reader.Error().empty() ? "unreadable" : reader.Error())));
    const tinyobj::attrib_t& attrib = reader.GetAttrib();
    TpolygonSoup soup;
    soup.indexBase = 1;
    for (size_t i = 0; i + 2 < attrib.vertices.size(); i += 3)
        soup.points.push_back({attrib.vertices[i], attrib.vertices[i + 1], attrib.vertices[i + 2]});
    for (size_t i = 0; i + 2 < attrib.normals.size(); i += 3)
        soup.normals.push_back({attrib.normals[i], attrib.normals[i + 1], attrib.normals[i + 2]});
    for (size_t i = 0; i + 1 < attrib.texcoords.size(); i += 2)
        soup.uvs.push_back({attrib.texcoords[i], attrib.texcoords[i + 1]});
    bool allNormals = true, allUvs = true;
    for (const tinyobj::shape_t& shape : reader.GetShapes()) {
        size_t corner = 0;
        for (const unsigned int count : shape.mesh.num_face_vertices) {
            if (corner + count > shape.mesh.indices.size())
                throw TmeshError(fmt::format("OBJ file '{}': a face runs past its indices", name));
            soup.faceCounts.push_back(count);
            for (unsigned int c = 0; c < count; ++c, ++corner) {
                const tinyobj::index_t& index = shape.mesh.indices[corner];
                soup.pointIndices.push_back(index.vertex_index);
                soup.normalIndices.push_back(index.normal_index);
                soup.uvIndices.push_back(index.texcoord_index);
                allNormals = allNormals && index.normal_index >= 0;
                allUvs = allUvs && index.texcoord_index >= 0;
            }
        }
    }
    if (soup.faceCounts.empty())
        throw TmeshError(fmt::format("OBJ file '{}' has no faces", name));
    // A file that gives normals or UVs to some corners only gets them made
    // for all, which keeps the mesh consistent.
    if (!allNormals)
        soup.normalIndices.clear();
    if (!allUvs)
        soup.uvIndices.clear();
    return soup;
}

tinyobj::ObjReaderConfig readerConfig() {
    tinyobj::ObjReaderConfig config;
    config.triangulate = false; // faces are fanned the same way for every source
    config.vertex_color = false;
    return config;
}

} // namespace

TpolygonSoup OrvoReadObjFile(const std::string& path) {
    tinyobj::ObjReader reader;
    reader.ParseFromFile(path, readerConfig());
    return soupFromReader(reader, path);
}

TpolygonSoup OrvoReadObjText(const std::string& text, const std::string& name) {
    tinyobj::ObjReader reader;
    reader.ParseFromString(text, std::string(), readerConfig());
    return soupFromReader(reader, name);
}

// ---------------------------------------------------------------- primitives

namespace {

// A (segmentsU + 1) by (segmentsV + 1) grid of points, each with its own
// normal and UV, whose cells become quads (or triangles where `keep` drops
// a corner that repeats another, as at a sphere's poles).
struct Grid {
    TpolygonSoup soup;
    int64_t first = 0;

    template <class PointFn, class NormalFn>
    void add(int su, int sv, PointFn point, NormalFn normal, bool poles = false) {
        first = int64_t(soup.points.size());
        for (int i = 0; i <= sv; ++i)
            for (int j = 0; j <= su; ++j) {
                const float u = float(j) / float(su), v = float(i) / float(sv);
                soup.points.push_back(point(u, v));
                soup.normals.push_back(normal(u, v));
                soup.uvs.push_back({u, v});
            }
        auto at = [&](int i, int j) {
            return first + int64_t(i) * (su + 1) + j;
        };
        for (int i = 0; i < sv; ++i)
            for (int j = 0; j < su; ++j) {
                std::vector<int64_t> corners = {at(i, j), at(i, j + 1), at(i + 1, j + 1),
                                                at(i + 1, j)};
                if (poles && i == 0)
                    corners.erase(corners.begin() + 1); // the bottom pole once
                else if (poles && i == sv - 1)
                    corners.erase(corners.begin() + 3); // the top pole once
                soup.faceCounts.push_back(uint32_t(corners.size()));
                for (int64_t c : corners) {
                    soup.pointIndices.push_back(c);
                    soup.normalIndices.push_back(c);
                    soup.uvIndices.push_back(c);
                }
            }
    }
};

} // namespace

TmeshData OrvoMakeSphere(float radius, int segmentsU, int segmentsV) {
    const int su = std::max(segmentsU, 3), sv = std::max(segmentsV, 2);
    constexpr float kPi = std::numbers::pi_v<float>;
    // u turns about +Y so that +u, +v and the outward normal are right-handed.
    auto normal = [&](float u, float v) {
        const float theta = kPi * v, phi = 2.0f * kPi * u;
        return T3Float{std::sin(theta) * std::cos(phi), -std::cos(theta),
                       -std::sin(theta) * std::sin(phi)};
    };
    Grid grid;
    grid.add(
        su, sv, [&](float u, float v) { return normal(u, v) * radius; }, normal, true);
    return OrvoBuildMesh(grid.soup, "sphere");
}

TmeshData OrvoMakePlane(float width, float depth, int segmentsU, int segmentsV) {
    const int su = std::max(segmentsU, 1), sv = std::max(segmentsV, 1);
    Grid grid;
    grid.add(
        su, sv,
        [&](float u, float v) {
            return T3Float{(u - 0.5f) * width, 0.0f, (0.5f - v) * depth};
        },
        [](float, float) {
            return T3Float{0, 1, 0};
        });
    return OrvoBuildMesh(grid.soup, "plane");
}

TmeshData OrvoMakeBox(float width, float height, float depth, int segmentsU, int segmentsV) {
    const int su = std::max(segmentsU, 1), sv = std::max(segmentsV, 1);
    const float hx = width / 2, hy = height / 2, hz = depth / 2;
    struct Face {
        T3Float origin, u, v, normal;
    };
    // Each face's u and v cross to its outward normal.
    const Face faces[6] = {
        {{hx, -hy, hz}, {0, 0, -2 * hz}, {0, 2 * hy, 0}, {1, 0, 0}},
        {{-hx, -hy, -hz}, {0, 0, 2 * hz}, {0, 2 * hy, 0}, {-1, 0, 0}},
        {{-hx, hy, hz}, {2 * hx, 0, 0}, {0, 0, -2 * hz}, {0, 1, 0}},
        {{-hx, -hy, -hz}, {2 * hx, 0, 0}, {0, 0, 2 * hz}, {0, -1, 0}},
        {{-hx, -hy, hz}, {2 * hx, 0, 0}, {0, 2 * hy, 0}, {0, 0, 1}},
        {{hx, -hy, -hz}, {-2 * hx, 0, 0}, {0, 2 * hy, 0}, {0, 0, -1}},
    };
    Grid grid;
    for (const Face& f : faces)
        grid.add(
            su, sv, [&](float u, float v) { return f.origin + f.u * u + f.v * v; },
            [&](float, float) { return f.normal; });
    return OrvoBuildMesh(grid.soup, "box");
}
