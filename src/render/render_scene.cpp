#include "render/render_scene.h"

#include <embree3/rtcore.h>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <set>

#include "host/graph.h"
#include "host/messages.h"
#include "host/scene/camera.h"
#include "host/scene/mesh.h"
#include "host/scene/object_set.h"
#include "host/scene/render_layer.h"
#include "render/render_error.h"
#include "shading/shading_engine.h"

namespace {

T3Float toFloat(const T3dDblVector& v) {
    return {float(v.x), float(v.y), float(v.z)};
}
T3dDblVector toDouble(const T3Float& v) {
    return {v.x, v.y, v.z};
}
T3Float unit(const T3Float& v) {
    const float length = OrvoLength(v);
    return length > 0.0f ? v * (1.0f / length) : v;
}

// Embree reports its own faults through this: they are faults of ours.
void embreeError(void* /*user*/, RTCError code, const char* text) {
    if (code == RTC_ERROR_NONE)
        return;
    TcommandEngine::displayError(fmt::format("ray tracing kernel: {}", text ? text : "error"));
}

// A normal goes through the inverse transpose: n' = n * (M^-1)^T for row
// vectors, which is n'_j = sum_i n_i * inverse[j][i].
T3Float transformNormal(const T4dDblMatrix& inverse, const T3Float& n) {
    T3dDblVector out;
    for (int j = 0; j < 3; ++j)
        out[j] = n.x * inverse.m[j][0] + n.y * inverse.m[j][1] + n.z * inverse.m[j][2];
    return unit(toFloat(out));
}

double determinant3(const T4dDblMatrix& m) {
    const auto& a = m.m;
    return a[0][0] * (a[1][1] * a[2][2] - a[1][2] * a[2][1]) -
           a[0][1] * (a[1][0] * a[2][2] - a[1][2] * a[2][0]) +
           a[0][2] * (a[1][0] * a[2][1] - a[1][1] * a[2][0]);
}

// The place of a path among a set's members: the member that is the path
// itself, or failing that the nearest group above it.
int memberIndex(const TobjectSet& set, const TdagPath& path) {
    TselectionList members;
    set.completeGroupedMembers(members);
    for (TdagPathIterator it(path); !it.isDone(); it.next()) {
        const int at = members.indexOf(TdagSelectionItem(it.path()));
        if (at >= 0)
            return at;
    }
    return -1;
}

// Every ray sees every object of the hierarchy it asks: a shadow ray's two
// questions go to hierarchies of their own rather than through masks.
constexpr unsigned kEveryObject = 0xFFFFFFFFu;
// Rays handed to the kernel at a time, from arrays on the stack.
constexpr unsigned kRayChunk = 64;

// A shadow query's context: Embree hands the filter back a pointer to the
// first member, and the filter finds the queries behind it.
struct LeavingContext {
    RTCIntersectContext context;
    const TrenderScene* scene = nullptr;
    const TrayQuery* rays = nullptr; // indexed by the ray's id
};

// The back of the object a shadow ray leaves does not stop it (see
// TrayQuery::leaving).
void passOwnBack(const RTCFilterFunctionNArguments* args) {
    const auto* c = reinterpret_cast<const LeavingContext*>(args->context);
    for (unsigned i = 0; i < args->N; ++i) {
        if (args->valid[i] != -1)
            continue;
        const TrayQuery& q = c->rays[RTCRayN_id(args->ray, args->N, i)];
        const unsigned object = RTCHitN_geomID(args->hit, args->N, i);
        if (q.leaving < 0 || object != unsigned(q.leaving))
            continue;
        Thit hit;
        hit.object = object;
        hit.primitive = RTCHitN_primID(args->hit, args->N, i);
        if (c->scene->hitsBack(hit, q.direction))
            args->valid[i] = 0;
    }
}

void setRay(RTCRay& ray, const TrayQuery& q, unsigned id) {
    ray.org_x = q.origin.x;
    ray.org_y = q.origin.y;
    ray.org_z = q.origin.z;
    ray.tnear = q.near;
    ray.dir_x = q.direction.x;
    ray.dir_y = q.direction.y;
    ray.dir_z = q.direction.z;
    ray.time = 0.0f;
    ray.tfar = q.far;
    ray.mask = kEveryObject;
    ray.id = id;
    ray.flags = 0;
}

} // namespace

TrenderScene::TrenderScene(TdependGraph& graph, const std::string& sceneName, unsigned width,
                           unsigned height, const TrenderView& view) {
    fLayer = view.layer ? *view.layer : TdnRenderLayerManager::currentLayer(graph);
    findCamera(graph, sceneName, width, height, view.camera);

    // Every visible instance of a mesh in the layer, parents before children.
    for (TdagIterator it(graph); !it.isDone(); it.next()) {
        auto* shape = Tshape::fromNode(it.node());
        if (!shape || !shape->isRenderableGeometry())
            continue;
        auto* mesh = dynamic_cast<Tmesh*>(shape);
        if (!mesh || !TdagPathUtils::isObjectVisible(it.path(), fLayer) ||
            !TdagPathUtils::inRenderLayer(it.path(), fLayer))
            continue;
        addObject(it.path(), *mesh);
    }

    // Shading groups: the first one that holds the path or a group above
    // it. Each problem is told once per group or object, not per instance.
    std::set<const TDNshadingEngine*> warned;
    for (const auto& object : fObjects) {
        TDNshadingEngine* engine = nullptr;
        for (TobjectSet* set : TobjectSet::setsOfPathAndGroups(object->path())) {
            engine = static_cast<TDNshadingEngine*>(set->cast(TDNshadingEngine::sTypeof()));
            if (engine)
                break;
        }
        if (!engine) {
            TcommandEngine::displayWarning(
                fmt::format("{}: '{}' is in no shading group; it renders in the default material",
                            sceneName, object->name()));
        } else if (Tplug(engine, &TDNshadingEngine::aSurfaceShader).source().isNull()) {
            if (warned.insert(engine).second)
                TcommandEngine::displayWarning(
                    fmt::format("{}: shading group '{}' has no surface shader; its members render "
                                "in the default material",
                                sceneName, engine->name()));
            engine = nullptr;
        }
        object->setEngine(engine);
        object->fMemberIndex = engine ? memberIndex(*engine, object->path()) : -1;
        if (engine && std::find(fEngines.begin(), fEngines.end(), engine) == fEngines.end())
            fEngines.push_back(engine);
    }
    for (const auto& object : fObjects) {
        fObjectOfGroup[static_cast<const TrenderGroupBase*>(object.get())] = object->index();
        fGroupOfShape.emplace(object->path().node(), object.get());
    }
    buildEmbree();
}

TrenderScene::~TrenderScene() {
    if (fBlockers)
        rtcReleaseScene(fBlockers);
    if (fSeeThrough)
        rtcReleaseScene(fSeeThrough);
    if (fScene)
        rtcReleaseScene(fScene);
    if (fDevice)
        rtcReleaseDevice(fDevice);
}

void TrenderScene::findCamera(TdependGraph& graph, const std::string& sceneName, unsigned width,
                              unsigned height, const TdagPath& chosen) {
    const TdagPathArray cameras =
        chosen.isValid() ? TdagPathArray{chosen} : TcameraShape::renderableCameras(graph, fLayer);
    if (cameras.empty())
        throw TrenderError(fmt::format("{}: error: the scene has no renderable camera; add one "
                                       "with 'node camera NAME -parent TRANSFORM'",
                                       sceneName));
    fCameraPath = cameras.front();
    fCameraShape = dynamic_cast<TcameraShape*>(fCameraPath.node());
    if (!fCameraShape)
        throw TrenderError(fmt::format("{}: error: '{}' is not a camera", sceneName,
                                       fCameraPath.partialPathName()));
    if (cameras.size() > 1)
        TcommandEngine::displayWarning(
            fmt::format("{}: {} renderable cameras; rendering through '{}'", sceneName,
                        cameras.size(), fCameraPath.partialPathName()));
    fEyeToWorld = TcameraShape::eyeToWorld(fCameraPath);
    fWorldToEye = TcameraShape::worldToEye(fCameraPath);
    fBackground = fCameraShape->backgroundColor(fLayer);
    fCamera = std::make_unique<TpinholeCamera>(fCameraShape->values(), width, height);
}

void TrenderScene::addObject(const TdagPath& path, Tmesh& mesh) {
    auto built = mesh.mesh();
    if (!built || built->empty())
        return;
    auto object = std::make_unique<TrenderObject>();
    object->fIndex = unsigned(fObjects.size());
    object->fName = path.partialPathName();
    object->fPath = path;
    object->fMesh = built;

    const T4dDblMatrix toWorld = path.inclusiveMatrix();
    const T4dDblMatrix toEye = toWorld * fWorldToEye;
    const T4dDblMatrix fromEye = toEye.inverse();
    object->fObjectToWorld = toWorld.asFloat();
    object->fWorldToObject = toWorld.inverse().asFloat();
    object->fEyeToObject = fromEye.asFloat();
    object->fMirrored = determinant3(toEye) < 0.0;

    const TmeshData& m = *built;
    const size_t n = m.vertexCount();
    object->fPositions.resize(n);
    object->fNormals.resize(n);
    object->fTangentsU.resize(n);
    object->fTangentsV.resize(n);
    for (size_t i = 0; i < n; ++i) {
        object->fPositions[i] = toFloat(toEye.transformPoint(toDouble(m.positions[i])));
        object->fNormals[i] = transformNormal(fromEye, m.normals[i]);
        object->fTangentsU[i] = unit(toFloat(toEye.transformVector(toDouble(m.tangentsU[i]))));
        object->fTangentsV[i] = unit(toFloat(toEye.transformVector(toDouble(m.tangentsV[i]))));
    }
    fObjects.push_back(std::move(object));
}

void TrenderScene::attachObject(RTCSceneTy* scene, const TrenderObject& object) const {
    const TmeshData& m = object.mesh();
    RTCGeometry geometry = rtcNewGeometry(fDevice, RTC_GEOMETRY_TYPE_TRIANGLE);
    auto* vertices = static_cast<float*>(
        rtcSetNewGeometryBuffer(geometry, RTC_BUFFER_TYPE_VERTEX, 0, RTC_FORMAT_FLOAT3,
                                3 * sizeof(float), object.fPositions.size()));
    for (size_t i = 0; i < object.fPositions.size(); ++i) {
        const T3Float& p = object.fPositions[i];
        vertices[3 * i] = p.x;
        vertices[3 * i + 1] = p.y;
        vertices[3 * i + 2] = p.z;
    }
    auto* indices = static_cast<unsigned*>(
        rtcSetNewGeometryBuffer(geometry, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3,
                                3 * sizeof(unsigned), m.triangleCount()));
    std::copy(m.indices.begin(), m.indices.end(), indices);
    rtcCommitGeometry(geometry);
    // The object's index is its geometry's id in every scene.
    rtcAttachGeometryByID(scene, geometry, object.fIndex);
    rtcReleaseGeometry(geometry);
}

void TrenderScene::buildEmbree() {
    fDevice = rtcNewDevice("threads=1");
    if (!fDevice)
        throw TrenderError("the ray tracing kernel cannot start (embree device)");
    rtcSetDeviceErrorFunction(fDevice, embreeError, nullptr);
    fScene = rtcNewScene(fDevice);
    // Shadow rays pass the back of the surface they leave through a
    // filter of their own; no other ray has one.
    rtcSetSceneFlags(fScene, RTC_SCENE_FLAG_CONTEXT_FILTER_FUNCTION);
    T3Float low{1e30f, 1e30f, 1e30f}, high{-1e30f, -1e30f, -1e30f};
    for (const auto& object : fObjects) {
        for (const T3Float& p : object->fPositions)
            for (int k = 0; k < 3; ++k) {
                low[k] = std::min(low[k], p[k]);
                high[k] = std::max(high[k], p[k]);
            }
        attachObject(fScene, *object);
    }
    rtcCommitScene(fScene);
    if (!fObjects.empty()) {
        // Float precision near the farthest point sets how far a leaving
        // ray must start from its surface.
        float extent = 0.0f;
        for (int k = 0; k < 3; ++k)
            extent = std::max({extent, std::fabs(low[k]), std::fabs(high[k])});
        fEpsilon = std::max(1e-5f, extent * 2e-5f);
    }
}

size_t TrenderScene::triangleCount() const {
    size_t total = 0;
    for (const auto& object : fObjects)
        total += object->mesh().triangleCount();
    return total;
}

bool TrenderScene::intersect(const T3Float& origin, const T3Float& direction, float near, float far,
                             Thit& hit) const {
    RTCIntersectContext context;
    rtcInitIntersectContext(&context);
    RTCRayHit rh;
    rh.ray.org_x = origin.x;
    rh.ray.org_y = origin.y;
    rh.ray.org_z = origin.z;
    rh.ray.tnear = near;
    rh.ray.dir_x = direction.x;
    rh.ray.dir_y = direction.y;
    rh.ray.dir_z = direction.z;
    rh.ray.time = 0.0f;
    rh.ray.tfar = far;
    rh.ray.mask = kEveryObject;
    rh.ray.id = 0;
    rh.ray.flags = 0;
    rh.hit.geomID = RTC_INVALID_GEOMETRY_ID;
    rh.hit.instID[0] = RTC_INVALID_GEOMETRY_ID;
    rtcIntersect1(fScene, &context, &rh);
    if (rh.hit.geomID == RTC_INVALID_GEOMETRY_ID)
        return false;
    hit.distance = rh.ray.tfar;
    hit.u = rh.hit.u;
    hit.v = rh.hit.v;
    hit.object = rh.hit.geomID;
    hit.primitive = rh.hit.primID;
    return true;
}

void TrenderScene::intersect(unsigned count, const TrayQuery* rays, Thit* hits, uint8_t* found,
                             bool coherent) const {
    RTCIntersectContext context;
    rtcInitIntersectContext(&context);
    context.flags =
        coherent ? RTC_INTERSECT_CONTEXT_FLAG_COHERENT : RTC_INTERSECT_CONTEXT_FLAG_INCOHERENT;
    alignas(16) RTCRayHit chunk[kRayChunk];
    for (unsigned at = 0; at < count; at += kRayChunk) {
        const unsigned n = std::min(kRayChunk, count - at);
        for (unsigned j = 0; j < n; ++j) {
            setRay(chunk[j].ray, rays[at + j], j);
            chunk[j].hit.geomID = RTC_INVALID_GEOMETRY_ID;
            chunk[j].hit.instID[0] = RTC_INVALID_GEOMETRY_ID;
        }
        rtcIntersect1M(fScene, &context, chunk, n, sizeof(RTCRayHit));
        for (unsigned j = 0; j < n; ++j) {
            const RTCRayHit& rh = chunk[j];
            found[at + j] = rh.hit.geomID != RTC_INVALID_GEOMETRY_ID;
            if (!found[at + j])
                continue;
            Thit& hit = hits[at + j];
            hit.distance = rh.ray.tfar;
            hit.u = rh.hit.u;
            hit.v = rh.hit.v;
            hit.object = rh.hit.geomID;
            hit.primitive = rh.hit.primID;
        }
    }
}

void TrenderScene::setShadowRoles() {
    bool changed = false;
    bool seeThrough = false;
    for (const auto& object : fObjects) {
        const bool through = !object->opaque() && object->engine() != nullptr;
        seeThrough = seeThrough || through;
        changed = changed || object->fLetsLightThrough != through;
        object->fLetsLightThrough = through;
    }
    // The surfaces a shadow ray must shade get a hierarchy of their own,
    // and so do those that stop light, so that neither question walks the
    // boxes of the other kind. Without see-through surfaces the whole scene
    // blocks.
    if (changed || (seeThrough && !fSeeThrough)) {
        for (RTCSceneTy** own : {&fSeeThrough, &fBlockers})
            if (*own) {
                rtcReleaseScene(*own);
                *own = nullptr;
            }
        if (seeThrough) {
            fSeeThrough = rtcNewScene(fDevice);
            fBlockers = rtcNewScene(fDevice);
            rtcSetSceneFlags(fBlockers, RTC_SCENE_FLAG_CONTEXT_FILTER_FUNCTION);
            for (const auto& object : fObjects)
                attachObject(object->fLetsLightThrough ? fSeeThrough : fBlockers, *object);
            rtcCommitScene(fSeeThrough);
            rtcCommitScene(fBlockers);
        }
    }
    // The blockers' question passes the back of the surface a ray leaves
    // through a filter: a kernel built without filters sends shadow rays
    // one at a time.
    fBulkShadows =
        rtcGetDeviceProperty(fDevice, RTC_DEVICE_PROPERTY_FILTER_FUNCTION_SUPPORTED) != 0;
}

void TrenderScene::shadowReach(unsigned count, const TrayQuery* rays, TshadowReach* reach) const {
    LeavingContext blockers;
    rtcInitIntersectContext(&blockers.context);
    // A shading batch's rays toward one light start close together and
    // point alike.
    blockers.context.flags = RTC_INTERSECT_CONTEXT_FLAG_COHERENT;
    blockers.context.filter = passOwnBack;
    blockers.scene = this;
    RTCIntersectContext seeThrough;
    rtcInitIntersectContext(&seeThrough);
    seeThrough.flags = RTC_INTERSECT_CONTEXT_FLAG_COHERENT;
    alignas(16) RTCRay chunk[kRayChunk];
    for (unsigned at = 0; at < count; at += kRayChunk) {
        const unsigned n = std::min(kRayChunk, count - at);
        blockers.rays = rays + at;
        for (unsigned j = 0; j < n; ++j)
            setRay(chunk[j], rays[at + j], j);
        rtcOccluded1M(fBlockers ? fBlockers : fScene, &blockers.context, chunk, n, sizeof(RTCRay));
        // A blocked ray comes back with tfar at minus infinity.
        for (unsigned j = 0; j < n; ++j)
            reach[at + j] = chunk[j].tfar < 0.0f ? TshadowReach::Blocked : TshadowReach::Clear;
        if (!fSeeThrough)
            continue;
        // A surface that may let light through, anywhere on the ray, even
        // behind a blocker: what the light loses on the way there scales
        // the shadow's fraction, so the ray is followed in order.
        for (unsigned j = 0; j < n; ++j)
            setRay(chunk[j], rays[at + j], j);
        rtcOccluded1M(fSeeThrough, &seeThrough, chunk, n, sizeof(RTCRay));
        for (unsigned j = 0; j < n; ++j)
            if (chunk[j].tfar < 0.0f)
                reach[at + j] = TshadowReach::Crossed;
    }
}

bool TrenderScene::occluded(const T3Float& origin, const T3Float& direction, float near,
                            float far) const {
    RTCIntersectContext context;
    rtcInitIntersectContext(&context);
    RTCRay ray;
    ray.org_x = origin.x;
    ray.org_y = origin.y;
    ray.org_z = origin.z;
    ray.tnear = near;
    ray.dir_x = direction.x;
    ray.dir_y = direction.y;
    ray.dir_z = direction.z;
    ray.time = 0.0f;
    ray.tfar = far;
    ray.mask = kEveryObject;
    ray.id = 0;
    ray.flags = 0;
    rtcOccluded1(fScene, &context, &ray);
    // A blocked ray comes back with tfar at minus infinity.
    return ray.tfar < 0.0f;
}

int TrenderScene::objectOf(const void* id) const {
    const auto found = fObjectOfGroup.find(id);
    return found == fObjectOfGroup.end() ? -1 : int(found->second);
}

void* TrenderScene::objectIdOf(const TdependNode* node) const {
    const auto found = fGroupOfShape.find(node);
    return found == fGroupOfShape.end() ? nullptr : static_cast<void*>(found->second);
}

bool TrenderScene::hitsBack(const Thit& hit, const T3Float& direction) const {
    const TrenderObject& object = *fObjects[hit.object];
    const uint32_t* corner = &object.mesh().indices[3 * size_t(hit.primitive)];
    const T3Float& a = object.fPositions[corner[0]];
    const T3Float n = OrvoCross(object.fPositions[corner[1]] - a, object.fPositions[corner[2]] - a);
    const float facing = OrvoDot(n, direction);
    return object.fMirrored ? facing < 0.0f : facing > 0.0f;
}

namespace {
// A hit's triangle corners and their barycentric weights.
struct HitCorners {
    const uint32_t* corner;
    float w0, w1, w2;
    HitCorners(const TmeshData& m, const Thit& hit)
        : corner(&m.indices[3 * size_t(hit.primitive)]), w0(1.0f - hit.u - hit.v), w1(hit.u),
          w2(hit.v) {}
    // A value given at the vertices, at the hit.
    T3Float blend(const std::vector<T3Float>& a) const {
        return a[corner[0]] * w0 + a[corner[1]] * w1 + a[corner[2]] * w2;
    }
};
} // namespace

void TrenderScene::surfaceTangents(const Thit& hit, TsurfacePoint& s) const {
    const TrenderObject& object = *fObjects[hit.object];
    const HitCorners at(object.mesh(), hit);
    s.tangentU = unit(at.blend(object.fTangentsU));
    s.tangentV = unit(at.blend(object.fTangentsV));
}

TsurfacePoint TrenderScene::surfacePoint(const Thit& hit, const T3Float& origin,
                                         const T3Float& direction, bool tangents) const {
    const TrenderObject& object = *fObjects[hit.object];
    const TmeshData& m = object.mesh();
    const HitCorners at(m, hit);
    const uint32_t* corner = at.corner;
    const float w0 = at.w0, w1 = at.w1, w2 = at.w2;
    TsurfacePoint s;
    for (int k = 0; k < 3; ++k) {
        s.vertex[k] = object.fPositions[corner[k]];
        s.vertexUv[k] = m.uvs[corner[k]];
    }
    s.point = origin + direction * hit.distance;
    s.normal = unit(at.blend(object.fNormals));
    if (tangents)
        surfaceTangents(hit, s);
    s.uv = {s.vertexUv[0].x * w0 + s.vertexUv[1].x * w1 + s.vertexUv[2].x * w2,
            s.vertexUv[0].y * w0 + s.vertexUv[1].y * w1 + s.vertexUv[2].y * w2};

    const T3Float e1 = s.vertex[1] - s.vertex[0], e2 = s.vertex[2] - s.vertex[0];
    T3Float geometric = unit(OrvoCross(e1, e2));
    if (object.fMirrored)
        geometric = geometric * -1.0f;
    s.triangleNormal = geometric;

    // Position derivatives along u and v, from the triangle's UV layout.
    const float du1 = s.vertexUv[1].x - s.vertexUv[0].x, dv1 = s.vertexUv[1].y - s.vertexUv[0].y;
    const float du2 = s.vertexUv[2].x - s.vertexUv[0].x, dv2 = s.vertexUv[2].y - s.vertexUv[0].y;
    const float det = du1 * dv2 - dv1 * du2;
    if (std::fabs(det) > 1e-12f) {
        const float r = 1.0f / det;
        s.dPdu = (e1 * dv2 - e2 * dv1) * r;
        s.dPdv = (e2 * du1 - e1 * du2) * r;
    }

    // Surfaces have two sides: the normals face the ray that sees them.
    if (OrvoDot(geometric, direction) > 0.0f) {
        s.flipped = true;
        s.triangleNormal = geometric * -1.0f;
        s.normal = s.normal * -1.0f;
    }
    return s;
}
