// An OBJ file either reads into a well-formed mesh or fails with a
// TmeshError: every index a triangle uses names a vertex, and every array
// has one entry per vertex.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "host/scene/mesh_data.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    TmeshData mesh;
    try {
        mesh = OrvoBuildMesh(OrvoReadObjText(text, "fuzz.obj"), "fuzz.obj");
    } catch (const TmeshError&) {
        return 0;
    }
    const size_t n = mesh.vertexCount();
    if (mesh.normals.size() != n || mesh.uvs.size() != n || mesh.tangentsU.size() != n ||
        mesh.tangentsV.size() != n || mesh.indices.size() % 3 != 0)
        std::abort();
    for (const uint32_t i : mesh.indices)
        if (i >= n)
            std::abort();
    return 0;
}
