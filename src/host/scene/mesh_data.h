#pragma once

// Triangle meshes as a ray tracer consumes them, and the three ways the
// scene makes them: Wavefront OBJ files, generated primitives, and polygon
// arrays written in a scene file.

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/types.h"

// Flat, welded, triangulated arrays: one entry per vertex in each array
// (a vertex is a distinct point, normal and UV), three indices a triangle,
// wound counter-clockwise seen from the side the normals face.
struct TmeshData {
    std::vector<T3Float> positions;
    std::vector<T3Float> normals; // unit
    std::vector<T2Float> uvs;
    std::vector<T3Float> tangentsU; // unit, orthogonal to the normal, along +u
    std::vector<T3Float> tangentsV; // unit, orthogonal to both, towards +v
    std::vector<uint32_t> indices;
    T3Float boundsMin, boundsMax; // zero for an empty mesh

    size_t vertexCount() const { return positions.size(); }
    size_t triangleCount() const { return indices.size() / 3; }
    bool empty() const { return indices.empty(); }
};

// A mesh that cannot be built; the message says why and where.
class TmeshError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Polygons with separate index streams, as OBJ files and scene arrays give
// them. normalIndices and uvIndices are either empty (no normals, no UVs)
// or parallel to pointIndices.
struct TpolygonSoup {
    std::vector<T3Float> points;
    std::vector<T3Float> normals;
    std::vector<T2Float> uvs;
    std::vector<uint32_t> faceCounts; // corners of each face
    std::vector<int64_t> pointIndices;
    std::vector<int64_t> normalIndices;
    std::vector<int64_t> uvIndices;
    // How messages count faces and indices: OBJ files count from 1.
    int indexBase = 0;
};

// Checks the indices, triangulates each face as a fan from its first
// corner, welds, and fills in what the soup lacks: smooth normals weighted
// by face area, UVs projected on the two widest axes of the bounds, and
// tangents from the UVs. Throws TmeshError for a face with fewer than three
// corners or an index out of range; `what` names the source in messages.
TmeshData OrvoBuildMesh(const TpolygonSoup& soup, const std::string& what);

// Reads a Wavefront OBJ file (all its objects as one mesh). Throws
// TmeshError naming the file for a file that cannot be read, a parse error
// or a face with a bad index, and for a file without faces.
TpolygonSoup OrvoReadObjFile(const std::string& path);
// The same from text in memory; `name` stands for the file in messages.
TpolygonSoup OrvoReadObjText(const std::string& text, const std::string& name);

// Primitives centred on the origin. A sphere has segmentsU around its Y
// axis and segmentsV from pole (v = 0 at -Y) to pole; a plane lies in XZ
// facing +Y with u along +X and v along -Z; a box has a segmentsU by
// segmentsV grid on each face. Counts below 1 count as 1.
TmeshData OrvoMakeSphere(float radius, int segmentsU, int segmentsV);
TmeshData OrvoMakePlane(float width, float depth, int segmentsU, int segmentsV);
TmeshData OrvoMakeBox(float width, float height, float depth, int segmentsU, int segmentsV);
