#include "host/scene/mesh.h"

#include <filesystem>

#include <fmt/format.h>

#include "host/env.h"
#include "host/scene/render_layer.h"

ORVO_REGISTER_NODE(Tmesh)
ORVO_DEPENDENCIES(Tmesh) {
    Tattribute* inputs[] = {&FileName,   &Primitive,   &Radius,    &Width,  &Height,
                            &Depth,      &SegmentsU,   &SegmentsV, &Points, &Uvs,
                            &FaceCounts, &FaceIndices, &UvIndices};
    for (Tattribute* input : inputs) {
        affects(m, *input, OutMesh);
        affectsAll(m, *input, BoundingBoxMin);
        affectsAll(m, *input, BoundingBoxMax);
        affects(m, *input, TriangleCount);
    }
}

// ---------------------------------------------------------------- number arrays

template <>
Tmetaclass* TdataNumberArray<float>::sTypeof() {
    static Tmetaclass meta(nullptr, "floatArray", sizeof(TdataNumberArray<float>), nullptr, 0, 0);
    return &meta;
}

template <>
Tmetaclass* TdataNumberArray<int32_t>::sTypeof() {
    static Tmetaclass meta(nullptr, "intArray", sizeof(TdataNumberArray<int32_t>), nullptr, 0, 0);
    return &meta;
}

template <class V>
std::string TdataNumberArray<V>::text() const {
    std::string out;
    for (const V v : fValues) {
        if (!out.empty())
            out.push_back(' ');
        if constexpr (std::is_same_v<V, float>)
            out += OrvoFormatFloat(v);
        else
            out += std::to_string(v);
    }
    return out;
}

template <class V>
bool TdataNumberArray<V>::equals(const TdataLetter& other) const {
    const auto* o = dynamic_cast<const TdataNumberArray*>(&other);
    return o && o->fValues == fValues;
}

template <class V>
const std::vector<V>& TattributeNumberArray<V>::valuesOf(const Tdata& data) {
    static const std::vector<V> kNone;
    const auto* letter = dynamic_cast<const TdataNumberArray<V>*>(data.privateDataStar());
    return letter ? letter->values() : kNone;
}

template <class V>
void TattributeNumberArray<V>::formatValue(const void* value,
                                           std::vector<std::string>& words) const {
    for (const V v : valuesOf(*static_cast<const Tdata*>(value))) {
        if constexpr (std::is_same_v<V, float>)
            words.push_back(OrvoFormatFloat(v));
        else
            words.push_back(std::to_string(v));
    }
}

template <class V>
std::string TattributeNumberArray<V>::parseValue(const std::vector<std::string>& words,
                                                 void* where) const {
    std::vector<V> values;
    values.reserve(words.size());
    for (size_t i = 0; i < words.size(); ++i) {
        if constexpr (std::is_same_v<V, float>) {
            const auto d = OrvoParseDouble(words[i]);
            if (!d || !std::isfinite(*d) || std::abs(*d) > 3.4e38)
                return fmt::format("number {} ('{}') is not a finite number", i, words[i]);
            values.push_back(float(*d));
        } else {
            const auto n = OrvoParseInteger(words[i]);
            if (!n || *n < INT32_MIN || *n > INT32_MAX)
                return fmt::format("number {} ('{}') is not a whole number", i, words[i]);
            values.push_back(int32_t(*n));
        }
    }
    *static_cast<Tdata*>(where) =
        values.empty() ? Tdata() : Tdata(new TdataNumberArray<V>(std::move(values)));
    return {};
}

template class TdataNumberArray<float>;
template class TdataNumberArray<int32_t>;
template class TattributeNumberArray<float>;
template class TattributeNumberArray<int32_t>;

// ---------------------------------------------------------------- mesh value

Tmetaclass* TdataMesh::sTypeof() {
    static Tmetaclass meta(nullptr, "mesh", sizeof(TdataMesh), nullptr, 0, 0);
    return &meta;
}

std::string TdataMesh::text() const {
    return fMesh ? fmt::format("\"{} vertices, {} triangles\"", fMesh->vertexCount(),
                               fMesh->triangleCount())
                 : std::string("\"empty\"");
}

bool TdataMesh::equals(const TdataLetter& other) const {
    const auto* o = dynamic_cast<const TdataMesh*>(&other);
    return o && o->fMesh == fMesh;
}

// ---------------------------------------------------------------- mesh

std::string Tmesh::resolvedFileName() const {
    const TplugValue value = TdnRenderLayer::readValue(Tplug(this, &aFileName), nullptr);
    const Tstring* text = OrvoStringOf(*static_cast<const Tdata*>(value.address()));
    if (!text || text->empty())
        return {};
    std::filesystem::path path(*text);
    if (path.is_relative() && !sceneFolder().empty())
        path = std::filesystem::path(sceneFolder()) / path;
    return path.lexically_normal().string();
}

TmeshData Tmesh::build(TdataBlock& block) const {
    const std::string file = resolvedFileName();
    if (!file.empty())
        return OrvoBuildMesh(OrvoReadObjFile(file), fmt::format("OBJ file '{}'", file));
    const int su = block.inputValue(aSegmentsU).asInt();
    const int sv = block.inputValue(aSegmentsV).asInt();
    switch (block.inputValue(aPrimitive).asShort()) {
    case kSphere:
        return OrvoMakeSphere(block.inputValue(aRadius).asFloat(), su, sv);
    case kPlane:
        return OrvoMakePlane(block.inputValue(aWidth).asFloat(), block.inputValue(aDepth).asFloat(),
                             su, sv);
    case kBox:
        return OrvoMakeBox(block.inputValue(aWidth).asFloat(), block.inputValue(aHeight).asFloat(),
                           block.inputValue(aDepth).asFloat(), su, sv);
    default:
        break;
    }
    const auto& points = TattributeFloatArray::valuesOf(block.inputValue(aPoints).as<Tdata>());
    const auto& uvs = TattributeFloatArray::valuesOf(block.inputValue(aUvs).as<Tdata>());
    const auto& counts = TattributeIntArray::valuesOf(block.inputValue(aFaceCounts).as<Tdata>());
    const auto& indices = TattributeIntArray::valuesOf(block.inputValue(aFaceIndices).as<Tdata>());
    const auto& uvIndices = TattributeIntArray::valuesOf(block.inputValue(aUvIndices).as<Tdata>());
    if (points.empty() && counts.empty() && indices.empty())
        return {}; // no source at all: an empty mesh, which is no error
    const std::string what = "the scene arrays";
    if (points.size() % 3)
        throw TmeshError(fmt::format("{}: points holds {} numbers, not a multiple of 3 (x y z)",
                                     what, points.size()));
    if (uvs.size() % 2)
        throw TmeshError(
            fmt::format("{}: uvs holds {} numbers, not a multiple of 2 (u v)", what, uvs.size()));
    TpolygonSoup soup;
    for (size_t i = 0; i + 2 < points.size(); i += 3)
        soup.points.push_back({points[i], points[i + 1], points[i + 2]});
    for (size_t i = 0; i + 1 < uvs.size(); i += 2)
        soup.uvs.push_back({uvs[i], uvs[i + 1]});
    for (const int32_t c : counts) {
        if (c < 3)
            throw TmeshError(
                fmt::format("{}: faceCounts holds {}; a face needs at least 3 corners", what, c));
        soup.faceCounts.push_back(uint32_t(c));
    }
    soup.pointIndices.assign(indices.begin(), indices.end());
    if (!uvs.empty())
        // UVs without their own indices go with the points.
        soup.uvIndices.assign(uvIndices.empty() ? indices.begin() : uvIndices.begin(),
                              uvIndices.empty() ? indices.end() : uvIndices.end());
    return OrvoBuildMesh(soup, what);
}

bool Tmesh::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                              unsigned count) {
    if (!computesAttribute(plug.attribute()))
        return TdnPattern::vectorComputePlug(plug, block, first, count);
    // Compute never fails: a bad source gives an empty mesh and leaves the
    // reason in lastError(), which scene loading turns into an error.
    auto built = std::make_shared<TmeshData>();
    fLastError.clear();
    try {
        *built = build(block);
    } catch (const TmeshError& e) {
        fLastError = e.what();
    }
    block.outputValue(aOutMesh).set(Tdata(new TdataMesh(built)));
    const float lo[3] = {built->boundsMin.x, built->boundsMin.y, built->boundsMin.z};
    const float hi[3] = {built->boundsMax.x, built->boundsMax.y, built->boundsMax.z};
    block.outputValue(aBoundingBoxMin).set(3, lo);
    block.outputValue(aBoundingBoxMax).set(3, hi);
    TdataHandle triangles = block.outputValue(aTriangleCount);
    triangles.as<int32_t>() = int32_t(std::min<size_t>(built->triangleCount(), INT32_MAX));
    triangles.setClean();
    return true;
}

std::shared_ptr<const TmeshData> Tmesh::mesh() {
    static const auto kEmpty = std::make_shared<const TmeshData>();
    if (!graph())
        return kEmpty;
    const TdataHandle h = graph()->evaluate(Tplug(this, &aOutMesh));
    const auto* letter =
        h.isNull() ? nullptr : dynamic_cast<const TdataMesh*>(h.as<Tdata>().privateDataStar());
    return letter && letter->mesh() ? letter->mesh() : kEmpty;
}

bool Tmesh::boundingBox(T3Float& min, T3Float& max) const {
    const auto built = const_cast<Tmesh*>(this)->mesh();
    if (built->empty())
        return false;
    min = built->boundsMin;
    max = built->boundsMax;
    return true;
}

void Tmesh::checkInputs() {
    mesh();
    if (!fLastError.empty())
        throw TgraphError(fmt::format("mesh '{}': {}", name(), fLastError));
}
