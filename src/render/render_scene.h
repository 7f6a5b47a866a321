#pragma once

// The scene as the renderer sees it: the graph translated once a frame into
// a camera, a list of objects (one per instance of a visible mesh, each with
// its shading group) and one Embree scene of all their triangles.
//
// Everything lives in the camera's eye space: that is the space of every
// "Camera" sample field, so a hit point is a pointCamera as it stands and
// the shading path never transforms a point twice.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/scene/dag.h"
#include "host/scene/matrix.h"
#include "host/scene/mesh_data.h"
#include "render/pinhole_camera.h"
#include "shading/ray_options.h"
#include "shading/render_thread.h"

class TdependGraph;
class TDNshadingEngine;
class TdnRenderLayer;
class TcameraShape;
struct RTCDeviceTy;
struct RTCSceneTy;

// One instance of a mesh: its triangles in eye space and the shading group
// it renders with. An object is also the render group of the samples shaded
// on it, so a sample's objectId is its object.
class TrenderObject : public TrenderGroupBase {
public:
    unsigned objectId() const override { return fIndex; }
    // Its place among the members of its shading group, which picks the
    // lights that reach it; -1 outside a group.
    int objectIndex() const override { return fMemberIndex; }
    Completion completion() const override { return fCompletion; }
    void* completionData() const override { return const_cast<TrenderObject*>(this); }

    unsigned index() const { return fIndex; }
    // The path's shortest unique name, for messages.
    const std::string& name() const { return fName; }
    const TdagPath& path() const { return fPath; }
    const TmeshData& mesh() const { return *fMesh; }
    // Null when the object has no usable shading group: it renders in the
    // plain default material.
    TDNshadingEngine* engine() const { return fEngine; }
    void setEngine(TDNshadingEngine* engine) { fEngine = engine; }
    // Lets nothing through: shadow rays stop here without shading.
    bool opaque() const { return fOpaque; }
    void setOpaque(bool opaque) { fOpaque = opaque; }
    // What the surface's material does with rays, as its shading group
    // answers (kRayOption bits). A refracting one traces its
    // own refraction rays: what lies behind is already in its colour, so
    // the renderer must not look through it again. A reflecting one traces
    // mirror rays, which the ray sampler answers as it answers refraction.
    bool refracting() const { return fRayOptions & kRayOptionRefracts; }
    bool reflecting() const { return fRayOptions & kRayOptionReflects; }
    void setRayOptions(unsigned options) { fRayOptions = options; }
    void setCompletion(Completion completion) { fCompletion = completion; }

    // Eye-space copies of the mesh's vertex arrays (UVs stay as they are).
    const std::vector<T3Float>& positions() const { return fPositions; }
    const std::vector<T3Float>& normals() const { return fNormals; }
    const std::vector<T3Float>& tangentsU() const { return fTangentsU; }
    const std::vector<T3Float>& tangentsV() const { return fTangentsV; }

    const T4dFltMatrix& objectToWorld() const { return fObjectToWorld; }
    const T4dFltMatrix& worldToObject() const { return fWorldToObject; }
    // Eye space to object space, for pointObj.
    const T4dFltMatrix& eyeToObject() const { return fEyeToObject; }

private:
    friend class TrenderScene;
    unsigned fIndex = 0;
    int fMemberIndex = -1;
    std::string fName;
    TdagPath fPath;
    std::shared_ptr<const TmeshData> fMesh;
    TDNshadingEngine* fEngine = nullptr;
    bool fOpaque = true;
    unsigned fRayOptions = 0;
    bool fMirrored = false;         // the transform turns the winding inside out
    bool fLetsLightThrough = false; // a shadow ray shades it rather than stopping
    Completion fCompletion = nullptr;
    std::vector<T3Float> fPositions, fNormals, fTangentsU, fTangentsV;
    T4dFltMatrix fObjectToWorld, fWorldToObject;
    T4dFltMatrix fEyeToObject;
};

// Where a ray met a surface.
struct Thit {
    float distance = 0.0f;    // along the ray, in units of its direction's length
    float u = 0.0f, v = 0.0f; // barycentric weights of vertices two and three
    unsigned object = 0;
    unsigned primitive = 0;
};

// What the sample fields need to know of a hit, worked out from the
// triangle: everything in eye space.
struct TsurfacePoint {
    T3Float point;
    T3Float normal;         // interpolated, unit, facing the ray
    T3Float triangleNormal; // geometric, unit, facing the ray
    T3Float tangentU, tangentV;
    T2Float uv;
    T3Float vertex[3];
    T2Float vertexUv[3];
    // How the surface position moves with u and with v (zero when the
    // triangle's UVs are degenerate).
    T3Float dPdu, dPdv;
    // The normals were turned to face the ray: the ray hit the back.
    bool flipped = false;
};

// A ray handed over in bulk: from `origin` along `direction` between `near`
// and `far` (in units of the direction's length). `leaving` is the object a
// shadow ray starts on (-1: none): the back of its own triangles does not
// stop it, for a ray that leaves a faceted surface can start just under the
// facets a smooth normal lit.
struct TrayQuery {
    T3Float origin;
    float near = 0.0f;
    T3Float direction;
    float far = 0.0f;
    int leaving = -1;
};

// What lies on a shadow ray. `Clear`: nothing. `Blocked`: a surface that
// stops light outright (opaque, or without a material) and nothing a light
// could pass through. `Crossed`: a surface that may let light through: the
// caller follows the ray surface by surface and shades each one.
enum class TshadowReach : uint8_t { Clear, Blocked, Crossed };

// What one image looks at: the render layer whose view of the scene it
// shows and the camera it looks through.
struct TrenderView {
    // The scene's current layer when unset; null renders through no layer.
    std::optional<const TdnRenderLayer*> layer;
    // Unset: the first renderable camera (with a warning when there are more).
    TdagPath camera;
};

class TrenderScene : public TobjectIdentity {
public:
    // Translates the graph as the view's render layer sees it. `sceneName`
    // names the file in messages. Throws TrenderError when there is nothing
    // to look through (no renderable camera). A mesh in no shading group,
    // or in one without a surface shader, renders in the default material
    // with a warning.
    TrenderScene(TdependGraph& graph, const std::string& sceneName, unsigned width, unsigned height,
                 const TrenderView& view = {});
    ~TrenderScene();
    TrenderScene(const TrenderScene&) = delete;
    TrenderScene& operator=(const TrenderScene&) = delete;

    const TpinholeCamera& camera() const { return *fCamera; }
    const TdagPath& cameraPath() const { return fCameraPath; }
    TcameraShape* cameraShape() const { return fCameraShape; }
    const T4dDblMatrix& eyeToWorld() const { return fEyeToWorld; }
    const T4dDblMatrix& worldToEye() const { return fWorldToEye; }
    // The camera's background colour as the current layer sees it.
    T3Float background() const { return fBackground; }
    const TdnRenderLayer* layer() const { return fLayer; }

    const std::vector<std::unique_ptr<TrenderObject>>& objects() const { return fObjects; }
    TrenderObject& object(unsigned index) const { return *fObjects[index]; }
    // The distinct shading groups of the objects, in the order met.
    const std::vector<TDNshadingEngine*>& engines() const { return fEngines; }
    size_t triangleCount() const;

    // How far a ray that leaves a surface starts from it, so that it does
    // not find the surface it leaves: a small fraction of the scene's size.
    float epsilon() const { return fEpsilon; }

    // The nearest hit of the ray between `near` and `far` (distances in
    // units of the direction's length).
    bool intersect(const T3Float& origin, const T3Float& direction, float near, float far,
                   Thit& hit) const;
    // The nearest hit of each of `count` rays (`found[i]` says whether
    // there is one), traced together: rays that start near one another and
    // run alike (a tile's eye rays) share the walk through the hierarchy.
    void intersect(unsigned count, const TrayQuery* rays, Thit* hits, uint8_t* found,
                   bool coherent) const;
    // Whether anything lies on the ray between `near` and `far`, when which
    // surface it is does not matter.
    bool occluded(const T3Float& origin, const T3Float& direction, float near, float far) const;

    // Sorts the objects into those that stop a shadow ray outright (opaque,
    // or in the default material) and those it must shade, once the shading
    // groups have said which is which; then shadowReach() may be used.
    void setShadowRoles();
    // Whether shadowReach() can answer: the roles are set and the kernel has
    // the filter that passes the back of the surface a ray leaves.
    bool bulkShadows() const { return fBulkShadows; }
    // What lies on each of `count` shadow rays, asked together. Answers
    // only what shadowReach can tell without shading: a `Crossed` ray must
    // still be followed.
    void shadowReach(unsigned count, const TrayQuery* rays, TshadowReach* reach) const;
    // The object whose render group is `id` (a sample's objectId), or -1.
    int objectOf(const void* id) const;
    // The render group of the first instance of the shape `node` (each
    // instance is an object of its own, and a shape names one of them).
    void* objectIdOf(const TdependNode* node) const override;
    // The ray leaves the hit triangle's outside: it hit the triangle's back.
    bool hitsBack(const Thit& hit, const T3Float& direction) const;

    // The surface at a hit, seen along `direction`. Without `tangents` the
    // tangents are left zero (see surfaceTangents).
    TsurfacePoint surfacePoint(const Thit& hit, const T3Float& origin, const T3Float& direction,
                               bool tangents = true) const;
    // The interpolated unit tangents at a hit, into `surface`.
    void surfaceTangents(const Thit& hit, TsurfacePoint& surface) const;

private:
    void findCamera(TdependGraph& graph, const std::string& sceneName, unsigned width,
                    unsigned height, const TdagPath& chosen);
    void addObject(const TdagPath& path, class Tmesh& mesh);
    void buildEmbree();
    // A copy of the object's triangles in `scene`, under the object's index.
    void attachObject(RTCSceneTy* scene, const TrenderObject& object) const;

    std::unique_ptr<TpinholeCamera> fCamera;
    TdagPath fCameraPath;
    TcameraShape* fCameraShape = nullptr;
    T4dDblMatrix fEyeToWorld, fWorldToEye;
    T3Float fBackground;
    const TdnRenderLayer* fLayer = nullptr;
    std::vector<std::unique_ptr<TrenderObject>> fObjects;
    std::vector<TDNshadingEngine*> fEngines;
    std::unordered_map<const void*, unsigned> fObjectOfGroup;
    std::unordered_map<const TdependNode*, TrenderGroupBase*> fGroupOfShape;
    float fEpsilon = 1e-4f;
    bool fBulkShadows = false;
    RTCDeviceTy* fDevice = nullptr;
    RTCSceneTy* fScene = nullptr;
    RTCSceneTy* fSeeThrough = nullptr; // the objects shadow rays shade, alone
    RTCSceneTy* fBlockers = nullptr;   // the objects that stop light, alone
};

// The plain material of an object without a usable shading group.
inline constexpr T3Float kDefaultMaterialColour{0.5f, 0.5f, 0.5f};
