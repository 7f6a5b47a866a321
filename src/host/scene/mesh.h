#pragma once

// The polygon mesh shape. It builds one TmeshData from the first source
// that it is given, in this order:
//   1. fileName: a Wavefront OBJ file, relative to the scene's folder;
//   2. primitive: a generated sphere, plane or box, sized by radius, width,
//      height and depth, with segmentsU by segmentsV cells;
//   3. points, faceCounts, faceIndices (and optionally uvs, uvIndices):
//      polygons written in the scene file, as whole arrays of numbers.
// The result is the computed `outMesh`, with its bounds and triangle count.

#include <memory>
#include <string>
#include <vector>

#include "host/scene/mesh_data.h"
#include "host/scene/shape.h"

// Whole arrays of numbers as one attribute value: `set m.points 0 0 0 1 0 0`
// sets six numbers. An empty value reads as no numbers.
template <class V>
class TdataNumberArray : public TdataLetter {
public:
    explicit TdataNumberArray(std::vector<V> values = {}) : fValues(std::move(values)) {}
    static Tmetaclass* sTypeof();
    Tmetaclass* metaclass() const override { return sTypeof(); }
    TdataLetter* clone() const override { return new TdataNumberArray(fValues); }
    std::string text() const override;
    bool equals(const TdataLetter& other) const override;
    const std::vector<V>& values() const { return fValues; }

private:
    std::vector<V> fValues;
};
using TdataFloatArray = TdataNumberArray<float>;
using TdataIntArray = TdataNumberArray<int32_t>;

template <class V>
class TattributeNumberArray : public TattributeTyped {
public:
    TattributeNumberArray(Tstring longName, Tstring shortName)
        : TattributeTyped(std::move(longName), std::move(shortName),
                          TdataNumberArray<V>::sTypeof()) {}
    const char* className() const override { return "TattributeNumberArray"; }
    void formatValue(const void* value, std::vector<std::string>& words) const override;
    std::string parseValue(const std::vector<std::string>& words, void* where) const override;
    int wordCount() const override { return -1; }
    // The numbers a value holds (none for an empty value).
    static const std::vector<V>& valuesOf(const Tdata& data);
};
using TattributeFloatArray = TattributeNumberArray<float>;
using TattributeIntArray = TattributeNumberArray<int32_t>;

// A built mesh as the value of `outMesh`.
class TdataMesh : public TdataLetter {
public:
    explicit TdataMesh(std::shared_ptr<const TmeshData> mesh) : fMesh(std::move(mesh)) {}
    static Tmetaclass* sTypeof();
    Tmetaclass* metaclass() const override { return sTypeof(); }
    TdataLetter* clone() const override { return new TdataMesh(fMesh); }
    std::string text() const override;
    bool equals(const TdataLetter& other) const override;
    const std::shared_ptr<const TmeshData>& mesh() const { return fMesh; }

private:
    std::shared_ptr<const TmeshData> fMesh;
};

#define ORVO_SCHEMA_Tmesh(A, C2, C3)                                                               \
    A(TattributeTyped, FileName, "fileName", "fn", .input())                                       \
    A(TattributeEnum, Primitive, "primitive", "prim",                                              \
      .input()                                                                                     \
          .ORVO_FIELD(kNone, "none")                                                               \
          .ORVO_FIELD(kSphere, "sphere")                                                           \
          .ORVO_FIELD(kPlane, "plane")                                                             \
          .ORVO_FIELD(kBox, "box")                                                                 \
          .setNativeDefaultData(0))                                                                \
    A(TattributeFloat, Radius, "radius", "rad",                                                    \
      .input().setNativeDefaultData(1.0f).range(0, 1e30))                                          \
    A(TattributeFloat, Width, "width", "w", .input().setNativeDefaultData(1.0f).range(0, 1e30))    \
    A(TattributeFloat, Height, "height", "h", .input().setNativeDefaultData(1.0f).range(0, 1e30))  \
    A(TattributeFloat, Depth, "depth", "d", .input().setNativeDefaultData(1.0f).range(0, 1e30))    \
    A(TattributeInt32, SegmentsU, "segmentsU", "sgu",                                              \
      .input().setNativeDefaultData(20).range(1, 1024))                                            \
    A(TattributeInt32, SegmentsV, "segmentsV", "sgv",                                              \
      .input().setNativeDefaultData(10).range(1, 1024))                                            \
    A(TattributeFloatArray, Points, "points", "pnts", .input())                                    \
    A(TattributeFloatArray, Uvs, "uvs", "uvs", .input())                                           \
    A(TattributeIntArray, FaceCounts, "faceCounts", "fc", .input())                                \
    A(TattributeIntArray, FaceIndices, "faceIndices", "fi", .input())                              \
    A(TattributeIntArray, UvIndices, "uvIndices", "uvi", .input())                                 \
    A(TattributeTyped, OutMesh, "outMesh", "out", .output())                                       \
    C3(Tattribute3Float, BoundingBoxMin, "boundingBoxMin", "bmn", ORVO_XYZ, .output(), .output())  \
    C3(Tattribute3Float, BoundingBoxMax, "boundingBoxMax", "bmx", ORVO_XYZ, .output(), .output())  \
    A(TattributeInt32, TriangleCount, "triangleCount", "tc", .output())

class Tmesh;
template <>
struct TdnKernel<Tmesh> {
    enum : int16_t { kNone = 0, kSphere = 1, kPlane = 2, kBox = 3 };
};

ORVO_NODE(Tmesh, Tshape, "mesh", "MESH", 2106, "kMesh", "host/dag/shape/mesh", "n_mesh")

class Tmesh : public TdnPattern<Tmesh, Tshape> {
public:
    // The built mesh; empty when the mesh has no source or its source is
    // bad (lastError() then says why).
    std::shared_ptr<const TmeshData> mesh();
    const std::string& lastError() const { return fLastError; }
    // The OBJ file the mesh reads, resolved against the scene's folder;
    // empty without one.
    std::string resolvedFileName() const;

    bool isRenderableGeometry() const override { return true; }
    bool boundingBox(T3Float& min, T3Float& max) const override;
    void checkInputs() override;

    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                           unsigned count) override;

private:
    // Builds from the block's inputs; throws TmeshError.
    TmeshData build(TdataBlock& block) const;

    std::string fLastError;
};
