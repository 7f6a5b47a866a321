#include "apps/orvo/shade_grid.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>
#include <unordered_map>

#include "apps/orvo/cli.h"
#include "host/arena.h"
#include "host/graph.h"
#include "shading/ray_sampler.h"
#include "shading/sample_manager.h"
#include "shading/shading_engine.h"

namespace orvo::cli {

unsigned floatsOf(Tsample::FieldKind kind) {
    using K = Tsample::FieldKind;
    switch (kind) {
    case K::Float3:
        return 3;
    case K::Float2:
        return 2;
    case K::Matrix:
        return 16;
    case K::Other:
        return 0;
    default:
        return 1;
    }
}

std::vector<double> readField(const Tsample& sample, unsigned field) {
    using K = Tsample::FieldKind;
    const void* p = sample.field(field);
    switch (Tsample::fieldKind(field)) {
    case K::Float3:
    case K::Float2:
    case K::Float:
    case K::Matrix: {
        const auto* f = static_cast<const float*>(p);
        return std::vector<double>(f, f + floatsOf(Tsample::fieldKind(field)));
    }
    case K::Int32:
        return {double(*static_cast<const int32_t*>(p))};
    case K::UInt32:
        return {double(*static_cast<const uint32_t*>(p))};
    case K::Int16:
        return {double(*static_cast<const int16_t*>(p))};
    case K::Char:
        return {double(*static_cast<const char*>(p))};
    case K::Bool:
        return {*static_cast<const bool*>(p) ? 1.0 : 0.0};
    default:
        return {};
    }
}

GridField makeGridField(const std::string& name, const std::vector<double>& values,
                        const std::string& what) {
    const int field = Tsample::fieldNumber(name.c_str());
    if (field < 0)
        throw UserError(fmt::format("{}: no sample field named '{}'", what, name));
    const Tsample::FieldKind kind = Tsample::fieldKind(unsigned(field));
    const unsigned expected = floatsOf(kind);
    if (expected == 0)
        throw UserError(fmt::format("{}: '{}' cannot be given as numbers", what, name));
    if (values.size() != expected)
        throw UserError(fmt::format("{} {} takes {} value{}, got {}", what, name, expected,
                                    expected == 1 ? "" : "s", values.size()));
    GridField out{unsigned(field), std::vector<std::byte>(Tsample::fieldSizes()[field])};
    using K = Tsample::FieldKind;
    auto* at = out.bytes.data();
    for (size_t i = 0; i < values.size(); ++i) {
        switch (kind) {
        case K::Int32:
            *reinterpret_cast<int32_t*>(at) = int32_t(values[i]);
            break;
        case K::UInt32:
            *reinterpret_cast<uint32_t*>(at) = uint32_t(values[i]);
            break;
        case K::Int16:
            *reinterpret_cast<int16_t*>(at) = int16_t(values[i]);
            break;
        case K::Char:
            *reinterpret_cast<char*>(at) = char(values[i]);
            break;
        case K::Bool:
            *reinterpret_cast<bool*>(at) = values[i] != 0.0;
            break;
        default:
            reinterpret_cast<float*>(at)[i] = float(values[i]);
        }
    }
    return out;
}

TDNshadingEngine& findShadingGroup(TdependGraph& graph, const std::string& group,
                                   const std::string& sceneName, const std::string& command) {
    TdependNode* node = graph.findNode(group);
    if (!node)
        throw UserError(fmt::format("{}: {}: no node named '{}'", command, sceneName, group));
    auto* engine = static_cast<TDNshadingEngine*>(node->cast(TDNshadingEngine::sTypeof()));
    if (!engine)
        throw UserError(fmt::format("{}: {}: '{}' is a {}, not a shading group (shadingEngine)",
                                    command, sceneName, group, node->typeName()));
    return *engine;
}

namespace {

// The group every sample of the grid belongs to: it hands each shaded
// sample, with its cell, to the caller.
class GridGroup : public TrenderGroupBase {
public:
    explicit GridGroup(const std::function<void(unsigned, const Tsample&)>& done) : fDone(done) {}

    std::unordered_map<const Tsample*, unsigned> cellOf;

    Completion completion() const override { return &GridGroup::finished; }
    void* completionData() const override { return const_cast<GridGroup*>(this); }

private:
    static void finished(unsigned, TrenderGroupBase*, Tsample** samples, unsigned count,
                         void* user) {
        auto* self = static_cast<GridGroup*>(user);
        for (unsigned s = 0; s < count; ++s)
            self->fDone(self->cellOf.at(samples[s]), *samples[s]);
    }

    const std::function<void(unsigned, const Tsample&)>& fDone;
};

// Leaves no shading group set up behind, however shading ends.
struct ShadingGroupsReset {
    ~ShadingGroupsReset() { TrenderThreadBase::resetShadingGroups(); }
};

} // namespace

void shadeGrid(TdependGraph& graph, const GridRequest& request,
               const std::function<void(const std::vector<unsigned>&, unsigned)>& ready,
               const std::function<void(unsigned, const Tsample&)>& done) {
    if (request.width == 0 || request.height == 0)
        throw UserError(
            fmt::format("{}: the grid needs a width and a height above 0", request.command));
    TDNshadingEngine& engine =
        findShadingGroup(graph, request.group, request.sceneName, request.command);

    // Drive the library as a renderer does: the pass is the frame's.
    TstackArena frameArena(theMallocAllocator(), 4096, "shade grid frame");
    TframeConstants frame(frameArena);
    frame.setRenderPass(request.pass);
    TrenderThreadBase thread(frame);
    GridGroup grid(done);
    ShadingGroupsReset reset;
    thread.initShadingGroup(&engine);
    const TbitField64 provided = thread.startSampling(&engine, request.option, &grid);
    if (!provided.any())
        throw UserError(fmt::format("{}: '{}' serves none of the fields option {} asks for",
                                    request.command, request.group, request.option));
    std::vector<unsigned> outputs;
    if (request.outputs.empty()) {
        for (unsigned f = 0; f < 64; ++f)
            if (provided.test(f) && Tsample::fieldKind(f) != Tsample::FieldKind::Other)
                outputs.push_back(f);
    } else {
        for (const std::string& name : request.outputs) {
            const int f = Tsample::fieldNumber(name.c_str());
            if (f < 0)
                throw UserError(fmt::format("{}: {}: no sample field named '{}'", request.command,
                                            request.outputsOption, name));
            outputs.push_back(unsigned(f));
        }
    }
    ready(outputs, engine.sampleSize(request.option));

    const unsigned width = request.width, height = request.height;
    const unsigned cells = width * height;
    grid.cellOf.reserve(cells);
    TsampleManager& manager = *thread.sampleManager();
    std::vector<Tsample*> all;
    all.reserve(cells);
    std::vector<Tsample*> samples(manager.batchSize(), nullptr);
    for (unsigned start = 0; start < cells; start += manager.batchSize()) {
        const unsigned count = std::min(manager.batchSize(), cells - start);
        if (manager.allocateSamples(&engine, request.option, &grid, count, samples.data()) != count)
            throw std::runtime_error("cannot allocate samples");
        for (unsigned s = 0; s < count; ++s) {
            const unsigned cell = start + s;
            const unsigned i = cell % width, j = cell / width;
            Tsample& sample = *samples[s];
            sample.setUvCoord((float(i) + 0.5f) / float(width), (float(j) + 0.5f) / float(height));
            for (const GridField& v : request.fields)
                sample.setField(v.field, v.bytes.data(), v.bytes.size());
            grid.cellOf[&sample] = cell;
        }
        manager.dispatchSamples(count, samples.data());
        all.insert(all.end(), samples.begin(), samples.begin() + count);
    }
    manager.flushDispatchedSamples();
    manager.releaseSamples(unsigned(all.size()), all.data());
    thread.endSampling(&engine, request.option, &grid);
}

} // namespace orvo::cli
